#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::file {

/// A 64-bit checksum that finds accidental changes; it does not resist attackers. It is part of the file
/// format. `seed` is 1, or the checksum of the bytes before these.
std::uint64_t Checksum(void const* data, std::size_t bytes, std::uint64_t seed) noexcept;

} // namespace orx::file
