#pragma once

// Sparse matrices whose eigenvalues are known in closed form.

#include "mtx/ORXSrvSparseMatrix.h"

#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

using Sparse = ORXSrvSparseMatrix;

/// Assembles what fill(add) adds with add(row, column, value).
template<class Fill>
Sparse Assembled(int order, Fill const& fill) {
  Sparse a(order, order);
  a.BeginAssembly();
  fill([&](int i, int j, double value) {
    a.AddData(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j), value);
  });
  a.EndAssembly();
  return a;
}

inline Sparse DiagonalMatrix(std::vector<double> const& values) {
  return Assembled(static_cast<int>(values.size()), [&](auto add) {
    for (std::size_t i = 0; i < values.size(); ++i)
      add(static_cast<int>(i), static_cast<int>(i), values[i]);
  });
}
inline Sparse UnitMass(int order) {
  return DiagonalMatrix(std::vector<double>(static_cast<std::size_t>(order), 1.0));
}

template<class Add>
void AddSpring(Add const& add, int i, int j, double k) {
  add(i, i, k), add(j, j, k), add(i, j, -k), add(j, i, -k);
}

/// A grid of nx x ny unknowns, each tied to its neighbours by springs of 1, with clamped edges to a ring of
/// nodes outside: the eigenvalues with unit masses are 4 sin^2(i pi / 2(nx+1)) + 4 sin^2(j pi / 2(ny+1)).
inline Sparse Grid(int nx, int ny, bool isFree = false) {
  return Assembled(nx * ny, [&](auto add) {
    for (int y = 0; y < ny; ++y)
      for (int x = 0; x < nx; ++x) {
        int const i = y * nx + x;
        add(i, i, 0.0);
        if (x + 1 < nx) AddSpring(add, i, i + 1, 1.0);
        if (y + 1 < ny) AddSpring(add, i, i + nx, 1.0);
        if (!isFree) add(i, i, (x == 0) + (x + 1 == nx) + (y == 0) + (y + 1 == ny));
      }
  });
}
inline std::vector<double> GridEigenvalues(int nx, int ny, bool isFree = false) {
  auto const along = [&](int k, int n) {
    double const s = std::sin(k * std::numbers::pi / (2.0 * (isFree ? n : n + 1)));
    return 4 * s * s;
  };
  std::vector<double> values;
  for (int j = 0; j < ny; ++j)
    for (int i = 0; i < nx; ++i)
      values.push_back(along(isFree ? i : i + 1, nx) + along(isFree ? j : j + 1, ny));
  std::sort(values.begin(), values.end());
  return values;
}

/// Entries at random, with a given share of them; symmetric if wanted.
inline Sparse RandomMatrix(int order, double share, bool symmetric, unsigned seed) {
  std::mt19937_64 generator(seed);
  std::uniform_real_distribution<double> uniform(-1, 1);
  return Assembled(order, [&](auto add) {
    for (int i = 0; i < order; ++i) {
      add(i, i, 3 * uniform(generator));
      for (int j = 0; j < i; ++j) {
        if (std::abs(uniform(generator)) > share) continue;
        double const value = uniform(generator);
        add(i, j, value);
        add(j, i, symmetric ? value : uniform(generator));
      }
    }
  });
}
