#pragma once

#include "core/cow_List.h"
#include "core/mem_Allocator.h"
#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <cstdint>

class ORXSrvSystemDofDefinition;
struct CompressedRows;
struct SparseContent;
struct SparseView;

/// One entry of a sparse matrix; indices are zero-based.
struct ORXSrvSparseMatrixEntry {
  std::uint32_t row;
  std::uint32_t column;
  double value;
};

/// A real sparse matrix in compressed rows.
///
///     ORXSrvSparseMatrix k(0, 0);
///     k.BeginAssembly();
///     k.AddData(row, column, value);        // any number, any order, duplicates are summed
///     k.EndAssembly();
///
/// States: assembling (AddData collects entries) and assembled (the compressed arrays are valid).
/// General form: every stored entry is one entry of the matrix; columns ascend within a row, each once.
/// Symmetric form, made only by the readers of symmetric files: the diagonal is an array of its own and each
/// stored off-diagonal entry (i, j) stands for (j, i) too.
/// The matrix owns its arrays. Objects are not copied.
class ORX_EXPORT ORXSrvSparseMatrix {
public:
  // Creation and destruction

  /// An empty matrix under assembly; AddData enlarges the dimensions as needed.
  ORXSrvSparseMatrix(int rows, int columns);
  ORXSrvSparseMatrix(ORXSrvSparseMatrix const&) = delete;
  ORXSrvSparseMatrix& operator=(ORXSrvSparseMatrix const&) = delete;
  ~ORXSrvSparseMatrix();

  // Queries

  int NumberOfRows() const noexcept { return m_rows; }
  int NumberOfColumns() const noexcept { return m_columns; }
  /// Stored entries, as of the last assembly or import.
  int NumberOfNonzeros() const noexcept { return m_nonzeros; }
  /// Whether there is nothing stored (general form; a stored zero counts as an entry), or no off-diagonal
  /// entry and a zero diagonal (symmetric form).
  bool IsNull() const noexcept;
  /// All entries in row order, both triangles of the symmetric form. Its diagonal comes first, then each
  /// stored entry followed by its mirror image. The array is the caller's, freed with mem_Free, never null.
  /// More entries than an int counts are a mem_OutOfMemory.
  ORXSrvSparseMatrixEntry* GetEntries(int& count) const;
  /// The database sets of rows and columns; undefined unless imported from a database.
  ORXSimCSetID RowCSetID() const noexcept { return m_rowCSetID; }
  ORXSimCSetID ColumnCSetID() const noexcept { return m_columnCSetID; }

  // Assembly

  /// Discards the compressed arrays; entries added since the last EndAssembly stay.
  void BeginAssembly() noexcept;
  /// Adds an entry; zero values are kept. The dimensions grow to hold the indices and never shrink.
  /// An index of 2147483647 or more has no place in 32-bit dimensions: error 206 ("AddData"), nothing added.
  void AddData(std::uint32_t row, std::uint32_t column, double value) {
    if (row >= static_cast<std::uint32_t>(m_rows) || column >= static_cast<std::uint32_t>(m_columns))
      GrowToHold(row, column);
    m_entries.Append({row, column, value});
    m_symmetryState = m_symmetryState == symmetric ? unsymmetric : unknown;
  }
  /// Compresses the entries: rows ascending, columns ascending within a row, duplicates summed in the order
  /// they were added, zeros kept. Without effect on an assembled matrix. When memory runs out, the matrix is
  /// under assembly and without entries.
  void EndAssembly();

  // Files

  /// Replaces the matrix by a file's; docs/formats/ has a page for each. Files are checked, sizes, row
  /// pointers and column indices included, and on any error the matrix is as before.
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
  /// Errors are the database's own, or 206 for a symmetric drawer that is not square; the matrix is then as
  /// before.
  void Import(ORXSimDistributionID id);
  /// Writes a file; docs/formats/ has a page for each.
  ///
  ///     3   text, "%ld %ld %18.15e", one-based, in the order of GetEntries
  ///     4   text, "%d,%d,%d,%d,%18.15e", node and degree of freedom of row and column as `dofs` has them
  ///     5   text, "%d,%d, %18.15e", zero-based, one triangle of the symmetric form
  ///     6   chunked binary; only for the symmetric form, else error 209
  ///     7   dense binary
  ///
  /// Text files are written anew. Binary ones are not truncated: an older, longer file keeps its tail. The
  /// diagonal of the symmetric form is not written by formats 4 and 7. `dofs` is used by format 4 only, which
  /// without it is error 206, and raises the definition's own error for an equation it does not have.
  /// Raises error 208 with the path and the system's reason, or 207 for another format.
  void Export(char const* path, int format, ORXSrvSystemDofDefinition const* dofs) const;
  /// Writes a new sparse drawer of a distribution, over the members of the two sets: as many rows as the
  /// matrix has, and columns for its indices. The symmetric form stays one. The transaction is the caller's.
  /// Errors are the database's own.
  void Export(ORXSimCSetID rows, ORXSimCSetID columns, ORXSimDistributionID id) const;

private:
  friend class ORXSrvSparseImExPorter;
  friend struct ORXSrvSparseMatrixTestAccess;

  enum SymmetryState : std::int32_t { unknown = 0, symmetric = 1, unsymmetric = 2 };

  /// Adopts the arrays. With a diagonal the matrix is in symmetric form.
  ORX_LOCAL ORXSrvSparseMatrix(unsigned* rowPointers, int* columnIndices, double* values, double* diagonal,
                               int nonzeros, int rows, int columns);
  void GrowToHold(std::uint32_t row, std::uint32_t column);
  /// Replaces the content by the general form of unsorted entries, whose rows are below `rows` and columns
  /// below `columns`. On failure the matrix is as before.
  ORX_LOCAL void ResetData(ORXSrvSparseMatrixEntry const* entries, int count, int rows, int columns);
  /// The same for rows that are compressed already.
  ORX_LOCAL void ResetRows(CompressedRows&& compressed, int rows, int columns) noexcept;
  /// The same for what a reader has put together, in either form.
  ORX_LOCAL void Replace(SparseContent&& content) noexcept;
  ORX_LOCAL SparseView View() const noexcept;
  /// The form is decided by the diagonal array alone, so that a cached answer of the symmetry test never
  /// changes how the arrays are read.
  bool IsSymmetricForm() const noexcept { return m_diagonal != nullptr; }
  ORX_LOCAL void Adopt(CompressedRows&& compressed) noexcept;
  int StoredEntries() const noexcept { return m_rowPointers != nullptr ? m_rowPointers[m_arrayRows] : 0; }

  cow_List<ORXSrvSparseMatrixEntry> m_entries; ///< added since the last EndAssembly
  mem_Array<double> m_values;                  ///< of the stored entries
  mem_Array<std::uint32_t> m_columnIndices;    ///< of the stored entries
  mem_Array<std::int32_t> m_rowPointers;       ///< m_arrayRows + 1; row i begins at m_rowPointers[i]
  mem_Array<double> m_diagonal;                ///< symmetric form only, m_arrayRows values
  std::int32_t m_nonzeros = 0;                 ///< stored entries; in symmetric form as its builder counted
  std::int32_t m_rows;
  std::int32_t m_columns;
  SymmetryState m_symmetryState = unknown;
  std::int32_t m_isAssembled = 0;
  ORXSimCSetID m_rowCSetID;
  ORXSimCSetID m_columnCSetID;
  std::int32_t m_arrayRows = 0; ///< rows of the arrays; AddData may have made m_rows larger since
};
