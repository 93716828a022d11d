#pragma once

#include "core/mem_Allocator.h"
#include "mtx/ORXSrvMatrix.h"

#include <algorithm>
#include <cstdint>
#include <vector>

class ORXSrvDenseMatrix;

namespace orx {

/// Rows or columns first ... last, both inclusive.
struct BlockRange {
  int first;
  int last;
  int Size() const noexcept { return last - first + 1; }
};

/// Returns the rows of each group of `blocks` consecutive row blocks; the groups cover all rows. The last
/// group may have fewer blocks. The first and the last group may have fewer rows than others (in a view), or
/// more (in a matrix that has grown): LargestSize, not MaxNumberOfRowsInBlock, gives the size for a work
/// area.
std::vector<BlockRange> GroupRowBlocks(ORXSrvDenseMatrix const& matrix, int blocks = 1);
/// The same for the columns.
std::vector<BlockRange> GroupColumnBlocks(ORXSrvDenseMatrix const& matrix, int blocks = 1);

/// Cuts the range into ranges of `size`; the last one may be shorter.
std::vector<BlockRange> CutRange(BlockRange const& range, int size);

/// Cuts each of the ranges into ranges of at most `size`.
std::vector<BlockRange> CutRanges(std::vector<BlockRange> const& ranges, int size);

/// Cuts all rows into strips of at most `height`: parts of one block, or several whole blocks.
std::vector<BlockRange> CutIntoRowStrips(ORXSrvDenseMatrix const& matrix, int height);
/// The same for the columns.
std::vector<BlockRange> CutIntoColumnStrips(ORXSrvDenseMatrix const& matrix, int width);

/// Size of the largest range; 0 if there is none.
inline int LargestSize(std::vector<BlockRange> const& ranges) noexcept {
  int largest = 0;
  for (BlockRange const& range : ranges)
    largest = std::max(largest, range.Size());
  return largest;
}

/// Memory for a rectangle of values; an operation uses it for all its rectangles, one at a time.
class WorkArea {
public:
  WorkArea(int rows, int columns) : m_values(mem_MakeArray<double>(std::int64_t{rows} * columns)) {}
  /// Returns a matrix of this shape, without gaps, over the memory. REQUIRES: not larger than the area.
  ORXSrvMatrix As(int rows, int columns) const { return ORXSrvMatrix(rows, columns, m_values.get()); }

private:
  mem_Array<double> m_values;
};

} // namespace orx
