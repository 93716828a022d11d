// petsc_products [symmetric] FOLDER COUNT...: times PETSc's products of a sparse matrix with COUNT vectors
// each. FOLDER holds the compressed rows in ia.bin, ja.bin and a.bin; the matrix is square. With "symmetric"
// one triangle is kept of a symmetric matrix. Prints what kernel_peers.py prints, with "symmetric" only the
// products that are not transposed. A program of its own, so that what PETSc loads is not in ours.

#include "bench/RowsOfFolder.h"

#include <petscmat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using bench::BlockOfVectors;
using bench::MedianSeconds;
using bench::RowsOfFolder;

void Require(PetscErrorCode error) {
  if (error == 0) return;
  std::fprintf(stderr, "PETSc: error %d\n", static_cast<int>(error));
  std::exit(1);
}

struct Matrix {
  RowsOfFolder arrays;
  PetscInt rows;
  bool isSymmetric;
  Mat mat = nullptr;

  Matrix(std::string const& folder, bool keepTriangle)
      : arrays(folder), rows(arrays.rows), isSymmetric(keepTriangle) {
    Require(MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, rows, rows, arrays.ia.Data(), arrays.ja.Data(),
                                      arrays.a.Data(), &mat));
    if (!isSymmetric) return;
    Mat triangle = nullptr;
    Require(MatSetOption(mat, MAT_SYMMETRIC, PETSC_TRUE));
    Require(MatConvert(mat, MATSEQSBAIJ, MAT_INITIAL_MATRIX, &triangle));
    Require(MatDestroy(&mat));
    mat = triangle;
  }
};

void Print(char const* name, int count, double seconds, BlockOfVectors const& y) {
  std::printf("%s_%d %.9f\n%s_%d_checksum %.17g\n", name, count, seconds, name, count, y.Checksum());
}

/// One vector, with and without PETSc's use of rows that share their columns: the faster one counts.
void TimeOneVector(Matrix const& matrix, BlockOfVectors& x, BlockOfVectors& y) {
  Vec vx = nullptr, vy = nullptr;
  Require(VecCreateSeqWithArray(PETSC_COMM_SELF, 1, matrix.rows, x.Data(), &vx));
  Require(VecCreateSeqWithArray(PETSC_COMM_SELF, 1, matrix.rows, y.Data(), &vy));
  auto const multiply = [&] { Require(MatMult(matrix.mat, vx, vy)); };
  auto const multiplyTransposed = [&] { Require(MatMultTranspose(matrix.mat, vx, vy)); };
  double const product = MedianSeconds(multiply);
  if (matrix.isSymmetric) return Print("product", 1, product, y);
  double const transposed = MedianSeconds(multiplyTransposed);
  Require(MatSetOption(matrix.mat, MAT_USE_INODES, PETSC_FALSE));
  Print("product", 1, std::min(product, MedianSeconds(multiply)), y);
  Print("transposed", 1, std::min(transposed, MedianSeconds(multiplyTransposed)), y);
  Require(VecDestroy(&vx));
  Require(VecDestroy(&vy));
}

using DenseProduct = PetscErrorCode (*)(Mat, Mat, MatReuse, PetscReal, Mat*);

void TimeVectors(char const* name, DenseProduct product, Matrix const& matrix, BlockOfVectors& x,
                 BlockOfVectors& y, int count) {
  Mat dense = nullptr, result = nullptr;
  Require(MatCreateSeqDense(PETSC_COMM_SELF, matrix.rows, count, x.Data(), &dense));
  Require(product(matrix.mat, dense, MAT_INITIAL_MATRIX, PETSC_DEFAULT, &result));
  Require(MatDensePlaceArray(result, y.Data())); // on pages like those of the others
  double const seconds =
      MedianSeconds([&] { Require(product(matrix.mat, dense, MAT_REUSE_MATRIX, PETSC_DEFAULT, &result)); });
  Require(MatDenseResetArray(result));
  Print(name, count, seconds, y);
  Require(MatDestroy(&result));
  Require(MatDestroy(&dense));
}

} // namespace

int main(int argc, char** argv) {
  bool const symmetric = argc > 1 && std::string(argv[1]) == "symmetric";
  if (symmetric) --argc, ++argv;
  if (argc < 3) return 2;
  setenv("OMPI_MCA_ess_singleton_isolated", "1", 0); // one process alone: Open MPI need not start its daemon
  Require(PetscInitializeNoArguments());
  Matrix matrix(argv[1], symmetric);
  for (int k = 2; k < argc; ++k) {
    int const count = std::atoi(argv[k]);
    BlockOfVectors x = BlockOfVectors::Factors(matrix.rows, count);
    BlockOfVectors y(matrix.rows, count);
    if (count == 1) {
      TimeOneVector(matrix, x, y);
    } else {
      TimeVectors("product", MatMatMult, matrix, x, y, count);
      if (!symmetric) TimeVectors("transposed", MatTransposeMatMult, matrix, x, y, count);
    }
  }
  Require(MatDestroy(&matrix.mat));
  Require(PetscFinalize());
  return 0;
}
