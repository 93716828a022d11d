#include "tools/numerics/SymmetricForm.h"

#include <cmath>
#include <utility>

namespace orx::tool {
namespace {

std::vector<double> Zeros(ORXSrvSparseMatrix const& matrix) {
  return std::vector<double>(static_cast<std::size_t>(matrix.NumberOfRows()), 0.0);
}

/// Sums term(value, xi, xj) over all entries; those off the diagonal are one term for both triangles.
template<class Term>
double SumOfForm(ORXSrvSparseMatrix const& matrix, std::span<double const> x, Term term) {
  CompressedRowsView const rows = matrix.View();
  double sum = 0.0;
  for (std::int32_t i = 0; i < rows.rows; ++i)
    sum += term(rows.diagonal[i], x[i], x[i]);
  ForEachStored(rows, [&](std::int32_t row, std::int32_t column, double value) {
    sum += 2.0 * term(value, x[row], x[column]);
  });
  return sum;
}

} // namespace

KeptUnknowns::KeptUnknowns(int order, std::span<int const> dropped)
    : m_new(static_cast<std::size_t>(order), 0) {
  for (int const unknown : dropped)
    m_new[unknown] = -1;
  for (int i = 0; i < order; ++i) {
    if (m_new[i] < 0) continue;
    m_new[i] = Count();
    m_old.push_back(i);
  }
}

std::vector<double> KeptUnknowns::Expanded(std::span<double const> kept) const {
  std::vector<double> all(m_new.size(), 0.0);
  for (std::size_t i = 0; i < kept.size(); ++i)
    all[m_old[i]] = kept[i];
  return all;
}

ORXSrvSparseMatrix Reduced(ORXSrvSparseMatrix const& matrix, KeptUnknowns const& kept) {
  ORXSrvSparseMatrix reduced(kept.Count(), kept.Count());
  bool const isSymmetricForm = matrix.View().diagonal != nullptr;
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t column, double value) {
    int const newRow = kept.New(row);
    int const newColumn = kept.New(column);
    if (newRow < 0 || newColumn < 0 || (isSymmetricForm && newRow < newColumn)) return;
    reduced.AddData(static_cast<std::uint32_t>(newRow), static_cast<std::uint32_t>(newColumn), value);
  });
  reduced.EndAssembly();
  return isSymmetricForm ? reduced.SymmetricForm() : std::move(reduced);
}

std::vector<double> DiagonalOf(ORXSrvSparseMatrix const& matrix) {
  std::vector<double> diagonal = Zeros(matrix);
  matrix.GetDiagonal(diagonal.data());
  return diagonal;
}

std::vector<bool> NonzeroRows(ORXSrvSparseMatrix const& matrix) {
  std::vector<bool> nonzero(static_cast<std::size_t>(matrix.NumberOfRows()), false);
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t, double value) {
    if (value != 0.0) nonzero[row] = true;
  });
  return nonzero;
}

std::vector<double> Product(ORXSrvSparseMatrix const& matrix, std::span<double const> x) {
  std::vector<double> y = Zeros(matrix);
  matrix.Multiply(x.data(), 1, y.data(), false);
  return y;
}

std::vector<double> AbsoluteProduct(ORXSrvSparseMatrix const& matrix, std::span<double const> x) {
  std::vector<double> y = Zeros(matrix);
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t column, double value) {
    y[row] += std::fabs(value * x[column]);
  });
  return y;
}

double QuadraticForm(ORXSrvSparseMatrix const& matrix, std::span<double const> x) {
  return SumOfForm(matrix, x, [](double a, double xi, double xj) { return a * xi * xj; });
}

double AbsoluteForm(ORXSrvSparseMatrix const& matrix, std::span<double const> x) {
  return SumOfForm(matrix, x, [](double a, double xi, double xj) { return std::fabs(a * xi * xj); });
}

} // namespace orx::tool
