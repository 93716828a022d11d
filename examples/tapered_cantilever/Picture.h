#pragma once

#include "examples/tapered_cantilever/Modes.h"

#include <string>
#include <vector>

namespace fv32 {

/// The mode shapes side by side, as an SVG document.
std::string DrawModes(std::vector<Mode> const& modes, Mesh const& mesh);

} // namespace fv32
