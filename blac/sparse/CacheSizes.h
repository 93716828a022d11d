#pragma once

#include <cstdint>

// What the products assume of the processor's caches. On a processor with other caches the results are the
// same, and only come later.

namespace orx::blac {

constexpr std::int64_t cacheLineBytes = 64;
constexpr std::int64_t doublesInCacheLine = cacheLineBytes / std::int64_t{sizeof(double)};

/// What many server processors have for each core.
constexpr std::int64_t secondLevelCacheBytes = std::int64_t{1} << 20;

/// From this size on, accesses to arbitrary elements of an array miss the caches that are fast enough for
/// them: twice the second level, because a part of the array is always there.
constexpr std::int64_t scatteredAccessBytes = 2 * secondLevelCacheBytes;

} // namespace orx::blac
