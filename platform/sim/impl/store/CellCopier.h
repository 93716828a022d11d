#pragma once

#include "sim/impl/store/ChunkTable.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orx::file {
class TransactionalFile;
}

namespace orx::store {

enum class CellType : std::uint8_t { Int32, Double };

constexpr int BytesOf(CellType cell) { return cell == CellType::Double ? 8 : 4; }

/// The bytes of `count` cells that all have the value `fill`.
std::vector<std::byte> FilledCells(CellType cell, std::int64_t count, double fill);

/// True for a value whose bytes are zeros. A negative zero is not, so it must be written to fresh space.
bool IsAllZeroBits(double value);

/// Moves cells between the chunks of a dense drawer and a contiguous buffer: by copies from and to a mapping
/// of the file, or by system calls where the file cannot be mapped, or where calls are faster. HDF5 is not
/// asked.
///
/// The file and the table belong to the caller and must outlive the copier. Boxes lie inside the drawer, and
/// the table has the offsets of all chunks. Errors are FileError; a failed write may have moved some cells.
class CellCopier {
public:
  CellCopier(file::TransactionalFile& file, ChunkTable& chunks, CellType cell)
      : m_file(file), m_chunks(chunks), m_cell(cell) {}

  std::int64_t ChunkBytes() const noexcept { return m_chunks.CellsPerChunk() * BytesOf(m_cell); }

  /// `bufferCounts` is the shape of the buffer.
  void Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer);
  void Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void const* buffer);
  /// Gives all cells of the new chunk at a file offset the value `fill`. Nothing is written when these are
  /// zeros and the chunk lies at or behind `freshFrom`, where the file reads as zero.
  void FillChunk(std::uint64_t offset, std::uint64_t freshFrom, double fill);

private:
  void WriteFill(std::uint64_t offset, double fill);
  bool NeedsCalls(std::size_t chunk, bool isWrite, TwoStridedBox const& cells) const;
  template<class Cell, bool isWrite, class Buffer>
  void MoveCells(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, Buffer* buffer);
  template<class Cell, bool isWrite, class Buffer>
  void MoveByCalls(BoxInChunk const& box, TwoStridedBox const& cells, std::uint64_t offset, Buffer* buffer);

  file::TransactionalFile& m_file;
  ChunkTable& m_chunks;
  CellType m_cell;
};

} // namespace orx::store
