#pragma once

#include <cstdint>
#include <limits>

// What a file can hold. Calls refuse what is beyond with invalidArgument, and the reader of files goes by the
// same numbers, so that what was committed can be opened.

namespace orx::sim {

/// Of collections, member sets and distributions: a context counts them with 32-bit integers. Temporary ones
/// are counted apart.
constexpr int largestNumber = std::numeric_limits<int>::max() - 1;
/// Of a collection, and labels of a member set.
constexpr int mostMembers = std::numeric_limits<int>::max();
/// In all lists of labels that a context saves.
constexpr std::int64_t mostSavedLabels = std::numeric_limits<int>::max();

/// Raises invalidArgument: "text, expected at most LIMIT."
[[noreturn]] void RefuseBeyond(std::int64_t limit, char const* text);

} // namespace orx::sim
