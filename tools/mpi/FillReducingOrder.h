#pragma once

#include "tools/mpi/LocalRows.h"
#include "tools/mpi/Ranks.h"

#include <vector>

namespace orx::mpi {

/// An order of elimination that fills a factor little, by nested dissection of the graph of the rows that the
/// ranks have, symmetric in pattern. Unknowns with the same pattern, such as those of one node of a mesh, are
/// one vertex of the graph, which makes it small enough for the root. Returns the place of each unknown,
/// one-based, on the root, nothing on the others. Collective.
///
/// The parallel MUMPS of Debian has no nested dissection of its own: its factors of elastic solids take half
/// as many operations again.
std::vector<int> FindFillReducingOrder(LocalRows const& rows, int order, Ranks const& ranks);

} // namespace orx::mpi
