#pragma once

#include <cstdint>

namespace orx {

/// How C = A * B of block matrices, A m x k and B k x n, is cut into pieces that are worked on in memory:
///
///                     column group                 one step of the inner loop reads the two marked pieces
///                    +---+-------+                 and adds their product to the tile of C, which is
///                    |   |#######|  inner group    written once, after the last step
///                    +---+-------+  of B
///   row group  +---+ +---+-------+
///   of A       |###| |   |   C   |
///              +---+ +---+-------+
///
/// The budget in doubles is that of B's or C's n * k plus one row of blocks of A, so that as a rule B's
/// columns and many rows of C are in one tile and A is read once.
struct ProductShape {
  int m, k, n;
  int rowBlock;    ///< the most rows in a row block of A
  int innerBlock;  ///< the most columns in a column block of A
  int columnBlock; ///< the most columns in a column block of B
};

/// How many blocks make a group; each at least 1.
struct ProductGroups {
  int row, inner, column;
};

/// REQUIRES: no member of `shape` is 0, except k.
ProductGroups GroupsWithinBudget(ProductShape const& shape) noexcept;

/// The extents of a piece of A (rows x inner), of B (inner x columns) and of C (rows x columns).
struct ProductTile {
  int rows, inner, columns;
};

/// The tile for matrices too large for that budget: together its three pieces have at most `values` values.
/// C's piece is as near to a square as C lets it be, so that A and B are read as few times as possible. No
/// extent is cut below 64, which is too little to be worth a block.
ProductTile TileWithin(std::int64_t values, ProductShape const& shape) noexcept;

} // namespace orx
