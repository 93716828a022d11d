#include "mtx/impl/matrix/Transposition.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace orx {

namespace {

/// A block is as wide as a cache line: each line of source and target is used up at once. A larger block
/// gains nothing, because first-level caches hold eight lines of one set.
constexpr std::int64_t blockSide = 8;
/// Blocks are visited in squares of this side. Without large pages each column lies on a page of its own, and
/// the processor remembers the addresses of 32 pages of source and target each.
constexpr std::int64_t tileSide = 32;

using Pair [[gnu::vector_size(16)]] = double;
using PairMask [[gnu::vector_size(16)]] = long long;

Pair PairAt(double const* values) {
  Pair pair;
  std::memcpy(&pair, values, sizeof pair);
  return pair;
}
Pair Firsts(Pair a, Pair b) { return __builtin_shufflevector(a, b, 0, 2); }
Pair Seconds(Pair a, Pair b) { return __builtin_shufflevector(a, b, 1, 3); }

void PutPair(double* values, Pair pair) { std::memcpy(values, &pair, sizeof pair); }

/// target(j, i) = source(i, j) for i and j below 4.
[[gnu::always_inline]] inline void TransposeFour(double const* source, std::int64_t sourceDimension,
                                                 double* target, std::int64_t targetDimension) {
  for (std::int64_t i = 0; i < 4; i += 2, target += 2 * targetDimension) {
    Pair const a = PairAt(source + i);
    Pair const b = PairAt(source + sourceDimension + i);
    Pair const c = PairAt(source + 2 * sourceDimension + i);
    Pair const d = PairAt(source + 3 * sourceDimension + i);
    PutPair(target, Firsts(a, b));
    PutPair(target + 2, Firsts(c, d));
    PutPair(target + targetDimension, Seconds(a, b));
    PutPair(target + targetDimension + 2, Seconds(c, d));
  }
}

void TransposeBlock(double const* source, std::int64_t sourceDimension, double* target,
                    std::int64_t targetDimension) {
  for (std::int64_t j = 0; j < blockSide; j += 4)
    for (std::int64_t i = 0; i < blockSide; i += 4)
      TransposeFour(source + j * sourceDimension + i, sourceDimension, target + i * targetDimension + j,
                    targetDimension);
}

/// True when a block of a is the transpose of a block of b.
bool AreMirrored(double const* a, std::int64_t aDimension, double const* b, std::int64_t bDimension) {
  alignas(64) double mirror[blockSide * blockSide];
  TransposeBlock(b, bDimension, mirror, blockSide);
  PairMask equal{-1, -1};
  for (std::int64_t j = 0; j < blockSide; ++j)
    for (std::int64_t i = 0; i < blockSide; i += 2)
      equal &= PairAt(a + j * aDimension + i) == PairAt(mirror + j * blockSide + i);
  return (equal[0] & equal[1]) != 0;
}

/// `step` indices from `firstIndex`, as far as they are below `bound`: first ... end - 1.
struct Span {
  Span(std::int64_t firstIndex, std::int64_t step, std::int64_t bound)
      : first(firstIndex), end(std::min(firstIndex + step, bound)) {}
  bool IsWhole(std::int64_t step) const { return end - first == step; }
  std::int64_t first, end;
};

/// Calls visit(i, j) with the spans of blocks that cover rows x columns, tile by tile, until a call returns
/// false. Returns false then.
template<class Visit>
bool VisitBlocks(std::int64_t rows, std::int64_t columns, Visit visit) {
  for (std::int64_t jTile = 0; jTile < columns; jTile += tileSide)
    for (std::int64_t iTile = 0; iTile < rows; iTile += tileSide)
      for (std::int64_t j = jTile; j < std::min(jTile + tileSide, columns); j += blockSide)
        for (std::int64_t i = iTile; i < std::min(iTile + tileSide, rows); i += blockSide)
          if (!visit(Span(i, blockSide, rows), Span(j, blockSide, columns))) return false;
  return true;
}

/// Visits the elements (i, j), i > j, of an n x n matrix together with their mirror images until a visit
/// returns false. Calls visitBlock(lower, upper) with the first elements of whole blocks, and
/// visitPair(lower, upper) for each other pair.
template<class Value, class BlockVisit, class PairVisit>
bool VisitMirrored(Value* values, std::int64_t n, BlockVisit visitBlock, PairVisit visitPair) {
  auto const at = [=](std::int64_t i, std::int64_t j) { return values + j * n + i; };
  auto const visitPairs = [=](Span rows, Span columns) {
    for (std::int64_t j = columns.first; j < columns.end; ++j)
      for (std::int64_t i = std::max(rows.first, j + 1); i < rows.end; ++i)
        if (!visitPair(*at(i, j), *at(j, i))) return false;
    return true;
  };
  // Blocks gain nothing for a matrix of few cache lines.
  if (n <= 2 * blockSide) return visitPairs(Span(0, n, n), Span(0, n, n));
  return VisitBlocks(n, n, [=](Span rows, Span columns) {
    if (rows.first < columns.first) return true;
    if (rows.first > columns.first && rows.IsWhole(blockSide))
      return visitBlock(at(rows.first, columns.first), at(columns.first, rows.first));
    return visitPairs(rows, columns);
  });
}

/// Copies map(element) for each element of a triangle to its mirror image. Reads rows and writes columns, in
/// tiles: the writes are consecutive, and many reads that miss the cache can be under way at a time.
template<class Map>
void Mirror(Triangle source, double* values, std::int64_t leadingDimension, std::int64_t n, Map map) {
  bool const toLower = source == Triangle::Upper;
  for (std::int64_t jTile = 0; jTile < n; jTile += tileSide)
    for (std::int64_t iTile = toLower ? jTile : 0; iTile < (toLower ? n : jTile + 1); iTile += tileSide)
      for (std::int64_t j = jTile; j < std::min(jTile + tileSide, n); ++j) {
        std::int64_t const first = toLower ? std::max(iTile, j + 1) : iTile;
        std::int64_t const end = std::min(iTile + tileSide, toLower ? n : j);
        for (std::int64_t i = first; i < end; ++i)
          values[j * leadingDimension + i] = map(values[i * leadingDimension + j]);
      }
}

} // namespace

void TransposeSquare(double* values, std::int64_t n) {
  auto const swapBlocks = [n](double* lower, double* upper) {
    alignas(64) double mirror[blockSide * blockSide];
    TransposeBlock(upper, n, mirror, blockSide);
    TransposeBlock(lower, n, upper, n);
    for (std::int64_t j = 0; j < blockSide; ++j)
      std::copy_n(mirror + j * blockSide, blockSide, lower + j * n);
    return true;
  };
  auto const swapPair = [](double& lower, double& upper) {
    std::swap(lower, upper);
    return true;
  };
  VisitMirrored(values, n, swapBlocks, swapPair);
}

void MirrorTriangle(Triangle source, double* values, std::int64_t leadingDimension, std::int64_t n) {
  Mirror(source, values, leadingDimension, n, [](double x) { return x; });
}

void MirrorTriangleNegated(Triangle source, double* values, std::int64_t leadingDimension, std::int64_t n) {
  Mirror(source, values, leadingDimension, n, [](double x) { return -x; });
}

bool EqualsItsTranspose(double const* values, std::int64_t n) {
  return VisitMirrored(
      values, n, [n](double const* lower, double const* upper) { return AreMirrored(lower, n, upper, n); },
      [](double lower, double upper) { return lower == upper; });
}

bool IsTransposeOf(double const* a, std::int64_t rows, std::int64_t columns, double const* b) {
  return VisitBlocks(rows, columns, [=](Span i, Span j) {
    if (i.IsWhole(blockSide) && j.IsWhole(blockSide))
      return AreMirrored(a + j.first * rows + i.first, rows, b + i.first * columns + j.first, columns);
    bool equal = true;
    for (std::int64_t column = j.first; column < j.end; ++column)
      for (std::int64_t row = i.first; row < i.end; ++row)
        equal &= a[column * rows + row] == b[row * columns + column];
    return equal;
  });
}

} // namespace orx
