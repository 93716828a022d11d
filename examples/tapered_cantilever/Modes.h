#pragma once

#include "examples/tapered_cantilever/Mesh.h"

#include <string>
#include <vector>

namespace fv32 {

struct Mode {
  double frequency; ///< Hz
  std::vector<Point>
      displacement; ///< of every node; the largest one has length 1, the tip moves along +x or +y
  bool isAxial;     ///< moves mainly along the membrane; else it bends
};

/// Reads the first modes of the membrane as `orxmtx modes` leaves them.
/// `tablePath`: lines "mode frequency eigenvalue residual error", '#' starts a remark.
/// `shapesPath`: text triplets "unknown mode value", one-based.
/// Raises std::runtime_error when the files are not those of this mesh, ORXBasException when the shapes
/// cannot be imported.
std::vector<Mode> ReadModes(std::string const& tablePath, std::string const& shapesPath, Mesh const& mesh);

} // namespace fv32
