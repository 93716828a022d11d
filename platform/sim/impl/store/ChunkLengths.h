#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace orx::store {

inline std::int64_t CeilingDivision(std::int64_t a, std::int64_t b) { return (a + b - 1) / b; }

/// The product of numbers that are not negative, or the largest 64-bit number when it needs more than 63
/// bits.
std::int64_t SaturatedProduct(std::span<std::int64_t const> factors);

/// Bytes of a box of cells, or the largest 64-bit number.
std::int64_t SaturatedBytes(std::span<std::int64_t const> lengths, std::int64_t cellBytes);

/// The lengths of the HDF5 chunks of a new dense drawer, in cells along each dimension. `logicalChunks` are
/// the chunk lengths that the caller asked for; empty when the drawer is stored whole.
///
/// A chunk is a logical chunk, with these exceptions:
/// - Its lengths end at the drawer's size, unless the chunk is small.
/// - Each chunk costs HDF5 metadata. Small logical chunks are therefore joined until a chunk has 256 KiB and
///   the drawer has at most 1024 chunks.
/// - All chunks have the same lengths. When the last ones would reach beyond the size by more than an eighth
///   of it, all chunks become shorter.
/// - A drawer that is stored whole is cut into chunks of at most 64 MiB, so that extending the drawer does
///   not double its space.
std::vector<std::int64_t> ChunkLengths(std::span<int const> sizes, std::span<int const> logicalChunks,
                                       int cellBytes);

} // namespace orx::store
