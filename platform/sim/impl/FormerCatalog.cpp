#include "file/Checksum.h"
#include "file/TransactionalFile.h"
#include "sim/impl/CatalogStorage.h"
#include "sim/impl/store/DatabaseFile.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <limits>

// Reads files of format version 1, in which each collection, member set and distribution is a group with
// attributes.

namespace orx::store {

namespace {

/// Opens an object. Raises DamageFound unless one link leads to it: objects read once for each of many links
/// could fill the memory from a small file.
Hdf5Id OpenOwned(hid_t place, std::string const& name, std::string const& path) {
  Hdf5Id object = CheckedReadId(H5Oopen(place, name.c_str(), H5P_DEFAULT), "opening " + path);
  H5O_info_t info;
  CheckedRead(H5Oget_info2(object.Get(), &info, H5O_INFO_BASIC), "looking at " + path);
  if (info.rc != 1) throw DamageFound{path + " has " + std::to_string(info.rc) + " links, expected 1"};
  return object;
}

Hdf5Id OpenGroup(hid_t file, std::string const& path) { return OpenOwned(file, path, path); }

bool LinkExists(hid_t place, std::string const& name) {
  return CheckedRead(H5Lexists(place, name.c_str(), H5P_DEFAULT), "looking for " + name) > 0;
}

/// True when all elements of the dataset lie in the file uncompressed. A dataset that is compressed or lacks
/// space in the file may claim more elements than fit in memory.
bool IsStoredWhole(DatabaseFile const& file, hid_t dataset, hid_t type, hssize_t count) {
  Hdf5Id const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of labels");
  std::uint64_t const stored = H5Dget_storage_size(dataset);
  return H5Pget_nfilters(creation.Get()) == 0 && H5Pget_external_count(creation.Get()) <= 0 &&
         stored <= file.Bytes().EndOfAllocation() &&
         stored / std::max<std::size_t>(H5Tget_size(type), 1) >= static_cast<std::uint64_t>(count);
}

std::vector<int> ReadLabels(DatabaseFile const& file, hid_t group, std::string const& path) {
  std::string const what = "reading the labels of " + path;
  Hdf5Id const dataset = OpenOwned(group, "labels", path + "/labels");
  Hdf5Id const space = CheckedReadId(H5Dget_space(dataset.Get()), what);
  Hdf5Id const type = CheckedReadId(H5Dget_type(dataset.Get()), what);
  hssize_t const count = CheckedRead(H5Sget_simple_extent_npoints(space.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_INTEGER || count > std::numeric_limits<int>::max() ||
      !IsStoredWhole(file, dataset.Get(), type.Get(), count))
    throw DamageFound{"the labels of " + path + " are not a list of integers"};
  std::vector<int> labels(static_cast<std::size_t>(count));
  if (count > 0)
    CheckedRead(H5Dread(dataset.Get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, labels.data()), what);
  if (HasAttribute(dataset.Get(), "checksum")) {
    auto const saved = ReadWords(dataset.Get(), "checksum");
    if (saved.size() != 1 || saved[0] != file::Checksum(labels.data(), labels.size() * sizeof(int), 1))
      throw DamageFound{"the labels of " + path + " do not have the checksum they were written with"};
  }
  for (int const label : labels)
    if (label < 0) throw DamageFound{path + " has the negative label " + std::to_string(label)};
  return labels;
}

void LoadCollection(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Hdf5Id const group = OpenGroup(file.Id(), path);
  int const leading = ReadInteger(group.Get(), "members");
  if (leading < 0) throw DamageFound{path + " has " + std::to_string(leading) + " members"};
  sim::CollectionRecord record{.type = ORXSimTypeID(ReadInteger(group.Get(), "type")),
                               .members = sim::CollectionMembers(leading)};
  if (HasAttribute(group.Get(), "colors")) record.colors = ReadIntegers(group.Get(), "colors");
  if (LinkExists(group.Get(), "labels"))
    for (int const label : ReadLabels(file, group.Get(), path)) {
      if (record.members.IsFull()) throw DamageFound{path + " has more than 2147483647 members"};
      record.members.Add(label);
    }
  context.LoadCollection(number, std::move(record));
}

ORXSimIndexSet ReadMembers(DatabaseFile const& file, hid_t group, std::string const& path) {
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
  std::vector<int> const labels = ReadLabels(file, group, path);
  if (static_cast<std::int64_t>(labels.size()) != count)
    throw DamageFound{path + " has " + std::to_string(labels.size()) + " labels, expected " +
                      std::to_string(count)};
  return ORXSimIndexSet::Listed(labels);
}

void LoadSet(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Hdf5Id const group = OpenGroup(file.Id(), path);
  sim::SetRecord record;
  record.collection = ReadInteger(group.Get(), "collection");
  record.members = std::make_shared<ORXSimIndexSet const>(ReadMembers(file, group.Get(), path));
  context.LoadSet(number, std::move(record));
}

void CheckRank(std::vector<int> const& numbers, char const* name, std::string const& path, std::size_t rank) {
  if (numbers.size() != rank)
    throw DamageFound{path + " has " + std::to_string(numbers.size()) + " " + name + ", expected " +
                      std::to_string(rank)};
}

void LoadSerialization(hid_t object, sim::DistributionRecord const& record, sim::Drawer& drawer,
                       std::string const& path) {
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
}

std::shared_ptr<sim::Drawer> LoadDrawer(DatabaseFile& file, sim::Context& context,
                                        sim::DistributionRecord const& record, std::string const& path) {
  auto drawer = std::make_shared<sim::Drawer>();
  Hdf5Id const object = CheckedReadId(H5Oopen(file.Id(), path.c_str(), H5P_DEFAULT), "opening " + path);
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
  } else {
    LoadSerialization(object.Get(), record, *drawer, path);
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
  record->range = ORXSimRangeType(static_cast<ORXSimTypeKey>(range));
  record->type = ORXSimTypeID(ReadInteger(group.Get(), "type"));
  if (record->type.type < -1 || record->type.type >= static_cast<int>(context.Types().size()))
    throw DamageFound{path + " has the type " + std::to_string(record->type.type) + ", which is not there"};
  if (LinkExists(group.Get(), "drawer")) {
    record->drawer = LoadDrawer(file, context, *record, path + "/drawer");
    record->hasSavedDrawer = true;
  }
  context.LoadDistribution(static_cast<std::uint32_t>(number) + 1, std::move(record));
}

} // namespace

void LoadFormerContext(DatabaseFile& file, sim::Context& context) {
  for (auto const& [k, path] : NumberedLinks(file.Id(), context.Path(), "collection_"))
    LoadCollection(file, context, k, path);
  for (auto const& [k, path] : NumberedLinks(file.Id(), context.Path(), "set_"))
    LoadSet(file, context, k, path);
  for (auto const& [k, path] : NumberedLinks(file.Id(), context.Path(), "distribution_"))
    LoadDistribution(file, context, k, path);
}

} // namespace orx::store
