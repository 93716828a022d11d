// slepc_peer K M COUNT [options of PETSc and SLEPc]
//
// The COUNT lowest modes of a pair of PETSc binary files by SLEPc's Krylov-Schur with shift-and-invert on
// MUMPS, as its tutorials do it: Cholesky at a shift of 0, no certificate. Prints "load SECONDS", "modes
// SECONDS", of both together "all SECONDS", and "last EIGENVALUE".

#include <slepceps.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

void Require(PetscErrorCode error) {
  if (error != 0) std::exit(1);
}

Mat Load(char const* path) {
  Mat matrix = nullptr;
  PetscViewer file = nullptr;
  Require(PetscViewerBinaryOpen(PETSC_COMM_WORLD, path, FILE_MODE_READ, &file));
  Require(MatCreate(PETSC_COMM_WORLD, &matrix));
  Require(MatSetType(matrix, MATAIJ));
  Require(MatLoad(matrix, file));
  Require(MatSetOption(matrix, MAT_SYMMETRIC, PETSC_TRUE));
  Require(PetscViewerDestroy(&file));
  return matrix;
}

double Solve(Mat k, Mat m, int count) {
  EPS problem = nullptr;
  ST transform = nullptr;
  KSP solver = nullptr;
  PC preconditioner = nullptr;
  Require(EPSCreate(PETSC_COMM_WORLD, &problem));
  Require(EPSSetOperators(problem, k, m));
  Require(EPSSetProblemType(problem, EPS_GHEP));
  Require(EPSSetDimensions(problem, count, PETSC_DEFAULT, PETSC_DEFAULT));
  Require(EPSSetTarget(problem, 0.0));
  Require(EPSSetWhichEigenpairs(problem, EPS_TARGET_MAGNITUDE));
  Require(EPSGetST(problem, &transform));
  Require(STSetType(transform, STSINVERT));
  Require(STGetKSP(transform, &solver));
  Require(KSPSetType(solver, KSPPREONLY));
  Require(KSPGetPC(solver, &preconditioner));
  Require(PCSetType(preconditioner, PCCHOLESKY));
  Require(PCFactorSetMatSolverType(preconditioner, MATSOLVERMUMPS));
  Require(EPSSetFromOptions(problem));
  Require(EPSSolve(problem));
  PetscInt converged = 0;
  Require(EPSGetConverged(problem, &converged));
  std::vector<double> values(static_cast<std::size_t>(converged));
  for (PetscInt i = 0; i < converged; ++i)
    Require(EPSGetEigenvalue(problem, i, &values[static_cast<std::size_t>(i)], nullptr));
  std::ranges::sort(values);
  Require(EPSDestroy(&problem));
  return converged >= count ? values[static_cast<std::size_t>(count) - 1] : 0.0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  Require(SlepcInitialize(&argc, &argv, nullptr, nullptr));
  double const start = MPI_Wtime();
  Mat k = Load(argv[1]), m = Load(argv[2]);
  double const loaded = MPI_Wtime();
  double const last = Solve(k, m, std::atoi(argv[3]));
  double const end = MPI_Wtime();
  Require(MatDestroy(&k));
  Require(MatDestroy(&m));
  Require(PetscPrintf(PETSC_COMM_WORLD, "load %g\nmodes %g\nall %g\nlast %.17g\n", loaded - start,
                      end - loaded, end - start, last));
  Require(SlepcFinalize());
}
