#pragma once

#include "tools/mpi/Ranks.h"

#include "tools/commands/Modes.h"

#include <functional>
#include <string>

namespace orx::mpi {

/// True when K and M are dense matrices of databases. Collective.
bool AreDense(tool::ModesOptions const& options, Ranks const& ranks);

/// Prints on the root what `orxmtx modes` prints of dense matrices, and writes the shapes file. REQUIRES
/// AreDense. K and M are dealt out in blocks, all eigenvalues of M x = nu (K + sigma M) x are found by
/// ScaLAPACK, and lambda = 1 / nu - sigma, with sigma = 0 when K is positive definite. M must be positive
/// definite, K + sigma M for a positive sigma; else a ToolError of all ranks. Collective.
void PrintDenseModes(tool::ModesOptions const& options, Ranks const& ranks,
                     std::function<void(std::string const&)> const& print);

} // namespace orx::mpi
