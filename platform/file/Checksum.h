#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::file {

/// A 64-bit checksum against accidents, not against attackers. Part of the file format. `seed` is 1, or the
/// checksum of what comes before.
std::uint64_t Checksum(void const* data, std::size_t bytes, std::uint64_t seed) noexcept;

} // namespace orx::file
