#pragma once

// Every rank runs all tests; the root makes the files. What only one rank finds wrong fails the program.

#include "tools/mpi/Petsc.h"
#include "tools/mpi/Ranks.h"

#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

orx::mpi::Ranks const& AllRanks();

/// A folder that the root makes and all ranks know.
class SharedFolder : Uncopied {
public:
  SharedFolder() {
    if (AllRanks().IsRoot()) m_path = m_folder.emplace().Path("");
    AllRanks().Broadcast(m_path);
  }
  ~SharedFolder() { MPI_Barrier(AllRanks().Communicator()); }
  std::string Path(std::string const& name) const { return m_path + name; }

private:
  std::optional<TemporaryFolder> m_folder;
  std::string m_path;
};

/// The text of the error that all ranks have; "" for none.
template<class Work>
std::string SharedText(Work const& work, orx::tool::ExitCode code = orx::tool::ExitCode::UnusableInput) {
  std::string text;
  try {
    work();
  } catch (orx::tool::ToolError const& e) {
    EXPECT_EQ(e.Code(), code) << e.what();
    text = e.what();
  }
  std::string ofRoot = text;
  AllRanks().Broadcast(ofRoot);
  EXPECT_EQ(text, ofRoot);
  return text;
}

/// The arrays of a sparse drawer.
struct Arrays {
  int rows = 0, columns = 0;
  std::vector<int> pointers{0};
  std::vector<int> indices{};
  std::vector<double> values{};
  std::vector<double> diagonal{}; ///< symmetric form only

  void Add(int column, double value) {
    indices.push_back(column);
    values.push_back(value);
  }
  void EndRow() { pointers.push_back(static_cast<int>(indices.size())); }
};

/// Entries by position.
using Entries = std::map<std::pair<int, int>, double>;

/// The matrix that the arrays stand for, by the plainest means.
inline Entries EntriesOf(Arrays const& a) {
  Entries entries;
  for (std::size_t i = 0; i < a.diagonal.size(); ++i)
    entries[{i, i}] += a.diagonal[i];
  for (int pass = a.diagonal.empty() ? 1 : 0; pass < 2; ++pass)
    for (int i = 0; i < a.rows; ++i)
      for (int k = a.pointers[i]; k < a.pointers[i + 1]; ++k)
        entries[pass == 0 ? std::pair(a.indices[k], i) : std::pair(i, a.indices[k])] += a.values[k];
  return entries;
}

/// The rows of this rank as PETSc has them.
inline Entries OwnEntries(Mat matrix) {
  Entries entries;
  PetscInt first = 0, end = 0;
  orx::mpi::Check(MatGetOwnershipRange(matrix, &first, &end));
  for (PetscInt row = first; row < end; ++row) {
    PetscInt count = 0;
    PetscInt const* columns = nullptr;
    PetscScalar const* values = nullptr;
    orx::mpi::Check(MatGetRow(matrix, row, &count, &columns, &values));
    for (PetscInt k = 0; k < count; ++k) {
      EXPECT_TRUE(k == 0 || columns[k] > columns[k - 1]) << "row " << row;
      entries[{row, columns[k]}] = values[k];
    }
    orx::mpi::Check(MatRestoreRow(matrix, row, &count, &columns, &values));
  }
  return entries;
}

/// Those of all entries whose rows are this rank's.
inline Entries OwnPart(Entries const& all, int rows) {
  orx::mpi::Range const own = AllRanks().OwnShare(rows);
  Entries part;
  for (auto const& [position, value] : all)
    if (own.Has(position.first)) part.emplace(position, value);
  return part;
}

/// A database whose context has one sparse drawer for each of the arrays, of the type of that name.
inline void WriteDatabase(std::string const& path, std::map<std::string, Arrays> const& matrices) {
  AllRanks().OnRoot([&] {
    ORXSimDatabase database;
    database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
    ORXSimContext const context(database.CreateContext(ORXSimNamespaceID()));
    for (auto const& [type, a] : matrices) {
      ORXSimArray<ORXSimCollectionID> sides;
      sides.Append(context.CreateCollection(a.rows, ORXSimTypeID()));
      sides.Append(context.CreateCollection(a.columns, ORXSimTypeID()));
      ORXSimTransfer transfer{ORXSimDistribution(
          context.CreateDistribution(ORXSimGrid(sides), ORXSimRangeType(ORXSimTypeKey::Double),
                                     ORXSimTypeID{context.DefineType(type.c_str())}))};
      ORXSimSerializationType layout;
      transfer.SetSerialization(a.diagonal.empty() ? layout.SetSparse() : layout.SetSparseSym());
      transfer.SetMakeNewDrawer().SetWrite().SetSparseNNonzero(static_cast<int>(a.values.size()));
      auto const lend = [&](int index, auto const& array) {
        transfer.SetBuffer(index, static_cast<void const*>(array.data()),
                           static_cast<std::int64_t>(array.size() * sizeof array[0]));
      };
      lend(0, a.values), lend(1, a.indices), lend(2, a.pointers);
      if (!a.diagonal.empty()) lend(3, a.diagonal);
      transfer.ExecWrite();
    }
    database.Close();
  });
}
