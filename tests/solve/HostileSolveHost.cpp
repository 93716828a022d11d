// A host program that exports a BLAS, an MPI and an engine of its own, all of them wrong. The library must do
// without.

#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSparseFactor.h"
#include "tests/solve/SolveSupport.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {
int trapped = 0;
}

#define TRAP __attribute__((alias("trap")))

extern "C" {
void trap() { ++trapped; }
void dgemm_() TRAP, dtrsm_() TRAP, dgemv_() TRAP, dscal_() TRAP, dcopy_() TRAP, daxpy_() TRAP, dswap_() TRAP;
void dgetrf_() TRAP, dpotrf_() TRAP, dsyrk_() TRAP, dtrsv_() TRAP, dger_() TRAP, idamax_() TRAP,
    ilaenv_() TRAP;
void MPI_Init() TRAP, mpi_init_() TRAP, MPI_Comm_rank() TRAP, mpi_comm_rank_() TRAP, mpi_bcast_() TRAP;
void mpi_allreduce_() TRAP, mpi_reduce_() TRAP, mpi_send_() TRAP, mpi_recv_() TRAP;
void dmumps_c() TRAP, dmumps_f77_() TRAP, mumps_get_mapping() TRAP, SCOTCH_graphInit() TRAP;
void SCOTCH_randomSeed() TRAP, SCOTCH_errorPrint() TRAP, esmumps() TRAP, gotoblas_init() TRAP;
}

TEST(HostileSolveHost, DoesNotTakeOverTheEngine) {
  Sparse const k = Grid(40, 40), m = UnitMass(1600);
  ORXSrvModes modes(k, m);
  modes.FindLowest(5);
  ASSERT_EQ(modes.Modes().size(), 5u);
  for (int i = 0; i < 5; ++i)
    EXPECT_NEAR(modes.Modes()[static_cast<std::size_t>(i)].eigenvalue,
                GridEigenvalues(40, 40)[static_cast<std::size_t>(i)], 1e-12);
  Sparse const unsymmetric = RandomMatrix(200, 0.05, false, 3);
  ORXSrvSparseFactor factor;
  factor.Factorize(unsymmetric);
  std::vector<double> const b(200, 1.0);
  std::vector<double> x(200);
  EXPECT_LT(factor.SolveRefined(b.data(), x.data(), 1), 1e-14);
  EXPECT_EQ(trapped, 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}),
            1); // no thread was started
}
