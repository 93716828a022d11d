#pragma once

#include "tools/Symmetry.h"

#include <string>

namespace orx::tool {

struct ModesOptions {
  std::string stiffnessPath;
  std::string massPath;
  int count = 10;
  std::string shapesPath; ///< empty: the shapes are not written
};

/// What `orxmtx modes` prints: lines starting with '#' that say what was found and done, then one line per
/// mode. Writes the shapes file when one is asked for.
std::string ModesText(ModesOptions const& options);

} // namespace orx::tool
