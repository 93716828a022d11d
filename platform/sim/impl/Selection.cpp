#include "sim/impl/Selection.h"

#include "sim/impl/Context.h"
#include "sim/impl/RaiseError.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

namespace orx::sim {

void RefuseView(DistributionRecord const& record, std::string const& text) {
  RaiseError(ORXSimException::viewDoesNotFit, "The view does not fit " + record.Name() + ": " + text + ".");
}

namespace {

std::string Describe(ORXSimIDMinor const& minor) {
  return std::to_string(minor.collection) + " (colour " + std::to_string(minor.color) + ")";
}

std::string Along(int dim) { return "along dimension " + std::to_string(dim) + " "; }

/// The labels of a set; refused when there is no such set.
ORXSimIndexSet const& MembersOf(DistributionRecord const& record, ORXSimCSetID const& set) {
  try {
    return *record.InContext().FindRecord(set).members;
  } catch (ORXSimException const&) {
    RefuseView(record, "collection " + Describe(set.Minor()) + " has no member set " +
                           std::to_string(set.Data().memberSet));
  }
}

bool IsWholeDimension(DistributionRecord const& record, ORXSimDimSelection const& selection, int dim) {
  return selection.kind == ORXSimDimSelection::Kind::Everything ||
         (selection.kind == ORXSimDimSelection::Kind::Set &&
          selection.set.Data().memberSet == record.drawer->sets[static_cast<std::size_t>(dim)]);
}

ORXSimIndexSet const& MembersAlong(DistributionRecord const& record, int dim) {
  return *record.InContext().SetAt(record.drawer->sets[static_cast<std::size_t>(dim)]).members;
}

int PositionOf(DistributionRecord const& record, int dim, ORXSimIndexSet const& there, int label) {
  int const position = there.PositionOf(label);
  if (position >= 0) return position;
  RefuseView(record, Along(dim) + "the drawer has no member " + std::to_string(label));
}

/// Number of positions that a selection has along a dimension of the drawer.
std::int64_t SelectedCount(DistributionRecord const& record, ORXSimDimSelection const& selection, int dim) {
  switch (selection.kind) {
  case ORXSimDimSelection::Kind::Set:
    return MembersOf(record, selection.set).Size();
  case ORXSimDimSelection::Kind::Range:
    return std::int64_t{selection.last} - selection.first + 1;
  case ORXSimDimSelection::Kind::Everything:
    break;
  }
  return record.drawer->sizes[static_cast<std::size_t>(dim)];
}

/// Checks that `collection` is the collection of dimension `dim`.
void CheckCollection(DistributionRecord const& record, int dim, ORXSimCollectionID const& collection) {
  ORXSimIDMinor const& expected = record.grid[static_cast<std::size_t>(dim)];
  if (collection.Context() == record.id.context && collection.Minor() == expected) return;
  if (collection.IsNull()) RefuseView(record, Along(dim) + "the member set is null");
  RefuseView(record, Along(dim) + "the selection is of collection " + Describe(collection.Minor()) +
                         (collection.Context() == record.id.context ? "" : " of another context") +
                         ", expected collection " + Describe(expected));
}

/// Checks that `set` exists and belongs to the collection of dimension `dim`.
void CheckSet(DistributionRecord const& record, int dim, ORXSimCSetID const& set) {
  CheckCollection(record, dim, set.Collection());
  MembersOf(record, set);
}

/// Number of bytes of cells, count(dim) of them along each dimension. Raises viewDoesNotFit when it exceeds
/// 64 bits: sets that repeat labels may select any number of cells.
template<class Count>
std::int64_t BytesOf(DistributionRecord const& record, Count count) {
  std::int64_t bytes = record.range.CellBytes();
  bool isEmpty = false;
  bool isTooMuch = false;
  for (int dim = 0; dim < record.Rank(); ++dim) {
    isEmpty |= count(dim) == 0;
    isTooMuch |= __builtin_mul_overflow(bytes, std::int64_t{count(dim)}, &bytes);
  }
  if (isEmpty) return 0;
  if (isTooMuch) RefuseView(record, "more cells are selected than any buffer holds");
  return bytes;
}

void CheckRange(DistributionRecord const& record, int dim, ORXSimDimSelection const& selection) {
  int const size = record.drawer->sizes[static_cast<std::size_t>(dim)];
  if (!selection.collection.IsNull()) CheckCollection(record, dim, selection.collection);
  if (selection.first < 0 || selection.last >= size || selection.last < selection.first)
    RefuseView(record, Along(dim) + "the positions are " + std::to_string(selection.first) + " to " +
                           std::to_string(selection.last) + ", the drawer has 0 to " +
                           std::to_string(size - 1));
}

/// Checks that the selection is all of the dimension.
void CheckWhole(DistributionRecord const& record, int dim, ORXSimDimSelection const& selection) {
  auto const along = static_cast<std::size_t>(dim);
  if (selection.kind == ORXSimDimSelection::Kind::Set &&
      selection.set.Data().memberSet != record.drawer->sets[along])
    RefuseView(record, Along(dim) + "other members are selected than those of the sparse drawer");
  if (SelectedCount(record, selection, dim) != record.drawer->sizes[along])
    RefuseView(record, Along(dim) + "a part is selected, but a sparse drawer is read and written whole");
}

} // namespace

void CheckSelections(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections,
                     ORXSimSerializationType const& serialization) {
  if (record.drawer == nullptr) RefuseView(record, "it has no drawer yet");
  record.OpenDrawer();
  bool const isSparse = serialization.IsSparse();
  if (isSparse != record.drawer->serialization.IsSparse())
    RefuseView(record, isSparse ? "its drawer is dense, the transfer sparse"
                                : "its drawer is sparse, the transfer dense");
  if (serialization.IsDenseSym() && !record.drawer->serialization.IsDenseSym())
    RefuseView(record, "its drawer is dense, the transfer symmetric");
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = selections[dim];
    if (selection.kind == ORXSimDimSelection::Kind::Set) CheckSet(record, dim, selection.set);
    if (selection.kind == ORXSimDimSelection::Kind::Range) CheckRange(record, dim, selection);
    if (isSparse) CheckWhole(record, dim, selection);
  }
}

void CheckMembers(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections) {
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = selections[dim];
    bool const isSome =
        selection.kind == ORXSimDimSelection::Kind::Set && !IsWholeDimension(record, selection, dim);
    if (!isSome) continue;
    ORXSimIndexSet const& wanted = MembersOf(record, selection.set);
    for (int k = 0; k < wanted.Size(); ++k)
      PositionOf(record, dim, MembersAlong(record, dim), wanted[k]);
  }
}

void CheckNewSets(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections) {
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = selections[dim];
    if (selection.kind == ORXSimDimSelection::Kind::Range)
      RefuseView(record, "a new drawer is made over member sets, not over a range of positions");
    if (selection.kind == ORXSimDimSelection::Kind::Set) CheckSet(record, dim, selection.set);
  }
}

void CheckChunkLengths(DistributionRecord const& record, ORXSimArray<int> const& chunks) {
  if (chunks.Size() != record.Rank())
    RefuseView(record, "there are " + std::to_string(chunks.Size()) + " chunk lengths, expected " +
                           std::to_string(record.Rank()));
  for (int dim = 0; dim < record.Rank(); ++dim)
    if (chunks[dim] < 1)
      RefuseView(record,
                 Along(dim) + "the chunk length is " + std::to_string(chunks[dim]) + ", expected at least 1");
}

void CheckInitialValue(DistributionRecord const& record, ORXSimRangeValue const& value) {
  double const initial = value.Value();
  bool const isInteger = initial == std::trunc(initial) && std::abs(initial) <= 2147483647.0;
  if (record.range.Key() == ORXSimTypeKey::Int32 && !isInteger)
    RefuseView(record, "the initialization value is not a 32-bit integer");
}

void CheckSparsePossible(DistributionRecord const& record) {
  if (record.Rank() != 2 || record.range.Key() != ORXSimTypeKey::Double)
    RefuseView(record, "a sparse matrix needs two dimensions and cells of double precision");
}

void CheckSymmetricPossible(DistributionRecord const& record,
                            ORXSimArray<ORXSimDimSelection> const& selections,
                            ORXSimArray<int> const& chunks) {
  if (record.Rank() != 2 || record.range.Key() != ORXSimTypeKey::Double)
    RefuseView(record, "a symmetric matrix needs two dimensions and cells of double precision");
  bool const isSame = record.grid[0].collection == record.grid[1].collection &&
                      selections[0].kind == selections[1].kind &&
                      selections[0].set.Data().memberSet == selections[1].set.Data().memberSet;
  if (!isSame)
    RefuseView(record, "a symmetric matrix needs the same members of one collection along both dimensions");
  if (!chunks.IsEmpty() && chunks[0] != chunks[1])
    RefuseView(record, "the chunk lengths of a symmetric matrix are " + std::to_string(chunks[0]) + " and " +
                           std::to_string(chunks[1]) + ", expected the same along both dimensions");
}

int DimensionOf(DistributionRecord const& record, ORXSimCollectionID const& collection) {
  for (int dim = 0; dim < record.Rank(); ++dim)
    if (collection.Equal(record.Collection(dim))) return dim;
  RefuseView(record, "no dimension has the collection " + Describe(collection.Minor()) + " of the extension");
}

void CheckExtension(DistributionRecord const& record, ORXSimCSetID const& extension,
                    ORXSimRangeValue const& initialValue) {
  if (record.drawer == nullptr) RefuseView(record, "it has no drawer yet");
  record.OpenDrawer();
  if (record.drawer->dense == nullptr || !record.drawer->dense->IsExtendable())
    RefuseView(record, "its drawer cannot be extended");
  CheckInitialValue(record, initialValue);
  int const dim = DimensionOf(record, extension.Collection());
  std::int64_t const size =
      std::int64_t{record.drawer->sizes[static_cast<std::size_t>(dim)]} + MembersOf(record, extension).Size();
  if (size > std::numeric_limits<int>::max())
    RefuseView(record,
               Along(dim) + "there would be " + std::to_string(size) + " cells, expected at most 2147483647");
}

std::int64_t SelectedBytes(DistributionRecord const& record,
                           ORXSimArray<ORXSimDimSelection> const& selections) {
  return BytesOf(record, [&](int dim) { return SelectedCount(record, selections[dim], dim); });
}

std::int64_t DrawerBytes(DistributionRecord const& record, Drawer const& drawer) {
  return BytesOf(record, [&](int dim) { return drawer.sizes[static_cast<std::size_t>(dim)]; });
}

// The selected cells

Selection::Selection(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections)
    : m_runs(record.grid.size()), m_counts(record.grid.size()) {
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = selections[dim];
    auto& runs = m_runs[static_cast<std::size_t>(dim)];
    std::int64_t const count = SelectedCount(record, selection, dim);
    if (selection.kind == ORXSimDimSelection::Kind::Range) {
      runs.push_back({.first = selection.first, .count = count, .buffer = 0});
    } else if (IsWholeDimension(record, selection, dim)) {
      runs.push_back({.first = 0, .count = count, .buffer = 0});
    } else {
      AddMembers(record, dim, selection.set, runs);
    }
    m_counts[static_cast<std::size_t>(dim)] = count;
    m_cells *= count;
  }
}

std::vector<Selection::Common> Selection::CommonPositions() const {
  std::vector<Common> common;
  for (Run const& columns : m_runs[0])
    for (Run const& rows : m_runs[1]) {
      std::int64_t const first = std::max(rows.first, columns.first);
      std::int64_t const end = std::min(rows.first + rows.count, columns.first + columns.count);
      for (std::int64_t k = first; k < end; ++k)
        common.push_back({.position = k,
                          .row = rows.buffer + k - rows.first,
                          .column = columns.buffer + k - columns.first});
    }
  return common;
}

namespace {

[[noreturn]] void RefuseMirrors(DistributionRecord const& record, std::int64_t row, std::int64_t column,
                                double value, double mirror) {
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(),
                " is not possible: it is symmetric, and its row %lld, column %lld would be %.17g, but row "
                "%lld, column %lld would be %.17g.",
                static_cast<long long>(row), static_cast<long long>(column), value,
                static_cast<long long>(column), static_cast<long long>(row), mirror);
  RaiseError(ORXSimException::mirrorsDiffer, "Writing to " + record.Name() + text.data());
}

} // namespace

void CheckMirrors(DistributionRecord const& record, Selection const& selection, double const* buffer) {
  std::vector<Selection::Common> const common = selection.CommonPositions();
  std::int64_t const rows = selection.BufferCounts()[1];
  auto const check = [&](Selection::Common const& a, Selection::Common const& b) {
    double const value = buffer[a.row + rows * b.column];
    double const mirror = buffer[b.row + rows * a.column];
    bool const agree = value == mirror || (std::isnan(value) && std::isnan(mirror));
    if (!agree) RefuseMirrors(record, a.position, b.position, value, mirror);
  };
  // Square by square: the mirror images of a square are near one another too.
  constexpr std::size_t square = 32;
  for (std::size_t i = 0; i < common.size(); i += square)
    for (std::size_t j = 0; j <= i; j += square)
      for (std::size_t a = i; a < std::min(i + square, common.size()); ++a)
        for (std::size_t b = j; b < std::min(j + square, a); ++b)
          check(common[a], common[b]);
}

void Selection::AddMembers(DistributionRecord const& record, int dim, ORXSimCSetID const& id,
                           std::vector<Run>& runs) {
  ORXSimIndexSet const& wanted = MembersOf(record, id);
  ORXSimIndexSet const& there = MembersAlong(record, dim);
  for (int k = 0; k < wanted.Size(); ++k) {
    int const position = PositionOf(record, dim, there, wanted[k]);
    if (!runs.empty() && runs.back().first + runs.back().count == position) {
      ++runs.back().count;
    } else {
      runs.push_back({.first = position, .count = 1, .buffer = k});
    }
  }
}

} // namespace orx::sim
