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

namespace orx::tool {
namespace {

constexpr int rowsOfChunk = 65536;
constexpr int columnsOfChunk = 64;

ORXSimContextID CreateDatabase(ORXSimDatabase& database, std::string const& path) {
  database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
  return database.CreateContext({});
}

ORXSimCSetID CreateUnknowns(ORXSimContext const& context, int count, std::span<int const> labels) {
  ORXSimCollection const unknowns(context.CreateCollection(labels.empty() ? count : 0, ORXSimTypeID()));
  return labels.empty() ? unknowns.BiggestCSetID() : unknowns.CreateOrderedCSet(labels.data(), count);
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
  ORXSimCSetID unknowns;
  ORXSimCollection columns;
  int unknownCount, columnCount;

  State(std::string const& path, int rows, int count, std::span<int const> labels)
      : id(CreateDatabase(database, path)), context(id), transaction(id),
        unknowns(CreateUnknowns(context, rows, labels)),
        columns(context.CreateCollection(count, ORXSimTypeID())), unknownCount(rows), columnCount(count) {}
};

ColumnsDatabase::ColumnsDatabase(std::string const& path, int unknowns, int columns,
                                 std::span<int const> labels)
    : m_state(std::make_unique<State>(path, unknowns, columns, labels)) {}

ColumnsDatabase::~ColumnsDatabase() = default;

void ColumnsDatabase::AddBlockMatrix(char const* type, std::function<double const*(int)> const& column) {
  State& s = *m_state;
  ORXSimTransfer transfer{ORXSimDistribution(ORXSrvUtilities::Create2DDistribution(
      s.transaction, ORXSrvPosition(s.id), s.context.DefineType(type), s.unknowns, s.columns.BiggestCSetID(),
      rowsOfChunk, columnsOfChunk))};
  transfer.SetWrite();
  for (int j = 0; j < s.columnCount; ++j)
    transfer.SetDimOrdinalRange(0, s.columns.ID(), j, j)
        .SetBuffer(0, column(j), std::int64_t{s.unknownCount} * static_cast<std::int64_t>(sizeof(double)))
        .ExecWrite();
}

void ColumnsDatabase::AddVector(char const* type, std::vector<double> const& values) {
  State& s = *m_state;
  ORXSimTransfer(ORXSimDistribution(ORXSrvUtilities::Create1DDistribution(s.transaction, ORXSrvPosition(s.id),
                                                                          s.context.DefineType(type),
                                                                          s.columns.BiggestCSetID(), -1)))
      .SetWrite()
      .SetBuffer(0, values.data(), static_cast<std::int64_t>(values.size() * sizeof(double)))
      .ExecWrite();
}

void ColumnsDatabase::Commit() {
  m_state->transaction.Commit();
  m_state->database.Close();
}

} // namespace orx::tool
