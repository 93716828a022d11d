#pragma once

#include "tools/formats/FileKind.h"
#include "tools/formats/OutputFile.h"

#include "mtx/ORXSrvSparseMatrix.h"

#include <optional>
#include <span>
#include <string>

namespace orx::tool {

/// The types of matrix files that hold columns of results, and all their extensions.
constexpr FileKind kindsOfColumns[] = {FileKind::Triplets, FileKind::Commas, FileKind::MatrixMarket,
                                       FileKind::Dense};
constexpr char extensionsOfColumns[] = ".txt, .csv, .mtx or .bin, or .sim or .h5 for a database";

/// A file of results, a column for each load or mode, from before they are known: a path that cannot be
/// written to shows before the work. Its extension is .txt, also of "-", .csv, .mtx or .bin, or that of a
/// database.
class ResultFile {
public:
  /// Another extension, and a path that cannot be written to or is one of `inputs`, are a ToolError that
  /// begins with `option`.
  ResultFile(std::string const& option, std::string const& path, std::span<std::string const> inputs);

  /// Until this has succeeded the path has its older content. A database has one block matrix of type `what`,
  /// with zeros where nothing is stored and, if there are any, these labels of its rows. A Matrix Market file
  /// comes out as an array when the matrix has an entry at every position.
  void Write(char const* what, ORXSrvSparseMatrix const& columns, std::span<int const> labels = {});

private:
  std::optional<FileKind> m_kind; ///< none: a database
  ReplacedFile m_file;
};

} // namespace orx::tool
