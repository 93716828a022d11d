#include "sim/impl/LabelSequence.h"

#include <algorithm>

namespace orx::sim {

std::size_t LabelSequence::FindSegment(int position) const {
  auto const behind =
      std::upper_bound(m_segments.begin(), m_segments.end(), position,
                       [](int wanted, Segment const& segment) { return wanted < segment.position; });
  return static_cast<std::size_t>(behind - m_segments.begin()) - 1;
}

int LabelSequence::EndOf(std::size_t segment) const {
  return segment + 1 < m_segments.size() ? m_segments[segment + 1].position : m_size;
}

int LabelSequence::At(int position) const {
  Segment const& segment = m_segments[FindSegment(position)];
  int const inSegment = position - segment.position;
  if (segment.list == notListed) return segment.start + inSegment * segment.stride;
  return m_listed[segment.list + static_cast<std::size_t>(inSegment)];
}

void LabelSequence::CopyTo(int first, int count, int* out) const {
  if (count == 0) return;
  int const end = first + count;
  for (std::size_t k = FindSegment(first); first < end; ++k) {
    Segment const& segment = m_segments[k];
    int const here = std::min(EndOf(k), end) - first;
    int const inSegment = first - segment.position;
    if (segment.list == notListed) {
      for (int j = 0; j < here; ++j)
        out[j] = segment.start + (inSegment + j) * segment.stride;
    } else {
      std::copy_n(m_listed.begin() + static_cast<std::ptrdiff_t>(segment.list) + inSegment, here, out);
    }
    first += here;
    out += here;
  }
}

void LabelSequence::AppendProgression(int start, int stride, int count) {
  if (count < shortestProgression) {
    std::vector<int> labels(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
      labels[static_cast<std::size_t>(k)] = start + k * stride;
    return AppendList(labels);
  }
  m_segments.push_back({.position = m_size, .start = start, .stride = stride, .list = notListed});
  m_size += count;
}

void LabelSequence::AppendList(std::span<int const> labels) {
  if (labels.empty()) return;
  std::size_t const former = m_listed.size();
  m_listed.insert(m_listed.end(), labels.begin(), labels.end());
  try {
    if (m_segments.empty() || m_segments.back().list == notListed)
      m_segments.push_back({.position = m_size, .start = 0, .stride = 0, .list = former});
  } catch (...) {
    m_listed.resize(former);
    throw;
  }
  m_size += static_cast<int>(labels.size());
}

void LabelSequence::IndexLists() const {
  for (std::size_t k = m_indexed < m_size ? FindSegment(m_indexed) : m_segments.size(); k < m_segments.size();
       ++k) {
    Segment const& segment = m_segments[k];
    int const end = EndOf(k);
    for (int position = std::max(m_indexed, segment.position); position < end && segment.list != notListed;
         ++position) {
      int const label = m_listed[segment.list + static_cast<std::size_t>(position - segment.position)];
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
  for (std::size_t k = m_segments.size(); k-- > 0;) {
    Segment const& segment = m_segments[k];
    if (segment.list != notListed || segment.position >= end) continue;
    std::int64_t const count = std::min(EndOf(k), end) - segment.position;
    std::int64_t const distance = std::int64_t{label} - segment.start;
    if (segment.stride == 0 && distance == 0)
      found = std::max(found, static_cast<int>(segment.position + count - 1));
    if (segment.stride == 0 || distance % segment.stride != 0) continue;
    std::int64_t const inSegment = distance / segment.stride;
    if (inSegment >= 0 && inSegment < count)
      found = std::max(found, static_cast<int>(segment.position + inSegment));
  }
  return found;
}

} // namespace orx::sim
