#include "mtx/ORXSrvDenseMatrix.h"

#include "mtx/impl/blocks/BlockProgress.h"
#include "mtx/impl/blocks/BlockRanges.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/matrix/Transposition.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

using namespace orx;

// Sum, scaling and symmetry test, block by block in place. A block is processed in parts that stay in the
// second-level cache between read and write; otherwise memory would limit the speed.

namespace {

constexpr auto& sourceFile = orx::denseMatrixSource;

// Updates

/// Number of columns of a part of a row block: 256 kB.
int PartWidth(int rows) {
  constexpr int partValues = (1 << 18) / sizeof(double);
  return std::max(1, partValues / std::max(rows, 1));
}

WorkArea WorkAreaForParts(ORXSrvDenseMatrix const& matrix) {
  int const rows = LargestSize(GroupRowBlocks(matrix));
  return {rows, std::min(PartWidth(rows), LargestSize(GroupColumnBlocks(matrix)))};
}

/// Cuts the ranges in front of a position.
std::vector<BlockRange> CutBefore(std::vector<BlockRange> const& ranges, int position) {
  std::vector<BlockRange> parts;
  for (BlockRange const& range : ranges) {
    bool const isCut = position > range.first && position <= range.last;
    if (isCut) parts.push_back({range.first, position - 1});
    parts.push_back({isCut ? position : range.first, range.last});
  }
  return parts;
}

// Symmetry

/// Compares rectangles of a square matrix with their mirror images.
class MirrorTest {
public:
  explicit MirrorTest(ORXSrvDenseMatrix const& matrix) : m_matrix(matrix) {}

  /// True when block (rows, columns) is the transpose of block (columns, rows).
  bool IsMirrored(BlockRange const& rows, BlockRange const& columns) const {
    for (BlockRange const& c : CutRange(columns, partSize))
      for (BlockRange const& r : CutRange(rows, partSize))
        if (c.first >= r.first && !IsPartMirrored(r, c)) return false; // else its mirror image is tested
    return true;
  }

private:
  static constexpr int partSize = 128; // 128 kB

  bool IsPartMirrored(BlockRange const& rows, BlockRange const& columns) const {
    ORXSrvMatrix values = m_work.As(rows.Size(), columns.Size());
    ORXSrvMatrix mirror = m_mirrorWork.As(columns.Size(), rows.Size());
    Read(rows, columns, values);
    if (rows.first == columns.first) return values.IsSymmetricNumerically();
    Read(columns, rows, mirror);
    return IsTransposeOf(values.Values(), rows.Size(), columns.Size(), mirror.Values());
  }

  void Read(BlockRange const& rows, BlockRange const& columns, ORXSrvMatrix& target) const {
    m_matrix.GetValues(rows.first, rows.last, columns.first, columns.last, target);
  }

  ORXSrvDenseMatrix const& m_matrix;
  WorkArea m_work{partSize, partSize};
  WorkArea m_mirrorWork{partSize, partSize};
};

} // namespace

/// Calls visit(rows, columns) for the parts of each block, column block by column block, and reports each
/// block to the host. Where a cell and its mirror image are in the matrix, only the one below the diagonal is
/// visited: in the square of such cells a part begins at the row of its first column.
template<class Visit>
void ORXSrvDenseMatrix::VisitPartsOnce(char const* operation, Visit visit) const {
  Rectangle const square = MirroredSquare();
  std::vector<BlockRange> const rowBlocks = CutBefore(GroupRowBlocks(*this), square.firstRow);
  std::vector<BlockRange> const columnBlocks =
      CutBefore(CutBefore(GroupColumnBlocks(*this), square.firstColumn), square.lastColumn + 1);
  int const width = PartWidth(LargestSize(rowBlocks));
  BlockProgress progress(operation, static_cast<std::int64_t>(rowBlocks.size() * columnBlocks.size()));
  for (BlockRange const& columns : columnBlocks)
    for (BlockRange const& rows : rowBlocks) {
      bool const isInSquare = columns.first >= square.firstColumn && columns.last <= square.lastColumn &&
                              rows.first >= square.firstRow;
      for (BlockRange const& part : CutRange(columns, width)) {
        int const diagonal = part.first - square.firstColumn + square.firstRow;
        int const first = isInSquare ? std::max(rows.first, diagonal) : rows.first;
        if (first <= rows.last) visit(BlockRange{first, rows.last}, part);
      }
      progress.BlockDone();
    }
}

void ORXSrvDenseMatrix::AddAssign(ORXSrvDenseMatrix const& b) {
  if (NumberOfRows() > b.NumberOfRows() || NumberOfColumns() > b.NumberOfColumns())
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  RequireNotShifted(Whole(), b, "AddAssign");
  if (!b.HasSymmetricValuesFor(*this)) ORXSrvMtxIllegalInput("AddAssign").Throw(sourceFile, __LINE__);
  WorkArea const workA = WorkAreaForParts(*this);
  WorkArea const workB = WorkAreaForParts(*this);
  VisitPartsOnce("ORXSrvDenseMatrix::AddAssign", [&](BlockRange const& rows, BlockRange const& columns) {
    ORXSrvMatrix partA = workA.As(rows.Size(), columns.Size());
    ORXSrvMatrix partB = workB.As(rows.Size(), columns.Size());
    GetValues(rows.first, rows.last, columns.first, columns.last, partA);
    b.GetValues(rows.first, rows.last, columns.first, columns.last, partB);
    partA += partB;
    SetValues(rows.first, rows.last, columns.first, columns.last, partA);
  });
}

void ORXSrvDenseMatrix::Scale(double factor) {
  WorkArea const work = WorkAreaForParts(*this);
  VisitPartsOnce("ORXSrvDenseMatrix::Scale", [&](BlockRange const& rows, BlockRange const& columns) {
    ORXSrvMatrix part = work.As(rows.Size(), columns.Size());
    GetValues(rows.first, rows.last, columns.first, columns.last, part);
    part.Multiply(factor);
    SetValues(rows.first, rows.last, columns.first, columns.last, part);
  });
}

bool ORXSrvDenseMatrix::IsSymmetric() const {
  if (NumberOfRows() != NumberOfColumns()) return false;
  std::vector<BlockRange> const blocks = GroupRowBlocks(*this); // column blocks are the same
  MirrorTest const test(*this);
  auto const count = static_cast<std::int64_t>(blocks.size());
  BlockProgress progress("ORXSrvDenseMatrix::IsSymmetric", count * (count + 1) / 2);
  for (std::size_t i = 0; i < blocks.size(); ++i)
    for (std::size_t j = i; j < blocks.size(); ++j) {
      if (!test.IsMirrored(blocks[i], blocks[j])) return false;
      progress.BlockDone();
    }
  return true;
}
