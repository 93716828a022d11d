#pragma once

#include <functional>

namespace orx {

/// Replaces a vector by the solution of A x = b, or of A^T x = b when `transposed`.
using SolveFunction = std::function<void(double* x, bool transposed)>;

/// Calls of the solve function that EstimateInverseNorm makes at most.
constexpr int mostSolvesOfEstimate = 11;

/// A lower bound of the 1-norm of A^-1, mostly the norm itself and seldom less than a third of it, from a few
/// solves: ascent on the convex function |A^-1 x| over |x| = 1, whose maximum is at a unit vector (Hager,
/// SIAM J. Sci. Stat. Comput. 5, 1984), and a vector of alternating signs against cancellation (Higham, ACM
/// Trans. Math. Softw. 14, 1988, algorithm 4.1).
double EstimateInverseNorm(int order, SolveFunction const& solve);

} // namespace orx
