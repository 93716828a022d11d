#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"
#include "mtx/ORXSrvMatrix.h"

#include <string>

namespace orx::host {
namespace {

/// A matrix on the array of the host. Those of const arrays are only read.
ORXSrvMatrix On(double const* values, int rows, int columns, bool symmetric = false) {
  return {rows, columns, const_cast<double*>(values), symmetric};
}

void DenseFactorize(int symmetric, int n, double* a, int* pivots) {
  CountOf("n", n);
  int const zero = On(a, n, n, Flag("symmetric", symmetric)).FactorizeReporting(pivots).firstZero;
  if (zero > 0)
    RaiseHostError(HostError::wrongArgument, "a is singular: pivot " + std::to_string(zero) + " is zero.");
}

void DenseSolve(int symmetric, int n, double const* a, int const* pivots, int count, double* b) {
  CountOf("n", n);
  CountOf("count", count);
  ORXSrvMatrix solutions = On(b, n, count);
  On(a, n, n, Flag("symmetric", symmetric)).ForwardBackwardPass(pivots, solutions, false);
}

void DenseModes(int n, double const* k, double const* m, double* lambda, double* shapes) {
  CountOf("n", n);
  ORXSrvMatrix values = On(lambda, n, 1), vectors = On(shapes, n, n);
  On(k, n, n).SolveEigenproblemSymmetric(On(m, n, n), values, vectors);
}

} // namespace
} // namespace orx::host

#include "host/DenseArrays.inc"
