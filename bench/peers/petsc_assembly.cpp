// petsc_assembly ELEMENTS natural|elements|triplets coo|values: assembles the mesh of the claims about
// assembly with PETSc and prints its figures. A program of its own, so that what PETSc loads is not in ours.

#include "bench/HexMesh.h"
#include "bench/Process.h"

#include <petscmat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using bench::AssemblyOrder;
using bench::HexMesh;
using bench::Triplet;

void Require(PetscErrorCode error) {
  if (error == 0) return;
  std::fprintf(stderr, "PETSc: error %d\n", static_cast<int>(error));
  std::exit(1);
}

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

void Run(int elements, AssemblyOrder order, bool coo) {
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

} // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  setenv("OMPI_MCA_ess_singleton_isolated", "1", 0); // one process alone: Open MPI need not start its daemon
  Require(PetscInitializeNoArguments());
  AssemblyOrder const order = std::strcmp(argv[2], "natural") == 0    ? AssemblyOrder::Natural
                              : std::strcmp(argv[2], "elements") == 0 ? AssemblyOrder::Elements
                                                                      : AssemblyOrder::Triplets;
  Run(std::atoi(argv[1]), order, std::strcmp(argv[3], "coo") == 0);
  Require(PetscFinalize());
  return 0;
}
