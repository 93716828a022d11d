// petsc_peer assembly ELEMENTS natural|elements|triplets coo|values
// petsc_peer operations FOLDER
// petsc_peer products [symmetric] FOLDER COUNT...
//
// Times PETSc. "assembly" assembles the mesh of the claims about assembly and prints its figures.
// "operations" times transposition, permutation and symmetry test of the matrix in FOLDER, "products" its
// products with COUNT vectors each, with "symmetric" of one triangle and not transposed; both print "TASK
// SECONDS" and a checksum. FOLDER holds the compressed rows of a square matrix in ia.bin, ja.bin and a.bin. A
// program of its own: what PETSc loads must not be in ours.

#include "bench/HexMesh.h"
#include "bench/Process.h"
#include "bench/RowsOfFolder.h"

#include <petscmat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using bench::AssemblyOrder;
using bench::BlockOfVectors;
using bench::HexMesh;
using bench::MedianSeconds;
using bench::MedianSecondsOfNew;
using bench::RowsOfFolder;
using bench::Triplet;

void Require(PetscErrorCode error) {
  if (error == 0) return;
  std::fprintf(stderr, "PETSc: error %d\n", static_cast<int>(error));
  std::exit(1);
}

// Assembly

Mat NewMatrix(HexMesh const& mesh) {
  Mat matrix = nullptr;
  PetscInt const size = mesh.NumberOfUnknowns();
  Require(MatCreate(PETSC_COMM_SELF, &matrix));
  Require(MatSetSizes(matrix, size, size, size, size));
  Require(MatSetType(matrix, MATSEQAIJ));
  return matrix;
}

template<class Add>
void ForEach(HexMesh const& mesh, std::vector<Triplet> const& scrambled, Add add) {
  if (scrambled.empty()) return mesh.ForEachTriplet(add);
  for (Triplet const& t : scrambled)
    add(static_cast<PetscInt>(t.row), static_cast<PetscInt>(t.column), t.value);
}

/// Collects all triplets in arrays, then hands them over at once.
Mat AssembleCoo(HexMesh const& mesh, std::vector<Triplet> const& scrambled) {
  auto const count = static_cast<std::size_t>(mesh.NumberOfTriplets());
  std::vector<PetscInt> rows, columns;
  std::vector<PetscScalar> values;
  rows.reserve(count);
  columns.reserve(count);
  values.reserve(count);
  ForEach(mesh, scrambled, [&](PetscInt row, PetscInt column, double value) {
    rows.push_back(row);
    columns.push_back(column);
    values.push_back(value);
  });
  Mat matrix = NewMatrix(mesh);
  Require(MatSetPreallocationCOO(matrix, mesh.NumberOfTriplets(), rows.data(), columns.data()));
  Require(MatSetValuesCOO(matrix, values.data(), ADD_VALUES));
  return matrix;
}

/// Adds into a matrix whose rows have exactly the room that they need: whole elements where there are any.
Mat AssembleValues(HexMesh const& mesh, std::vector<Triplet> const& scrambled,
                   std::vector<int> const& rowLengths) {
  constexpr int n = HexMesh::elementUnknowns;
  PetscScalar element[n * n];
  for (int k = 0; k < n * n; ++k)
    element[k] = HexMesh::Value(k / n, k % n);
  Mat matrix = NewMatrix(mesh);
  Require(MatSeqAIJSetPreallocation(matrix, 0, rowLengths.data()));
  if (scrambled.empty()) {
    mesh.ForEachElement([&](int const* unknowns) {
      Require(MatSetValues(matrix, n, unknowns, n, unknowns, element, ADD_VALUES));
    });
  } else {
    for (Triplet const& t : scrambled)
      Require(MatSetValue(matrix, static_cast<PetscInt>(t.row), static_cast<PetscInt>(t.column), t.value,
                          ADD_VALUES));
  }
  Require(MatAssemblyBegin(matrix, MAT_FINAL_ASSEMBLY));
  Require(MatAssemblyEnd(matrix, MAT_FINAL_ASSEMBLY));
  return matrix;
}

void PrintContent(Mat matrix) {
  bench::Checksum checksum;
  std::int64_t nonzeros = 0;
  PetscInt rows = 0;
  Require(MatGetSize(matrix, &rows, nullptr));
  for (PetscInt row = 0; row < rows; ++row) {
    PetscInt count = 0;
    PetscInt const* columns = nullptr;
    PetscScalar const* values = nullptr;
    Require(MatGetRow(matrix, row, &count, &columns, &values));
    for (PetscInt k = 0; k < count; ++k)
      checksum.Add(row, columns[k], values[k]);
    nonzeros += count;
    Require(MatRestoreRow(matrix, row, &count, &columns, &values));
  }
  std::printf("nonzeros %lld\nchecksum %.17g\n", static_cast<long long>(nonzeros), checksum.Sum());
}

void TimeAssembly(int elements, AssemblyOrder order, bool coo) {
  HexMesh const mesh(elements, order);
  std::vector<int> const rowLengths = mesh.RowLengths();
  std::vector<Triplet> scrambled;
  if (order == AssemblyOrder::Triplets) scrambled = mesh.ScrambledTriplets();
  std::int64_t const before = bench::ResidentBytes();
  double const start = bench::Now();
  Mat matrix = coo ? AssembleCoo(mesh, scrambled) : AssembleValues(mesh, scrambled, rowLengths);
  double const end = bench::Now();
  std::printf("seconds %.6f\ngrown_bytes %lld\n", end - start,
              static_cast<long long>(bench::PeakBytes() - before));
  PrintContent(matrix);
  Require(MatDestroy(&matrix));
}

// Operations

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
void ReportOperation(char const* task, Operation const& operation) {
  auto const destroy = [](Mat result) { Require(MatDestroy(&result)); };
  Mat const result = operation();
  double const checksum = ChecksumOf(result);
  destroy(result);
  bench::PrintTiming(task, MedianSecondsOfNew(operation, destroy), checksum);
}

void TimeOperations(char const* folder) {
  RowsOfFolder rows(folder);
  Mat matrix = nullptr;
  Require(MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, rows.rows, rows.rows, rows.ia.Data(), rows.ja.Data(),
                                    rows.a.Data(), &matrix));
  ReportOperation("transpose", [&] {
    Mat result = nullptr;
    Require(MatTranspose(matrix, MAT_INITIAL_MATRIX, &result));
    return result;
  });
  std::vector<int> const perm = bench::ScrambledRows(rows.rows);
  IS order = nullptr;
  Require(ISCreateGeneral(PETSC_COMM_SELF, rows.rows, perm.data(), PETSC_USE_POINTER, &order));
  Require(ISSetPermutation(order));
  ReportOperation("permute", [&] {
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
}

// Products

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

void TimeProducts(bench::ProductsTask const& task) {
  Matrix matrix(task.folder, task.isSymmetric);
  for (int const count : task.counts) {
    BlockOfVectors x = BlockOfVectors::Factors(matrix.rows, count);
    BlockOfVectors y(matrix.rows, count);
    if (count == 1) {
      TimeOneVector(matrix, x, y);
    } else {
      TimeVectors("product", MatMatMult, matrix, x, y, count);
      if (!task.isSymmetric) TimeVectors("transposed", MatTransposeMatMult, matrix, x, y, count);
    }
  }
  Require(MatDestroy(&matrix.mat));
}

} // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const words(argv + 1, argv + argc);
  if (words.size() < 2) return 2;
  setenv("OMPI_MCA_ess_singleton_isolated", "1", 0); // one process alone: Open MPI need not start its daemon
  Require(PetscInitializeNoArguments());
  if (words[0] == "assembly") {
    AssemblyOrder const order = words[2] == "natural"    ? AssemblyOrder::Natural
                                : words[2] == "elements" ? AssemblyOrder::Elements
                                                         : AssemblyOrder::Triplets;
    TimeAssembly(std::stoi(words[1]), order, words[3] == "coo");
  } else if (words[0] == "operations") {
    TimeOperations(words[1].c_str());
  } else {
    TimeProducts(bench::ProductsTask(words));
  }
  Require(PetscFinalize());
  return 0;
}
