// petsc_operations FOLDER: times PETSc's transposition, permutation and symmetry test of the matrix in FOLDER
// and prints "transpose SECONDS", "permute SECONDS" and "symmetry SECONDS", each with a checksum. A program
// of its own, so that what PETSc loads is not in ours.

#include "bench/RowsOfFolder.h"

#include <petscmat.h>

namespace {

using bench::MedianSecondsOfNew;
using bench::RowsOfFolder;

void Require(PetscErrorCode error) {
  if (error == 0) return;
  std::fprintf(stderr, "PETSc: error %d\n", static_cast<int>(error));
  std::exit(1);
}

double ChecksumOf(Mat matrix) {
  PetscInt rows = 0;
  PetscInt const *ia = nullptr, *ja = nullptr;
  PetscScalar const* a = nullptr;
  PetscBool done = PETSC_FALSE;
  Require(MatGetRowIJ(matrix, 0, PETSC_FALSE, PETSC_FALSE, &rows, &ia, &ja, &done));
  Require(MatSeqAIJGetArrayRead(matrix, &a));
  return bench::ChecksumOfRows(rows, ia, ja, a);
}

template<class Operation>
void Report(char const* task, Operation const& operation) {
  auto const destroy = [](Mat result) { Require(MatDestroy(&result)); };
  Mat const result = operation();
  double const checksum = ChecksumOf(result);
  destroy(result);
  bench::PrintTiming(task, MedianSecondsOfNew(operation, destroy), checksum);
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  setenv("OMPI_MCA_ess_singleton_isolated", "1", 0); // one process alone: Open MPI need not start its daemon
  Require(PetscInitializeNoArguments());
  RowsOfFolder rows(argv[1]);
  Mat matrix = nullptr;
  Require(MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, rows.rows, rows.rows, rows.ia.Data(), rows.ja.Data(),
                                    rows.a.Data(), &matrix));
  Report("transpose", [&] {
    Mat result = nullptr;
    Require(MatTranspose(matrix, MAT_INITIAL_MATRIX, &result));
    return result;
  });
  std::vector<int> const perm = bench::ScrambledRows(rows.rows);
  IS order = nullptr;
  Require(ISCreateGeneral(PETSC_COMM_SELF, rows.rows, perm.data(), PETSC_USE_POINTER, &order));
  Require(ISSetPermutation(order));
  Report("permute", [&] {
    Mat result = nullptr;
    Require(MatPermute(matrix, order, order, &result));
    return result;
  });
  // MatIsSymmetric would keep its answer; this is what it calls.
  PetscBool isSymmetric = PETSC_FALSE;
  double const seconds =
      bench::MedianSeconds([&] { Require(MatIsTranspose(matrix, matrix, 0.0, &isSymmetric)); });
  bench::PrintTiming("symmetry", seconds, isSymmetric == PETSC_TRUE ? 1.0 : 0.0);
  Require(ISDestroy(&order));
  Require(MatDestroy(&matrix));
  Require(PetscFinalize());
  return 0;
}
