#include "sim/ORXSrvSystemDofDefinition.h"

#include "sim/ORXSimException.h"

ORXSrvNodeDof ORXSrvSystemDofDefinition::NodeDofFromSolverDof(int solverDof) const {
  if (solverDof < 0 || solverDof >= NumberOfDofs()) {
    ORXSimException(ORXSimException::invalidArgument, "There is no equation " + std::to_string(solverDof) +
                                                          ": the system has " +
                                                          std::to_string(NumberOfDofs()) + ".")
        .Throw(__FILE__, __LINE__);
  }
  return m_equations[solverDof];
}
