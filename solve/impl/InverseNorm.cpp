#include "solve/impl/InverseNorm.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace orx {

namespace {

using Vector = std::vector<double>;

constexpr int mostSteps = 5;

double OneNorm(Vector const& x) {
  double sum = 0.0;
  for (double const value : x)
    sum += std::abs(value);
  return sum;
}

Vector Signs(Vector const& x) {
  Vector signs(x.size());
  std::ranges::transform(x, signs.begin(), [](double value) { return value < 0.0 ? -1.0 : 1.0; });
  return signs;
}

std::size_t PositionOfLargest(Vector const& x) {
  auto const isSmaller = [](double a, double b) { return std::abs(a) < std::abs(b); };
  return static_cast<std::size_t>(std::ranges::max_element(x, isSmaller) - x.begin());
}

/// |A^-1 x| of the vector that the ascent from the mean of all unit vectors ends at.
double Climb(Vector x, SolveFunction const& solve) {
  Vector signs;
  double norm = 0.0;
  std::size_t position = x.size();
  for (int step = 0; step < mostSteps; ++step) {
    solve(x.data(), false);
    double const before = std::exchange(norm, std::max(norm, OneNorm(x)));
    Vector const signsBefore = std::exchange(signs, Signs(x));
    if (step > 0 && (norm <= before || signs == signsBefore)) break;
    Vector gradient = signs;
    solve(gradient.data(), true);
    std::size_t const next = PositionOfLargest(gradient);
    if (position < x.size() && std::abs(gradient[next]) <= std::abs(gradient[position])) break;
    position = next;
    std::ranges::fill(x, 0.0);
    x[position] = 1.0;
  }
  return norm;
}

/// 1, -(1 + 1/(n-1)), 1 + 2/(n-1), ..., (-1)^(n-1) 2: its own norm is 3n/2.
Vector AlternatingVector(std::size_t order) {
  Vector x(order);
  for (std::size_t i = 0; i < order; ++i)
    x[i] = (i % 2 == 0 ? 1.0 : -1.0) * (1.0 + static_cast<double>(i) / static_cast<double>(order - 1));
  return x;
}

} // namespace

double EstimateInverseNorm(int order, SolveFunction const& solve) {
  Vector const mean(static_cast<std::size_t>(order), 1.0 / order);
  double const norm = Climb(mean, solve);
  if (order == 1) return norm;
  Vector x = AlternatingVector(mean.size());
  solve(x.data(), false);
  return std::max(norm, 2.0 * OneNorm(x) / (3.0 * order));
}

} // namespace orx
