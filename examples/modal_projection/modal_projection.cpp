// The modes of a structure in a registry of out-of-core matrices, as the modules of a solver share them: the
// C++ side projects stiffness and mass onto the modes, a Fortran routine reads all three by their
// identifiers.
//
//     modal_projection DIR     after tapered_cantilever and orxmtx have left K.txt, M.txt, shapes.txt there

#include "examples/support/Program.h"

#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

/// Prints the modes as PrintModes does, in Fortran (print_modes.f90).
extern "C" void print_modes(ORXSrvMatrixContainer* matrices, int const* shapes, int const* stiffness,
                            int const* mass);

namespace {

constexpr int rowsInBlock = 256;

enum Identifier : int { shapes = 1, modalStiffness = 2, modalMass = 3, work = 4 };

void Read(ORXSrvSparseMatrix& matrix, std::string const& path) {
  constexpr int textTriplets = 3;
  matrix.Import(path.c_str(), textTriplets);
}

/// Registers the mode shapes of a file, cut into blocks of rows.
void RegisterShapes(ORXSrvMatrixContainer& matrices, std::string const& path) {
  ORXSrvSparseMatrix file(0, 0);
  Read(file, path);
  int const unknowns = file.NumberOfRows();
  int const modes = file.NumberOfColumns();

  ORXSrvMatrix values(unknowns, modes);
  values = 0.0;
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(file.GetEntries(count));
  for (int k = 0; k < count; ++k)
    values.Values()[std::int64_t{entries[k].column} * unknowns + entries[k].row] = entries[k].value;
  matrices.Create(shapes, unknowns, modes, rowsInBlock, modes).SetColumns(0, modes - 1, values);
}

/// Registers Phi^T * A * Phi; A is read from a file.
void Project(ORXSrvMatrixContainer& matrices, Identifier result, std::string const& path) {
  ORXSrvSparseMatrix a(0, 0);
  Read(a, path);
  ORXSrvDenseMatrix const& phi = matrices.Get(shapes);
  ORXSrvDenseMatrix& product = matrices.Get(work);
  a.MultiplyDense(phi, product, false);
  int const modes = phi.NumberOfColumns();
  phi.TransposeMultiply(&product, &matrices.Create(result, modes, modes, modes, modes), 1);
}

std::vector<double> Values(ORXSrvDenseMatrix const& matrix) {
  std::vector<double> values(static_cast<std::size_t>(matrix.NumberOfRows()) * matrix.NumberOfColumns());
  matrix.GetAllValues(values.data());
  return values;
}

/// How far a projected matrix is from diagonal; raises for more than rounding.
double LargestCoupling(ORXSrvDenseMatrix const& projected) {
  std::vector<double> const a = Values(projected);
  int const n = projected.NumberOfRows();
  double largest = 0.0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      if (i != j)
        largest = std::max(largest, std::fabs(a[j * n + i]) / std::sqrt(a[i * n + i] * a[j * n + j]));
  if (!(largest <= 1e-9)) throw std::runtime_error("the modes do not decouple the structure");
  return largest;
}

void PrintModes(ORXSrvMatrixContainer& matrices) {
  std::vector<double> const phi = Values(matrices.Get(shapes));
  std::vector<double> const k = Values(matrices.Get(modalStiffness));
  std::vector<double> const m = Values(matrices.Get(modalMass));
  int const unknowns = matrices.Get(shapes).NumberOfRows();
  int const modes = matrices.Get(shapes).NumberOfColumns();
  for (int j = 0; j < modes; ++j) {
    auto const shape = phi.begin() + std::int64_t{j} * unknowns;
    auto const largest = std::max_element(shape, shape + unknowns,
                                          [](double a, double b) { return std::fabs(a) < std::fabs(b); });
    double const omega = std::sqrt(k[j * modes + j] / m[j * modes + j]);
    std::printf("C++     %4d %24.16E %24.16E %8d\n", j + 1, omega / (2.0 * std::numbers::pi), *largest,
                static_cast<int>(largest - shape) + 1);
  }
}

void Run(std::string const& folder) {
  ORXSrvMatrixContainer matrices;
  RegisterShapes(matrices, folder + "/shapes.txt");
  ORXSrvDenseMatrix const& phi = matrices.Get(shapes);
  matrices.Create(work, phi.NumberOfRows(), phi.NumberOfColumns(), rowsInBlock, phi.NumberOfColumns());
  Project(matrices, modalStiffness, folder + "/K.txt");
  Project(matrices, modalMass, folder + "/M.txt");

  std::printf("largest coupling of two modes: %.1e in Phi^T K Phi, %.1e in Phi^T M Phi\n",
              LargestCoupling(matrices.Get(modalStiffness)), LargestCoupling(matrices.Get(modalMass)));
  std::printf("side    mode             frequency Hz     largest displacement  unknown\n");
  PrintModes(matrices);
  std::fflush(stdout); // the lines of the Fortran side follow
  int const ids[] = {shapes, modalStiffness, modalMass};
  print_modes(&matrices, &ids[0], &ids[1], &ids[2]);
}

} // namespace

int main(int argc, char** argv) {
  return support::RunProgram("modal_projection", [&] {
    if (argc != 2) throw std::runtime_error("usage: modal_projection DIR");
    Run(argv[1]);
  });
}
