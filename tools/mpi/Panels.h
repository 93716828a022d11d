#pragma once

#include "tools/mpi/BlockCyclic.h"

#include <functional>

namespace orx::mpi {

/// Brings a matrix of which each rank has a part to the root, some columns at a time, so that the root has
/// its own part and no more than about 4 * `most` values besides. `write(first, count, values)` gets all rows
/// of these columns, on the root. Collective; an error of `write` is one of all ranks.
void ForEachPanel(LocalPart const& part, int rows, int columns, Ranks const& ranks,
                  std::function<void(int first, int count, double const* values)> const& write,
                  std::int64_t most = 1 << 21);

} // namespace orx::mpi
