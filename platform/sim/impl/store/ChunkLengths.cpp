#include "sim/impl/store/ChunkLengths.h"

#include <algorithm>
#include <limits>

namespace orx::store {

namespace {

constexpr std::int64_t smallestChunk = 256 << 10; // bytes, in a drawer that is at least as large
constexpr std::int64_t mostChunks = 1024;
constexpr std::int64_t uncutChunk = 64 << 10; // bytes; a chunk up to this size may be longer than the drawer
constexpr std::int64_t largestWholeChunk = 64 << 20;
constexpr std::int64_t largestChunk = std::int64_t{2} << 30; // HDF5 refuses 4 GiB
constexpr std::int64_t largestNumber = std::numeric_limits<std::int64_t>::max();

/// Halves the slowest dimensions until a chunk has at most `limit` bytes.
void CutChunks(std::vector<std::int64_t>& lengths, std::int64_t cellBytes, std::int64_t limit) {
  for (std::int64_t& length : lengths)
    while (length > 1 && SaturatedBytes(lengths, cellBytes) > limit)
      length = CeilingDivision(length, 2);
}

/// Doubles the chunks along the fastest dimension that has several, when the chunks are too small or too
/// many. Returns false when nothing is left to be done.
bool JoinChunks(std::vector<std::int64_t>& lengths, std::span<int const> sizes, std::int64_t cellBytes) {
  std::vector<std::int64_t> counts;
  for (std::size_t dim = 0; dim < lengths.size(); ++dim)
    counts.push_back(std::max<std::int64_t>(1, CeilingDivision(sizes[dim], lengths[dim])));
  std::int64_t const count = SaturatedProduct(counts);
  std::int64_t const bytes = SaturatedBytes(lengths, cellBytes);
  if (bytes > largestChunk / 2 || (bytes >= smallestChunk && count <= mostChunks)) return false;
  for (std::size_t dim = lengths.size(); dim-- > 0;) {
    if (lengths[dim] >= sizes[dim]) continue;
    lengths[dim] = std::min<std::int64_t>(2 * lengths[dim], sizes[dim]);
    return true;
  }
  return false;
}

/// Shortens all chunks along the dimensions where the last ones would reach far beyond the drawer. Elsewhere
/// the chunks keep the length of the logical chunks, because a logical chunk is then one run in the file.
void BalanceChunks(std::vector<std::int64_t>& lengths, std::span<int const> sizes) {
  for (std::size_t dim = 0; dim < lengths.size(); ++dim) {
    std::int64_t const size = sizes[dim];
    if (lengths[dim] >= size) continue;
    std::int64_t const count = CeilingDivision(size, lengths[dim]);
    if (count * lengths[dim] - size > size / 8) lengths[dim] = CeilingDivision(size, count);
  }
}

} // namespace

std::int64_t SaturatedProduct(std::span<std::int64_t const> factors) {
  std::int64_t product = 1;
  bool isTooMuch = false;
  bool isZero = false;
  for (std::int64_t const factor : factors) {
    isZero |= factor == 0;
    isTooMuch |= __builtin_mul_overflow(product, factor, &product);
  }
  return isZero ? 0 : isTooMuch ? largestNumber : product;
}

std::int64_t SaturatedBytes(std::span<std::int64_t const> lengths, std::int64_t cellBytes) {
  std::int64_t const cells = SaturatedProduct(lengths);
  return cells > largestNumber / cellBytes ? largestNumber : cells * cellBytes;
}

std::vector<std::int64_t> ChunkLengths(std::span<int const> sizes, std::span<int const> logicalChunks,
                                       int cellBytes) {
  bool const isWhole = logicalChunks.empty();
  std::vector<std::int64_t> lengths(sizes.size());
  for (std::size_t dim = 0; dim < sizes.size(); ++dim)
    lengths[dim] = std::max(isWhole ? sizes[dim] : logicalChunks[dim], 1);
  if (SaturatedBytes(lengths, cellBytes) > uncutChunk)
    for (std::size_t dim = 0; dim < sizes.size(); ++dim)
      if (sizes[dim] > 0) lengths[dim] = std::min<std::int64_t>(lengths[dim], sizes[dim]);
  CutChunks(lengths, cellBytes, isWhole ? largestWholeChunk : largestChunk);
  while (JoinChunks(lengths, sizes, cellBytes)) {
  }
  BalanceChunks(lengths, sizes);
  return lengths;
}

} // namespace orx::store
