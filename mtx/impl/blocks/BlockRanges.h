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

/// The rows of each group of `blocks` consecutive row blocks; together they are all rows. The last group may
/// have fewer blocks, and the first and the last one other numbers of rows than others of as many blocks:
/// fewer in a view, more in a matrix that has grown. Work areas are therefore sized by LargestSize, not by
/// MaxNumberOfRowsInBlock.
std::vector<BlockRange> RowGroups(ORXSrvDenseMatrix const& matrix, int blocks = 1);
/// The same for the columns.
std::vector<BlockRange> ColumnGroups(ORXSrvDenseMatrix const& matrix, int blocks = 1);

/// The range in pieces of `size`, the last one perhaps shorter.
std::vector<BlockRange> Pieces(BlockRange const& range, int size);

/// The ranges, each in pieces of at most `size`.
std::vector<BlockRange> Cut(std::vector<BlockRange> const& ranges, int size);

/// All rows in pieces of at most `height`: parts of one block, or several whole blocks.
std::vector<BlockRange> RowStrips(ORXSrvDenseMatrix const& matrix, int height);
/// The same for the columns.
std::vector<BlockRange> ColumnStrips(ORXSrvDenseMatrix const& matrix, int width);

/// The size of the largest range; 0 without one.
inline int LargestSize(std::vector<BlockRange> const& ranges) noexcept {
  int largest = 0;
  for (BlockRange const& range : ranges)
    largest = std::max(largest, range.Size());
  return largest;
}

/// Memory for the largest of the rectangles that an operation works on, one at a time.
class WorkArea {
public:
  WorkArea(int rows, int columns) : m_values(mem_MakeArray<double>(std::int64_t{rows} * columns)) {}
  /// The area as a matrix of that shape, which must not be larger than what was asked for; without gaps.
  ORXSrvMatrix As(int rows, int columns) const { return ORXSrvMatrix(rows, columns, m_values.get()); }

private:
  mem_Array<double> m_values;
};

} // namespace orx
