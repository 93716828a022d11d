#pragma once

#include "tools/formats/MatrixSource.h"
#include "tools/numerics/ModalProblem.h"

#include <string>

namespace orx::tool {

/// What `modes` prints of a solution: lines starting with '#' that say what was found and done, then one line
/// per mode. `count` is the number of modes that were asked for. Shapes are not looked at.
std::string ModesText(SourceFacts const& k, SourceFacts const& m, ModalSolution const& solution, int count);

/// The line that says where the shapes are.
std::string ShapesFileText(std::string const& path);

} // namespace orx::tool
