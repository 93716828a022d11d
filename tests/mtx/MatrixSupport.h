#pragma once

#include "core/ORXBasException.h"
#include "mtx/ORXSrvMatrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <ostream>
#include <random>
#include <string>
#include <vector>

/// A full matrix written row by row, as on paper.
inline ORXSrvMatrix Full(std::initializer_list<std::initializer_list<double>> rows, bool symmetric = false) {
  int const columns = rows.size() == 0 ? 0 : static_cast<int>(rows.begin()->size());
  ORXSrvMatrix matrix(static_cast<int>(rows.size()), columns, nullptr, symmetric, false);
  int i = 0;
  for (auto const& row : rows) {
    int j = 0;
    for (double const value : row)
      matrix.Values()[j++ * matrix.NumberOfRows() + i] = value;
    ++i;
  }
  return matrix;
}

inline ORXSrvMatrix Diagonal(std::initializer_list<double> values) {
  int const n = static_cast<int>(values.size());
  ORXSrvMatrix matrix(n, n, nullptr, false, true);
  matrix.SetDiagonal(values.begin());
  return matrix;
}

/// Values in [-1, 1).
inline ORXSrvMatrix Random(int rows, int columns, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  ORXSrvMatrix matrix(rows, columns);
  std::generate_n(matrix.Values(), matrix.NumberOfStoredValues(), [&] { return uniform(random); });
  return matrix;
}

/// Element (i, j) of either storage.
inline double At(ORXSrvMatrix const& a, int i, int j) {
  if (a.IsDiagonal()) return i == j ? a.Values()[i] : 0.0;
  return a.Values()[j * a.NumberOfRows() + i];
}

/// The stored values in storage order.
inline std::vector<double> Stored(ORXSrvMatrix const& matrix) {
  return {matrix.Values(), matrix.Values() + matrix.NumberOfStoredValues()};
}

using Doubles = std::vector<double>;

/// The message of what `call` raises; "nothing raised" when it does not.
template<class Call>
std::string Raised(Call call) {
  try {
    call();
  } catch (ORXBasException const& e) {
    return std::to_string(e.ErrorCode()) + " " + e.AsString().AsText();
  }
  return "nothing raised";
}

inline std::string IllegalInput(std::string const& operation) {
  return "206 ORXSrvMatrix::" + operation + " - Illegal input.";
}
