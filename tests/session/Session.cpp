#include "Session.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "sim/impl/store/LinkCheck.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

namespace {

constexpr std::size_t mostCells = 100000; // of a drawer
constexpr double largestValue = 1e12;     // sums of products stay exact

bool IsMatrix(std::vector<int> const& sizes, ModelDrawer const* drawer, bool isInteger) {
  return drawer != nullptr && !drawer->isSparse && !isInteger && sizes.size() == 2 && sizes[0] > 0 &&
         sizes[1] > 0;
}

std::string Text(std::vector<int> const& numbers) {
  std::string text;
  for (std::size_t k = 0; k < numbers.size() && k < 12; ++k)
    text.append(" ").append(std::to_string(numbers[k]));
  return text;
}

ORXSimRangeValue Value(double value) { return {value, -1, ORXSimTypeKey::Double}; }

template<class Cell>
std::int64_t Bytes(std::vector<Cell> const& cells) {
  return static_cast<std::int64_t>(cells.size() * sizeof(Cell));
}

} // namespace

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
  if (contexts.Size() != static_cast<int>(m_contexts.size())) Fail("there are other contexts");
  for (std::size_t k = 0; k < m_contexts.size(); ++k) {
    Context& context = m_contexts[k];
    context.id = contexts[static_cast<int>(k)];
    CheckShape(k);
    auto const collections = ORXSimContext(context.id).Collections();
    auto const fields = ORXSimContext(context.id).Distributions();
    for (std::size_t c = 0; c < context.now.collections.size(); ++c)
      context.now.collections[c].id = collections[static_cast<int>(c)];
    for (std::size_t f = 0; f < context.now.fields.size(); ++f)
      context.now.fields[f].id = fields[static_cast<int>(f)];
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
  std::size_t count = 0;
  for (Context const& context : m_contexts)
    count += context.now.fields.size();
  return static_cast<int>(count);
}

// Drawing

Session::Context& Session::DrawContext() {
  return m_contexts[static_cast<std::size_t>(Draw(0, static_cast<int>(m_contexts.size()) - 1))];
}

Session::Field* Session::DrawField(Context& context, std::function<bool(Field const&)> const& suits) {
  auto& fields = context.now.fields;
  if (fields.empty()) return nullptr;
  for (int attempt = 0; attempt < 10; ++attempt) {
    Field& field = fields[static_cast<std::size_t>(Draw(0, static_cast<int>(fields.size()) - 1))];
    if (suits(field)) return &field;
  }
  return nullptr;
}

/// All labels, or some in any order.
std::vector<int> Session::DrawLabels(Collection const& collection, std::size_t most) {
  std::vector<int> labels = collection.labels;
  bool const isEverything = !DrawOneIn(4);
  if (isEverything && labels.size() <= most) return labels;
  std::shuffle(labels.begin(), labels.end(), m_random);
  std::size_t const count = std::min(labels.size(), most);
  labels.resize(count == 0 ? 0 : static_cast<std::size_t>(Draw(1, static_cast<int>(count))));
  return labels;
}

/// Labels that are not among those present; of the collection, consecutive, or scattered.
std::vector<int> Session::DrawNewLabels(Collection const& collection, std::vector<int> const& present,
                                        int count) {
  std::set<int> taken(present.begin(), present.end());
  std::vector<int> labels;
  int const kind = Draw(0, 2);
  int next = static_cast<int>(present.size());
  std::size_t candidate = 0;
  while (static_cast<int>(labels.size()) < count) {
    bool const isKnown = kind == 0 && candidate < collection.labels.size();
    int const label = isKnown ? collection.labels[candidate++] : kind == 1 ? next++ : Draw(0, 1000000);
    if (taken.insert(label).second) labels.push_back(label);
  }
  return labels;
}

Session::Chosen Session::DrawPositions(ModelDrawer const& drawer) {
  Chosen chosen;
  for (auto const& labels : drawer.labels) {
    std::vector<int> positions(labels.size());
    std::iota(positions.begin(), positions.end(), 0);
    int const kind = labels.empty() ? 0 : Draw(0, 3);
    int const last = static_cast<int>(labels.size()) - 1;
    if (kind == 1) positions = {Draw(0, last)};
    if (kind == 2) {
      int const first = Draw(0, last);
      positions.resize(static_cast<std::size_t>(Draw(first, last)) + 1);
      positions.erase(positions.begin(), positions.begin() + first);
    }
    if (kind == 3) {
      std::shuffle(positions.begin(), positions.end(), m_random);
      positions.resize(static_cast<std::size_t>(Draw(1, last + 1)));
    }
    chosen.cells *= positions.size();
    chosen.positions.push_back(std::move(positions));
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

void Session::CreateContext() {
  if (m_contexts.size() == 3) return;
  Context context;
  Live([&] { context.id = m_database->CreateContext({}); });
  m_contexts.push_back(context);
}

void Session::CreateCollections() {
  Context& context = DrawContext();
  for (int count = DrawBurst(3000); count > 0; --count) {
    std::vector<int> labels(static_cast<std::size_t>(DrawOneIn(12) ? Draw(100, 500) : Draw(0, 9)));
    std::iota(labels.begin(), labels.end(), 0);
    Collection collection{.labels = labels};
    Live([&] {
      collection.id = ORXSimContext(context.id).CreateCollection(static_cast<int>(labels.size()), {});
    });
    context.now.collections.push_back(std::move(collection));
  }
}

void Session::AddLabels(Collection& collection, std::vector<int> const& labels) {
  std::set<int> present(collection.labels.begin(), collection.labels.end());
  for (int const label : labels)
    if (present.insert(label).second) collection.labels.push_back(label);
}

void Session::CreateSets() {
  Context& context = DrawContext();
  if (context.now.collections.empty()) return;
  auto const last = static_cast<int>(context.now.collections.size()) - 1;
  Collection& collection = context.now.collections[static_cast<std::size_t>(Draw(0, last))];
  bool const isTemporary = DrawOneIn(3);
  for (int count = DrawBurst(1500); count > 0; --count) {
    bool const isNew = !isTemporary && collection.labels.size() < 600 && DrawOneIn(4);
    std::vector<int> const labels =
        isNew ? DrawNewLabels(collection, {}, Draw(1, 5)) : DrawLabels(collection, 20);
    AddLabels(collection, labels);
    Live([&] {
      ORXSimCollection const there(collection.id);
      auto const size = static_cast<int>(labels.size());
      isTemporary ? there.CreateTempOrderedCSet(labels.data(), size)
                  : there.CreateOrderedCSet(labels.data(), size);
    });
  }
}

void Session::CreateFields() {
  Context& context = DrawContext();
  State& state = context.now;
  if (state.collections.empty()) return CreateCollections();
  Field field;
  int const rank = DrawOneIn(4) ? Draw(1, 4) : 2;
  auto const last = static_cast<int>(state.collections.size()) - 1;
  for (int dim = 0; dim < rank; ++dim) {
    int const drawn = Draw(0, last);
    auto const uses = std::count(field.collections.begin(), field.collections.end(), drawn);
    field.collections.push_back(drawn);
    field.colors.push_back(static_cast<int>(uses));
  }
  field.isInteger = DrawOneIn(6);
  for (int count = DrawBurst(900); count > 0; --count) {
    Live([&] {
      ORXSimArray<ORXSimCollectionID> grid;
      for (std::size_t dim = 0; dim < field.collections.size(); ++dim) {
        ORXSimCollectionID const id = state.collections[static_cast<std::size_t>(field.collections[dim])].id;
        grid.Append(field.colors[dim] == 0 ? id : ORXSimCollection(id).CreateColorVariant(field.colors[dim]));
      }
      field.id = ORXSimContext(context.id)
                     .CreateDistribution(
                         ORXSimGrid(grid),
                         ORXSimRangeType(field.isInteger ? ORXSimTypeKey::Int32 : ORXSimTypeKey::Double), {});
    });
    state.fields.push_back(field);
    if (!DrawOneIn(20)) MakeDrawer(context, state.fields.back());
  }
}

void Session::ReplaceDrawer() {
  Context& context = DrawContext();
  if (Field* const field = DrawField(context, [](Field const&) { return true; })) MakeDrawer(context, *field);
}

void Session::MakeDrawer(Context& context, Field& field) {
  std::vector<std::vector<int>> labels;
  std::size_t most = mostCells;
  bool isEverything = true;
  for (int const collection : field.collections) {
    Collection const& members = context.now.collections[static_cast<std::size_t>(collection)];
    labels.push_back(DrawLabels(members, most));
    isEverything = isEverything && labels.back() == members.labels;
    most /= std::max<std::size_t>(1, labels.back().size());
  }
  if (labels.size() == 2 && !field.isInteger && DrawOneIn(6)) {
    MakeSparseDrawer(field, labels);
  } else {
    MakeDenseDrawer(field, labels, isEverything);
  }
}

void Session::MakeDenseDrawer(Field& field, std::vector<std::vector<int>> const& labels, bool isEverything) {
  auto drawer = std::make_shared<ModelDrawer>();
  drawer->labels = labels;
  std::size_t cells = 1;
  bool const isChunked = !DrawOneIn(4);
  for (auto const& along : labels) {
    if (isChunked) drawer->chunks.push_back(DrawOneIn(4) ? 1 : Draw(1, static_cast<int>(along.size()) + 5));
    cells *= along.size();
  }
  drawer->fill = DrawOneIn(2) ? 0.0 : DrawValue();
  drawer->cells.assign(cells, drawer->fill);
  bool const isWritten = DrawOneIn(2);
  if (isWritten)
    for (double& cell : drawer->cells)
      cell = DrawValue();
  Live([&] {
    ORXSimDistribution const distribution(field.id);
    ORXSimTransfer transfer(distribution);
    isChunked ? transfer.SetMakeNewDrawerChunked(Numbers(drawer->chunks)) : transfer.SetMakeNewDrawer();
    for (int dim = 0; dim < static_cast<int>(labels.size()) && !isEverything; ++dim) {
      auto const& along = labels[static_cast<std::size_t>(dim)];
      transfer.SetDim(dim, ORXSimCollection(distribution.Collection(dim))
                               .CreateOrderedCSet(along.data(), static_cast<int>(along.size())));
    }
    transfer.SetWrite().SetInitializationValue(Value(drawer->fill)).CheckView();
    std::vector<std::int32_t> const integers(drawer->cells.begin(), drawer->cells.end());
    field.isInteger ? transfer.SetBuffer(0, integers.data(), Bytes(integers))
                    : transfer.SetBuffer(0, drawer->cells.data(), Bytes(drawer->cells));
    isWritten ? transfer.ExecWrite() : transfer.InitializePersistentDrawer();
  });
  field.drawer = std::move(drawer);
  field.sizes = field.drawer->Sizes();
}

void Session::MakeSparseDrawer(Field& field, std::vector<std::vector<int>> const& labels) {
  auto drawer = std::make_shared<ModelDrawer>();
  drawer->labels = labels;
  drawer->isSparse = true;
  std::size_t const rows = labels[0].size();
  std::vector<double> values;
  std::vector<int> columns;
  std::vector<int> starts{0};
  for (std::size_t row = 0; row < rows; ++row) {
    for (int column = 0; column < static_cast<int>(labels[1].size()); ++column) {
      drawer->cells.push_back(DrawOneIn(4) ? Draw(1, 1000) : 0.0);
      if (drawer->cells.back() == 0.0) continue;
      values.push_back(drawer->cells.back());
      columns.push_back(column);
    }
    starts.push_back(static_cast<int>(values.size()));
  }
  bool const isSymmetric = rows > 0 && DrawOneIn(3);
  for (std::size_t row = 0; row < rows && isSymmetric; ++row)
    drawer->diagonal.push_back(DrawValue());
  Live([&] {
    ORXSimDistribution const distribution(field.id);
    ORXSimTransfer transfer(distribution);
    ORXSimSerializationType type;
    isSymmetric ? type.SetSparseSym() : type.SetSparse();
    transfer.SetMakeNewDrawer().SetWrite().SetSerialization(type).SetSparseNNonzero(
        static_cast<int>(values.size()));
    for (int dim = 0; dim < 2; ++dim) {
      auto const& along = labels[static_cast<std::size_t>(dim)];
      transfer.SetDim(dim, ORXSimCollection(distribution.Collection(dim))
                               .CreateOrderedCSet(along.data(), static_cast<int>(along.size())));
    }
    transfer.SetBuffer(0, values.data(), Bytes(values)).SetBuffer(1, columns.data(), Bytes(columns));
    transfer.SetBuffer(2, starts.data(), Bytes(starts));
    if (isSymmetric) transfer.SetBuffer(3, drawer->diagonal.data(), Bytes(drawer->diagonal));
    transfer.ExecWrite();
  });
  field.drawer = std::move(drawer);
  field.sizes = field.drawer->Sizes();
}

ORXSimTransfer Session::TransferOf(Field const& field, Chosen const& chosen, bool bySets) {
  ORXSimDistribution const distribution(field.id);
  ORXSimTransfer transfer(distribution);
  for (std::size_t d = 0; d < chosen.positions.size(); ++d) {
    auto const dim = static_cast<int>(d);
    auto const& positions = chosen.positions[d];
    auto const count = static_cast<int>(positions.size());
    bool const isRange = count > 0 && positions.back() - positions.front() + 1 == count &&
                         std::is_sorted(positions.begin(), positions.end());
    if (count == static_cast<int>(field.drawer->labels[d].size()) && isRange && !bySets) continue;
    if (isRange && !bySets) {
      transfer.SetDimOrdinalRange(dim, distribution.Collection(dim), positions.front(), positions.back());
      continue;
    }
    std::vector<int> labels;
    for (int const position : positions)
      labels.push_back(field.drawer->labels[d][static_cast<std::size_t>(position)]);
    transfer.SetDim(
        dim, ORXSimCollection(distribution.Collection(dim)).CreateTempOrderedCSet(labels.data(), count));
  }
  return transfer;
}

void Session::Write() {
  Context& context = DrawContext();
  Field* const field = DrawField(context, [](Field const& candidate) {
    return candidate.drawer != nullptr && !candidate.drawer->isSparse && !candidate.drawer->cells.empty();
  });
  if (field == nullptr) return;
  Chosen const chosen = DrawPositions(*field->drawer);
  bool const bySets = DrawOneIn(4);
  std::vector<double> values(chosen.cells);
  for (double& value : values)
    value = DrawValue();
  Live([&] {
    std::vector<std::int32_t> const integers(values.begin(), values.end());
    ORXSimTransfer transfer = TransferOf(*field, chosen, bySets).SetWrite();
    field->isInteger ? transfer.SetBuffer(0, integers.data(), Bytes(integers))
                     : transfer.SetBuffer(0, values.data(), Bytes(values));
    transfer.ExecWrite();
  });
  field->drawer->ForEach(chosen.positions,
                         [&](std::size_t cell, std::size_t k) { field->drawer->cells[cell] = values[k]; });
}

/// Some fields, or now and then more than any cache holds.
void Session::ReadMany() {
  Context& context = DrawContext();
  auto const& fields = context.now.fields;
  if (fields.empty()) return;
  int const first = Draw(0, static_cast<int>(fields.size()) - 1);
  int const count = std::min(DrawBurst(2500), static_cast<int>(fields.size()) - first);
  Live([&] {
    for (int k = first; k < first + count; ++k)
      CheckField(fields[static_cast<std::size_t>(k)], nullptr);
  });
}

void Session::Extend() {
  Context& context = DrawContext();
  Field* const field = DrawField(context, [](Field const& candidate) {
    return candidate.drawer != nullptr && !candidate.drawer->isSparse;
  });
  if (field != nullptr) Lengthen(context, *field, false);
}

/// As a matrix only along rows or columns, with the initial value.
void Session::Lengthen(Context& context, Field& field, bool asMatrix) {
  auto const dim = Draw(0, static_cast<int>(field.collections.size()) - 1);
  auto const along = static_cast<std::size_t>(dim);
  if (field.drawer->cells.size() > mostCells) return;
  int const count = DrawOneIn(10) && field.drawer->cells.size() < 2000 ? Draw(6, 60) : Draw(1, 5);
  Collection& collection = context.now.collections[static_cast<std::size_t>(field.collections[along])];
  std::vector<int> const labels = DrawNewLabels(collection, field.drawer->labels[along], count);
  bool const hasValue = !asMatrix && DrawOneIn(3);
  double const value = hasValue ? DrawValue() : field.drawer->fill;
  Live([&] {
    ORXSimDistribution const distribution(field.id);
    ORXSimCollection const there(distribution.Collection(dim));
    if (asMatrix) {
      if (ORXSrvDenseMatrix(field.id).ExtendDim(dim, count, labels.data()) != 0) Fail("ExtendDim refuses");
      return;
    }
    ORXSimTransfer transfer(distribution);
    if (hasValue) transfer.SetInitializationValue(Value(value));
    transfer.SetWrite()
        .SetDimExtension(there.CreateOrderedCSet(labels.data(), count))
        .CheckView()
        .InitializeExtension();
  });
  AddLabels(collection, labels);
  field.drawer->Extend(dim, labels, value);
  field.sizes = field.drawer->Sizes();
}

// Columns are along dimension 0, rows along dimension 1.

void Session::ChangeMatrix() {
  Context& context = DrawContext();
  Field* const field = DrawField(context, [](Field const& candidate) {
    return IsMatrix(candidate.sizes, candidate.drawer.get(), candidate.isInteger);
  });
  if (field == nullptr) return;
  switch (Draw(0, 3)) {
  case 0:
    return Scale(*field);
  case 1:
    return AddTo(context, *field);
  case 2:
    return Lengthen(context, *field, true);
  default:
    return WriteView(*field);
  }
}

void Session::Scale(Field& field) {
  Live([&] { ORXSrvDenseMatrix(field.id).Scale(-1.0); });
  for (double& cell : field.drawer->cells)
    cell = -cell;
}

void Session::AddTo(Context& context, Field& field) {
  Field const* const other = DrawField(context, [&](Field const& candidate) {
    return IsMatrix(candidate.sizes, candidate.drawer.get(), candidate.isInteger) &&
           candidate.sizes == field.sizes && candidate.drawer != field.drawer;
  });
  if (other == nullptr) return;
  auto const isSmall = [](double cell) { return std::abs(cell) < largestValue; };
  if (!std::all_of(other->drawer->cells.begin(), other->drawer->cells.end(), isSmall) ||
      !std::all_of(field.drawer->cells.begin(), field.drawer->cells.end(), isSmall))
    return;
  Live([&] { ORXSrvDenseMatrix(field.id).AddAssign(ORXSrvDenseMatrix(other->id)); });
  for (std::size_t k = 0; k < field.drawer->cells.size(); ++k)
    field.drawer->cells[k] += other->drawer->cells[k];
}

/// Writes a rectangle through a view that holds it, and reads it back.
void Session::WriteView(Field& field) {
  int const columns = field.sizes[0];
  int const rows = field.sizes[1];
  int const firstColumn = Draw(0, columns - 1);
  int const firstRow = Draw(0, rows - 1);
  int const width = Draw(1, columns - firstColumn);
  int const height = Draw(1, rows - firstRow);
  ORXSrvMatrix values(height, width);
  Chosen chosen;
  for (auto const& [first, count] : {std::pair(firstColumn, width), std::pair(firstRow, height)}) {
    chosen.positions.emplace_back(static_cast<std::size_t>(count));
    std::iota(chosen.positions.back().begin(), chosen.positions.back().end(), first);
  }
  for (int k = 0; k < width * height; ++k)
    values.Values()[k] = DrawValue();
  field.drawer->ForEach(chosen.positions, [&](std::size_t cell, std::size_t k) {
    field.drawer->cells[cell] = values.Values()[k];
  });
  Live([&] {
    ORXSrvDenseMatrix const matrix(field.id);
    std::unique_ptr<ORXSrvDenseMatrix> const view(
        matrix.Submatrix(firstRow, rows - 1, firstColumn, columns - 1));
    view->SetValues(0, height - 1, 0, width - 1, values);
    ORXSrvMatrix found(height, width);
    view->GetValues(0, height - 1, 0, width - 1, found);
    if (!(found == values)) Fail("a view reads other values than were written");
  });
}

void Session::ReadProduct() {
  Context& context = DrawContext();
  Field const* const field = DrawField(context, [](Field const& candidate) {
    return IsMatrix(candidate.sizes, candidate.drawer.get(), candidate.isInteger);
  });
  if (field == nullptr) return;
  auto const columns = static_cast<std::size_t>(field->sizes[0]);
  auto const rows = static_cast<std::size_t>(field->sizes[1]);
  std::vector<double> x(columns);
  for (double& value : x)
    value = Draw(-3, 3);
  Live([&] {
    std::vector<double> expected(rows, 0.0);
    std::vector<double> y(rows, 0.0);
    for (std::size_t c = 0; c < columns; ++c)
      for (std::size_t r = 0; r < rows; ++r)
        expected[r] += field->drawer->cells[c * rows + r] * x[c];
    ORXSrvDenseMatrix(field->id).Multiply(x.data(), 1, y.data());
    if (y != expected) Fail("a product differs");
  });
}

// Transactions

void Session::Begin() {
  Context& context = DrawContext();
  if (context.atBegin) return;
  Live([&] { context.transaction.emplace(context.id); });
  context.atBegin = context.now;
}

void Session::Commit() {
  Context& context = DrawContext();
  Live([&] {
    // The check of links and addresses looks at every object.
    orx::store::checksEveryCommit = m_sampleRandom() % 10 == 0;
    if (!context.transaction) context.transaction.emplace(context.id);
    context.transaction->Commit();
    context.transaction.reset();
  });
  context.atBegin.reset();
  SetCommitted(context);
  Live([&] { CheckSample(); });
}

/// Contexts with a transaction of their own are left out of another's commit.
void Session::SetCommitted(Context const& committing) {
  for (Context& context : m_contexts)
    if (&context == &committing || !context.atBegin) context.committed = context.now;
}

void Session::Abandon() {
  Context& context = DrawContext();
  if (!context.atBegin) return;
  context.transaction.reset();
  Restore(context, *context.atBegin);
  context.atBegin.reset();
}

void Session::Reopen() {
  int const kind = Draw(0, 2);
  bool const isLive = IsLive();
  kind == 0 ? DropFile() : CloseFile();
  if (!isLive) return;
  OpenFile(kind == 1);
  CheckAll();
  if (kind == 1) OpenFile(false);
}

// Comparing

void Session::CheckShape(std::size_t context) const {
  State const& state = m_contexts[context].now;
  ORXSimContext const there(m_contexts[context].id);
  int const collections = there.Collections().Size();
  int const fields = there.Distributions().Size();
  if (collections != static_cast<int>(state.collections.size()) ||
      fields != static_cast<int>(state.fields.size()))
    Fail("context " + std::to_string(context) + " has " + std::to_string(collections) + " collections and " +
         std::to_string(fields) + " fields, expected " + std::to_string(state.collections.size()) + " and " +
         std::to_string(state.fields.size()));
}

void Session::CheckCollections(std::size_t context) const {
  for (Collection const& collection : m_contexts[context].now.collections) {
    ORXSimCollection const there(collection.id);
    bool isEqual = there.Size() == static_cast<int>(collection.labels.size());
    // Asking for all labels would create sets.
    if (m_database->IsReadOnly()) isEqual = isEqual && Members(there.BiggestCSetID()) == collection.labels;
    if (!isEqual)
      Fail("a collection has " + std::to_string(there.Size()) + " members, expected" +
           Text(collection.labels));
  }
}

std::vector<double> Session::ReadCells(Field const& field) {
  std::vector<double> values(field.drawer->cells.size() + field.drawer->diagonal.size(), -99.0);
  ORXSimTransfer transfer{ORXSimDistribution(field.id)};
  transfer.SetRead();
  if (field.isInteger) {
    std::vector<std::int32_t> integers(values.size());
    transfer.SetBuffer(0, integers.data(), Bytes(integers)).ExecRead();
    return {integers.begin(), integers.end()};
  }
  if (!field.drawer->isSparse) {
    transfer.SetBuffer(0, values.data(), Bytes(values)).ExecRead();
    return values;
  }
  ORXSimPersistentDrawerDesc const facts = DrawerOf(field.id);
  std::vector<double> entries(static_cast<std::size_t>(facts.DataSizeItems(0)));
  std::vector<int> columns(entries.size());
  std::vector<int> starts(static_cast<std::size_t>(field.sizes[0]) + 1);
  std::vector<double> diagonal(field.drawer->diagonal.size());
  transfer.SetSerialization(facts.Serialization())
      .SetBuffer(0, entries.data(), Bytes(entries))
      .SetBuffer(1, columns.data(), Bytes(columns))
      .SetBuffer(2, starts.data(), Bytes(starts));
  if (!diagonal.empty()) transfer.SetBuffer(3, diagonal.data(), Bytes(diagonal));
  transfer.ExecRead();
  values.assign(field.drawer->cells.size(), 0.0);
  for (std::size_t row = 0; row + 1 < starts.size(); ++row)
    for (int k = starts[row]; k < starts[row + 1]; ++k)
      values[row * field.drawer->labels[1].size() +
             static_cast<std::size_t>(columns[static_cast<std::size_t>(k)])] =
          entries[static_cast<std::size_t>(k)];
  values.insert(values.end(), diagonal.begin(), diagonal.end());
  return values;
}

void Session::CheckField(Field const& field, Field const* other) {
  std::string const name = "field " + std::to_string(field.id.handle);
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(field.id).QueryDrawers(drawers);
  if (drawers.IsEmpty() != (field.drawer == nullptr)) Fail(name + " has a drawer or has none");
  if (drawers.IsEmpty()) return;
  ModelDrawer& drawer = *field.drawer;
  for (std::size_t dim = 0; dim < drawer.labels.size(); ++dim)
    if (Members(drawers[0].DimensionCSetID(static_cast<int>(dim))) != drawer.labels[dim])
      Fail(name + " has other members along " + std::to_string(dim) + " than" + Text(drawer.labels[dim]));
  std::vector<int> const chunks(drawers[0].ChunkSizes().begin(), drawers[0].ChunkSizes().end());
  if (chunks != drawer.chunks) Fail(name + " has other chunks");
  bool const hasOther = other != nullptr && other->drawer != nullptr && other->sizes == field.sizes;
  std::vector<double> const found = ReadCells(field);
  for (std::size_t k = 0; k < found.size(); ++k) {
    bool const isDiagonal = k >= drawer.cells.size();
    double& cell = isDiagonal ? drawer.diagonal[k - drawer.cells.size()] : drawer.cells[k];
    if (found[k] == cell) continue;
    if (!hasOther || isDiagonal || other->drawer->cells[k] != found[k])
      Fail("cell " + std::to_string(k) + " of " + name + " with sizes" + Text(field.sizes) + " is " +
           std::to_string(found[k]) + ", expected " + std::to_string(cell));
    cell = found[k];
  }
}

void Session::CheckSample() {
  auto const draw = [this](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(m_sampleRandom);
  };
  for (std::size_t k = 0; k < m_contexts.size(); ++k) {
    CheckShape(k);
    auto const& fields = m_contexts[k].now.fields;
    for (int sample = 0; sample < 20 && !fields.empty(); ++sample)
      CheckField(fields[static_cast<std::size_t>(draw(0, static_cast<int>(fields.size()) - 1))], nullptr);
  }
}

void Session::CheckAll() const {
  for (std::size_t k = 0; k < m_contexts.size(); ++k) {
    CheckShape(k);
    CheckCollections(k);
    for (Field const& field : m_contexts[k].now.fields)
      CheckField(field, nullptr);
  }
}

void Session::CheckAndAdopt(Session const& inFlight) {
  for (std::size_t k = 0; k < m_contexts.size(); ++k) {
    CheckCollections(k);
    auto const& fields = m_contexts[k].now.fields;
    bool const hasOther = k < inFlight.m_contexts.size();
    for (std::size_t f = 0; f < fields.size(); ++f) {
      auto const* const others = hasOther ? &inFlight.m_contexts[k].now.fields : nullptr;
      CheckField(fields[f], others != nullptr && f < others->size() ? &(*others)[f] : nullptr);
    }
  }
}
