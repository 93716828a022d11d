#pragma once

#include "blac/sparse/InterleavedKernels.h"
#include "blac/sparse/RowArrays.h"
#include "blac/sparse/RowPatterns.h"
#include "blac/sparse/SpmvKernels.h"

#include <cstdint>

namespace orx::blac {

/// A product of a sparse matrix with several vectors. The constructor decides, from the pattern of the rows
/// and the number of vectors, which vectors are interleaved; the others go through the SpMV kernels. Either
/// way each vector gets the same bits.
///
///     vectors      0 ... 7    8 ... 15    16 17
///                  interleaved, in        SpMV kernels
///                  groups of eight
///
/// The arrays of the matrix lie elsewhere and must not change while the object is used.
class SparseProduct {
public:
  enum class Kind : std::uint8_t {
    General,    ///< y = A * x          x: `columns` long, y: `rows` long
    Transposed, ///< y = A^T * x        x: `rows` long, y: `columns` long
    Symmetric   ///< of the symmetric form, both `rows` long. REQUIRES: columns <= rows
  };

  SparseProduct(Kind kind, RowArrays const& matrix, std::int32_t rows, std::int32_t columns,
                RowPattern pattern, int vectors);

  /// Number of doubles that Multiply needs as workspace; 0 when no vector is interleaved.
  std::int64_t WorkspaceSize() const;
  /// Overwrites y. The diagonal has `columns` values or more, and is read by symmetric products only. The
  /// workspace may hold anything; it is not read when its size is 0.
  void Multiply(double const* diagonal, double const* x, double* y, double* workspace) const;

private:
  bool IsScattered() const;
  int FewestToInterleave() const;
  std::int64_t ChooseRingSlots() const;
  std::ptrdiff_t LengthOfX() const { return m_kind == Kind::General ? m_columns : m_rows; }
  std::ptrdiff_t LengthOfY() const { return m_kind == Kind::Transposed ? m_columns : m_rows; }
  void MultiplyInterleaved(InterleavedOperands operands) const;

  RowArrays m_matrix;
  std::int32_t m_rows;
  std::int32_t m_columns;
  int m_vectors;
  int m_interleaved = 0;        ///< vectors, from the first one on
  std::int64_t m_ringSlots = 0; ///< symmetric products with interleaved vectors
  Kind m_kind;
  RowPattern m_pattern;
};

} // namespace orx::blac
