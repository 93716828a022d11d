#pragma once

#include "sim/ORXSimCSet.h"

#include <cstddef>
#include <vector>

namespace orx {

/// Returns the labels of the members of a set, in the order of the set.
inline std::vector<int> ReadLabels(ORXSimCSet const& set) {
  std::vector<int> labels(static_cast<std::size_t>(set.Size()));
  set.OrderedMembers(labels.data());
  return labels;
}

} // namespace orx
