#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

inline constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A matrix stored by columns whose leading dimension is larger than its rows: what takes one for the other,
/// or writes between the columns, does not stay unseen. A vector is a 1 x n matrix: its stride is `ld`.
struct Dense {
  Dense(int rows, int columns, int gap = 1);

  double& operator()(int i, int j) { return values[Index(i, j)]; }
  double operator()(int i, int j) const { return values[Index(i, j)]; }
  double* Data() { return values.data(); }
  double const* Data() const { return values.data(); }

  int rows, columns, ld;
  std::vector<double> values; ///< NaN between the columns

private:
  std::size_t Index(int i, int j) const {
    return static_cast<std::size_t>(i) + static_cast<std::size_t>(j) * ld;
  }
};

/// The element-wise definition f(i, j).
Dense Filled(int rows, int columns, int gap, std::function<double(int, int)> const& f);
/// Uniform in [-1, 1), the same in every run.
Dense Random(int rows, int columns, int gap = 1);
Dense RandomSymmetric(int n, double addedToDiagonal = 0);
Dense Identity(int n);
Dense Transposed(Dense const& a);
/// op(A) by the letter of the option.
Dense Op(char trans, Dense const& a);
/// The triangle as a full matrix; `other` stands in the other one.
Dense Triangle(char uplo, Dense const& a, double other = 0, char diag = 'N');
/// The symmetric matrix whose triangle `uplo` is that of `half`.
Dense Mirrored(char uplo, Dense const& half);
/// The triangle column by column without gaps, and back to a full matrix with zeros in the other one.
std::vector<double> Packed(char uplo, Dense const& a);
Dense Unpacked(char uplo, std::vector<double> const& packed, int n);

Dense operator*(Dense const& a, Dense const& b);
Dense operator*(double factor, Dense const& a);
Dense operator+(Dense const& a, Dense const& b);

/// Element-wise |actual - expected| <= tolerance, and nothing written between the columns of `actual`.
testing::AssertionResult Near(Dense const& expected, Dense const& actual, double tolerance = 1e-12);

/// What the program's own error handler was last told, as "name/position"; forgets it. Empty without a call.
std::string TakeReport();
