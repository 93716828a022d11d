#pragma once

// Dense matrices and their operations by definition: what the library's should give.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

inline constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A matrix stored by columns. With a leading dimension that is larger than its rows, what takes one for the
/// other, or writes between the columns, does not stay unseen.
struct Dense {
  Dense(int rowCount, int columnCount, int gap = 0)
      : rows(rowCount), columns(columnCount), ld(rowCount + gap),
        values(static_cast<std::size_t>(ld) * static_cast<std::size_t>(columnCount), notANumber) {}

  double& operator()(int i, int j) { return values[Index(i, j)]; }
  double operator()(int i, int j) const { return values[Index(i, j)]; }
  double* Data() { return values.data(); }
  double const* Data() const { return values.data(); }
  int Gap() const { return ld - rows; }

  int rows, columns, ld;
  std::vector<double> values; ///< NaN between the columns

private:
  std::size_t Index(int i, int j) const {
    return static_cast<std::size_t>(i) + static_cast<std::size_t>(j) * static_cast<std::size_t>(ld);
  }
};

/// The matrix whose (i, j) is f(i, j).
template<class Function>
Dense Filled(int rows, int columns, int gap, Function const& f) {
  Dense result(rows, columns, gap);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < rows; ++i)
      result(i, j) = f(i, j);
  return result;
}
template<class Function>
Dense Filled(int rows, int columns, Function const& f) {
  return Filled(rows, columns, 0, f);
}
inline Dense Constant(int rows, int columns, double value) {
  return Filled(rows, columns, [=](int, int) { return value; });
}
inline Dense Identity(int n, int gap = 1) {
  return Filled(n, n, gap, [](int i, int j) { return i == j ? 1 : 0; });
}

/// Integers of at most two digits: sums of their products are exact in any order.
inline Dense Integers(int rows, int columns, int seed) {
  return Filled(rows, columns, [=](int i, int j) { return (i * 37 + j * 101 + seed * 53) % 97 - 48; });
}
/// Uniform in [-1, 1), the same in every run.
inline Dense Random(int rows, int columns, int gap = 0) {
  static std::mt19937_64 generator;
  std::uniform_real_distribution<double> distribution(-1, 1);
  return Filled(rows, columns, gap, [&](int, int) { return distribution(generator); });
}

inline Dense Transposed(Dense const& a) {
  return Filled(a.columns, a.rows, a.Gap(), [&](int i, int j) { return a(j, i); });
}
inline Dense LeadingRows(Dense const& a, int rows) {
  return Filled(rows, a.columns, [&](int i, int j) { return a(i, j); });
}

inline Dense Absolute(Dense const& a) {
  return Filled(a.rows, a.columns, a.Gap(), [&](int i, int j) { return std::abs(a(i, j)); });
}

/// Columns of the product are summed in the order of A's columns.
inline Dense operator*(Dense const& a, Dense const& b) {
  Dense product = Filled(a.rows, b.columns, a.Gap(), [](int, int) { return 0; });
  for (int j = 0; j < b.columns; ++j)
    for (int l = 0; l < a.columns; ++l)
      for (int i = 0; i < a.rows; ++i)
        product(i, j) += a(i, l) * b(l, j);
  return product;
}
inline Dense operator*(double factor, Dense const& a) {
  return Filled(a.rows, a.columns, a.Gap(), [&](int i, int j) { return factor * a(i, j); });
}
inline Dense operator+(Dense const& a, Dense const& b) {
  return Filled(a.rows, a.columns, a.Gap(), [&](int i, int j) { return a(i, j) + b(i, j); });
}
/// Where inside(i, j), elsewhere `outside`.
template<class Inside>
Dense Masked(Dense const& a, double outside, Inside const& inside) {
  return Filled(a.rows, a.columns, [&](int i, int j) { return inside(i, j) ? a(i, j) : outside; });
}

inline void PrintTo(Dense const& a, std::ostream* out) {
  for (int i = 0; i < a.rows; ++i) {
    *out << '\n';
    for (int j = 0; j < a.columns; ++j)
      *out << ' ' << a(i, j);
  }
}

/// Element-wise |actual - expected| <= tolerance, and nothing written between the columns of `actual`.
inline testing::AssertionResult Near(Dense const& expected, Dense const& actual, double tolerance = 1e-12) {
  if (expected.rows != actual.rows || expected.columns != actual.columns)
    return testing::AssertionFailure() << "sizes differ";
  for (int j = 0; j < actual.columns; ++j) {
    for (int i = 0; i < actual.rows; ++i)
      if (!(std::abs(actual(i, j) - expected(i, j)) <= tolerance))
        return testing::AssertionFailure() << "element (" << i << ", " << j << ") is " << actual(i, j)
                                           << " and should be " << expected(i, j);
    for (int i = actual.rows; i < actual.ld; ++i)
      if (!std::isnan(actual(i, j))) return testing::AssertionFailure() << "written below column " << j;
  }
  return testing::AssertionSuccess();
}
inline bool operator==(Dense const& a, Dense const& b) { return bool(Near(a, b, 0.0)); }
