#include "mtx/impl/blocks/ProductTiles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orx {

namespace {

/// Number of whole blocks that hold `extent`, rounded down to an integer.
int BlocksFor(double extent, int block) {
  if (!(extent > 1)) return 1;
  return static_cast<int>((static_cast<std::int64_t>(extent) + block - 1) / block);
}

} // namespace

// Computes in doubles: products of extents exceed int for ordinary matrices.
ProductGroups GroupsWithinBudget(ProductShape const& shape) noexcept {
  double const m = shape.m, k = shape.k, n = shape.n;
  double const rb = shape.rowBlock, ca = shape.innerBlock;
  double const budget = n * k + (rb * k > m ? rb * k : m);

  double columns = (budget - ca * rb) / (ca + rb);
  if (columns > n) columns = n;

  double rows = (budget - columns * ca) / (columns + ca);
  if (rows > m) {
    rows = m;
  } else if (rows <= 0) {
    rows = rb;
  }

  double inner = (budget - rows * columns) / (rows + columns);
  if (inner > k) {
    inner = k;
  } else if (inner <= 0) {
    inner = ca;
  }
  return {BlocksFor(rows, shape.rowBlock), BlocksFor(inner, shape.innerBlock),
          BlocksFor(columns, shape.columnBlock)};
}

ProductTile TileWithin(std::int64_t values, ProductShape const& shape) noexcept {
  constexpr double least = 64;
  constexpr double usualInner = 256; // DGEMM gains little from larger ones
  double const total = static_cast<double>(values);
  double const inner = std::min<double>(shape.k, std::clamp(std::sqrt(total) / 4, least, usualInner));
  // Solves rows * columns + inner * (rows + columns) = total for one extent, or for two equal ones.
  auto const beside = [&](double extent) { return (total - inner * extent) / (extent + inner); };
  auto const within = [&](double extent, int limit) {
    return std::min<double>(limit, std::max(least, std::floor(extent)));
  };
  double const alike = std::sqrt(total + inner * inner) - inner;
  double const columns = within(alike, shape.n);
  double const rows = within(beside(columns), shape.m);
  return {static_cast<int>(rows), static_cast<int>(inner), static_cast<int>(within(beside(rows), shape.n))};
}

} // namespace orx
