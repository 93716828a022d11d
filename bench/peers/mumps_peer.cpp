// mumps_peer FOLDER
//
// Times the analysis and factorization of the symmetric matrix in FOLDER by MUMPS called directly, the engine
// of our factorization, out of the same archives. The caller has compressed rows, as ours has, and knows what
// we find out: that the matrix is symmetric, that a node has three unknowns, by which SCOTCH orders nodes,
// and that no pivot is zero. Prints "factorization SECONDS" and "peak_growth BYTES" of memory, both from the
// rows on, "factor ENTRIES" and "checksum" of a solution. A program of its own: ours links MUMPS with hidden
// symbols.

#include "bench/Process.h"
#include "bench/RowsOfFolder.h"

#include <dmumps_c.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <numeric>
#include <vector>

extern "C" void SCOTCH_randomSeed(int);

namespace {

/// One-based.
struct Triplets {
  int order;
  std::vector<int> rows, columns;
  std::vector<double> values;
};

Triplets LowerTriangle(bench::RowsOfFolder const& rows) {
  Triplets lower{rows.rows, {}, {}, {}};
  auto const atMost = (rows.a.Size() + static_cast<std::size_t>(rows.rows)) / 2;
  lower.rows.reserve(atMost);
  lower.columns.reserve(atMost);
  lower.values.reserve(atMost);
  for (int i = 0; i < rows.rows; ++i)
    for (int k = rows.ia.Data()[i]; k < rows.ia.Data()[i + 1] && rows.ja.Data()[k] <= i; ++k) {
      lower.rows.push_back(i + 1);
      lower.columns.push_back(rows.ja.Data()[k] + 1);
      lower.values.push_back(rows.a.Data()[k]);
    }
  return lower;
}

void Run(DMUMPS_STRUC_C& id, int job) {
  id.job = job;
  dmumps_c(&id);
  if (id.infog[0] >= 0) return;
  std::fprintf(stderr, "MUMPS: error %d, %d\n", id.infog[0], id.infog[1]);
  std::exit(1);
}

// The elements of the control array have the numbers of MUMPS's users' guide.
void Control(DMUMPS_STRUC_C& id, int number, int value) { id.icntl[number - 1] = value; }

void Begin(DMUMPS_STRUC_C& id) {
  constexpr int begin = -1, world = -987654, unknownsOfNode = 3;
  id.par = 1;
  id.sym = 2;
  id.comm_fortran = world;
  Run(id, begin);
  for (int const messages : {1, 2, 3, 4})
    Control(id, messages, 0);
  Control(id, 7, 3); // SCOTCH
  Control(id, 6, 0);
  Control(id, 12, 1);
  Control(id, 15, -unknownsOfNode);
}

void Factorize(DMUMPS_STRUC_C& id, Triplets& a) {
  constexpr int analyseAndFactorize = 4;
  id.n = a.order;
  id.nnz = static_cast<MUMPS_INT8>(a.values.size());
  id.irn = a.rows.data();
  id.jcn = a.columns.data();
  id.a = a.values.data();
  SCOTCH_randomSeed(1);
  Run(id, analyseAndFactorize);
}

double SumOfSolution(DMUMPS_STRUC_C& id) {
  constexpr int solve = 3;
  std::vector<double> x(static_cast<std::size_t>(id.n), 1.0);
  id.rhs = x.data();
  id.nrhs = 1;
  id.lrhs = id.n;
  Run(id, solve);
  return std::accumulate(x.begin(), x.end(), 0.0);
}

void Measure(char const* folder) {
  setenv("SCOTCH_PTHREAD_NUMBER", "1", 1); // as ours, which is to order alike in every run
  bench::RowsOfFolder const rows(folder);
  auto const before = bench::ResidentBytes();
  double const start = bench::Now();
  Triplets triplets = LowerTriangle(rows);
  DMUMPS_STRUC_C id{};
  Begin(id);
  Factorize(id, triplets);
  double const seconds = bench::Now() - start;
  auto const growth = bench::PeakBytes() - before;
  int const entries = id.infog[28]; // INFOG(29), in millions with a minus sign
  std::printf("factorization %.9f\npeak_growth %lld\nfactor %.0f\nchecksum %.17g\n", seconds,
              static_cast<long long>(growth), entries < 0 ? -1e6 * entries : entries, SumOfSolution(id));
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  try {
    Measure(argv[1]);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "mumps_peer: %s\n", e.what());
    return 1;
  }
}
