#pragma once

#include "tools/formats/MatrixFile.h"
#include "tools/numerics/Symmetry.h"

#include <string>

namespace orx::tool {

/// A matrix as it was found in its file, from which commands make the one that they compute with.
struct MatrixSource {
  std::string name; ///< what messages call the matrix, such as K
  std::string path; ///< and its file
  FileKind kind;
  ORXSrvSparseMatrix entries;
  Symmetry symmetry;

  /// A file that cannot be read, and one without entries, are a ToolError.
  MatrixSource(char const* letter, std::string const& file);

  int Order() const;
  /// True when the file says its dimensions, and whether one triangle stands for both: nothing may be added.
  bool IsWhole() const { return HasHeader(kind); }
  /// One triangle counts as symmetric; see symmetryTolerance for two.
  bool IsSymmetric() const { return symmetry.worstDifference <= symmetryTolerance; }
  /// "K ('k.mtx')", for messages.
  std::string FullName() const { return name + " ('" + path + "')"; }

private:
  MatrixSource(char const* letter, InputFile const& file);
};

/// What a file says of itself is believed: it is not continued by zeros, nor is its triangle mirrored. A file
/// that does, and is not square, or has an empty triangle beside one that is not, is a ToolError.
void RequireAsStated(MatrixSource const& source);

/// Only text without a header may end before the other matrix does; else a ToolError.
void RequireOneOrder(MatrixSource const& k, MatrixSource const& m);

/// The symmetric matrix that the file stands for, in symmetric form of the lower triangle. A ToolError unless
/// it is symmetric and finite.
ORXSrvSparseMatrix SymmetricFormOf(MatrixSource const& source, int order);

/// The same of a symmetric matrix, and another one as it is, in general form. A ToolError unless it is
/// finite.
ORXSrvSparseMatrix SquareMatrixOf(MatrixSource const& source, int order);

/// "# K: k.mtx, order 3, 5 entries, lower triangle, ...", for the first lines of a report.
std::string SourceText(MatrixSource const& source, int order);

} // namespace orx::tool
