#pragma once

#include "core/orx_export.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvSimFileHandle.h"
#include "sim/ORXSimIdentifiers.h"

/// A dense block matrix with storage of its own: a scratch database file in the current directory, which is
/// deleted with the last matrix or view that uses it. Work matrices are made like this:
///
///     ORXSrvScratchDenseMatrix work(10, 7, 4, 100);   // row blocks of 4, 4, 2; one column block of 7
///
/// Values are zero at first. A view shares the file with its parent and outlives it.
///
/// Chunk lengths are numbers of rows and of columns. They are lowered to the size of the matrix, and further
/// where a row or a column of chunks would exceed 2 GB of values. A chunk length of -1 does not cut.
///
/// The constructors that make a file raise the errors of the database: notOpened for a directory that cannot
/// be written, writeFailed for a full disk, viewDoesNotFit for a matrix without rows or columns. The file is
/// then gone.
class ORX_EXPORT ORXSrvScratchDenseMatrix : public ORXSrvDenseMatrix {
public:
  /// The null matrix, without a file.
  ORXSrvScratchDenseMatrix();
  /// Labels 0, 1, 2, ... in both directions.
  ORXSrvScratchDenseMatrix(int rows, int columns, int rowChunk, int columnChunk);
  /// With these labels, as many as rows or columns; null: 0, 1, 2, ...
  ORXSrvScratchDenseMatrix(int rows, int columns, int const* rowLabels, int const* columnLabels, int rowChunk,
                           int columnChunk);
  /// With the labels of two sets of another database. RowCSetID and ColumnCSetID return these sets; the
  /// matrix keeps copies of the labels in its own file and does without the sets afterwards.
  ORXSrvScratchDenseMatrix(ORXSimCSetID rowSet, ORXSimCSetID columnSet, int rowChunk, int columnChunk);
  ~ORXSrvScratchDenseMatrix() override;

  /// The caller's set when the matrix was made from sets; views have sets of the file.
  ORXSimCSetID RowCSetID() const override;
  ORXSimCSetID ColumnCSetID() const override;
  ORXSrvDenseMatrix* Submatrix(int firstRow, int lastRow, int firstColumn, int lastColumn) const override;

protected:
  /// A view, see Submatrix.
  ORXSrvScratchDenseMatrix(ORXSrvScratchDenseMatrix const& parent, int firstRow, int lastRow, int firstColumn,
                           int lastColumn);
  /// Creates the file, which is named after a class, with one context. REQUIRES: null.
  ORX_LOCAL ORXSimContextID CreateFile(char const* className);
  /// Sets what RowCSetID and ColumnCSetID return.
  ORX_LOCAL void ReportSets(ORXSimCSetID const& rows, ORXSimCSetID const& columns) noexcept;

private:
  ORX_LOCAL void Build(int rows, int columns, int const* rowLabels, int const* columnLabels, int rowChunk,
                       int columnChunk);

  // The file is closed before the base class is destroyed: its members can handle a closed file.
  ORXSrvSimFileHandle m_fileHandle;
  ORXSimCSetID m_externalRowCSetID;    ///< the caller's; null: none
  ORXSimCSetID m_externalColumnCSetID; ///< the caller's; null: none
};
