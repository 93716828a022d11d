#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

// A cube of hexahedral elements with three unknowns a node: what is assembled in the claims about assembly.
// Elements and nodes are numbered x first, then y, then z; node k has the unknowns 3 k, 3 k + 1, 3 k + 2.

namespace bench {

enum class AssemblyOrder : std::uint8_t { Natural, Elements, Triplets };

struct Triplet {
  std::uint32_t row;
  std::uint32_t column;
  double value;
};

class HexMesh {
public:
  static constexpr int elementUnknowns = 24;

  /// `order` other than Natural: elements in a scrambled order, the same in every run.
  HexMesh(int elementsPerSide, AssemblyOrder order)
      : m_side(elementsPerSide), m_elements(static_cast<std::size_t>(m_side) * m_side * m_side) {
    std::iota(m_elements.begin(), m_elements.end(), 0);
    if (order != AssemblyOrder::Natural)
      std::shuffle(m_elements.begin(), m_elements.end(), std::mt19937_64(1));
  }

  int NumberOfUnknowns() const { return 3 * NodesPerSide() * NodesPerSide() * NodesPerSide(); }
  std::int64_t NumberOfTriplets() const {
    return std::int64_t{elementUnknowns} * elementUnknowns * static_cast<std::int64_t>(m_elements.size());
  }

  /// Entry (i, j) of every element matrix: a multiple of 1/1024, so that sums of any order are exact.
  static double Value(int i, int j) { return (i == j ? 100.0 : -1.0) + (i + j) / 1024.0; }

  /// Calls visit(unknowns) with the 24 unknowns of each element in turn.
  template<class Visit>
  void ForEachElement(Visit visit) const {
    int unknowns[elementUnknowns];
    for (int const element : m_elements) {
      FindUnknowns(element, unknowns);
      visit(unknowns);
    }
  }

  /// Calls add(row, column, value) for each entry of each element matrix.
  template<class Add>
  void ForEachTriplet(Add add) const {
    ForEachElement([&](int const* unknowns) {
      for (int i = 0; i < elementUnknowns; ++i)
        for (int j = 0; j < elementUnknowns; ++j)
          add(unknowns[i], unknowns[j], Value(i, j));
    });
  }

  /// All triplets in an order that knows nothing of elements, the same in every run.
  std::vector<Triplet> ScrambledTriplets() const {
    std::vector<Triplet> triplets;
    triplets.reserve(static_cast<std::size_t>(NumberOfTriplets()));
    ForEachTriplet([&](int row, int column, double value) {
      triplets.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value});
    });
    std::shuffle(triplets.begin(), triplets.end(), std::mt19937_64(2));
    return triplets;
  }

  /// Entries of each row of the assembled matrix.
  std::vector<int> RowLengths() const {
    std::vector<int> lengths;
    int const nodes = NodesPerSide();
    auto const neighbours = [&](int k) { return k == 0 || k == nodes - 1 ? 2 : 3; };
    for (int z = 0; z < nodes; ++z)
      for (int y = 0; y < nodes; ++y)
        for (int x = 0; x < nodes; ++x)
          lengths.insert(lengths.end(), 3, 3 * neighbours(x) * neighbours(y) * neighbours(z));
    return lengths;
  }

private:
  int NodesPerSide() const { return m_side + 1; }

  void FindUnknowns(int element, int* unknowns) const {
    int const x = element % m_side;
    int const y = element / m_side % m_side;
    int const z = element / m_side / m_side;
    for (int corner = 0; corner < 8; ++corner) {
      // The corners go round the bottom face, then round the top face.
      int const dx = (corner & 1) ^ (corner >> 1 & 1);
      int const dy = corner >> 1 & 1;
      int const dz = corner >> 2;
      int const node = x + dx + NodesPerSide() * (y + dy + NodesPerSide() * (z + dz));
      for (int k = 0; k < 3; ++k)
        *unknowns++ = 3 * node + k;
    }
  }

  int m_side;
  std::vector<int> m_elements; ///< in the order of assembly
};

/// Sum of value * (row % 7 + 1) * (column % 5 + 1): the matrix between two vectors of small integers. Exact,
/// so two assemblies that agree give the same number.
class Checksum {
public:
  void Add(std::int64_t row, std::int64_t column, double value) {
    m_sum += value * static_cast<double>((row % 7 + 1) * (column % 5 + 1));
  }
  double Sum() const { return m_sum; }

private:
  double m_sum = 0.0;
};

} // namespace bench
