#pragma once

#include <cstddef>

// How the sparse kernels are made. A kernel splits its vectors into groups of eight and one rest of one to
// seven, and makes one sweep over the rows for each group, so that an entry of the matrix is fetched from
// memory once for all the vectors of a group. There is one sweep for each number of vectors, and a set of
// them for each instruction set. All sets give the same bits: none changes the order in which the products of
// a vector are added up, and none fuses a multiplication with an addition.

namespace orx::blac {

constexpr int vectorsInGroup = 8;

/// What a sweep works on. Vector v of x begins at x + v * (its length), y likewise.
///
///     product:             y(i) = sum of a(i, j) * x(j)           x: columns long, y: rows long
///     transposed product:  y(j) = sum of x(p) * a(row(p), j)      x: rows long, y: columns long
///     symmetric product:   for rows i < columns in turn           both: rows long
///                            t = 0; for each entry: t += a(i, j) * x(j), y(j) += a(i, j) * x(i)
///                            y(i) += diagonal(i) * x(i) + t
///
/// Row i of the matrix has the entries ia[i] ... ia[i + 1] - 1. The columns of a row may come in any order,
/// more than once too.
struct SparseSweep {
  double const* a;
  int const* ia;
  int const* ja;
  int const* list; ///< transposed product: row(p) is list[p], or p where this is null
  std::ptrdiff_t rows;
  std::ptrdiff_t columns;
  double const* x;
  double* y;                        ///< overwritten
  double const* diagonal = nullptr; ///< symmetric product
};

/// Element n - 1 works on n vectors.
struct SparseSweepSet {
  using Sweep = void (*)(SparseSweep const&);
  Sweep product[vectorsInGroup];
  Sweep transposedProduct[vectorsInGroup];
  /// For several vectors and rows alike, the packed one is faster.
  Sweep symmetricProduct[vectorsInGroup];
};

/// In plain C++: the definition of what the other sets compute.
extern SparseSweepSet const plainSparseSweeps;
#ifdef __x86_64__
/// For processors with AVX2.
extern SparseSweepSet const avx2SparseSweeps;
#endif
SparseSweepSet const& SparseSweepsOfThisProcessor();

/// Calls the sweep for groups of eight vectors, or of fewer, and the one for the rest. x and y step by one
/// vector's length.
void SweepOverGroups(SparseSweepSet::Sweep const* sweeps, SparseSweep sweep, std::ptrdiff_t lengthX,
                     std::ptrdiff_t lengthY, int vectors, int group = vectorsInGroup);

} // namespace orx::blac
