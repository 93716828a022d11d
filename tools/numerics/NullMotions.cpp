#include "tools/numerics/NullMotions.h"

#include "tools/numerics/DensePair.h"
#include "tools/numerics/SymmetricForm.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace orx::tool {
namespace {

constexpr double nothing = 1e-9;
/// K x itself is only as small as the root of x^T K x.
constexpr double rootOfNothing = 3e-5;

/// A typical ratio of stiffness to mass: weighs K and M so that neither hides what the other one resists.
double BalancingFactor(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass) {
  std::vector<double> const k = DiagonalOf(stiffness);
  std::vector<double> const m = DiagonalOf(mass);
  std::vector<double> ratios;
  for (std::size_t i = 0; i < k.size(); ++i)
    if (k[i] > 0.0 && m[i] > 0.0) ratios.push_back(k[i] / m[i]);
  if (ratios.empty()) return 1.0;
  auto const middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
  std::nth_element(ratios.begin(), middle, ratios.end());
  return *middle;
}

bool IsWeak(CholeskyFactor const& factor, int i) { return factor.PivotShare(i) <= nothing; }

bool HasWeakPivot(CholeskyFactor const& factor, int order) {
  for (int i = 0; i < order && i <= factor.Rank(); ++i)
    if (IsWeak(factor, i)) return true;
  return false;
}

double Norm(std::vector<double> const& x) {
  double norm = 0.0;
  for (double const value : x)
    norm = std::hypot(norm, value);
  return norm;
}

/// Looks at one pair after another, each without the unknowns that were found before.
class NullMotionFinder {
public:
  NullMotionFinder(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass)
      : m_k(stiffness), m_m(mass), m_s(BalancingFactor(stiffness, mass)), m_pair(stiffness, mass) {}

  /// The first unknown whose pivot in K + s M is next to nothing, and so are the stiffness and the mass of
  /// the motion that it completes.
  std::optional<int> Find() {
    int const order = m_pair.Order();
    if (!HasWeakPivot(m_pair.Factor(1.0, 0.0), order) || !HasWeakPivot(m_pair.Factor(0.0, 1.0), order))
      return {};
    CholeskyFactor const factor = m_pair.Factor(1.0, m_s);
    for (int i = 0; i < order && i <= factor.Rank(); ++i) {
      if (!IsWeak(factor, i)) continue;
      std::vector<double> const motion = MotionOf(factor, i);
      if (TakesForNothing(m_k, motion) && TakesForNothing(m_m, motion)) return i;
    }
    return {};
  }

private:
  /// The unknowns before i follow unit motion of unknown i as K + s M wants it; those behind rest.
  std::vector<double> MotionOf(CholeskyFactor const& factor, int i) const {
    std::vector<double> motion(static_cast<std::size_t>(m_pair.Order()), 0.0);
    auto const subtractRow = [&](ORXSrvSparseMatrix const& matrix, double weight) {
      CompressedRowsView const rows = matrix.View();
      for (std::int32_t k = rows.rowPointers[i]; k < rows.rowPointers[i + 1]; ++k)
        motion[rows.columnIndices[k]] -= weight * rows.values[k];
    };
    subtractRow(m_k, 1.0);
    subtractRow(m_m, m_s);
    factor.Solve(i, motion.data());
    motion[i] = 1.0;
    return motion;
  }

  ORXSrvSparseMatrix const& m_k;
  ORXSrvSparseMatrix const& m_m;
  double const m_s;
  DensePair m_pair;
};

} // namespace

bool TakesForNothing(ORXSrvSparseMatrix const& matrix, std::vector<double> const& motion) {
  return std::fabs(QuadraticForm(matrix, motion)) <= nothing * AbsoluteForm(matrix, motion) &&
         Norm(Product(matrix, motion)) <= rootOfNothing * Norm(AbsoluteProduct(matrix, motion));
}

std::vector<int> FindNullMotions(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass) {
  std::vector<int> found;
  while (std::ssize(found) < stiffness.NumberOfRows()) {
    KeptUnknowns const kept(stiffness.NumberOfRows(), found);
    ORXSrvSparseMatrix const k = Reduced(stiffness, kept);
    ORXSrvSparseMatrix const m = Reduced(mass, kept);
    std::optional<int> const next = NullMotionFinder(k, m).Find();
    if (!next) break;
    found.push_back(kept.Old(*next));
  }
  std::sort(found.begin(), found.end());
  return found;
}

} // namespace orx::tool
