#pragma once

#include "sim/impl/store/RecordTable.h"

#include <cstddef>
#include <cstdint>
#include <span>

// Names and columns of the tables of a context; docs/database-format.md describes them.

namespace orx::store {

/// Name and columns of a table. The last column is a checksum of the row and of the list of numbers that the
/// row refers to.
struct TableLayout {
  char const* name;
  RecordTable::Columns columns;
};

namespace tables {

inline constexpr char const* collectionColumns[] = {"number", "type", "check"};
inline constexpr char const* memberColumns[] = {"collection", "count", "list", "check"};
inline constexpr char const* colorColumns[] = {"collection", "color", "check"};
inline constexpr char const* setColumns[] = {"number", "collection", "head", "count",
                                             "start",  "stride",     "list", "check"};
inline constexpr char const* distributionColumns[] = {"number", "range", "type", "rank",
                                                      "drawer", "list",  "check"};

inline constexpr TableLayout collections{.name = "collections", .columns = collectionColumns};
inline constexpr TableLayout members{.name = "members", .columns = memberColumns};
inline constexpr TableLayout colors{.name = "colors", .columns = colorColumns};
inline constexpr TableLayout sets{.name = "sets", .columns = setColumns};
inline constexpr TableLayout distributions{.name = "distributions", .columns = distributionColumns};
/// The lists that rows of the other tables refer to: one number in each row, no checksum.
inline constexpr TableLayout numbers{.name = "numbers", .columns = {}};

/// Values of the column `drawer`.
enum DrawerCode : int {
  noDrawer = 0,
  dense = 1,
  denseBeingExtended = 2, ///< the dataset may be longer than the member sets
  sparseGeneral = 3,
  sparseSymmetric = 4,
  denseSymmetric = 5,
  denseSymmetricBeingExtended = 6,
};

/// Checksum of row `index` (its columns without the last) and of its list; the index is part of it.
int ComputeChecksum(std::int64_t index, std::span<int const> columns, std::span<int const> list);

} // namespace tables

} // namespace orx::store
