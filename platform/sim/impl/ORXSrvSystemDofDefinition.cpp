#include "sim/ORXSrvSystemDofDefinition.h"

#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

ORXSrvNodeDof ORXSrvSystemDofDefinition::NodeDofFromSolverDof(int solverDof) const {
  if (solverDof < 0 || solverDof >= NumberOfDofs())
    RaiseError(ORXSimException::invalidArgument, "There is no equation " + std::to_string(solverDof) +
                                                     ": the system has " + std::to_string(NumberOfDofs()) +
                                                     ".");
  return m_equations[solverDof];
}
