#include "sim/impl/LabelSequence.h"

#include <algorithm>

namespace orx::sim {

std::size_t LabelSequence::PartOf(int position) const {
  auto const behind = std::upper_bound(m_parts.begin(), m_parts.end(), position,
                                       [](int wanted, Part const& part) { return wanted < part.position; });
  return static_cast<std::size_t>(behind - m_parts.begin()) - 1;
}

int LabelSequence::End(std::size_t part) const {
  return part + 1 < m_parts.size() ? m_parts[part + 1].position : m_size;
}

int LabelSequence::At(int position) const {
  Part const& part = m_parts[PartOf(position)];
  int const inPart = position - part.position;
  if (part.list == notListed) return part.start + inPart * part.stride;
  return m_listed[part.list + static_cast<std::size_t>(inPart)];
}

void LabelSequence::CopyTo(int first, int count, int* out) const {
  if (count == 0) return;
  int const end = first + count;
  for (std::size_t k = PartOf(first); first < end; ++k) {
    Part const& part = m_parts[k];
    int const here = std::min(End(k), end) - first;
    int const inPart = first - part.position;
    if (part.list == notListed) {
      for (int j = 0; j < here; ++j)
        out[j] = part.start + (inPart + j) * part.stride;
    } else {
      std::copy_n(m_listed.begin() + static_cast<std::ptrdiff_t>(part.list) + inPart, here, out);
    }
    first += here;
    out += here;
  }
}

void LabelSequence::AppendProgression(int start, int stride, int count) {
  if (count < shortest) {
    std::vector<int> labels(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
      labels[static_cast<std::size_t>(k)] = start + k * stride;
    return AppendList(labels);
  }
  m_parts.push_back({.position = m_size, .start = start, .stride = stride, .list = notListed});
  m_size += count;
}

void LabelSequence::AppendList(std::span<int const> labels) {
  if (labels.empty()) return;
  std::size_t const former = m_listed.size();
  m_listed.insert(m_listed.end(), labels.begin(), labels.end());
  try {
    if (m_parts.empty() || m_parts.back().list == notListed)
      m_parts.push_back({.position = m_size, .start = 0, .stride = 0, .list = former});
  } catch (...) {
    m_listed.resize(former);
    throw;
  }
  m_size += static_cast<int>(labels.size());
}

void LabelSequence::IndexLists() const {
  for (std::size_t k = m_indexed < m_size ? PartOf(m_indexed) : m_parts.size(); k < m_parts.size(); ++k) {
    Part const& part = m_parts[k];
    int const end = End(k);
    for (int position = std::max(m_indexed, part.position); position < end && part.list != notListed;
         ++position) {
      int const label = m_listed[part.list + static_cast<std::size_t>(position - part.position)];
      auto const [last, isFirst] = m_last.try_emplace(label, position);
      if (!isFirst) m_earlier[position] = last->second;
      last->second = position;
      m_indexed = position + 1;
    }
    m_indexed = end;
  }
}

int LabelSequence::LastPositionOf(int label, int end) const {
  IndexLists();
  int found = -1;
  if (auto const listed = m_last.find(label); listed != m_last.end()) found = listed->second;
  while (found >= end) {
    auto const earlier = m_earlier.find(found);
    found = earlier != m_earlier.end() ? earlier->second : -1;
  }
  for (std::size_t k = m_parts.size(); k-- > 0;) {
    Part const& part = m_parts[k];
    if (part.list != notListed || part.position >= end) continue;
    std::int64_t const count = std::min(End(k), end) - part.position;
    std::int64_t const distance = std::int64_t{label} - part.start;
    if (part.stride == 0 && distance == 0)
      found = std::max(found, static_cast<int>(part.position + count - 1));
    if (part.stride == 0 || distance % part.stride != 0) continue;
    std::int64_t const inPart = distance / part.stride;
    if (inPart >= 0 && inPart < count) found = std::max(found, static_cast<int>(part.position + inPart));
  }
  return found;
}

} // namespace orx::sim
