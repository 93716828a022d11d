#pragma once

#include "blac/sparse/RowPatterns.h"

#include <cstdint>

namespace orx::blac {
struct PackedSweep;
struct SparseSweep;
} // namespace orx::blac

namespace orx {

/// Products of compressed rows with several vectors, each group of eight and the rest as the pattern
/// suggests: by the sparse kernels, or with the vectors of the group packed on the way, see
/// blac/sparse/PackedSweeps.h. That takes scratch memory for up to eight vectors at a time.
class PackedProducts {
public:
  PackedProducts(double const* values, std::int32_t const* rowPointers, std::int32_t const* columnIndices,
                 std::int32_t rows, std::int32_t columns, RowPattern pattern)
      : m_values(values), m_rowPointers(rowPointers), m_columnIndices(columnIndices), m_rows(rows),
        m_columns(columns), m_pattern(pattern) {}

  /// y = A * x, y = A^T * x.
  void Multiply(double const* x, int vectors, double* y) const;
  void MultiplyTransposed(double const* x, int vectors, double* y) const;
  /// The product of the symmetric form; vectors are `rows` long. REQUIRES: columns <= rows.
  void MultiplySymmetric(double const* diagonal, double const* x, int vectors, double* y) const;

private:
  int FewestToPack(int vectors) const;
  int FewestToPackSymmetric(int vectors) const;
  bool IsScattered(int vectors) const;
  std::int64_t SlotsOfRing(int lanes) const;
  blac::SparseSweep KernelWith(double const* x, double* y) const;
  blac::PackedSweep SweepWith(double const* x, double* y, double* scratch) const;

  double const* m_values;
  std::int32_t const* m_rowPointers;
  std::int32_t const* m_columnIndices;
  std::int32_t m_rows;
  std::int32_t m_columns;
  RowPattern m_pattern;
};

} // namespace orx
