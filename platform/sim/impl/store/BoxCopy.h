#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace orx::store {

/// Largest number of dimensions that HDF5 supports.
constexpr int maxRank = 32;

/// One number for each dimension; numbers beyond the rank are undefined.
using Indices = std::array<std::int64_t, maxRank>;

/// A box of cells that is copied from one array to another. Strides are in cells.
///
///     cell (i0, i1, ...) of the box   is at   base + i0 * stride[0] + i1 * stride[1] + ...
struct TwoStridedBox {
  int rank = 0;
  Indices counts;
  Indices toStrides;
  Indices fromStrides;

  /// Drops dimensions of one cell, and joins neighbouring dimensions that are one run in both arrays.
  void Simplify() noexcept;
};

/// Calls run(to, from) for each run along the last dimension, in order: `to` and `from` are the positions of
/// its first cell in the two arrays. A run has counts[rank-1] cells with the strides of the last dimension.
template<class Run>
void ForEachRun(TwoStridedBox const& box, Run&& run) {
  int const outer = box.rank - 1;
  for (int dim = 0; dim < box.rank; ++dim)
    if (box.counts[dim] == 0) return;
  Indices at;
  for (int dim = 0; dim < outer; ++dim)
    at[dim] = 0;
  std::int64_t to = 0;
  std::int64_t from = 0;
  for (;;) {
    run(to, from);
    int dim = outer - 1;
    for (; dim >= 0; --dim) {
      to += box.toStrides[dim];
      from += box.fromStrides[dim];
      if (++at[dim] < box.counts[dim]) break;
      to -= box.counts[dim] * box.toStrides[dim];
      from -= box.counts[dim] * box.fromStrides[dim];
      at[dim] = 0;
    }
    if (dim < 0) return;
  }
}

constexpr std::size_t bytesPerCopy = 64 << 10;

/// Copies the cells of a box. Neither array needs to be aligned: other programs put cells at any file offset.
template<class Cell>
void CopyBox(TwoStridedBox box, void* to, void const* from) {
  constexpr auto cellBytes = static_cast<std::int64_t>(sizeof(Cell));
  auto* const target = static_cast<char*>(to);
  auto const* const source = static_cast<char const*>(from);
  box.Simplify();
  if (box.rank == 0) {
    std::memcpy(target, source, sizeof(Cell));
    return;
  }
  std::int64_t const cells = box.counts[box.rank - 1];
  std::int64_t const toStride = box.toStrides[box.rank - 1];
  std::int64_t const fromStride = box.fromStrides[box.rank - 1];
  constexpr std::int64_t cellsWorthACall = 128 / cellBytes;
  if (toStride == 1 && fromStride == 1 && cells >= cellsWorthACall) {
    auto const bytes = static_cast<std::size_t>(cells * cellBytes);
    ForEachRun(box, [=](std::int64_t a, std::int64_t b) {
      // A long memcpy writes past the caches, but the caller's next step should find the cells there.
      for (std::size_t done = 0; done < bytes; done += bytesPerCopy)
        std::memcpy(target + a * cellBytes + done, source + b * cellBytes + done,
                    std::min(bytesPerCopy, bytes - done));
    });
  } else {
    ForEachRun(box, [=](std::int64_t a, std::int64_t b) {
      for (std::int64_t k = 0; k < cells; ++k)
        std::memcpy(target + (a + k * toStride) * cellBytes, source + (b + k * fromStride) * cellBytes,
                    sizeof(Cell));
    });
  }
}

} // namespace orx::store
