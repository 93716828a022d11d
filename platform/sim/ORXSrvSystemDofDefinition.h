#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimArray.h"

#include <cstdint>

/// A degree of freedom of a node. The numbers are the solver's; the library does not interpret them.
struct ORXSrvNodeDof {
  std::int32_t node = 0;
  std::int32_t dof = 0;
  friend bool operator==(ORXSrvNodeDof const&, ORXSrvNodeDof const&) = default;
};

/// Maps the equation numbers of a solver (zero-based) to nodes and their degrees of freedom. It owns a copy
/// of the mapping.
class ORX_EXPORT ORXSrvSystemDofDefinition {
public:
  /// Element k of the array belongs to equation k.
  explicit ORXSrvSystemDofDefinition(ORXSimArray<ORXSrvNodeDof> const& equations) : m_equations(equations) {}

  int NumberOfDofs() const noexcept { return m_equations.Size(); }
  /// Raises ORXSimException invalidArgument (20) when `solverDof` is not in 0 ... NumberOfDofs() - 1.
  ORXSrvNodeDof NodeDofFromSolverDof(int solverDof) const;

private:
  ORXSimArray<ORXSrvNodeDof> m_equations;
};
