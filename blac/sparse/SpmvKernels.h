#pragma once

#include "blac/sparse/RowArrays.h"

#include <cstddef>

// The SpMV kernels. A kernel multiplies a sparse matrix with a group of one to eight vectors in one pass over
// the rows, which loads each entry of the matrix from memory once for all vectors of the group. There is one
// kernel for each number of vectors, and a table of them for each instruction set. All tables give the same
// bits: no kernel changes the order in which the products of a vector are added up, and none fuses a
// multiplication with an addition.

namespace orx::blac {

/// A product with more vectors makes one pass for each group.
constexpr int vectorsInGroup = 8;

/// The operands of a kernel. The vectors of x lie one behind the other without gaps, and so do the vectors of
/// y. Their lengths follow from the product:
///
///     product              y(i) = sum of a(i, j) * x(j)           x: `columns` long, y: `rows` long
///     transposed product   y(j) = sum of x(p) * a(row(p), j)      x: `rows` long, y: `columns` long
///     symmetric product    for rows i = 0 ... columns - 1:        x and y: `rows` long
///                            t = 0; for each entry: t += a(i, j) * x(j), y(j) += a(i, j) * x(i)
///                            y(i) += diagonal(i) * x(i) + t
///
/// The columns of a row may come in any order, and more than once.
struct SpmvOperands {
  RowArrays matrix;
  int const* rowList;  ///< transposed product: row(p) is rowList[p]; null stands for row(p) = p
  std::ptrdiff_t rows; ///< with a row list, the length of the list
  std::ptrdiff_t columns;
  double const* x;
  double* y;                        ///< overwritten, whatever it holds
  double const* diagonal = nullptr; ///< symmetric product only: `columns` values
};

using SpmvKernel = void (*)(SpmvOperands const&);

/// The kernels for one instruction set. Element n - 1 of each table multiplies n vectors.
struct SpmvKernels {
  SpmvKernel const* product;
  SpmvKernel const* transposedProduct;
  /// Where neighbouring rows share their columns, the interleaved kernel is faster from three vectors on.
  SpmvKernel const* symmetricProduct;
};

/// In plain C++: the definition of the bits that all other tables give.
extern SpmvKernels const plainSpmvKernels;
#ifdef __x86_64__
/// For processors with AVX2.
extern SpmvKernels const avx2SpmvKernels;
extern SpmvKernel const avx2Product[vectorsInGroup];
extern SpmvKernel const avx2TransposedProduct[vectorsInGroup];
extern SpmvKernel const avx2SymmetricProduct[vectorsInGroup];
#endif
/// The fastest kernels that this processor can run.
SpmvKernels const& ChooseSpmvKernels();

/// Multiplies groups of `groupSize` vectors each, and a last group of fewer. lengthX and lengthY are the
/// lengths of one vector. Nothing is written for no vectors.
void MultiplyGroups(SpmvKernel const* kernels, SpmvOperands operands, std::ptrdiff_t lengthX,
                    std::ptrdiff_t lengthY, int vectors, int groupSize = vectorsInGroup);

} // namespace orx::blac
