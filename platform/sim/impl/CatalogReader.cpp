#include "sim/ORXSimException.h"
#include "sim/impl/CatalogStorage.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/FileObjects.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/SparseDrawer.h"
#include "sim/impl/store/SymmetricDrawer.h"

#include <charconv>
#include <limits>

namespace orx::store {

namespace {

/// Walks over the rows of a table. ReadList and RequireChecksum verify the checksum of the row.
class RowReader {
public:
  RowReader(DatabaseFile& file, sim::Context& context, TableLayout const& layout, std::int64_t& unclaimed)
      : m_context(context), m_unclaimed(unclaimed), m_path(context.Path() + "/" + layout.name),
        m_width(layout.columns.size()) {
    auto const table = RecordTable::Open(file, m_path, layout.columns);
    if (table) m_rows = table->ReadRows(0, table->Rows());
  }

  bool MoveToNext() {
    ++m_index;
    return static_cast<std::size_t>(m_index) * m_width < m_rows.size();
  }
  int operator[](std::size_t column) const { return Row()[column]; }
  std::int64_t Index() const noexcept { return m_index; }
  std::string RowName() const { return "row " + std::to_string(m_index) + " of " + m_path; }

  /// The row's list: `count` saved numbers from index `at` on; empty for an `at` of -1. Raises DamageFound
  /// when these numbers do not exist or belong to another row, or when the row's checksum is wrong.
  std::span<int const> ReadList(int at, std::int64_t count) const {
    std::span<int const> const all = m_context.SavedNumbers();
    if (at < -1 || count < 0 || (at >= 0 && at + count > static_cast<std::int64_t>(all.size())))
      throw DamageFound{RowName() + " refers to numbers that are not there"};
    // A list belongs to one row. If rows could share a long list, reading a small file could take days.
    m_unclaimed -= at >= 0 ? count : 0;
    Require(m_unclaimed >= 0, "refers to numbers of another row");
    auto const list = at < 0 ? std::span<int const>()
                             : all.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(count));
    if (Row().back() != tables::ComputeChecksum(m_index, Row().first(m_width - 1), list))
      throw DamageFound{RowName() + " does not have the check it was written with"};
    return list;
  }
  void RequireChecksum() const { ReadList(-1, 0); }
  void Require(bool isRight, char const* fault) const {
    if (!isRight) throw DamageFound{RowName() + " " + fault};
  }

private:
  std::span<int const> Row() const {
    return std::span(m_rows).subspan(static_cast<std::size_t>(m_index) * m_width, m_width);
  }

  sim::Context& m_context;
  std::int64_t& m_unclaimed; ///< number of saved numbers that no row has used yet
  std::string m_path;
  std::size_t m_width;
  std::vector<int> m_rows;
  std::int64_t m_index = -1; ///< -1: before row 0
};

bool IsValidNumber(int number) { return number >= 0 && number <= sim::largestNumber; }

void LoadNumbers(DatabaseFile& file, sim::Context& context) {
  auto const table =
      RecordTable::Open(file, context.Path() + "/" + tables::numbers.name, tables::numbers.columns);
  if (table) context.KeepSavedNumbers(table->ReadRows(0, table->Rows()));
}

void LoadCollections(DatabaseFile& file, sim::Context& context, std::int64_t& unclaimed) {
  for (RowReader row(file, context, tables::collections, unclaimed); row.MoveToNext();) {
    row.RequireChecksum();
    row.Require(IsValidNumber(row[0]) && !context.AllCollections().contains(row[0]),
                "has a number that cannot be");
    sim::CollectionRecord record{.type = ORXSimTypeID(row[1]), .members = sim::CollectionMembers(0)};
    record.isSaved = true;
    context.LoadCollection(row[0], std::move(record));
  }
}

void LoadMembers(DatabaseFile& file, sim::Context& context, std::int64_t& unclaimed) {
  for (RowReader row(file, context, tables::members, unclaimed); row.MoveToNext();) {
    std::span<int const> const list = row.ReadList(row[2], row[1]);
    sim::CollectionRecord& collection = context.CollectionAt(row[0]);
    if (row[2] < 0) row.Require(collection.members.AddLeading(row[1]), "has labels that cannot be");
    for (int const label : list) {
      row.Require(label >= 0 && !collection.members.IsFull(), "has labels that cannot be");
      collection.members.AddLabel(label);
    }
    collection.savedMembers = collection.members.Size();
  }
}

void LoadColors(DatabaseFile& file, sim::Context& context, std::int64_t& unclaimed) {
  for (RowReader row(file, context, tables::colors, unclaimed); row.MoveToNext();) {
    row.RequireChecksum();
    sim::CollectionRecord& collection = context.CollectionAt(row[0]);
    row.Require(row[1] >= 0, "has a colour that cannot be");
    collection.colors.push_back(row[1]);
    collection.savedColors = collection.colors.size();
  }
}

bool IsProgressionOfLabels(sim::SavedLabels const& labels) {
  std::int64_t const last = labels.start + std::int64_t{labels.stride} * std::max(0, labels.count - 1);
  return labels.start >= 0 && last >= 0 && last <= std::numeric_limits<int>::max();
}

void LoadSets(DatabaseFile& file, sim::Context& context, std::int64_t& unclaimed) {
  for (RowReader row(file, context, tables::sets, unclaimed); row.MoveToNext();) {
    sim::SavedLabels const labels{.count = row[3], .start = row[4], .stride = row[5], .list = row[6]};
    row.Require(labels.count >= 0, "has a number of labels that cannot be");
    for (int const label : row.ReadList(labels.list, labels.count))
      row.Require(label >= 0, "has a negative label");
    row.Require(labels.list >= 0 || IsProgressionOfLabels(labels), "has labels outside of 0 to 2147483647");
    row.Require(IsValidNumber(row[0]) && !context.HasSet(row[0]), "has a number that cannot be");
    int const head = row[2];
    if (head != -1) {
      row.Require(IsValidNumber(head) && context.HasSet(head), "continues a set that is not there");
      row.Require(context.CollectionOfSet(head) == row[1] &&
                      context.SizeOfSet(head) <= sim::mostMembers - labels.count,
                  "continues a set that it cannot continue");
    }
    sim::SetRecord record;
    record.collection = row[1];
    record.head = head;
    record.saved = labels;
    record.isSaved = true;
    context.LoadSet(row[0], std::move(record));
  }
}

bool CanBeSymmetric(sim::Drawer const& drawer, sim::DistributionRecord const& record) {
  return drawer.sets.size() == 2 && drawer.sets[0] == drawer.sets[1] &&
         (drawer.chunks.empty() || drawer.chunks[0] == drawer.chunks[1]) &&
         record.range.Key() == ORXSimTypeKey::Double;
}

/// Makes the drawer of a distribution from its row. The list holds the grid (2 * rank numbers), then the
/// member set of each dimension, then the chunk lengths.
std::shared_ptr<sim::Drawer> LoadDrawer(RowReader const& row, sim::Context& context,
                                        std::span<int const> list, sim::DistributionRecord const& record) {
  int const code = row[4];
  row.Require(code <= tables::denseSymmetricBeingExtended, "has a drawer of an unknown kind");
  auto drawer = std::make_shared<sim::Drawer>();
  auto const rank = record.grid.size();
  bool const isChunked = list[3 * rank] != 0;
  for (std::size_t dim = 0; dim < rank; ++dim) {
    int const set = list[2 * rank + dim];
    row.Require(context.HasSet(set) && context.CollectionOfSet(set) == record.grid[dim].collection,
                "has a member set that is not there, or of another collection");
    drawer->sets.push_back(set);
    drawer->sizes.push_back(context.SizeOfSet(set));
    int const chunk = list[3 * rank + dim];
    row.Require(isChunked ? chunk >= 1 : chunk == 0, "has a chunk length that cannot be");
    if (isChunked) drawer->chunks.push_back(chunk);
  }
  SetSerialization(drawer->serialization, code);
  row.Require(!drawer->serialization.IsSparse() || (rank == 2 && record.range.Key() == ORXSimTypeKey::Double),
              "is sparse, but not a matrix of doubles");
  row.Require(!drawer->serialization.IsDenseSym() || CanBeSymmetric(*drawer, record),
              "is symmetric, but not a matrix of doubles over one set");
  drawer->isSaved = true;
  drawer->mayBeLonger = code == tables::denseBeingExtended || code == tables::denseSymmetricBeingExtended;
  return drawer;
}

void LoadDistributions(DatabaseFile& file, sim::Context& context, std::int64_t& unclaimed) {
  for (RowReader row(file, context, tables::distributions, unclaimed); row.MoveToNext();) {
    int const rank = row[3];
    row.Require(rank >= 1 && rank <= maxRank, "has a number of dimensions that cannot be");
    std::span<int const> const list = row.ReadList(row[5], 4 * std::int64_t{rank});
    row.Require(!list.empty() && (row[1] == 1 || row[1] == 2) && row[4] >= 0, "makes no sense");
    row.Require(row[2] >= -1 && row[2] < static_cast<int>(context.Types().size()),
                "has a type that is not there");
    std::uint32_t const handle = static_cast<std::uint32_t>(row[0]) + 1;
    row.Require(IsValidNumber(row[0]) && !context.AllDistributions().contains(handle),
                "has a number that cannot be");
    auto record = std::make_shared<sim::DistributionRecord>();
    for (int dim = 0; dim < rank; ++dim) {
      auto const at = 2 * static_cast<std::size_t>(dim);
      context.CollectionAt(list[at]);
      record->grid.push_back({.collection = list[at], .color = list[at + 1]});
    }
    record->range = ORXSimRangeType(static_cast<ORXSimTypeKey>(row[1]));
    record->type = ORXSimTypeID(row[2]);
    record->row = static_cast<int>(row.Index());
    record->numbers = row[5];
    record->hasSavedDrawer = row[4] != tables::noDrawer;
    if (record->hasSavedDrawer) record->drawer = LoadDrawer(row, context, list, *record);
    context.LoadDistribution(handle, record);
    if (record->drawer != nullptr && record->drawer->mayBeLonger) context.LoadUnsaved(handle);
  }
}

void LoadTypes(DatabaseFile const& file, sim::Context& context) {
  std::string const path = context.Path() + "/types";
  if (!file.HasObject(path)) return;
  Handle const group = OpenGroup(file, path);
  for (int k = 0; HasAttribute(group, std::to_string(k).c_str()); ++k)
    context.LoadType(ReadText(group, std::to_string(k).c_str()).c_str());
}

void LoadContext(DatabaseFile& file, sim::Context& context) {
  LoadTypes(file, context);
  if (file.Version() == 1) return LoadFormerContext(file, context);
  LoadNumbers(file, context);
  auto unclaimed = static_cast<std::int64_t>(context.SavedNumbers().size());
  LoadCollections(file, context, unclaimed);
  LoadMembers(file, context, unclaimed);
  LoadColors(file, context, unclaimed);
  LoadSets(file, context, unclaimed);
  LoadDistributions(file, context, unclaimed);
}

} // namespace

void SetSerialization(ORXSimSerializationType& serialization, int drawerCode) {
  if (drawerCode == tables::sparseGeneral) serialization.SetSparse();
  if (drawerCode == tables::sparseSymmetric) serialization.SetSparseSym();
  if (drawerCode == tables::denseSymmetric || drawerCode == tables::denseSymmetricBeingExtended)
    serialization.SetDenseSym();
}

std::map<int, std::string> NumberedLinks(DatabaseFile const& file, std::string const& path,
                                         std::string const& prefix) {
  std::map<int, std::string> numbered;
  std::string const folder = path == "/" ? path : path + "/";
  for (std::string const& name : NamesIn(file, path)) {
    if (!name.starts_with(prefix)) continue;
    int number = -1;
    auto const [end, error] = std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size() || !IsValidNumber(number))
      throw DamageFound{std::string(folder).append(name) + " has an unexpected name"};
    numbered[number] = std::string(folder).append(name);
  }
  return numbered;
}

void LoadCatalog(DatabaseFile& file,
                 std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create) {
  Guarded(file, [&] {
    try {
      for (auto const& [number, path] : NumberedLinks(file, "/", "context_")) {
        std::vector<int> const space = ReadIntegers(OpenGroup(file, path), "namespace");
        if (space.size() != 2) throw DamageFound{path + " has a namespace of other than two words"};
        LoadContext(file, create(number, ORXSimNamespaceID(space[0], space[1])));
      }
    } catch (ORXSimException const& e) {
      if (e.Code() != ORXSimException::staleIdentifier) throw;
      std::string const text = e.AsString().AsText(); // "There is no member set 7 in context 0 of FILE."
      throw DamageFound{text.substr(0, text.size() - 1)};
    }
  });
}

// Drawers

namespace {

void OpenDense(DatabaseFile& file, sim::DistributionRecord const& record, std::string const& path) {
  CellType const cell = record.range.Key() == ORXSimTypeKey::Double ? CellType::Double : CellType::Int32;
  sim::Drawer& drawer = *record.drawer;
  std::unique_ptr<DenseDrawer> dense = drawer.serialization.IsDenseSym()
                                           ? SymmetricDrawer::Open(file, path)
                                           : DenseDrawer::Open(file, path, cell, record.Rank());
  dense->RequireCells(drawer.sizes);
  drawer.dense = std::move(dense);
}

} // namespace

void OpenDrawer(DatabaseFile& file, sim::DistributionRecord const& record) {
  std::string const path = record.Path() + "/drawer";
  sim::Drawer& drawer = *record.drawer;
  Guarded(file, [&] {
    if (drawer.serialization.IsSparse()) {
      drawer.sparse = SparseDrawer::Open(file, path, drawer.sizes[0], drawer.sizes[1]);
    } else {
      OpenDense(file, record, path);
    }
  });
}

} // namespace orx::store
