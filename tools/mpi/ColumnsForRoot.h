#pragma once

#include "tools/mpi/Ranks.h"

#include <functional>

namespace orx::mpi {

/// Gives the root one column at a time of a matrix whose rows the ranks have in their equal shares: the root
/// needs memory for one whole column. On the root `work(column)` is called, where column(j) returns the
/// `rows` values of column j until it is called again; own(j) is this rank's part. Errors of the work are
/// those of all ranks. Collective.
void ServeColumns(Ranks const& ranks, int rows, std::function<double const*(int)> const& own,
                  std::function<void(std::function<double const*(int)> const&)> const& work);

} // namespace orx::mpi
