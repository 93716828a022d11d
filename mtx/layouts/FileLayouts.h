#pragma once

#include <algorithm>
#include <cstdint>

// How the binary exchange files are laid out, for their readers and writers in the library and in the
// command-line program. docs/formats/ describes them. All numbers are in the machine's byte order.

namespace orx {

/// Header of block and chunked files. Behind it come order + 1 row pointers and the diagonal.
struct BlockHeader {
  std::int32_t order;
  std::int32_t entries; ///< off the diagonal
  std::int32_t blocks;  ///< blocks of column indices, or chunks
  std::int32_t variant; ///< of block files: 0 symmetric, else unsymmetric
  std::int32_t exponent;
  std::int32_t unused; ///< of chunked files 1

  std::int64_t BlockLength() const noexcept { return std::int64_t{1} << exponent; }
  /// File offset of the first column index.
  std::int64_t ColumnsOffset() const noexcept {
    return static_cast<std::int64_t>(sizeof(BlockHeader)) + 4 * (std::int64_t{order} + 1) +
           8 * std::int64_t{order};
  }
};
static_assert(sizeof(BlockHeader) == 24);

/// The largest exponent of the block length of a block file.
constexpr int largestBlockExponent = 30;

/// Number of blocks that hold `entries` entries, at least one.
constexpr std::int64_t BlocksFor(std::int64_t entries, std::int64_t blockLength) {
  return std::max<std::int64_t>(1, (entries + blockLength - 1) / blockLength);
}

/// Chunks of a chunked file have 2^chunkExponent column indices and as many values.
constexpr int chunkExponent = 17;
constexpr std::int64_t chunkLength = std::int64_t{1} << chunkExponent;

/// Header of a dense file: the dimensions, twice.
struct DenseHeader {
  std::int32_t rows;
  std::int32_t columns;
  std::int32_t rowsAgain;
  std::int32_t columnsAgain;
};
static_assert(sizeof(DenseHeader) == 16);

/// Bytes of a record of a Fortran file between its two lengths: of the order, and of a row with `pairs`
/// entries.
constexpr std::int64_t fortranOrderBytes = 4;
constexpr std::int64_t FortranRowBytes(std::int64_t pairs) { return 4 + 12 * pairs; }
/// Bytes of the length before and behind a record.
constexpr std::int64_t fortranMarkerBytes = 4;

} // namespace orx
