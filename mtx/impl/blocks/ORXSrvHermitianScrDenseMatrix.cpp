#include "mtx/ORXSrvHermitianScrDenseMatrix.h"

#include "mtx/ORXSrvUtilities.h"
#include "mtx/impl/blocks/BlockProducts.h"
#include "mtx/impl/blocks/MemberLabels.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <cmath>
#include <vector>

using namespace orx;

// Creation, growth, and the parts of H.

namespace {
constexpr auto& sourceFile = orx::denseMatrixSource;
constexpr int longestChunk = 1 << 14; // a block of 2 GB
} // namespace

// Creation and destruction

ORXSrvHermitianScrDenseMatrix::ORXSrvHermitianScrDenseMatrix() = default;

ORXSrvHermitianScrDenseMatrix::ORXSrvHermitianScrDenseMatrix(int order, int chunk)
    : ORXSrvHermitianScrDenseMatrix(order, nullptr, chunk) {}

ORXSrvHermitianScrDenseMatrix::ORXSrvHermitianScrDenseMatrix(int order, int const* labels, int chunk) {
  BuildSymmetric(order, labels, chunk);
}

ORXSrvHermitianScrDenseMatrix::ORXSrvHermitianScrDenseMatrix(ORXSimCSetID set, int chunk) {
  std::vector<int> const labels = ReadLabels(ORXSimCSet(set));
  ReportSets(set, set);
  BuildSymmetric(static_cast<int>(labels.size()), labels.data(), chunk);
}

ORXSrvHermitianScrDenseMatrix::ORXSrvHermitianScrDenseMatrix(ORXSrvHermitianScrDenseMatrix const& parent,
                                                             int firstRow, int lastRow, int firstColumn,
                                                             int lastColumn)
    : ORXSrvScratchDenseMatrix(parent, firstRow, lastRow, firstColumn, lastColumn) {}

ORXSrvHermitianScrDenseMatrix::~ORXSrvHermitianScrDenseMatrix() = default;

void ORXSrvHermitianScrDenseMatrix::BuildSymmetric(int order, int const* labels, int chunk) {
  ORXSimContext const context(CreateFile("ORXSrvHermitianScrDenseMatrix"));
  ORXSimTransaction transaction(context.ID());
  ORXSimCollectionID const collection = context.CreateCollection(order, ORXSimTypeID());
  ORXSimCSetID const set = MembersOf(collection, order, labels);
  // The database would take no rows: like the scratch matrix, this one does not.
  int const length = order == 0 ? 0 : std::min(chunk, longestChunk);
  ORXSimDistributionID const id = ORXSrvUtilities::CreateSymmetricDistribution(set, length);
  transaction.Commit();
  Attach(ORXSimDistribution(id));
}

ORXSrvDenseMatrix* ORXSrvHermitianScrDenseMatrix::Submatrix(int firstRow, int lastRow, int firstColumn,
                                                            int lastColumn) const {
  return new ORXSrvHermitianScrDenseMatrix(*this, firstRow, lastRow, firstColumn, lastColumn);
}

bool ORXSrvHermitianScrDenseMatrix::IsSymmetricView() const noexcept {
  return m_first[rowDirection] == m_first[columnDirection] && NumberOfRows() == NumberOfColumns();
}

// Growth

int ORXSrvHermitianScrDenseMatrix::ExtendOrder(int count, int const* labels) {
  if (m_isSubmatrix) return 1; // before labels are added to the collection
  int const order = NumberOfRows();
  ORXSimCollection const collection(m_rowCSetID.Collection());
  int const result = ExtendWith(labels != nullptr ? collection.CreateOrderedCSet(labels, count)
                                                  : collection.CreateCSetStrided(order, count, 1, 1));
  if (result != 0) return result;
  m_columnCSetID = m_rowCSetID.OnColorVariant(1);
  SetExtent(columnDirection, NumberOfRows());
  SetFirstBlock(rowDirection);
  SetFirstBlock(columnDirection);
  return 0;
}

// Parts of H

namespace {

/// Raises error 204 unless a rectangle of H at (row, column) has agreeing values wherever it holds a cell and
/// its mirror image.
void RequireHermitian(int row, int rows, int column, int columns, double const* real,
                      double const* imaginary) {
  auto const agree = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  int const end = std::min(row + rows, column + columns);
  for (int j = std::max(row, column); j < end; ++j)
    for (int i = j; i < end; ++i) {
      std::int64_t const cell = std::int64_t{j - column} * rows + (i - row);
      std::int64_t const mirror = std::int64_t{i - column} * rows + (j - row);
      if (agree(real[cell], real[mirror]) && agree(imaginary[cell], -imaginary[mirror])) continue;
      std::string const text = "Row " + std::to_string(i) + ", column " + std::to_string(j) +
                               " of H is not the conjugate of row " + std::to_string(j) + ", column " +
                               std::to_string(i) + ".";
      ORXSrvMtxMirrorsDiffer(text.c_str()).Throw(sourceFile, __LINE__);
    }
}

/// True for a rectangle that is not empty and inside of a square.
bool IsInside(int order, int firstRow, int lastRow, int firstColumn, int lastColumn) {
  return firstRow >= 0 && firstRow <= lastRow && lastRow < order && firstColumn >= 0 &&
         firstColumn <= lastColumn && lastColumn < order;
}

} // namespace

int ORXSrvHermitianScrDenseMatrix::OrderOfH(char const* operation) const {
  RequireInput(IsSymmetricView() && NumberOfRows() % 2 == 0, operation, __LINE__);
  return NumberOfRows() / 2;
}

void ORXSrvHermitianScrDenseMatrix::SetHermitian(int firstRow, int lastRow, int firstColumn, int lastColumn,
                                                 ORXSrvMatrix const& real, ORXSrvMatrix const& imaginary) {
  int const n = OrderOfH("SetHermitian");
  if (!IsInside(n, firstRow, lastRow, firstColumn, lastColumn))
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  int const rows = lastRow - firstRow + 1;
  int const columns = lastColumn - firstColumn + 1;
  RequireInput(Holds(real, rows, columns) && Holds(imaginary, rows, columns), "SetHermitian", __LINE__);
  RequireHermitian(firstRow, rows, firstColumn, columns, real.Values(), imaginary.Values());
  SetValues(firstRow, lastRow, firstColumn, lastColumn, real);
  SetValues(firstRow + n, lastRow + n, firstColumn + n, lastColumn + n, real);
  SetValues(firstRow + n, lastRow + n, firstColumn, lastColumn, imaginary);
  WorkArea const work(rows, columns);
  ORXSrvMatrix negative = work.As(rows, columns);
  std::transform(imaginary.Values(), imaginary.Values() + std::int64_t{rows} * columns, negative.Values(),
                 std::negate<>());
  SetValues(firstRow, lastRow, firstColumn + n, lastColumn + n, negative);
}

void ORXSrvHermitianScrDenseMatrix::GetHermitian(int firstRow, int lastRow, int firstColumn, int lastColumn,
                                                 ORXSrvMatrix& real, ORXSrvMatrix& imaginary) const {
  int const n = OrderOfH("GetHermitian");
  if (!IsInside(n, firstRow, lastRow, firstColumn, lastColumn))
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  std::int64_t const rows = lastRow - firstRow + 1;
  std::int64_t const columns = lastColumn - firstColumn + 1;
  RequireInput(Holds(real, rows, columns) && Holds(imaginary, rows, columns), "GetHermitian", __LINE__);
  GetValues(firstRow, lastRow, firstColumn, lastColumn, real);
  GetValues(firstRow + n, lastRow + n, firstColumn, lastColumn, imaginary);
}
