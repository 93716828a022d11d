#pragma once

#include "solve/ORXSrvModes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <vector>

inline double Hertz(double eigenvalue) {
  return std::copysign(std::sqrt(std::abs(eigenvalue)) / (2 * std::numbers::pi), eigenvalue);
}

/// Checks that modes are certified and have these eigenvalues.
inline void ExpectModes(ORXSrvModes const& modes, std::vector<double> const& expected, double scale) {
  EXPECT_TRUE(modes.IsCertified());
  for (ORXSrvModeCount const& count : modes.Counts())
    EXPECT_EQ(count.found, count.counted) << count.from << " to " << count.to;
  ASSERT_EQ(modes.Modes().size(), expected.size());
  for (std::size_t k = 0; k < expected.size(); ++k) {
    ORXSrvMode const& mode = modes.Modes()[k];
    EXPECT_NEAR(mode.eigenvalue, expected[k], 1e-10 * std::abs(expected[k]) + 1e-13 * scale)
        << "mode " << k + 1;
    EXPECT_LE(std::abs(mode.eigenvalue - expected[k]), 2 * mode.error + 4e-16 * scale)
        << "bound of mode " << k + 1;
    EXPECT_LT(mode.residual, 1e-7) << "mode " << k + 1;
    EXPECT_DOUBLE_EQ(mode.frequency, Hertz(mode.eigenvalue));
  }
}

inline std::vector<double> First(std::vector<double> const& values, int count) {
  return {values.begin(), values.begin() + count};
}
inline std::vector<double> Between(std::vector<double> const& values, double from, double to) {
  std::vector<double> inside;
  std::copy_if(values.begin(), values.end(), std::back_inserter(inside),
               [&](double v) { return v >= from && v <= to; });
  return inside;
}
