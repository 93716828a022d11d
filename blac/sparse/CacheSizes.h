#pragma once

#include <cstdint>

// Assumptions about the processor's caches. On a processor with other caches the products give the same
// results, possibly in more time.

namespace orx::blac {

constexpr std::int64_t cacheLineBytes = 64;
constexpr std::int64_t doublesInCacheLine = cacheLineBytes / std::int64_t{sizeof(double)};

/// Many server processors have this much for each core.
constexpr std::int64_t secondLevelCacheBytes = std::int64_t{1} << 20;

/// From this size on, most accesses to arbitrary elements of an array miss the second-level cache.
constexpr std::int64_t scatteredAccessBytes = 2 * secondLevelCacheBytes;

} // namespace orx::blac
