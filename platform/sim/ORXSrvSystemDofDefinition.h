#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimArray.h"

#include <cstdint>

/// A degree of freedom of a node.
struct ORXSrvNodeDof {
  std::int32_t node = 0;
  std::int32_t dof = 0;
  friend bool operator==(ORXSrvNodeDof const&, ORXSrvNodeDof const&) = default;
};

/// Maps the equation numbers of a solver (zero-based) to nodes and their degrees of freedom.
class ORX_EXPORT ORXSrvSystemDofDefinition {
public:
  /// Element k is equation k.
  explicit ORXSrvSystemDofDefinition(ORXSimArray<ORXSrvNodeDof> const& equations) : m_equations(equations) {}

  int NumberOfDofs() const noexcept { return m_equations.Size(); }
  /// Raises an ORXSimException (invalidArgument) when there is no such equation.
  ORXSrvNodeDof NodeDofFromSolverDof(int solverDof) const;

private:
  ORXSimArray<ORXSrvNodeDof> m_equations;
};
