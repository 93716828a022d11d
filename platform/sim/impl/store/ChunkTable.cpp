#include "sim/impl/store/ChunkTable.h"

#include "file/Checksum.h"

namespace orx::store {

// Shape

void ChunkTable::SetLengths(std::vector<std::int64_t> lengths) {
  m_lengths = std::move(lengths);
  m_cellsPerChunk = SaturatedProduct(m_lengths);
}

std::int64_t ChunkTable::CountChunks() const {
  std::vector<std::int64_t> counts(m_lengths.size());
  for (std::size_t dim = 0; dim < counts.size(); ++dim)
    counts[dim] = CountAlong(static_cast<int>(dim));
  return SaturatedProduct(counts);
}

DrawerBox ChunkTable::AllCells() const {
  DrawerBox all;
  all.first.fill(0);
  all.bufferFirst.fill(0);
  std::copy(m_extents.begin(), m_extents.end(), all.counts.begin());
  return all;
}

// File offsets

void ChunkTable::SetOffsets(std::vector<std::uint64_t> offsets, bool areUnwritten) {
  m_isUnwritten.assign(offsets.size(), areUnwritten);
  m_offsets = std::move(offsets);
}

void ChunkTable::FindOffsets(FindOffset const& find, bool areUnwritten) {
  std::vector<std::uint64_t> offsets(static_cast<std::size_t>(CountChunks()));
  // In a buffer of the drawer's shape, a chunk begins where it begins in the drawer.
  ForEachChunk(AllCells(), [&](BoxInChunk const& box) { offsets[box.chunk] = find(box.bufferFirst); });
  SetOffsets(std::move(offsets), areUnwritten);
}

std::vector<std::uint64_t> ChunkTable::Resize(std::vector<std::int64_t> extents, FindOffset const& find,
                                              bool areUnwritten) {
  ChunkTable resized;
  resized.SetExtents(std::move(extents));
  resized.SetLengths(m_lengths);
  resized.SetOffsets(std::vector<std::uint64_t>(static_cast<std::size_t>(resized.CountChunks())),
                     areUnwritten);
  std::vector<std::uint64_t> added;
  resized.ForEachChunk(resized.AllCells(), [&](BoxInChunk const& box) {
    if (std::optional<std::size_t> const former = Find(box.bufferFirst)) {
      resized.m_offsets[box.chunk] = m_offsets[*former];
      resized.m_isUnwritten[box.chunk] = m_isUnwritten[*former];
    } else {
      resized.m_offsets[box.chunk] = find(box.bufferFirst);
      added.push_back(resized.m_offsets[box.chunk]);
    }
  });
  *this = std::move(resized);
  return added;
}

/// Number of the chunk that begins at a cell; nothing when the cell is outside of the extents.
std::optional<std::size_t> ChunkTable::Find(Indices const& firstCell) const {
  std::int64_t number = 0;
  for (int dim = 0; dim < Rank(); ++dim) {
    std::int64_t const count = CountAlong(dim);
    std::int64_t const position = firstCell[dim] / m_lengths[static_cast<std::size_t>(dim)];
    if (position >= count) return {};
    number = number * count + position;
  }
  return static_cast<std::size_t>(number);
}

std::optional<std::uint64_t> ChunkTable::FindMisplaced(std::uint64_t chunkBytes,
                                                       std::uint64_t fileEnd) const {
  std::vector<std::uint64_t> sorted = m_offsets;
  std::sort(sorted.begin(), sorted.end());
  sorted.push_back(fileEnd);
  for (std::size_t k = 0; k + 1 < sorted.size(); ++k)
    if (sorted[k] == 0 || sorted[k] > sorted[k + 1] || sorted[k + 1] - sorted[k] < chunkBytes)
      return sorted[k];
  return {};
}

std::uint64_t ChunkTable::Checksum() const {
  std::uint64_t const sum = file::Checksum(m_extents.data(), m_extents.size() * sizeof m_extents[0], 1);
  return file::Checksum(m_offsets.data(), m_offsets.size() * sizeof m_offsets[0], sum);
}

} // namespace orx::store
