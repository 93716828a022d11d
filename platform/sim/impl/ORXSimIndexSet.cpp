#include "sim/impl/ORXSimIndexSet.h"

#include <algorithm>
#include <array>

namespace orx::sim {

namespace {

constexpr std::uint64_t base = 0x9E3779B97F4A7C15ull; // odd

/// For n labels, with k = 0 ... n-1: b^n, the sum of all b^(n-1-k), and the sum of all k * b^(n-1-k).
struct PowerSums {
  std::uint64_t power = 1;
  std::uint64_t ones = 0;
  std::uint64_t positions = 0;
};

/// Reads the bits of `count` from the highest on: each doubles the number of labels, a 1 adds a label.
PowerSums ComputePowerSums(int count) noexcept {
  PowerSums sums;
  std::uint64_t done = 0;
  for (int bit = 30; bit >= 0; --bit) {
    sums = {.power = sums.power * sums.power,
            .ones = sums.ones * (sums.power + 1),
            .positions = sums.positions * (sums.power + 1) + done * sums.ones};
    done *= 2;
    if ((count >> bit & 1) == 0) continue;
    sums = {
        .power = sums.power * base, .ones = sums.ones * base + 1, .positions = sums.positions * base + done};
    ++done;
  }
  return sums;
}

} // namespace

std::uint64_t DigestOf(std::span<int const> labels) noexcept {
  std::uint64_t digest = 0;
  for (int const label : labels)
    digest = digest * base + static_cast<std::uint64_t>(label);
  return digest;
}

std::uint64_t DigestOfProgression(int start, int stride, int count) noexcept {
  PowerSums const sums = ComputePowerSums(count);
  return static_cast<std::uint64_t>(start) * sums.ones + static_cast<std::uint64_t>(stride) * sums.positions;
}

std::uint64_t JoinedDigest(std::uint64_t front, std::uint64_t back, int backCount) noexcept {
  return front * ComputePowerSums(backCount).power + back;
}

} // namespace orx::sim

namespace {

bool IsProgression(std::span<int const> labels) {
  if (labels.size() < 3) return true;
  std::int64_t const stride = std::int64_t{labels[1]} - labels[0];
  for (std::size_t k = 2; k < labels.size(); ++k)
    if (std::int64_t{labels[k]} - labels[k - 1] != stride) return false;
  return true;
}

/// True when the labels of `front`, then the labels of `back`, are an arithmetic progression.
bool IsProgression(ORXSimIndexSet const& front, ORXSimIndexSet const& back) {
  if (!front.IsStrided() || !back.IsStrided()) return false;
  std::int64_t const step = std::int64_t{back[0]} - front[front.Size() - 1];
  return (front.Size() == 1 || step == front.Stride()) && (back.Size() == 1 || step == back.Stride());
}

} // namespace

ORXSimIndexSet ORXSimIndexSet::Strided(int start, int count, int stride) {
  ORXSimIndexSet set;
  set.m_count = count;
  set.m_start = count > 0 ? start : 0;
  set.m_stride = count > 1 ? stride : 1;
  set.m_digest = orx::sim::DigestOfProgression(set.m_start, set.m_stride, count);
  return set;
}

ORXSimIndexSet ORXSimIndexSet::Listed(std::span<int const> labels) {
  int const count = static_cast<int>(labels.size());
  if (count == 0) return Strided(0, 0, 1);
  if (IsProgression(labels)) return Strided(labels[0], count, count > 1 ? labels[1] - labels[0] : 1);
  ORXSimIndexSet set;
  set.m_count = count;
  set.m_labels = std::make_shared<orx::sim::LabelSequence>();
  set.m_labels->AppendList(labels);
  set.m_digest = orx::sim::DigestOf(labels);
  return set;
}

void ORXSimIndexSet::AppendTo(orx::sim::LabelSequence& sequence) const {
  if (IsStrided()) return sequence.AppendProgression(m_start, m_stride, m_count);
  constexpr int atOnce = 4096;
  std::array<int, atOnce> labels;
  for (int done = 0; done < m_count; done += atOnce) {
    int const count = std::min(atOnce, m_count - done);
    m_labels->CopyTo(done, count, labels.data());
    sequence.AppendList(std::span(labels.data(), static_cast<std::size_t>(count)));
  }
}

ORXSimIndexSet ORXSimIndexSet::Joined(ORXSimIndexSet const& front, ORXSimIndexSet const& back) {
  if (front.m_count == 0) return back;
  if (back.m_count == 0) return front;
  int const count = front.m_count + back.m_count;
  if (IsProgression(front, back)) return Strided(front.m_start, count, back[0] - front[front.m_count - 1]);
  ORXSimIndexSet set;
  set.m_count = count;
  set.m_digest = orx::sim::JoinedDigest(front.m_digest, back.m_digest, back.m_count);
  bool const isAtEnd = !front.IsStrided() && front.m_labels->Size() == front.m_count;
  set.m_labels = isAtEnd ? front.m_labels : std::make_shared<orx::sim::LabelSequence>();
  if (!isAtEnd) front.AppendTo(*set.m_labels);
  back.AppendTo(*set.m_labels);
  return set;
}

void ORXSimIndexSet::CopyTo(int first, int count, int* out) const {
  if (!IsStrided()) return m_labels->CopyTo(first, count, out);
  for (int k = 0; k < count; ++k)
    out[k] = m_start + (first + k) * m_stride;
}

int ORXSimIndexSet::PositionOf(int label) const {
  if (!IsStrided()) return m_labels->LastPositionOf(label, m_count);
  if (m_stride == 0) return label == m_start ? m_count - 1 : -1;
  std::int64_t const distance = std::int64_t{label} - m_start;
  std::int64_t const position = distance / m_stride;
  bool const isHere = distance % m_stride == 0 && position >= 0 && position < m_count;
  return isHere ? static_cast<int>(position) : -1;
}

bool operator==(ORXSimIndexSet const& a, ORXSimIndexSet const& b) {
  if (a.m_count != b.m_count || a.m_digest != b.m_digest || a.IsStrided() != b.IsStrided()) return false;
  if (a.IsStrided()) return a.m_start == b.m_start && a.m_stride == b.m_stride;
  if (a.m_labels == b.m_labels) return true;
  for (int k = 0; k < a.m_count; ++k)
    if (a[k] != b[k]) return false;
  return true;
}
