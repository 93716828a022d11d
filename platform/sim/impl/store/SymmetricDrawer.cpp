#include "sim/impl/store/SymmetricDrawer.h"

#include "sim/impl/RaiseError.h"
#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <array>
#include <limits>

namespace orx::store {

namespace {

std::int64_t CountBlocks(std::int64_t order, std::int64_t length) {
  std::int64_t const along = CeilingDivision(order, length);
  return along * (along + 1) / 2;
}

/// The length of the stored blocks of a new drawer: that of the logical chunks, unless the last blocks would
/// reach beyond the order by more than an eighth of it; then blocks of equal lengths. Blocks that are not
/// large stay as they are: the drawer may grow.
std::int64_t StoredLength(std::int64_t order, std::int64_t chunk) {
  constexpr std::int64_t lengthOfWhole = 1024;
  constexpr std::int64_t leastCutLength = 128;
  std::int64_t const wanted = chunk > 0 ? chunk : lengthOfWhole;
  std::int64_t const count = std::max<std::int64_t>(1, CeilingDivision(order, wanted));
  if (count * wanted - order <= order / 8) return wanted;
  return std::max(CeilingDivision(order, count), std::min(wanted, leastCutLength));
}

} // namespace

// Creating and opening

std::unique_ptr<SymmetricDrawer> SymmetricDrawer::Create(DatabaseFile& file, int order, int chunk,
                                                         double fill) {
  std::unique_ptr<SymmetricDrawer> drawer(new SymmetricDrawer(file));
  drawer->m_length = StoredLength(order, chunk);
  std::vector<int> const sizes = drawer->SizesOfBlocks(order);
  int const oneBlock[] = {1, sizes[1], sizes[2]};
  drawer->CreateDataset(sizes, oneBlock, fill);
  return drawer;
}

std::unique_ptr<SymmetricDrawer> SymmetricDrawer::Open(DatabaseFile& file, std::string const& path) {
  std::unique_ptr<SymmetricDrawer> drawer(new SymmetricDrawer(file));
  drawer->OpenDataset(path);
  drawer->m_length = drawer->Extent(2);
  return drawer;
}

/// Shape of the dataset for an order.
std::vector<int> SymmetricDrawer::SizesOfBlocks(std::int64_t order) const {
  std::int64_t const blocks = CountBlocks(order, m_length);
  if (blocks > std::numeric_limits<int>::max())
    sim::RaiseError(ORXSimException::invalidArgument,
                    "A symmetric matrix of order " + std::to_string(order) + " in blocks of " +
                        std::to_string(m_length) + " has " + std::to_string(blocks) +
                        " blocks, expected at most 2147483647: longer chunks are needed.");
  return {static_cast<int>(blocks), static_cast<int>(m_length), static_cast<int>(m_length)};
}

void SymmetricDrawer::RequireCells(std::span<int const> sizes) const {
  if (Extent(1) != Extent(2) || Extent(1) < 1)
    throw DamageFound{Path() + " has blocks of " + std::to_string(Extent(2)) + " x " +
                      std::to_string(Extent(1)) + " cells, expected square ones"};
  if (Extent(0) < CountBlocks(sizes[0], m_length))
    throw DamageFound{Path() + " has " + std::to_string(Extent(0)) + " blocks, its member set needs " +
                      std::to_string(CountBlocks(sizes[0], m_length))};
}

// Parts of a rectangle

std::vector<SymmetricDrawer::Piece> SymmetricDrawer::Cut(std::int64_t first, std::int64_t count,
                                                         std::int64_t buffer) const {
  std::vector<Piece> pieces;
  for (std::int64_t at = first, end = first + count; at < end; at += pieces.back().count)
    pieces.push_back({.block = at / m_length,
                      .first = at % m_length,
                      .count = std::min(m_length - at % m_length, end - at),
                      .buffer = buffer + at - first});
  return pieces;
}

/// Calls visit(rows, columns) for the part of the box in each block of the matrix.
template<class Visit>
void SymmetricDrawer::ForEachPart(DrawerBox const& box, Visit visit) const {
  std::vector<Piece> const rows = Cut(box.first[1], box.counts[1], box.bufferFirst[1]);
  for (Piece const& columnPiece : Cut(box.first[0], box.counts[0], box.bufferFirst[0]))
    for (Piece const& rowPiece : rows)
      visit(rowPiece, columnPiece);
}

namespace {

/// The cells of stored block (rows.block, columns.block), which lies on or below the diagonal.
template<class Piece>
DrawerBox BoxInBlock(Piece const& rows, Piece const& columns) {
  DrawerBox box;
  box.first[0] = rows.block * (rows.block + 1) / 2 + columns.block;
  box.first[1] = columns.first;
  box.first[2] = rows.first;
  box.counts[0] = 1;
  box.counts[1] = columns.count;
  box.counts[2] = rows.count;
  box.bufferFirst[0] = 0;
  box.bufferFirst[1] = columns.buffer;
  box.bufferFirst[2] = rows.buffer;
  return box;
}

/// Cells on their way between a part of a buffer and its mirror image in the file. They go tile by tile: the
/// lines of a tile stay in the first-level cache, whereas those of a whole block evict each other.
constexpr std::int64_t tileLength = 64;
using Tile = std::array<double, tileLength * tileLength>;

/// Calls visit(rows, columns) for the tiles of a part.
template<class Piece, class Visit>
void ForEachTile(Piece const& rows, Piece const& columns, Visit visit) {
  auto const tileOf = [](Piece const& piece, std::int64_t at) {
    return Piece{.block = piece.block,
                 .first = piece.first + at,
                 .count = std::min(tileLength, piece.count - at),
                 .buffer = piece.buffer + at};
  };
  for (std::int64_t c = 0; c < columns.count; c += tileLength)
    for (std::int64_t r = 0; r < rows.count; r += tileLength)
      visit(tileOf(rows, r), tileOf(columns, c));
}

/// The box of the mirror image of a tile: its rows are the tile's columns.
template<class Piece>
DrawerBox MirrorBox(Piece const& rows, Piece const& columns) {
  DrawerBox box = BoxInBlock(columns, rows);
  box.bufferFirst.fill(0);
  return box;
}

} // namespace

// Cells

void SymmetricDrawer::Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer) {
  std::int64_t const bufferRows = bufferCounts[1];
  std::int64_t const shape[] = {1, bufferCounts[0], bufferRows};
  auto* const values = static_cast<double*>(buffer);
  Tile tile;
  ForEachPart(box, [&](Piece const& rows, Piece const& columns) {
    if (rows.block >= columns.block) return DenseDrawer::Read(BoxInBlock(rows, columns), shape, buffer);
    ForEachTile(rows, columns, [&](Piece const& r, Piece const& c) {
      std::int64_t const tileShape[] = {1, r.count, c.count};
      DenseDrawer::Read(MirrorBox(r, c), tileShape, tile.data());
      for (std::int64_t j = 0; j < c.count; ++j)
        for (std::int64_t i = 0; i < r.count; ++i)
          values[(c.buffer + j) * bufferRows + r.buffer + i] =
              tile[static_cast<std::size_t>(i * c.count + j)];
    });
  });
}

/// Writes a part of the buffer to its mirror image.
void SymmetricDrawer::WriteMirrored(Piece const& rows, Piece const& columns, std::int64_t bufferRows,
                                    double const* buffer) {
  Tile tile;
  ForEachTile(rows, columns, [&](Piece const& r, Piece const& c) {
    for (std::int64_t i = 0; i < r.count; ++i)
      for (std::int64_t j = 0; j < c.count; ++j)
        tile[static_cast<std::size_t>(i * c.count + j)] = buffer[(c.buffer + j) * bufferRows + r.buffer + i];
    std::int64_t const tileShape[] = {1, r.count, c.count};
    DenseDrawer::Write(MirrorBox(r, c), tileShape, tile.data());
  });
}

void SymmetricDrawer::Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts,
                            void const* buffer) {
  std::int64_t const shape[] = {1, bufferCounts[0], bufferCounts[1]};
  auto const isInside = [&](Piece const& piece, int dim) {
    std::int64_t const first = piece.block * m_length + piece.first;
    return first >= box.first[dim] && first + piece.count <= box.first[dim] + box.counts[dim];
  };
  ForEachPart(box, [&](Piece const& rows, Piece const& columns) {
    if (rows.block >= columns.block) DenseDrawer::Write(BoxInBlock(rows, columns), shape, buffer);
    // A part whose mirror image is in the box too is written with that.
    bool const isAlone = !isInside(rows, 0) || !isInside(columns, 1);
    if (rows.block <= columns.block && isAlone)
      WriteMirrored(rows, columns, bufferCounts[1], static_cast<double const*>(buffer));
  });
}

// Extension

void SymmetricDrawer::Extend(std::span<int const> sizes, int /*dim*/, std::int64_t to, double fill) {
  std::int64_t const order = sizes[0];
  std::vector<int> const wanted = SizesOfBlocks(to);
  DenseDrawer::Extend(SizesOfBlocks(order), 0, wanted[0], fill);
  FillRows(order, std::min(to, CeilingDivision(order, m_length) * m_length), fill);
}

/// Gives rows of the last block row, and the columns that are their mirror images, the value `fill`.
void SymmetricDrawer::FillRows(std::int64_t first, std::int64_t end, double fill) {
  std::vector<double> const filled(static_cast<std::size_t>(end - first), fill);
  std::int64_t const shape[] = {1, end - first};
  DrawerBox column;
  column.bufferFirst.fill(0);
  column.first[1] = first;
  column.counts[0] = 1;
  column.counts[1] = end - first;
  for (column.first[0] = 0; column.first[0] < end && first < end; ++column.first[0])
    Write(column, shape, filled.data());
}

void SymmetricDrawer::CutTo(std::span<int const> sizes) { DenseDrawer::CutTo(SizesOfBlocks(sizes[0])); }

} // namespace orx::store
