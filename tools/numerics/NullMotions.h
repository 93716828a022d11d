#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <vector>

namespace orx::tool {

/// Whether a matrix in symmetric form takes a motion for nothing: x^T A x is at most 1e-9 of the terms that
/// it is summed from, and A x is next to nothing, too.
bool TakesForNothing(ORXSrvSparseMatrix const& matrix, std::vector<double> const& motion);

/// Motions that both matrices take for nothing, K x = 0 and M x = 0: of each one unknown, zero-based and
/// ascending, whose removal leaves the eigenvalues of K x = lambda M x as they are and removes the motion.
/// Such motions come from unknowns that are entered twice, or that no element fixes; their eigenvalue is 0/0.
///
/// "Nothing" is what may be left of numbers that were written with ten digits: x^T K x and x^T M x at most
/// 1e-9 of the terms that they are summed from. Looked for by Cholesky factorizations of K, M and K + s M:
/// such a motion leaves a pivot of nearly 0 in all three.
/// Both matrices are in symmetric form of the lower triangle.
std::vector<int> FindNullMotions(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass);

} // namespace orx::tool
