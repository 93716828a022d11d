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
int PieceWidth(int rows) {
  constexpr int pieceValues = (1 << 18) / sizeof(double);
  return std::max(1, pieceValues / std::max(rows, 1));
}

WorkArea AreaForPieces(ORXSrvDenseMatrix const& matrix) {
  int const rows = LargestSize(RowGroups(matrix));
  return {rows, std::min(PieceWidth(rows), LargestSize(ColumnGroups(matrix)))};
}

/// Calls visit(rows, columns) for the parts of each block, column block by column block, and reports each
/// block to the host.
template<class Visit>
void VisitPieces(ORXSrvDenseMatrix const& matrix, char const* operation, Visit visit) {
  std::vector<BlockRange> const rowBlocks = RowGroups(matrix);
  std::vector<BlockRange> const columnBlocks = ColumnGroups(matrix);
  int const width = PieceWidth(LargestSize(rowBlocks));
  BlockProgress progress(operation, static_cast<std::int64_t>(rowBlocks.size() * columnBlocks.size()));
  for (BlockRange const& columns : columnBlocks)
    for (BlockRange const& rows : rowBlocks) {
      for (BlockRange const& piece : Pieces(columns, width))
        visit(rows, piece);
      progress.BlockDone();
    }
}

// Symmetry

/// Compares rectangles of a square matrix with their mirror images.
class MirrorTest {
public:
  explicit MirrorTest(ORXSrvDenseMatrix const& matrix) : m_matrix(matrix) {}

  /// True when block (rows, columns) is the transpose of block (columns, rows).
  bool Passes(BlockRange const& rows, BlockRange const& columns) const {
    for (BlockRange const& c : Pieces(columns, piece))
      for (BlockRange const& r : Pieces(rows, piece))
        if (c.first >= r.first && !PiecePasses(r, c)) return false; // else its mirror image is tested
    return true;
  }

private:
  static constexpr int piece = 128; // 128 kB

  bool PiecePasses(BlockRange const& rows, BlockRange const& columns) const {
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
  WorkArea m_work{piece, piece};
  WorkArea m_mirrorWork{piece, piece};
};

} // namespace

void ORXSrvDenseMatrix::AddAssign(ORXSrvDenseMatrix const& b) {
  if (NumberOfRows() > b.NumberOfRows() || NumberOfColumns() > b.NumberOfColumns())
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  RequireNotShifted(Whole(), b, "AddAssign");
  WorkArea const workA = AreaForPieces(*this);
  WorkArea const workB = AreaForPieces(*this);
  VisitPieces(*this, "ORXSrvDenseMatrix::AddAssign", [&](BlockRange const& rows, BlockRange const& columns) {
    ORXSrvMatrix pieceA = workA.As(rows.Size(), columns.Size());
    ORXSrvMatrix pieceB = workB.As(rows.Size(), columns.Size());
    GetValues(rows.first, rows.last, columns.first, columns.last, pieceA);
    b.GetValues(rows.first, rows.last, columns.first, columns.last, pieceB);
    pieceA += pieceB;
    SetValues(rows.first, rows.last, columns.first, columns.last, pieceA);
  });
}

void ORXSrvDenseMatrix::Scale(double factor) {
  WorkArea const work = AreaForPieces(*this);
  VisitPieces(*this, "ORXSrvDenseMatrix::Scale", [&](BlockRange const& rows, BlockRange const& columns) {
    ORXSrvMatrix piece = work.As(rows.Size(), columns.Size());
    GetValues(rows.first, rows.last, columns.first, columns.last, piece);
    piece.Multiply(factor);
    SetValues(rows.first, rows.last, columns.first, columns.last, piece);
  });
}

bool ORXSrvDenseMatrix::IsSymmetric() const {
  if (NumberOfRows() != NumberOfColumns()) return false;
  std::vector<BlockRange> const blocks = RowGroups(*this); // column blocks are the same
  MirrorTest const test(*this);
  auto const count = static_cast<std::int64_t>(blocks.size());
  BlockProgress progress("ORXSrvDenseMatrix::IsSymmetric", count * (count + 1) / 2);
  for (std::size_t i = 0; i < blocks.size(); ++i)
    for (std::size_t j = i; j < blocks.size(); ++j) {
      if (!test.Passes(blocks[i], blocks[j])) return false;
      progress.BlockDone();
    }
  return true;
}
