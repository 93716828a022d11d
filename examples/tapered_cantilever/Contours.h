#pragma once

#include "examples/tapered_cantilever/Mesh.h"

#include <vector>

namespace fv32 {

/// A quantity, 0 or greater, sampled on a structured grid of columns x rows points.
struct SampledField {
  int columns;
  int rows;
  std::vector<Point> points;  ///< column by column
  std::vector<double> values; ///< of the points

  int Index(int column, int row) const { return column * rows + row; }
};

using Polygon = std::vector<Point>;

/// The part of the grid where the field is at least `level`, as closed polygons; holes are polygons that turn
/// the other way. Between points the field is taken as linear along the lines of the grid.
std::vector<Polygon> RegionAbove(SampledField const& field, double level);

} // namespace fv32
