#include "Session.h"

#include "mtx/ORXSrvDenseMatrix.h"

#include <numeric>

// What a session does with collections, fields and their drawers.

namespace {

constexpr int mostCells = 100000; // of a drawer

using Cells = std::vector<double>;

bool IsDense(Session::Field const& field) { return field.drawer != nullptr && !field.drawer->isSparse; }

void AddLabels(Session::Collection& collection, Labels const& labels) {
  std::set<int> present(collection.labels.begin(), collection.labels.end());
  for (int const label : labels)
    if (present.insert(label).second) collection.labels.push_back(label);
}

/// Chooses members along each dimension.
void SetSets(ORXSimTransfer& transfer, ORXSimDistribution const& distribution,
             std::vector<Labels> const& labels) {
  for (int dim = 0; dim < Count(labels); ++dim)
    transfer.SetDim(dim, ORXSimCollection(distribution.Collection(dim))
                             .CreateOrderedCSet(labels[dim].data(), Count(labels[dim])));
}

void ExecWrite(ORXSimTransfer& transfer, Session::Field const& field, Cells const& cells) {
  std::vector<std::int32_t> const integers(cells.begin(), cells.end());
  field.isInteger ? Lend(transfer, 0, integers) : Lend(transfer, 0, cells);
  transfer.ExecWrite();
}

} // namespace

void Session::CreateContext() {
  if (m_contexts.size() == 3) return;
  Context context;
  Live([&] { context.id = m_database->CreateContext({}); });
  m_contexts.push_back(context);
}

void Session::CreateCollections() {
  Context& context = DrawFrom(m_contexts);
  for (int count = DrawBurst(3000); count > 0; --count) {
    Collection collection{.labels = Labels(DrawOneIn(12) ? Draw(100, 500) : Draw(0, 9))};
    std::iota(collection.labels.begin(), collection.labels.end(), 0);
    Live([&] { collection.id = ORXSimContext(context.id).CreateCollection(Count(collection.labels), {}); });
    context.now.collections.push_back(std::move(collection));
  }
}

void Session::CreateSets() {
  Context& context = DrawFrom(m_contexts);
  if (context.now.collections.empty()) return;
  Collection& collection = DrawFrom(context.now.collections);
  bool const isTemporary = DrawOneIn(3);
  for (int count = DrawBurst(1500); count > 0; --count) {
    bool const isNew = !isTemporary && collection.labels.size() < 600 && DrawOneIn(4);
    Labels const labels = isNew ? DrawNewLabels(collection, {}, Draw(1, 5)) : DrawLabels(collection, 20);
    AddLabels(collection, labels);
    Live([&] {
      ORXSimCollection const there(collection.id);
      isTemporary ? there.CreateTempOrderedCSet(labels.data(), Count(labels))
                  : there.CreateOrderedCSet(labels.data(), Count(labels));
    });
  }
}

void Session::CreateFields() {
  Context& context = DrawFrom(m_contexts);
  State& state = context.now;
  if (state.collections.empty()) return CreateCollections();
  Field field;
  for (int rank = DrawOneIn(4) ? Draw(1, 4) : 2; rank > 0; --rank)
    field.collections.push_back(Draw(0, Count(state.collections) - 1));
  field.isInteger = DrawOneIn(6);
  for (int count = DrawBurst(900); count > 0; --count) {
    Live([&] {
      ORXSimArray<ORXSimCollectionID> grid;
      for (auto const use = field.collections.begin(); grid.Size() < Count(field.collections);) {
        int const drawn = use[grid.Size()];
        auto const color = static_cast<int>(std::count(use, use + grid.Size(), drawn));
        ORXSimCollectionID const id = state.collections[drawn].id;
        grid.Append(color == 0 ? id : ORXSimCollection(id).CreateColorVariant(color));
      }
      ORXSimRangeType const type(field.isInteger ? ORXSimTypeKey::Int32 : ORXSimTypeKey::Double);
      field.id = ORXSimContext(context.id).CreateDistribution(ORXSimGrid(grid), type, {});
    });
    state.fields.push_back(field);
    if (!DrawOneIn(20)) MakeDrawer(context, state.fields.back());
  }
}

void Session::ReplaceDrawer() {
  Context& context = DrawFrom(m_contexts);
  if (Field* const field = DrawField(context, [](Field const&) { return true; })) MakeDrawer(context, *field);
}

void Session::MakeDrawer(Context& context, Field& field) {
  field.drawer = std::make_shared<ModelDrawer>();
  int most = mostCells;
  bool isEverything = true;
  for (int const collection : field.collections) {
    Labels const& members = context.now.collections[collection].labels;
    Labels const labels = DrawLabels(context.now.collections[collection], most);
    isEverything = isEverything && labels == members;
    most /= std::max(1, Count(labels));
    field.drawer->labels.push_back(labels);
  }
  field.sizes = field.drawer->Sizes();
  if (field.sizes.size() == 2 && !field.isInteger && DrawOneIn(6)) {
    MakeSparseDrawer(field);
  } else {
    MakeDenseDrawer(field, isEverything);
  }
}

void Session::MakeDenseDrawer(Field& field, bool isEverything) {
  ModelDrawer& drawer = *field.drawer;
  int cells = 1;
  bool const isChunked = !DrawOneIn(4), isWritten = DrawOneIn(2);
  for (int const size : field.sizes) {
    if (isChunked) drawer.chunks.push_back(DrawOneIn(4) ? 1 : Draw(1, size + 5));
    cells *= size;
  }
  drawer.fill = DrawOneIn(2) ? 0.0 : DrawValue();
  drawer.cells = isWritten ? DrawValues(cells) : Cells(cells, drawer.fill);
  Live([&] {
    ORXSimDistribution const distribution(field.id);
    ORXSimTransfer transfer(distribution);
    isChunked ? transfer.SetMakeNewDrawerChunked(Numbers(drawer.chunks)) : transfer.SetMakeNewDrawer();
    if (!isEverything) SetSets(transfer, distribution, drawer.labels);
    transfer.SetWrite().SetInitializationValue({drawer.fill, -1, ORXSimTypeKey::Double}).CheckView();
    isWritten ? ExecWrite(transfer, field, drawer.cells) : void(transfer.InitializePersistentDrawer());
  });
}

void Session::MakeSparseDrawer(Field& field) {
  ModelDrawer& drawer = *field.drawer;
  drawer.isSparse = true;
  Cells values;
  std::vector<int> columns, starts{0};
  for (int row = 0; row < field.sizes[0]; ++row) {
    for (int column = 0; column < field.sizes[1]; ++column) {
      drawer.cells.push_back(DrawOneIn(4) ? Draw(1, 1000) : 0.0);
      if (drawer.cells.back() == 0.0) continue;
      values.push_back(drawer.cells.back());
      columns.push_back(column);
    }
    starts.push_back(Count(values));
  }
  bool const isSymmetric = field.sizes[0] > 0 && DrawOneIn(3);
  if (isSymmetric) drawer.diagonal = DrawValues(field.sizes[0]);
  Live([&] {
    ORXSimDistribution const distribution(field.id);
    ORXSimTransfer transfer(distribution);
    ORXSimSerializationType type;
    isSymmetric ? type.SetSparseSym() : type.SetSparse();
    transfer.SetMakeNewDrawer().SetWrite().SetSerialization(type).SetSparseNNonzero(Count(values));
    SetSets(transfer, distribution, drawer.labels);
    Lend(Lend(Lend(transfer, 0, values), 1, columns), 2, starts);
    if (isSymmetric) Lend(transfer, 3, drawer.diagonal);
    transfer.ExecWrite();
  });
}

/// Some cells, along each dimension by a range of ordinals, a temporary set, or all of it.
void Session::Write() {
  Field* const field = DrawField(DrawFrom(m_contexts), [](Field const& candidate) {
    return IsDense(candidate) && !candidate.drawer->cells.empty();
  });
  if (field == nullptr) return;
  auto const chosen = DrawPositions(*field->drawer);
  bool const bySets = DrawOneIn(4);
  std::size_t count = 1;
  for (auto const& positions : chosen)
    count *= positions.size();
  Cells const values = DrawValues(count);
  Live([&] {
    ORXSimDistribution const distribution(field->id);
    ORXSimTransfer transfer(distribution);
    for (int dim = 0; dim < Count(chosen); ++dim) {
      auto const& positions = chosen[dim];
      ORXSimCollectionID const collection = distribution.Collection(dim);
      bool const isRange = positions.back() - positions.front() + 1 == Count(positions) &&
                           std::is_sorted(positions.begin(), positions.end());
      if (isRange && !bySets) {
        if (Count(positions) < field->sizes[dim])
          transfer.SetDimOrdinalRange(dim, collection, positions.front(), positions.back());
        continue;
      }
      Labels labels;
      for (int const position : positions)
        labels.push_back(field->drawer->labels[dim][position]);
      transfer.SetDim(dim, ORXSimCollection(collection).CreateTempOrderedCSet(labels.data(), Count(labels)));
    }
    ExecWrite(transfer.SetWrite(), *field, values);
  });
  field->drawer->Set(chosen, values);
}

/// Some fields, or now and then more than any cache holds.
void Session::ReadMany() {
  auto const& fields = DrawFrom(m_contexts).now.fields;
  if (fields.empty()) return;
  int const first = Draw(0, Count(fields) - 1);
  int const end = std::min(first + DrawBurst(2500), Count(fields));
  Live([&] {
    for (int k = first; k < end; ++k)
      CheckField(fields[k], nullptr);
  });
}

void Session::Extend() {
  Context& context = DrawFrom(m_contexts);
  if (Field* const field = DrawField(context, IsDense)) Lengthen(context, *field, false);
}

/// As a matrix only along rows or columns, with the initial value.
void Session::Lengthen(Context& context, Field& field, bool asMatrix) {
  int const dim = Draw(0, Count(field.sizes) - 1);
  if (Count(field.drawer->cells) > mostCells) return;
  int const count = DrawOneIn(10) && field.drawer->cells.size() < 2000 ? Draw(6, 60) : Draw(1, 5);
  Collection& collection = context.now.collections[field.collections[dim]];
  Labels const labels = DrawNewLabels(collection, field.drawer->labels[dim], count);
  bool const hasValue = !asMatrix && DrawOneIn(3);
  double const value = hasValue ? DrawValue() : field.drawer->fill;
  Live([&] {
    if (asMatrix) {
      if (ORXSrvDenseMatrix(field.id).ExtendDim(dim, count, labels.data()) != 0) Fail("ExtendDim refuses");
      return;
    }
    ORXSimDistribution const distribution(field.id);
    ORXSimCollection const there(distribution.Collection(dim));
    ORXSimTransfer transfer(distribution);
    if (hasValue) transfer.SetInitializationValue({value, -1, ORXSimTypeKey::Double});
    transfer.SetWrite().SetDimExtension(there.CreateOrderedCSet(labels.data(), count));
    transfer.CheckView().InitializeExtension();
  });
  AddLabels(collection, labels);
  field.drawer->Extend(dim, labels, value);
  field.sizes = field.drawer->Sizes();
}
