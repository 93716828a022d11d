#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <array>
#include <vector>

namespace orx::tool {

using Point = std::array<double, 3>;

/// Nodes with 3 unknowns each, displacements, or 6, rotations behind them.
struct Nodes {
  std::vector<Point> points;
  int unknownsOfNode = 3;
};

/// How many independent rigid motions of all nodes together, six at most, a stiffness takes for nothing; see
/// TakesForNothing. It is symmetric, in symmetric form, and finite. What moves only unknowns that are
/// `empty`, zero-based ones without stiffness, does not count.
int CountRigidMotions(ORXSrvSparseMatrix const& stiffness, std::vector<int> const& empty, Nodes const& nodes);

struct MassTotals {
  Point mass;    ///< against translation along x, y, z
  Point centre;  ///< of gravity; not a number where there is no mass
  Point inertia; ///< about axes through the centre, along x, y, z
};

/// Of a symmetric mass matrix in symmetric form.
MassTotals SumMass(ORXSrvSparseMatrix const& mass, Nodes const& nodes);

} // namespace orx::tool
