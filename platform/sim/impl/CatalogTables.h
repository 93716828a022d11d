#pragma once

#include "sim/impl/store/RecordTable.h"

#include <cstddef>
#include <cstdint>
#include <span>

// The tables of a context, see docs/database-format.md.

namespace orx::store {

/// A table of records. The last column is a check of the row and of the list of numbers that it refers to.
struct TableForm {
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

inline constexpr TableForm collections{.name = "collections", .columns = collectionColumns};
inline constexpr TableForm members{.name = "members", .columns = memberColumns};
inline constexpr TableForm colors{.name = "colors", .columns = colorColumns};
inline constexpr TableForm sets{.name = "sets", .columns = setColumns};
inline constexpr TableForm distributions{.name = "distributions", .columns = distributionColumns};
/// Lists that the others refer to; no rows, no checks.
inline constexpr TableForm numbers{.name = "numbers", .columns = {}};

/// What the column `drawer` says.
enum DrawerCode : int {
  noDrawer = 0,
  dense = 1,
  denseBeingExtended = 2, ///< its dataset may be longer than its sets
  sparseGeneral = 3,
  sparseSymmetric = 4,
};

/// The check of a row, of its columns but the last: an accident seldom leaves it right.
int CheckOf(std::int64_t index, std::span<int const> columns, std::span<int const> list);

} // namespace tables

} // namespace orx::store
