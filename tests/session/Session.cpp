#include "Session.h"

#include <numeric>

// States

Session Session::Ghost() const {
  Session ghost = *this;
  ghost.m_database.reset();
  for (Context& context : ghost.m_contexts) {
    for (Field& field : context.now.fields)
      if (field.drawer != nullptr) field.drawer = std::make_shared<ModelDrawer>(*field.drawer);
    context.committed = context.now;
  }
  return ghost;
}

void Session::Seed(unsigned seed) {
  m_random.seed(seed);
  m_sampleRandom.seed(seed);
}

void Session::CreateFile() {
  m_contexts.clear();
  m_database = std::make_shared<ORXSimDatabase>();
  ::Create(*m_database, m_path);
}

void Session::OpenFile(bool readOnly) {
  m_database = std::make_shared<ORXSimDatabase>();
  ::Open(*m_database, m_path, readOnly);
  FindIdentifiers();
}

void Session::FindIdentifiers() {
  auto const contexts = m_database->Contexts();
  if (contexts.Size() != Count(m_contexts)) Fail("there are other contexts");
  for (int k = 0; k < contexts.Size(); ++k) {
    Context& context = m_contexts[k];
    context.id = contexts[k];
    CheckShape(context);
    auto const collections = ORXSimContext(context.id).Collections();
    auto const fields = ORXSimContext(context.id).Distributions();
    for (int c = 0; c < collections.Size(); ++c)
      context.now.collections[c].id = collections[c];
    for (int f = 0; f < fields.Size(); ++f)
      context.now.fields[f].id = fields[f];
    context.committed = context.now;
  }
}

void Session::CloseFile() {
  for (Context& context : m_contexts)
    if (context.atBegin) Restore(context, *context.atBegin);
  orx::store::checksEveryCommit = true;
  Live([&] { m_database->Close(); });
  m_database.reset();
  for (Context& context : m_contexts) {
    context.transaction.reset();
    context.atBegin.reset();
    context.committed = context.now;
  }
}

void Session::DropFile() {
  m_database.reset();
  GoBackToCommit();
}

void Session::GoBackToCommit() {
  std::erase_if(m_contexts, [](Context const& context) { return !context.committed; });
  for (Context& context : m_contexts) {
    Restore(context, *context.committed);
    context.atBegin.reset();
    context.transaction.reset();
  }
}

/// Values were written in place and stay.
void Session::Restore(Context& context, State const& state) const {
  context.now = state;
  for (Field const& field : state.fields)
    if (field.drawer != nullptr) field.drawer->CropTo(field.sizes);
}

int Session::FieldCount() const {
  int count = 0;
  for (Context const& context : m_contexts)
    count += Count(context.now.fields);
  return count;
}

// Drawing

Session::Field* Session::DrawField(Context& context, std::function<bool(Field const&)> const& suits) {
  for (int attempt = 0; attempt < 10 && !context.now.fields.empty(); ++attempt)
    if (Field& field = DrawFrom(context.now.fields); suits(field)) return &field;
  return nullptr;
}

/// All labels, or some in any order.
Labels Session::DrawLabels(Collection const& collection, int most) {
  Labels labels = collection.labels;
  bool const isEverything = !DrawOneIn(4);
  if (isEverything && Count(labels) <= most) return labels;
  std::shuffle(labels.begin(), labels.end(), m_random);
  int const count = std::min(Count(labels), most);
  labels.resize(count == 0 ? 0 : Draw(1, count));
  return labels;
}

/// Labels that are not among those present; of the collection, consecutive, or scattered.
Labels Session::DrawNewLabels(Collection const& collection, Labels const& present, int count) {
  std::set<int> taken(present.begin(), present.end());
  Labels labels;
  int const kind = Draw(0, 2);
  int next = Count(present), candidate = 0;
  while (Count(labels) < count) {
    bool const isKnown = kind == 0 && candidate < Count(collection.labels);
    int const label = isKnown ? collection.labels[candidate++] : kind == 1 ? next++ : Draw(0, 1000000);
    if (taken.insert(label).second) labels.push_back(label);
  }
  return labels;
}

/// All positions along each dimension, one, a range, or some in any order.
std::vector<std::vector<int>> Session::DrawPositions(ModelDrawer const& drawer) {
  std::vector<std::vector<int>> chosen;
  for (Labels const& labels : drawer.labels) {
    int const last = Count(labels) - 1, kind = labels.empty() ? 0 : Draw(0, 3);
    int const first = kind == 1 || kind == 2 ? Draw(0, last) : 0;
    int const end = kind == 1 ? first + 1 : kind == 2 ? Draw(first, last) + 1 : last + 1;
    std::vector<int> positions(end - first);
    std::iota(positions.begin(), positions.end(), first);
    if (kind == 3) {
      std::shuffle(positions.begin(), positions.end(), m_random);
      positions.resize(Draw(1, last + 1));
    }
    chosen.push_back(std::move(positions));
  }
  return chosen;
}

// Steps

void Session::Step() {
  struct Operation {
    int weight;
    void (Session::*run)();
  };
  static constexpr Operation operations[] = {{1, &Session::CreateContext}, {2, &Session::CreateCollections},
                                             {4, &Session::CreateSets},    {10, &Session::CreateFields},
                                             {5, &Session::ReplaceDrawer}, {25, &Session::Write},
                                             {15, &Session::ReadMany},     {8, &Session::Extend},
                                             {8, &Session::ChangeMatrix},  {4, &Session::ReadProduct},
                                             {8, &Session::Begin},         {8, &Session::Commit},
                                             {3, &Session::Abandon},       {1, &Session::Reopen}};
  if (m_contexts.empty()) return CreateContext();
  int all = 0;
  for (Operation const& operation : operations)
    all += operation.weight;
  int drawn = Draw(1, all);
  for (Operation const& operation : operations)
    if ((drawn -= operation.weight) <= 0) return (this->*operation.run)();
}

void Session::Begin() {
  Context& context = DrawFrom(m_contexts);
  if (context.atBegin) return;
  Live([&] { context.transaction.emplace(context.id); });
  context.atBegin = context.now;
}

void Session::Commit() {
  Context& context = DrawFrom(m_contexts);
  Live([&] {
    // The check of links and addresses looks at every object.
    orx::store::checksEveryCommit = m_sampleRandom() % 10 == 0;
    if (!context.transaction) context.transaction.emplace(context.id);
    context.transaction->Commit();
    context.transaction.reset();
  });
  context.atBegin.reset();
  // Contexts with a transaction of their own are left out of another's commit.
  for (Context& other : m_contexts)
    if (!other.atBegin) other.committed = other.now;
  Live([&] { CheckSample(); });
}

void Session::Abandon() {
  Context& context = DrawFrom(m_contexts);
  if (!context.atBegin) return;
  context.transaction.reset();
  Restore(context, *context.atBegin);
  context.atBegin.reset();
}

void Session::Reopen() {
  int const kind = Draw(0, 2);
  bool const isLive = m_database != nullptr;
  kind == 0 ? DropFile() : CloseFile();
  if (!isLive) return;
  OpenFile(kind == 1);
  CheckAll();
  if (kind == 1) OpenFile(false);
}
