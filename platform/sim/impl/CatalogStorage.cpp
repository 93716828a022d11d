#include "sim/impl/CatalogStorage.h"

#include "file/Checksum.h"
#include "file/TransactionalFile.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/FileObjects.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/SparseDrawer.h"

#include <algorithm>

namespace orx::store {

int tables::ComputeChecksum(std::int64_t index, std::span<int const> columns, std::span<int const> list) {
  std::uint64_t const rowSum =
      file::Checksum(columns.data(), columns.size_bytes(), static_cast<std::uint64_t>(index) + 1);
  return static_cast<int>(file::Checksum(list.data(), list.size_bytes(), rowSum) & 0x7fffffffu);
}

// Tables

CatalogWriter::TableChanges& CatalogWriter::ChangesOf(TableLayout const& layout) {
  auto const [entry, isNew] = m_tables.try_emplace(layout.name);
  if (isNew) entry->second.table = RecordTable::Open(m_file, TablePath(layout), layout.columns);
  return entry->second;
}

namespace {
std::int64_t RowsOf(std::optional<RecordTable> const& table) { return table ? table->Rows() : 0; }
} // namespace

std::int64_t CatalogWriter::AddRow(TableLayout const& layout, std::vector<int> row,
                                   std::span<int const> list) {
  TableChanges& changes = ChangesOf(layout);
  std::int64_t const index =
      RowsOf(changes.table) + static_cast<std::int64_t>(changes.rows.size() / layout.columns.size());
  row.push_back(tables::ComputeChecksum(index, row, list));
  changes.rows.insert(changes.rows.end(), row.begin(), row.end());
  return index;
}

int CatalogWriter::AddNumbers(std::span<int const> numbers) {
  TableChanges& changes = ChangesOf(tables::numbers);
  std::int64_t const at = RowsOf(changes.table) + static_cast<std::int64_t>(changes.rows.size());
  if (at + static_cast<std::int64_t>(numbers.size()) > sim::mostSavedLabels)
    sim::RefuseAboveLimit(sim::mostSavedLabels, "The lists of labels of a context are too long");
  changes.rows.insert(changes.rows.end(), numbers.begin(), numbers.end());
  return static_cast<int>(at);
}

void CatalogWriter::OverwriteRow(TableLayout const& layout, std::int64_t index, std::vector<int> row,
                                 std::span<int const> list) {
  row.push_back(tables::ComputeChecksum(index, row, list));
  OverwriteRows(layout, index, row);
}

void CatalogWriter::OverwriteRows(TableLayout const& layout, std::int64_t first, std::span<int const> rows) {
  RecordTable& table = *ChangesOf(layout).table;
  auto const width = std::max<std::size_t>(layout.columns.size(), 1);
  std::vector<int> const former = table.ReadRows(first, static_cast<std::int64_t>(rows.size() / width));
  if (std::ranges::equal(former, rows)) return;
  m_reversals.emplace_back([table, first, former]() mutable { table.OverwriteRows(first, former); });
  table.OverwriteRows(first, rows);
}

/// Replaces the table by a copy of at least twice the capacity: rows are then copied seldom.
void CatalogWriter::EnlargeTable(TableLayout const& layout, TableChanges& changes, std::int64_t rows) {
  constexpr std::int64_t smallestCapacity = 16;
  std::string const path = TablePath(layout);
  std::string const pending = m_file.PendingPath();
  std::int64_t const former = RowsOf(changes.table);
  std::int64_t const capacity = changes.table ? std::max(2 * former, rows) : rows;
  RemoveOnRevert(pending);
  RecordTable larger =
      RecordTable::Create(m_file, pending, layout.columns, std::max(capacity, smallestCapacity));
  m_reversals.emplace_back([larger] { larger.DropHeldRows(); });
  if (changes.table) {
    larger.AppendRows(changes.table->ReadRows(0, former));
    ReplaceObject(path);
  }
  MoveObject(pending, path);
  larger.SetPath(path);
  changes.table = larger;
}

void CatalogWriter::WriteTable(TableLayout const& layout, TableChanges& changes) {
  if (changes.rows.empty()) return;
  std::int64_t const former = RowsOf(changes.table);
  auto const width = std::max<std::size_t>(layout.columns.size(), 1);
  std::int64_t const rows = former + static_cast<std::int64_t>(changes.rows.size() / width);
  if (!changes.table || rows > changes.table->Capacity()) EnlargeTable(layout, changes, rows);
  m_reversals.emplace_back([table = *changes.table, former]() mutable { table.CutToRows(former); });
  changes.table->AppendRows(changes.rows);
}

void CatalogWriter::WriteTables() {
  for (TableLayout const& layout : {tables::collections, tables::members, tables::colors, tables::sets,
                                    tables::distributions, tables::numbers})
    if (auto const found = m_tables.find(layout.name); found != m_tables.end())
      WriteTable(layout, found->second);
  m_tables.clear();
}

// Reversals

// A reversal is noted before its change is made: no change lacks a reversal when memory runs out in between.

void CatalogWriter::RemoveOnRevert(std::string const& path) {
  m_reversals.emplace_back([this, path] { m_file.RemoveObject(path); });
}

void CatalogWriter::ReplaceObject(std::string const& path) { MoveObject(path, m_file.TrashPath()); }

void CatalogWriter::MoveObject(std::string const& from, std::string const& to) {
  m_reversals.emplace_back([this, from, to] {
    if (m_file.HasObject(to)) m_file.MoveObject(to, from);
  });
  m_file.MoveObject(from, to);
}

void CatalogWriter::RemoveAttributes(std::string const& path, std::span<char const* const> names) {
  Handle const object = OpenObject(m_file, path);
  for (char const* const name : names) {
    if (!HasAttribute(object, name)) continue;
    m_reversals.emplace_back([this, path, name, former = ReadIntegers(object, name)] {
      WriteAttribute(OpenObject(m_file, path), name, std::span(former));
    });
    RemoveAttribute(object, name);
  }
}

void CatalogWriter::RevertChanges() noexcept {
  QuietErrors const quiet;
  for (auto step = m_reversals.rbegin(); step != m_reversals.rend(); ++step)
    try {
      (*step)();
    } catch (...) {
      m_file.Bytes().RefuseToCommit(); // a commit would save half of the changes
    }
  m_reversals.clear();
}

// Records

void CatalogWriter::SaveRecords(sim::Context& context) {
  m_context = &context;
  m_tables.clear();
  m_writtenSets.clear();
  sim::Context::Unsaved const& unsaved = context.UnsavedRecords();
  Guarded(m_file, [&] {
    if (unsaved.isContext) SaveContext();
    SaveTypes();
    for (int const k : unsaved.collections)
      SaveCollection(k);
    for (int const k : unsaved.sets)
      SaveSet(k);
    for (std::uint32_t const handle : unsaved.distributions)
      SaveDistribution(handle);
    WriteTables();
  });
}

void CatalogWriter::SaveContext() {
  std::string const path = m_context->Path();
  RemoveOnRevert(path);
  int const words[] = {m_context->Namespace().first, m_context->Namespace().second};
  WriteAttribute(CreateGroup(m_file, path), "namespace", std::span<int const>(words));
}

/// Writes new types as attributes of a group, named by their index. Saved types are never removed.
void CatalogWriter::SaveTypes() {
  std::size_t const saved = m_context->SavedTypes();
  if (saved == m_context->Types().size()) return;
  std::string const path = m_context->Path() + "/types";
  if (saved == 0) {
    RemoveOnRevert(path);
    CreateGroup(m_file, path);
  }
  Handle const group = OpenGroup(m_file, path);
  for (std::size_t k = saved; k < m_context->Types().size(); ++k) {
    std::string const name = std::to_string(k);
    m_reversals.emplace_back([this, path, name] {
      Handle const types = OpenGroup(m_file, path);
      if (HasAttribute(types, name.c_str())) RemoveAttribute(types, name.c_str());
    });
    WriteAttribute(group, name.c_str(), std::string(m_context->Types()[k].AsText()));
  }
}

void CatalogWriter::SaveCollection(int number) {
  sim::CollectionRecord const& record = m_context->CollectionAt(number);
  if (!record.isSaved) AddRow(tables::collections, {number, record.type.type});
  int const leading = record.members.LeadingCount();
  if (record.savedMembers < leading) AddRow(tables::members, {number, leading - record.savedMembers, -1});
  std::span<int const> const added = record.members.AddedLabels().subspan(
      static_cast<std::size_t>(std::max(0, record.savedMembers - leading)));
  if (!added.empty())
    AddRow(tables::members, {number, static_cast<int>(added.size()), AddNumbers(added)}, added);
  for (std::size_t k = record.savedColors; k < record.colors.size(); ++k)
    AddRow(tables::colors, {number, record.colors[k]});
}

void CatalogWriter::SaveSet(int number) {
  std::vector<int> chain;
  for (int next = number; next != -1 && !m_context->IsSetSaved(next) && !m_writtenSets.contains(next);
       next = m_context->SavedHeadOf(next))
    chain.push_back(next);
  for (std::size_t k = chain.size(); k-- > 0;)
    AddSetRow(chain[k]);
}

/// Adds a row with the labels that the set has beyond its head, whose row was added before.
void CatalogWriter::AddSetRow(int number) {
  sim::SetRecord const& record = m_context->SetAt(number);
  int const head = m_context->SavedHeadOf(number);
  int const from = head != -1 ? m_context->SizeOfSet(head) : 0;
  int const count = record.size - from;
  std::vector<int> labels;
  if (from > 0 || !record.members->IsStrided()) {
    labels.resize(static_cast<std::size_t>(count));
    record.members->CopyTo(from, count, labels.data());
  }
  ORXSimIndexSet const own = from > 0 ? ORXSimIndexSet::Listed(labels) : *record.members;
  if (own.IsStrided()) labels.clear();
  std::vector<int> row{m_context->FileNumberOf(number), record.collection,
                       head != -1 ? m_context->FileNumberOf(head) : -1, count};
  row.insert(row.end(), {own.Start(), own.Stride(), own.IsStrided() ? -1 : AddNumbers(labels)});
  AddRow(tables::sets, std::move(row), labels);
  m_writtenSets.insert(number);
}

namespace {

int DrawerCodeOf(sim::Drawer const& drawer) {
  switch (drawer.serialization.Kind()) {
  case ORXSimSerializationType::Layout::Sparse:
    return tables::sparseGeneral;
  case ORXSimSerializationType::Layout::SparseSym:
    return tables::sparseSymmetric;
  case ORXSimSerializationType::Layout::DenseSym:
    return tables::denseSymmetric;
  default:
    return tables::dense;
  }
}

} // namespace

void CatalogWriter::SaveDistribution(std::uint32_t handle) {
  sim::DistributionRecord& record = *m_context->DistributionAt(handle);
  if (record.drawer != nullptr) {
    for (int const set : record.drawer->sets)
      SaveSet(set);
    SaveDrawer(record);
  }
  SaveDistributionRow(record, record.drawer != nullptr ? DrawerCodeOf(*record.drawer) : tables::noDrawer);
}

/// Writes the row and its list: collection and colour of each dimension, then the member set of each, then
/// the chunk lengths (0: stored whole).
void CatalogWriter::SaveDistributionRow(sim::DistributionRecord& record, int drawerCode) {
  auto const rank = record.grid.size();
  std::vector<int> list;
  for (ORXSimIDMinor const& minor : record.grid)
    list.insert(list.end(), {minor.collection, minor.color});
  list.resize(4 * rank);
  if (record.drawer != nullptr) {
    std::ranges::transform(record.drawer->sets, list.begin() + static_cast<std::ptrdiff_t>(2 * rank),
                           [this](int set) { return m_context->FileNumberOf(set); });
    std::ranges::copy(record.drawer->chunks, list.begin() + static_cast<std::ptrdiff_t>(3 * rank));
  }
  bool const isNew = record.row < 0;
  if (isNew) {
    m_reversals.emplace_back([&record] { record.row = record.numbers = -1; });
    record.numbers = AddNumbers(list);
  } else {
    OverwriteRows(tables::numbers, record.numbers, list);
  }
  std::vector<int> row{static_cast<int>(record.id.handle - 1),
                       static_cast<int>(record.range.Key()),
                       record.type.type,
                       static_cast<int>(rank),
                       drawerCode,
                       record.numbers};
  if (isNew) {
    record.row = static_cast<int>(AddRow(tables::distributions, std::move(row), list));
  } else {
    OverwriteRow(tables::distributions, record.row, std::move(row), list);
  }
}

void CatalogWriter::SaveDrawer(sim::DistributionRecord& distribution) {
  sim::Drawer& drawer = *distribution.drawer;
  std::string const path = distribution.Path() + "/drawer";
  if (drawer.mayBeLonger) distribution.OpenDrawer();
  if (drawer.dense != nullptr) {
    drawer.dense->CutTo(drawer.sizes);
    drawer.dense->SaveLayout();
  }
  if (drawer.isSaved) return;
  if (distribution.hasSavedDrawer) ReplaceObject(path);
  DrawerObject& object = drawer.dense != nullptr ? static_cast<DrawerObject&>(*drawer.dense) : *drawer.sparse;
  m_reversals.emplace_back([&object] { object.MoveBack(); });
  object.MoveTo(path);
}

void CatalogWriter::NoteExtensions(sim::Context& context) {
  m_context = &context;
  m_tables.clear();
  constexpr std::size_t drawerColumn = 4;
  Guarded(m_file, [&] {
    for (std::uint32_t const handle : context.UnsavedRecords().distributions) {
      sim::DistributionRecord const& record = *context.DistributionAt(handle);
      if (record.row < 0) continue;
      std::vector<int> row = ChangesOf(tables::distributions).table->ReadRows(record.row, 1);
      if (row[drawerColumn] != tables::dense && row[drawerColumn] != tables::denseSymmetric) continue;
      row[drawerColumn] = row[drawerColumn] == tables::dense ? tables::denseBeingExtended
                                                             : tables::denseSymmetricBeingExtended;
      row.pop_back();
      OverwriteRow(
          tables::distributions, record.row, row,
          ChangesOf(tables::numbers).table->ReadRows(record.numbers, 4 * std::int64_t{record.Rank()}));
    }
  });
}

void CatalogWriter::RemoveFormerFormat(sim::Context const& context) {
  constexpr char const* distributionAttributes[] = {"grid", "range", "type"};
  constexpr char const* drawerAttributes[] = {"sets", "chunks", "serialization"};
  Guarded(m_file, [&] {
    for (char const* const kind : {"collection_", "set_"})
      for (auto const& [number, path] : NumberedLinks(m_file, context.Path(), kind))
        ReplaceObject(path);
    for (auto const& [handle, record] : context.AllDistributions()) {
      RemoveAttributes(record->Path(), distributionAttributes);
      if (record->hasSavedDrawer) RemoveAttributes(record->Path() + "/drawer", drawerAttributes);
    }
  });
}

void CatalogWriter::WriteVersion(int version, int former) {
  m_reversals.emplace_back([this, former] { m_file.WriteVersion(former); });
  Guarded(m_file, [&] { m_file.WriteVersion(version); });
}

} // namespace orx::store
