#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orx::tool {

/// True for a path that ends with .sim, .h5 or .hdf5.
bool IsDatabase(std::string const& path);

/// A new database file with one context, whose distributions are over unknowns and the same few columns. An
/// older file is replaced. Errors are the database's own.
class ColumnsDatabase {
public:
  /// `labels` are those of the unknowns, as many as there are; empty for 0, 1, 2, ...
  ColumnsDatabase(std::string const& path, int unknowns, int columns, std::span<int const> labels = {});
  ColumnsDatabase(ColumnsDatabase const&) = delete;
  ColumnsDatabase& operator=(ColumnsDatabase const&) = delete;
  ~ColumnsDatabase();

  /// A block matrix of doubles, unknowns by columns, in chunks of at most 65536 rows and 64 columns: the
  /// chunks' own memory is the only copy. column(j) is read before the next one is asked for.
  void AddBlockMatrix(char const* type, std::function<double const*(int)> const& column);
  /// A value for each column.
  void AddVector(char const* type, std::vector<double> const& values);
  /// Without it the file stays without its distributions.
  void Commit();

private:
  struct State;
  std::unique_ptr<State> m_state;
};

} // namespace orx::tool
