#pragma once

#include "mtx/ORXSrvMatrix.h"
#include "tests/support/Dense.h"
#include "tests/support/Raised.h"

#include <algorithm>
#include <initializer_list>

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

/// Element (i, j) of either storage.
inline double At(ORXSrvMatrix const& a, int i, int j) {
  if (a.IsDiagonal()) return i == j ? a.Values()[i] : 0.0;
  return a.Values()[j * a.NumberOfRows() + i];
}

/// Rows and columns of a matrix of any class.
template<class Matrix>
std::pair<int, int> SizeOf(Matrix const& matrix) {
  return {matrix.NumberOfRows(), matrix.NumberOfColumns()};
}

/// A copy in full storage.
inline Dense DenseOf(ORXSrvMatrix const& a) {
  return Filled(a.NumberOfRows(), a.NumberOfColumns(), [&](int i, int j) { return At(a, i, j); });
}
inline ORXSrvMatrix MatrixOf(Dense const& a) {
  ORXSrvMatrix matrix(a.rows, a.columns);
  std::copy(a.values.begin(), a.values.end(), matrix.Values());
  return matrix;
}
inline ORXSrvMatrix RandomFull(int rows, int columns) { return MatrixOf(Random(rows, columns)); }
/// A matrix over the values of one without gaps.
inline ORXSrvMatrix Lent(Dense& a) { return {a.rows, a.columns, a.Data()}; }

/// The stored values in storage order.
inline std::vector<double> Stored(ORXSrvMatrix const& matrix) {
  return {matrix.Values(), matrix.Values() + matrix.NumberOfStoredValues()};
}

using Doubles = std::vector<double>;
