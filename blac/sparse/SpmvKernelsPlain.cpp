#include "blac/sparse/SpmvKernels.h"

#include <algorithm>
#include <array>

namespace orx::blac {
namespace {

template<int vectors>
void Multiply(SpmvOperands const& s) {
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    std::array<double, vectors> sums{};
    for (int k = s.matrix.rowPointers[i]; k < s.matrix.rowPointers[i + 1]; ++k)
      for (int v = 0; v < vectors; ++v)
        sums[v] += s.matrix.values[k] * s.x[v * s.columns + s.matrix.columnIndices[k]];
    for (int v = 0; v < vectors; ++v)
      s.y[v * s.rows + i] = sums[v];
  }
}

template<int vectors>
void MultiplyTransposed(SpmvOperands const& s) {
  std::fill_n(s.y, s.columns * vectors, 0.0);
  for (std::ptrdiff_t p = 0; p < s.rows; ++p) {
    std::ptrdiff_t const row = s.rowList != nullptr ? s.rowList[p] : p;
    std::array<double, vectors> factors;
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + p];
    for (int k = s.matrix.rowPointers[row]; k < s.matrix.rowPointers[row + 1]; ++k)
      for (int v = 0; v < vectors; ++v)
        s.y[v * s.columns + s.matrix.columnIndices[k]] += factors[v] * s.matrix.values[k];
  }
}

template<int vectors>
void MultiplySymmetric(SpmvOperands const& s) {
  std::fill_n(s.y, s.rows * vectors, 0.0);
  for (std::ptrdiff_t i = 0; i < s.columns; ++i)
    for (int v = 0; v < vectors; ++v) {
      double const* const x = s.x + v * s.rows;
      double* const y = s.y + v * s.rows;
      double sum = 0.0;
      for (int k = s.matrix.rowPointers[i]; k < s.matrix.rowPointers[i + 1]; ++k) {
        sum += s.matrix.values[k] * x[s.matrix.columnIndices[k]];
        y[s.matrix.columnIndices[k]] += s.matrix.values[k] * x[i];
      }
      y[i] += s.diagonal[i] * x[i] + sum;
    }
}

constexpr SpmvKernel products[vectorsInGroup] = {&Multiply<1>, &Multiply<2>, &Multiply<3>, &Multiply<4>,
                                                 &Multiply<5>, &Multiply<6>, &Multiply<7>, &Multiply<8>};
constexpr SpmvKernel transposedProducts[vectorsInGroup] = {
    &MultiplyTransposed<1>, &MultiplyTransposed<2>, &MultiplyTransposed<3>, &MultiplyTransposed<4>,
    &MultiplyTransposed<5>, &MultiplyTransposed<6>, &MultiplyTransposed<7>, &MultiplyTransposed<8>};
constexpr SpmvKernel symmetricProducts[vectorsInGroup] = {
    &MultiplySymmetric<1>, &MultiplySymmetric<2>, &MultiplySymmetric<3>, &MultiplySymmetric<4>,
    &MultiplySymmetric<5>, &MultiplySymmetric<6>, &MultiplySymmetric<7>, &MultiplySymmetric<8>};

} // namespace

constexpr SpmvKernels plainSpmvKernels{products, transposedProducts, symmetricProducts};

} // namespace orx::blac
