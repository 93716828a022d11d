#pragma once

#include "blac/BLAC.h"
#include "solve/search/Processes.h"

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

/// Processes fill their parts of a vector with different values.
inline std::mt19937_64::result_type SeedOf(Processes const& processes, std::mt19937_64::result_type seed) {
  return seed + 0x9e3779b97f4a7c15 * static_cast<std::mt19937_64::result_type>(processes.Rank());
}

} // namespace orx
