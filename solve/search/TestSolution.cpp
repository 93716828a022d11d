#include "solve/search/TestSolution.h"

#include "solve/search/Vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

namespace orx {

std::vector<double> UnitsOf(FactoredMatrix const& a) {
  std::vector<double> units = a.LargestInRows();
  for (double& unit : units)
    unit = unit > 0.0 ? 1.0 / std::sqrt(unit) : 1.0;
  return units;
}

TestSolution SolveForRandomLoad(FactoredMatrix& a) {
  Processes const& processes = a.SharedBy();
  auto const rows = static_cast<std::size_t>(a.OwnRows());
  std::vector<double> const zero(rows, 0.0);
  std::vector<double> load(rows), residual(rows), weights(rows);
  std::mt19937_64 generator(SeedOf(processes, 1));
  FillRandomly(load, generator);
  a.ComputeResidual(load.data(), zero.data(), residual.data(), weights.data());
  std::ranges::transform(load, weights, load.begin(), std::multiplies{});
  TestSolution test{load, true, 0.0, 0.0, std::numeric_limits<double>::infinity()};
  std::vector<double>& x = test.x;
  a.Solve(x.data(), 1);
  bool const isFinite = std::ranges::all_of(x, [](double value) { return std::isfinite(value); });
  test.isFinite = processes.Largest(isFinite ? 0.0 : 1.0) == 0.0;
  if (!test.isFinite) return test;
  a.ComputeResidual(x.data(), load.data(), residual.data(), weights.data());
  std::vector<double> const units = UnitsOf(a);
  std::array<double, 4> sums{};
  auto& [form, terms, errors, sizes] = sums;
  for (std::size_t i = 0; i < rows; ++i) {
    form += x[i] * (load[i] - residual[i]);
    terms += std::abs(x[i]) * weights[i];
    errors += std::pow(residual[i] * units[i], 2);
    sizes += std::pow(weights[i] * units[i], 2);
  }
  processes.Sum(sums);
  test.form = form;
  test.terms = terms;
  test.error = sizes > 0.0 ? std::sqrt(errors / sizes) : 0.0;
  return test;
}

} // namespace orx
