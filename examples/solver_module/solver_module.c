/*
 * The solver module in C: a tower of plane beams under wind, its displacements and its modes. The tower has
 * two legs, struts and diagonals in 40 storeys, and a mast on top; hinges hold its feet. solver_module.f and
 * solver_module.cpp are the same module in Fortran and C++; all three do the same arithmetic in the same
 * order and print the same digits.
 */

#include "orx_linear_algebra.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

enum { storeys = 40, mastNodes = 12, topNode = 2 * (storeys + 1) }; /* nodes count from 0 */
enum { nodes = topNode + mastNodes, beams = 4 * storeys + 2 + mastNodes - 1, feet = 2 };
enum { modeCount = 8 };
enum { shapesId = 1, forcesId = 2, modalStiffnessId = 3 }; /* in the registry */
enum { legSection, braceSection, mastSection };

typedef struct {
  double place[nodes][2]; /* across and up, in m */
  int unknown[nodes][3];  /* displacements across and up, rotation; from 1, 0 for what a foot holds */
  int unknowns;
  int ends[beams][2];
  int section[beams];
  int beams;
} Tower;

typedef struct {
  double force[3 * nodes]; /* by unknown */
  double sum, moment;      /* of all forces, about the ground */
} Wind;

static int const no = 0, yes = 1, one = 1, six = 6;

static void Check(int stat) {
  if (stat == 0) return;
  char text[500];
  ORXSRVLASTERROR(text, &(int){sizeof text});
  fprintf(stderr, "solver_module: error %d: %s\n", stat, text);
  exit(1);
}

/* Shows the progress of long operations; context is a FILE. */
static int ShowProgress(void* context, char const* operation, int64_t const* done, int64_t const* total) {
  fprintf(context, "%s: %lld of %lld\n", operation, (long long)*done, (long long)*total);
  return 0;
}

/* Mesh */

static void PlaceNode(Tower* t, int node, double across, double up) {
  t->place[node][0] = across;
  t->place[node][1] = up;
}

static void PlaceNodes(Tower* t) {
  double const height = 3.0 * storeys;
  for (int i = 0; i <= storeys; ++i) {
    double const up = 3.0 * i;
    double const half = 8.0 - 6.5 * up / height;
    PlaceNode(t, 2 * i, -half, up);
    PlaceNode(t, 2 * i + 1, half, up);
  }
  for (int i = 0; i < mastNodes; ++i)
    PlaceNode(t, topNode + i, 0.0, height + 2.0 * (i + 1));
}

static void AddBeam(Tower* t, int from, int to, int section) {
  t->ends[t->beams][0] = from;
  t->ends[t->beams][1] = to;
  t->section[t->beams++] = section;
}

static void ConnectNodes(Tower* t) {
  t->beams = 0;
  for (int i = 1; i <= storeys; ++i) {
    int const left = 2 * i, right = left + 1;
    int const isOdd = i % 2;
    AddBeam(t, left - 2, left, legSection);
    AddBeam(t, right - 2, right, legSection);
    AddBeam(t, left, right, braceSection);
    AddBeam(t, isOdd ? left - 2 : right - 2, isOdd ? right : left, braceSection);
  }
  AddBeam(t, topNode - 2, topNode, legSection);
  AddBeam(t, topNode - 1, topNode, legSection);
  for (int i = 1; i < mastNodes; ++i)
    AddBeam(t, topNode + i - 1, topNode + i, mastSection);
}

static void NumberUnknowns(Tower* t) {
  t->unknowns = 0;
  for (int node = 0; node < nodes; ++node)
    for (int i = 0; i < 3; ++i)
      t->unknown[node][i] = node < feet && i < 2 ? 0 : ++t->unknowns;
}

/* Elements */

/*
 * An element matrix in the directions of the tower. Along the beam, whose direction is (c, s), it is
 *
 *     a0 a1                            b0  b1  b2  b3
 *     a1 a0    and across the beam     b1  b4 -b3  b5
 *                                      b2 -b3  b0 -b1
 *                                      b3  b5 -b1  b4
 */
static void RotateElement(double c, double s, double const a[2], double const b[6], double rotated[6][6]) {
  double const nxx = a[0] * c * c + b[0] * s * s, nxz = (a[0] - b[0]) * c * s;
  double const nzz = a[0] * s * s + b[0] * c * c, nx = -s * b[1], nz = c * b[1];
  double const fxx = a[1] * c * c + b[2] * s * s, fxz = (a[1] - b[2]) * c * s;
  double const fzz = a[1] * s * s + b[2] * c * c, fx = -s * b[3], fz = c * b[3];
  double const rows[6][6] = {
      {nxx, nxz, nx, fxx, fxz, fx},   {nxz, nzz, nz, fxz, fzz, fz},   {nx, nz, b[4], -fx, -fz, b[5]},
      {fxx, fxz, -fx, nxx, nxz, -nx}, {fxz, fzz, -fz, nxz, nzz, -nz}, {fx, fz, b[5], -nx, -nz, b[4]},
  };
  for (int i = 0; i < 6; ++i)
    for (int j = 0; j < 6; ++j)
      rotated[i][j] = rows[i][j];
}

/* Stiffness and mass of a beam, Bernoulli's, in N, m and kg. They are symmetric: rows are columns. */
static void MakeElement(Tower const* t, int beam, double stiffness[6][6], double mass[6][6]) {
  double const young = 2.1e11, density = 7850.0;
  double const areas[] = {3e-2, 6e-3, 1.2e-2}, inertias[] = {8.7e-4, 3e-5, 1e-4};
  double const *from = t->place[t->ends[beam][0]], *to = t->place[t->ends[beam][1]];
  double const across = to[0] - from[0], up = to[1] - from[1];
  double const l = sqrt(across * across + up * up), c = across / l, s = up / l;
  double const area = areas[t->section[beam]];
  double const ea = young * area / l, ei = young * inertias[t->section[beam]] / (l * l * l);
  RotateElement(
      c, s, (double[]){ea, -ea},
      (double[]){12.0 * ei, 6.0 * ei * l, -12.0 * ei, 6.0 * ei * l, 4.0 * ei * l * l, 2.0 * ei * l * l},
      stiffness);
  double const w = density * area * l / 420.0;
  RotateElement(
      c, s, (double[]){140.0 * w, 70.0 * w},
      (double[]){156.0 * w, 22.0 * w * l, 54.0 * w, -13.0 * w * l, 4.0 * w * l * l, -3.0 * w * l * l}, mass);
}

static void FindUnknowns(Tower const* t, int beam, int unknowns[6]) {
  for (int i = 0; i < 6; ++i)
    unknowns[i] = t->unknown[t->ends[beam][i / 3]][i % 3];
}

/* New matrices. The library leaves out the rows and columns of unknowns that are 0. */
static void Assemble(Tower const* t, orx_sparse_matrix* stiffness, orx_sparse_matrix* mass) {
  int stat;
  ORX_SPARSE_CREATE(&t->unknowns, &t->unknowns, stiffness, &stat), Check(stat);
  ORX_SPARSE_CREATE(&t->unknowns, &t->unknowns, mass, &stat), Check(stat);
  for (int beam = 0; beam < t->beams; ++beam) {
    double k[6][6], m[6][6];
    int unknowns[6];
    MakeElement(t, beam, k, m);
    FindUnknowns(t, beam, unknowns);
    ORX_SPARSE_ADD_ELEMENT(stiffness, &six, unknowns, &k[0][0], &stat), Check(stat);
    ORX_SPARSE_ADD_ELEMENT(mass, &six, unknowns, &m[0][0], &stat), Check(stat);
  }
  ORX_SPARSE_END(stiffness, &stat), Check(stat);
  ORX_SPARSE_END(mass, &stat), Check(stat);
}

/* Displacements under wind on the left leg and on the mast */

static Wind MakeWind(Tower const* t) {
  Wind wind = {.sum = 0.0};
  for (int node = feet; node < nodes; ++node) {
    int const isOnRightLeg = node < topNode && node % 2 == 1;
    if (isOnRightLeg) continue;
    double const force = node < topNode ? 6e3 : 1.5e3;
    wind.force[t->unknown[node][0] - 1] = force;
    wind.sum += force;
    wind.moment += force * t->place[node][1];
  }
  return wind;
}

static void Solve(orx_sparse_matrix stiffness, int unknowns, double const loads[], double displacements[]) {
  orx_factor factor;
  double backwardError;
  int stat;
  ORX_FACTOR_CREATE(&factor, &stat), Check(stat);
  ORX_FACTOR_FACTORIZE(&factor, &stiffness, &stat), Check(stat);
  ORX_FACTOR_SOLVE_REFINED(&factor, &one, loads, displacements, &backwardError, &stat), Check(stat);
  ORX_DELETE(&factor, &stat), Check(stat);
  int const largest = BLAC_IDAMAX(&unknowns, displacements, &one);
  printf("largest displacement%23.15E m, unknown %d\n", displacements[largest - 1], largest);
  printf("backward error%8.1E\n", backwardError);
}

/* Adds the forces of a beam on the feet where it ends. */
static void AddReactions(Tower const* t, int beam, double const displacements[], double reactions[feet][2]) {
  double stiffness[6][6], mass[6][6];
  int unknowns[6];
  MakeElement(t, beam, stiffness, mass);
  FindUnknowns(t, beam, unknowns);
  for (int end = 0; end < 2; ++end) {
    int const node = t->ends[beam][end];
    for (int i = 0; node < feet && i < 2; ++i)
      for (int j = 0; j < 6; ++j)
        if (unknowns[j] != 0)
          reactions[node][i] += stiffness[3 * end + i][j] * displacements[unknowns[j] - 1];
  }
}

static void PrintReactions(Tower const* t, Wind const* wind, double const displacements[]) {
  double r[feet][2] = {{0}};
  for (int beam = 0; beam < t->beams; ++beam)
    AddReactions(t, beam, displacements, r);
  for (int foot = 0; foot < feet; ++foot)
    printf("reaction %d%24.15E%24.15E N\n", foot + 1, r[foot][0], r[foot][1]);
  double const across = fabs(r[0][0] + r[1][0] + wind->sum) / wind->sum;
  double const moment =
      fabs(t->place[0][0] * r[0][1] + t->place[1][0] * r[1][1] - wind->moment) / wind->moment;
  printf("equilibrium to%8.1E\n", fmax(across, moment));
}

/* Modes */

static orx_block_matrix Register(orx_registry registry, int id, int rows, int columns) {
  orx_block_matrix matrix;
  int stat;
  ORX_REGISTRY_ADD(&registry, &id, &rows, &columns, &(int){64}, &columns, NULL, NULL, &stat), Check(stat);
  ORX_REGISTRY_MATRIX(&registry, &id, &matrix, &stat), Check(stat);
  return matrix;
}

/* Prints how far shapes^T * K * shapes is from a diagonal of eigenvalues. */
static void CheckModes(orx_sparse_matrix stiffness, orx_block_matrix shapes, double const eigenvalues[],
                       orx_registry registry) {
  int rows, columns, stat;
  ORX_BLOCK_SHAPE(&shapes, &rows, &columns, &stat), Check(stat);
  orx_block_matrix const forces = Register(registry, forcesId, rows, columns);
  orx_block_matrix const modalStiffness = Register(registry, modalStiffnessId, columns, columns);
  double a[modeCount][modeCount];
  ORX_SPARSE_MULTIPLY(&stiffness, &no, &shapes, &forces, &stat), Check(stat);
  ORX_BLOCK_MULTIPLY(&shapes, &yes, &forces, &modalStiffness, &stat), Check(stat);
  ORX_BLOCK_GET(&modalStiffness, &one, &columns, &one, &columns, &a[0][0], &stat), Check(stat);
  ORX_REGISTRY_REMOVE(&registry, &(int){forcesId}, &stat), Check(stat);

  double coupling = 0.0, off = 0.0;
  for (int j = 0; j < modeCount; ++j) {
    off = fmax(off, fabs(a[j][j] / eigenvalues[j] - 1.0));
    for (int i = 0; i < modeCount; ++i)
      if (i != j) coupling = fmax(coupling, fabs(a[j][i]) / sqrt(a[i][i] * a[j][j]));
  }
  printf("modal stiffness: coupling%8.1E, diagonal off by%8.1E\n", coupling, off);
}

/* Finds the lowest modes, and registers their shapes. */
static void FindModes(orx_sparse_matrix stiffness, orx_sparse_matrix mass, int unknowns,
                      orx_registry registry) {
  orx_modes modes;
  int count, isCertified, stat;
  ORX_MODES_CREATE(&stiffness, &mass, &modes, &stat), Check(stat);
  ORX_MODES_FIND_LOWEST(&modes, &(int){modeCount}, &stat), Check(stat);
  ORX_MODES_COUNT(&modes, &count, &isCertified, &stat), Check(stat);
  printf("%d modes, certified %d\n", count, isCertified);
  double eigenvalues[modeCount];
  for (int i = 1; i <= modeCount; ++i) {
    double frequency, error, residual;
    int isRigid;
    ORX_MODES_GET(&modes, &i, &eigenvalues[i - 1], &frequency, &error, &residual, &isRigid, &stat),
        Check(stat);
    printf("mode %d%23.15E Hz\n", i, frequency);
  }
  orx_block_matrix const shapes = Register(registry, shapesId, unknowns, modeCount);
  ORX_MODES_SHAPES(&modes, &shapes, &stat), Check(stat);
  ORX_DELETE(&modes, &stat), Check(stat);
  CheckModes(stiffness, shapes, eigenvalues, registry);
}

/* Results */

static char const path[] = "tower.sim";

/* Writes displacements and mode shapes, in one transaction. */
static void WriteResults(orx_registry registry, int unknowns, double const displacements[]) {
  orx_block_matrix shapes, matrix;
  orx_database database;
  int const columns = modeCount;
  int stat;
  ORX_REGISTRY_MATRIX(&registry, &(int){shapesId}, &shapes, &stat), Check(stat);
  ORX_DATABASE_CREATE(path, &yes, &database, &stat), Check(stat);
  ORX_DATABASE_BEGIN(&database, &stat), Check(stat);
  ORX_DATABASE_ADD(&database, "displacements", &unknowns, &one, &unknowns, &one, NULL, NULL, &matrix, &stat);
  Check(stat);
  ORX_BLOCK_SET(&matrix, &one, &unknowns, &one, &one, displacements, &stat), Check(stat);
  ORX_DATABASE_ADD(&database, "mode shapes", &unknowns, &columns, &unknowns, &columns, NULL, NULL, &matrix,
                   &stat);
  Check(stat);
  ORX_BLOCK_COPY(&shapes, &matrix, &stat), Check(stat);
  ORX_DATABASE_COMMIT(&database, &stat), Check(stat);
  ORX_DATABASE_CLOSE(&database, &stat), Check(stat);
}

static void ReadResult(int row, int column) {
  orx_database database;
  orx_block_matrix shapes;
  double value;
  int stat;
  ORX_DATABASE_OPEN(path, &yes, &database, &stat), Check(stat);
  ORX_DATABASE_MATRIX(&database, "mode shapes", &shapes, &stat), Check(stat);
  ORX_BLOCK_GET(&shapes, &row, &row, &column, &column, &value, &stat), Check(stat);
  ORX_DATABASE_CLOSE(&database, &stat), Check(stat);
  printf("%s: last component of mode %d%23.15E\n", path, column, value);
}

static void Analyse(Tower const* t) {
  orx_sparse_matrix stiffness, mass;
  orx_registry registry;
  double displacements[3 * nodes];
  int stat;
  Assemble(t, &stiffness, &mass);
  Wind const wind = MakeWind(t);
  Solve(stiffness, t->unknowns, wind.force, displacements);
  PrintReactions(t, &wind, displacements);
  ORX_REGISTRY_CREATE(&registry, &stat), Check(stat);
  FindModes(stiffness, mass, t->unknowns, registry);
  WriteResults(registry, t->unknowns, displacements);
  ReadResult(t->unknowns, 2);
}

int main(void) {
  static Tower tower;
  double seconds;
  int stat;
  ORX_START(&stat), Check(stat);
  ORX_START_TIMER(&stat), Check(stat);
  ORX_SET_PROGRESS(ShowProgress, stderr, &stat), Check(stat);
  PlaceNodes(&tower);
  ConnectNodes(&tower);
  NumberUnknowns(&tower);
  printf("%d nodes, %d beams, %d unknowns\n", nodes, tower.beams, tower.unknowns);
  Analyse(&tower);
  ORXSRVGETWALLTIME(&seconds);
  fprintf(stderr, "%6.2f seconds\n", seconds);
  ORX_STOP(&stat), Check(stat); /* deletes all objects that are left */
}
