#pragma once

#include "sim/impl/store/CellCopier.h"
#include "sim/impl/store/ChunkTable.h"
#include "sim/impl/store/DrawerObject.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orx::store {

/// The cells of a dense drawer: a chunked HDF5 dataset. HDF5 decides where in the file each chunk lies
/// (ChunkTable), and CellCopier moves cells straight between the chunks and the caller's buffer. ChunkLengths
/// chooses how long the chunks of a new drawer are.
///
/// All chunks have their space reserved from the start. A full disk is therefore met when a drawer is created
/// or extended, and not while cells are written through the mapping.
///
/// A dataset of another program may be compressed, hold other number types, or have chunks without space: its
/// cells are read through HDF5, and it can neither be written nor extended.
class DenseDrawer : public DrawerObject {
public:
  /// Makes a new dataset whose cells are all `fill`, under a pending path until MoveTo. `chunks` are the
  /// lengths of the logical chunks; empty for a drawer that is stored whole.
  static std::unique_ptr<DenseDrawer> Create(DatabaseFile& file, CellType cell, std::span<int const> sizes,
                                             std::span<int const> chunks, double fill);
  /// Opens an existing dataset of `rank` dimensions. Its chunks are looked up when cells are first asked for.
  static std::unique_ptr<DenseDrawer> Open(DatabaseFile& file, std::string const& path, CellType cell,
                                           int rank);

  virtual ~DenseDrawer() = default;

  /// Raises DamageFound unless the dataset has the cells of a drawer of these sizes. It may have more: after
  /// an abandoned extension it is longer.
  virtual void RequireCells(std::span<int const> sizes) const;
  double Fill() const noexcept { return m_fill; }
  bool IsExtendable() const noexcept { return m_isExtendable; }
  int CellBytes() const noexcept { return BytesOf(m_cell); }

  // Cells; boxes lie inside the drawer

  /// `bufferCounts` is the shape of the buffer.
  virtual void Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer);
  virtual void Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void const* buffer);
  /// Raises writeFailed when no cell of this drawer can ever be written.
  void RequireWritable();
  /// Makes the drawer longer along one dimension, to `to` cells; the new cells are `fill`. `sizes` are the
  /// sizes of the drawer before.
  virtual void Extend(std::span<int const> sizes, int dim, std::int64_t to, double fill);

  // Saving; inside Guarded

  /// Cuts the dataset to the sizes of the drawer.
  virtual void CutTo(std::span<int const> sizes);
  /// Writes the attribute by which a later opening finds out whether the chunks' offsets were damaged.
  void SaveLayout();
  /// Closes the dataset unless its cells are read through HDF5. The next use opens it again.
  void ReleaseHandle() noexcept;

protected:
  DenseDrawer(DatabaseFile& file, CellType cell, int rank);

  /// What Create and Open do with a new object.
  void CreateDataset(std::span<int const> sizes, std::span<int const> chunks, double fill);
  void OpenDataset(std::string const& path);
  /// Extent of the dataset along a dimension. REQUIRES: its shape was read.
  std::int64_t Extent(int dim) const noexcept { return m_chunks.Extents()[static_cast<std::size_t>(dim)]; }
  std::string const& Path() const noexcept { return m_path; }

private:
  enum class Access : std::uint8_t { Unknown, Direct, ThroughHdf5 };

  /// HDF5's identifier of the dataset. Opens the dataset when it is closed.
  std::int64_t Dataset();
  void CreateFilled(double fill);
  void RequirePossibleSize() const;
  std::uint64_t ReserveChunks(std::int64_t count);
  void MakeDataset(double fill);
  void ReadShape();
  void ReadExtents(std::int64_t dataset);
  void RequireNumbers(std::int64_t dataset) const;
  void ReadProperties(std::int64_t dataset);
  void LookUpChunks();
  bool LookUpOffsets(std::int64_t dataset);
  bool LookUpChunkOffsets(std::int64_t dataset, bool areUnwritten);
  bool LookUpContiguous(std::int64_t dataset);
  std::uint64_t OffsetOfChunk(std::int64_t dataset, Indices const& firstCell) const;
  void CheckOffsets() const;
  void CheckSavedLayout() const;
  std::vector<std::uint64_t> SetExtents(std::vector<std::int64_t> const& wanted, bool areUnwritten);
  void ForgetLayout() noexcept;
  void ReadThroughHdf5(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer);
  void AddChunks(std::span<int const> sizes, int dim, std::int64_t to, double fill);
  void FillBox(DrawerBox const& box, double fill);

  CellType m_cell;
  int m_rank;
  ChunkTable m_chunks;
  CellCopier m_copier;
  double m_fill = 0.0;
  bool m_isExtendable = true;
  bool m_isLayoutSaved = false;
  Access m_access = Access::Unknown;
};

} // namespace orx::store
