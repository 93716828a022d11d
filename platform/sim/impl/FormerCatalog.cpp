#include "file/Checksum.h"
#include "sim/impl/CatalogStorage.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/FileObjects.h"

#include <limits>

// Reads files of format version 1, in which each collection, member set and distribution is a group with
// attributes.

namespace orx::store {

namespace {

std::vector<int> ReadLabels(DatabaseFile const& file, std::string const& path) {
  Handle const dataset = OpenUnsharedObject(file, path + "/labels");
  std::vector<int> labels = ReadIntegerList(file, dataset, "the labels of " + path);
  if (HasAttribute(dataset, "checksum")) {
    auto const saved = ReadWords(dataset, "checksum");
    if (saved.size() != 1 || saved[0] != file::Checksum(labels.data(), labels.size() * sizeof(int), 1))
      throw DamageFound{"the labels of " + path + " do not have the checksum they were written with"};
  }
  for (int const label : labels)
    if (label < 0) throw DamageFound{path + " has the negative label " + std::to_string(label)};
  return labels;
}

void LoadCollection(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Handle const group = OpenUnsharedObject(file, path);
  int const leading = ReadInteger(group, "members");
  if (leading < 0) throw DamageFound{path + " has " + std::to_string(leading) + " members"};
  sim::CollectionRecord record{.type = ORXSimTypeID(ReadInteger(group, "type")),
                               .members = sim::CollectionMembers(leading)};
  if (HasAttribute(group, "colors")) record.colors = ReadIntegers(group, "colors");
  if (file.HasObject(path + "/labels"))
    for (int const label : ReadLabels(file, path)) {
      if (record.members.IsFull()) throw DamageFound{path + " has more than 2147483647 members"};
      record.members.AddLabel(label);
    }
  context.LoadCollection(number, std::move(record));
}

ORXSimIndexSet ReadMembers(DatabaseFile const& file, Handle const& group, std::string const& path) {
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
  std::vector<int> const labels = ReadLabels(file, path);
  if (static_cast<std::int64_t>(labels.size()) != count)
    throw DamageFound{path + " has " + std::to_string(labels.size()) + " labels, expected " +
                      std::to_string(count)};
  return ORXSimIndexSet::Listed(labels);
}

void LoadSet(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Handle const group = OpenUnsharedObject(file, path);
  sim::SetRecord record;
  record.collection = ReadInteger(group, "collection");
  record.members = std::make_shared<ORXSimIndexSet const>(ReadMembers(file, group, path));
  context.LoadSet(number, std::move(record));
}

void CheckRank(std::vector<int> const& numbers, char const* name, std::string const& path, std::size_t rank) {
  if (numbers.size() != rank)
    throw DamageFound{path + " has " + std::to_string(numbers.size()) + " " + name + ", expected " +
                      std::to_string(rank)};
}

void LoadSerialization(Handle const& object, sim::DistributionRecord const& record, sim::Drawer& drawer,
                       std::string const& path) {
  int const layout = HasAttribute(object, "serialization") ? ReadInteger(object, "serialization") : 3;
  if (layout != 3 && layout != 4)
    throw DamageFound{path + " has the serialization " + std::to_string(layout) + ", expected 3 or 4"};
  if (record.Rank() != 2 || record.range.Key() != ORXSimTypeKey::Double)
    throw DamageFound{path + " is sparse, but not a matrix of doubles"};
  SetSerialization(drawer.serialization, layout);
}

std::shared_ptr<sim::Drawer> LoadDrawer(DatabaseFile& file, sim::Context& context,
                                        sim::DistributionRecord const& record, std::string const& path) {
  auto drawer = std::make_shared<sim::Drawer>();
  Handle const object = OpenObject(file, path);
  drawer->sets = ReadIntegers(object, "sets");
  CheckRank(drawer->sets, "sets", path, record.grid.size());
  for (std::size_t dim = 0; dim < record.grid.size(); ++dim) {
    sim::SetRecord const& set = context.SetAt(drawer->sets[dim]);
    if (set.collection != record.grid[dim].collection)
      throw DamageFound{path + " has a member set of another collection along dimension " +
                        std::to_string(dim)};
    drawer->sizes.push_back(set.members->Size());
  }
  if (IsDataset(object)) {
    if (HasAttribute(object, "chunks")) {
      drawer->chunks = ReadIntegers(object, "chunks");
      CheckRank(drawer->chunks, "chunk lengths", path, record.grid.size());
      for (int const length : drawer->chunks)
        if (length < 1) throw DamageFound{path + " has the chunk length " + std::to_string(length)};
    }
  } else {
    LoadSerialization(object, record, *drawer, path);
  }
  drawer->isSaved = true;
  return drawer;
}

void LoadDistribution(DatabaseFile& file, sim::Context& context, int number, std::string const& path) {
  Handle const group = OpenUnsharedObject(file, path);
  auto record = std::make_shared<sim::DistributionRecord>();
  std::vector<int> const grid = ReadIntegers(group, "grid");
  if (grid.empty() || grid.size() % 2 != 0 || grid.size() > 2 * std::size_t{maxRank})
    throw DamageFound{path + " has a grid of no dimensions, or of too many"};
  for (std::size_t k = 0; k < grid.size(); k += 2) {
    context.CollectionAt(grid[k]);
    record->grid.push_back({.collection = grid[k], .color = grid[k + 1]});
  }
  int const range = ReadInteger(group, "range");
  if (range != 1 && range != 2)
    throw DamageFound{path + " has cells of type " + std::to_string(range) + ", expected 1 or 2"};
  record->range = ORXSimRangeType(static_cast<ORXSimTypeKey>(range));
  record->type = ORXSimTypeID(ReadInteger(group, "type"));
  if (record->type.type < -1 || record->type.type >= static_cast<int>(context.Types().size()))
    throw DamageFound{path + " has the type " + std::to_string(record->type.type) + ", which is not there"};
  if (file.HasObject(path + "/drawer")) {
    record->drawer = LoadDrawer(file, context, *record, path + "/drawer");
    record->hasSavedDrawer = true;
  }
  context.LoadDistribution(static_cast<std::uint32_t>(number) + 1, std::move(record));
}

} // namespace

void LoadFormerContext(DatabaseFile& file, sim::Context& context) {
  for (auto const& [k, path] : NumberedLinks(file, context.Path(), "collection_"))
    LoadCollection(file, context, k, path);
  for (auto const& [k, path] : NumberedLinks(file, context.Path(), "set_"))
    LoadSet(file, context, k, path);
  for (auto const& [k, path] : NumberedLinks(file, context.Path(), "distribution_"))
    LoadDistribution(file, context, k, path);
}

} // namespace orx::store
