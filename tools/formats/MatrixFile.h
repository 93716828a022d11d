#pragma once

#include "tools/formats/FileKind.h"
#include "tools/formats/InputFile.h"

#include "mtx/ORXSrvSparseMatrix.h"

#include <optional>
#include <string>

namespace orx::tool {

struct ReadOptions {
  std::optional<FileKind> kind; ///< none: recognized by the file's content
  std::optional<int> base;      ///< first index of triplets or comma text; none: 1 or 0 as of their type
  int dofsPerNode = 0;          ///< of text by nodes; 0: the largest degree of freedom in the file
};

/// The type to read a file as: the one that is said, or the one that its content shows.
FileKind KindToRead(InputFile const& file, ReadOptions const& options);

/// Reads a matrix of any type, in general form: values at one position are summed, symmetric binary types
/// give both triangles. Text without a header ends with its largest row and column: what follows the last
/// entry is not known to it. What cannot be opened or recognized is a ToolError; what is malformed too, or
/// the library's own exception, with path and line or offset.
ORXSrvSparseMatrix LoadMatrix(InputFile const& file, ReadOptions const& options = {});
ORXSrvSparseMatrix LoadMatrix(std::string const& path, ReadOptions const& options = {});

/// For readers: ends the assembly of what was read from `path`. Dimensions that the memory has no room for
/// are a ToolError that begins with the path.
void EndAssembly(std::string const& path, ORXSrvSparseMatrix& matrix);

} // namespace orx::tool
