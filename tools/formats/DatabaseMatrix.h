#pragma once

#include "tools/formats/InputFile.h"

#include "mtx/ORXSrvSparseMatrix.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimIdentifiers.h"

#include <cstdint>
#include <string>
#include <vector>

// Matrices in database files: sparse and dense drawers of doubles in two dimensions. A user names one
//
//     model.sim:K      by the type of its distribution
//     model.sim:0/1    by context and distribution, as orxmtx db numbers them
//     model.sim        where only one can be meant

namespace orx::tool {

/// What the catalogue says of a matrix.
struct StoredMatrix {
  enum class Kind { Sparse, SparseSymmetric, Dense, DenseSymmetric };

  int context = 0, distribution = 0;
  Kind kind = Kind::Sparse;
  int rows = 0, columns = 0;
  std::int64_t entries = 0; ///< sparse: stored ones, of a symmetric matrix those beside the diagonal
  std::string type;         ///< empty for none
  int rowsOfChunk = -1, columnsOfChunk = -1; ///< dense: as they were given; -1 when it is stored whole
  ORXSimDistributionID id;                   ///< valid while the database is open

  /// The HDF5 object with the values, "/context_0/distribution_1/drawer".
  std::string DrawerPath() const;
  /// "0/1"
  std::string Number() const;
  bool IsSparse() const { return kind == Kind::Sparse || kind == Kind::SparseSymmetric; }
};

/// Opens a database read-only. One that cannot be opened is a ToolError.
void OpenToRead(ORXSimDatabase& database, std::string const& path);

/// All matrices, in the order of contexts and distributions.
std::vector<StoredMatrix> ListMatrices(ORXSimDatabase const& database);

/// The matrix that a user's name means; `name` is what follows the colon, empty without one. Then the only
/// matrix whose type stands for `role` is meant: "K" for the types K, stiffness and stiffness matrix, "M" for
/// M, mass and mass matrix, in small or large letters; else the only matrix that has no such type. Without a
/// role the only matrix is meant. None and several are a ToolError that says what `path` holds and how to
/// name it.
StoredMatrix FindMatrix(ORXSimDatabase const& database, std::string const& path, std::string const& name,
                        std::string const& role);

/// The name that finds the matrix again, "model.sim:K".
std::string FullName(InputFile const& file, StoredMatrix const& matrix);

/// The labels of the rows or columns, in order.
std::vector<int> RowLabels(StoredMatrix const& matrix);
std::vector<int> ColumnLabels(StoredMatrix const& matrix);
/// True for 0, 1, 2, ..., which need no mention.
bool AreCounted(std::vector<int> const& labels);

/// A matrix as it was found.
struct DatabaseMatrix {
  std::string name;           ///< "model.sim:K"
  std::vector<int> rowLabels; ///< empty for 0, 1, 2, ...
  ORXSrvSparseMatrix entries{0, 0};
};

/// Reads a matrix in general form: symmetric drawers give both triangles, cells of dense ones that are 0 are
/// not stored. What cannot be found or read is a ToolError, and so is a dense matrix whose values do not fit
/// into memory.
DatabaseMatrix ReadDatabaseMatrix(InputFile const& file, std::string const& role);

} // namespace orx::tool
