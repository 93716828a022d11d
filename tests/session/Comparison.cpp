#include "Session.h"

// How a session compares its database with the model.

namespace {

std::string Text(std::vector<int> const& numbers) {
  std::string text;
  for (std::size_t k = 0; k < numbers.size() && k < 12; ++k)
    text.append(" ").append(std::to_string(numbers[k]));
  return text;
}

/// Those of a sparse drawer among zeros, and behind them the diagonal.
std::vector<double> ReadSparse(ORXSimTransfer& transfer, Session::Field const& field) {
  ORXSimPersistentDrawerDesc const facts = DrawerOf(field.id);
  std::vector<double> entries(facts.DataSizeItems(0)), diagonal(field.drawer->diagonal.size());
  std::vector<int> columns(entries.size()), starts(field.sizes[0] + 1);
  Lend(Lend(Lend(transfer.SetSerialization(facts.Serialization()), 0, entries), 1, columns), 2, starts);
  if (!diagonal.empty()) Lend(transfer, 3, diagonal);
  transfer.ExecRead();
  std::vector<double> values(field.drawer->cells.size(), 0.0);
  for (int row = 0; row < field.sizes[0]; ++row)
    for (int k = starts[row]; k < starts[row + 1]; ++k)
      values[row * field.sizes[1] + columns[k]] = entries[k];
  values.insert(values.end(), diagonal.begin(), diagonal.end());
  return values;
}

std::vector<double> ReadCells(Session::Field const& field) {
  ORXSimTransfer transfer{ORXSimDistribution(field.id)};
  transfer.SetRead();
  if (field.drawer->isSparse) return ReadSparse(transfer, field);
  std::vector<double> values(field.drawer->cells.size(), -99.0);
  std::vector<std::int32_t> integers(values.size());
  (field.isInteger ? Lend(transfer, 0, integers) : Lend(transfer, 0, values)).ExecRead();
  if (field.isInteger) values.assign(integers.begin(), integers.end());
  return values;
}

} // namespace

void Session::CheckShape(Context const& context) const {
  ORXSimContext const there(context.id);
  std::vector<int> const found{there.Collections().Size(), there.Distributions().Size()};
  std::vector<int> const expected{Count(context.now.collections), Count(context.now.fields)};
  if (found != expected)
    Fail("a context has as many collections and fields:" + Text(found) + ", expected" + Text(expected));
}

void Session::CheckCollections(Context const& context) const {
  for (Collection const& collection : context.now.collections) {
    ORXSimCollection const there(collection.id);
    bool isEqual = there.Size() == Count(collection.labels);
    // Asking for all labels would create sets.
    if (m_database->IsReadOnly()) isEqual = isEqual && Members(there.BiggestCSetID()) == collection.labels;
    if (!isEqual)
      Fail("a collection has " + std::to_string(there.Size()) + " members, expected" +
           Text(collection.labels));
  }
}

void Session::CheckField(Field const& field, Field const* other) {
  std::string const name = "field " + std::to_string(field.id.handle);
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(field.id).QueryDrawers(drawers);
  if (drawers.IsEmpty() != (field.drawer == nullptr)) Fail(name + " has a drawer or has none");
  if (drawers.IsEmpty()) return;
  ModelDrawer& drawer = *field.drawer;
  for (int dim = 0; dim < Count(drawer.labels); ++dim)
    if (Members(drawers[0].DimensionCSetID(dim)) != drawer.labels[dim])
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
  for (Context const& context : m_contexts) {
    CheckShape(context);
    auto const& fields = context.now.fields;
    for (int sample = 0; sample < 20 && !fields.empty(); ++sample)
      CheckField(fields[m_sampleRandom() % fields.size()], nullptr);
  }
}

void Session::CheckAll() const {
  for (Context const& context : m_contexts) {
    CheckShape(context);
    CheckCollections(context);
    for (Field const& field : context.now.fields)
      CheckField(field, nullptr);
  }
}

void Session::CheckAndAdopt(Session const& inFlight) {
  for (std::size_t k = 0; k < m_contexts.size(); ++k) {
    CheckCollections(m_contexts[k]);
    auto const& fields = m_contexts[k].now.fields;
    auto const* const others = k < inFlight.m_contexts.size() ? &inFlight.m_contexts[k].now.fields : nullptr;
    for (std::size_t f = 0; f < fields.size(); ++f)
      CheckField(fields[f], others != nullptr && f < others->size() ? &(*others)[f] : nullptr);
  }
}
