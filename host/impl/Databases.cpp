#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSrvPosition.h"

#include <algorithm>
#include <string>
#include <vector>

namespace orx::host {
namespace {

std::shared_ptr<Database> DatabaseCreate(char const* path, int replace) {
  auto database = std::make_shared<Database>();
  bool const isReplaced = Flag("replace", replace);
  database->file.CreateFile(ORXUnicodeString(path), isReplaced ? ORXSimDatabase::replaceExisting : 0, -1);
  database->context = database->file.CreateContext({});
  return database;
}

std::shared_ptr<Database> DatabaseOpen(char const* path, int readOnly) {
  auto database = std::make_shared<Database>();
  database->file.OpenFile(ORXUnicodeString(path), Flag("read_only", readOnly));
  ORXSimArray<ORXSimContextID> const contexts = database->file.Contexts();
  if (contexts.Size() > 0) {
    database->context = contexts[0];
  } else if (!database->file.IsReadOnly()) {
    database->context = database->file.CreateContext({});
  }
  return database;
}

void DatabaseClose(std::int64_t& database) {
  Database& open = Find<Database>("database", database);
  open.transaction.reset(); // Close ends it, also when it fails
  open.file.Close();
  RemoveObject(database);
  database = 0;
}

void RequireContext(Database const& database) {
  if (!database.context)
    RaiseHostError(HostError::wrongOrder, "the file was opened read-only and has nothing in it.");
}

void DatabaseBegin(Database& database) {
  RequireContext(database);
  if (database.transaction)
    RaiseHostError(HostError::wrongOrder,
                   "a transaction is open; expected ORX_DATABASE_COMMIT or ORX_DATABASE_ABANDON before.");
  database.transaction.emplace(*database.context);
}

void RequireTransaction(Database const& database) {
  if (!database.transaction)
    RaiseHostError(HostError::wrongOrder, "no transaction is open; expected ORX_DATABASE_BEGIN before.");
}

void DatabaseCommit(Database& database) {
  RequireTransaction(database);
  database.transaction->Commit();
  database.transaction.reset();
}

void DatabaseAbandon(Database& database) {
  RequireTransaction(database);
  database.transaction.reset();
}

std::shared_ptr<BlockMatrix> MatrixOn(ORXSimDistributionID const& distribution) {
  auto matrix = std::make_shared<BlockMatrix>();
  matrix->own = std::make_unique<ORXSrvDenseMatrix>(distribution);
  return matrix;
}

/// The set of a direction of a new matrix: the labels that are given, or 0, 1, 2, ...
ORXSimCSetID MakeSet(ORXSimContext const& context, int size, int const* labels) {
  ORXSimCollection const collection(context.CreateCollection(labels != nullptr ? 0 : size, ORXSimTypeID()));
  return labels != nullptr ? collection.CreateOrderedCSet(labels, size) : collection.BiggestCSetID();
}

ORXSimDistributionID Create(ORXSimTransaction& transaction, char const* name, Shape shape,
                            int const* rowLabels, int const* columnLabels) {
  ORXSimContext const context(transaction.Context());
  int const type = context.DefineType(name);
  ORXSimCSetID const rowSet = MakeSet(context, shape.rows, rowLabels);
  ORXSimCSetID const columnSet = MakeSet(context, shape.columns, columnLabels);
  ORXSrvUtilities::LimitChunkSize2GB(shape.rowBlock, shape.columnBlock, shape.rows, shape.columns);
  return ORXSrvUtilities::Create2DDistribution(transaction, ORXSrvPosition(transaction.Context()), type,
                                               rowSet, columnSet, std::max(shape.rowBlock, 1),
                                               std::max(shape.columnBlock, 1));
}

std::shared_ptr<BlockMatrix> DatabaseAdd(Database& database, char const* name, int rows, int columns,
                                         int rowBlock, int columnBlock, int const* rowLabels,
                                         int const* columnLabels) {
  Shape const shape = ShapeOf(rows, columns, rowBlock, columnBlock);
  if (database.transaction)
    return MatrixOn(Create(*database.transaction, name, shape, rowLabels, columnLabels));
  RequireContext(database);
  ORXSimTransaction own(*database.context);
  std::shared_ptr<BlockMatrix> matrix = MatrixOn(Create(own, name, shape, rowLabels, columnLabels));
  own.Commit();
  return matrix;
}

ORXSimArray<ORXSimDistributionID> Distributions(Database const& database) {
  if (!database.context) return {};
  return ORXSimContext(*database.context).Distributions();
}

/// The distributions of a type.
std::vector<ORXSimDistributionID> FindNamed(Database const& database, char const* name) {
  std::vector<ORXSimDistributionID> found;
  ORXSimArray<ORXSimDistributionID> const all = Distributions(database);
  if (all.IsEmpty()) return found;
  ORXSimTypeSchemaSnapshot const schema = ORXSimContext(*database.context).Schema();
  for (ORXSimDistributionID const& id : all) {
    int const type = ORXSimDistribution(id).Type().type;
    if (type >= 0 && type < schema.Size() && std::string(name) == schema.Name(type).AsText())
      found.push_back(id);
  }
  return found;
}

std::shared_ptr<BlockMatrix> DatabaseMatrix(Database& database, char const* name) {
  std::vector<ORXSimDistributionID> const found = FindNamed(database, name);
  if (found.size() != 1)
    RaiseHostError(HostError::wrongArgument, "the database has " + std::to_string(found.size()) +
                                                 " matrices named '" + name + "'; expected one.");
  return MatrixOn(found.front());
}

std::shared_ptr<BlockMatrix> DatabaseMatrixAt(Database& database, int number) {
  ORXSimArray<ORXSimDistributionID> const all = Distributions(database);
  return MatrixOn(all[PositionOf("number", number, all.Size())]);
}

void DatabaseCount(Database& database, int& count) { count = Distributions(database).Size(); }

} // namespace
} // namespace orx::host

#include "host/Databases.inc"
