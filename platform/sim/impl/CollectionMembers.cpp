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

bool CollectionMembers::Add(int label) {
  if (Contains(label)) return false;
  if (label == m_leading && m_further.empty()) {
    ++m_leading;
    return true;
  }
  m_further.push_back(label);
  try {
    m_isFurther.insert(label);
  } catch (...) {
    m_further.pop_back();
    throw;
  }
  return true;
}

bool CollectionMembers::AddLeading(int count) {
  if (count < 0 || !m_further.empty() || count > mostMembers - m_leading) return false;
  m_leading += count;
  return true;
}

void CollectionMembers::ShrinkTo(int leading, std::size_t further) {
  m_leading = leading;
  while (m_further.size() > further) {
    m_isFurther.erase(m_further.back());
    m_further.pop_back();
  }
}

ORXSimIndexSet CollectionMembers::All() const {
  if (m_further.empty()) return ORXSimIndexSet::Strided(0, m_leading, 1);
  std::vector<int> labels(static_cast<std::size_t>(m_leading));
  std::iota(labels.begin(), labels.end(), 0);
  labels.insert(labels.end(), m_further.begin(), m_further.end());
  return ORXSimIndexSet::Listed(labels);
}

} // namespace orx::sim
