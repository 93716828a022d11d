#pragma once

#include "tools/mpi/RowSymmetry.h"

#include "tools/formats/MatrixSource.h"

#include <optional>
#include <string>
#include <vector>

namespace orx::mpi {

struct FoundMatrix;

/// A matrix as it was found in its file, like tool::MatrixSource, from which the matrix on many ranks is
/// made. Sparse matrices of databases are read by all ranks, each its rows; everything else is read by the
/// root, which keeps it in its memory until it has passed on the rows. All functions are collective, and
/// their errors are those of all ranks.
class SourceOnRanks {
public:
  /// `letter` and `file` as for tool::MatrixSource.
  SourceOnRanks(char const* letter, std::string const& file, Ranks const& ranks);

  /// Known to all ranks; the labels to the root alone.
  tool::SourceFacts const& Facts() const noexcept { return m_facts; }
  bool IsReadByAll() const noexcept { return m_rows.has_value(); }
  /// "# K: read by one rank, ..." where that is so; else empty.
  std::string NoteText() const;

  /// See tool::RequireAsStated.
  void RequireAsStated() const;

  /// The symmetric matrix that the file stands for, both triangles of it. Errors are those of
  /// tool::SymmetricFormOf. The source has no entries any more.
  Handle<Mat> TakeSymmetric(int order);
  /// The same of a symmetric matrix, and another one as it is. Errors are those of tool::SquareMatrixOf.
  Handle<Mat> TakeSquare(int order);

  // For those who measure the matrix as it is

  /// The rows that all ranks have read. REQUIRES IsReadByAll.
  SplitRows const& Rows() const { return *m_rows; }
  EntryScan const& Entries() const noexcept { return m_scan; }

private:
  void ReadFromDatabase(FoundMatrix const& found);
  void RequireFinite() const;

  Ranks const& m_ranks;
  tool::SourceFacts m_facts;
  std::optional<tool::MatrixSource> m_ofRoot; ///< on the root, of what it has read alone
  std::optional<SplitRows> m_rows;            ///< on all ranks, of what they have read
  EntryScan m_scan;                           ///< of m_rows
};

/// A database whose last commit was cut off is a ToolError: the library would finish the commit in the memory
/// of this rank, where the others do not see it.
void RefuseUnfinishedCommit(std::string const& path);

/// True when the file's name means a sparse matrix of a database. Collective.
bool IsReadByAll(std::string const& file, Ranks const& ranks);

/// Each rank gets its rows of a matrix in general form that the root has; the others pass an empty one.
RowShare ShareOut(ORXSrvSparseMatrix const& ofRoot, Ranks const& ranks);

} // namespace orx::mpi
