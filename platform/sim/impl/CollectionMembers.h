#pragma once

#include "sim/impl/Limits.h"
#include "sim/impl/ORXSimIndexSet.h"

#include <span>
#include <unordered_set>
#include <vector>

namespace orx::sim {

/// The members of a collection: the labels 0 ... leading-1, which take no memory, and added labels in
/// the order in which they were added.
class CollectionMembers {
public:
  explicit CollectionMembers(int leading = 0) : m_leading(leading) {}

  int Size() const noexcept { return m_leading + static_cast<int>(m_added.size()); }
  int LeadingCount() const noexcept { return m_leading; }
  std::span<int const> AddedLabels() const noexcept { return m_added; }
  bool Contains(int label) const { return (label >= 0 && label < m_leading) || m_isAdded.contains(label); }

  bool ContainsAll(ORXSimIndexSet const& labels) const;

  bool IsFull() const noexcept { return Size() == mostMembers; }
  /// Adds a label, at least 0; returns false when the collection has it already. REQUIRES: not IsFull().
  bool AddLabel(int label);
  /// Adds the labels LeadingCount() ... LeadingCount() + count - 1. Returns false, and adds none, when there
  /// are added labels, or when the count is negative or too large.
  bool AddLeading(int count);
  /// Goes back to former counts: removes the labels that were added since.
  void ShrinkTo(int leading, std::size_t added);
  ORXSimIndexSet AllLabels() const;

private:
  int m_leading;
  std::vector<int> m_added;
  std::unordered_set<int> m_isAdded;
};

} // namespace orx::sim
