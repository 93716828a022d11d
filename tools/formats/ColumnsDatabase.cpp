#include "tools/formats/ColumnsDatabase.h"

#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"
#include "sim/ORXSrvPosition.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace orx::tool {
namespace {

ORXSimContextID CreateDatabase(ORXSimDatabase& database, std::string const& path) {
  database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
  return database.CreateContext({});
}

ORXSimCSetID CreateMembers(ORXSimContext const& context, int count, std::span<int const> labels) {
  ORXSimCollection const members(context.CreateCollection(labels.empty() ? count : 0, ORXSimTypeID()));
  return labels.empty() ? members.BiggestCSetID() : members.CreateOrderedCSet(labels.data(), count);
}

} // namespace

bool IsDatabase(std::string const& path) {
  return std::ranges::any_of(std::array{".sim", ".h5", ".hdf5"},
                             [&](char const* extension) { return path.ends_with(extension); });
}

struct ColumnsDatabase::State {
  ORXSimDatabase database;
  ORXSimContextID id;
  ORXSimContext context;
  ORXSimTransaction transaction;
  ORXSimCSetID rows, columns;
  int rowCount, columnCount, rowsOfChunk, columnsOfChunk;
  std::optional<ORXSimTransfer> blockMatrix;

  State(std::string const& path, ColumnsShape const& shape)
      : id(CreateDatabase(database, path)), context(id), transaction(id),
        rows(CreateMembers(context, shape.rows, shape.rowLabels)),
        columns(CreateMembers(context, shape.columns, shape.columnLabels)), rowCount(shape.rows),
        columnCount(shape.columns), rowsOfChunk(shape.rowsOfChunk), columnsOfChunk(shape.columnsOfChunk) {}
};

ColumnsDatabase::ColumnsDatabase(std::string const& path, ColumnsShape const& shape)
    : m_state(std::make_unique<State>(path, shape)) {}

ColumnsDatabase::~ColumnsDatabase() = default;

void ColumnsDatabase::BeginBlockMatrix(char const* type) {
  State& s = *m_state;
  s.blockMatrix.emplace(ORXSimDistribution(
      ORXSrvUtilities::Create2DDistribution(s.transaction, ORXSrvPosition(s.id), s.context.DefineType(type),
                                            s.rows, s.columns, s.rowsOfChunk, s.columnsOfChunk)));
  s.blockMatrix->SetWrite();
}

void ColumnsDatabase::WriteColumns(int first, int count, double const* values) {
  State& s = *m_state;
  std::int64_t const bytes = std::int64_t{s.rowCount} * count * static_cast<std::int64_t>(sizeof(double));
  s.blockMatrix->SetDimOrdinalRange(0, s.columns.Collection(), first, first + count - 1)
      .SetBuffer(0, values, bytes)
      .ExecWrite();
}

void ColumnsDatabase::AddBlockMatrix(char const* type, std::function<double const*(int)> const& column) {
  BeginBlockMatrix(type);
  for (int j = 0; j < m_state->columnCount; ++j)
    WriteColumns(j, 1, column(j));
}

void ColumnsDatabase::AddVector(char const* type, std::vector<double> const& values) {
  State& s = *m_state;
  ORXSimTransfer(ORXSimDistribution(ORXSrvUtilities::Create1DDistribution(
                     s.transaction, ORXSrvPosition(s.id), s.context.DefineType(type), s.columns, -1)))
      .SetWrite()
      .SetBuffer(0, values.data(), static_cast<std::int64_t>(values.size() * sizeof(double)))
      .ExecWrite();
}

void ColumnsDatabase::Commit() {
  m_state->transaction.Commit();
  m_state->database.Close();
}

} // namespace orx::tool
