#include "core/mem_Allocator.h"
#include "mtx/ORXSrvHermitianScrDenseMatrix.h"
#include "mtx/impl/blocks/BlockProducts.h"
#include "mtx/impl/blocks/BlockProgress.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/matrix/Transposition.h"

#include <algorithm>

using namespace orx;

// Products that read one triangle of blocks. What this matrix is a view of may be cut in the midst of a block
// at both ends, but rows and columns are cut alike.

namespace {

constexpr char multiply[] = "ORXSrvHermitianScrDenseMatrix::Multiply";
constexpr char addProduct[] = "ORXSrvHermitianScrDenseMatrix::AddProduct";

/// Rows of the strips in which blocks are read. A strip stays in the second-level cache for both of its
/// products. The transposed one, whose inner dimension these rows are, is the slower the more they are (with
/// strips of one size and 64 columns of x, 40 GFlop/s for 512 rows and 33 for 1024, the other product 45);
/// fewer than 512 rows of a block of 1024 are read in runs of less than a page, which costs more than that.
constexpr int stripRows = 512;

/// y += alpha * A * x for a symmetric A; x and y have n columns.
void AddSymmetricProduct(ORXSrvDenseMatrix const& a, int n, double alpha, Values x, Target y) {
  std::vector<BlockRange> const blocks = GroupRowBlocks(a);
  int const height = std::min(stripRows, LargestSize(blocks));
  int const width = std::min(CachedStripWidth(height), LargestSize(blocks));
  WorkArea const work(height, width);
  auto const count = static_cast<std::int64_t>(blocks.size());
  BlockProgress progress(multiply, count * (count + 1) / 2);
  for (std::size_t i = 0; i < blocks.size(); ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      for (BlockRange const& rows : CutRange(blocks[i], height))
        for (BlockRange const& columns : CutRange(blocks[j], width)) {
          ORXSrvMatrix strip = work.As(rows.Size(), columns.Size());
          a.GetValues(rows.first, rows.last, columns.first, columns.last, strip);
          Gemm(rows.Size(), n, columns.Size(), alpha, AsOperand(strip),
               {x.values + columns.first, x.leadingDimension}, 1.0,
               {y.values + rows.first, y.leadingDimension});
          if (j < i)
            TransposedGemm(columns.Size(), n, rows.Size(), alpha, AsOperand(strip),
                           {x.values + rows.first, x.leadingDimension}, 1.0,
                           {y.values + columns.first, y.leadingDimension});
        }
      progress.BlockDone();
    }
}

} // namespace

// With operands in memory

void ORXSrvHermitianScrDenseMatrix::Multiply(double const* x, int n, double* y) const {
  if (!IsSymmetricView()) return ORXSrvScratchDenseMatrix::Multiply(x, n, y);
  int const order = NumberOfRows();
  RequireApart(x, std::int64_t{order} * n, y, order, order, n, "Multiply", __LINE__);
  AddSymmetricProduct(*this, n, 1.0, {x, order}, {y, order});
}

void ORXSrvHermitianScrDenseMatrix::Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c) const {
  if (!IsSymmetricView()) return ORXSrvScratchDenseMatrix::Multiply(b, c);
  int const order = NumberOfRows();
  int const n = b.NumberOfColumns();
  RequireInput(Holds(b, order, n) && Holds(c, order, n), "Multiply", __LINE__);
  RequireApart(b.Values(), std::int64_t{order} * n, c.Values(), order, order, n, "Multiply", __LINE__);
  std::fill_n(c.Values(), std::int64_t{order} * n, 0.0);
  AddSymmetricProduct(*this, n, 1.0, {b.Values(), order}, {c.Values(), order});
}

void ORXSrvHermitianScrDenseMatrix::TransposeMultiply(double const* x, int n, double* y, int k) const {
  if (!IsSymmetricView() || k != NumberOfRows())
    return ORXSrvScratchDenseMatrix::TransposeMultiply(x, n, y, k);
  Multiply(x, n, y);
}

void ORXSrvHermitianScrDenseMatrix::TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c,
                                                      int symmetric) const {
  if (!IsSymmetricView()) return ORXSrvScratchDenseMatrix::TransposeMultiply(b, c, symmetric);
  int const order = NumberOfRows();
  RequireInput(Covers(c, order, b.NumberOfColumns()) && (symmetric == 0 || c.NumberOfRows() == order),
               "TransposeMultiply", __LINE__);
  RequireReadableRows(b, order);
  RequireApartFrom(b, c, order);
  ClearRectangle(c, order, b.NumberOfColumns());
  AddSymmetricProduct(*this, b.NumberOfColumns(), 1.0, AsOperand(b), AsTarget(c));
  if (symmetric != 0) c.SetSymmetricResults();
}

// With a block matrix B

/// False when so few columns of B and of the result fit into the work memory together that the base class,
/// which cuts the rows too, reads less.
bool ORXSrvHermitianScrDenseMatrix::HoldsColumnsOf(ORXSrvDenseMatrix const& b) const noexcept {
  constexpr int enough = 256;
  return LargestStrip(2 * std::int64_t{NumberOfRows()}) >= std::min(enough, b.NumberOfColumns());
}

/// Calls use(columns, values) for groups of columns of A * B; `values` has `columns.Size()` columns.
template<class Use>
void ORXSrvHermitianScrDenseMatrix::MultiplyColumns(ORXSrvDenseMatrix const& b, Use use) const {
  int const order = NumberOfRows();
  int const n = b.NumberOfColumns();
  if (order == 0 || n == 0) return;
  int const width = std::min(n, LargestStrip(2 * std::int64_t{order}));
  WorkArea const operand(order, width);
  WorkArea const result(order, width);
  for (BlockRange const& columns : CutRange({0, n - 1}, width)) {
    ORXSrvMatrix x = operand.As(order, columns.Size());
    ORXSrvMatrix y = result.As(order, columns.Size());
    b.GetValues(0, order - 1, columns.first, columns.last, x);
    y = 0.0;
    AddSymmetricProduct(*this, columns.Size(), 1.0, AsOperand(x), AsTarget(y));
    use(columns, y);
  }
}

namespace {
/// Copies columns of a product into the columns `columns` of an array.
void CopyColumns(ORXSrvMatrix const& from, BlockRange const& columns, Target to) {
  std::int64_t const rows = from.NumberOfRows();
  for (std::int64_t j = 0; j < columns.Size(); ++j)
    std::copy_n(from.Values() + j * rows, rows, to.values + (columns.first + j) * to.leadingDimension);
}
} // namespace

void ORXSrvHermitianScrDenseMatrix::Multiply(ORXSrvDenseMatrix const* b, double* y) const {
  if (!IsSymmetricView() || !HoldsColumnsOf(*b)) return ORXSrvScratchDenseMatrix::Multiply(b, y);
  int const order = NumberOfRows();
  RequireReadable(*b, order, b->NumberOfColumns(), __LINE__);
  MultiplyColumns(*b, [&](BlockRange const& columns, ORXSrvMatrix const& values) {
    CopyColumns(values, columns, {y, order});
  });
}

void ORXSrvHermitianScrDenseMatrix::Multiply(ORXSrvDenseMatrix const& b, ORXSrvDenseMatrix& c) const {
  if (!IsSymmetricView() || !HoldsColumnsOf(b)) return ORXSrvScratchDenseMatrix::Multiply(b, c);
  int const order = NumberOfRows();
  RequireReadable(b, order, b.NumberOfColumns(), __LINE__);
  RequireWritable(c, order, b.NumberOfColumns(), __LINE__);
  RequireInput(!Meets(Whole(), c) && !b.Meets(b.Whole(), c), "Multiply", __LINE__);
  c.RequireNoMirrors("Multiply");
  MultiplyColumns(b, [&](BlockRange const& columns, ORXSrvMatrix const& values) {
    c.SetValues(0, order - 1, columns.first, columns.last, values);
  });
}

void ORXSrvHermitianScrDenseMatrix::TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvMatrix& c,
                                                      int symmetric) const {
  if (!IsSymmetricView()) return ORXSrvScratchDenseMatrix::TransposeMultiply(b, c, symmetric);
  int const order = NumberOfRows();
  RequireInput(Covers(c, order, b->NumberOfColumns()) && (symmetric == 0 || c.NumberOfRows() == order),
               "TransposeMultiply", __LINE__);
  RequireReadableRows(*b, order);
  MultiplyColumns(*b, [&](BlockRange const& columns, ORXSrvMatrix const& values) {
    CopyColumns(values, columns, AsTarget(c));
  });
  if (symmetric != 0) c.SetSymmetricResults();
}

// Into a block matrix C

void ORXSrvHermitianScrDenseMatrix::Multiply(double alpha, ORXSrvMatrix const& b, double beta,
                                             ORXSrvDenseMatrix& c) const {
  int const order = NumberOfRows();
  int const n = b.NumberOfColumns();
  bool const isWholeProduct = IsSymmetricView() && !b.IsDiagonal() && c.NumberOfRows() == order &&
                              b.NumberOfRows() >= order && n <= c.NumberOfColumns() && n > 0;
  if (!isWholeProduct) return ORXSrvScratchDenseMatrix::Multiply(alpha, b, beta, c);
  RequireNotShifted(Whole(), c, "Multiply");
  c.RequireNoMirrors("Multiply");
  WorkArea const result(order, n);
  ORXSrvMatrix product = result.As(order, n);
  product = 0.0;
  AddSymmetricProduct(*this, n, alpha, AsOperand(b), AsTarget(product));
  std::vector<BlockRange> const blocks = CutRowBlocks(c, c.NumberOfColumns());
  WorkArea const work(LargestSize(blocks), c.NumberOfColumns());
  for (BlockRange const& rows : blocks) {
    ORXSrvMatrix block = work.As(rows.Size(), c.NumberOfColumns());
    block = 0.0; // what C held is not read for a beta of 0
    if (beta != 0.0) c.GetRows(rows.first, rows.last, block);
    for (std::int64_t j = 0; j < n; ++j) {
      double const* const from = product.Values() + j * order + rows.first;
      double* const to = block.Values() + j * rows.Size();
      for (std::int64_t i = 0; i < rows.Size(); ++i)
        to[i] = beta * to[i] + from[i];
    }
    c.SetRows(rows.first, rows.last, block);
  }
}

// X^T * R * X and X * D * X^T

void ORXSrvHermitianScrDenseMatrix::Project(ORXSrvMatrix const& x, ORXSrvMatrix& c) const {
  int const order = NumberOfRows();
  int const n = x.NumberOfColumns();
  RequireInput(IsSymmetricView() && Covers(x, order, n) && x.NumberOfRows() == order, "Project", __LINE__);
  RequireInput(Covers(c, n, n), "Project", __LINE__);
  RequireApart(x.Values(), x.NumberOfStoredValues(), c.Values(), c.NumberOfRows(), n, n, "Project", __LINE__);
  ORXSrvMatrix product(order, n);
  product = 0.0;
  AddSymmetricProduct(*this, n, 1.0, AsOperand(x), AsTarget(product));
  // The lower triangle, by strips of columns.
  for (BlockRange const& columns : CutRange({0, n - 1}, leastStripWidth))
    TransposedGemm(n - columns.first, columns.Size(), order, 1.0,
                   {x.Values() + std::int64_t{columns.first} * order, order},
                   {product.Values() + std::int64_t{columns.first} * order, order}, 0.0,
                   {c.Values() + std::int64_t{columns.first} * (c.NumberOfRows() + 1), c.NumberOfRows()});
  MirrorTriangle(Triangle::Lower, c.Values(), c.NumberOfRows(), n);
}

namespace {
/// alpha * X * D.
ORXSrvMatrix Weighted(double alpha, ORXSrvMatrix const& x, ORXSrvMatrix const& d) {
  int const rows = x.NumberOfRows();
  int const n = x.NumberOfColumns();
  ORXSrvMatrix weighted(rows, n);
  if (!d.IsDiagonal()) {
    Gemm(rows, n, n, alpha, AsOperand(x), AsOperand(d), 0.0, AsTarget(weighted));
    return weighted;
  }
  for (std::int64_t j = 0; j < n; ++j)
    std::transform(x.Values() + j * rows, x.Values() + (j + 1) * rows, weighted.Values() + j * rows,
                   [factor = alpha * d.Values()[j]](double value) { return factor * value; });
  return weighted;
}
} // namespace

void ORXSrvHermitianScrDenseMatrix::AddProduct(double alpha, ORXSrvMatrix const& x, ORXSrvMatrix const& d) {
  int const order = NumberOfRows();
  int const n = x.NumberOfColumns();
  RequireInput(IsSymmetricView() && Covers(x, order, n) && x.NumberOfRows() == order, "AddProduct", __LINE__);
  RequireInput(d.NumberOfRows() == n && d.NumberOfColumns() == n && d.IsSymmetricNumerically(), "AddProduct",
               __LINE__);
  if (n == 0) return;
  ORXSrvMatrix const weighted = Weighted(alpha, x, d);
  std::vector<BlockRange> const blocks = GroupRowBlocks(*this);
  // Longer blocks are worked on in parts of 32 MB.
  std::vector<BlockRange> const parts = CutRanges(blocks, 2048);
  int const largest = LargestSize(parts);
  WorkArea const work(largest, largest);
  auto const count = static_cast<std::int64_t>(parts.size());
  BlockProgress progress(addProduct, count * (count + 1) / 2);
  for (std::size_t i = 0; i < parts.size(); ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      BlockRange const& rows = parts[i];
      BlockRange const& columns = parts[j];
      ORXSrvMatrix block = work.As(rows.Size(), columns.Size());
      GetValues(rows.first, rows.last, columns.first, columns.last, block);
      GemmTransposed(rows.Size(), columns.Size(), n, 1.0, {weighted.Values() + rows.first, order},
                     {x.Values() + columns.first, order}, 1.0, AsTarget(block));
      if (i == j) MirrorTriangle(Triangle::Lower, block.Values(), rows.Size(), rows.Size());
      SetValues(rows.first, rows.last, columns.first, columns.last, block);
      progress.BlockDone();
    }
}
