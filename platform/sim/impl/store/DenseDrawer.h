#pragma once

#include "sim/impl/store/BoxCopy.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orx::store {

class DatabaseFile;

enum class CellType : std::uint8_t { Int32, Double };

/// Cells that are moved: from `first` on in the drawer, `bufferFirst` on in a packed buffer of the shape
/// `bufferCounts`, `counts` of them along each dimension. The last dimension varies fastest everywhere.
struct DrawerBox {
  Indices first;
  Indices counts;
  Indices bufferFirst;
};

/// The cells of a dense drawer: an HDF5 dataset that is chunked into pieces whose bytes lie in the file where
/// HDF5 says, in one run each. Cells go straight between these runs and the caller's buffer; HDF5 never sees
/// them. A piece is a logical chunk of the drawer, with these exceptions: lengths end at the drawer's size;
/// small chunks are grouped until a piece has 256 KiB and there are at most 1024 of them, because each piece
/// costs HDF5 metadata; pieces that would reach beyond the size by more than an eighth of it are shortened; a
/// drawer stored whole is cut into pieces of at most 64 MiB, so that extending it does not double it.
///
///       piece (p0, p1, ...) holds the cells from p[d] * length[d] on; inside, the last dimension is
///       contiguous
///
/// A dataset of another program may not be so (compressed, other number types, pieces without space): its
/// cells are read through HDF5, and it can neither be written nor extended.
///
/// All pieces have their space reserved from the start, so that a full disk is met when a drawer is created
/// or extended, and not while cells are written through the mapping.
class DenseDrawer {
public:
  /// A new dataset that waits for its place, all cells `fill`. `chunks` are the logical lengths; empty:
  /// stored whole.
  static std::unique_ptr<DenseDrawer> Create(DatabaseFile& file, CellType cell, std::span<int const> sizes,
                                             std::span<int const> chunks, double fill);
  /// An existing dataset of `rank` dimensions. Its pieces are looked up when cells are first asked for.
  static std::unique_ptr<DenseDrawer> Open(DatabaseFile& file, std::string const& path, CellType cell,
                                           int rank);

  DenseDrawer(DenseDrawer const&) = delete;
  DenseDrawer& operator=(DenseDrawer const&) = delete;
  /// Space of a dataset that still waits is given back.
  ~DenseDrawer();

  int Rank() const noexcept { return m_rank; }
  /// Extent of the dataset, at least the size of the drawer: after an abandoned extension it is longer.
  std::int64_t Extent(int dim) const noexcept { return m_extents[static_cast<std::size_t>(dim)]; }
  double Fill() const noexcept { return m_fill; }
  bool IsExtendable() const noexcept { return m_isExtendable; }
  int CellBytes() const noexcept { return m_cell == CellType::Double ? 8 : 4; }

  // Cells; boxes lie inside the drawer

  void Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer);
  void Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void const* buffer);
  /// Raises writeFailed when cells cannot be written for good.
  void RequireWritable();
  /// Longer along one dimension, from `from` to `to` cells; the new ones are `fill`. `sizes` are the
  /// drawer's.
  void Extend(std::span<int const> sizes, int dim, std::int64_t to, double fill);

  // Saving; inside Guarded

  /// The dataset's hid_t, opened when it is not.
  std::int64_t Dataset();
  /// Cuts the dataset to the drawer's sizes.
  void CutTo(std::span<int const> sizes);
  /// Writes the attribute that lets Open find out whether the places of the pieces were damaged.
  void SaveLayout();
  /// Gives the dataset its place.
  void PutAt(std::string const& path);
  /// Takes PutAt back.
  void TakeBack();
  /// The dataset needs not be held open for now.
  void ReleaseHandle() noexcept;

private:
  struct Hdf5;
  enum class Access : std::uint8_t { Unknown, Direct, ThroughHdf5 };

  DenseDrawer(DatabaseFile& file, CellType cell, int rank);

  void CreateDataset(double fill);
  void ReadShape();
  void LookUpPieces();
  bool LookUpChunks(std::int64_t dataset);
  bool LookUpContiguous(std::int64_t dataset);
  std::uint64_t PlaceOfPiece(std::int64_t dataset, Indices const& corner) const;
  DrawerBox AllCells() const;
  void CheckPlaces() const;
  void CheckSavedLayout(std::int64_t dataset) const;
  std::uint64_t LayoutChecksum() const;
  std::vector<std::uint64_t> SetExtents(std::vector<std::int64_t> const& wanted, double fill);
  void ForgetLayout() noexcept;
  std::vector<std::uint64_t> PlacesOfNewPieces(std::span<std::int64_t const> formerExtents, double fill);
  std::int64_t PieceCount(int dim) const;
  std::int64_t PieceCount() const;
  std::int64_t PieceBytes() const;
  void FillPiece(std::uint64_t place, std::uint64_t freshFrom, double fill);
  void WriteFill(std::uint64_t place, std::int64_t cells, double fill);
  void FillBox(DrawerBox const& box, double fill);
  void ReadThroughHdf5(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer);
  bool GoesByCalls(std::size_t piece, bool isWrite, TwoStridedBox const& cells) const;
  template<class Visit>
  void ForEachPiece(DrawerBox const& box, Visit&& visit) const;
  template<class Cell, bool isWrite>
  void Move(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, Cell* buffer);

  DatabaseFile& m_file;
  CellType m_cell;
  int m_rank;
  std::vector<std::int64_t> m_extents;
  std::vector<std::int64_t> m_pieceLengths;
  std::vector<std::uint64_t> m_places; ///< file offset of each piece, the last dimension varying fastest
  std::vector<bool> m_isNew;           ///< of each piece: zeros that were never written, at least not whole
  double m_fill = 0.0;
  bool m_isExtendable = true;
  bool m_isLayoutSaved = false;
  Access m_access = Access::Unknown;
  std::string m_path;    ///< where it is now
  std::string m_pending; ///< path before it got its place; "" for one that was there
  std::unique_ptr<Hdf5> m_hdf5;
};

/// The piece lengths of a new drawer, see DenseDrawer.
std::vector<std::int64_t> PieceLengths(std::span<int const> sizes, std::span<int const> chunks,
                                       int cellBytes);

} // namespace orx::store
