#pragma once

#include "tools/mpi/Ranks.h"

#include "tools/commands/Solve.h"

#include <functional>
#include <string>

namespace orx::mpi {

struct SolveOptions : tool::SolveOptions {
  std::string solver = "direct"; ///< or "cg"
  std::string coordinatesPath;   ///< of the nodes, for "cg"; empty: not known
};

/// Prints what `orxmtx solve` prints, on the root. Collective.
void PrintSolution(SolveOptions const& options, Ranks const& ranks,
                   std::function<void(std::string const&)> const& print);

} // namespace orx::mpi
