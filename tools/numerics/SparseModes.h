#pragma once

#include "tools/numerics/ModalProblem.h"

namespace orx::tool {

/// The modes that are chosen, by the library's sparse solver: certified, without dense matrices. Both
/// matrices have no row without a value. Motions that both take for nothing are held, one unknown of each.
/// Fails as SolveModes does, and when M is indefinite.
ModalSolution SolveSparse(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                          ModeChoice const& choice, double stiffnessError);

/// A line for `orxmtx modes --explain`: what the factorization of such a pair takes, by its pattern alone.
std::string ExplainFactorization(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass);

} // namespace orx::tool
