#pragma once

#include "solve/ORXSrvModes.h"
#include "tools/numerics/ModalProblem.h"

#include <functional>
#include <vector>

namespace orx::tool {

/// The modes that are chosen, by the library's sparse solver: certified, without dense matrices. Both
/// matrices have no row without a value. Motions that both take for nothing are held, one unknown of each.
/// Fails as SolveModes does, and when M is indefinite.
ModalSolution SolveSparse(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                          ModeChoice const& choice, double stiffnessError);

/// More motions than this without stiffness and mass are a fault of the model.
constexpr std::size_t mostHeldMotions = 100;

/// What a search has found and counted, but for the shapes.
struct SearchFindings {
  std::vector<ORXSrvMode> const& modes;
  std::vector<ORXSrvModeCount> const& counts;
  std::vector<double> const& shifts;
};

/// The same in words of this program. shape(j) is the shape of mode j, which may be a part of it.
ModalSolution DescribeSearch(SearchFindings const& found,
                             std::function<std::vector<double>(int)> const& shape, ModeChoice const& choice,
                             double stiffnessError);

/// A line for `orxmtx modes --explain`: what the factorization of such a pair takes, by its pattern alone.
std::string ExplainFactorization(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass);

} // namespace orx::tool
