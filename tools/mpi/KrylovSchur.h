#pragma once

#include "tools/mpi/DistributedPencil.h"

#include "solve/ORXSrvModes.h"
#include "solve/search/BlockLanczos.h"
#include "tools/numerics/ModalProblem.h"

#include <vector>

namespace orx::mpi {

/// What SLEPc has found, and how many eigenvalues there are by inertia, ascending.
struct KrylovSchurModes {
  std::vector<FoundMode> found;
  std::vector<ORXSrvModeCount> counts;
  std::vector<double> shifts;
};

/// The modes that are chosen, by SLEPc's eigensolver, Krylov-Schur unless its options (-eps_...) say another,
/// with (K - shift M)^-1 M by the pencil. Where inertia counts more eigenvalues than were found, which
/// happens to those that are there many times, a ToolError says so: unlike ModalAnalysis this does not look
/// for them. Collective. REQUIRES a choice for which ModalAnalysis has functions, and RequireMass.
KrylovSchurModes FindByKrylovSchur(DistributedPencil& pencil, Mat k, Mat m, tool::ModeChoice const& choice);

} // namespace orx::mpi
