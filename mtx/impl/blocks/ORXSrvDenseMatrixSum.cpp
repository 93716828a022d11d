#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/impl/blocks/BlockRanges.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/matrix/Transposition.h"

#include <algorithm>
#include <vector>

using namespace orx;

// Adds a block matrix to a matrix in memory: this member of ORXSrvMatrix lies here because it uses block
// matrices.

namespace {

constexpr auto& sourceFile = orx::matrixSource;

} // namespace

void ORXSrvMatrix::Add(double factor, ORXSrvDenseMatrix const& source) {
  if (factor == 0.0) return;
  if (source.NumberOfRows() > m_dim1 || source.NumberOfColumns() > m_dim2)
    ORXSrvMtxIllegalInput("Add").Throw(sourceFile, __LINE__);
  std::vector<BlockRange> const rowBlocks = GroupRowBlocks(source);
  std::vector<BlockRange> const columnBlocks = GroupColumnBlocks(source);
  WorkArea const work(LargestSize(rowBlocks), LargestSize(columnBlocks));
  for (BlockRange const& columns : columnBlocks)
    for (BlockRange const& rows : rowBlocks) {
      // Blocks below the diagonal are mirrored at the end.
      if (m_symmetric && rows.first > columns.last) break;
      ORXSrvMatrix block = work.As(rows.Size(), columns.Size());
      source.GetValues(rows.first, rows.last, columns.first, columns.last, block);
      AddSlice(factor, block, rows.first, columns.first);
    }
  if (m_symmetric && !m_diagonal) MirrorTriangle(Triangle::Upper, m_values, m_dim1, std::min(m_dim1, m_dim2));
}
