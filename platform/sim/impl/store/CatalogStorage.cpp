#include "sim/impl/store/CatalogStorage.h"

#include "sim/ORXSimException.h"
#include "sim/impl/store/Checksum.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/SparseDrawer.h"
#include "sim/impl/store/TransactionalFile.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <new>
#include <string>

namespace orx::store {

namespace {

constexpr std::size_t largestCompact = 60 << 10; // HDF5 keeps less than 64 KiB inside an object header
constexpr int mostNumbers = 1 << 24;             // no file has objects with numbers beyond; a damaged one may

std::string ContextPath(sim::Context const& context) {
  return "/context_" + std::to_string(context.Number());
}

std::string ObjectPath(sim::Context const& context, char const* kind, int number) {
  return ContextPath(context) + "/" + kind + std::to_string(number);
}

Hdf5Id CreateGroup(hid_t file, std::string const& path) {
  return CheckedId(H5Gcreate2(file, path.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "creating " + path);
}

Hdf5Id OpenGroup(hid_t file, std::string const& path) {
  return CheckedId(H5Gopen2(file, path.c_str(), H5P_DEFAULT), "opening " + path);
}

bool LinkExists(hid_t place, std::string const& name) {
  return Checked(H5Lexists(place, name.c_str(), H5P_DEFAULT), "looking for " + name) > 0;
}

void WriteLabels(DatabaseFile const& file, hid_t group, std::span<int const> labels) {
  hsize_t const count = labels.size();
  Hdf5Id const space = CheckedId(H5Screate_simple(1, &count, nullptr), "writing labels");
  Hdf5Id const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), "writing labels");
  bool const isSmall = labels.size_bytes() <= largestCompact;
  if (!isSmall) file.Bytes().ReserveGrowth(labels.size_bytes() + largestCompact);
  Checked(H5Pset_layout(creation.Get(), isSmall ? H5D_COMPACT : H5D_CONTIGUOUS), "writing labels");
  Checked(H5Pset_alloc_time(creation.Get(), H5D_ALLOC_TIME_EARLY), "writing labels");
  Hdf5Id const dataset = CheckedId(
      H5Dcreate2(group, "labels", H5T_STD_I32LE, space.Get(), H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
      "writing labels");
  Checked(H5Dwrite(dataset.Get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, labels.data()),
          "writing labels");
  std::uint64_t const sum = Checksum(labels.data(), labels.size_bytes(), 1);
  WriteAttribute(dataset.Get(), "checksum", std::span<std::uint64_t const>(&sum, 1));
}

std::vector<int> ReadLabels(hid_t group, std::string const& path) {
  std::string const what = "reading the labels of " + path;
  Hdf5Id const dataset = CheckedId(H5Dopen2(group, "labels", H5P_DEFAULT), what);
  Hdf5Id const space = CheckedId(H5Dget_space(dataset.Get()), what);
  Hdf5Id const type = CheckedId(H5Dget_type(dataset.Get()), what);
  hssize_t const count = Checked(H5Sget_simple_extent_npoints(space.Get()), what);
  // What is there takes space in the file, so a count that is made up does not get far.
  bool const isStored = count == 0 || H5Dget_storage_size(dataset.Get()) > 0;
  if (H5Tget_class(type.Get()) != H5T_INTEGER || count > std::numeric_limits<int>::max() || !isStored)
    throw DamageFound{"the labels of " + path + " are not a list of integers"};
  std::vector<int> labels(static_cast<std::size_t>(count));
  if (count > 0)
    Checked(H5Dread(dataset.Get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, labels.data()), what);
  if (HasAttribute(dataset.Get(), "checksum")) {
    auto const saved = ReadWords(dataset.Get(), "checksum");
    if (saved.size() != 1 || saved[0] != Checksum(labels.data(), labels.size() * sizeof(int), 1))
      throw DamageFound{"the labels of " + path + " do not have the checksum they were written with"};
  }
  for (int const label : labels)
    if (label < 0) throw DamageFound{path + " has the negative label " + std::to_string(label)};
  return labels;
}

} // namespace

// Writing

void CatalogWriter::RemoveOnRevert(std::string const& path) {
  m_reversals.emplace_back([this, path] { H5Ldelete(m_file.Id(), path.c_str(), H5P_DEFAULT); });
}

void CatalogWriter::ReplaceObject(std::string const& path) {
  std::string const trash = m_file.MoveToTrash(path);
  m_reversals.emplace_back([this, trash, path] { m_file.Move(trash, path); });
}

void CatalogWriter::ReplaceAttribute(std::int64_t object, std::string const& path, char const* name,
                                     std::vector<int> const& values, bool isScalar) {
  auto const write = [name = std::string(name), isScalar](hid_t to, std::vector<int> const& numbers) {
    isScalar ? WriteAttribute(to, name.c_str(), numbers[0])
             : WriteAttribute(to, name.c_str(), std::span(numbers));
  };
  std::vector<int> const former =
      HasAttribute(object, name) ? ReadIntegers(object, name) : std::vector<int>();
  if (former == values) return;
  m_reversals.emplace_back([this, path, former, write, name = std::string(name)] {
    Hdf5Id const there(H5Oopen(m_file.Id(), path.c_str(), H5P_DEFAULT));
    if (former.empty()) {
      H5Adelete(there.Get(), name.c_str());
    } else {
      write(there.Get(), former);
    }
  });
  write(object, values);
}

void CatalogWriter::Revert() noexcept {
  QuietErrors const quiet;
  for (auto step = m_reversals.rbegin(); step != m_reversals.rend(); ++step)
    try {
      (*step)();
    } catch (Hdf5Failure const&) {
      continue; // what can be put back is put back
    }
  m_reversals.clear();
}

void CatalogWriter::Save(sim::Context& context) {
  sim::Context::Unsaved const& unsaved = context.WhatIsUnsaved();
  Guarded(m_file, [&] {
    if (unsaved.isContext) SaveContext(context);
    if (unsaved.areTypes) SaveTypes(context);
    for (int const k : unsaved.collections)
      if (context.Collections()[static_cast<std::size_t>(k)] != nullptr) SaveCollection(context, k);
    for (int const k : unsaved.sets)
      if (context.Sets()[static_cast<std::size_t>(k)] != nullptr) SaveSet(context, k);
    for (int const k : unsaved.distributions)
      if (context.Distributions()[static_cast<std::size_t>(k)] != nullptr) SaveDistribution(context, k);
  });
}

void CatalogWriter::SaveContext(sim::Context& context) {
  std::string const path = ContextPath(context);
  Hdf5Id const group = CreateGroup(m_file.Id(), path);
  RemoveOnRevert(path);
  int const words[] = {context.Namespace().first, context.Namespace().second};
  WriteAttribute(group.Get(), "namespace", std::span<int const>(words));
}

void CatalogWriter::SaveTypes(sim::Context& context) {
  std::string const path = ContextPath(context) + "/types";
  if (LinkExists(m_file.Id(), path)) ReplaceObject(path);
  Hdf5Id const group = CreateGroup(m_file.Id(), path);
  RemoveOnRevert(path);
  for (std::size_t k = 0; k < context.Types().size(); ++k)
    WriteAttribute(group.Get(), std::to_string(k).c_str(), std::string(context.Types()[k].AsText()));
}

void CatalogWriter::SaveCollection(sim::Context& context, int number) {
  sim::CollectionRecord const& record = context.CollectionAt(number);
  std::string const path = ObjectPath(context, "collection_", number);
  Hdf5Id const group = record.isSaved ? OpenGroup(m_file.Id(), path) : CreateGroup(m_file.Id(), path);
  if (!record.isSaved) RemoveOnRevert(path);
  ReplaceAttribute(group.Get(), path, "members", {record.members.Leading()}, true);
  ReplaceAttribute(group.Get(), path, "type", {record.type.type}, true);
  ReplaceAttribute(group.Get(), path, "colors", record.colors, false);
  std::string const labels = path + "/labels";
  if (record.isSaved && LinkExists(m_file.Id(), labels)) ReplaceObject(labels);
  if (record.members.Further().empty()) return;
  WriteLabels(m_file, group.Get(), record.members.Further());
  if (record.isSaved) RemoveOnRevert(labels);
}

void CatalogWriter::SaveSet(sim::Context& context, int number) {
  sim::SetRecord const& record = context.SetAt(number);
  std::string const path = ObjectPath(context, "set_", number);
  Hdf5Id const group = CreateGroup(m_file.Id(), path);
  RemoveOnRevert(path);
  ORXSimIndexSet const& members = *record.members;
  WriteAttribute(group.Get(), "collection", record.collection);
  WriteAttribute(group.Get(), "count", members.Size());
  if (members.IsStrided()) {
    WriteAttribute(group.Get(), "start", members.Start());
    WriteAttribute(group.Get(), "stride", members.Stride());
    return;
  }
  std::vector<int> labels(static_cast<std::size_t>(members.Size()));
  members.CopyTo(labels.data());
  WriteLabels(m_file, group.Get(), labels);
}

void CatalogWriter::SaveDistribution(sim::Context& context, int number) {
  sim::DistributionRecord& record = *context.Distributions()[static_cast<std::size_t>(number)];
  std::string const path = ObjectPath(context, "distribution_", number);
  if (!record.isSaved) {
    Hdf5Id const group = CreateGroup(m_file.Id(), path);
    RemoveOnRevert(path);
    std::vector<int> grid;
    for (ORXSimIDMinor const& minor : record.grid) {
      grid.push_back(minor.collection);
      grid.push_back(minor.color);
    }
    WriteTableAttribute(group.Get(), "grid", grid, 2);
    WriteAttribute(group.Get(), "range", static_cast<int>(record.range.Key()));
    WriteAttribute(group.Get(), "type", record.type.type);
  }
  if (record.drawer != nullptr) SaveDrawer(record, path + "/drawer");
}

void CatalogWriter::SaveDrawer(sim::DistributionRecord& distribution, std::string const& path) {
  sim::Drawer& drawer = *distribution.drawer;
  hid_t object = -1;
  if (drawer.dense != nullptr) {
    drawer.dense->CutTo(drawer.sizes);
    drawer.dense->SaveLayout();
    object = drawer.dense->Dataset();
    if (!drawer.chunks.empty()) WriteAttribute(object, "chunks", std::span<int const>(drawer.chunks));
  } else {
    object = drawer.sparse->Group();
    WriteAttribute(object, "serialization", static_cast<int>(drawer.serialization.Kind()));
  }
  if (drawer.isSaved) {
    ReplaceAttribute(object, path, "sets", drawer.sets, false);
    return;
  }
  WriteAttribute(object, "sets", std::span<int const>(drawer.sets));
  if (distribution.hasSavedDrawer) ReplaceObject(path);
  if (drawer.dense != nullptr) {
    drawer.dense->PutAt(path);
    m_reversals.emplace_back([&drawer] { drawer.dense->TakeBack(); });
  } else {
    drawer.sparse->PutAt(path);
    m_reversals.emplace_back([&drawer] { drawer.sparse->TakeBack(); });
  }
}

// Reading

namespace {

[[noreturn]] void RefuseName(std::string const& folder, std::string const& name) {
  throw DamageFound{folder + name + " has an unexpected name"};
}

/// The numbers behind a prefix among the names of a group: "set_12" gives 12, with its name.
std::map<int, std::string> NumberedLinks(hid_t file, std::string const& path, std::string const& prefix) {
  std::vector<std::string> names;
  auto const collect = [](hid_t, char const* name, H5L_info_t const*, void* list) -> herr_t {
    try {
      static_cast<std::vector<std::string>*>(list)->emplace_back(name);
      return 0;
    } catch (std::bad_alloc const&) {
      return -1; // no exception passes through C
    }
  };
  Checked(H5Literate_by_name(file, path.c_str(), H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect, &names,
                             H5P_DEFAULT),
          "listing " + path);
  std::map<int, std::string> numbered;
  std::string const folder = path == "/" ? path : path + "/";
  for (std::string const& name : names) {
    if (!name.starts_with(prefix)) continue;
    int number = -1;
    auto const [end, error] = std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size() || number < 0 || number >= mostNumbers)
      RefuseName(folder, name);
    numbered[number] = std::string(folder).append(name);
  }
  return numbered;
}

template<class Record>
void MakeRoom(std::vector<Record>& records, int number) {
  auto const count = static_cast<std::size_t>(number) + 1;
  if (records.size() < count) records.resize(count);
}

void LoadTypes(hid_t file, sim::Context& context) {
  std::string const path = ContextPath(context) + "/types";
  if (!LinkExists(file, path)) return;
  Hdf5Id const group = OpenGroup(file, path);
  for (int k = 0; HasAttribute(group.Get(), std::to_string(k).c_str()); ++k)
    context.Types().emplace_back(ReadText(group.Get(), std::to_string(k).c_str()).c_str());
}

void LoadCollection(hid_t file, sim::Context& context, int number, std::string const& path) {
  Hdf5Id const group = OpenGroup(file, path);
  int const leading = ReadInteger(group.Get(), "members");
  if (leading < 0) throw DamageFound{path + " has " + std::to_string(leading) + " members"};
  auto record = std::make_unique<sim::CollectionRecord>(
      sim::CollectionRecord{.type = ORXSimTypeID(ReadInteger(group.Get(), "type")),
                            .members = sim::CollectionMembers(leading),
                            .colors = {}});
  if (HasAttribute(group.Get(), "colors")) record->colors = ReadIntegers(group.Get(), "colors");
  if (LinkExists(group.Get(), "labels"))
    for (int const label : ReadLabels(group.Get(), path))
      record->members.Add(label);
  record->isSaved = true;
  MakeRoom(context.Collections(), number);
  context.Collections()[static_cast<std::size_t>(number)] = std::move(record);
}

ORXSimIndexSet ReadMembers(hid_t group, std::string const& path) {
  int const count = ReadInteger(group, "count");
  if (count < 0) throw DamageFound{path + " has " + std::to_string(count) + " members"};
  if (HasAttribute(group, "start")) {
    int const start = ReadInteger(group, "start");
    int const stride = ReadInteger(group, "stride");
    std::int64_t const last = start + std::int64_t{stride} * (count > 0 ? count - 1 : 0);
    if (start < 0 || last < 0 || last > std::numeric_limits<int>::max())
      throw DamageFound{path + " has labels outside of 0 to 2147483647"};
    return ORXSimIndexSet::Strided(start, count, stride);
  }
  std::vector<int> const labels = ReadLabels(group, path);
  if (static_cast<std::int64_t>(labels.size()) != count)
    throw DamageFound{path + " has " + std::to_string(labels.size()) + " labels, expected " +
                      std::to_string(count)};
  return ORXSimIndexSet::Listed(labels);
}

void LoadSet(hid_t file, sim::Context& context, int number, std::string const& path) {
  Hdf5Id const group = OpenGroup(file, path);
  int const collection = ReadInteger(group.Get(), "collection");
  sim::CollectionRecord& owner = context.CollectionAt(collection);
  auto members = std::make_shared<ORXSimIndexSet const>(ReadMembers(group.Get(), path));
  MakeRoom(context.Sets(), number);
  owner.sets.emplace(members->Hash(), number);
  context.Sets()[static_cast<std::size_t>(number)] = std::make_unique<sim::SetRecord>(sim::SetRecord{
      .collection = collection, .members = std::move(members), .isTemporary = false, .isSaved = true});
}

void CheckRank(std::vector<int> const& numbers, char const* name, std::string const& path, std::size_t rank) {
  if (numbers.size() != rank)
    throw DamageFound{path + " has " + std::to_string(numbers.size()) + " " + name + ", expected " +
                      std::to_string(rank)};
}

void LoadDenseDrawer(DatabaseFile& file, sim::DistributionRecord const& record, sim::Drawer& drawer,
                     std::string const& path) {
  CellType const cell = record.range.Key() == ORXSimTypeKey::Double ? CellType::Double : CellType::Int32;
  drawer.dense = DenseDrawer::Open(file, path, cell, record.Rank());
  for (int dim = 0; dim < record.Rank(); ++dim) {
    int const size = drawer.sizes[static_cast<std::size_t>(dim)];
    if (drawer.dense->Extent(dim) < size)
      throw DamageFound{path + " has the extent " + std::to_string(drawer.dense->Extent(dim)) +
                        " along dimension " + std::to_string(dim) + ", its member set has " +
                        std::to_string(size)};
  }
}

void LoadSparseDrawer(DatabaseFile& file, hid_t object, sim::DistributionRecord const& record,
                      sim::Drawer& drawer, std::string const& path) {
  int const layout = HasAttribute(object, "serialization") ? ReadInteger(object, "serialization") : 3;
  if (layout != 3 && layout != 4)
    throw DamageFound{path + " has the serialization " + std::to_string(layout) + ", expected 3 or 4"};
  if (record.Rank() != 2 || record.range.Key() != ORXSimTypeKey::Double)
    throw DamageFound{path + " is sparse, but not a matrix of doubles"};
  if (layout == 3) {
    drawer.serialization.SetSparse();
  } else {
    drawer.serialization.SetSparseSym();
  }
  drawer.sparse = SparseDrawer::Open(file, path, drawer.sizes[0], drawer.sizes[1]);
}

std::shared_ptr<sim::Drawer> LoadDrawer(DatabaseFile& file, sim::Context& context,
                                        sim::DistributionRecord const& record, std::string const& path) {
  auto drawer = std::make_shared<sim::Drawer>();
  Hdf5Id const object = CheckedId(H5Oopen(file.Id(), path.c_str(), H5P_DEFAULT), "opening " + path);
  drawer->sets = ReadIntegers(object.Get(), "sets");
  CheckRank(drawer->sets, "sets", path, record.grid.size());
  for (std::size_t dim = 0; dim < record.grid.size(); ++dim) {
    sim::SetRecord const& set = context.SetAt(drawer->sets[dim]);
    if (set.collection != record.grid[dim].collection)
      throw DamageFound{path + " has a member set of another collection along dimension " +
                        std::to_string(dim)};
    drawer->sizes.push_back(set.members->Size());
  }
  if (H5Iget_type(object.Get()) == H5I_DATASET) {
    if (HasAttribute(object.Get(), "chunks")) {
      drawer->chunks = ReadIntegers(object.Get(), "chunks");
      CheckRank(drawer->chunks, "chunk lengths", path, record.grid.size());
      for (int const length : drawer->chunks)
        if (length < 1) throw DamageFound{path + " has the chunk length " + std::to_string(length)};
    }
    LoadDenseDrawer(file, record, *drawer, path);
  } else {
    LoadSparseDrawer(file, object.Get(), record, *drawer, path);
  }
  drawer->isSaved = true;
  return drawer;
}

void LoadDistribution(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Hdf5Id const group = OpenGroup(file.Id(), path);
  auto record = std::make_shared<sim::DistributionRecord>();
  std::vector<int> const grid = ReadIntegers(group.Get(), "grid");
  if (grid.empty() || grid.size() % 2 != 0 || grid.size() > 2 * std::size_t{maxRank})
    throw DamageFound{path + " has a grid of no dimensions, or of too many"};
  for (std::size_t k = 0; k < grid.size(); k += 2) {
    context.CollectionAt(grid[k]);
    record->grid.push_back({.collection = grid[k], .color = grid[k + 1]});
  }
  int const range = ReadInteger(group.Get(), "range");
  if (range != 1 && range != 2)
    throw DamageFound{path + " has cells of type " + std::to_string(range) + ", expected 1 or 2"};
  record->context = &context;
  record->id = {.context = context.ID(), .handle = static_cast<std::uint32_t>(number) + 1};
  record->range = ORXSimRangeType(static_cast<ORXSimTypeKey>(range));
  record->type = ORXSimTypeID(ReadInteger(group.Get(), "type"));
  if (record->type.type < -1 || record->type.type >= static_cast<int>(context.Types().size()))
    throw DamageFound{path + " has the type " + std::to_string(record->type.type) + ", which is not there"};
  record->isSaved = true;
  if (LinkExists(group.Get(), "drawer")) {
    record->drawer = LoadDrawer(file, context, *record, path + "/drawer");
    record->hasSavedDrawer = true;
  }
  MakeRoom(context.Distributions(), number);
  context.Distributions()[static_cast<std::size_t>(number)] = std::move(record);
}

void LoadContexts(DatabaseFile& file,
                  std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create) {
  for (auto const& [number, path] : NumberedLinks(file.Id(), "/", "context_")) {
    std::vector<int> const space = ReadIntegers(OpenGroup(file.Id(), path).Get(), "namespace");
    if (space.size() != 2) throw DamageFound{path + " has a namespace of other than two words"};
    sim::Context& context = create(number, ORXSimNamespaceID(space[0], space[1]));
    LoadTypes(file.Id(), context);
    for (auto const& [k, name] : NumberedLinks(file.Id(), path, "collection_"))
      LoadCollection(file.Id(), context, k, name);
    for (auto const& [k, name] : NumberedLinks(file.Id(), path, "set_"))
      LoadSet(file.Id(), context, k, name);
    for (auto const& [k, name] : NumberedLinks(file.Id(), path, "distribution_"))
      LoadDistribution(file, context, k, name);
  }
}

} // namespace

void LoadCatalog(DatabaseFile& file,
                 std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create) {
  Guarded(file, [&] {
    try {
      LoadContexts(file, create);
    } catch (ORXSimException const& e) {
      if (e.Code() != ORXSimException::staleIdentifier) throw;
      std::string const text = e.AsString().AsText(); // a number that no object has
      throw DamageFound{text.substr(0, text.size() - 1)};
    }
  });
}

} // namespace orx::store
