#pragma once

#include <cstdint>

namespace orx::blac {
struct PackedSweep;
}

namespace orx {

/// Products of compressed rows with several vectors that pack the vectors on the way, see
/// blac/impl/PackedSweeps.h. They take scratch memory for up to eight vectors at a time.
class PackedProducts {
public:
  PackedProducts(double const* values, std::int32_t const* rowPointers, std::int32_t const* columnIndices,
                 std::int32_t rows, std::int32_t columns)
      : m_values(values), m_rowPointers(rowPointers), m_columnIndices(columnIndices), m_rows(rows),
        m_columns(columns) {}

  /// Whether so many entries lie far from those of the row before that packing costs less than it saves.
  bool Pay(int vectors) const;
  /// y = A * x, y = A^T * x.
  void Multiply(double const* x, int vectors, double* y) const;
  void MultiplyTransposed(double const* x, int vectors, double* y) const;
  /// The product of the symmetric form; vectors are `rows` long. Without packing where the rows are those of
  /// a grid, which are taken together. REQUIRES: columns <= rows.
  void MultiplySymmetric(double const* diagonal, double const* x, int vectors, double* y) const;

private:
  std::int64_t SlotsOfRing(int lanes) const;
  orx::blac::PackedSweep SweepWith(double const* x, double* y, double* scratch) const;

  double const* m_values;
  std::int32_t const* m_rowPointers;
  std::int32_t const* m_columnIndices;
  std::int32_t m_rows;
  std::int32_t m_columns;
};

} // namespace orx
