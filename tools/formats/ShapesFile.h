#pragma once

#include "tools/formats/OutputFile.h"
#include "tools/numerics/ModalProblem.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace orx::tool {

/// The file that mode shapes go to, a column for each mode, from before the modes are known: a path that
/// cannot be written to shows before the work. Its extension says its type:
///
///     .sim, .h5, .hdf5   database, see WriteShapesDatabase
///     .mtx, .csv, .bin   matrix file of that type
///     none of these      text triplets
class ShapesFile {
public:
  /// An extension of a type that cannot hold shapes is a ToolError, as is a path that cannot be written to.
  explicit ShapesFile(std::string const& path);

  /// `order` is the number of unknowns; shape(j) gives as many components of mode j, read before the next one
  /// is asked for. `labels` are those of the unknowns for a database, empty for 0, 1, 2, ... Until this has
  /// succeeded the path has its older content. A database takes no copy of the shapes in memory, the other
  /// types take a sparse matrix of them.
  void Write(std::vector<Mode> const& modes, int order, std::function<double const*(int)> const& shape,
             std::span<int const> labels = {});

private:
  std::string m_path;
  ReplacedFile m_file;
};

/// Creates or replaces a database with one context and two distributions of doubles: the block matrix of
/// shapes, of type "mode shapes", unknowns by modes, in chunks of at most 65536 rows and 64 columns; and of
/// type "frequencies, Hz" a vector over the same modes.
void WriteShapesDatabase(std::string const& path, std::vector<Mode> const& modes, int order,
                         std::function<double const*(int)> const& shape, std::span<int const> labels = {});

} // namespace orx::tool
