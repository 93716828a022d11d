#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

// Meshes of triangles and of tetrahedra as a mesher makes them: nodes have different numbers of neighbours,
// and their numbers say nothing of where they lie until they are renumbered. The nodes are those of a grid
// with holes. A face of four nodes is cut through the one that comes first in a random order, and so is a
// cell of eight; cells that share a face then cut it in the same way.

namespace bench {

enum class Numbering : std::uint8_t { Random, ReverseCuthillMcKee };

class SimplexMesh {
public:
  /// Triangles when the depth is one node, else tetrahedra. Node k has the unknowns k * unknowns and on.
  SimplexMesh(int width, int height, int depth, int unknowns, Numbering numbering)
      : m_width(width), m_height(height), m_depth(depth), m_unknowns(unknowns) {
    NumberNodesAtRandom();
    FindEdges();
    LinkNeighbours();
    if (numbering == Numbering::ReverseCuthillMcKee) Renumber();
  }

  /// Calls visit(row, column, value) for each entry of the matrix; values are multiples of 1/1024, the same
  /// on both sides of the diagonal.
  template<class Visit>
  void ForEachEntry(Visit visit) const {
    for (int node = 0; node < m_nodes; ++node) {
      VisitPair(node, node, visit);
      for (int k = m_starts[Index(node)]; k < m_starts[Index(node) + 1]; ++k)
        VisitPair(node, m_neighbours[Index(k)], visit);
    }
  }

private:
  static constexpr int absent = -1;
  static std::size_t Index(int k) { return static_cast<std::size_t>(k); }

  struct Place {
    int x, y, z;
    Place operator+(Place const& other) const { return {x + other.x, y + other.y, z + other.z}; }
  };

  /// The node in a place of the grid, or `absent`.
  int NodeAt(Place const& p) const {
    return p.x < m_width && p.y < m_height && p.z < m_depth
               ? m_nodeAt[Index(p.x + m_width * (p.y + m_height * p.z))]
               : absent;
  }
  template<class Visit>
  void ForEachPlace(Visit visit) const {
    for (int z = 0; z < m_depth; ++z)
      for (int y = 0; y < m_height; ++y)
        for (int x = 0; x < m_width; ++x)
          visit(Place{x, y, z});
  }

  /// Round holes in each 40 x 40 places, through the whole depth.
  static bool IsInHole(Place const& p) {
    constexpr int distance = 40, radius = 7;
    int const dx = p.x % distance - distance / 2, dy = p.y % distance - distance / 2;
    return dx * dx + dy * dy < radius * radius;
  }
  void NumberNodesAtRandom() {
    m_nodeAt.assign(Index(m_width) * Index(m_height) * Index(m_depth), absent);
    std::vector<std::size_t> places;
    ForEachPlace([&, place = std::size_t{0}](Place const& p) mutable {
      if (!IsInHole(p)) places.push_back(place);
      ++place;
    });
    std::shuffle(places.begin(), places.end(), std::mt19937(11));
    for (std::size_t const place : places)
      m_nodeAt[place] = m_nodes++;
  }

  void FindEdges() {
    constexpr Place alongX{1, 0, 0}, alongY{0, 1, 0}, alongZ{0, 0, 1};
    ForEachPlace([&](Place const& p) {
      for (Place const& step : {alongX, alongY, alongZ})
        Join(NodeAt(p), NodeAt(p + step));
      CutFace(p, alongX, alongY);
      CutFace(p, alongX, alongZ);
      CutFace(p, alongY, alongZ);
      CutCell(p);
    });
  }
  void Join(int a, int b) {
    if (a == absent || b == absent) return;
    m_edges.emplace_back(a, b);
    m_edges.emplace_back(b, a);
  }
  /// The node numbers are still those of the random order.
  void CutFace(Place const& p, Place const& u, Place const& v) {
    int const first = NodeAt(p), across = NodeAt(p + u + v), left = NodeAt(p + u), right = NodeAt(p + v);
    if (std::min(first, across) < std::min(left, right))
      Join(first, across);
    else
      Join(left, right);
  }
  void CutCell(Place const& p) {
    Place const* cut = nullptr;
    int least = m_nodes;
    static constexpr Place corners[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    for (Place const& corner : corners) {
      Place const opposite{1 - corner.x, 1 - corner.y, 1};
      int const node = std::min(NodeAt(p + corner), NodeAt(p + opposite));
      if (node < least) cut = &corner;
      least = std::min(node, least);
    }
    Join(NodeAt(p + *cut), NodeAt(p + Place{1 - cut->x, 1 - cut->y, 1}));
  }

  void LinkNeighbours() {
    std::sort(m_edges.begin(), m_edges.end());
    m_starts.assign(Index(m_nodes) + 1, 0);
    m_neighbours.clear();
    for (auto const& [node, neighbour] : m_edges) {
      ++m_starts[Index(node) + 1];
      m_neighbours.push_back(neighbour);
    }
    std::partial_sum(m_starts.begin(), m_starts.end(), m_starts.begin());
  }

  /// Reverse Cuthill-McKee: from the outside inwards, each node's neighbours by their number of neighbours.
  void Renumber() {
    std::vector<int> numbers(Index(m_nodes), absent);
    std::vector<int> order;
    for (int first = 0; first < m_nodes; ++first) {
      if (numbers[Index(first)] != absent) continue;
      std::vector<int> const outwards = OrderFrom(first);
      for (int const node : OrderFrom(outwards.back())) {
        numbers[Index(node)] = m_nodes - 1 - static_cast<int>(order.size());
        order.push_back(node);
      }
    }
    for (auto& [node, neighbour] : m_edges) {
      node = numbers[Index(node)];
      neighbour = numbers[Index(neighbour)];
    }
    LinkNeighbours();
  }
  int Degree(int node) const { return m_starts[Index(node) + 1] - m_starts[Index(node)]; }
  std::vector<int> OrderFrom(int first) const {
    std::vector<bool> isMet(Index(m_nodes));
    std::vector<int> order{first};
    isMet[Index(first)] = true;
    for (std::size_t k = 0; k < order.size(); ++k) {
      auto const before = static_cast<std::ptrdiff_t>(order.size());
      for (int n = m_starts[Index(order[k])]; n < m_starts[Index(order[k]) + 1]; ++n)
        if (int const node = m_neighbours[Index(n)]; !isMet[Index(node)]) {
          isMet[Index(node)] = true;
          order.push_back(node);
        }
      std::sort(order.begin() + before, order.end(), [&](int a, int b) { return Degree(a) < Degree(b); });
    }
    return order;
  }

  template<class Visit>
  void VisitPair(int node, int neighbour, Visit& visit) const {
    for (int i = m_unknowns * node; i < m_unknowns * (node + 1); ++i)
      for (int j = m_unknowns * neighbour; j < m_unknowns * (neighbour + 1); ++j)
        visit(i, j, (i == j ? 16.0 : -1.0) + (i + j) % 16 / 1024.0);
  }

  int m_width, m_height, m_depth, m_unknowns;
  int m_nodes = 0;
  std::vector<int> m_nodeAt;                ///< by place
  std::vector<std::pair<int, int>> m_edges; ///< in both directions
  std::vector<int> m_starts, m_neighbours;  ///< of each node
};

} // namespace bench
