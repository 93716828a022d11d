#pragma once

#include "examples/tapered_cantilever/Mesh.h"

#include <array>

namespace fv32 {

/// Values and derivatives of the eight shape functions at a point (r, s) of the square [-1, 1] x [-1, 1].
struct ShapeFunctions {
  std::array<double, 8> n;
  std::array<double, 8> dr; ///< dn / dr
  std::array<double, 8> ds; ///< dn / ds

  ShapeFunctions(double r, double s);
};

/// The value at (r, s) of what is given at the eight nodes.
Point Interpolate(std::array<Point, 8> const& atNodes, double r, double s);

/// Symmetric to the last bit; unknown 2 * node + direction.
using ElementMatrix = std::array<std::array<double, 16>, 16>;

struct ElementMatrices {
  ElementMatrix stiffness;
  ElementMatrix mass; ///< consistent
};

/// Plane stress, integrated with 3 x 3 Gauss points.
ElementMatrices ComputeElementMatrices(std::array<Point, 8> const& nodes);

} // namespace fv32
