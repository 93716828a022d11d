#pragma once

#include "tests/file/FileSupport.h"

#include "core/ORXUnicodeString.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"
#include "sim/impl/store/LinkCheck.h"
#include "tests/support/Raised.h"

#include <array>
#include <vector>

/// Every commit of the tests is checked.
inline bool const checksCommits = orx::store::checksEveryCommit = true;

/// While it lives: the check looks at every object and chunk, which takes long where there are many.
struct WithoutLinkChecks : Uncopied {
  WithoutLinkChecks() { orx::store::checksEveryCommit = false; }
  ~WithoutLinkChecks() { orx::store::checksEveryCommit = true; }
};

inline void Create(ORXSimDatabase& database, std::string const& path) {
  database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
}
inline void Open(ORXSimDatabase& database, std::string const& path, bool readOnly = false) {
  database.OpenFile(ORXUnicodeString(path.c_str()), readOnly);
}

inline std::vector<int> Members(ORXSimCSetID const& id) {
  ORXSimCSet const set(id);
  std::vector<int> labels(set.Size());
  set.OrderedMembers(labels.data());
  return labels;
}

/// A field over new collections of these sizes.
inline ORXSimDistributionID CreateField(ORXSimContext const& context, std::vector<int> const& sizes,
                                        ORXSimTypeKey key = ORXSimTypeKey::Double) {
  ORXSimArray<ORXSimCollectionID> collections;
  for (int const size : sizes)
    collections.Append(context.CreateCollection(size, ORXSimTypeID()));
  return context.CreateDistribution(ORXSimGrid(collections), ORXSimRangeType(key), ORXSimTypeID());
}

inline ORXSimArray<int> Numbers(std::vector<int> const& values) {
  ORXSimArray<int> array;
  for (int const value : values)
    array.Append(value);
  return array;
}

/// Its drawer over all members: in chunks, or whole when there are none.
inline void CreateDrawer(ORXSimDistributionID const& field, std::vector<int> const& chunks,
                         double fill = 0.0) {
  ORXSimTransfer transfer{ORXSimDistribution(field)};
  if (chunks.empty()) {
    transfer.SetMakeNewDrawer();
  } else {
    transfer.SetMakeNewDrawerChunked(Numbers(chunks));
  }
  transfer.SetWrite().SetInitializationValue(ORXSimRangeValue(fill, -1, ORXSimTypeKey::Double));
  transfer.CheckView().InitializePersistentDrawer();
}

inline ORXSimPersistentDrawerDesc DrawerOf(ORXSimDistributionID const& field) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(field).QueryDrawers(drawers);
  if (drawers.IsEmpty()) throw std::runtime_error("no drawer");
  return drawers[0];
}

/// Gives all of an array to a transfer as its buffer of that index.
template<class Array>
ORXSimTransfer& Lend(ORXSimTransfer& transfer, int index, Array& array) {
  return transfer.SetBuffer(index, array.data(), static_cast<std::int64_t>(array.size() * sizeof array[0]));
}

/// The first and the last position along each dimension; all cells without any.
using Ranges = std::vector<std::pair<int, int>>;
inline ORXSimTransfer TransferOf(ORXSimDistributionID const& field, Ranges const& ranges = {}) {
  ORXSimTransfer transfer{ORXSimDistribution(field)};
  int dim = 0;
  for (auto const& [first, last] : ranges)
    transfer.SetDimOrdinalRange(dim++, {}, first, last);
  return transfer;
}
/// The field of that number in the first context.
inline ORXSimDistributionID FieldIn(ORXSimDatabase const& database, int number = 0) {
  return ORXSimContext(database.Contexts()[0]).Distributions()[number];
}

/// All cells, packed.
inline std::vector<double> CellsOf(ORXSimDistributionID const& field) {
  std::vector<double> cells(DrawerOf(field).DataSizeItems(0), -99.0);
  Lend(TransferOf(field).SetRead(), 0, cells).ExecRead();
  return cells;
}

inline void WriteCells(ORXSimDistributionID const& field, std::vector<double> const& cells,
                       Ranges const& ranges = {}) {
  Lend(TransferOf(field, ranges).SetWrite(), 0, cells).ExecWrite();
}

/// The cells of these ranges.
template<std::size_t count>
std::array<double, count> Read(ORXSimDistributionID const& field, Ranges const& ranges) {
  std::array<double, count> cells;
  cells.fill(-99.0);
  Lend(TransferOf(field, ranges).SetRead(), 0, cells).ExecRead();
  return cells;
}

/// A sparse drawer over all members: row k has the values starts[k] ... starts[k + 1] - 1.
inline void WriteSparse(ORXSimDistributionID const& field, std::vector<double> const& values,
                        std::vector<int> const& columns, std::vector<int> const& starts) {
  ORXSimTransfer transfer = TransferOf(field).SetMakeNewDrawer().SetWrite();
  transfer.SetSparseNNonzero(static_cast<int>(values.size()));
  transfer.SetSerialization(ORXSimSerializationType().SetSparse());
  Lend(Lend(Lend(transfer, 0, values), 1, columns), 2, starts).ExecWrite();
}

/// Lengthens its drawer by new members.
inline void Extend(ORXSimDistributionID const& field, int dim, int count) {
  ORXSimDistribution const distribution(field);
  ORXSimCollection const collection(distribution.Collection(dim));
  ORXSimCSetID const more = collection.CreateCSetStrided(DrawerOf(field).DimensionSize(dim), count, 1, 1);
  ORXSimTransfer(distribution).SetDimExtension(more).InitializeExtension();
}

/// A new database with one context.
class WithOneContext : public testing::Test {
protected:
  explicit WithOneContext(ORXSimNamespaceID space = {}) {
    Create(m_database, Path());
    m_context = m_database.CreateContext(space);
  }
  std::string Path(char const* name = "a.sim") const { return m_folder.Path(name); }
  ORXSimContext Context() const { return ORXSimContext(m_context); }
  ORXSimCollection NewCollection(int size) const {
    return ORXSimCollection(Context().CreateCollection(size, {}));
  }
  void Reopen(bool readOnly = false) {
    m_database.Close();
    Open(m_database, Path(), readOnly);
    m_context = m_database.Contexts()[0];
  }

  TemporaryFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimContextID m_context;
};

/// A whole number from the environment, or the default.
inline int Setting(char const* name, int otherwise) {
  char const* const text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : otherwise;
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif
