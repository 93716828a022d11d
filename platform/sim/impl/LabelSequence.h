#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace orx::sim {

/// Labels in an order that only grows at its end, so that sets which begin alike can share one: each knows
/// how many of the first labels are its own. Arithmetic progressions of some length take no memory.
///
///     positions   0 ... 999      1000 1001 1002   1003 ... 5002
///     parts       (0, stride 1)  list: 7 3 12     (2000, stride 2)
class LabelSequence {
public:
  int Size() const noexcept { return m_size; }
  int At(int position) const;
  /// Copies the labels of the positions first ... first + count - 1.
  void CopyTo(int first, int count, int* out) const;
  /// The last position before `end` that has the label; -1 when there is none.
  int LastPositionOf(int label, int end) const;

  // What is there stays as it is, also when memory runs out.

  void AppendProgression(int start, int stride, int count);
  void AppendList(std::span<int const> labels);

private:
  struct Part {
    int position;     ///< of its first label
    int start;        ///< of a progression
    int stride;       ///< of a progression
    std::size_t list; ///< where a list begins in m_listed; notListed: a progression
  };
  static constexpr std::size_t notListed = ~std::size_t{0};
  /// Shorter progressions are listed, so that there are few parts to look through.
  static constexpr int shortest = 64;

  std::size_t PartOf(int position) const;
  int End(std::size_t part) const;
  void IndexLists() const;

  int m_size = 0;
  std::vector<Part> m_parts;
  std::vector<int> m_listed;
  // Of listed labels, up to m_indexedParts and m_indexed; made when first asked for.
  mutable std::unordered_map<int, int> m_last;    ///< label to its last position
  mutable std::unordered_map<int, int> m_earlier; ///< position to the one before with the same label
  mutable int m_indexed = 0;                      ///< positions before it are in the maps
};

} // namespace orx::sim
