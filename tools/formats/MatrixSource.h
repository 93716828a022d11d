#pragma once

#include "tools/formats/MatrixFile.h"
#include "tools/numerics/Symmetry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orx::tool {

/// What is known of a matrix in a file, apart from its entries: all that checks and reports speak of.
struct SourceFacts {
  std::string name; ///< what messages call the matrix, such as K
  std::string path; ///< and its file
  int rows = 0, columns = 0;
  std::int64_t entryCount = 0; ///< of both triangles where the file keeps one that stands for both
  bool isWhole = false;        ///< the file says its dimensions, and whether one triangle stands for both
  Symmetry symmetry;
  std::vector<int> labels; ///< of the rows, of a matrix of a database; empty for 0, 1, 2, ...

  int Order() const;
  /// One triangle counts as symmetric; see symmetryTolerance for two.
  bool IsSymmetric() const { return symmetry.worstDifference <= symmetryTolerance; }
  /// "K ('k.mtx')", for messages.
  std::string FullName() const { return name + " ('" + path + "')"; }
};

/// A matrix as it was found in its file, from which commands make the one that they compute with.
struct MatrixSource : SourceFacts {
  ORXSrvSparseMatrix entries{0, 0};

  /// A file that cannot be read, and one without entries, are a ToolError. In a database, the letters K and M
  /// mean the matrices of these types where the name of the file says no more.
  MatrixSource(char const* letter, std::string const& file);

private:
  void ReadFromDatabase(InputFile const& file);
};

/// A matrix without rows and columns is a ToolError.
void RequireRowsAndColumns(SourceFacts const& source);

/// What a file says of itself is believed: it is not continued by zeros, nor is its triangle mirrored. A file
/// that does, and is not square, or has an empty triangle beside one that is not, is a ToolError. The second
/// and third function are the two parts of the first: the shape, and an entry off the diagonal of a matrix
/// that is not Symmetry::Form::BothTriangles.
void RequireAsStated(MatrixSource const& source);
void RequireSquareAsStated(SourceFacts const& source);
void RequireNotHalfAsStated(SourceFacts const& source, ORXSrvSparseMatrixEntry const& entry);

/// Only text without a header may end before the other matrix does; else a ToolError.
void RequireOneOrder(SourceFacts const& k, SourceFacts const& m);

/// The symmetric matrix that the file stands for, in symmetric form of the lower triangle. A ToolError unless
/// it is symmetric and finite.
ORXSrvSparseMatrix SymmetricFormOf(MatrixSource const& source, int order);

/// The same of a symmetric matrix, and another one as it is, in general form. A ToolError unless it is
/// finite.
ORXSrvSparseMatrix SquareMatrixOf(MatrixSource const& source, int order);

/// "# K: k.mtx, order 3, 5 entries, lower triangle, ...", for the first lines of a report.
std::string SourceText(SourceFacts const& source, int order);

} // namespace orx::tool
