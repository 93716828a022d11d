#include "tools/numerics/DensePair.h"

#include "blac/BLAC.h"

#include <algorithm>
#include <limits>

namespace orx::tool {
namespace {

std::size_t OrderOf(ORXSrvMatrix const& matrix) { return static_cast<std::size_t>(matrix.NumberOfRows()); }

void AddTo(ORXSrvMatrix& target, double factor, ORXSrvSparseMatrix const& source) {
  std::size_t const n = OrderOf(target);
  if (factor == 0.0) return;
  ForEachEntry(source.View(), [&](std::size_t row, std::size_t column, double value) {
    target.Values()[column * n + row] += factor * value;
  });
}

std::vector<double> DiagonalOf(ORXSrvMatrix const& matrix) {
  std::size_t const n = OrderOf(matrix);
  std::vector<double> diagonal(n);
  for (std::size_t i = 0; i < n; ++i)
    diagonal[i] = matrix.Values()[i * n + i];
  return diagonal;
}

} // namespace

CholeskyFactor::CholeskyFactor(ORXSrvMatrix& matrix)
    : m_matrix(matrix), m_rank(matrix.NumberOfRows()), m_shares(DiagonalOf(matrix)) {
  int const order = matrix.NumberOfRows();
  int failed = 0; // one-based
  BLAC_DPOTRF("L", &order, matrix.Values(), &order, &failed);
  if (failed > 0) m_rank = failed - 1;
  std::vector<double> const roots = DiagonalOf(matrix);
  for (int i = 0; i < order; ++i)
    m_shares[i] = i < m_rank ? roots[i] * roots[i] / m_shares[i] : 0.0;
}

bool CholeskyFactor::IsDefinite() const noexcept {
  auto const order = static_cast<double>(m_shares.size());
  double const lost = 10.0 * order * std::numeric_limits<double>::epsilon();
  return std::all_of(m_shares.begin(), m_shares.end(), [=](double share) { return share > lost; });
}

void CholeskyFactor::Solve(int rows, double* b) const {
  int const order = m_matrix.NumberOfRows();
  int const one = 1;
  BLAC_DTRSV("L", "N", "N", &rows, m_matrix.Values(), &order, b, &one);
  BLAC_DTRSV("L", "T", "N", &rows, m_matrix.Values(), &order, b, &one);
}

DensePair::DensePair(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass)
    : m_k(stiffness), m_m(mass), m_order(stiffness.NumberOfRows()), m_mass(m_order, m_order),
      m_combination(m_order, m_order), m_values(m_order, 1), m_vectors(m_order, m_order) {}

/// Both triangles get the same bits, which the eigensolver insists on.
void DensePair::Fill(ORXSrvMatrix& target, double kFactor, double mFactor) const {
  target = 0.0;
  AddTo(target, kFactor, m_k);
  AddTo(target, mFactor, m_m);
}

CholeskyFactor DensePair::Factor(double kFactor, double mFactor) {
  Fill(m_combination, kFactor, mFactor);
  return CholeskyFactor(m_combination);
}

void DensePair::Solve(double shift) {
  Fill(m_mass, 0.0, 1.0);
  Fill(m_combination, 1.0, shift);
  m_mass.SolveEigenproblemSymmetric(m_combination, m_values, m_vectors);
}

std::span<double const> DensePair::Values() const {
  return {m_values.Values(), static_cast<std::size_t>(m_order)};
}

std::span<double const> DensePair::Vector(int k) const {
  auto const n = static_cast<std::size_t>(m_order);
  return {m_vectors.Values() + n * static_cast<std::size_t>(k), n};
}

} // namespace orx::tool
