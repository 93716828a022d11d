#pragma once

#include "sim/ORXSimCSet.h"
#include "sim/ORXSimCollection.h"

#include <cstddef>
#include <vector>

namespace orx {

/// Returns the labels of the members of a set, in the order of the set.
inline std::vector<int> ReadLabels(ORXSimCSet const& set) {
  std::vector<int> labels(static_cast<std::size_t>(set.Size()));
  set.OrderedMembers(labels.data());
  return labels;
}

/// The set of `count` members of a collection with these labels; null: of all its members.
inline ORXSimCSetID MembersOf(ORXSimCollectionID const& collection, int count, int const* labels) {
  ORXSimCollection const members(collection);
  return labels != nullptr ? members.CreateOrderedCSet(labels, count) : members.BiggestCSetID();
}

} // namespace orx
