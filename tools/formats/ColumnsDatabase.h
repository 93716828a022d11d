#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orx::tool {

/// True for a path that ends with .sim, .h5 or .hdf5.
bool IsDatabase(std::string const& path);

/// The shape of block matrices in a new database.
struct ColumnsShape {
  int rows = 0, columns = 0;
  std::span<int const> rowLabels{}, columnLabels{}; ///< as many as there are; empty for 0, 1, 2, ...
  int rowsOfChunk = 65536, columnsOfChunk = 64;     ///< -1 for all
};

/// A new database file with one context, whose distributions are over the same rows and columns, such as
/// unknowns and modes. An older file is replaced. Errors are the database's own.
class ColumnsDatabase {
public:
  ColumnsDatabase(std::string const& path, ColumnsShape const& shape);
  ColumnsDatabase(ColumnsDatabase const&) = delete;
  ColumnsDatabase& operator=(ColumnsDatabase const&) = delete;
  ~ColumnsDatabase();

  /// Begins a block matrix of doubles, whose columns come next, in any order.
  void BeginBlockMatrix(char const* type);
  /// `count` columns from `first` on, one after the other. The file is the only copy.
  void WriteColumns(int first, int count, double const* values);
  /// A whole block matrix. column(j) is read before the next one is asked for.
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
