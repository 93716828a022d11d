#pragma once

// Sparse matrices whose eigenvalues are known in closed form; what progress was reported.

#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "tests/support/Dense.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <random>
#include <string>
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

inline Dense ToDense(Sparse const& a) {
  Dense dense = Constant(a.NumberOfRows(), a.NumberOfColumns(), 0.0);
  orx::ForEachEntry(a.View(), [&](int i, int j, double value) { dense(i, j) += value; });
  return dense;
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

/// A beam of unit length, stiffness and mass per length, of Hermite elements: deflection and slope at each
/// node, less those of `fixed`, which is sorted.
class Beam {
public:
  explicit Beam(int elements, std::vector<int> const& fixed = {}) : m_elements(elements) {
    for (int i = 0; i < 2 * elements + 2; ++i)
      m_unknowns.push_back(std::ranges::binary_search(fixed, i) ? -1 : m_order++);
  }

  int Order() const { return m_order; }
  Sparse K() const {
    double const h = 1.0 / m_elements, h2 = h * h;
    double const e[4][4] = {{12, 6 * h, -12, 6 * h},
                            {6 * h, 4 * h2, -6 * h, 2 * h2},
                            {-12, -6 * h, 12, -6 * h},
                            {6 * h, 2 * h2, -6 * h, 4 * h2}};
    return Sum(e, 1 / (h2 * h));
  }
  Sparse M() const {
    double const h = 1.0 / m_elements, h2 = h * h;
    double const e[4][4] = {{156, 22 * h, 54, -13 * h},
                            {22 * h, 4 * h2, 13 * h, -3 * h2},
                            {54, 13 * h, 156, -22 * h},
                            {-13 * h, -3 * h2, -22 * h, 4 * h2}};
    return Sum(e, h / 420);
  }

private:
  Sparse Sum(double const (&e)[4][4], double factor) const {
    return Assembled(m_order, [&](auto add) {
      for (std::size_t at = 0; at + 3 < m_unknowns.size(); at += 2)
        for (std::size_t i = 0; i < 4; ++i)
          for (std::size_t j = 0; j < 4; ++j)
            if (m_unknowns[at + i] >= 0 && m_unknowns[at + j] >= 0)
              add(m_unknowns[at + i], m_unknowns[at + j], factor * e[i][j]);
    });
  }

  int m_elements, m_order = 0;
  std::vector<int> m_unknowns; ///< -1 for those that are fixed
};

/// Records what is reported while it lives, and can stop the work.
class Recording {
public:
  /// Stops at the report of this number, counted from 0, or never.
  explicit Recording(std::size_t stopAt = SIZE_MAX) : m_stopAt(stopAt) { ORXSrvProgress::Set(Record, this); }
  Recording(Recording const&) = delete;
  Recording& operator=(Recording const&) = delete;
  ~Recording() { ORXSrvProgress::Set(nullptr, nullptr); }

  std::vector<std::string> const& Reported() const { return m_reported; }

private:
  static bool Record(void* self, char const* operation, std::int64_t, std::int64_t) {
    auto& recording = *static_cast<Recording*>(self);
    recording.m_reported.emplace_back(operation);
    return recording.m_reported.size() <= recording.m_stopAt;
  }

  std::size_t m_stopAt;
  std::vector<std::string> m_reported;
};
