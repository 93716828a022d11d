#pragma once

#include "tools/formats/MatrixSource.h"
#include "tools/numerics/StaticProblem.h"

#include <string>

namespace orx::tool {

/// Reads the loads on the unknowns of K: a value for each line, or a matrix of any type with a column for
/// each load. Text without a header may end before the last unknown. Another number of rows, no column, and a
/// value that is not finite are a ToolError.
Columns ReadLoads(std::string const& path, SourceFacts const& k);

} // namespace orx::tool
