#include "blac/sparse/SparseSweeps.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orx::blac {
namespace {

template<int vectors>
void Product(SparseSweep const& s) {
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    std::array<double, vectors> sums{};
    for (int k = s.ia[i]; k < s.ia[i + 1]; ++k)
      for (int v = 0; v < vectors; ++v)
        sums[v] += s.a[k] * s.x[v * s.columns + s.ja[k]];
    for (int v = 0; v < vectors; ++v)
      s.y[v * s.rows + i] = sums[v];
  }
}

template<int vectors>
void TransposedProduct(SparseSweep const& s) {
  std::fill_n(s.y, s.columns * vectors, 0.0);
  for (std::ptrdiff_t p = 0; p < s.rows; ++p) {
    std::ptrdiff_t const row = s.list != nullptr ? s.list[p] : p;
    std::array<double, vectors> factors;
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + p];
    for (int k = s.ia[row]; k < s.ia[row + 1]; ++k)
      for (int v = 0; v < vectors; ++v)
        s.y[v * s.columns + s.ja[k]] += factors[v] * s.a[k];
  }
}

template<int vectors>
void SymmetricProduct(SparseSweep const& s) {
  std::fill_n(s.y, s.rows * vectors, 0.0);
  for (std::ptrdiff_t i = 0; i < s.columns; ++i)
    for (int v = 0; v < vectors; ++v) {
      double const* const x = s.x + v * s.rows;
      double* const y = s.y + v * s.rows;
      double sum = 0.0;
      for (int k = s.ia[i]; k < s.ia[i + 1]; ++k) {
        sum += s.a[k] * x[s.ja[k]];
        y[s.ja[k]] += s.a[k] * x[i];
      }
      y[i] += s.diagonal[i] * x[i] + sum;
    }
}

template<int... n>
constexpr SparseSweepSet MakeSet(std::integer_sequence<int, n...>) {
  return {{&Product<n + 1>...}, {&TransposedProduct<n + 1>...}, {&SymmetricProduct<n + 1>...}};
}

} // namespace

constexpr SparseSweepSet plainSparseSweeps = MakeSet(std::make_integer_sequence<int, vectorsInGroup>());

} // namespace orx::blac
