#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimIdentifiers.h"

#include <cstdint>
#include <memory>

class ORXSimTransfer;
class ORXSrvMatrix;

/// A dense matrix of doubles whose values are the cells of a distribution in the simulation database: a
/// handle on stored data, which it neither creates nor deletes. It is worked on block by block.
///
///     ORXSrvDenseMatrix a(ORXSrvUtilities::Create2DDistribution(rowSet, columnSet, 4, 3));
///     a.SetValues(8, 9, 0, 6, values);                   // rows 8 and 9
///     std::unique_ptr<ORXSrvDenseMatrix> rows(a.Submatrix(3, 9, 0, 6));
///
/// Blocks. Both directions are cut at the chunks of the distribution; without chunks there is one block. Here
/// a 10 x 7 matrix with chunks of 4 rows and 3 columns, and the view of its rows 3 to 9:
///
///          3   3   1                         3   3   1
///        +---+---+---+                     +---+---+---+ 1   the first block is the
///      4 |   |   |   |                     +---+---+---+     rest of the parent's
///        +---+---+---+                   4 |   |   |   |
///      4 |   |   |   |                     +---+---+---+
///        +---+---+---+                   2 |   |   |   |
///      2 |   |   |   |                     +---+---+---+
///        +---+---+---+
///
/// In the database dimension 0 is the columns and dimension 1 the rows. A distribution of one dimension is a
/// single column.
///
/// States: null (made by the default constructor or from the null distribution; no rows, no columns) and
/// attached. A view shares the stored values with its parent and outlives it; it never grows. Objects are not
/// copied: Submatrix over everything gives a second handle.
///
/// Row, column and block indices are zero-based and count from this matrix's own first row, column and block;
/// ranges (first, last) include both ends. In memory, rectangles of values are stored column-major without
/// gaps from the start of a buffer, with leading dimension lastRow - firstRow + 1, whatever the shape of the
/// ORXSrvMatrix that has the buffer.
///
/// A symmetric distribution (ORXSrvUtilities::CreateSymmetricDistribution) keeps one triangle: a cell above
/// the diagonal is the one below, in matrices and views alike. Values for both must be equal where one call
/// writes both (error 204, nothing is written). AddAssign of what is not symmetric is error 206, as are
/// products and CopyMappedRows into a matrix that holds cells and their mirror images. It grows in both
/// directions together: see ORXSrvHermitianScrDenseMatrix.
///
/// Operands may be views of one distribution, or one and the same matrix. Where a result and an operand share
/// cells, each shared cell must be at the same position of both; else error 206, before anything is changed.
/// The same holds for arrays in memory that overlap.
///
/// Errors of the database (ORXSimException) pass through unless stated otherwise.
class ORX_EXPORT ORXSrvDenseMatrix {
public:
  // Creation and destruction

  /// The null matrix.
  ORXSrvDenseMatrix();
  /// On a distribution of doubles with one or two dimensions and a drawer; the null matrix for the null
  /// distribution. Raises ORXSimException: staleIdentifier for a distribution that does not exist,
  /// viewDoesNotFit for one without a drawer, of more dimensions or of other cells than doubles.
  explicit ORXSrvDenseMatrix(ORXSimDistributionID id);
  explicit ORXSrvDenseMatrix(ORXSimDistribution distribution);
  ORXSrvDenseMatrix(ORXSrvDenseMatrix const&) = delete;
  ORXSrvDenseMatrix& operator=(ORXSrvDenseMatrix const&) = delete;
  /// Leaves the distribution and its values as they are.
  virtual ~ORXSrvDenseMatrix();

  // The order of the virtual functions is fixed: hosts are compiled against it.

  // Labels

  /// The labels of the rows, in order; null when there are none.
  virtual ORXSimCSetID RowCSetID() const;
  virtual ORXSimCSetID ColumnCSetID() const;

  /// A view of a rectangle, on the same stored values and with the labels of its rows and columns; it is the
  /// caller's. Error 203 for a rectangle that is empty or leaves the matrix.
  virtual ORXSrvDenseMatrix* Submatrix(int firstRow, int lastRow, int firstColumn, int lastColumn) const;

  // Products

  // A is this matrix. Raw arrays are column-major and trusted to be large enough. Every product reads A block
  // by block; results in block matrices are written block by block, so that an error leaves the blocks that
  // were finished. Unsuitable shapes and positions are refused before anything is changed: 203 for a block
  // matrix that is too small to be read, 204 for one that the result does not fit into, 206 for matrices in
  // memory. A product over no columns or rows is zero.

  /// y += A * x; x is columns x n, y rows x n.
  virtual void Multiply(double const* x, int n, double* y) const;
  /// C = A * B.
  virtual void Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c) const;
  /// y = A * B; y is rows x B.columns.
  virtual void Multiply(ORXSrvDenseMatrix const* b, double* y) const;
  /// C = A * B, each block of C written once. Error 206 when C shares cells with A or B.
  virtual void Multiply(ORXSrvDenseMatrix const& b, ORXSrvDenseMatrix& c) const;
  /// C = beta * C + alpha * A * B; with a diagonal B, C = beta * C + A * B, whatever alpha is. Columns of C
  /// behind those of a full B stay as they are, or become zero for a beta of 0; behind those of a diagonal B
  /// they are multiplied by beta.
  virtual void Multiply(double alpha, ORXSrvMatrix const& b, double beta, ORXSrvDenseMatrix& c) const;
  /// A = A * B; B is square.
  virtual void MultiplyAssign(ORXSrvMatrix const& b);
  /// y += (first k rows of A)^T * x; x is k x n, y columns x n.
  virtual void TransposeMultiply(double const* x, int n, double* y, int k) const;
  /// C = beta * C + alpha * (P * A)^T * B, of the first B.rows rows of P * A. Old row i of A is row
  /// permutation[i] of P * A; null: no permutation.
  virtual void TransposeMultiply(int const* permutation, ORXSrvMatrix const& b, ORXSrvMatrix& c, double alpha,
                                 double beta);

  // With `symmetric` not zero the caller knows that the result is symmetric, and only a part of it is
  // computed and then mirrored. Functions that take an array or a block matrix for the result call the
  // function that takes an ORXSrvMatrix.

  /// y = A^T * B; y is columns x B.columns.
  virtual void TransposeMultiply(ORXSrvMatrix const& b, double* y, int symmetric) const;
  /// C = A^T * B.
  virtual void TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int symmetric) const;
  virtual void TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvDenseMatrix* c, int symmetric) const;
  virtual void TransposeMultiply(ORXSrvDenseMatrix const* b, double* y, int symmetric) const;
  virtual void TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvMatrix& c, int symmetric) const;
  /// For each group g: the rows rowIndex[groupStart[g]] ... of A, times B, become the rows groupStart[g] ...
  /// groupStart[g+1]-1 of C. The rows of a group are consecutive; groupStart has groups + 1 elements. Error
  /// 206 when C shares cells with A and a row goes to another position than its own.
  virtual void IndexedMultiply(ORXSrvMatrix const& b, ORXSrvDenseMatrix& c, int const* rowIndex,
                               int const* groupStart, int groups) const;

  // In-place updates and symmetry, block by block

  /// A += B, of the same shape.
  void AddAssign(ORXSrvDenseMatrix const& b);
  /// A *= factor.
  void Scale(double factor);
  /// True when A is square and every (i, j) equals (j, i) exactly. REQUIRES: equal row and column blocks.
  bool IsSymmetric() const;

  // Queries

  // Arguments are not checked.

  /// True when there is no distribution, or its file was closed.
  bool IsNull() const noexcept;
  ORXSimDistributionID DistributionID() const noexcept { return m_distribution.ID(); }
  int NumberOfRows() const noexcept { return m_extent[rowDirection]; }
  int NumberOfColumns() const noexcept { return m_extent[columnDirection]; }
  int NumberOfRowBlocks() const noexcept { return m_blocks[rowDirection]; }
  int NumberOfColumnBlocks() const noexcept { return m_blocks[columnDirection]; }
  /// 0 for a negative index; behind the last block, that of the last block.
  int NumberOfRowsInBlock(int block) const noexcept { return SizeOfBlock(rowDirection, block); }
  int NumberOfColumnsInBlock(int block) const noexcept { return SizeOfBlock(columnDirection, block); }
  int MaxNumberOfRowsInBlock() const noexcept { return SizeOfLargestBlock(rowDirection); }
  int MaxNumberOfColumnsInBlock() const noexcept { return SizeOfLargestBlock(columnDirection); }
  /// 0 for an empty range or a negative index.
  int NumberOfRowsInBlockRange(int firstBlock, int lastBlock) const noexcept {
    return SizeOfBlockRange(rowDirection, firstBlock, lastBlock);
  }
  int NumberOfColumnsInBlockRange(int firstBlock, int lastBlock) const noexcept {
    return SizeOfBlockRange(columnDirection, firstBlock, lastBlock);
  }
  int FirstRowInBlock(int block) const noexcept { return FirstInBlock(rowDirection, block); }
  int FirstColumnInBlock(int block) const noexcept { return FirstInBlock(columnDirection, block); }
  /// The first block for a negative row, the last one for a row behind the end.
  int BlockContainingRow(int row) const noexcept { return BlockContaining(rowDirection, row); }
  int BlockContainingColumn(int column) const noexcept { return BlockContaining(columnDirection, column); }

  // Growth

  /// The dimension (0: columns, 1: rows) along which growth costs the new values only, as the database
  /// reports it; for a distribution of one dimension 0, which is its rows here.
  int ExtendableDim() const;
  /// Appends `count` rows (dim 1) or columns (dim 0) of the distribution's initial value, with `labels`, or
  /// without them with the labels extent, extent + 1, ... (code 4 when there is one of these already, as in a
  /// matrix with the labels 1, 2, ..., extent: pass labels then). The rows of a single column are dim 1.
  ///
  /// The size that the first block reports stays, except that the first column block of a matrix that has
  /// several becomes a whole chunk. The first and the last block may therefore report less than they hold;
  /// all operations work on all values nevertheless.
  ///
  /// When the transaction in which it grew is abandoned, the new values and labels are gone, but this object
  /// still counts them (viewDoesNotFit where they are read, staleIdentifier for its set of labels): make it
  /// anew from DistributionID().
  ///
  /// Returns 0, or, with the matrix as before:
  ///   1  the matrix is a view
  ///   2  nothing to append
  ///   3  no such dimension, or the labels are of neither dimension's collection, or the distribution is
  ///      symmetric
  ///   4  a label exists already; it may have been added to the collection
  int ExtendDim(int dim, int count, int const* labels);

  // Rectangles of values

  /// Reads into the target's buffer. Error 203 for a rectangle that is empty or leaves the matrix; a buffer
  /// that is too small is an ORXSimException (viewDoesNotFit).
  void GetValues(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix& target) const;
  /// Writes from the source's buffer. Error 204 for a rectangle that is empty or leaves the matrix, and for
  /// values of a symmetric matrix that differ from those for their mirror images (two NaN do not); a buffer
  /// that is too small is an ORXSimException (viewDoesNotFit). Error 208, with the database's text, when the
  /// file cannot be written (code 70): the rectangle may then be partly written. Other failures of the write
  /// itself are not reported: hosts rely on it.
  void SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix const& source);
  /// GetValues over all columns, over all rows.
  void GetRows(int firstRow, int lastRow, ORXSrvMatrix& target) const;
  void GetColumns(int firstColumn, int lastColumn, ORXSrvMatrix& target) const;
  /// SetValues over all columns, over all rows.
  void SetRows(int firstRow, int lastRow, ORXSrvMatrix const& source);
  void SetColumns(int firstColumn, int lastColumn, ORXSrvMatrix const& source);

  // Whole matrix into memory

  // Arrays are trusted to be large enough.

  /// Row i of this matrix becomes row rowMap[i] of a targetRows x columns array at the start of the target's
  /// buffer; rows that nothing maps to are zero.
  void CopyRowsToMemory(int const* rowMap, int targetRows, ORXSrvMatrix& target) const;
  /// All values, column-major.
  void GetAllValues(double* out) const;

  // Triangles

  // The matrix is square, n x n; `out` gets n * (n + 1) / 2 values.

  /// The upper triangle by columns: (0,0), (0,1), (1,1), (0,2) ...
  void GetUpperValues(double* out) const;
  /// The lower triangle by rows: (0,0), (1,0), (1,1), (2,0) ...
  void GetLowerValues(double* out) const;
  /// The upper triangle of (A + A^T) / 2 by columns.
  void GetSymmetricValues(double* out) const;

  // Copies between block matrices

  // Values are copied block by block. Shapes are checked before anything is written.

  /// Copies a rectangle into the whole of the target, which has its shape. Error 203 for a rectangle that is
  /// empty, leaves this matrix, or has fewer rows than the target; 204 for one with more columns.
  void GetSubmatrix(ORXSrvDenseMatrix& target, int firstRow, int lastRow, int firstColumn,
                    int lastColumn) const;
  /// Copies all values of a matrix of the same shape, else error 204; so too for one that is not symmetric
  /// where this matrix is.
  void CopyValues(ORXSrvDenseMatrix const* source);
  /// Copies the rows of the source into the rows that have the same labels (of repeated labels, into the last
  /// row). With `clearUnmatched` the other rows become zero; without it their values are undefined
  /// afterwards. Error 204 when the source has more columns. Both matrices have as many row labels as rows,
  /// else ORXSimException (viewDoesNotFit).
  void CopyMappedRows(ORXSrvDenseMatrix const* source, bool clearUnmatched);

  // Memory

  /// Sets the number of bytes that a product of block matrices may work with. A product that needs more is
  /// cut into smaller parts, which changes rounding only; below 100 kB it is not cut further. The default is
  /// half of the memory that the process may have: the machine's, or the limit of its control group, or its
  /// resource limit. A number that is not positive restores the default.
  static void SetWorkMemory(std::int64_t bytes) noexcept;
  static std::int64_t WorkMemory() noexcept;

protected:
  /// A view, see Submatrix.
  ORXSrvDenseMatrix(ORXSrvDenseMatrix const& parent, int firstRow, int lastRow, int firstColumn,
                    int lastColumn);
  /// Attaches a null matrix. REQUIRES: null.
  void Attach(ORXSimDistribution const& distribution);

private:
  friend class ORXSrvHermitianScrDenseMatrix;
  friend class ORXSrvSparseMatrix; // its products have block matrices for operands

  /// Index into the pairs below.
  enum Direction : int { rowDirection = 0, columnDirection = 1 };

  struct Rectangle {
    int firstRow, lastRow, firstColumn, lastColumn;
  };

  int SizeOfBlock(Direction direction, int block) const noexcept;
  int SizeOfLargestBlock(Direction direction) const noexcept;
  int SizeOfBlockRange(Direction direction, int firstBlock, int lastBlock) const noexcept;
  int FirstInBlock(Direction direction, int block) const noexcept;
  int BlockContaining(Direction direction, int index) const noexcept;

  ORX_LOCAL Rectangle Whole() const noexcept { return {0, NumberOfRows() - 1, 0, NumberOfColumns() - 1}; }
  ORX_LOCAL Rectangle InDistribution(Rectangle const& range) const noexcept;
  /// The rows and columns of the square that is its own mirror image: its cells have mirror images in this
  /// matrix, others have not. Empty (last before first) unless the distribution is symmetric.
  ORX_LOCAL Rectangle MirroredSquare() const noexcept;
  ORX_LOCAL void RequireNoMirrors(char const* operation) const;
  ORX_LOCAL bool HasSymmetricValuesFor(ORXSrvDenseMatrix const& target) const;
  ORX_LOCAL void RequireSymmetricValuesFor(ORXSrvDenseMatrix const& target) const;
  template<class Visit>
  ORX_LOCAL void VisitPartsOnce(char const* operation, Visit visit) const;
  ORX_LOCAL bool Meets(Rectangle const& range, ORXSrvDenseMatrix const& other) const noexcept;
  ORX_LOCAL void RequireNotShifted(Rectangle const& range, ORXSrvDenseMatrix const& other,
                                   char const* operation) const;
  ORX_LOCAL void SetExtent(Direction direction, int extent);
  ORX_LOCAL void SetViewOf(ORXSrvDenseMatrix const& parent, Direction direction, int first, int last);
  ORX_LOCAL std::unique_ptr<ORXSimTransfer> NewTransfer() const;
  ORX_LOCAL ORXSimCSetID LabelsAlong(Direction direction, ORXSimCSetID const& whole) const;
  ORX_LOCAL int ExtendWith(ORXSimCSetID const& members);
  ORX_LOCAL void SetFirstBlock(Direction direction) noexcept;
  ORX_LOCAL bool Contains(Rectangle const& range) const noexcept;
  ORX_LOCAL ORXSimTransfer TransferOf(Rectangle const& range) const;

  // Arrays are pairs: of rows, of columns.
  ORXSimDistribution m_distribution;
  bool m_isSubmatrix = false;
  bool m_isMirrored = false;                  ///< the distribution is symmetric
  std::int32_t m_extent[2] = {};              ///< number of rows, of columns
  std::int32_t m_blocks[2] = {};              ///< number of blocks
  std::int32_t m_blockSize[2] = {};           ///< of every block but the first and the last
  std::int32_t m_firstBlockSize[2] = {};      ///< of block 0
  std::int32_t m_lastBlockSize[2] = {};       ///< of the last block
  std::int32_t m_first[2] = {};               ///< position of row 0, column 0 in the distribution
  std::unique_ptr<ORXSimTransfer> m_transfer; ///< for reads and writes, without selection; null: null matrix
  ORXSimCSetID m_rowCSetID;                   ///< row labels, of a view those of the whole matrix; null: none
  ORXSimCSetID m_columnCSetID;                ///< column labels, likewise
};
