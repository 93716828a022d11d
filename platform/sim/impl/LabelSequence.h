#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace orx::sim {

/// A sequence of labels that grows only at its end. Sets that begin alike share a sequence: each set is a
/// number of leading labels. Long arithmetic progressions are stored as three numbers.
///
///     positions   0 ... 999      1000 1001 1002   1003 ... 5002
///     segments    (0, stride 1)  list: 7 3 12     (2000, stride 2)
class LabelSequence {
public:
  int Size() const noexcept { return m_size; }
  /// The label at a zero-based position.
  int At(int position) const;
  /// Copies the labels of the positions first ... first + count - 1.
  void CopyTo(int first, int count, int* out) const;
  /// The last position before `end` that has the label; -1 when there is none.
  int LastPositionOf(int label, int end) const;

  // Appending; the labels before stay as they are, also when memory runs out

  void AppendProgression(int start, int stride, int count);
  void AppendList(std::span<int const> labels);

private:
  struct Segment {
    int position;     ///< of its first label in the sequence
    int start;        ///< progression: its first label
    int stride;       ///< progression: difference of consecutive labels
    std::size_t list; ///< list: index of its first label in m_listed; notListed: a progression
  };
  static constexpr std::size_t notListed = ~std::size_t{0};
  /// Shorter progressions are stored as lists, because LastPositionOf walks over all progressions.
  static constexpr int shortestProgression = 64;

  std::size_t FindSegment(int position) const;
  int EndOf(std::size_t segment) const;
  void IndexLists() const;

  int m_size = 0;
  std::vector<Segment> m_segments;
  std::vector<int> m_listed;
  // Index of the listed labels; LastPositionOf brings it up to date
  mutable std::unordered_map<int, int> m_last;    ///< label to its last position
  mutable std::unordered_map<int, int> m_earlier; ///< position to the next lower position with the same label
  mutable int m_indexed = 0;                      ///< listed labels before this position are in the maps
};

} // namespace orx::sim
