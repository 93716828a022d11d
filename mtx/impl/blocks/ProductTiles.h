#pragma once

#include <cstdint>

namespace orx {

/// C = A * B of block matrices, A m x k and B k x n, is cut into parts that are multiplied in memory:
///
///                     column group                 one step of the inner loop reads the two marked parts
///                    +---+-------+                 and adds their product to the tile of C, which is
///                    |   |#######|  inner group    written once, after the last step
///                    +---+-------+  of B
///   row group  +---+ +---+-------+
///   of A       |###| |   |   C   |
///              +---+ +---+-------+
///
/// The budget, in doubles, is n * k for B plus a row block of A: as a rule all columns of B and many rows of
/// C are then in one tile, and A is read once.
struct ProductShape {
  int m, k, n;
  int rowBlock;    ///< the most rows in a row block of A
  int innerBlock;  ///< the most columns in a column block of A
  int columnBlock; ///< the most columns in a column block of B
};

/// Numbers of blocks in a group; each at least 1.
struct ProductGroups {
  int row, inner, column;
};

/// REQUIRES: no member of `shape` is 0, except k.
ProductGroups GroupsWithinBudget(ProductShape const& shape) noexcept;

/// The extents of the parts of A (rows x inner), of B (inner x columns) and of C (rows x columns).
struct ProductTile {
  int rows, inner, columns;
};

/// Returns the tile for matrices that are too large for the budget: its parts of A, B and C have at most
/// `values` values together. The part of C is as near to a square as C allows: A and B are then read as few
/// times as possible. No extent is cut below 64, which would be too little for one step.
ProductTile TileWithin(std::int64_t values, ProductShape const& shape) noexcept;

} // namespace orx
