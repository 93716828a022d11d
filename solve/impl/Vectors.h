#pragma once

#include "blac/BLAC.h"

#include <algorithm>
#include <random>
#include <span>
#include <vector>

namespace orx {

inline double Dot(int count, double const* x, double const* y) {
  int const one = 1;
  return BLAC_DDOT(&count, x, &one, y, &one);
}

inline double Dot(std::vector<double> const& x, std::vector<double> const& y) {
  return Dot(static_cast<int>(x.size()), x.data(), y.data());
}

/// Independent values between -1 and 1.
inline void FillRandomly(std::span<double> x, std::mt19937_64& generator) {
  std::uniform_real_distribution<double> distribution(-1.0, 1.0);
  std::ranges::generate(x, [&] { return distribution(generator); });
}

} // namespace orx
