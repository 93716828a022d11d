#pragma once

#include "sim/impl/LabelSequence.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// The labels of a member set in their order: an arithmetic progression where they are one, the first labels
/// of a sequence otherwise. Immutable and shared; a set that continues another shares its labels.
class ORXSimIndexSet {
public:
  static ORXSimIndexSet Strided(int start, int count, int stride);
  static ORXSimIndexSet Listed(std::span<int const> labels);
  /// The labels of one set followed by those of another. Where no other set has continued the first one yet,
  /// it takes the time and the memory of the second only.
  static ORXSimIndexSet Joined(ORXSimIndexSet const& front, ORXSimIndexSet const& back);

  int Size() const noexcept { return m_count; }
  int operator[](int position) const {
    return IsStrided() ? m_start + position * m_stride : m_labels->At(position);
  }
  void CopyTo(int* out) const { CopyTo(0, m_count, out); }
  /// Those of the positions first ... first + count - 1.
  void CopyTo(int first, int count, int* out) const;
  bool Contains(int label) const { return PositionOf(label) >= 0; }
  /// Zero-based position of a label, the last one where it repeats; -1 when it is not here.
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
  int m_stride = 1;           ///< 1 where it makes no difference, so that equal sets have equal members
  std::uint64_t m_digest = 0; ///< of the labels in their order, see LabelDigest
  std::shared_ptr<orx::sim::LabelSequence> m_labels; ///< null for a progression
};

namespace orx::sim {

// A digest of labels in their order: label 0 * b^(n-1) + ... + label n-1, of 64 bits. That of two lists in a
// row follows from theirs, that of a progression from its three numbers.

std::uint64_t DigestOf(std::span<int const> labels) noexcept;
std::uint64_t DigestOfProgression(int start, int stride, int count) noexcept;
std::uint64_t JoinedDigest(std::uint64_t front, std::uint64_t back, int backCount) noexcept;

} // namespace orx::sim
