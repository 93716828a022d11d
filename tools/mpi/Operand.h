#pragma once

#include "tools/mpi/DenseDrawer.h"
#include "tools/mpi/SparseDrawer.h"

#include "tools/formats/DatabaseMatrix.h"

#include <string>

namespace orx::mpi {

/// A matrix of a database, which the root keeps open: the lock keeps writers away while all ranks read.
class Operand {
public:
  /// `role` as for tool::FindMatrix. Collective. What cannot be found is a ToolError of all ranks.
  Operand(std::string const& name, std::string const& role, Ranks const& ranks);

  std::string const& Name() const noexcept { return m_name; }
  std::string const& Path() const noexcept { return m_path; }
  int Rows() const noexcept { return m_shape.rows; }
  int Columns() const noexcept { return m_shape.columns; }
  bool IsSparse() const noexcept { return m_shape.isSparse; }
  DensePlace Dense() const { return {m_drawer, Rows(), Columns(), m_shape.isSymmetric}; }
  SparsePlace Sparse() const { return {m_drawer, Rows(), Columns(), m_shape.isSymmetric}; }
  tool::StoredMatrix const& Stored() const noexcept { return m_stored; } ///< on the root

  /// "# A: model.sim:A, dense, 3 x 4"
  std::string Text(char const* letter) const;

private:
  struct Shape {
    int rows, columns;
    bool isSparse, isSymmetric;
  };

  void Find(std::string const& name, std::string const& role);

  ORXSimDatabase m_database;   ///< the root's
  tool::StoredMatrix m_stored; ///< the root's
  std::string m_name, m_path, m_drawer;
  Shape m_shape{};
};

/// Bytes of all ranks' shares of so many doubles, on the machine of this rank, must be available; else a
/// ToolError that calls them `what`. Collective.
void RequireRoom(double cells, char const* what, Ranks const& ranks);

} // namespace orx::mpi
