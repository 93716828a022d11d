#pragma once

#include <cstdint>
#include <limits>

// Limits of a file. A call that would exceed a limit raises invalidArgument. The reader checks files against
// the same limits: every committed file can be opened.

namespace orx::sim {

/// Largest number of a collection, member set or distribution: a context counts each kind with a 32-bit
/// integer, and temporary objects apart.
constexpr int largestNumber = std::numeric_limits<int>::max() - 1;
/// Most members of a collection, and most labels of a member set.
constexpr int mostMembers = std::numeric_limits<int>::max();
/// Most labels in all lists that a context saves.
constexpr std::int64_t mostSavedLabels = std::numeric_limits<int>::max();

/// Raises invalidArgument with the text "TEXT, expected at most LIMIT."
[[noreturn]] void RefuseAboveLimit(std::int64_t limit, char const* text);

} // namespace orx::sim
