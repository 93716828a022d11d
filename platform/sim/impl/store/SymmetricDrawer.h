#pragma once

#include "sim/impl/store/DenseDrawer.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace orx::store {

/// The cells of a symmetric matrix of doubles, of which the lower triangle of square blocks is stored, the
/// blocks on the diagonal whole:
///
///            columns                    the dataset has three dimensions:
///           +---+                           block   I * (I + 1) / 2 + J, with J <= I
///     rows  | 0 |                           column  inside the block
///           +---+---+                       row     inside the block
///           | 1 | 2 |
///           +---+---+---+               Growth appends blocks. Those of the last block row reach beyond the
///           | 3 | 4 | 5 |               order; what lies there is not part of the matrix.
///           +---+---+---+
///
/// To its callers it is a matrix, with the columns along dimension 0 and the rows along dimension 1. A cell
/// above the diagonal blocks is read from, and written to, its mirror image below; a write to a diagonal
/// block goes to both places. Callers see to it that values for mirror images agree.
class SymmetricDrawer : public DenseDrawer {
public:
  /// `chunk` is the length of the logical chunks; 0 for a drawer that is stored whole.
  static std::unique_ptr<SymmetricDrawer> Create(DatabaseFile& file, int order, int chunk, double fill);
  static std::unique_ptr<SymmetricDrawer> Open(DatabaseFile& file, std::string const& path);

  void RequireCells(std::span<int const> sizes) const override;
  void Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer) override;
  void Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void const* buffer) override;
  /// Extends both dimensions, whichever `dim` is.
  void Extend(std::span<int const> sizes, int dim, std::int64_t to, double fill) override;
  void CutTo(std::span<int const> sizes) override;

private:
  /// Consecutive rows or columns in one block row or block column.
  struct Piece {
    std::int64_t block;
    std::int64_t first;  ///< position of the first one in the block
    std::int64_t count;  ///< number of rows or columns
    std::int64_t buffer; ///< position of the first one in the buffer
  };

  explicit SymmetricDrawer(DatabaseFile& file) : DenseDrawer(file, CellType::Double, 3) {}

  std::vector<int> SizesOfBlocks(std::int64_t order) const;
  std::vector<Piece> Cut(std::int64_t first, std::int64_t count, std::int64_t buffer) const;
  template<class Visit>
  void ForEachPart(DrawerBox const& box, Visit visit) const;
  void WriteMirrored(Piece const& rows, Piece const& columns, std::int64_t bufferRows, double const* buffer);
  void FillRows(std::int64_t first, std::int64_t end, double fill);

  std::int64_t m_length = 1; ///< rows of a stored block
};

} // namespace orx::store
