#pragma once

// Products of compressed rows as their definition states them, to the last bit.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

/// The same bits; one NaN is as good as another.
inline testing::AssertionResult SameBits(std::vector<double> const& expected,
                                         std::vector<double> const& actual) {
  auto const same = [](double x, double y) {
    return (std::isnan(x) && std::isnan(y)) ||
           std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y);
  };
  auto const [e, a] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end(), same);
  if (e == expected.end() && a == actual.end()) return testing::AssertionSuccess();
  if (e == expected.end() || a == actual.end()) return testing::AssertionFailure() << "lengths differ";
  return testing::AssertionFailure() << "element " << e - expected.begin() << " is " << *a
                                     << " and should be " << *e;
}

/// The symmetric form times the columns of x. The rows hold the entries beside the diagonal; those behind the
/// last row count for zero.
inline std::vector<double> StatedSymmetricProduct(std::vector<int> const& rowPointers,
                                                  std::vector<int> const& columns,
                                                  std::vector<double> const& values,
                                                  std::vector<double> const& diagonal,
                                                  std::vector<double> const& x) {
  std::vector<double> y(x.size());
  for (std::size_t first = 0; first < x.size(); first += diagonal.size())
    for (std::size_t i = 0; i + 1 < rowPointers.size(); ++i) {
      double sum = 0.0;
      for (int k = rowPointers[i]; k < rowPointers[i + 1]; ++k) {
        sum += values[k] * x[first + columns[k]];
        y[first + columns[k]] += values[k] * x[first + i];
      }
      y[first + i] += diagonal[i] * x[first + i] + sum;
    }
  return y;
}
