#include "mtx/impl/blocks/BlockRanges.h"

#include "mtx/ORXSrvDenseMatrix.h"

namespace orx {

namespace {

/// Returns the ranges of groups of `together` blocks. A group ends where the next one begins, the last group
/// at `extent`: the first and the last block of a matrix that has grown may hold more than they report.
template<class First>
std::vector<BlockRange> GroupBlocks(int blocks, int together, int extent, First firstInBlock) {
  std::vector<BlockRange> groups;
  for (int b = 0, taken = 0; b < blocks; b += taken) {
    taken = std::min(together, blocks - b);
    int const end = b + taken < blocks ? firstInBlock(b + taken) : extent;
    groups.push_back({firstInBlock(b), end - 1});
  }
  return groups;
}

} // namespace

std::vector<BlockRange> GroupRowBlocks(ORXSrvDenseMatrix const& matrix, int blocks) {
  return GroupBlocks(matrix.NumberOfRowBlocks(), blocks, matrix.NumberOfRows(),
                     [&](int b) { return matrix.FirstRowInBlock(b); });
}

std::vector<BlockRange> GroupColumnBlocks(ORXSrvDenseMatrix const& matrix, int blocks) {
  return GroupBlocks(matrix.NumberOfColumnBlocks(), blocks, matrix.NumberOfColumns(),
                     [&](int b) { return matrix.FirstColumnInBlock(b); });
}

std::vector<BlockRange> CutRange(BlockRange const& range, int size) {
  std::vector<BlockRange> parts;
  for (int first = range.first; first <= range.last; first += parts.back().Size())
    parts.push_back({first, first + std::min(size, range.last - first + 1) - 1});
  return parts;
}

std::vector<BlockRange> CutRanges(std::vector<BlockRange> const& ranges, int size) {
  std::vector<BlockRange> parts;
  for (BlockRange const& range : ranges)
    for (BlockRange const& part : CutRange(range, size))
      parts.push_back(part);
  return parts;
}

std::vector<BlockRange> CutIntoRowStrips(ORXSrvDenseMatrix const& matrix, int height) {
  return CutRanges(GroupRowBlocks(matrix, std::max(1, height / std::max(1, matrix.MaxNumberOfRowsInBlock()))),
                   height);
}

std::vector<BlockRange> CutIntoColumnStrips(ORXSrvDenseMatrix const& matrix, int width) {
  return CutRanges(
      GroupColumnBlocks(matrix, std::max(1, width / std::max(1, matrix.MaxNumberOfColumnsInBlock()))), width);
}

} // namespace orx
