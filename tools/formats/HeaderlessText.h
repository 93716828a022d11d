#pragma once

#include "tools/formats/MatrixFile.h"

#include <string>

// Text types that the library writes and does not read, one entry a line. Their largest indices are the
// dimensions. What is malformed is a ToolError with path and line.

namespace orx::tool {

/// Lines "row column value"; indices begin at `base`.
ORXSrvSparseMatrix ReadTriplets(std::string const& path, int base);

/// Lines "row,column,value"; indices begin at `base`.
ORXSrvSparseMatrix ReadCommas(std::string const& path, int base);

/// Lines "node,dof,node,dof,value": row and column as a node and its degree of freedom, both from 1, which
/// stand for unknown (node - 1) * dofsPerNode + dof. 0 dofs a node: as many as the largest one in the file.
/// Of a matrix that is not square the library writes "node,dof,column,0,value", the column from 0.
ORXSrvSparseMatrix ReadNodeDofs(std::string const& path, int dofsPerNode);

} // namespace orx::tool
