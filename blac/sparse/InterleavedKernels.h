#pragma once

#include "blac/sparse/RowArrays.h"

#include <bit>
#include <cstddef>

// Kernels that interleave the vectors on the way: element i of all vectors of a group is stored in a slot of
// its own, which is one cache line for eight vectors.
//
//     x, y      v0: 0 1 2 3 ...          workspace   slot 0: v0 v1 v2 v3 . . . .
//               v1: 0 1 2 3 ...                      slot 1: v0 v1 v2 v3 . . . .
//               ...                                  ...
//
// An SpMV kernel reads eight arrays that lie far apart, and misses the cache and the address translation
// eight times for an entry in an arbitrary column; an interleaved kernel misses them once. They also serve
// the symmetric form, in which each entry needs x and y in two places. The sums of each vector are made in
// the same order as by the SpMV kernels, and no product is fused with its addition: the results have the same
// bits.

namespace orx::blac {

/// The operands of an interleaved kernel. The vectors of x and y are stored as for the SpMV kernels.
struct InterleavedOperands {
  RowArrays matrix;
  double const* diagonal; ///< symmetric product only
  std::ptrdiff_t rows;
  std::ptrdiff_t columns;
  int vectors; ///< at most the number of lanes of the kernel
  double const* x;
  double* y;         ///< overwritten, whatever it holds
  double* workspace; ///< aligned to 64 bytes; may hold anything
  /// Symmetric product only: slots of the ring, a power of two. The ring holds this number of consecutive
  /// elements of x and y at a time; entries in other columns use x and y themselves.
  std::ptrdiff_t ringSlots;
};

/// Number of doubles in the workspace of a product or a transposed product, and of a symmetric product.
constexpr std::ptrdiff_t InterleavedWorkspace(std::ptrdiff_t columns, int lanes) { return columns * lanes; }
constexpr std::ptrdiff_t RingWorkspace(std::ptrdiff_t ringSlots, int lanes) { return 2 * ringSlots * lanes; }

/// The kernels for one instruction set, with slots of 2, 4 and 8 lanes: element IndexOf(lanes) of each table.
struct InterleavedKernels {
  using Kernel = void (*)(InterleavedOperands const&);
  static constexpr int widths = 3;
  static constexpr int mostLanes = 8;
  static constexpr int IndexOf(int lanes) { return std::countr_zero(static_cast<unsigned>(lanes)) - 1; }

  /// y(i) = sum of a(i, j) * x(j).
  Kernel product[widths];
  /// y(j) = sum of x(i) * a(i, j).
  Kernel transposedProduct[widths];
  /// For rows i = 0 ... columns - 1: for each entry (i, j), t += a * x(j) and y(j) += a * x(i), with t from
  /// zero; then y(i) += diagonal(i) * x(i) + t. The vectors of x and y are `rows` long.
  Kernel symmetricProduct[widths];
};

extern InterleavedKernels const plainInterleavedKernels;
#ifdef __x86_64__
/// For processors with AVX2.
extern InterleavedKernels const avx2InterleavedKernels;
#endif
/// The fastest kernels that this processor can run.
InterleavedKernels const& ChooseInterleavedKernels();

} // namespace orx::blac
