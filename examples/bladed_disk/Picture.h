#pragma once

#include "examples/bladed_disk/Mesh.h"

#include <string>
#include <vector>

namespace disk {

struct Mode {
  int number; ///< from 1
  double frequency;
  int nodalDiameters;
  std::vector<Vector> displacement; ///< of every node
};

/// The deformed disk in each mode, coloured by displacement, as an SVG document.
std::string DrawModes(std::vector<Mode> const& modes, Mesh const& mesh);

} // namespace disk
