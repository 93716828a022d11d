#include "sim/impl/Selection.h"

#include "sim/ORXSimException.h"
#include "sim/impl/Context.h"

namespace orx::sim {

namespace {

[[noreturn]] void Refuse(DistributionRecord const& record, std::string const& text) {
  ORXSimException(ORXSimException::viewDoesNotFit,
                  "The view does not fit " + record.Name() + ": " + text + ".")
      .Throw(__FILE__, __LINE__);
}

std::string Describe(ORXSimIDMinor const& minor) {
  return std::to_string(minor.collection) + " (colour " + std::to_string(minor.color) + ")";
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
  Refuse(record,
         "along dimension " + std::to_string(dim) + " the drawer has no member " + std::to_string(label));
}

} // namespace

void CheckCollection(DistributionRecord const& record, int dim, ORXSimCollectionID const& collection) {
  ORXSimIDMinor const& expected = record.grid[static_cast<std::size_t>(dim)];
  if (collection.Context() == record.id.context && collection.Minor() == expected) return;
  if (collection.IsNull())
    Refuse(record, "along dimension " + std::to_string(dim) + " the member set is null");
  Refuse(record, "along dimension " + std::to_string(dim) + " the selection is of collection " +
                     Describe(collection.Minor()) +
                     (collection.Context() == record.id.context ? "" : " of another context") +
                     ", expected collection " + Describe(expected));
}

void CheckSet(DistributionRecord const& record, int dim, ORXSimCSetID const& set) {
  CheckCollection(record, dim, set.Collection());
  MembersOf(record, set);
}

ORXSimIndexSet const& MembersOf(DistributionRecord const& record, ORXSimCSetID const& set) {
  try {
    return *record.InContext().Find(set).members;
  } catch (ORXSimException const&) {
    Refuse(record, "collection " + Describe(set.Minor()) + " has no member set " +
                       std::to_string(set.Data().memberSet));
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

int DimensionOf(DistributionRecord const& record, ORXSimCollectionID const& collection) {
  for (int dim = 0; dim < record.Rank(); ++dim)
    if (collection.Equal(record.Collection(dim))) return dim;
  Refuse(record, "no dimension has the collection " + Describe(collection.Minor()) + " of the extension");
}

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
