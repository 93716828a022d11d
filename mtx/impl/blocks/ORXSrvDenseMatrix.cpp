#include "mtx/ORXSrvDenseMatrix.h"

#include "mtx/impl/blocks/MemberLabels.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimException.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <string>
#include <vector>

// Creation, geometry, views and growth.

namespace {

constexpr auto& sourceFile = orx::denseMatrixSource;

[[noreturn]] void RefuseDistribution(ORXSimDistributionID const& id, std::string const& reason, int line) {
  ORXSimException(ORXSimException::viewDoesNotFit,
                  "Distribution " + std::to_string(id.handle) + " cannot be used as a matrix: " + reason)
      .Throw(sourceFile, line);
}

ORXSimPersistentDrawerDesc FirstDrawerOf(ORXSimDistribution const& distribution) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers(1);
  distribution.QueryDrawers(drawers);
  if (drawers.IsEmpty())
    RefuseDistribution(distribution.ID(),
                       "it has no drawer. Create one first, as ORXSrvUtilities::Create2DDistribution does.",
                       __LINE__);
  return drawers[0];
}

/// Returns the members of a set at the positions first ... last; for the null set, the null set. REQUIRES:
/// the set has these positions.
ORXSimCSetID RestrictSet(ORXSimCSetID const& id, int first, int last) {
  if (id.IsNull()) return id;
  ORXSimCSet const set(id);
  int const count = last - first + 1;
  if (count == set.Size()) return id;
  std::vector<int> const labels = orx::ReadLabels(set);
  return ORXSimCollection(id.Collection()).CreateTempOrderedCSet(labels.data() + first, count);
}

/// Returns a set of the members of `front`, then of `back`, which are of one collection.
ORXSimCSetID JoinSets(ORXSimCSet const& front, ORXSimCSet const& back) {
  std::vector<int> labels = orx::ReadLabels(front);
  std::vector<int> const more = orx::ReadLabels(back);
  labels.insert(labels.end(), more.begin(), more.end());
  return ORXSimCollection(front.ID().Collection())
      .CreateOrderedCSet(labels.data(), static_cast<int>(labels.size()));
}

} // namespace

// Creation and destruction

ORXSrvDenseMatrix::ORXSrvDenseMatrix() = default;

ORXSrvDenseMatrix::ORXSrvDenseMatrix(ORXSimDistributionID id) {
  if (!id.IsNull()) Attach(ORXSimDistribution(id));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers are compiled against it
ORXSrvDenseMatrix::ORXSrvDenseMatrix(ORXSimDistribution distribution) {
  if (!distribution.ID().IsNull()) Attach(distribution);
}

ORXSrvDenseMatrix::ORXSrvDenseMatrix(ORXSrvDenseMatrix const& parent, int firstRow, int lastRow,
                                     int firstColumn, int lastColumn)
    : m_distribution(parent.m_distribution), m_isSubmatrix(true), m_isMirrored(parent.m_isMirrored) {
  SetViewOf(parent, rowDirection, firstRow, lastRow);
  SetViewOf(parent, columnDirection, firstColumn, lastColumn);
  m_transfer = NewTransfer();
  m_rowCSetID = parent.m_rowCSetID;
  m_columnCSetID = parent.m_columnCSetID;
}

ORXSrvDenseMatrix::~ORXSrvDenseMatrix() = default;

ORXSrvDenseMatrix* ORXSrvDenseMatrix::Submatrix(int firstRow, int lastRow, int firstColumn,
                                                int lastColumn) const {
  return new ORXSrvDenseMatrix(*this, firstRow, lastRow, firstColumn, lastColumn);
}

void ORXSrvDenseMatrix::Attach(ORXSimDistribution const& distribution) {
  ORXSimPersistentDrawerDesc const drawer = FirstDrawerOf(distribution);
  if (distribution.RangeType().Key() != ORXSimTypeKey::Double || drawer.Serialization().IsSparse())
    RefuseDistribution(distribution.ID(), "its drawer does not hold a double for each cell.", __LINE__);
  int const dimensions = distribution.NumDimensions();
  if (dimensions > 2)
    RefuseDistribution(distribution.ID(),
                       "it has " + std::to_string(dimensions) + " dimensions, expected 1 or 2.", __LINE__);
  bool const isColumn = dimensions == 1;
  for (Direction const direction : {rowDirection, columnDirection}) {
    if (isColumn && direction == columnDirection) {
      m_blockSize[direction] = 1;
      SetExtent(direction, 1);
    } else {
      int const dim = isColumn ? 0 : 1 - direction;
      int const size = drawer.DimensionSize(dim);
      // Without rows there is no block, but growth needs a block size.
      m_blockSize[direction] = drawer.ChunkSizes().IsEmpty() ? std::max(size, 1) : drawer.ChunkSizes()[dim];
      SetExtent(direction, size);
      (direction == rowDirection ? m_rowCSetID : m_columnCSetID) = drawer.DimensionCSetID(dim);
    }
    SetFirstBlock(direction);
  }
  m_isMirrored = drawer.Serialization().IsDenseSym();
  m_distribution = distribution;
  m_transfer = NewTransfer();
}

/// Cuts `extent` into blocks. The size of the first block stays.
void ORXSrvDenseMatrix::SetExtent(Direction direction, int extent) {
  int const size = m_blockSize[direction];
  int const remainder = extent % size;
  m_extent[direction] = extent;
  m_blocks[direction] = (extent - 1) / size + 1;
  m_lastBlockSize[direction] = remainder != 0 ? remainder : size;
}

void ORXSrvDenseMatrix::SetFirstBlock(Direction direction) noexcept {
  m_firstBlockSize[direction] =
      m_blocks[direction] == 1 ? m_lastBlockSize[direction] : m_blockSize[direction];
}

void ORXSrvDenseMatrix::SetViewOf(ORXSrvDenseMatrix const& parent, Direction direction, int first, int last) {
  if (first < 0 || last >= parent.m_extent[direction] || last < first)
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  int const firstBlock = parent.BlockContaining(direction, first);
  int const lastBlock = parent.BlockContaining(direction, last);
  m_extent[direction] = last - first + 1;
  m_blockSize[direction] = parent.m_blockSize[direction];
  m_blocks[direction] = lastBlock - firstBlock + 1;
  if (m_blocks[direction] == 1) {
    m_firstBlockSize[direction] = m_lastBlockSize[direction] = m_extent[direction];
  } else {
    m_firstBlockSize[direction] =
        parent.SizeOfBlock(direction, firstBlock) - first + parent.FirstInBlock(direction, firstBlock);
    m_lastBlockSize[direction] = last - parent.FirstInBlock(direction, lastBlock) + 1;
  }
  m_first[direction] = first + parent.m_first[direction];
}

std::unique_ptr<ORXSimTransfer> ORXSrvDenseMatrix::NewTransfer() const {
  auto transfer = std::make_unique<ORXSimTransfer>(m_distribution);
  transfer->SetRead().SetWrite().SetBufferPadding(false);
  return transfer;
}

// Queries

ORXSimCSetID ORXSrvDenseMatrix::RowCSetID() const { return LabelsAlong(rowDirection, m_rowCSetID); }

ORXSimCSetID ORXSrvDenseMatrix::ColumnCSetID() const { return LabelsAlong(columnDirection, m_columnCSetID); }

/// Returns the labels of a direction. A view creates its set only when it is asked for: most sets are never
/// used, and may have millions of labels.
ORXSimCSetID ORXSrvDenseMatrix::LabelsAlong(Direction direction, ORXSimCSetID const& whole) const {
  if (!m_isSubmatrix) return whole;
  return RestrictSet(whole, m_first[direction], m_first[direction] + m_extent[direction] - 1);
}

bool ORXSrvDenseMatrix::IsNull() const noexcept {
  if (m_distribution.ID().IsNull()) return true;
  try {
    m_distribution.RangeType();
  } catch (ORXSimException const&) {
    return true; // its file was closed
  }
  return false;
}

int ORXSrvDenseMatrix::SizeOfBlock(Direction direction, int block) const noexcept {
  if (block < 0) return 0;
  if (block == 0) return m_firstBlockSize[direction];
  return block < m_blocks[direction] - 1 ? m_blockSize[direction] : m_lastBlockSize[direction];
}

int ORXSrvDenseMatrix::SizeOfLargestBlock(Direction direction) const noexcept {
  if (m_blocks[direction] > 2) return m_blockSize[direction];
  return std::max(m_firstBlockSize[direction], m_lastBlockSize[direction]);
}

int ORXSrvDenseMatrix::SizeOfBlockRange(Direction direction, int firstBlock, int lastBlock) const noexcept {
  if (firstBlock < 0 || lastBlock < firstBlock) return 0;
  int size = SizeOfBlock(direction, firstBlock);
  if (lastBlock > firstBlock) size += SizeOfBlock(direction, lastBlock);
  // In 64 bits: `lastBlock` may be far beyond the last block, because it is not checked.
  std::int64_t const between = std::int64_t{lastBlock} - firstBlock - 1;
  return static_cast<int>(size + m_blockSize[direction] * std::max<std::int64_t>(between, 0));
}

int ORXSrvDenseMatrix::FirstInBlock(Direction direction, int block) const noexcept {
  if (block < 1) return 0;
  return static_cast<int>(m_firstBlockSize[direction] + std::int64_t{m_blockSize[direction]} * (block - 1));
}

int ORXSrvDenseMatrix::BlockContaining(Direction direction, int index) const noexcept {
  if (index < m_firstBlockSize[direction]) return 0;
  if (m_extent[direction] - index <= m_lastBlockSize[direction]) return m_blocks[direction] - 1;
  return (index - m_firstBlockSize[direction]) / m_blockSize[direction] + 1;
}

// Operands that share values

ORXSrvDenseMatrix::Rectangle ORXSrvDenseMatrix::InDistribution(Rectangle const& range) const noexcept {
  int const row = m_first[rowDirection];
  int const column = m_first[columnDirection];
  return {row + range.firstRow, row + range.lastRow, column + range.firstColumn, column + range.lastColumn};
}

/// True when a rectangle of this matrix and another matrix have cells in common.
bool ORXSrvDenseMatrix::Meets(Rectangle const& range, ORXSrvDenseMatrix const& other) const noexcept {
  Rectangle const a = InDistribution(range);
  Rectangle const b = other.InDistribution(other.Whole());
  if (m_distribution.ID() != other.m_distribution.ID()) return false;
  auto const overlap = [](int firstA, int lastA, int firstB, int lastB) {
    return std::max(firstA, firstB) <= std::min(lastA, lastB);
  };
  bool const meet = overlap(a.firstRow, a.lastRow, b.firstRow, b.lastRow) &&
                    overlap(a.firstColumn, a.lastColumn, b.firstColumn, b.lastColumn);
  bool const meetsMirror = overlap(a.firstRow, a.lastRow, b.firstColumn, b.lastColumn) &&
                           overlap(a.firstColumn, a.lastColumn, b.firstRow, b.lastRow);
  return meet || (m_isMirrored && meetsMirror);
}

/// Raises error 206 when the rectangle and the other matrix have cells in common, but at different positions:
/// an operation that works block by block would read values that it has overwritten.
void ORXSrvDenseMatrix::RequireNotShifted(Rectangle const& range, ORXSrvDenseMatrix const& other,
                                          char const* operation) const {
  Rectangle const a = InDistribution(range);
  Rectangle const b = other.InDistribution(other.Whole());
  bool const haveSameOrigin = a.firstRow == b.firstRow && a.firstColumn == b.firstColumn;
  if (Meets(range, other) && !haveSameOrigin) ORXSrvMtxIllegalInput(operation).Throw(sourceFile, __LINE__);
}

// Cells and their mirror images

ORXSrvDenseMatrix::Rectangle ORXSrvDenseMatrix::MirroredSquare() const noexcept {
  if (!m_isMirrored) return {0, -1, 0, -1};
  int const row = m_first[rowDirection];
  int const column = m_first[columnDirection];
  int const first = std::max(row, column);
  int const last = std::min(row + NumberOfRows(), column + NumberOfColumns()) - 1;
  return {first - row, last - row, first - column, last - column};
}

/// Raises error 206 when a cell and its mirror image are in this matrix: an operation that computes both
/// would get two values for one cell.
void ORXSrvDenseMatrix::RequireNoMirrors(char const* operation) const {
  Rectangle const square = MirroredSquare();
  if (square.lastRow > square.firstRow) ORXSrvMtxIllegalInput(operation).Throw(sourceFile, __LINE__);
}

/// True when the values that a copy to the leading part of the target gives to cells and to their mirror
/// images agree. REQUIRES: not smaller than the target.
bool ORXSrvDenseMatrix::HasSymmetricValuesFor(ORXSrvDenseMatrix const& target) const {
  Rectangle const square = target.MirroredSquare();
  if (square.lastRow <= square.firstRow) return true;
  ORXSrvDenseMatrix const part(*this, square.firstRow, square.lastRow, square.firstColumn, square.lastColumn);
  bool const isItsOwnMirror = m_isMirrored && part.m_first[rowDirection] == part.m_first[columnDirection];
  return isItsOwnMirror || part.IsSymmetric();
}

void ORXSrvDenseMatrix::RequireSymmetricValuesFor(ORXSrvDenseMatrix const& target) const {
  if (!HasSymmetricValuesFor(target))
    ORXSrvMtxMirrorsDiffer("The target is symmetric, the values are not.").Throw(sourceFile, __LINE__);
}

// Growth

namespace {
enum ExtendStatus : int { done = 0, isView = 1, nothingToAppend = 2, noSuchDimension = 3, labelExists = 4 };
}

int ORXSrvDenseMatrix::ExtendableDim() const { return FirstDrawerOf(m_distribution).ExtendableDimension(); }

int ORXSrvDenseMatrix::ExtendDim(int dim, int count, int const* labels) {
  if (dim != 0 && dim != 1) return noSuchDimension;
  if (m_isSubmatrix) return isView; // before labels are added to the collection
  if (m_isMirrored) return noSuchDimension;
  ORXSimCollection const collection((dim == 1 ? m_rowCSetID : m_columnCSetID).Collection());
  int const extent = m_extent[dim == 1 ? rowDirection : columnDirection];
  return ExtendWith(labels != nullptr ? collection.CreateOrderedCSet(labels, count)
                                      : collection.CreateCSetStrided(extent, count, 1, 1));
}

/// Appends the members of a set to the direction of their collection. Returns the result of ExtendDim.
int ORXSrvDenseMatrix::ExtendWith(ORXSimCSetID const& members) {
  ORXSimCSet const added(members);
  if (added.Size() == 0) return nothingToAppend;
  bool const isColumns = members.Collection().Equal(m_columnCSetID.Collection());
  if (!isColumns && !members.Collection().Equal(m_rowCSetID.Collection())) return noSuchDimension;
  Direction const direction = isColumns ? columnDirection : rowDirection;
  ORXSimCSetID& labels = isColumns ? m_columnCSetID : m_rowCSetID;
  ORXSimCSet const present(labels);
  if (added.HasOverlap(present)) return labelExists;

  // All that may fail comes first, on a copy of the transfer: a failure leaves the matrix as before.
  ORXSimTransfer extension(*m_transfer);
  extension.SetDimExtension(members).CheckView();
  std::unique_ptr<ORXSimTransfer> transfer = NewTransfer();
  extension.InitializeExtension().RelinquishBuffers();
  int const dim = m_distribution.NumDimensions() == 1 ? 0 : 1 - direction;
  ORXSimCSetID longer = FirstDrawerOf(m_distribution).DimensionCSetID(dim);
  // The drawer may have grown through another object since this matrix was made.
  if (ORXSimCSet(longer).Size() != present.Size() + added.Size()) longer = JoinSets(present, added);

  m_transfer = std::move(transfer);
  labels = longer;
  // The size of the first column block is set anew whichever direction grows, the size of the first row block
  // never: hosts rely on the blocks that result.
  SetFirstBlock(columnDirection);
  SetExtent(direction, m_extent[direction] + added.Size());
  return done;
}
