#pragma once

#include "core/cow_List.h"
#include "core/orx_export.h"
#include "mtx/CompressedRows.h"
#include "mtx/ORXSrvSparseMatrixEntry.h"
#include "sim/ORXSimIdentifiers.h"

#include <cstdint>
#include <memory>
#include <type_traits>

class ORXSrvDenseMatrix;
class ORXSrvSystemDofDefinition;

namespace orx {
class TripletCompressor;
enum class RowPattern : std::uint8_t;
} // namespace orx

/// A real sparse matrix in compressed rows.
///
///     ORXSrvSparseMatrix k(0, 0);
///     k.BeginAssembly();
///     k.AddData(row, column, value);        // any number, any order, duplicates are summed
///     k.EndAssembly();
///
/// States: assembling (AddData collects entries) and assembled (the compressed arrays are valid).
/// General form: every stored entry is one entry of the matrix; columns ascend within a row, each once.
/// Symmetric form, made by the readers of symmetric files and by SymmetricForm: the diagonal is an array of
/// its own and each stored off-diagonal entry (i, j) stands for (j, i) too. Operations take both forms unless
/// stated otherwise; the others raise error 201 with their name on a matrix in symmetric form. The matrix
/// owns its arrays. Objects are moved, not copied. Operations from Multiply on need a matrix that is
/// assembled with all its rows; otherwise, also when AddData has added rows since, they raise error 206 with
/// their name. An operation that raises an error, mem_OutOfMemory included, leaves the matrix as it was.
class ORX_EXPORT ORXSrvSparseMatrix {
public:
  // Creation and destruction

  /// An empty matrix under assembly; AddData enlarges the dimensions as needed.
  ORXSrvSparseMatrix(int rows, int columns);
  ORXSrvSparseMatrix(ORXSrvSparseMatrix const&) = delete;
  ORXSrvSparseMatrix& operator=(ORXSrvSparseMatrix const&) = delete;
  /// Exchanges the two matrices, so that a new matrix leaves `other` empty, 0 x 0 and under assembly.
  ORXSrvSparseMatrix(ORXSrvSparseMatrix&& other) noexcept;
  ORXSrvSparseMatrix& operator=(ORXSrvSparseMatrix&& other) noexcept;
  ~ORXSrvSparseMatrix();

  // Queries

  int NumberOfRows() const noexcept { return m_rows; }
  int NumberOfColumns() const noexcept { return m_columns; }
  /// Stored entries, as of the last assembly or import. In symmetric form the diagonal counts where the
  /// matrix comes from block or chunked binary, and does not where it comes from Fortran records or a
  /// database.
  int NumberOfNonzeros() const noexcept { return m_stored.numberOfNonzeros; }
  /// True when nothing is stored (general form; a stored zero counts as an entry), or when there is no
  /// off-diagonal entry and the diagonal is zero (symmetric form).
  bool IsNull() const noexcept;
  /// All entries in row order, both triangles of the symmetric form. Its diagonal comes first, then each
  /// stored entry followed by its mirror image. The array is the caller's, freed with mem_Free, never null.
  /// More entries than an int counts raise mem_OutOfMemory.
  ORXSrvSparseMatrixEntry* GetEntries(int& count) const;
  /// The arrays of the last assembly or import, which stay the matrix's and are valid until it changes. Under
  /// assembly there are none, and the view has no rows; AddData may have made the matrix larger since.
  /// CompressedRows.h has functions that visit the entries.
  orx::CompressedRowsView View() const noexcept;
  /// The database sets of rows and columns; undefined unless imported from a database.
  ORXSimCSetID RowCSetID() const noexcept { return m_rowCSetID; }
  ORXSimCSetID ColumnCSetID() const noexcept { return m_columnCSetID; }

  // Assembly

  /// Discards the compressed arrays; entries added since the last EndAssembly stay.
  void BeginAssembly() noexcept;
  /// Adds an entry; zero values are kept. The dimensions grow to hold the indices and never shrink. An index
  /// of 2147483647 or more does not fit into 32-bit dimensions: error 206 ("AddData"), nothing added.
  void AddData(std::uint32_t row, std::uint32_t column, double value) {
    if (row >= static_cast<std::uint32_t>(m_rows) || column >= static_cast<std::uint32_t>(m_columns))
      return AddBeyondDimensions(row, column, value);
    m_entries.Append({row, column, value});
    m_symmetryState = m_symmetryState == symmetric ? unsymmetric : unknown;
  }
  /// Adds an element matrix, ke(n, n) by columns, to the unknowns `dofs`, which count from 1: ke(i, j) goes
  /// to row dofs[i] - 1 and column dofs[j] - 1. Unknowns of 0 or below are left out with their rows and
  /// columns; a repeated unknown gets the sum. The matrix and its states change as if the entries were added
  /// one by one, row by row. Error 206 ("AddData") for an `n` below 0 and an unknown of 2147483647; on an
  /// error nothing is added. A template, because the literal 0 of AddData(i, 0, 0) must not be a pointer.
  template<class Unknowns, class Values>
  requires std::is_convertible_v<Unknowns, int const*> && std::is_convertible_v<Values, double const*>
  void AddData(int n, Unknowns const& dofs, Values const& ke) { AddElement(n, dofs, ke); }
  /// Adds a symmetric element matrix of which `lower` is the lower triangle by columns: (1,1), (2,1), ...
  /// (n,1), (2,2), ... Both triangles are added, as AddData does.
  void AddPackedData(int n, int const* dofs, double const* lower);
  /// Compresses the entries: rows ascending, columns ascending within a row, duplicates summed in the order
  /// they were added, zeros kept. Without effect on an assembled matrix: entries added to it wait for the
  /// next BeginAssembly and EndAssembly. When memory runs out, the matrix stays under assembly with all its
  /// entries, and EndAssembly can be called again.
  void EndAssembly();

  // Products

  // Vectors are stored one after the other without gaps: with a leading dimension that is their length. Each
  // vector's sums are made one product at a time, rows ascending, entries as they are stored.

  /// y = A * x, or A^T * x with `transpose`, for `nvec` vectors; y is overwritten and does not overlap x. In
  /// symmetric form, which has no more columns than rows (else 206), vectors are as long as there are rows. A
  /// matrix with NumberOfNonzeros() 0 leaves y as it is, even with a diagonal: a symmetric matrix that has
  /// only a diagonal multiplies after an import of format 1 or 6, and does nothing after an import of format
  /// 0 or from a database.
  void Multiply(double const* x, int nvec, double* y, bool transpose) const;
  /// out = A^T * D, column-major with leading dimension NumberOfColumns(); D is read one column block at a
  /// time, its rows as far as A has entries in them. General form only. Without `transpose` error 211, but
  /// not before D has been read. A matrix with NumberOfNonzeros() 0 leaves `out` as it is.
  void MultiplyDense(ORXSrvDenseMatrix const& d, double* out, bool transpose) const;
  /// R = A * D, or A^T * D with `transpose`, one column block of D at a time. Further rows of R become zero,
  /// further columns stay. D or R without enough rows or columns: errors 203 and 204, before anything is
  /// written. A matrix with NumberOfNonzeros() 0 leaves R as it is.
  void MultiplyDense(ORXSrvDenseMatrix const& d, ORXSrvDenseMatrix& r, bool transpose) const;

  // Norms and diagonal

  // Of the whole matrix, both triangles of the symmetric form. Sums are compensated, so that many small
  // values count beside a large one. A value that is not a number makes the norms not a number.

  /// The root of the sum of all squares, computed without overflow or underflow of a square.
  double FrobeniusNorm() const;
  /// The largest sum of magnitudes of a row.
  double InfinityNorm() const;
  /// The largest sum of magnitudes of a column.
  double OneNorm() const;
  /// The first entry, in the order of GetEntries, of the largest magnitude, or the first that is not a
  /// number. {0, 0, 0.0} when all values are zero.
  ORXSrvSparseMatrixEntry LargestEntry() const;
  /// diagonal[i] = A(i, i) for NumberOfRows() elements; 0 where nothing is stored.
  void GetDiagonal(double* diagonal) const;

  // General and symmetric form

  // Database sets and entries that wait for assembly are not taken over.

  /// The same matrix in general form, with all diagonal entries of the symmetric form, zeros too; of a matrix
  /// in general form a copy. In symmetric form the matrix has no more columns than rows, else error 206.
  ORXSrvSparseMatrix GeneralForm() const;
  /// The symmetric matrix of which this one has the lower triangle, or the upper one with `upper`, in
  /// symmetric form: what is stored in the other triangle is not looked at, and entries of the diagonal that
  /// are not stored are 0. NumberOfNonzeros() counts the diagonal. Of a matrix in symmetric form a copy.
  /// Error 206 unless the matrix is square.
  ORXSrvSparseMatrix SymmetricForm(bool upper = false) const;

  // Updates

  /// A = s * A, the stored values one by one.
  void Scale(double s);
  /// A = a - b, in general form. Entries at the same position are summed, as are entries added since the last
  /// EndAssembly; zeros are kept. The dimensions grow to hold the entries and never shrink. Either operand
  /// may be this matrix.
  void Subtract(ORXSrvSparseMatrix const& a, ORXSrvSparseMatrix const& b);
  /// Sets the stored values of n columns to zero; they stay stored. General form only (as
  /// "SetcolumnsToZero"). Error 206 for a column that the matrix does not have.
  void SetColumnsToZero(int const* list, int n);
  /// Drops the columns without stored entries. Returns the old numbers of those that stay, as
  /// FindNontrivialColumns does. General form only.
  unsigned* EliminateTrivialColumns(int& count);

  // Permutations and transposition

  // A permutation has NumberOfRows() elements, each of 0 ... rows - 1 once, else error 206. Beware of the two
  // conventions: old row i becomes row perm[i] in PermuteRows, old row perm[k] becomes row k in the others.
  // New matrices are the caller's, to be deleted.

  /// Moves rows: old row i becomes row perm[i]. General form only.
  void PermuteRows(int const* perm);
  /// A new matrix P * A * P^T: entry (k, l) is old entry (perm[k], perm[l]). The matrix has no more columns
  /// than rows, else error 206; one with fewer gets as many as its entries then need.
  ORXSrvSparseMatrix* Permute(int const* perm) const;
  /// Does the same in place, with 4 bytes of workspace for each entry.
  void PermuteInPlace(int const* perm);
  /// A new matrix A^T. In symmetric form the matrix has no more columns than rows, else error 206.
  ORXSrvSparseMatrix* Transpose() const;

  // Tests of the pattern

  /// True when every entry has a mirrored entry of the same value to within 1e-16, relative to the entry
  /// above the diagonal unless that is zero. The answer is kept until entries are added; adding the first one
  /// to a symmetric matrix makes it false, also after the next assembly.
  bool IsSymmetric() const;
  /// The rows with stored entries, ascending; in symmetric form the diagonal does not count. The array is the
  /// caller's, freed with mem_Free, never null; `count` is its length.
  unsigned* FindNontrivialRows(int& count) const;
  /// The same for the columns.
  unsigned* FindNontrivialColumns(int& count) const;

  // Files

  /// Replaces the matrix by the content of a file; docs/formats/ has a page for each format. Files are
  /// checked, sizes, row pointers and column indices included, and on any error the matrix is as before. An
  /// import replaces neither the database sets of rows and columns nor the entries that wait for assembly,
  /// from which BeginAssembly and EndAssembly then make a new matrix.
  ///
  ///     0      Fortran unformatted records, symmetric
  ///     1      block binary, symmetric or unsymmetric
  ///     2, 3   text, one-based "row column value"
  ///     6      chunked binary, symmetric
  ///     7      dense binary; values of magnitude up to 1e-16 are zeros
  ///
  /// Raises ORXSrvMtxOpenFileException (path, and for a malformed file the line, byte or record), or error
  /// 210 for another format.
  void Import(char const* path, int format);
  /// Replaces the matrix by the sparse drawer of a distribution and takes over its row and column sets.
  /// Entries that wait for assembly stay. In general form, rows whose columns another program stored in
  /// another order are sorted, and entries at the same position are summed. In symmetric form
  /// NumberOfNonzeros() does not count the diagonal; see Multiply for a matrix that has nothing else. Errors
  /// are the database's own, or 206 for a symmetric drawer that is not square; the matrix is then as before.
  void Import(ORXSimDistributionID id);
  /// Writes a file; docs/formats/ has a page for each format.
  ///
  ///     3   text, "%ld %ld %18.15e", one-based, in the order of GetEntries
  ///     4   text, "%d,%d,%d,%d,%18.15e", node and degree of freedom of row and column as `dofs` has them
  ///     5   text, "%d,%d, %18.15e", zero-based, one triangle of the symmetric form
  ///     6   chunked binary; only for the symmetric form, else error 209
  ///     7   dense binary
  ///
  /// The matrix is assembled and nothing was added since, else error 206. Text files are written anew. Of an
  /// older, longer binary file the tail stays. The diagonal of the symmetric form is not written by formats 4
  /// and 7. Only format 4 uses `dofs`: without a definition it raises error 206, and for an equation that is
  /// not defined the definition's own error. Raises error 208 with the path and the system's reason, or 207
  /// for another format. The file is written beside the path, as "<path>.new<process>", and renamed when it
  /// is whole: after an error the path holds its old content. Only devices, pipes and files in a folder that
  /// takes no new ones are written in place. A further hard link to an older file keeps the older content.
  void Export(char const* path, int format, ORXSrvSystemDofDefinition const* dofs) const;
  /// Writes a new sparse drawer of a distribution, over the members of the two sets: as many rows as the
  /// matrix has, and columns for its indices. The symmetric form stays one. The transaction is the caller's.
  /// Errors are the database's own, or 206 unless the matrix is assembled and nothing was added since.
  void Export(ORXSimCSetID rows, ORXSimCSetID columns, ORXSimDistributionID id) const;

private:
  friend struct ORXSrvSparseMatrixTestAccess;

  enum SymmetryState : std::int32_t { unknown = 0, symmetric = 1, unsymmetric = 2 };

  /// An assembled matrix, in symmetric form if the content has a diagonal.
  ORX_LOCAL explicit ORXSrvSparseMatrix(orx::CompressedRows&& content) noexcept;
  void AddBeyondDimensions(std::uint32_t row, std::uint32_t column, double value);
  void AddElement(int n, int const* dofs, double const* ke);
  template<class ValueOf>
  ORX_LOCAL void AddValues(int n, int const* dofs, ValueOf const& valueOf);
  /// Replaces the arrays and the dimensions, and makes the matrix an assembled one. The symmetry state stays.
  ORX_LOCAL void Store(orx::CompressedRows&& content) noexcept;
  /// Does the same for content in either form; the symmetry state is then the one of the form.
  ORX_LOCAL void Replace(orx::CompressedRows&& content) noexcept;
  /// The form is decided by the diagonal array alone, so that a cached answer of the symmetry test never
  /// changes how the arrays are read.
  bool IsSymmetricForm() const noexcept { return m_stored.diagonal != nullptr; }
  /// out := A^T * x, with x given on `count` listed rows only; without `transpose` error 211.
  ORX_LOCAL void MultiplyIndexed(double const* x, int nvec, double* y, bool transpose, int count,
                                 unsigned const* indices) const;
  ORX_LOCAL void RequireAssembled(char const* operation) const;
  /// Raises error 206 unless the matrix is assembled and nothing was added since.
  ORX_LOCAL void RequireAllAssembled(char const* operation) const;
  bool HasPendingEntries() const noexcept { return m_entries.Count() > 0 || m_ordered != nullptr; }
  ORX_LOCAL void RequireGeneralForm(char const* operation) const;
  ORX_LOCAL void RequireNoMoreColumnsThanRows(char const* operation) const;
  ORX_LOCAL bool CompareTriangles() const;
  ORX_LOCAL mem_Array<double> PermuteDiagonal(int const* perm) const;
  int StoredEntries() const noexcept { return m_stored.View().Entries(); }
  /// Number of entries that GetEntries returns.
  ORX_LOCAL std::int64_t NumberOfEntries() const noexcept;

  cow_List<ORXSrvSparseMatrixEntry> m_entries; ///< added since the last EndAssembly
  /// Entries added earlier, which an EndAssembly that ran out of memory had begun to put in order; mostly
  /// null.
  std::unique_ptr<orx::TripletCompressor> m_ordered;
  /// The arrays of the last assembly or import; under assembly without row pointers, column indices and
  /// values. The matrix has more than `rows` rows when AddData has added some since.
  orx::CompressedRows m_stored;
  std::int32_t m_rows;
  std::int32_t m_columns;
  mutable SymmetryState m_symmetryState = unknown; ///< IsSymmetric keeps its answer here
  std::int32_t m_isAssembled = 0;
  mutable orx::RowPattern m_rowPattern{}; ///< found by the first Multiply; 0: not looked for yet
  ORXSimCSetID m_rowCSetID;
  ORXSimCSetID m_columnCSetID;
};
