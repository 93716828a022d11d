#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace orx::host {
namespace {

std::shared_ptr<Factor> FactorCreate() { return std::make_shared<Factor>(); }

void FactorSetMemory(Factor& factor, std::int64_t bytes) { factor.factor.SetMemory(MemoryOf(bytes)); }

void FactorSetFolder(Factor& factor, char const* path) { factor.factor.SetFolder(path); }

void FactorFactorize(Factor& factor, SparseMatrix& k) { factor.factor.Factorize(k.matrix); }

void FactorFactorizeShifted(Factor& factor, SparseMatrix& k, double shift, SparseMatrix& m) {
  factor.factor.Factorize(k.matrix, shift, m.matrix);
}

void FactorSolve(Factor& factor, int n, double* x) { factor.factor.Solve(x, CountOf("n", n)); }

void FactorSolveBlock(Factor& factor, ORXSrvDenseMatrix& x) { factor.factor.Solve(x); }

void FactorSolveRefined(Factor& factor, int n, double const* b, double* x, double& error) {
  error = factor.factor.SolveRefined(b, x, CountOf("n", n));
}

/// What the factorization found; wrongOrder when there is none.
ORXSrvFactorFacts const& Facts(Factor const& factor) {
  if (!factor.factor.HasFactor())
    RaiseHostError(HostError::wrongOrder, "there is no factor; expected ORX_FACTOR_FACTORIZE before.");
  return factor.factor.Facts();
}

void FactorInertia(Factor& factor, int& negative, int& zero, int& positive) {
  ORXSrvFactorFacts const& facts = Facts(factor);
  if (!facts.isSymmetric)
    RaiseHostError(HostError::wrongArgument, "the matrix is not symmetric; expected a symmetric one.");
  negative = facts.negative;
  zero = facts.zero;
  positive = facts.positive;
}

void FactorNullUnknowns(Factor& factor, int room, int* unknowns, int& count) {
  std::vector<int> const& null = Facts(factor).nullUnknowns;
  if (static_cast<std::int64_t>(null.size()) > room)
    RaiseHostError(HostError::wrongArgument, "room is " + std::to_string(room) + "; expected at least " +
                                                 std::to_string(null.size()) + ".");
  std::ranges::transform(null, unknowns, [](int unknown) { return unknown + 1; });
  count = static_cast<int>(null.size());
}

void FactorHoldNullUnknowns(Factor& factor, int held) { factor.factor.HoldNullUnknowns(Flag("held", held)); }

void FactorCondition(Factor& factor, double& estimate) {
  Facts(factor);
  estimate = factor.factor.EstimateCondition();
}

void FactorSize(Factor& factor, std::int64_t& entries, std::int64_t& bytes) {
  ORXSrvFactorFacts const& facts = Facts(factor);
  entries = facts.entries;
  bytes = facts.bytes;
}

} // namespace
} // namespace orx::host

#include "host/Factors.inc"
