#include "tools/mpi/DenseDrawer.h"

#include "tools/terminal/Text.h"

#include <algorithm>
#include <vector>

namespace orx::mpi {
namespace {

/// The part of a range that lies in the same block as its first position.
Range FirstPart(Range range, std::int64_t blockLength) {
  std::int64_t const end = (range.first / blockLength + 1) * blockLength;
  return {range.first, static_cast<int>(std::min<std::int64_t>(range.End(), end) - range.first)};
}

Range Rest(Range range, Range part) { return {part.End(), range.count - part.count}; }

/// Calls visit(rows, columns) for the parts of a rectangle that lie in one block each.
template<class Visit>
void ForEachBlock(Range rows, Range columns, std::int64_t blockLength, Visit const& visit) {
  for (Range right = columns; right.count > 0; right = Rest(right, FirstPart(right, blockLength)))
    for (Range below = rows; below.count > 0; below = Rest(below, FirstPart(below, blockLength)))
      visit(FirstPart(below, blockLength), FirstPart(right, blockLength));
}

} // namespace

DenseDrawer::DenseDrawer(ParallelFile const& file, DensePlace const& place, Ranks const& ranks)
    : m_place(place), m_cells(file.Open(place.drawer, place.isSymmetric ? 3 : 2)),
      m_blockLength(place.isSymmetric ? m_cells.Shape()[1] : 0) {
  ranks.OnEach([&] { RequireShape(); });
}

void DenseDrawer::RequireShape() const {
  std::vector<std::int64_t> const& shape = m_cells.Shape();
  bool fits = shape[0] >= m_place.columns && shape[1] >= m_place.rows;
  if (m_place.isSymmetric) {
    std::int64_t const length = std::max<std::int64_t>(m_blockLength, 1);
    std::int64_t const blockRows = (m_place.rows + length - 1) / length;
    fits = shape[1] == shape[2] && m_blockLength > 0 && shape[0] >= blockRows * (blockRows + 1) / 2;
  }
  if (fits) return;
  throw tool::ToolError(tool::ExitCode::UnusableInput,
                        m_cells.Name() + tool::Format(": its cells are too few for a matrix of %d x %d",
                                                      m_place.rows, m_place.columns));
}

void DenseDrawer::Read(Range rows, Range columns, double* to, std::int64_t lead) const {
  if (!m_place.isSymmetric)
    return m_cells.Read({{columns.first, rows.first}, columns.count, rows.count}, to, lead);
  ForEachBlock(rows, columns, m_blockLength, [&](Range inRows, Range inColumns) {
    ReadBlock(inRows, inColumns, to + (inColumns.first - columns.first) * lead + inRows.first - rows.first,
              lead);
  });
}

/// A block above the diagonal is the mirror image of the one that is stored.
void DenseDrawer::ReadBlock(Range rows, Range columns, double* to, std::int64_t lead) const {
  std::int64_t const I = rows.first / m_blockLength, J = columns.first / m_blockLength;
  if (I >= J)
    return m_cells.Read(
        {{I * (I + 1) / 2 + J, columns.first - J * m_blockLength, rows.first - I * m_blockLength},
         columns.count,
         rows.count},
        to, lead);
  std::vector<double> mirrored(static_cast<std::size_t>(rows.count) * columns.count);
  m_cells.Read({{J * (J + 1) / 2 + I, rows.first - I * m_blockLength, columns.first - J * m_blockLength},
                rows.count,
                columns.count},
               mirrored.data(), columns.count);
  for (int j = 0; j < columns.count; ++j)
    for (int i = 0; i < rows.count; ++i)
      to[j * lead + i] = mirrored[static_cast<std::size_t>(i) * columns.count + j];
}

} // namespace orx::mpi
