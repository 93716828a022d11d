#pragma once

#include "tests/mpi/MpiSupport.h"

#include <algorithm>

// Sparse matrices of all kinds, in both forms.

/// Entries at random places, where they are allowed.
template<class Allowed>
Arrays RandomArrays(int rows, int columns, int inRow, Allowed isAllowed) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> place(0, columns - 1);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  Arrays a{rows, columns};
  for (int i = 0; i < rows; ++i) {
    std::map<int, double> row;
    for (int k = 0; k < inRow; ++k)
      if (int const j = place(random); isAllowed(i, j)) row[j] = value(random);
    for (auto const& [j, x] : row)
      a.Add(j, x);
    a.EndRow();
  }
  return a;
}

inline Arrays Symmetric(Arrays a) {
  for (int i = 0; i < a.rows; ++i)
    a.diagonal.push_back(2.0 + i);
  return a;
}

/// Each pair once, in rows of either triangle, columns in descending order.
inline Arrays InAnyOrder() {
  Arrays a = RandomArrays(61, 61, 9, [](int i, int j) { return i != j && (i < j) == ((i + j) % 3 == 0); });
  for (int i = 0; i < a.rows; ++i) {
    std::reverse(a.indices.begin() + a.pointers[i], a.indices.begin() + a.pointers[i + 1]);
    std::reverse(a.values.begin() + a.pointers[i], a.values.begin() + a.pointers[i + 1]);
  }
  return Symmetric(std::move(a));
}

/// Positions more than once: beside each other, and as mirror images.
inline Arrays Repeated(bool isSymmetric) {
  Arrays a{4, 4};
  a.Add(2, 1.0), a.Add(0, 0.5), a.Add(2, 0.25), a.EndRow();
  a.EndRow();
  a.Add(3, 8.0), a.Add(0, 4.0), a.EndRow();
  a.Add(2, 16.0), a.EndRow();
  return isSymmetric ? Symmetric(std::move(a)) : a;
}

inline std::map<std::string, Arrays> const& Shapes() {
  auto const all = [](int, int) { return true; };
  auto const lower = [](int i, int j) { return i > j; };
  auto const upper = [](int i, int j) { return i < j; };
  static std::map<std::string, Arrays> const shapes{
      {"one by one", RandomArrays(1, 1, 1, all)},
      {"fewer rows than ranks", RandomArrays(3, 3, 2, all)},
      {"tall", RandomArrays(53, 11, 4, all)},
      {"wide", RandomArrays(5, 97, 30, all)},
      {"empty rows", RandomArrays(40, 40, 3, [](int i, int) { return i % 7 == 6; })},
      {"no entries", RandomArrays(9, 9, 0, all)},
      {"repeated", Repeated(false)},
      {"symmetric: lower", Symmetric(RandomArrays(101, 101, 12, lower))},
      {"symmetric: upper", Symmetric(RandomArrays(101, 101, 12, upper))},
      {"symmetric: any order", InAnyOrder()},
      {"symmetric: repeated", Repeated(true)},
      {"symmetric: diagonal alone", Symmetric(RandomArrays(8, 8, 0, all))},
      {"symmetric: fewer rows than ranks", Symmetric(RandomArrays(2, 2, 3, lower))}};
  return shapes;
}
