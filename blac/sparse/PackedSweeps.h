#pragma once

#include <bit>
#include <cstddef>

// Sweeps over the rows of a sparse matrix that have the vectors side by side in memory of their own: element
// i of all vectors of a group makes a slot, one line of the cache for eight.
//
//     x, y      v0: 0 1 2 3 ...          scratch   0: v0 v1 v2 v3 . . . .
//               v1: 0 1 2 3 ...                    1: v0 v1 v2 v3 . . . .
//
// They serve patterns that defeat the kernels, whose eight streams then miss cache and address translation
// eight times for each entry, and the symmetric form, which has two places in x and y for each entry. The
// sums of each vector are made in the same order as without packing, none in one step with its product: the
// results are the same bits.

namespace orx::blac {

struct PackedSweep {
  double const* a;
  int const* ia;
  int const* ja;
  double const* diagonal; ///< symmetric product
  std::ptrdiff_t rows;
  std::ptrdiff_t columns;
  int vectors; ///< up to as many as there are lanes
  double const* x;
  double* y;       ///< overwritten
  double* scratch; ///< aligned to 64 bytes, uncleared
  /// Symmetric product: a power of two. So many neighbouring elements of x and y are packed at a time, in a
  /// ring; entries that reach further are served from x and y themselves.
  std::ptrdiff_t slots;
};

/// Elements of the scratch memory of the sweeps.
constexpr std::ptrdiff_t PackedScratch(std::ptrdiff_t columns, int lanes) { return columns * lanes; }
constexpr std::ptrdiff_t SymmetricScratch(std::ptrdiff_t slots, int lanes) { return 2 * slots * lanes; }

/// The sweeps for 2, 4 and 8 lanes.
struct PackedSweepSet {
  using Sweep = void (*)(PackedSweep const&);
  static constexpr int widths = 3;
  static constexpr int widestLanes = 8;
  static constexpr int IndexOf(int lanes) { return std::countr_zero(static_cast<unsigned>(lanes)) - 1; }

  /// y(i) = sum of a(i, j) * x(j).
  Sweep product[widths];
  /// y(j) = sum of x(i) * a(i, j).
  Sweep transposedProduct[widths];
  /// For rows i < columns in turn: for each entry (i, j), t += a * x(j) and y(j) += a * x(i), with t from
  /// zero; then y(i) += diagonal(i) * x(i) + t. x and y are as long as there are rows.
  Sweep symmetricProduct[widths];
};

extern PackedSweepSet const plainPackedSweeps;
#ifdef __x86_64__
extern PackedSweepSet const avx2PackedSweeps;
#endif
PackedSweepSet const& PackedSweepsOfThisProcessor();

} // namespace orx::blac
