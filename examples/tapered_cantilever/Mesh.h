#pragma once

#include "examples/support/Point.h"

#include <array>
#include <vector>

namespace fv32 {

using support::Point;

/// Node numbers of a quadrilateral, counter-clockwise: the corners, then the middles of the sides.
///
///     3---6---2
///     |       |
///     7       5
///     |       |
///     0---4---1
using ElementNodes = std::array<int, 8>;

/// The membrane in columns x rows quadrilaterals with eight nodes.
///
/// Nodes are numbered column by column from the root and upwards, which puts the clamped ones first: what is
/// left of the unknowns after them is numbered without gaps, and the matrices are narrow bands.
class Mesh {
public:
  static constexpr int columns = 16;
  static constexpr int rows = 8;

  Mesh();

  std::vector<Point> const& Nodes() const { return m_nodes; }
  /// Column by column, upwards.
  std::vector<ElementNodes> const& Elements() const { return m_elements; }
  ElementNodes const& Element(int column, int row) const { return m_elements[column * rows + row]; }

  /// Number of free unknowns: two displacements a node, without the clamped root.
  int NumberOfUnknowns() const { return 2 * (static_cast<int>(m_nodes.size()) - clampedNodes); }
  /// The zero-based unknown of a node's displacement along x (direction 0) or y (1), or -1 when clamped.
  static int Unknown(int node, int direction) {
    return node < clampedNodes ? -1 : 2 * (node - clampedNodes) + direction;
  }
  /// The node in the middle of the tip, on the axis of symmetry.
  static int TipNode();

private:
  static constexpr int clampedNodes = 2 * rows + 1;

  std::vector<Point> m_nodes;
  std::vector<ElementNodes> m_elements;
};

} // namespace fv32
