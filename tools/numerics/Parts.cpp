#include "tools/numerics/Parts.h"

#include "tools/numerics/SymmetricForm.h"

#include <numeric>
#include <utility>

namespace orx::tool {
namespace {

/// Trees of unknowns, each of which knows one that comes before it, and is in the end the part's first.
class Forest {
public:
  explicit Forest(int order) : m_before(static_cast<std::size_t>(order)) {
    std::iota(m_before.begin(), m_before.end(), 0);
  }

  int First(int unknown) {
    while (m_before[unknown] != unknown)
      unknown = m_before[unknown] = m_before[m_before[unknown]];
    return unknown;
  }
  void Tie(int a, int b) {
    int first = First(a), second = First(b);
    if (first > second) std::swap(first, second);
    m_before[second] = first;
  }

private:
  std::vector<int> m_before;
};

} // namespace

Parts FindParts(ORXSrvSparseMatrix const& matrix) {
  int const order = matrix.NumberOfRows();
  Forest forest(order);
  ForEachStored(matrix.View(), [&](int row, int column, double value) {
    if (value != 0.0) forest.Tie(row, column);
  });
  std::vector<bool> const isUsed = NonzeroRows(matrix);
  Parts parts;
  parts.of.assign(static_cast<std::size_t>(order), -1);
  for (int i = 0; i < order; ++i) {
    if (!isUsed[i]) continue;
    int const first = forest.First(i);
    if (first == i) {
      parts.of[i] = static_cast<int>(parts.sizes.size());
      parts.first.push_back(i);
      parts.sizes.push_back(0);
    } else {
      parts.of[i] = parts.of[first];
    }
    ++parts.sizes[parts.of[i]];
  }
  return parts;
}

} // namespace orx::tool
