// The solver module in C++: a tower of plane beams under wind, its displacements and its modes. The tower has
// two legs, struts and diagonals in 40 storeys, and a mast on top; hinges hold its feet. solver_module.f and
// solver_module.c are the same module in Fortran and C; all three do the same arithmetic in the same order
// and print the same digits.

#include "examples/support/Program.h"

#include "blac/BLAC.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "mtx/ORXSrvTimer.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSrvPosition.h"
#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSparseFactor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

// Mesh

constexpr int storeys = 40, mastNodes = 12, feet = 2;
constexpr int topNode = 2 * (storeys + 1), nodes = topNode + mastNodes;

enum Section : int { legSection, braceSection, mastSection };

struct Node {
  double across = 0.0, up = 0.0; ///< m
  std::array<int, 3> unknowns =
      {}; ///< displacements across and up, rotation; from 1, 0 for what a foot holds
};

struct Beam {
  std::array<int, 2> ends;
  Section section;
};

struct Tower {
  std::array<Node, nodes> node;
  std::vector<Beam> beams;
  int unknowns = 0;
};

void PlaceNodes(Tower& tower) {
  double const height = 3.0 * storeys;
  for (int i = 0; i <= storeys; ++i) {
    double const up = 3.0 * i;
    double const half = 8.0 - 6.5 * up / height;
    tower.node[2 * i] = {-half, up};
    tower.node[2 * i + 1] = {half, up};
  }
  for (int i = 0; i < mastNodes; ++i)
    tower.node[topNode + i] = {0.0, height + 2.0 * (i + 1)};
}

void ConnectNodes(Tower& tower) {
  auto const add = [&](int from, int to, Section section) { tower.beams.push_back({{from, to}, section}); };
  for (int i = 1; i <= storeys; ++i) {
    int const left = 2 * i, right = left + 1;
    bool const isOdd = i % 2 == 1;
    add(left - 2, left, legSection);
    add(right - 2, right, legSection);
    add(left, right, braceSection);
    add(isOdd ? left - 2 : right - 2, isOdd ? right : left, braceSection);
  }
  add(topNode - 2, topNode, legSection);
  add(topNode - 1, topNode, legSection);
  for (int i = 1; i < mastNodes; ++i)
    add(topNode + i - 1, topNode + i, mastSection);
}

void NumberUnknowns(Tower& tower) {
  for (int node = 0; node < nodes; ++node)
    for (int i = 0; i < 3; ++i)
      tower.node[node].unknowns[i] = node < feet && i < 2 ? 0 : ++tower.unknowns;
}

Tower MakeTower() {
  Tower tower;
  PlaceNodes(tower);
  ConnectNodes(tower);
  NumberUnknowns(tower);
  std::printf("%d nodes, %d beams, %d unknowns\n", nodes, static_cast<int>(tower.beams.size()),
              tower.unknowns);
  return tower;
}

// Elements

using ElementMatrix = std::array<double, 36>; ///< symmetric: its rows are its columns

struct Element {
  ElementMatrix stiffness, mass;
  std::array<int, 6> unknowns;
};

/// An element matrix in the directions of the tower. Along the beam, whose direction is (c, s), it is
///
///     a0 a1                            b0  b1  b2  b3
///     a1 a0    and across the beam     b1  b4 -b3  b5
///                                      b2 -b3  b0 -b1
///                                      b3  b5 -b1  b4
ElementMatrix Rotate(double c, double s, std::array<double, 2> const& a, std::array<double, 6> const& b) {
  double const nxx = a[0] * c * c + b[0] * s * s, nxz = (a[0] - b[0]) * c * s;
  double const nzz = a[0] * s * s + b[0] * c * c, nx = -s * b[1], nz = c * b[1];
  double const fxx = a[1] * c * c + b[2] * s * s, fxz = (a[1] - b[2]) * c * s;
  double const fzz = a[1] * s * s + b[2] * c * c, fx = -s * b[3], fz = c * b[3];
  return {nxx, nxz, nx,  fxx, fxz, fx,  nxz, nzz, nz,  fxz, fzz, fz,  nx, nz, b[4], -fx, -fz, b[5],
          fxx, fxz, -fx, nxx, nxz, -nx, fxz, fzz, -fz, nxz, nzz, -nz, fx, fz, b[5], -nx, -nz, b[4]};
}

/// A beam of Bernoulli's, in N, m and kg.
Element MakeElement(Tower const& tower, Beam const& beam) {
  constexpr double young = 2.1e11, density = 7850.0;
  constexpr double areas[] = {3e-2, 6e-3, 1.2e-2}, inertias[] = {8.7e-4, 3e-5, 1e-4};
  Node const &from = tower.node[beam.ends[0]], &to = tower.node[beam.ends[1]];
  double const across = to.across - from.across, up = to.up - from.up;
  double const l = std::sqrt(across * across + up * up), c = across / l, s = up / l;
  double const area = areas[beam.section];
  double const ea = young * area / l, ei = young * inertias[beam.section] / (l * l * l);
  double const w = density * area * l / 420.0;
  return {
      Rotate(c, s, {ea, -ea},
             {12.0 * ei, 6.0 * ei * l, -12.0 * ei, 6.0 * ei * l, 4.0 * ei * l * l, 2.0 * ei * l * l}),
      Rotate(c, s, {140.0 * w, 70.0 * w},
             {156.0 * w, 22.0 * w * l, 54.0 * w, -13.0 * w * l, 4.0 * w * l * l, -3.0 * w * l * l}),
      {from.unknowns[0], from.unknowns[1], from.unknowns[2], to.unknowns[0], to.unknowns[1], to.unknowns[2]}};
}

struct Model {
  ORXSrvSparseMatrix stiffness, mass;
};

/// The library leaves out the rows and columns of unknowns that are 0.
Model Assemble(Tower const& tower) {
  Model model{{tower.unknowns, tower.unknowns}, {tower.unknowns, tower.unknowns}};
  for (Beam const& beam : tower.beams) {
    Element const element = MakeElement(tower, beam);
    model.stiffness.AddData(6, element.unknowns.data(), element.stiffness.data());
    model.mass.AddData(6, element.unknowns.data(), element.mass.data());
  }
  model.stiffness.EndAssembly();
  model.mass.EndAssembly();
  return model;
}

// Displacements under wind on the left leg and on the mast

struct Wind {
  std::vector<double> forces;     ///< N, by unknown
  double sum = 0.0, moment = 0.0; ///< of all forces, about the ground
};

Wind MakeWind(Tower const& tower) {
  Wind wind{std::vector<double>(tower.unknowns)};
  for (int node = feet; node < nodes; ++node) {
    bool const isOnRightLeg = node < topNode && node % 2 == 1;
    if (isOnRightLeg) continue;
    double const force = node < topNode ? 6e3 : 1.5e3;
    wind.forces[tower.node[node].unknowns[0] - 1] = force;
    wind.sum += force;
    wind.moment += force * tower.node[node].up;
  }
  return wind;
}

std::vector<double> Solve(ORXSrvSparseMatrix const& stiffness, std::vector<double> const& loads) {
  std::vector<double> u(loads.size());
  ORXSrvSparseFactor factor;
  factor.Factorize(stiffness);
  double const backwardError = factor.SolveRefined(loads.data(), u.data(), 1);
  int const unknowns = stiffness.NumberOfRows(), one = 1;
  int const largest = BLAC_IDAMAX(&unknowns, u.data(), &one);
  std::printf("largest displacement%23.15E m, unknown %d\n", u[largest - 1], largest);
  std::printf("backward error%8.1E\n", backwardError);
  return u;
}

using Reactions = std::array<std::array<double, 2>, feet>;

/// Adds the forces of a beam on the feet where it ends.
void AddReactions(Tower const& tower, Beam const& beam, std::vector<double> const& u, Reactions& reactions) {
  Element const element = MakeElement(tower, beam);
  for (int end = 0; end < 2; ++end) {
    int const node = beam.ends[end];
    for (int i = 0; node < feet && i < 2; ++i)
      for (int j = 0; j < 6; ++j)
        if (element.unknowns[j] != 0)
          reactions[node][i] += element.stiffness[6 * j + 3 * end + i] * u[element.unknowns[j] - 1];
  }
}

void PrintReactions(Tower const& tower, Wind const& wind, std::vector<double> const& u) {
  Reactions r = {};
  for (Beam const& beam : tower.beams)
    AddReactions(tower, beam, u, r);
  for (int foot = 0; foot < feet; ++foot)
    std::printf("reaction %d%24.15E%24.15E N\n", foot + 1, r[foot][0], r[foot][1]);
  double const across = std::fabs(r[0][0] + r[1][0] + wind.sum) / wind.sum;
  double const moment =
      std::fabs(tower.node[0].across * r[0][1] + tower.node[1].across * r[1][1] - wind.moment) / wind.moment;
  std::printf("equilibrium to%8.1E\n", std::max(across, moment));
}

// Modes

constexpr int modeCount = 8, rowsInBlock = 64;

enum Identifier : int { shapesId = 1, forcesId = 2, modalStiffnessId = 3 };

/// Finds the lowest modes, and registers their shapes. Returns the eigenvalues.
std::vector<double> FindModes(Model const& model, ORXSrvMatrixContainer& matrices) {
  ORXSrvModes modes(model.stiffness, model.mass);
  modes.FindLowest(modeCount);
  std::vector<double> eigenvalues;
  std::printf("%d modes, certified %d\n", static_cast<int>(modes.Modes().size()), modes.IsCertified());
  for (ORXSrvMode const& mode : modes.Modes()) {
    eigenvalues.push_back(mode.eigenvalue);
    std::printf("mode %d%23.15E Hz\n", static_cast<int>(eigenvalues.size()), mode.frequency);
  }
  modes.GetShapes(
      matrices.Create(shapesId, model.stiffness.NumberOfRows(), modeCount, rowsInBlock, modeCount));
  return eigenvalues;
}

/// Prints how far shapes^T * K * shapes is from a diagonal of eigenvalues.
void CheckModes(ORXSrvSparseMatrix const& stiffness, std::vector<double> const& eigenvalues,
                ORXSrvMatrixContainer& matrices) {
  ORXSrvDenseMatrix const& shapes = matrices.Get(shapesId);
  ORXSrvDenseMatrix& forces =
      matrices.Create(forcesId, shapes.NumberOfRows(), modeCount, rowsInBlock, modeCount);
  ORXSrvDenseMatrix& modalStiffness =
      matrices.Create(modalStiffnessId, modeCount, modeCount, rowsInBlock, modeCount);
  stiffness.MultiplyDense(shapes, forces, false);
  shapes.TransposeMultiply(&forces, &modalStiffness, 0);
  matrices.Remove(forcesId);

  double a[modeCount][modeCount];
  modalStiffness.GetAllValues(&a[0][0]);
  double coupling = 0.0, off = 0.0;
  for (int j = 0; j < modeCount; ++j) {
    off = std::max(off, std::fabs(a[j][j] / eigenvalues[j] - 1.0));
    for (int i = 0; i < modeCount; ++i)
      if (i != j) coupling = std::max(coupling, std::fabs(a[j][i]) / std::sqrt(a[i][i] * a[j][j]));
  }
  std::printf("modal stiffness: coupling%8.1E, diagonal off by%8.1E\n", coupling, off);
}

// Results

constexpr char path[] = "tower.sim";

ORXSimCSetID MakeSet(ORXSimContext const& context, int size) {
  return ORXSimCollection(context.CreateCollection(size, ORXSimTypeID())).BiggestCSetID();
}

/// A new matrix of zeros, which has its name as the type of its distribution.
ORXSimDistributionID AddMatrix(ORXSimTransaction& transaction, char const* name, int rows, int columns) {
  ORXSimContext const context(transaction.Context());
  int const type = context.DefineType(name);
  ORXSimCSetID const unknowns = MakeSet(context, rows), vectors = MakeSet(context, columns);
  return ORXSrvUtilities::Create2DDistribution(transaction, ORXSrvPosition(transaction.Context()), type,
                                               unknowns, vectors, -1, -1);
}

/// Writes displacements and mode shapes, in one transaction.
void WriteResults(std::vector<double>& displacements, ORXSrvDenseMatrix const& shapes) {
  ORXSimDatabase file;
  file.CreateFile(ORXUnicodeString(path), ORXSimDatabase::replaceExisting, -1);
  ORXSimTransaction transaction(file.CreateContext({}));
  int const unknowns = shapes.NumberOfRows();
  ORXSrvMatrix const column(unknowns, 1, displacements.data());
  ORXSrvDenseMatrix(AddMatrix(transaction, "displacements", unknowns, 1)).SetColumns(0, 0, column);
  ORXSrvDenseMatrix(AddMatrix(transaction, "mode shapes", unknowns, modeCount)).CopyValues(&shapes);
  transaction.Commit();
  file.Close();
}

void ReadResult(int row, int column) {
  ORXSimDatabase file;
  file.OpenFile(ORXUnicodeString(path), true);
  ORXSrvDenseMatrix const shapes(ORXSimContext(file.Contexts()[0]).Distributions()[1]);
  double value = 0.0;
  ORXSrvMatrix target(1, 1, &value);
  shapes.GetValues(row, row, column, column, target);
  std::printf("%s: last component of mode %d%23.15E\n", path, column + 1, value);
}

/// `context` is a FILE.
bool ShowProgress(void* context, char const* operation, std::int64_t done, std::int64_t total) {
  std::fprintf(static_cast<std::FILE*>(context), "%s: %lld of %lld\n", operation,
               static_cast<long long>(done), static_cast<long long>(total));
  return true;
}

void Run() {
  auto& timer = omi_Singleton<ORXSrvTimer>::Instance();
  timer.CreateTimer();
  ORXSrvProgress::Set(ShowProgress, stderr);

  Tower const tower = MakeTower();
  Model const model = Assemble(tower);
  Wind const wind = MakeWind(tower);
  std::vector<double> displacements = Solve(model.stiffness, wind.forces);
  PrintReactions(tower, wind, displacements);

  ORXSrvMatrixContainer matrices;
  std::vector<double> const eigenvalues = FindModes(model, matrices);
  CheckModes(model.stiffness, eigenvalues, matrices);
  WriteResults(displacements, matrices.Get(shapesId));
  ReadResult(tower.unknowns - 1, 1);
  std::fprintf(stderr, "%6.2f seconds\n", timer.Timer()->GetElapsedTime());
}

} // namespace

int main() { return support::RunProgram("solver_module", Run); }
