#include "mtx/impl/blocks/BlockRanges.h"

#include "mtx/ORXSrvDenseMatrix.h"

namespace orx {

namespace {

/// Returns the ranges of groups of `together` blocks. A group ends where the next one begins, the last group
/// at `extent`: the first and the last block of a matrix that has grown may hold more than they report.
template<class First>
std::vector<BlockRange> Groups(int blocks, int together, int extent, First firstInBlock) {
  std::vector<BlockRange> groups;
  for (int b = 0, taken = 0; b < blocks; b += taken) {
    taken = std::min(together, blocks - b);
    int const end = b + taken < blocks ? firstInBlock(b + taken) : extent;
    groups.push_back({firstInBlock(b), end - 1});
  }
  return groups;
}

} // namespace

std::vector<BlockRange> RowGroups(ORXSrvDenseMatrix const& matrix, int blocks) {
  return Groups(matrix.NumberOfRowBlocks(), blocks, matrix.NumberOfRows(),
                [&](int b) { return matrix.FirstRowInBlock(b); });
}

std::vector<BlockRange> ColumnGroups(ORXSrvDenseMatrix const& matrix, int blocks) {
  return Groups(matrix.NumberOfColumnBlocks(), blocks, matrix.NumberOfColumns(),
                [&](int b) { return matrix.FirstColumnInBlock(b); });
}

std::vector<BlockRange> Pieces(BlockRange const& range, int size) {
  std::vector<BlockRange> pieces;
  for (int first = range.first; first <= range.last; first += pieces.back().Size())
    pieces.push_back({first, first + std::min(size, range.last - first + 1) - 1});
  return pieces;
}

std::vector<BlockRange> Cut(std::vector<BlockRange> const& ranges, int size) {
  std::vector<BlockRange> pieces;
  for (BlockRange const& range : ranges)
    for (BlockRange const& piece : Pieces(range, size))
      pieces.push_back(piece);
  return pieces;
}

std::vector<BlockRange> RowStrips(ORXSrvDenseMatrix const& matrix, int height) {
  return Cut(RowGroups(matrix, std::max(1, height / std::max(1, matrix.MaxNumberOfRowsInBlock()))), height);
}

std::vector<BlockRange> ColumnStrips(ORXSrvDenseMatrix const& matrix, int width) {
  return Cut(ColumnGroups(matrix, std::max(1, width / std::max(1, matrix.MaxNumberOfColumnsInBlock()))),
             width);
}

} // namespace orx
