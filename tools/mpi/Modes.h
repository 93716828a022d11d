#pragma once

#include "tools/mpi/Ranks.h"

#include "tools/commands/Modes.h"

#include <functional>
#include <string>

namespace orx::mpi {

struct ModesOptions : tool::ModesOptions {
  std::string solver = "lanczos"; ///< or "slepc"
};

/// Prints on the root what `orxmtx modes` prints, and writes the shapes file, which has its older content
/// after any error. K and M of an order below tool::sparseOrder are the root's work, by the means of orxmtx.
/// Collective.
void PrintModes(ModesOptions const& options, Ranks const& ranks,
                std::function<void(std::string const&)> const& print);

} // namespace orx::mpi
