#pragma once

#include "core/ORXBasException.h"
#include "mtx/ORXSrvMatrix.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
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
