#include "mtx/ORXSrvDenseMatrix.h"

#include "core/mem_Allocator.h"
#include "mtx/impl/blocks/BlockProducts.h"
#include "mtx/impl/blocks/BlockProgress.h"
#include "mtx/impl/blocks/ProductTiles.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <cstdint>
#include <vector>

using namespace orx;

// The products stream this matrix, A, through a work area: a block or a group of blocks is read, multiplied
// by DGEMM and, where the result is a block matrix too, written. Blocks in the work area have no gaps: their
// leading dimension is their number of rows.
//
// Faults that can be seen beforehand (a rectangle that an operand does not have, a matrix in memory whose
// buffer is too short) raise an error before the first block: the error that the access itself would raise,
// or 206. Raw arrays are trusted.

namespace {

constexpr auto& sourceFile = orx::denseMatrixSource;
constexpr char multiply[] = "ORXSrvDenseMatrix::Multiply";
constexpr char multiplyAssign[] = "ORXSrvDenseMatrix::MultiplyAssign";
constexpr char transposeMultiply[] = "ORXSrvDenseMatrix::TransposeMultiply";
constexpr char indexedMultiply[] = "ORXSrvDenseMatrix::IndexedMultiply";

/// Multiplies rows of A by a matrix in memory.
class RowProduct {
public:
  /// Allocates for at most `largestRows` rows at a time.
  RowProduct(ORXSrvDenseMatrix const& a, int largestRows)
      : m_a(a), m_strips(CutIntoColumnStrips(a, CachedStripWidth(largestRows))),
        m_work(largestRows, LargestSize(m_strips)) {}

  /// c = alpha * (`rows` of A) * b + beta * c; b is A's columns x n.
  void Compute(BlockRange const& rows, int n, double alpha, Values b, double beta, Target c) const {
    if (m_strips.empty()) ScaleBy(beta, rows.Size(), n, c);
    for (BlockRange const& columns : m_strips) {
      ORXSrvMatrix const strip = Read(rows, columns);
      Gemm(rows.Size(), n, columns.Size(), alpha, AsOperand(strip),
           {b.values + columns.first, b.leadingDimension}, beta, c);
      beta = 1.0;
    }
  }

  /// c = beta * c + (`rows` of A) * diagonal, in the leading columns of c.
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
  std::vector<BlockRange> const blocks = CutRowBlocks(a, leastStripWidth);
  RowProduct const product(a, LargestSize(blocks));
  BlockProgress progress(multiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    product.Compute(rows, n, 1.0, {b, a.NumberOfColumns()}, beta, {c + rows.first, a.NumberOfRows()});
    progress.BlockDone();
  }
}

// Both factors out of core

/// Computes A * B tile by tile, see ProductTiles.h.
class TiledProduct {
public:
  /// Raises error 203 when B has fewer rows than A has columns.
  TiledProduct(ORXSrvDenseMatrix const& a, ORXSrvDenseMatrix const& b) : m_a(a), m_b(b) {
    if (a.NumberOfRows() == 0 || b.NumberOfColumns() == 0) return;
    RequireReadable(b, a.NumberOfColumns(), b.NumberOfColumns(), __LINE__);
    ProductShape const shape{
        a.NumberOfRows(),           a.NumberOfColumns(),           b.NumberOfColumns(),
        a.MaxNumberOfRowsInBlock(), a.MaxNumberOfColumnsInBlock(), b.MaxNumberOfColumnsInBlock()};
    ProductGroups const groups = GroupsWithinBudget(shape);
    m_rows = GroupRowBlocks(a, groups.row);
    m_inner = GroupColumnBlocks(a, groups.inner);
    m_columns = GroupColumnBlocks(b, groups.column);
    if (WorkSize() + TileSize() > WorkMemoryValues()) CutTo(TileWithin(WorkMemoryValues(), shape));
  }

  /// True when the result has no rows or no columns.
  bool HasNoResult() const { return m_rows.empty() || m_columns.empty(); }

  std::vector<BlockRange> const& RowGroupsOfA() const { return m_rows; }
  std::vector<BlockRange> const& ColumnGroupsOfB() const { return m_columns; }
  /// Number of values in the largest tile of the result.
  std::int64_t TileSize() const { return std::int64_t{LargestSize(m_rows)} * LargestSize(m_columns); }
  /// Number of values in the workspace of Compute.
  std::int64_t WorkSize() const {
    return std::int64_t{LargestSize(m_inner)} * (LargestSize(m_rows) + std::int64_t{LargestSize(m_columns)});
  }
  std::int64_t Steps() const {
    return static_cast<std::int64_t>(m_rows.size() * m_inner.size() * m_columns.size());
  }

  /// Computes the tile rows x columns of the result into c; `work` has WorkSize() values.
  void Compute(BlockRange const& rows, BlockRange const& columns, double* work, Target c,
               BlockProgress& progress) const {
    double beta = 0.0;
    if (m_inner.empty()) ScaleBy(beta, rows.Size(), columns.Size(), c);
    for (BlockRange const& inner : m_inner) {
      ORXSrvMatrix a(rows.Size(), inner.Size(), work);
      ORXSrvMatrix b(inner.Size(), columns.Size(), work + std::int64_t{rows.Size()} * inner.Size());
      m_a.GetValues(rows.first, rows.last, inner.first, inner.last, a);
      m_b.GetValues(inner.first, inner.last, columns.first, columns.last, b);
      Gemm(rows.Size(), columns.Size(), inner.Size(), 1.0, AsOperand(a), AsOperand(b), beta, c);
      beta = 1.0;
      progress.BlockDone();
    }
  }

private:
  void CutTo(ProductTile const& tile) {
    m_rows = CutIntoRowStrips(m_a, tile.rows);
    m_inner = CutIntoColumnStrips(m_a, tile.inner);
    m_columns = CutIntoColumnStrips(m_b, tile.columns);
  }

  ORXSrvDenseMatrix const& m_a;
  ORXSrvDenseMatrix const& m_b;
  std::vector<BlockRange> m_rows;
  std::vector<BlockRange> m_inner;
  std::vector<BlockRange> m_columns;
};

// Transposed products

/// Number of row blocks to take together: the work area is then about a column block of A by B's rows.
int RowBlocksTogether(ORXSrvDenseMatrix const& a, int rowsOfB) {
  std::int64_t const rowBlock = std::int64_t{a.MaxNumberOfRowsInBlock()} * a.NumberOfColumns();
  std::int64_t const columnBlock = std::int64_t{a.MaxNumberOfColumnsInBlock()} * rowsOfB;
  if (rowBlock == 0 || a.NumberOfRowBlocks() == 0) return 1;
  return static_cast<int>(std::clamp<std::int64_t>(columnBlock / rowBlock, 1, a.NumberOfRowBlocks()));
}

/// c = A^T * B, summed over groups of row blocks; B is in memory or a block matrix.
template<class Operand>
void MultiplyTransposed(ORXSrvDenseMatrix const& a, Operand const& b, ORXSrvMatrix& c, bool symmetric) {
  int const columns = a.NumberOfColumns();
  RequireInput(Covers(c, columns, b.NumberOfColumns()) && (!symmetric || c.NumberOfRows() == columns),
               "TransposeMultiply", __LINE__);
  RequireReadableRows(b, a.NumberOfRows());
  RequireApartFrom(b, c, columns);
  if (columns == 0 || b.NumberOfColumns() == 0) return;
  std::vector<BlockRange> const groups = CutRanges(GroupRowBlocks(a, RowBlocksTogether(a, b.NumberOfRows())),
                                                   LargestStrip(std::int64_t{columns} + b.NumberOfColumns()));
  if (groups.empty()) ClearRectangle(c, columns, b.NumberOfColumns());
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

// Indexed products

/// Returns the positions of group g of an IndexedMultiply in the result.
BlockRange Positions(int const* groupStart, int g) { return {groupStart[g], groupStart[g + 1] - 1}; }

/// Returns the rows of A for the positions; error 206 unless there are as many.
BlockRange IndexedRows(int const* rowIndex, BlockRange positions) {
  BlockRange const rows{rowIndex[positions.first], rowIndex[positions.last]};
  RequireInput(rows.Size() == positions.Size(), "IndexedMultiply", __LINE__);
  return rows;
}

/// Checks all groups before the first is computed. Returns the number of positions in the largest group.
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

/// True when every row goes to the position that it comes from.
bool AreInPlace(int const* rowIndex, int const* groupStart, int groups) {
  for (int g = 0; g < groups; ++g) {
    BlockRange const positions = Positions(groupStart, g);
    if (positions.Size() > 0 && rowIndex[positions.first] != positions.first) return false;
  }
  return true;
}

} // namespace

// A * B

void ORXSrvDenseMatrix::Multiply(double const* x, int n, double* y) const {
  RequireApart(x, std::int64_t{NumberOfColumns()} * n, y, NumberOfRows(), NumberOfRows(), n, "Multiply",
               __LINE__);
  MultiplyInMemory(*this, x, n, 1.0, y);
}

void ORXSrvDenseMatrix::Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c) const {
  RequireInput(Holds(b, NumberOfColumns(), b.NumberOfColumns()), "Multiply", __LINE__);
  RequireInput(Holds(c, NumberOfRows(), b.NumberOfColumns()), "Multiply", __LINE__);
  RequireApart(b.Values(), std::int64_t{NumberOfColumns()} * b.NumberOfColumns(), c.Values(), NumberOfRows(),
               NumberOfRows(), b.NumberOfColumns(), "Multiply", __LINE__);
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
  if (product.HasNoResult()) return;
  RequireWritable(c, NumberOfRows(), b.NumberOfColumns(), __LINE__);
  RequireInput(!Meets(Whole(), c) && !b.Meets(b.Whole(), c), "Multiply", __LINE__);
  c.RequireNoMirrors("Multiply");
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
  RequireNotShifted(Whole(), c, "Multiply");
  c.RequireNoMirrors("Multiply");
  if (columns == 0) return;
  std::vector<BlockRange> const blocks = CutRowBlocks(c, columns);
  RowProduct const product(*this, LargestSize(blocks));
  WorkArea const work(LargestSize(blocks), columns);
  BlockProgress progress(multiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    ORXSrvMatrix block = work.As(rows.Size(), columns);
    if (beta != 0.0) c.GetRows(rows.first, rows.last, block);
    if (b.IsDiagonal()) {
      product.ComputeDiagonal(rows, b.Values(), beta, block);
    } else {
      // Columns of C beyond those of B get no product: values that earlier blocks left there must not be
      // written.
      if (beta == 0.0 && columnsOfB < columns) block = 0.0;
      product.Compute(rows, columnsOfB, alpha, AsOperand(b), beta, AsTarget(block));
    }
    c.SetRows(rows.first, rows.last, block);
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::MultiplyAssign(ORXSrvMatrix const& b) {
  int const columns = NumberOfColumns();
  RequireInput(Holds(b, columns, columns), "MultiplyAssign", __LINE__);
  RequireNoMirrors("MultiplyAssign");
  if (columns == 0) return;
  std::vector<BlockRange> const blocks = CutRowBlocks(*this, columns);
  RowProduct const product(*this, LargestSize(blocks));
  WorkArea const work(LargestSize(blocks), columns);
  BlockProgress progress(multiplyAssign, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& rows : blocks) {
    ORXSrvMatrix result = work.As(rows.Size(), columns);
    product.Compute(rows, columns, 1.0, {b.Values(), columns}, 0.0, AsTarget(result));
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
  // In place only where each row stays at its position: other rows would be overwritten before they are read.
  RequireNotShifted(Whole(), c, "IndexedMultiply");
  c.RequireNoMirrors("IndexedMultiply");
  RequireInput(!Meets(Whole(), c) || AreInPlace(rowIndex, groupStart, groups), "IndexedMultiply", __LINE__);
  if (columnsOfB == 0) return;
  RowProduct const product(*this, largest);
  WorkArea const work(largest, columnsOfB);
  BlockProgress progress(indexedMultiply, groups);
  for (int g = 0; g < groups; ++g) {
    BlockRange const positions = Positions(groupStart, g);
    if (positions.Size() > 0) {
      ORXSrvMatrix result = work.As(positions.Size(), columnsOfB);
      product.Compute(IndexedRows(rowIndex, positions), columnsOfB, 1.0, {b.Values(), columns}, 0.0,
                      AsTarget(result));
      c.SetValues(positions.first, positions.last, 0, columnsOfB - 1, result);
    }
    progress.BlockDone();
  }
}

// A^T * B

void ORXSrvDenseMatrix::TransposeMultiply(double const* x, int n, double* y, int k) const {
  std::vector<BlockRange> const blocks = CutColumnBlocks(*this, k);
  if (k < 1 || k > NumberOfRows()) ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  RequireApart(x, std::int64_t{k} * n, y, NumberOfColumns(), NumberOfColumns(), n, "TransposeMultiply",
               __LINE__);
  WorkArea const work(k, LargestSize(blocks));
  BlockProgress progress(transposeMultiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix block = work.As(k, columns.Size());
    GetValues(0, k - 1, columns.first, columns.last, block);
    TransposedGemm(columns.Size(), n, k, 1.0, AsOperand(block), {x, k}, 1.0,
                   {y + columns.first, NumberOfColumns()});
    progress.BlockDone();
  }
}

void ORXSrvDenseMatrix::TransposeMultiply(int const* permutation, ORXSrvMatrix const& b, ORXSrvMatrix& c,
                                          double alpha, double beta) {
  int const rows = NumberOfRows();
  RequireInput(Covers(b, 0, 0) && b.NumberOfRows() <= rows, "TransposeMultiply", __LINE__);
  RequireInput(Covers(c, NumberOfColumns(), b.NumberOfColumns()), "TransposeMultiply", __LINE__);
  RequireApartFrom(b, c, NumberOfColumns());
  std::vector<BlockRange> const blocks = CutColumnBlocks(*this, rows);
  WorkArea const work(rows, LargestSize(blocks));
  BlockProgress progress(transposeMultiply, static_cast<std::int64_t>(blocks.size()));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix block = work.As(rows, columns.Size());
    if (rows > 0) GetColumns(columns.first, columns.last, block);
    if (permutation != nullptr) block.PermuteRowsInPlace(permutation, rows);
    TransposedGemm(columns.Size(), b.NumberOfColumns(), b.NumberOfRows(), alpha, AsOperand(block),
                   AsOperand(b), beta, {c.Values() + columns.first, c.NumberOfRows()});
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
  // The row counts must be equal: all rows of C are written from the result without gaps.
  if (c->NumberOfRows() != NumberOfColumns() || columns > c->NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  ORXSrvMatrix work(NumberOfColumns(), columns);
  TransposeMultiply(b, work, symmetric);
  if (work.NumberOfStoredValues() > 0) c->SetColumns(0, columns - 1, work);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, double* y, int symmetric) const {
  ORXSrvMatrix c(NumberOfColumns(), b->NumberOfColumns(), y);
  TransposeMultiply(b, c, symmetric);
}

void ORXSrvDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvMatrix& c, int symmetric) const {
  MultiplyTransposed(*this, *b, c, symmetric != 0);
}
