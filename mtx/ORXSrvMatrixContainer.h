#pragma once

#include "core/cow_Btree.h"
#include "core/mem_Allocator.h"
#include "core/orx_export.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

/// A registry of dense block matrices by identifiers that the caller chooses. It owns one scratch database
/// file in the current directory, with one collection for the rows and one for the columns of all its
/// matrices, and deletes the matrices and the file when it is destroyed.
///
///     ORXSrvMatrixContainer matrices;
///     ORXSrvDenseMatrix& phi = matrices.Create(7, unknowns, modes, 4096, modes);
///     ... matrices.Get(7) ...
///
/// Used from one thread. Errors of the database pass through; the registry is then as before, and a matrix
/// that was to be created does not exist.
class ORX_EXPORT ORXSrvMatrixContainer : public mem_AllocationOperators {
public:
  /// Creates the file. A scratch file of the same name that a dead process left is removed before. A database
  /// that is not scratch stays, and the file gets another name.
  ORXSrvMatrixContainer();
  ORXSrvMatrixContainer(ORXSrvMatrixContainer const&) = delete;
  ORXSrvMatrixContainer& operator=(ORXSrvMatrixContainer const&) = delete;
  ~ORXSrvMatrixContainer();

  /// Creates a matrix of zeros with the labels 0, 1, 2, ... in both directions, cut into blocks of rowChunk
  /// rows and columnChunk columns (lowered to the matrix's size). An identifier that is taken keeps its
  /// matrix: the new matrix is returned all the same, but is not registered, and the caller deletes it.
  ORXSrvDenseMatrix& Create(int id, int rows, int columns, int rowChunk, int columnChunk);
  /// With these labels, as many as rows and columns; null: 0, 1, 2, ...
  ORXSrvDenseMatrix& Create(int id, int rows, int columns, int const* rowLabels, int const* columnLabels,
                            int rowChunk, int columnChunk);
  /// The matrix of an identifier. REQUIRES IsMember(id), and that it was not removed.
  ORXSrvDenseMatrix& Get(int id);
  bool IsMember(int id) const;
  /// Destroys the matrix of an identifier. The identifier stays taken: IsMember is true as before, and Size
  /// too.
  void Remove(int id);
  /// Number of identifiers.
  int Size() const;

private:
  ORX_LOCAL ORXSrvDenseMatrix& CreateMatrix(int id, int rows, int columns, int const* rowLabels,
                                            int const* columnLabels, int rowChunk, int columnChunk);
  ORX_LOCAL void CreateFile();
  ORX_LOCAL void DeleteMatrices() noexcept;

  ORXSimDatabase m_database;
  ORXSimContextID m_context;
  ORXSimCollectionID m_rowCollection;
  ORXSimCollectionID m_columnCollection;
  cow_Btree<int, ORXSrvDenseMatrix*> m_matrices; ///< owned; null once removed
};
