#pragma once

#include "solve/search/Pencil.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace orx {

/// Vectors that are measured at a time. They lie element by element: one pass over the entries serves all,
/// and the loops over a group are vector instructions.
constexpr std::size_t measuredTogether = 8;
using VectorGroup = std::array<double, measuredTogether>;

/// Measures up to measuredTogether vectors. `forK` and `forM` have an element for each unknown that the
/// entries of this process's `rows` rows of K and M name, its own first. forEachK(add) and forEachM(add) call
/// add(row, column, value) for the entries.
template<class ForEachK, class ForEachM>
std::vector<ModeQuality> MeasureGroup(Processes const& processes, std::span<double const> lambdas,
                                      std::size_t rows, std::vector<VectorGroup> const& forK,
                                      std::vector<VectorGroup> const& forM, ForEachK forEachK,
                                      ForEachM forEachM) {
  std::vector<VectorGroup> sums(rows, VectorGroup{}), terms(rows, VectorGroup{});
  VectorGroup factors{};
  std::vector<VectorGroup> const* vectors = &forK;
  auto const add = [&](int row, int column, double value) {
    VectorGroup const& from = (*vectors)[static_cast<std::size_t>(column)];
    VectorGroup &sum = sums[static_cast<std::size_t>(row)], &term = terms[static_cast<std::size_t>(row)];
    for (std::size_t v = 0; v < measuredTogether; ++v) {
      double const product = factors[v] * value * from[v];
      sum[v] += product;
      term[v] += std::abs(product);
    }
  };
  enum Total { strain, strainTerms, residual, size, defect, defectTerms, totalCount };
  std::array<double, totalCount * measuredTogether> totals{};
  auto const total = [&](Total kind, std::size_t v) -> double& {
    return totals[kind * measuredTogether + v];
  };
  auto const project = [&](Total form, Total formTerms) {
    for (std::size_t i = 0; i < rows; ++i)
      for (std::size_t v = 0; v < measuredTogether; ++v) {
        total(form, v) += forK[i][v] * sums[i][v];
        total(formTerms, v) += std::abs(forK[i][v]) * terms[i][v];
      }
  };
  factors.fill(1.0);
  forEachK(add);
  project(strain, strainTerms);
  std::ranges::transform(lambdas, factors.begin(), std::negate{});
  vectors = &forM;
  forEachM(add);
  project(defect, defectTerms);
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t v = 0; v < measuredTogether; ++v) {
      total(residual, v) += sums[i][v] * sums[i][v];
      total(size, v) += terms[i][v] * terms[i][v];
    }
  processes.Sum(totals);
  std::vector<ModeQuality> qualities;
  for (std::size_t v = 0; v < lambdas.size(); ++v)
    qualities.push_back(
        {total(size, v) > 0.0 ? std::sqrt(total(residual, v) / total(size, v)) : 0.0,
         total(strainTerms, v) > 0.0 ? std::abs(total(strain, v)) / total(strainTerms, v) : 0.0,
         total(defect, v), total(defectTerms, v)});
  return qualities;
}

} // namespace orx
