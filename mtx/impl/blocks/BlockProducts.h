#pragma once

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/impl/blocks/BlockRanges.h"

#include <cstdint>
#include <vector>

// What the products of block matrices have in common: checks of their operands, how they are cut, and the
// product of two parts in memory.

namespace orx {

// Checks; errors name the source of the block matrix and `line`

/// Raises error 206 for `operation` unless the condition holds.
void RequireInput(bool condition, char const* operation, int line);
/// Raises error 203 unless the leading rows x columns can be read from the matrix.
void RequireReadable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line);
/// Raises error 204 unless the leading rows x columns can be written to the matrix.
void RequireWritable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line);
/// Raises error 206 when the `count` values that are read at `from` and the rows x columns values with a
/// leading dimension that are written at `to` overlap: the first block of the result would change the operand
/// of the next.
void RequireApart(double const* from, std::int64_t count, double const* to, std::int64_t leadingDimension,
                  std::int64_t rows, std::int64_t columns, char const* operation, int line);

/// True when the buffer of a matrix has rows x columns values.
inline bool Holds(ORXSrvMatrix const& matrix, std::int64_t rows, std::int64_t columns) {
  return matrix.NumberOfStoredValues() >= rows * columns;
}
/// True when a matrix is full and has at least `rows` rows and `columns` columns.
inline bool Covers(ORXSrvMatrix const& matrix, int rows, int columns) {
  return !matrix.IsDiagonal() && matrix.NumberOfRows() >= rows && matrix.NumberOfColumns() >= columns;
}

// Checks of C = A^T * B, with B in memory or a block matrix; `rows` are those of A

/// Raises the error that reading the leading rows of B would raise.
void RequireReadableRows(ORXSrvDenseMatrix const& b, int rows);
void RequireReadableRows(ORXSrvMatrix const& b, int rows);
inline void RequireApartFrom(ORXSrvDenseMatrix const&, ORXSrvMatrix const&, int) {}
void RequireApartFrom(ORXSrvMatrix const& b, ORXSrvMatrix const& c, int rows);
/// Sets the leading rows x columns to zero.
void ClearRectangle(ORXSrvMatrix& matrix, int rows, int columns);

// Strips

// A matrix that is stored whole, or in long chunks, is one block. Work areas of 64 MB are enough for the full
// speed of DGEMM: a larger block is processed in strips.

/// Number of values in the work memory.
std::int64_t WorkMemoryValues();
/// Number of rows or columns of `length` values that fit into the work memory; at least one.
int LargestStrip(std::int64_t length);
/// Returns the row blocks, cut where `columns` values for each row exceed a strip.
std::vector<BlockRange> CutRowBlocks(ORXSrvDenseMatrix const& matrix, int columns);
std::vector<BlockRange> CutColumnBlocks(ORXSrvDenseMatrix const& matrix, int rows);

/// Least number of columns of a strip of A: narrower strips make DGEMM slow.
constexpr int leastStripWidth = 64;
/// Number of columns of a strip that stays in the second-level cache until DGEMM has packed it. With 8192
/// columns of A and 64 columns of b, whole row blocks, which do not stay there, take 1.15 times as long.
int CachedStripWidth(int rows);

// Products of parts

/// Column-major values with a leading dimension.
struct Values {
  double const* values = nullptr;
  int leadingDimension = 0;
};
struct Target {
  double* values;
  int leadingDimension;
};

inline Values AsOperand(ORXSrvMatrix const& matrix) { return {matrix.Values(), matrix.NumberOfRows()}; }
inline Target AsTarget(ORXSrvMatrix& matrix) { return {matrix.Values(), matrix.NumberOfRows()}; }

/// c = alpha * a * b + beta * c; a is m x k, b k x n.
void Gemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c);
/// c = alpha * a^T * b + beta * c; a is k x m, b k x n. If a and b have no values (k = 0), c = beta * c.
void TransposedGemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c);
/// c = alpha * a * b^T + beta * c; a is m x k, b n x k.
void GemmTransposed(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c);
/// c = beta * c, m x n: the product of factors without values. With beta 0 a NaN in c becomes 0.
void ScaleBy(double beta, int m, int n, Target c);

} // namespace orx
