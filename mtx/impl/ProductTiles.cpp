#include "mtx/impl/ProductTiles.h"

#include <cstdint>

namespace orx {

namespace {

/// Whole blocks that hold `extent`, which is cut to an integer first.
int BlocksFor(double extent, int block) {
  if (!(extent > 1)) return 1;
  return static_cast<int>((static_cast<std::int64_t>(extent) + block - 1) / block);
}

} // namespace

// In doubles throughout: the products of extents leave the range of int for quite ordinary matrices.
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

} // namespace orx
