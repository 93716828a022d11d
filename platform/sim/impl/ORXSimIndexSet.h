#pragma once

#include "sim/impl/LabelSequence.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// The labels of a member set in their order: start and stride of an arithmetic progression, or the leading
/// labels of a LabelSequence. Immutable; copies, and sets that continue this set, share the sequence.
class ORXSimIndexSet {
public:
  static ORXSimIndexSet Strided(int start, int count, int stride);
  static ORXSimIndexSet Listed(std::span<int const> labels);
  /// The labels of `front`, then the labels of `back`. Unless another set continues a listed `front`
  /// already, this takes time and memory for the labels of `back` only.
  static ORXSimIndexSet Joined(ORXSimIndexSet const& front, ORXSimIndexSet const& back);

  int Size() const noexcept { return m_count; }
  int operator[](int position) const {
    return IsStrided() ? m_start + position * m_stride : m_labels->At(position);
  }
  void CopyTo(int* out) const { CopyTo(0, m_count, out); }
  /// Copies the labels of the positions first ... first + count - 1.
  void CopyTo(int first, int count, int* out) const;
  bool Contains(int label) const { return PositionOf(label) >= 0; }
  /// Zero-based position of a label, the last position when it repeats; -1 when the set lacks the label.
  int PositionOf(int label) const;

  bool IsStrided() const noexcept { return m_labels == nullptr; }
  int Start() const noexcept { return m_start; }
  int Stride() const noexcept { return m_stride; }

  /// See DigestOf.
  std::uint64_t Digest() const noexcept { return m_digest; }
  friend bool operator==(ORXSimIndexSet const& a, ORXSimIndexSet const& b);

private:
  ORXSimIndexSet() = default;
  void AppendTo(orx::sim::LabelSequence& sequence) const;

  int m_count = 0;
  int m_start = 0;
  int m_stride = 1;           ///< 1 for fewer than two labels: equal sets have equal data members
  std::uint64_t m_digest = 0; ///< see DigestOf
  std::shared_ptr<orx::sim::LabelSequence> m_labels; ///< null for a progression
};

namespace orx::sim {

// A digest of n labels in their order: label 0 * b^(n-1) + ... + label n-1, modulo 2^64. The digest of two
// lists in a row is computed from their digests, the digest of a progression from start, stride and count.

std::uint64_t DigestOf(std::span<int const> labels) noexcept;
std::uint64_t DigestOfProgression(int start, int stride, int count) noexcept;
std::uint64_t JoinedDigest(std::uint64_t front, std::uint64_t back, int backCount) noexcept;

} // namespace orx::sim
