#include "sim/impl/CollectionMembers.h"

#include <numeric>

namespace orx::sim {

bool CollectionMembers::ContainsAll(ORXSimIndexSet const& labels) const {
  auto const isLeading = [this](int label) { return label >= 0 && label < m_leading; };
  int const count = labels.Size();
  // The labels of a progression lie between its first and its last label.
  if (count > 0 && labels.IsStrided() && isLeading(labels[0]) && isLeading(labels[count - 1])) return true;
  for (int k = 0; k < count; ++k)
    if (!Contains(labels[k])) return false;
  return true;
}

bool CollectionMembers::AddLabel(int label) {
  if (Contains(label)) return false;
  if (label == m_leading && m_added.empty()) {
    ++m_leading;
    return true;
  }
  m_added.push_back(label);
  try {
    m_isAdded.insert(label);
  } catch (...) {
    m_added.pop_back();
    throw;
  }
  return true;
}

bool CollectionMembers::AddLeading(int count) {
  if (count < 0 || !m_added.empty() || count > mostMembers - m_leading) return false;
  m_leading += count;
  return true;
}

void CollectionMembers::ShrinkTo(int leading, std::size_t added) {
  m_leading = leading;
  while (m_added.size() > added) {
    m_isAdded.erase(m_added.back());
    m_added.pop_back();
  }
}

ORXSimIndexSet CollectionMembers::AllLabels() const {
  if (m_added.empty()) return ORXSimIndexSet::Strided(0, m_leading, 1);
  std::vector<int> labels(static_cast<std::size_t>(m_leading));
  std::iota(labels.begin(), labels.end(), 0);
  labels.insert(labels.end(), m_added.begin(), m_added.end());
  return ORXSimIndexSet::Listed(labels);
}

} // namespace orx::sim
