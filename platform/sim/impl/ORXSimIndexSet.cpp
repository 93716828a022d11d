#include "sim/impl/ORXSimIndexSet.h"

#include <algorithm>

namespace {

bool IsProgression(std::span<int const> labels) {
  if (labels.size() < 3) return true;
  std::int64_t const stride = std::int64_t{labels[1]} - labels[0];
  for (std::size_t k = 2; k < labels.size(); ++k)
    if (std::int64_t{labels[k]} - labels[k - 1] != stride) return false;
  return true;
}

} // namespace

ORXSimIndexSet ORXSimIndexSet::Strided(int start, int count, int stride) {
  ORXSimIndexSet set;
  set.m_count = count;
  set.m_start = count > 0 ? start : 0;
  set.m_stride = count > 1 ? stride : 1;
  return set;
}

ORXSimIndexSet ORXSimIndexSet::Listed(std::span<int const> labels) {
  int const count = static_cast<int>(labels.size());
  if (count == 0) return Strided(0, 0, 1);
  if (IsProgression(labels)) return Strided(labels[0], count, count > 1 ? labels[1] - labels[0] : 1);
  ORXSimIndexSet set;
  set.m_count = count;
  set.m_labels.assign(labels.begin(), labels.end());
  return set;
}

void ORXSimIndexSet::CopyTo(int* out) const noexcept {
  if (!IsStrided()) {
    std::copy(m_labels.begin(), m_labels.end(), out);
    return;
  }
  for (int k = 0; k < m_count; ++k)
    out[k] = m_start + k * m_stride;
}

int ORXSimIndexSet::PositionOf(int label) const {
  if (IsStrided()) {
    if (m_stride == 0) return label == m_start ? m_count - 1 : -1;
    std::int64_t const distance = std::int64_t{label} - m_start;
    std::int64_t const position = distance / m_stride;
    bool const isHere = distance % m_stride == 0 && position >= 0 && position < m_count;
    return isHere ? static_cast<int>(position) : -1;
  }
  if (m_positions.empty()) {
    m_positions.reserve(m_labels.size());
    for (int k = 0; k < m_count; ++k)
      m_positions[m_labels[static_cast<std::size_t>(k)]] = k;
  }
  auto const found = m_positions.find(label);
  return found != m_positions.end() ? found->second : -1;
}

std::size_t ORXSimIndexSet::Hash() const noexcept {
  std::size_t hash = 0;
  auto const mix = [&hash](int word) {
    hash = (hash ^ static_cast<std::uint32_t>(word)) * 0x9E3779B97F4A7C15ull;
    hash ^= hash >> 29;
  };
  mix(m_count);
  mix(m_start);
  mix(m_stride);
  for (int const label : m_labels)
    mix(label);
  return hash;
}
