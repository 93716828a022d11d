#include "mtx/impl/BlockRanges.h"

#include "mtx/ORXSrvDenseMatrix.h"

namespace orx {

std::vector<BlockRange> RowGroups(ORXSrvDenseMatrix const& matrix, int blocks) {
  std::vector<BlockRange> groups;
  int const count = matrix.NumberOfRowBlocks();
  for (int b = 0, taken = 0; b < count; b += taken) {
    taken = std::min(blocks, count - b);
    int const first = matrix.FirstRowInBlock(b);
    groups.push_back({first, first + matrix.NumberOfRowsInBlockRange(b, b + taken - 1) - 1});
  }
  return groups;
}

std::vector<BlockRange> ColumnGroups(ORXSrvDenseMatrix const& matrix, int blocks) {
  std::vector<BlockRange> groups;
  int const count = matrix.NumberOfColumnBlocks();
  for (int b = 0, taken = 0; b < count; b += taken) {
    taken = std::min(blocks, count - b);
    int const first = matrix.FirstColumnInBlock(b);
    groups.push_back({first, first + matrix.NumberOfColumnsInBlockRange(b, b + taken - 1) - 1});
  }
  return groups;
}

std::vector<BlockRange> Pieces(BlockRange const& range, int size) {
  std::vector<BlockRange> pieces;
  for (int first = range.first; first <= range.last; first += pieces.back().Size())
    pieces.push_back({first, first + std::min(size, range.last - first + 1) - 1});
  return pieces;
}

std::vector<BlockRange> ColumnStrips(ORXSrvDenseMatrix const& matrix, int width) {
  int const blocks = std::max(1, width / std::max(1, matrix.MaxNumberOfColumnsInBlock()));
  std::vector<BlockRange> strips;
  for (BlockRange const& group : ColumnGroups(matrix, blocks))
    for (BlockRange const& strip : Pieces(group, width))
      strips.push_back(strip);
  return strips;
}

} // namespace orx
