#pragma once

#include "tools/formats/InputFile.h"
#include "tools/numerics/RigidMotions.h"
#include "tools/numerics/StaticProblem.h"

#include <string>
#include <vector>

// Text files about a model besides its matrices. In all of them '#' begins a comment. What is malformed is a
// ToolError with path and line.

namespace orx::tool {

/// Unknowns from 1 that are held, separated by blanks, commas or line ends; "7=0.5" moves unknown 7 to 0.5.
/// They are returned ascending. An unknown may be named again with the same value.
std::vector<HeldUnknown> ReadHeldUnknowns(InputFile const& file, int order);

/// Lines "x y z", one for each node of a model of this order, which has 3 or 6 unknowns for each of them.
Nodes ReadNodes(InputFile const& file, int order);

/// A value for each line; the first line tells.
bool IsColumnOfValues(InputFile const& file);
std::vector<double> ReadColumnOfValues(InputFile const& file);

} // namespace orx::tool
