#pragma once

#include "tests/mtx/MatrixSupport.h"
#include "tests/mtx/SparseSupport.h"

#include <cstdint>
#include <map>
#include <utility>

/// All entries of a sparse matrix, those that are not stored being zero.
inline Dense DenseOf(ORXSrvSparseMatrix const& matrix) {
  Dense dense = Constant(matrix.NumberOfRows(), matrix.NumberOfColumns(), 0.0);
  for (ORXSrvSparseMatrixEntry const& e : EntriesOf(matrix))
    dense(static_cast<int>(e.row), static_cast<int>(e.column)) += e.value;
  return dense;
}

/// Small integers, zeros among them, in places of which some rows and columns have none, some many, and
/// neighbours the same.
inline SparsePtr RandomMatrix(unsigned seed, int rows, int columns) {
  std::mt19937 random(seed);
  std::vector<bool> pattern(columns);
  Entries entries;
  for (int i = 0; i < rows; ++i) {
    if (i == 0 || random() % 2 == 0)
      for (int j = 0, density = static_cast<int>(random() % 4); j < columns; ++j)
        pattern[j] = j % 5 != 4 && static_cast<int>(random() % 4) < density;
    for (int j = 0; j < columns; ++j)
      if (pattern[j])
        entries.push_back({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j),
                           static_cast<double>(random() % 11) - 5.0});
  }
  if (entries.empty()) entries.push_back({0, 0, 1.0});
  return NewAssembled(rows, columns, entries);
}

/// A matrix in symmetric form.
struct Pairs {
  /// Where the entry of a pair is stored; Either: one or the other, rows in any order.
  enum class Side : std::uint8_t { Below, Above, Either };

  std::vector<int> rowPointers{0}, columns;
  Doubles values, diagonal;

  /// The pairs of the places of `entries`, with their values.
  Pairs(Entries const& entries, int n, Side side) : diagonal(n, 0.5) {
    std::mt19937 random(static_cast<unsigned>(n));
    std::map<std::pair<std::uint32_t, std::uint32_t>, double> pairs;
    for (ORXSrvSparseMatrixEntry const& e : entries) {
      auto const [low, high] = std::minmax(e.row, e.column);
      if (e.row == e.column) diagonal[e.row] = e.value;
      if (e.row != e.column) pairs[{low, high}] = e.value;
    }
    std::vector<std::vector<std::pair<int, double>>> rows(n);
    for (auto const& [place, value] : pairs) {
      bool const isBelow = side == Side::Below || (side == Side::Either && random() % 2 == 0);
      rows[isBelow ? place.second : place.first].push_back(
          {static_cast<int>(isBelow ? place.first : place.second), value});
    }
    for (auto& row : rows) {
      if (side == Side::Either && random() % 2 == 0) std::shuffle(row.begin(), row.end(), random);
      for (auto const& [column, value] : row) {
        columns.push_back(column);
        values.push_back(value);
      }
      rowPointers.push_back(static_cast<int>(columns.size()));
    }
  }
  SparsePtr NewMatrix() const {
    auto const n = static_cast<int>(diagonal.size());
    return ORXSrvSparseMatrixTestAccess::Adopt(rowPointers, columns, values, &diagonal,
                                               n + static_cast<int>(columns.size()), n);
  }
};

inline Pairs RandomPairs(unsigned seed, int n) {
  return {EntriesOf(*RandomMatrix(seed, n, n)), n, Pairs::Side::Either};
}

/// A square matrix that is large enough for what products do with large ones.
struct LargePattern {
  char const* name;
  Entries entries;
  int n;
};

inline std::vector<LargePattern> LargePatterns() {
  std::mt19937 random(3);
  auto const value = [&] {
    return std::ldexp(static_cast<double>(random()) - 2e9, static_cast<int>(random() % 20));
  };
  std::vector<LargePattern> patterns;
  auto const begin = [&](char const* name, int n) { patterns.push_back({name, {}, n}); };
  auto const add = [&](int i, int j) {
    patterns.back().entries.push_back(
        {static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j), value()});
  };

  begin("three unknowns a node", 3 * 400); // of a grid of 20 x 20 nodes
  for (int node = 0; node < 400; ++node)
    for (int const step : {-21, -20, -19, -1, 0, 1, 19, 20, 21})
      if (node + step >= 0 && node + step < 400)
        for (int k = 0; k < 9; ++k)
          add(3 * node + k / 3, 3 * (node + step) + k % 3);
  begin("one unknown a node", 70 * 50); // of a grid of 70 x 50 nodes
  for (int node = 0; node < 3500; ++node)
    for (int const step : {-71, -70, -69, -1, 0, 1, 69, 70, 71})
      if (int const x = node % 70 + (step + 71) % 70 - 1; x >= 0 && x < 70)
        if (node + step >= 0 && node + step < 3500) add(node, node + step);
  begin("a mesh without structure", 6000);
  for (int i = 0; i < 6000; ++i)
    for (int k = static_cast<int>(random() % 8); k < 14; ++k)
      for (int const j : {i, i + static_cast<int>(random() % 60)})
        if (j < 6000) {
          add(i, j);
          if (j > i) add(j, i);
        }
  begin("anywhere", 40000);
  for (int i = 0; i < 40000; ++i)
    for (int k = 0; k < 4; ++k)
      add(i, static_cast<int>(random() % 40000));
  begin("a band and full borders", 12000);
  for (int i = 0; i < 12000; ++i)
    for (int const j : {0, i - 1, i, i + 1, i + 300, 11999})
      if (j >= 0 && j < 12000) add(i, j);
  for (int j = 0; j < 12000; ++j) {
    add(0, j);
    add(11999, j);
  }
  begin("now and then far away", 30000);
  for (int i = 0; i < 30000; ++i)
    for (int const j : {i, (i + 7) % 30000, i % 10 == 0 ? (i + 15000) % 30000 : i / 2})
      add(i, j);
  return patterns;
}
