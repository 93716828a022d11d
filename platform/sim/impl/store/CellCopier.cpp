#include "sim/impl/store/CellCopier.h"

#include "file/TransactionalFile.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orx::store {

namespace {

constexpr auto pageBytes = std::int64_t{file::PageOverlay::pageBytes};

template<class Cell>
std::vector<std::byte> RepeatedCell(std::int64_t count, Cell cell) {
  std::vector<std::byte> bytes(static_cast<std::size_t>(count) * sizeof(Cell));
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(Cell))
    std::memcpy(bytes.data() + at, &cell, sizeof(Cell));
  return bytes;
}

/// Strides, in cells, of a contiguous array whose last dimension varies fastest.
void SetStrides(std::span<std::int64_t const> lengths, Indices& strides) {
  std::int64_t stride = 1;
  for (std::size_t dim = lengths.size(); dim-- > 0;) {
    strides[dim] = stride;
    stride *= lengths[dim];
  }
}

/// Number of cells before the cell at a position.
std::int64_t CellsBefore(int rank, Indices const& position, Indices const& strides) {
  std::int64_t cells = 0;
  for (int dim = 0; dim < rank; ++dim)
    cells += position[dim] * strides[dim];
  return cells;
}

} // namespace

std::vector<std::byte> FilledCells(CellType cell, std::int64_t count, double fill) {
  return cell == CellType::Double ? RepeatedCell(count, fill)
                                  : RepeatedCell(count, static_cast<std::int32_t>(fill));
}

bool IsAllZeroBits(double value) { return value == 0.0 && !std::signbit(value); }

// Filling

void CellCopier::FillChunk(std::uint64_t offset, std::uint64_t freshFrom, double fill) {
  if (!IsAllZeroBits(fill)) {
    WriteFill(offset, fill);
  } else if (offset < freshFrom) {
    m_file.File().ZeroRange(offset, static_cast<std::uint64_t>(ChunkBytes()));
  }
  m_file.WillWriteRawData();
}

void CellCopier::WriteFill(std::uint64_t offset, double fill) {
  constexpr std::int64_t mostCells = 1 << 17;
  std::int64_t const cells = m_chunks.CellsPerChunk();
  std::vector<std::byte> const filled = FilledCells(m_cell, std::min(mostCells, cells), fill);
  auto const bytes = static_cast<std::uint64_t>(ChunkBytes());
  for (std::uint64_t done = 0; done < bytes; done += filled.size())
    m_file.File().WriteAt(offset + done, filled.data(), std::min(filled.size(), bytes - done));
}

// Reading and writing by calls

namespace {

/// Reads the cells of a box from a file offset on, each innermost run by a call of its own.
template<class Cell>
void ReadRuns(file::PositionedFile const& file, std::uint64_t offset, TwoStridedBox const& cells,
              Cell* buffer) {
  std::size_t const bytes = static_cast<std::size_t>(cells.counts[cells.rank - 1]) * sizeof(Cell);
  ForEachRun(cells, [&](std::int64_t to, std::int64_t from) {
    file.ReadAt(offset + static_cast<std::uint64_t>(from) * sizeof(Cell), buffer + to, bytes);
  });
}

/// Writes the cells of a box, each innermost run by a call of its own.
template<class Cell>
void WriteRuns(file::PositionedFile& file, std::uint64_t offset, TwoStridedBox const& cells,
               Cell const* buffer) {
  std::size_t const bytes = static_cast<std::size_t>(cells.counts[cells.rank - 1]) * sizeof(Cell);
  ForEachRun(cells, [&](std::int64_t to, std::int64_t from) {
    file.WriteAt(offset + static_cast<std::uint64_t>(to) * sizeof(Cell), buffer + from, bytes);
  });
}

/// True when the cells are one run in the array that they are copied to.
bool IsOneRunInTarget(TwoStridedBox const& cells) {
  std::int64_t stride = 1;
  for (int dim = cells.rank - 1; dim >= 0; --dim) {
    if (cells.counts[dim] != 1 && cells.toStrides[dim] != stride) return false;
    stride *= cells.counts[dim];
  }
  return true;
}

/// Number of cells that WriteGathered collects for one call.
template<class Cell>
constexpr std::int64_t gatheredCells = (1 << 20) / static_cast<std::int64_t>(sizeof(Cell));

/// Writes a box that is one run in the file: slices along its dimension `slowest`, of `sliceCells` cells
/// each, are copied together, and go with one call for each workspace that they fill.
template<class Cell>
void WriteGathered(file::PositionedFile& file, std::uint64_t offset, TwoStridedBox cells, int slowest,
                   std::int64_t sliceCells, Cell const* buffer) {
  std::int64_t const slices = cells.counts[slowest];
  std::vector<Cell> workspace(static_cast<std::size_t>(gatheredCells<Cell>));
  for (std::int64_t done = 0; done < slices; done += cells.counts[slowest]) {
    cells.counts[slowest] = std::min(gatheredCells<Cell> / sliceCells, slices - done);
    CopyBox<Cell>(cells, workspace.data(), buffer + done * cells.fromStrides[slowest]);
    file.WriteAt(offset + static_cast<std::uint64_t>(done * sliceCells) * sizeof(Cell), workspace.data(),
                 static_cast<std::size_t>(cells.counts[slowest] * sliceCells) * sizeof(Cell));
  }
}

/// Writes the cells of a box from a file offset on. Cells that are one run in the file, but not in the
/// buffer, are gathered for large calls: large calls make large pages in the system's cache, which stay
/// faster for every later access.
template<class Cell>
void WriteByCalls(file::PositionedFile& file, std::uint64_t offset, TwoStridedBox const& cells,
                  Cell const* buffer) {
  int slowest = 0;
  while (slowest < cells.rank - 1 && cells.counts[slowest] == 1)
    ++slowest;
  std::int64_t const sliceCells = slowest < cells.rank - 1 ? cells.toStrides[slowest] : gatheredCells<Cell>;
  bool const isOneRunInBuffer = cells.fromStrides[slowest] == sliceCells;
  if (!IsOneRunInTarget(cells) || isOneRunInBuffer || sliceCells >= gatheredCells<Cell>) {
    WriteRuns(file, offset, cells, buffer);
  } else {
    WriteGathered(file, offset, cells, slowest, sliceCells, buffer);
  }
}

/// Joins dimensions of the box into runs that are contiguous on both sides; returns the box as it is when
/// that is not possible.
TwoStridedBox LengthenRuns(TwoStridedBox const& box) {
  TwoStridedBox simple = box;
  simple.Simplify();
  int const last = simple.rank - 1;
  return last >= 0 && simple.toStrides[last] == 1 && simple.fromStrides[last] == 1 ? simple : box;
}

} // namespace

/// True for chunks that cannot be mapped, and for long runs that are written to fresh space: its pages cost
/// less when a write call longer than a page makes them than when the mapping faults for each.
bool CellCopier::NeedsCalls(std::size_t chunk, bool isWrite, TwoStridedBox const& cells) const {
  if (!m_file.File().CanMap(m_chunks.Offset(chunk), static_cast<std::uint64_t>(ChunkBytes()))) return true;
  if (!isWrite || !m_chunks.IsUnwritten(chunk)) return false;
  return cells.counts[cells.rank - 1] * BytesOf(m_cell) >= pageBytes;
}

template<class Cell, bool isWrite, class Buffer>
void CellCopier::MoveByCalls(BoxInChunk const& box, TwoStridedBox const& cells, std::uint64_t offset,
                             Buffer* buffer) {
  TwoStridedBox const runs = LengthenRuns(cells);
  if constexpr (isWrite) {
    WriteByCalls<Cell>(m_file.File(), offset, runs, buffer);
    auto const& lengths = m_chunks.Lengths();
    if (std::equal(lengths.begin(), lengths.end(), box.counts.begin())) m_chunks.MarkWritten(box.chunk);
  } else {
    ReadRuns<Cell>(m_file.File(), offset, runs, buffer);
  }
}

// Reading and writing

/// Buffer is Cell, or Cell const for writing.
template<class Cell, bool isWrite, class Buffer>
void CellCopier::MoveCells(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, Buffer* buffer) {
  Indices bufferStrides;
  Indices chunkStrides;
  SetStrides(bufferCounts, bufferStrides);
  SetStrides(m_chunks.Lengths(), chunkStrides);
  int const rank = m_chunks.Rank();
  auto const chunkBytes = static_cast<std::uint64_t>(ChunkBytes());
  file::PositionedFile& file = m_file.File();
  m_chunks.ForEachChunk(box, [&](BoxInChunk const& part) {
    TwoStridedBox cells;
    cells.rank = rank;
    cells.counts = part.counts;
    cells.toStrides = isWrite ? chunkStrides : bufferStrides;
    cells.fromStrides = isWrite ? bufferStrides : chunkStrides;
    Buffer* const inBuffer = buffer + CellsBefore(rank, part.bufferFirst, bufferStrides);
    auto const inChunk =
        static_cast<std::uint64_t>(CellsBefore(rank, part.first, chunkStrides)) * sizeof(Cell);
    std::uint64_t const chunkOffset = m_chunks.Offset(part.chunk);
    if (NeedsCalls(part.chunk, isWrite, cells)) {
      MoveByCalls<Cell, isWrite>(part, cells, chunkOffset + inChunk, inBuffer);
      return;
    }
    std::byte* const inFile = file.Bytes(chunkOffset, chunkBytes) + inChunk;
    if constexpr (isWrite)
      CopyBox<Cell>(cells, inFile, inBuffer);
    else
      CopyBox<Cell>(cells, inBuffer, inFile);
  });
}

void CellCopier::Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer) {
  if (m_cell == CellType::Double) {
    MoveCells<double, false>(box, bufferCounts, static_cast<double*>(buffer));
  } else {
    MoveCells<std::int32_t, false>(box, bufferCounts, static_cast<std::int32_t*>(buffer));
  }
}

void CellCopier::Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void const* buffer) {
  m_file.WillWriteRawData();
  if (m_cell == CellType::Double) {
    MoveCells<double, true>(box, bufferCounts, static_cast<double const*>(buffer));
  } else {
    MoveCells<std::int32_t, true>(box, bufferCounts, static_cast<std::int32_t const*>(buffer));
  }
}

} // namespace orx::store
