#pragma once

#include <array>

/// The structure: a membrane that tapers from its clamped root at x = 0 to its free tip, symmetric to the
/// x axis, and its first natural frequencies as published. SI units.
///
/// Source: The Standard NAFEMS Benchmarks, test FV32, "Cantilevered tapered membrane".
namespace fv32 {

constexpr double length = 10.0;
constexpr double rootDepth = 5.0;
constexpr double tipDepth = 1.0;
constexpr double thickness = 0.05;

constexpr double elasticModulus = 200e9;
constexpr double poissonRatio = 0.3;
constexpr double density = 8000.0;

constexpr int modeCount = 6;
constexpr std::array<double, modeCount> publishedFrequencies{44.623, 130.03, 162.70, 246.05, 379.90, 391.44};

/// A difference above this share of the published frequency is a failure.
constexpr double tolerance = 0.005;

} // namespace fv32
