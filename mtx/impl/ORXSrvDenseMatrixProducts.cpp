#include "mtx/ORXSrvDenseMatrix.h"

#include "blac/BLAC.h"
#include "core/mem_Allocator.h"
#include "mtx/impl/BlockProgress.h"
#include "mtx/impl/BlockRanges.h"
#include "mtx/impl/ORXSrvMtxErrors.h"
#include "mtx/impl/ProductTiles.h"

#include <algorithm>
#include <cstdint>
#include <vector>

using namespace orx;

// The products stream this matrix, A, through a work area: a block or a group of blocks is read, multiplied
// by DGEMM and, where the result is a block matrix too, written. Blocks in the work area have no gaps: their
// leading dimension is their number of rows.
//
// What can be seen to fail later (a rectangle that an operand does not have, a matrix in memory whose buffer
// is too short) fails before the first block, with the error that the access itself would raise or with 206.
// Raw arrays are trusted.

namespace {

constexpr char sourceFile[] = "mtx/impl/ORXSrvDenseMatrixProducts.cpp";
constexpr char multiply[] = "ORXSrvDenseMatrix::Multiply";
constexpr char multiplyAssign[] = "ORXSrvDenseMatrix::MultiplyAssign";
constexpr char transposeMultiply[] = "ORXSrvDenseMatrix::TransposeMultiply";
constexpr char indexedMultiply[] = "ORXSrvDenseMatrix::IndexedMultiply";

// ---- checks

/// Error 206 for `operation`, as of `line`, unless the condition holds.
void RequireInput(bool condition, char const* operation, int line) {
  if (!condition) ORXSrvMtxIllegalInput(operation).Throw(sourceFile, line);
}

/// Error 203 unless the leading rows x columns can be read from the matrix.
void RequireReadable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line) {
  if (rows > matrix.NumberOfRows() || columns > matrix.NumberOfColumns())
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, line);
}

/// Error 204 unless the leading rows x columns can be written to the matrix.
void RequireWritable(ORXSrvDenseMatrix const& matrix, int rows, int columns, int line) {
  if (rows > matrix.NumberOfRows() || columns > matrix.NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, line);
}

/// Whether the buffer of a matrix has rows x columns values.
bool Holds(ORXSrvMatrix const& matrix, std::int64_t rows, std::int64_t columns) {
  return matrix.NumberOfStoredValues() >= rows * columns;
}

/// Whether a full matrix has at least that many rows and columns.
bool Covers(ORXSrvMatrix const& matrix, int rows, int columns) {
  return !matrix.IsDiagonal() && matrix.NumberOfRows() >= rows && matrix.NumberOfColumns() >= columns;
}

// ---- block products

/// Column-major values with a leading dimension.
struct Values {
  double const* values;
  int leadingDimension;
};
struct Target {
  double* values;
  int leadingDimension;
};

/// c = alpha * a * b + beta * c; a is m x k, b k x n.
void Gemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c) {
  BLAC_DGEMM("N", "N", &m, &n, &k, &alpha, a.values, &a.leadingDimension, b.values, &b.leadingDimension,
             &beta, c.values, &c.leadingDimension);
}

/// c = alpha * a^T * b + beta * c; a is k x m, b k x n.
void TransposedGemm(int m, int n, int k, double alpha, Values a, Values b, double beta, Target c) {
  BLAC_DGEMM("T", "N", &m, &n, &k, &alpha, a.values, &a.leadingDimension, b.values, &b.leadingDimension,
             &beta, c.values, &c.leadingDimension);
}

Values Packed(ORXSrvMatrix const& matrix) { return {matrix.Values(), matrix.NumberOfRows()}; }
Target Into(ORXSrvMatrix& matrix) { return {matrix.Values(), matrix.NumberOfRows()}; }

/// Rows of A times a matrix in memory.
class RowProduct {
public:
  /// For at most `largestRows` rows at a time.
  RowProduct(ORXSrvDenseMatrix const& a, int largestRows)
      : m_a(a), m_strips(ColumnStrips(a, StripWidth(largestRows))),
        m_work(largestRows, LargestSize(m_strips)) {}

  /// c = alpha * (these rows of A) * b + beta * c; b is A's columns x n.
  void Compute(BlockRange const& rows, int n, double alpha, Values b, double beta, Target c) const {
    for (BlockRange const& columns : m_strips) {
      ORXSrvMatrix const strip = Read(rows, columns);
      Gemm(rows.Size(), n, columns.Size(), alpha, Packed(strip),
           {b.values + columns.first, b.leadingDimension}, beta, c);
      beta = 1.0;
    }
  }

  /// c = beta * c + (these rows of A) * diagonal, in the leading columns of c.
  void ComputeDiagonal(BlockRange const& rows, double const* diagonal, double beta, ORXSrvMatrix& c) const {
    if (beta == 0.0) {
      c = 0.0;
    } else if (beta != 1.0) {
      c.Multiply(beta);
    }
    std::int64_t const count = rows.Size();
    for (BlockRange const& columns : m_strips) {
      ORXSrvMatrix const strip = Read(rows, columns);
      for (std::int64_t j = columns.first; j <= columns.last; ++j) {
        double const* const from = strip.Values() + (j - columns.first) * count;
        double* const to = c.Values() + j * count;
        for (std::int64_t i = 0; i < count; ++i)
          to[i] += diagonal[j] * from[i];
      }
    }
  }

private:
  // What is read stays in the second-level cache until DGEMM has packed it. With 8192 columns and 64 columns
  // of b, whole rows of blocks, which do not, take 1.15 times as long.
  static int StripWidth(int rows) {
    constexpr int stripValues = (1 << 20) / sizeof(double);
    constexpr int least = 64; // narrower ones make DGEMM slow
    return std::max(least, stripValues / std::max(rows, 1));
  }

  ORXSrvMatrix Read(BlockRange const& rows, BlockRange const& columns) const {
    ORXSrvMatrix strip = m_work.As(rows.Size(), columns.Size());
    m_a.GetValues(rows.first, rows.last, columns.first, columns.last, strip);
    return strip;
  }

  ORXSrvDenseMatrix const& m_a;
  std::vector<BlockRange> m_strips;
  WorkArea m_work;
};

/// c = A * b + beta * c, with b columns x n and c rows x n.
void MultiplyInMemory(ORXSrvDenseMatrix const& a, double const* b, int n, double beta, double* c) {
  std::vector<BlockRange> const blocks = RowGroups(a);
  RowProduct const product(a, LargestSize(blocks));
  BlockProgress progress(multiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    product.Compute(rows, n, 1.0, {b, a.NumberOfColumns()}, beta, {c + rows.first, a.NumberOfRows()});
    progress.BlockDone();
  }
}

// ---- both factors out of core

/// A * B, tile by tile, see ProductTiles.h.
class TiledProduct {
public:
  /// Error 203 when B has fewer rows than A has columns.
  TiledProduct(ORXSrvDenseMatrix const& a, ORXSrvDenseMatrix const& b) : m_a(a), m_b(b) {
    if (a.NumberOfRowBlocks() == 0 || a.NumberOfColumnBlocks() == 0 || b.NumberOfColumnBlocks() == 0) return;
    RequireReadable(b, a.NumberOfColumns(), b.NumberOfColumns(), __LINE__);
    ProductGroups const groups = GroupsWithinBudget(
        {a.NumberOfRows(), a.NumberOfColumns(), b.NumberOfColumns(), a.MaxNumberOfRowsInBlock(),
         a.MaxNumberOfColumnsInBlock(), b.MaxNumberOfColumnsInBlock()});
    m_rows = RowGroups(a, groups.row);
    m_inner = ColumnGroups(a, groups.inner);
    m_columns = ColumnGroups(b, groups.column);
  }

  std::vector<BlockRange> const& RowGroupsOfA() const { return m_rows; }
  std::vector<BlockRange> const& ColumnGroupsOfB() const { return m_columns; }
  /// Values in the largest tile of the result.
  std::int64_t TileSize() const { return std::int64_t{LargestSize(m_rows)} * LargestSize(m_columns); }
  /// Values that Compute works with.
  std::int64_t WorkSize() const {
    return std::int64_t{LargestSize(m_inner)} * (LargestSize(m_rows) + std::int64_t{LargestSize(m_columns)});
  }
  std::int64_t Steps() const {
    return static_cast<std::int64_t>(m_rows.size() * m_inner.size() * m_columns.size());
  }

  /// c = the tile of the result; `work` has WorkSize() values.
  void Compute(BlockRange const& rows, BlockRange const& columns, double* work, Target c,
               BlockProgress& progress) const {
    double beta = 0.0;
    for (BlockRange const& inner : m_inner) {
      ORXSrvMatrix a(rows.Size(), inner.Size(), work);
      ORXSrvMatrix b(inner.Size(), columns.Size(), work + std::int64_t{rows.Size()} * inner.Size());
      m_a.GetValues(rows.first, rows.last, inner.first, inner.last, a);
      m_b.GetValues(inner.first, inner.last, columns.first, columns.last, b);
      Gemm(rows.Size(), columns.Size(), inner.Size(), 1.0, Packed(a), Packed(b), beta, c);
      beta = 1.0;
      progress.BlockDone();
    }
  }

private:
  ORXSrvDenseMatrix const& m_a;
  ORXSrvDenseMatrix const& m_b;
  std::vector<BlockRange> m_rows;
  std::vector<BlockRange> m_inner;
  std::vector<BlockRange> m_columns;
};

// ---- transposed products

/// Row blocks that are taken together, so that the work area is about a column block of A by B's rows.
int RowBlocksTogether(ORXSrvDenseMatrix const& a, int rowsOfB) {
  std::int64_t const rowBlock = std::int64_t{a.MaxNumberOfRowsInBlock()} * a.NumberOfColumns();
  std::int64_t const columnBlock = std::int64_t{a.MaxNumberOfColumnsInBlock()} * rowsOfB;
  if (rowBlock == 0) return 1;
  return static_cast<int>(std::clamp<std::int64_t>(columnBlock / rowBlock, 1, a.NumberOfRowBlocks()));
}

/// c = A^T * B, the sum over groups of row blocks; B in memory or a block matrix.
template<class Operand>
void MultiplyTransposed(ORXSrvDenseMatrix const& a, Operand const& b, ORXSrvMatrix& c, bool symmetric) {
  int const columns = a.NumberOfColumns();
  RequireInput(Covers(c, columns, b.NumberOfColumns()) && (!symmetric || c.NumberOfRows() == columns),
               "TransposeMultiply", __LINE__);
  std::vector<BlockRange> const groups = RowGroups(a, RowBlocksTogether(a, b.NumberOfRows()));
  WorkArea const workA(LargestSize(groups), columns);
  WorkArea const workB(LargestSize(groups), b.NumberOfColumns());
  BlockProgress progress(transposeMultiply, static_cast<std::int64_t>(groups.size()));
  int accumulate = 0;
  for (BlockRange const& rows : groups) {
    ORXSrvMatrix blockA = workA.As(rows.Size(), columns);
    ORXSrvMatrix blockB = workB.As(rows.Size(), b.NumberOfColumns());
    a.GetRows(rows.first, rows.last, blockA);
    b.GetRows(rows.first, rows.last, blockB);
    blockA.TransposeMultiply(blockB, c, symmetric ? 1 : 0, accumulate);
    accumulate = 1;
    progress.BlockDone();
  }
  if (symmetric) c.SetSymmetricResults();
}

// ---- indexed products

/// Positions of group g of an IndexedMultiply in the result.
BlockRange Positions(int const* groupStart, int g) { return {groupStart[g], groupStart[g + 1] - 1}; }

/// The rows of A for these positions; error 206 unless there are as many.
BlockRange IndexedRows(int const* rowIndex, BlockRange positions) {
  BlockRange const rows{rowIndex[positions.first], rowIndex[positions.last]};
  RequireInput(rows.Size() == positions.Size(), "IndexedMultiply", __LINE__);
  return rows;
}

/// Checks all groups before the first is computed; returns the positions in the largest.
int CheckGroups(ORXSrvDenseMatrix const& a, ORXSrvDenseMatrix const& c, int const* rowIndex,
                int const* groupStart, int groups) {
  int largest = 0;
  for (int g = 0; g < groups; ++g) {
    BlockRange const positions = Positions(groupStart, g);
    if (positions.Size() <= 0) continue;
    BlockRange const rows = IndexedRows(rowIndex, positions);
    if (rows.first < 0 || rows.last >= a.NumberOfRows())
      ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
    if (positions.first < 0 || positions.last >= c.NumberOfRows())
      ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
    largest = std::max(largest, positions.Size());
  }
  return largest;
}

} // namespace

// ---- A * B

void ORXSrvDenseMatrix::Multiply(double const* x, int n, double* y) const {
  MultiplyInMemory(*this, x, n, 1.0, y);
}

void ORXSrvDenseMatrix::Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c) const {
  RequireInput(Holds(b, NumberOfColumns(), b.NumberOfColumns()), "Multiply", __LINE__);
  RequireInput(Holds(c, NumberOfRows(), b.NumberOfColumns()), "Multiply", __LINE__);
  MultiplyInMemory(*this, b.Values(), b.NumberOfColumns(), 0.0, c.Values());
}

void ORXSrvDenseMatrix::Multiply(ORXSrvDenseMatrix const* b, double* y) const {
  TiledProduct const product(*this, *b);
  std::fill_n(y, std::int64_t{NumberOfRows()} * b->NumberOfColumns(), 0.0);
  mem_Array<double> const work = mem_MakeArray<double>(product.WorkSize());
  BlockProgress progress(multiply, product.Steps());
  for (BlockRange const& columns : product.ColumnGroupsOfB())
    for (BlockRange const& rows : product.RowGroupsOfA()) {
      double* const tile = y + std::int64_t{columns.first} * NumberOfRows() + rows.first;
      product.Compute(rows, columns, work.get(), {tile, NumberOfRows()}, progress);
    }
}

void ORXSrvDenseMatrix::Multiply(ORXSrvDenseMatrix const& b, ORXSrvDenseMatrix& c) const {
  TiledProduct const product(*this, b);
  if (product.Steps() == 0) return;
  RequireWritable(c, NumberOfRows(), b.NumberOfColumns(), __LINE__);
  mem_Array<double> const work = mem_MakeArray<double>(product.WorkSize() + product.TileSize());
  double* const tile = work.get() + product.WorkSize();
  BlockProgress progress(multiply, product.Steps());
  for (BlockRange const& columns : product.ColumnGroupsOfB())
    for (BlockRange const& rows : product.RowGroupsOfA()) {
      product.Compute(rows, columns, work.get(), {tile, rows.Size()}, progress);
      ORXSrvMatrix const values(rows.Size(), columns.Size(), tile);
      c.SetValues(rows.first, rows.last, columns.first, columns.last, values);
    }
}

void ORXSrvDenseMatrix::Multiply(double alpha, ORXSrvMatrix const& b, double beta,
                                 ORXSrvDenseMatrix& c) const {
  int const inner = NumberOfColumns();
  int const columns = c.NumberOfColumns();
  int const columnsOfB = b.IsDiagonal() ? inner : b.NumberOfColumns();
  RequireInput(b.NumberOfRows() >= inner && columnsOfB <= columns, "Multiply", __LINE__);
  RequireReadable(*this, c.NumberOfRows(), inner, __LINE__);
  std::vector<BlockRange> const blocks = RowGroups(c);
  RowProduct const product(*this, LargestSize(blocks));
  WorkArea const work(LargestSize(blocks), columns);
  BlockProgress progress(multiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    ORXSrvMatrix block = work.As(rows.Size(), columns);
    if (beta != 0.0) c.GetRows(rows.first, rows.last, block);
    if (b.IsDiagonal()) {
      product.ComputeDiagonal(rows, b.Values(), beta, block);
    } else {
      // Columns of C beyond those of B get no product: what earlier blocks left there must not be written.
      if (beta == 0.0 && columnsOfB < columns) block = 0.0;
      product.Compute(rows, columnsOfB, alpha, Packed(b), beta, Into(block));
    }
    c.SetRows(rows.first, rows.last, block);
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::MultiplyAssign(ORXSrvMatrix const& b) {
  int const columns = NumberOfColumns();
  RequireInput(Holds(b, columns, columns), "MultiplyAssign", __LINE__);
  std::vector<BlockRange> const blocks = RowGroups(*this);
  RowProduct const product(*this, LargestSize(blocks));
  WorkArea const work(LargestSize(blocks), columns);
  BlockProgress progress(multiplyAssign, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    ORXSrvMatrix result = work.As(rows.Size(), columns);
    product.Compute(rows, columns, 1.0, {b.Values(), columns}, 0.0, Into(result));
    SetRows(rows.first, rows.last, result);
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::IndexedMultiply(ORXSrvMatrix const& b, ORXSrvDenseMatrix& c, int const* rowIndex,
                                        int const* groupStart, int groups) const {
  int const columns = NumberOfColumns();
  int const columnsOfB = b.NumberOfColumns();
  RequireInput(Holds(b, columns, columnsOfB), "IndexedMultiply", __LINE__);
  RequireWritable(c, 0, columnsOfB, __LINE__);
  int const largest = CheckGroups(*this, c, rowIndex, groupStart, groups);
  RowProduct const product(*this, largest);
  WorkArea const work(largest, columnsOfB);
  BlockProgress progress(indexedMultiply, groups);
  for (int g = 0; g < groups; ++g) {
    BlockRange const positions = Positions(groupStart, g);
    if (positions.Size() > 0) {
      ORXSrvMatrix result = work.As(positions.Size(), columnsOfB);
      product.Compute(IndexedRows(rowIndex, positions), columnsOfB, 1.0, {b.Values(), columns}, 0.0,
                      Into(result));
      c.SetValues(positions.first, positions.last, 0, columnsOfB - 1, result);
    }
    progress.BlockDone();
  }
}

// ---- A^T * B

void ORXSrvDenseMatrix::TransposeMultiply(double const* x, int n, double* y, int k) const {
  std::vector<BlockRange> const blocks = ColumnGroups(*this);
  if (k < 1 || k > NumberOfRows()) ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  WorkArea const work(k, LargestSize(blocks));
  BlockProgress progress(transposeMultiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix block = work.As(k, columns.Size());
    GetValues(0, k - 1, columns.first, columns.last, block);
    TransposedGemm(columns.Size(), n, k, 1.0, Packed(block), {x, k}, 1.0,
                   {y + columns.first, NumberOfColumns()});
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::TransposeMultiply(int const* permutation, ORXSrvMatrix const& b, ORXSrvMatrix& c,
                                          double alpha, double beta) {
  int const rows = NumberOfRows();
  RequireInput(Covers(b, 0, 0) && b.NumberOfRows() <= rows, "TransposeMultiply", __LINE__);
  RequireInput(Covers(c, NumberOfColumns(), b.NumberOfColumns()), "TransposeMultiply", __LINE__);
  std::vector<BlockRange> const blocks = ColumnGroups(*this);
  WorkArea const work(rows, LargestSize(blocks));
  BlockProgress progress(transposeMultiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix block = work.As(rows, columns.Size());
    GetColumns(columns.first, columns.last, block);
    if (permutation != nullptr) block.PermuteRowsInPlace(permutation, rows);
    TransposedGemm(columns.Size(), b.NumberOfColumns(), b.NumberOfRows(), alpha, Packed(block), Packed(b),
                   beta, {c.Values() + columns.first, c.NumberOfRows()});
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvMatrix const& b, double* y, int symmetric) const {
  ORXSrvMatrix c(NumberOfColumns(), b.NumberOfColumns(), y);
  TransposeMultiply(b, c, symmetric);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int symmetric) const {
  MultiplyTransposed(*this, b, c, symmetric != 0);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvDenseMatrix* c,
                                          int symmetric) const {
  int const columns = b->NumberOfColumns();
  // The rows must be exactly as many: all rows of C are written from the packed result.
  if (c->NumberOfRows() != NumberOfColumns() || columns > c->NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  ORXSrvMatrix work(NumberOfColumns(), columns);
  TransposeMultiply(b, work, symmetric);
  c->SetColumns(0, columns - 1, work);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, double* y, int symmetric) const {
  ORXSrvMatrix c(NumberOfColumns(), b->NumberOfColumns(), y);
  TransposeMultiply(b, c, symmetric);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvMatrix& c, int symmetric) const {
  MultiplyTransposed(*this, *b, c, symmetric != 0);
}
