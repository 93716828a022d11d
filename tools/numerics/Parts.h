#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <vector>

namespace orx::tool {

/// The unknowns of a square matrix in groups that no entry other than zero ties to each other.
struct Parts {
  std::vector<int> of;    ///< the part of each unknown, from 0; -1 for one without any such entry
  std::vector<int> first; ///< the first unknown of each part, ascending
  std::vector<int> sizes; ///< unknowns of each part
};

Parts FindParts(ORXSrvSparseMatrix const& matrix);

} // namespace orx::tool
