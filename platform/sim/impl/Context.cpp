#include "sim/impl/Context.h"

#include "sim/ORXSimException.h"
#include "sim/impl/OpenDatabase.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/SparseDrawer.h"

#include <algorithm>
#include <cstring>

namespace orx::sim {

namespace {

template<class Record>
Record const& At(std::vector<Record> const& records, std::int64_t index, char const* kind,
                 Context const& context) {
  bool const isThere = index >= 0 && index < static_cast<std::int64_t>(records.size());
  if (!isThere || records[static_cast<std::size_t>(index)] == nullptr) {
    ORXSimException(ORXSimException::staleIdentifier, std::string("There is no ") + kind + " " +
                                                          std::to_string(index) + " in " + context.Name() +
                                                          ".")
        .Throw(__FILE__, __LINE__);
  }
  return records[static_cast<std::size_t>(index)];
}

} // namespace

Drawer::Drawer() = default;
Drawer::~Drawer() = default;

Context::Context(OpenDatabase& database, int number, ORXSimNamespaceID space)
    : m_database(database), m_number(number), m_namespace(space) {}

Context::~Context() {
  m_undo.clear();
  for (auto const& distribution : m_distributions) {
    if (distribution == nullptr) continue;
    distribution->context = nullptr;
    distribution->drawer.reset();
  }
}

ORXSimContextID Context::ID() const noexcept {
  return {.file = m_database.Number(), .context = static_cast<std::uint32_t>(m_number)};
}

std::string Context::Name() const {
  return "context " + std::to_string(m_number) + " of " + m_database.File().Path();
}

CollectionRecord& Context::CollectionAt(int number) const {
  return *At(m_collections, number, "collection", *this);
}

SetRecord& Context::SetAt(int number) const { return *At(m_sets, number, "member set", *this); }

std::shared_ptr<DistributionRecord> const& Context::DistributionAt(std::uint32_t handle) const {
  return At(m_distributions, std::int64_t{handle} - 1, "distribution", *this);
}

CollectionRecord& Context::Find(ORXSimCollectionID const& id) const {
  return CollectionAt(id.Minor().collection);
}

SetRecord& Context::Find(ORXSimCSetID const& id) const {
  SetRecord& set = SetAt(id.Data().memberSet);
  if (set.collection != id.Minor().collection) {
    ORXSimException(ORXSimException::staleIdentifier,
                    "Member set " + std::to_string(id.Data().memberSet) + " of " + Name() +
                        " belongs to collection " + std::to_string(set.collection) + ", not to collection " +
                        std::to_string(id.Minor().collection) + ".")
        .Throw(__FILE__, __LINE__);
  }
  return set;
}

ORXSimCollectionID Context::CollectionID(int number, int color) const {
  return {ID(), {.collection = number, .color = color}, CollectionAt(number).type};
}

void Context::Undoing(std::function<void()> step) {
  if (m_hasTransaction) m_undo.push_back(std::move(step));
}

ORXSimCollectionID Context::AddCollection(int size, ORXSimTypeID type) {
  int const number = static_cast<int>(m_collections.size());
  m_unsaved.collections.insert(number);
  m_collections.push_back(std::make_unique<CollectionRecord>(
      CollectionRecord{.type = type, .members = CollectionMembers(size), .colors = {}}));
  Undoing([this, number] {
    m_unsaved.collections.erase(number);
    m_collections[static_cast<std::size_t>(number)].reset();
  });
  return CollectionID(number, 0);
}

int Context::FindSet(CollectionRecord const& collection, ORXSimIndexSet const& members) const {
  auto const [first, last] = collection.sets.equal_range(members.Hash());
  for (auto k = first; k != last; ++k) {
    auto const& set = m_sets[static_cast<std::size_t>(k->second)];
    if (set != nullptr && *set->members == members) return k->second;
  }
  return -1;
}

void Context::AddMembers(int collection, ORXSimIndexSet const& labels) {
  CollectionMembers& members = CollectionAt(collection).members;
  if (members.ContainsAll(labels)) return;
  int const leading = members.Leading();
  std::size_t const further = members.Further().size();
  Undoing([this, collection, leading, further] {
    auto const& record = m_collections[static_cast<std::size_t>(collection)];
    if (record == nullptr) return;
    record->members.ShrinkTo(leading, further);
    m_unsaved.collections.insert(collection);
  });
  m_unsaved.collections.insert(collection);
  for (int k = 0; k < labels.Size(); ++k)
    members.Add(labels[k]);
}

/// A set that was temporary and is needed for good.
void Context::Keep(int set) {
  SetRecord& record = SetAt(set);
  if (!record.isTemporary) return;
  record.isTemporary = false;
  m_unsaved.sets.insert(set);
  Undoing([this, set] {
    SetAt(set).isTemporary = true;
    m_unsaved.sets.erase(set);
  });
}

ORXSimCSetID Context::AddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary) {
  CollectionRecord& owner = Find(collection);
  auto const identify = [&](int number) {
    return ORXSimCSetID(ID(), {.minor = collection.Minor(), .memberSet = number}, owner.type);
  };
  if (int const found = FindSet(owner, members); found >= 0) {
    if (!isTemporary) Keep(found);
    return identify(found);
  }
  int const collectionNumber = collection.Minor().collection;
  AddMembers(collectionNumber, members);
  int const number = static_cast<int>(m_sets.size());
  std::size_t const hash = members.Hash();
  m_sets.push_back(std::make_unique<SetRecord>(
      SetRecord{.collection = collectionNumber,
                .members = std::make_shared<ORXSimIndexSet const>(std::move(members)),
                .isTemporary = isTemporary}));
  owner.sets.emplace(hash, number);
  if (!isTemporary) m_unsaved.sets.insert(number);
  Undoing([this, number] {
    m_unsaved.sets.erase(number);
    m_sets[static_cast<std::size_t>(number)].reset();
  });
  return identify(number);
}

void Context::AddColor(ORXSimCollectionID const& collection, int color) {
  CollectionRecord& record = Find(collection);
  if (color == 0 || std::find(record.colors.begin(), record.colors.end(), color) != record.colors.end())
    return;
  int const number = collection.Minor().collection;
  record.colors.push_back(color);
  m_unsaved.collections.insert(number);
  Undoing([this, number, color] {
    auto const& owner = m_collections[static_cast<std::size_t>(number)];
    if (owner != nullptr) std::erase(owner->colors, color);
    m_unsaved.collections.insert(number);
  });
}

int Context::AddType(char const* name) {
  for (std::size_t k = 0; k < m_types.size(); ++k)
    if (std::strcmp(m_types[k].AsText(), name) == 0) return static_cast<int>(k);
  m_types.emplace_back(name);
  m_unsaved.areTypes = true;
  Undoing([this] { m_types.pop_back(); });
  return static_cast<int>(m_types.size()) - 1;
}

ORXSimDistributionID Context::AddDistribution(std::vector<ORXSimIDMinor> grid, ORXSimRangeType range,
                                              ORXSimTypeID type, bool isTemporary) {
  auto record = std::make_shared<DistributionRecord>();
  int const number = static_cast<int>(m_distributions.size());
  record->context = this;
  record->id = {.context = ID(), .handle = static_cast<std::uint32_t>(number) + 1};
  record->grid = std::move(grid);
  record->range = range;
  record->type = type;
  record->isTemporary = isTemporary;
  if (!isTemporary) m_unsaved.distributions.insert(number);
  m_distributions.push_back(record);
  Undoing([this, number] {
    auto& abandoned = m_distributions[static_cast<std::size_t>(number)];
    m_unsaved.distributions.erase(number);
    abandoned->context = nullptr;
    abandoned->drawer.reset();
    abandoned.reset();
  });
  return record->id;
}

void Context::InstallDrawer(DistributionRecord& distribution, std::shared_ptr<Drawer> drawer) {
  int const number = static_cast<int>(distribution.id.handle) - 1;
  if (!distribution.isTemporary) {
    for (int const set : drawer->sets)
      Keep(set);
    m_unsaved.distributions.insert(number);
  }
  Undoing([this, number, former = distribution.drawer] {
    m_distributions[static_cast<std::size_t>(number)]->drawer = former;
  });
  distribution.drawer = std::move(drawer);
}

void Context::RecordExtension(DistributionRecord& distribution, int dim, int set) {
  int const number = static_cast<int>(distribution.id.handle) - 1;
  auto const along = static_cast<std::size_t>(dim);
  if (!distribution.isTemporary) {
    Keep(set);
    m_unsaved.distributions.insert(number);
  }
  auto const drawer = distribution.drawer;
  Undoing([this, number, drawer, along, formerSet = drawer->sets[along], formerSize = drawer->sizes[along]] {
    drawer->sets[along] = formerSet;
    drawer->sizes[along] = formerSize;
    if (!m_distributions[static_cast<std::size_t>(number)]->isTemporary)
      m_unsaved.distributions.insert(number);
  });
  drawer->sets[along] = set;
  drawer->sizes[along] = SetAt(set).members->Size();
}

void Context::EndTransaction() noexcept {
  m_undo.clear();
  m_hasTransaction = false;
}

void Context::AbandonTransaction() noexcept {
  m_hasTransaction = false;
  for (auto step = m_undo.rbegin(); step != m_undo.rend(); ++step)
    (*step)();
  m_undo.clear();
}

void Context::DropTemporaries() noexcept {
  for (auto const& distribution : m_distributions)
    if (distribution != nullptr && distribution->isTemporary) distribution->drawer.reset();
}

void Context::MarkSaved() {
  for (int const k : m_unsaved.collections)
    if (auto const& record = m_collections[static_cast<std::size_t>(k)]) record->isSaved = true;
  for (int const k : m_unsaved.sets)
    if (auto const& record = m_sets[static_cast<std::size_t>(k)]) record->isSaved = true;
  for (int const k : m_unsaved.distributions) {
    auto const& record = m_distributions[static_cast<std::size_t>(k)];
    if (record == nullptr) continue;
    record->isSaved = true;
    if (record->drawer == nullptr) continue;
    record->drawer->isSaved = true;
    record->hasSavedDrawer = true;
    if (record->drawer->dense != nullptr) record->drawer->dense->ReleaseHandle();
    if (record->drawer->sparse != nullptr) record->drawer->sparse->ReleaseHandle();
  }
  m_unsaved = {.isContext = false, .areTypes = false, .collections = {}, .sets = {}, .distributions = {}};
}

Context& DistributionRecord::InContext() const {
  if (context == nullptr) {
    ORXSimException(ORXSimException::staleIdentifier,
                    "Distribution " + std::to_string(id.handle) +
                        " is used after its file was closed or its transaction was abandoned.")
        .Throw(__FILE__, __LINE__);
  }
  return *context;
}

std::string DistributionRecord::Name() const {
  return "distribution " + std::to_string(id.handle - 1) + " of " + InContext().Name();
}

ORXSimCollectionID DistributionRecord::Collection(int dim) const {
  ORXSimIDMinor const& minor = grid[static_cast<std::size_t>(dim)];
  return InContext().CollectionID(minor.collection, minor.color);
}

ORXSimCSetID DistributionRecord::DimensionSet(int dim) const {
  ORXSimCollectionID const collection = Collection(dim);
  int const set = drawer->sets[static_cast<std::size_t>(dim)];
  return {collection.Context(), {.minor = collection.Minor(), .memberSet = set}, collection.Type()};
}

ORXSimDrawerDescription DistributionRecord::Describe() const {
  ORXSimDrawerDescription facts;
  for (int dim = 0; dim < Rank(); ++dim) {
    facts.m_sets.Append(DimensionSet(dim));
    facts.m_sizes.Append(drawer->sizes[static_cast<std::size_t>(dim)]);
  }
  for (int const length : drawer->chunks)
    facts.m_chunks.Append(length);
  facts.m_serialization = drawer->serialization;
  if (drawer->sparse != nullptr) {
    facts.m_entries = drawer->sparse->Entries();
    facts.m_hasDiagonal = drawer->sparse->HasDiagonal();
  } else if (drawer->dense->IsExtendable()) {
    facts.m_extendableDimension = 0;
  }
  return facts;
}

} // namespace orx::sim
