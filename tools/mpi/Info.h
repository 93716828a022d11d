#pragma once

#include "tools/mpi/Ranks.h"

#include <string>

namespace orx::mpi {

/// What `orxmtx info` prints, to the last digit but for sums whose rounding errors differ in it. Collective;
/// the text is the root's.
std::string InfoText(std::string const& file, Ranks const& ranks);

} // namespace orx::mpi
