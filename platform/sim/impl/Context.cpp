#include "sim/impl/Context.h"

#include "sim/impl/CatalogStorage.h"
#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/SparseDrawer.h"

#include <algorithm>
#include <cstring>

namespace orx::sim {

void RefuseAboveLimit(std::int64_t limit, char const* text) {
  RaiseError(ORXSimException::invalidArgument,
             std::string(text) + ", expected at most " + std::to_string(limit) + ".");
}

namespace {

[[noreturn]] void RefuseNumber(std::int64_t number, char const* kind, Context const& context) {
  RaiseError(ORXSimException::staleIdentifier, std::string("There is no ") + kind + " " +
                                                   std::to_string(number) + " in " + context.Name() + ".");
}

template<class Records>
auto& FindOrRefuse(Records const& records, typename Records::key_type number, std::int64_t shown,
                   char const* kind, Context const& context) {
  auto const found = records.find(number);
  if (found == records.end()) RefuseNumber(shown, kind, context);
  return found->second;
}

constexpr std::uint32_t largestHandle = static_cast<std::uint32_t>(largestNumber) + 1;

} // namespace

namespace {
std::uint64_t NextShape() {
  static std::uint64_t last = 0;
  return ++last;
}
} // namespace

Drawer::Drawer() : shape(NextShape()) {}
Drawer::~Drawer() = default;

void Drawer::SetAlong(std::size_t dim, int set, int size) {
  bool const isSymmetric = serialization.IsDenseSym();
  for (std::size_t k = 0; k < sets.size(); ++k) {
    if (k != dim && !isSymmetric) continue;
    sets[k] = set;
    sizes[k] = size;
  }
  shape = NextShape();
}

Context::Context(OpenDatabase& database, int number, ORXSimNamespaceID space)
    : m_database(database), m_number(number), m_namespace(space) {}

Context::~Context() {
  m_undo.clear();
  for (auto const& [handle, distribution] : m_distributions) {
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

std::string Context::Path() const { return "/context_" + std::to_string(m_number); }

CollectionRecord& Context::CollectionAt(int number) const {
  return *FindOrRefuse(m_collections, number, number, "collection", *this);
}

SetRecord& Context::SetAt(int number) const {
  SetRecord& set = *FindOrRefuse(m_sets, number, number, "member set", *this);
  if (set.members == nullptr) ReadMembers(set);
  return set;
}

std::shared_ptr<DistributionRecord> const& Context::DistributionAt(std::uint32_t handle) const {
  return FindOrRefuse(m_distributions, handle, std::int64_t{handle} - 1, "distribution", *this);
}

CollectionRecord& Context::FindRecord(ORXSimCollectionID const& id) const {
  return CollectionAt(id.Minor().collection);
}

SetRecord& Context::FindRecord(ORXSimCSetID const& id) const {
  SetRecord& set = SetAt(id.Data().memberSet);
  if (set.collection != id.Minor().collection)
    RaiseError(ORXSimException::staleIdentifier, "Member set " + std::to_string(id.Data().memberSet) +
                                                     " of " + Name() + " belongs to collection " +
                                                     std::to_string(set.collection) + ", not to collection " +
                                                     std::to_string(id.Minor().collection) + ".");
  return set;
}

ORXSimCollectionID Context::CollectionID(int number, int color) const {
  return {ID(), {.collection = number, .color = color}, CollectionAt(number).type};
}

ORXSimCSetID Context::MakeSetID(ORXSimCollectionID const& collection, int set) const {
  return {ID(), {.minor = collection.Minor(), .memberSet = set}, FindRecord(collection).type};
}

// Labels of sets that were read

std::span<int const> Context::ListedLabels(SavedLabels const& saved) const {
  return SavedNumbers().subspan(static_cast<std::size_t>(saved.list), static_cast<std::size_t>(saved.count));
}

ORXSimIndexSet Context::OwnLabels(SetRecord const& set) const {
  SavedLabels const& saved = set.saved;
  if (saved.list < 0) return ORXSimIndexSet::Strided(saved.start, saved.count, saved.stride);
  return ORXSimIndexSet::Listed(ListedLabels(saved));
}

/// Reads the labels of the sets that a set continues, and then its own: all of them share one sequence.
void Context::ReadMembers(SetRecord& set) const {
  std::vector<SetRecord*> chain;
  for (SetRecord* next = &set; next != nullptr && next->members == nullptr;
       next = next->head >= 0 ? m_sets.at(next->head).get() : nullptr)
    chain.push_back(next);
  for (std::size_t k = chain.size(); k-- > 0;) {
    SetRecord& reached = *chain[k];
    ORXSimIndexSet own = OwnLabels(reached);
    ORXSimIndexSet const labels =
        reached.head >= 0 ? ORXSimIndexSet::Joined(*m_sets.at(reached.head)->members, own) : std::move(own);
    reached.members = std::make_shared<ORXSimIndexSet const>(labels);
  }
}

// Changing

/// Makes a change. `undo` takes the change back, also when only a part of it was made: at once when the
/// change raises an error, or when the open transaction is abandoned.
template<class Change>
void Context::ChangeUndoably(std::function<void()> undo, Change&& change) {
  m_database.UpgradeFormat();
  m_undo.push_back(std::move(undo));
  try {
    change();
  } catch (...) {
    auto const step = std::move(m_undo.back());
    m_undo.pop_back();
    step();
    throw;
  }
  if (!m_hasTransaction) m_undo.pop_back();
}

ORXSimCollectionID Context::AddCollection(int size, ORXSimTypeID type) {
  if (m_nextCollection > largestNumber) RefuseAboveLimit(largestNumber, "A context has no more collections");
  int const number = static_cast<int>(m_nextCollection++);
  ChangeUndoably(
      [this, number] {
        m_unsaved.collections.erase(number);
        m_collections.erase(number);
      },
      [&] {
        m_unsaved.collections.insert(number);
        m_collections[number] = std::make_unique<CollectionRecord>(
            CollectionRecord{.type = type, .members = CollectionMembers(size)});
      });
  return CollectionID(number, 0);
}

SetRecord* Context::FindSet(CollectionRecord const& collection, ORXSimIndexSet const& members,
                            int& number) const {
  auto const [first, last] = collection.sets.equal_range(members.Digest());
  for (auto k = first; k != last; ++k) {
    SetRecord& set = SetAt(k->second);
    number = k->second;
    if (*set.members == members) return &set;
  }
  return nullptr;
}

void Context::AddMembers(CollectionRecord& collection, ORXSimIndexSet const& labels) {
  for (int k = 0; k < labels.Size(); ++k) {
    int const label = labels[k];
    if (collection.members.Contains(label)) continue;
    if (collection.members.IsFull()) RefuseAboveLimit(mostMembers, "A collection has no more members");
    collection.members.AddLabel(label);
  }
}

/// Makes a temporary set persistent.
void Context::MakePersistent(int set) {
  SetRecord& record = SetAt(set);
  if (!record.isTemporary) return;
  ChangeUndoably(
      [this, set] {
        if (auto const found = m_sets.find(set); found != m_sets.end()) found->second->isTemporary = true;
        m_unsaved.sets.erase(set);
      },
      [&] {
        m_unsaved.sets.insert(set);
        record.isTemporary = false;
      });
}

int Context::NewSetNumber(bool isTemporary) {
  if (isTemporary) {
    if (m_nextTemporarySet < std::numeric_limits<int>::min())
      RefuseAboveLimit(largestNumber, "A context has no more temporary member sets");
    return static_cast<int>(m_nextTemporarySet--);
  }
  if (m_nextSet > largestNumber) RefuseAboveLimit(largestNumber, "A context has no more member sets");
  return static_cast<int>(m_nextSet++);
}

void Context::InsertSet(int number, std::shared_ptr<SetRecord> record) {
  CollectionRecord& owner = CollectionAt(record->collection);
  std::uint64_t const digest = record->digest;
  if (!record->isTemporary) m_unsaved.sets.insert(number);
  m_sets[number] = std::move(record);
  owner.sets.emplace(digest, number);
}

void Context::RemoveSet(int number) noexcept {
  m_unsaved.sets.erase(number);
  auto const found = m_sets.find(number);
  if (found == m_sets.end()) return;
  SetRecord const& record = *found->second;
  if (auto const owner = m_collections.find(record.collection); owner != m_collections.end()) {
    auto const [first, last] = owner->second->sets.equal_range(record.digest);
    auto const mine =
        std::find_if(first, last, [number](auto const& entry) { return entry.second == number; });
    if (mine != last) owner->second->sets.erase(mine);
  }
  m_sets.erase(found);
}

ORXSimCSetID Context::AddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary) {
  bool const hasNewLabels = !FindRecord(collection).members.ContainsAll(members);
  return FindOrAddSet(collection, std::move(members), isTemporary, hasNewLabels);
}

ORXSimCSetID Context::FindOrAddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members,
                                   bool isTemporary, bool hasNewLabels) {
  CollectionRecord& owner = FindRecord(collection);
  int number = -1;
  if (SetRecord* const found = FindSet(owner, members, number)) {
    if (!isTemporary) MakePersistent(number);
    found->users += isTemporary ? 1 : 0;
    return MakeSetID(collection, number);
  }
  int const of = collection.Minor().collection;
  number = NewSetNumber(isTemporary);
  ChangeUndoably(
      [this, number, of, leading = owner.members.LeadingCount(), added = owner.members.AddedLabels().size()] {
        RemoveSet(number);
        if (auto const found = m_collections.find(of); found != m_collections.end())
          found->second->members.ShrinkTo(leading, added);
      },
      [&] {
        if (hasNewLabels) m_unsaved.collections.insert(of);
        if (hasNewLabels) AddMembers(owner, members);
        auto record = std::make_shared<SetRecord>();
        record->collection = of;
        record->size = members.Size();
        record->digest = members.Digest();
        record->members = std::make_shared<ORXSimIndexSet const>(std::move(members));
        record->isTemporary = isTemporary;
        record->users = 1;
        record->fileNumber = isTemporary ? -1 : number;
        InsertSet(number, std::move(record));
      });
  return MakeSetID(collection, number);
}

ORXSimCSetID Context::AddJoinedSet(ORXSimCollectionID const& collection, int front,
                                   ORXSimCSetID const& back) {
  ORXSimIndexSet members = ORXSimIndexSet::Joined(*SetAt(front).members, *FindRecord(back).members);
  ORXSimCSetID const id = FindOrAddSet(collection, std::move(members), true, false);
  SetRecord& set = FindRecord(id);
  if (set.head < 0 && id.Data().memberSet != front && set.size > SetAt(front).size) set.head = front;
  return id;
}

void Context::DropSet(ORXSimCSetID const& id) {
  SetRecord& record = FindRecord(id);
  record.users = std::max(0, record.users - 1);
  int const number = id.Data().memberSet;
  bool const isHeld = m_sets.at(number).use_count() > 1;
  if (record.isTemporary && record.users == 0 && !isHeld) RemoveSet(number);
}

void Context::AddColor(ORXSimCollectionID const& collection, int color) {
  CollectionRecord& record = FindRecord(collection);
  if (color == 0 || std::find(record.colors.begin(), record.colors.end(), color) != record.colors.end())
    return;
  int const number = collection.Minor().collection;
  ChangeUndoably(
      [this, number, color] {
        if (auto const owner = m_collections.find(number); owner != m_collections.end())
          std::erase(owner->second->colors, color);
      },
      [&] {
        m_unsaved.collections.insert(number);
        record.colors.push_back(color);
      });
}

int Context::AddType(char const* name) {
  for (std::size_t k = 0; k < m_types.size(); ++k)
    if (std::strcmp(m_types[k].AsText(), name) == 0) return static_cast<int>(k);
  std::size_t const index = m_types.size();
  ChangeUndoably([this, index] { m_types.resize(std::min(index, m_types.size())); },
                 [&] { m_types.emplace_back(name); });
  return static_cast<int>(index);
}

ORXSimDistributionID Context::AddDistribution(std::vector<ORXSimIDMinor> grid, ORXSimRangeType range,
                                              ORXSimTypeID type, bool isTemporary) {
  if (m_nextDistribution > largestNumber || m_nextTemporaryHandle <= largestHandle)
    RefuseAboveLimit(largestNumber, "A context has no more distributions");
  auto record = std::make_shared<DistributionRecord>();
  std::uint32_t const handle =
      isTemporary ? m_nextTemporaryHandle-- : static_cast<std::uint32_t>(++m_nextDistribution);
  record->context = this;
  record->id = {.context = ID(), .handle = handle};
  record->grid = std::move(grid);
  record->range = range;
  record->type = type;
  record->isTemporary = isTemporary;
  ChangeUndoably([this, handle] { RemoveDistribution(handle); },
                 [&] {
                   if (!isTemporary) m_unsaved.distributions.insert(handle);
                   m_distributions[handle] = record;
                 });
  return record->id;
}

void Context::RemoveDistribution(std::uint32_t handle) noexcept {
  m_unsaved.distributions.erase(handle);
  auto const found = m_distributions.find(handle);
  if (found == m_distributions.end()) return;
  found->second->context = nullptr;
  found->second->drawer.reset();
  m_distributions.erase(found);
}

void Context::DropDistribution(ORXSimDistributionID const& id) {
  if (!DistributionAt(id.handle)->isTemporary)
    RaiseError(ORXSimException::invalidArgument,
               DistributionAt(id.handle)->Name() + " cannot be dropped: it is not temporary.");
  RemoveDistribution(id.handle);
}

void Context::InstallDrawer(DistributionRecord& distribution, std::shared_ptr<Drawer> drawer) {
  std::uint32_t const handle = distribution.id.handle;
  for (int const set : drawer->sets) {
    SetAt(set);
    drawer->heldSets.push_back(m_sets.at(set));
  }
  ChangeUndoably(
      [this, handle, former = distribution.drawer] {
        auto const found = m_distributions.find(handle);
        if (found != m_distributions.end()) found->second->drawer = former;
      },
      [&] {
        if (!distribution.isTemporary) m_unsaved.distributions.insert(handle);
        distribution.drawer = std::move(drawer);
      });
}

void Context::RecordExtension(DistributionRecord& distribution, int dim, int set) {
  auto const along = static_cast<std::size_t>(dim);
  auto const drawer = distribution.drawer;
  ChangeUndoably([drawer, along, formerSet = drawer->sets[along],
                  formerSize = drawer->sizes[along]] { drawer->SetAlong(along, formerSet, formerSize); },
                 [&] {
                   if (!distribution.isTemporary) m_unsaved.distributions.insert(distribution.id.handle);
                   int const size = SetAt(set).size;
                   drawer->heldSets.push_back(m_sets.at(set));
                   drawer->SetAlong(along, set, size);
                 });
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
  for (auto const& [handle, distribution] : m_distributions)
    if (distribution->isTemporary) distribution->drawer.reset();
}

// Saving and loading

int Context::FileNumberOf(int set) {
  SetRecord& record = *m_sets.at(set);
  if (record.fileNumber < 0) record.fileNumber = NewSetNumber(false);
  return record.fileNumber;
}

int Context::SavedHeadOf(int set) const {
  int head = m_sets.at(set)->head;
  while (head != -1) {
    auto const found = m_sets.find(head);
    if (found == m_sets.end()) return -1;
    SetRecord const& record = *found->second;
    if (!record.isTemporary || record.isSaved) return head;
    head = record.head;
  }
  return -1;
}

void Context::MarkSaved() {
  for (int const k : m_unsaved.collections) {
    auto const found = m_collections.find(k);
    if (found == m_collections.end()) continue;
    CollectionRecord& record = *found->second;
    record.isSaved = true;
    record.savedMembers = record.members.Size();
    record.savedColors = record.colors.size();
  }
  for (int const k : m_unsaved.sets)
    m_sets.at(k)->isSaved = true;
  for (std::uint32_t const handle : m_unsaved.distributions) {
    auto const found = m_distributions.find(handle);
    if (found == m_distributions.end() || found->second->drawer == nullptr) continue;
    Drawer& drawer = *found->second->drawer;
    for (int const set : drawer.sets) {
      m_sets.at(set)->isSaved = true;
      m_sets.at(set)->isTemporary = false;
    }
    drawer.isSaved = true;
    found->second->hasSavedDrawer = true;
    if (drawer.dense != nullptr) drawer.dense->ReleaseHandle();
  }
  m_savedTypes = m_types.size();
  m_unsaved = {.isContext = false, .collections = {}, .sets = {}, .distributions = {}};
}

void Context::MarkUnsaved() {
  for (auto const& [number, record] : m_collections)
    m_unsaved.collections.insert(number);
  for (auto const& [number, record] : m_sets)
    m_unsaved.sets.insert(number);
  for (auto const& [handle, record] : m_distributions)
    m_unsaved.distributions.insert(handle);
}

void Context::MarkNothingUnsaved() noexcept {
  m_unsaved.collections.clear();
  m_unsaved.sets.clear();
  m_unsaved.distributions.clear();
}

void Context::LoadCollection(int number, CollectionRecord record) {
  m_collections[number] = std::make_unique<CollectionRecord>(std::move(record));
  m_nextCollection = std::max(m_nextCollection, std::int64_t{number} + 1);
}

void Context::LoadSet(int number, SetRecord record) {
  SavedLabels const& saved = record.saved;
  if (record.members != nullptr) {
    record.size = record.members->Size();
    record.digest = record.members->Digest();
  } else {
    record.size = saved.count;
    record.digest = saved.list < 0 ? DigestOfProgression(saved.start, saved.stride, saved.count)
                                   : DigestOf(ListedLabels(saved));
  }
  if (record.head >= 0) {
    SetRecord const& head = *FindOrRefuse(m_sets, record.head, record.head, "member set", *this);
    record.digest = JoinedDigest(head.digest, record.digest, record.size);
    record.size += head.size;
  }
  record.fileNumber = number;
  CollectionAt(record.collection).sets.emplace(record.digest, number);
  m_sets[number] = std::make_shared<SetRecord>(std::move(record));
  m_nextSet = std::max(m_nextSet, std::int64_t{number} + 1);
}

void Context::LoadDistribution(std::uint32_t handle, std::shared_ptr<DistributionRecord> record) {
  record->context = this;
  record->id = {.context = ID(), .handle = handle};
  m_nextDistribution = std::max(m_nextDistribution, std::int64_t{handle});
  m_distributions[handle] = std::move(record);
}

Context& DistributionRecord::InContext() const {
  if (context == nullptr)
    RaiseError(ORXSimException::staleIdentifier,
               "Distribution " + std::to_string(id.handle) +
                   " is used after its file was closed or its transaction was abandoned.");
  return *context;
}

std::string DistributionRecord::Name() const {
  std::string const number = isTemporary ? "temporary distribution " + std::to_string(~0u - id.handle)
                                         : "distribution " + std::to_string(id.handle - 1);
  return number + " of " + InContext().Name();
}

std::string DistributionRecord::Path() const {
  return InContext().Path() + "/distribution_" + std::to_string(id.handle - 1);
}

void DistributionRecord::OpenDrawer() const {
  if (drawer->dense != nullptr || drawer->sparse != nullptr) return;
  store::OpenDrawer(InContext().Database().File(), *this);
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
  OpenDrawer();
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
