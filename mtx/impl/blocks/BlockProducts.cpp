#include "mtx/impl/blocks/BlockProducts.h"

#include "blac/BLAC.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/matrix/ProductMemory.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace orx {

namespace {
constexpr auto& sourceFile = orx::denseMatrixSource;
} // namespace

// Checks

void RequireInput(bool condition, char const* operation, int line) {
  if (!condition) ORXSrvMtxIllegalInput(operation).Throw(sourceFile, line);
}

void RequireReadable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line) {
  if (rows > matrix.NumberOfRows() || columns > matrix.NumberOfColumns())
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, line);
}

void RequireWritable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line) {
  if (rows > matrix.NumberOfRows() || columns > matrix.NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, line);
}

void RequireApart(double const* from, std::int64_t count, double const* to, std::int64_t leadingDimension,
                  std::int64_t rows, std::int64_t columns, char const* operation, int line) {
  if (count == 0 || rows == 0 || columns == 0) return;
  std::int64_t const written = leadingDimension * (columns - 1) + rows;
  std::less<double const*> const isBefore;
  RequireInput(!isBefore(from, to + written) || !isBefore(to, from + count), operation, line);
}

void RequireReadableRows(ORXSrvDenseMatrix const& b, int rows) {
  RequireReadable(b, rows, b.NumberOfColumns(), __LINE__);
}
void RequireReadableRows(ORXSrvMatrix const& b, int rows) {
  RequireInput(Covers(b, rows, 0), "GetValues", __LINE__);
}

void RequireApartFrom(ORXSrvMatrix const& b, ORXSrvMatrix const& c, int rows) {
  RequireApart(b.Values(), b.NumberOfStoredValues(), c.Values(), c.NumberOfRows(), rows, b.NumberOfColumns(),
               "TransposeMultiply", __LINE__);
}

void ClearRectangle(ORXSrvMatrix& matrix, int rows, int columns) {
  for (std::int64_t j = 0; j < columns; ++j)
    std::fill_n(matrix.Values() + j * matrix.NumberOfRows(), rows, 0.0);
}

// Strips

std::int64_t WorkMemoryValues() {
  return ORXSrvDenseMatrix::WorkMemory() / static_cast<std::int64_t>(sizeof(double));
}

int LargestStrip(std::int64_t length) {
  std::int64_t const lines = WorkMemoryValues() / std::max<std::int64_t>(length, 1);
  return static_cast<int>(std::clamp<std::int64_t>(lines, 1, std::numeric_limits<int>::max()));
}

namespace {
/// Number of rows or columns of `length` values in 64 MB; `least` if that is more and the work memory holds
/// them.
int StripSize(std::int64_t length, int least) {
  std::int64_t const lines = (std::int64_t{1} << 23) / std::max<std::int64_t>(length, 1);
  return std::min(LargestStrip(length), static_cast<int>(std::max<std::int64_t>(lines, least)));
}
} // namespace

std::vector<BlockRange> CutRowBlocks(ORXSrvDenseMatrix const& matrix, int columns) {
  return CutRanges(GroupRowBlocks(matrix), StripSize(columns, 1024));
}
std::vector<BlockRange> CutColumnBlocks(ORXSrvDenseMatrix const& matrix, int rows) {
  return CutRanges(GroupColumnBlocks(matrix), StripSize(rows, 64));
}

int CachedStripWidth(int rows) {
  constexpr int stripValues = (1 << 20) / sizeof(double);
  return std::max(leastStripWidth, stripValues / std::max(rows, 1));
}

// Products of parts

namespace {

/// Returns the leading dimension for DGEMM, which refuses the 0 of a matrix without rows.
int const* BlasLeadingDimension(int const& dimension) {
  static constexpr int one = 1;
  return dimension > 0 ? &dimension : &one;
}

void Multiply(char const* formOfA, char const* formOfB, int m, int n, int k, double alpha, Values a, Values b,
              double beta, Target c) {
  RequireProductMemory();
  BLAC_DGEMM(formOfA, formOfB, &m, &n, &k, &alpha, a.values, BlasLeadingDimension(a.leadingDimension),
             b.values, BlasLeadingDimension(b.leadingDimension), &beta, c.values,
             BlasLeadingDimension(c.leadingDimension));
}

} // namespace

void Gemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c) {
  Multiply("N", "N", m, n, k, alpha, a, b, beta, c);
}

void TransposedGemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c) {
  Multiply("T", "N", m, n, k, alpha, a, b, beta, c);
}

void GemmTransposed(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c) {
  Multiply("N", "T", m, n, k, alpha, a, b, beta, c);
}

void ScaleBy(double beta, int m, int n, Target c) { Gemm(m, n, 0, 1.0, {nullptr, m}, {}, beta, c); }

} // namespace orx
