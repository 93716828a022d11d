#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

/// The labels of a member set in their order: an arithmetic progression where they are one, a list otherwise.
/// Immutable and shared.
class ORXSimIndexSet {
public:
  static ORXSimIndexSet Strided(int start, int count, int stride);
  static ORXSimIndexSet Listed(std::span<int const> labels);

  int Size() const noexcept { return m_count; }
  int operator[](int position) const noexcept {
    return m_labels.empty() ? m_start + position * m_stride : m_labels[static_cast<std::size_t>(position)];
  }
  void CopyTo(int* out) const noexcept;
  bool Contains(int label) const { return PositionOf(label) >= 0; }
  /// Zero-based position of a label, the last one where it repeats; -1 when it is not here.
  int PositionOf(int label) const;

  bool IsStrided() const noexcept { return m_labels.empty(); }
  int Start() const noexcept { return m_start; }
  int Stride() const noexcept { return m_stride; }

  std::size_t Hash() const noexcept;
  friend bool operator==(ORXSimIndexSet const& a, ORXSimIndexSet const& b) noexcept {
    return a.m_count == b.m_count && a.m_start == b.m_start && a.m_stride == b.m_stride &&
           a.m_labels == b.m_labels;
  }

private:
  ORXSimIndexSet() = default;

  int m_count = 0;
  int m_start = 0;
  int m_stride = 1;          ///< 1 where it makes no difference, so that equal sets have equal members
  std::vector<int> m_labels; ///< empty for a progression
  mutable std::unordered_map<int, int> m_positions; ///< of a list; made when first asked for
};
