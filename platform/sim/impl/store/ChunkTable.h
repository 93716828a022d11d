#pragma once

#include "sim/impl/store/BoxCopy.h"
#include "sim/impl/store/ChunkLengths.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace orx::store {

/// A box of cells of a drawer, and where it lies in a contiguous buffer of another shape. The last dimension
/// varies fastest in both.
struct DrawerBox {
  Indices first;       ///< position of the first cell in the drawer
  Indices counts;      ///< number of cells along each dimension
  Indices bufferFirst; ///< position of the first cell in the buffer
};

/// The cells of a DrawerBox that lie in one chunk.
struct BoxInChunk {
  std::size_t chunk;   ///< number of the chunk
  Indices first;       ///< position of the first cell in the chunk
  Indices counts;      ///< number of cells along each dimension
  Indices bufferFirst; ///< position of the first cell in the buffer
};

/// The chunks of a dense drawer: their lengths, their file offsets, and which were never written.
///
///       chunk (k0, k1, ...) holds the cells from position k[d] * Lengths()[d] on along each dimension d.
///       Each chunk is one run of bytes in the file; inside it, and in the numbering of the chunks, the last
///       dimension varies fastest.
///
/// The table knows neither HDF5 nor the file; DenseDrawer fills it. It may have extents only, while nobody
/// has asked for cells, or no extents, when they must be read again.
class ChunkTable {
public:
  /// Returns the file offset of the chunk whose first cell has the given position in the drawer.
  using FindOffset = std::function<std::uint64_t(Indices const& firstCell)>;

  // Shape

  /// Sizes of the dataset, in cells; empty when they must be read again.
  std::vector<std::int64_t> const& Extents() const noexcept { return m_extents; }
  void SetExtents(std::vector<std::int64_t> extents) noexcept { m_extents = std::move(extents); }
  /// Chunk lengths, in cells along each dimension.
  std::vector<std::int64_t> const& Lengths() const noexcept { return m_lengths; }
  void SetLengths(std::vector<std::int64_t> lengths);
  int Rank() const noexcept { return static_cast<int>(m_lengths.size()); }
  /// Number of chunks along a dimension.
  std::int64_t CountAlong(int dim) const {
    auto const at = static_cast<std::size_t>(dim);
    return CeilingDivision(m_extents[at], m_lengths[at]);
  }
  /// Number of all chunks.
  std::int64_t CountChunks() const;
  /// Number of cells in a chunk, padding beyond the extents included.
  std::int64_t CellsPerChunk() const noexcept { return m_cellsPerChunk; }
  /// The box of all cells, for a buffer of the same shape.
  DrawerBox AllCells() const;

  // File offsets

  /// Takes the offsets of all chunks. `areUnwritten`: the chunks are zeros that were never written.
  void SetOffsets(std::vector<std::uint64_t> offsets, bool areUnwritten);
  /// The same with the offsets that `find` returns. When `find` raises an exception, the table is unchanged.
  void FindOffsets(FindOffset const& find, bool areUnwritten);
  /// Changes the extents and returns the offsets of the chunks that are new. `find` is called for new chunks
  /// only, because HDF5 does not move chunks. When it raises an exception, the table is unchanged.
  std::vector<std::uint64_t> Resize(std::vector<std::int64_t> extents, FindOffset const& find,
                                    bool areUnwritten);
  std::vector<std::uint64_t> const& Offsets() const noexcept { return m_offsets; }
  std::uint64_t Offset(std::size_t chunk) const noexcept { return m_offsets[chunk]; }
  /// The offset of a chunk that overlaps another one, reaches beyond `fileEnd` or lies at 0, where the file's
  /// signature is.
  std::optional<std::uint64_t> FindMisplaced(std::uint64_t chunkBytes, std::uint64_t fileEnd) const;
  /// Checksum of the extents and the offsets.
  std::uint64_t Checksum() const;

  // Chunks that are zeros which were never written, or only in part

  bool IsUnwritten(std::size_t chunk) const { return m_isUnwritten[chunk]; }
  void MarkWritten(std::size_t chunk) { m_isUnwritten[chunk] = false; }
  void MarkAllWritten() { m_isUnwritten.assign(m_offsets.size(), false); }

  // Boxes

  /// Calls visit(BoxInChunk const&) for each chunk that has cells of the box, by ascending number.
  template<class Visit>
  void ForEachChunk(DrawerBox const& box, Visit&& visit) const {
    Indices firstChunk;
    Indices lastChunk;
    Indices at;
    for (int dim = 0; dim < Rank(); ++dim) {
      if (box.counts[dim] == 0) return;
      std::int64_t const length = m_lengths[static_cast<std::size_t>(dim)];
      firstChunk[dim] = at[dim] = box.first[dim] / length;
      lastChunk[dim] = (box.first[dim] + box.counts[dim] - 1) / length;
    }
    for (;;) {
      visit(Intersection(box, at));
      int dim = Rank() - 1;
      for (; dim >= 0; --dim) {
        if (++at[dim] <= lastChunk[dim]) break;
        at[dim] = firstChunk[dim];
      }
      if (dim < 0) return;
    }
  }

private:
  /// The cells of a box in the chunk at a position among the chunks.
  BoxInChunk Intersection(DrawerBox const& box, Indices const& position) const {
    BoxInChunk part;
    std::int64_t number = 0;
    for (int dim = 0; dim < Rank(); ++dim) {
      std::int64_t const length = m_lengths[static_cast<std::size_t>(dim)];
      std::int64_t const corner = position[dim] * length;
      std::int64_t const first = std::max(box.first[dim], corner);
      std::int64_t const end = std::min(box.first[dim] + box.counts[dim], corner + length);
      part.first[dim] = first - corner;
      part.counts[dim] = end - first;
      part.bufferFirst[dim] = box.bufferFirst[dim] + first - box.first[dim];
      number = number * CountAlong(dim) + position[dim];
    }
    part.chunk = static_cast<std::size_t>(number);
    return part;
  }
  std::optional<std::size_t> Find(Indices const& firstCell) const;

  std::vector<std::int64_t> m_extents;
  std::vector<std::int64_t> m_lengths;
  std::int64_t m_cellsPerChunk = 0;
  std::vector<std::uint64_t> m_offsets; ///< file offset of each chunk, in bytes
  std::vector<bool> m_isUnwritten;      ///< of each chunk
};

} // namespace orx::store
