#include "bench/BlockOfVectors.h"
#include "bench/Claims.h"
#include "bench/Contenders.h"
#include "bench/Python.h"
#include "bench/SparseProblem.h"
#include "blac/BLAC.h"

#include <Eigen/SparseCore>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

// The sparse kernels beside other libraries' products of compressed rows and beside the roofline: the time to
// read a and ja once and to copy x to y, which no product can do without, and beside the plain loop that
// everybody writes first, one vector after the other: nothing may be slower than that. In each round every
// contender has its turn with all products; what is reported are medians over the rounds. Our vectors, and
// those of PETSc and Eigen, are stored one after the other; SciPy, which would copy these, has its own order.

namespace bench {
namespace {

// ---- contenders

std::string Key(bool transposed, int count) {
  return Format("%s_%d", transposed ? "transposed" : "product", count);
}

using Directions = std::vector<bool>; ///< transposed or not
Directions const both{false, true};
Directions const notTransposed{false};

/// Times product(transposed, x, y, count) for all counts of vectors. All have the same vectors: how fast
/// those anywhere in memory are reached is a matter of luck with the pages.
template<class Product>
Timings TimeProducts(Problem const& problem, Product const& product, Directions const& directions = both) {
  Timings timings;
  for (int const count : problem.vectorCounts) {
    auto& [x, y] = problem.VectorsFor(count);
    for (bool const transposed : directions) {
      y.Clear();
      double const seconds = MedianSeconds([&] { product(transposed, x.Data(), y.Data(), count); });
      timings[Key(transposed, count)] = {seconds, y.Checksum()};
    }
  }
  return timings;
}

/// The product of the matrix class where the pattern is bad, which may interleave vectors; otherwise the
/// kernels.
Timings TimeOurs(Problem const& p, bool withKernels) {
  return TimeProducts(p, [&](bool transposed, double const* x, double* y, int count) {
    if (!withKernels) return p.matrix->Multiply(x, count, y, transposed);
    auto* const kernel = transposed ? BLAC_SPARSE_UMTV : BLAC_SPARSE_UMV;
    kernel(p.a.Data(), x, p.ia.Data(), p.ja.Data(), y, &p.rows, &p.rows, &count);
  });
}

void MultiplyPlainly(Problem const& p, double const* x, double* y) {
  int const *const ia = p.ia.Data(), *const ja = p.ja.Data();
  double const* const a = p.a.Data();
  for (int i = 0; i < p.rows; ++i) {
    double sum = 0.0;
    for (int k = ia[i]; k < ia[i + 1]; ++k)
      sum += a[k] * x[ja[k]];
    y[i] = sum;
  }
}
void MultiplyTransposedPlainly(Problem const& p, double const* x, double* y) {
  int const *const ia = p.ia.Data(), *const ja = p.ja.Data();
  double const* const a = p.a.Data();
  std::fill_n(y, p.rows, 0.0);
  for (int i = 0; i < p.rows; ++i)
    for (int k = ia[i]; k < ia[i + 1]; ++k)
      y[ja[k]] += x[i] * a[k];
}
Timings TimePlainLoop(Problem const& p) {
  return TimeProducts(p, [&](bool transposed, double const* x, double* y, int count) {
    auto* const multiply = transposed ? MultiplyTransposedPlainly : MultiplyPlainly;
    for (std::ptrdiff_t v = 0; v < count; ++v)
      multiply(p, x + v * p.rows, y + v * p.rows);
  });
}

Timings TimeRoofline(Problem const& p) {
  std::size_t const entries = p.a.Size() / 16 * 16;
  double volatile sink = 0.0;
  return TimeProducts(p, [&](bool, double const* x, double* y, int count) {
    std::array<double, 16> sums{};
    std::array<int, 16> columns{};
    for (std::size_t k = 0; k < entries; k += sums.size())
      for (std::size_t i = 0; i < sums.size(); ++i) {
        sums[i] += p.a.Data()[k + i];
        columns[i] ^= p.ja.Data()[k + i];
      }
    for (std::size_t i = 0; i < sums.size(); ++i)
      sink = sums[i] + columns[i];
    std::memcpy(y, x, sizeof(double) * static_cast<std::size_t>(p.rows) * static_cast<std::size_t>(count));
  });
}

Timings TimeEigen(Problem const& p) {
  using Sparse = Eigen::SparseMatrix<double, Eigen::RowMajor>;
  Eigen::Map<Sparse const> const matrix(p.rows, p.rows, static_cast<Eigen::Index>(p.a.Size()), p.ia.Data(),
                                        p.ja.Data(), p.a.Data());
  return TimeProducts(p, [&](bool transposed, double const* xValues, double* yValues, int count) {
    Eigen::Map<Eigen::MatrixXd const> const x(xValues, p.rows, count);
    Eigen::Map<Eigen::MatrixXd> y(yValues, p.rows, count);
    if (transposed)
      y.noalias() = matrix.transpose() * x;
    else
      y.noalias() = matrix * x;
  });
}

/// The same with the lower triangle alone; products that are not transposed.
Timings TimeEigenTriangle(Problem const& p) {
  using Sparse = Eigen::SparseMatrix<double, Eigen::RowMajor>;
  Sparse const lower = Eigen::Map<Sparse const>(p.rows, p.rows, static_cast<Eigen::Index>(p.a.Size()),
                                                p.ia.Data(), p.ja.Data(), p.a.Data())
                           .triangularView<Eigen::Lower>();
  return TimeProducts(
      p,
      [&](bool, double const* xValues, double* yValues, int count) {
        Eigen::Map<Eigen::MatrixXd const> const x(xValues, p.rows, count);
        Eigen::Map<Eigen::MatrixXd> y(yValues, p.rows, count);
        y.noalias() = lower.selfadjointView<Eigen::Lower>() * x;
      },
      notTransposed);
}

/// Times a program with the matrix in a folder; it prints what kernel_peers.py prints.
Timings TimeProducts(std::string command, MatrixFiles const& files, Directions const& directions = both) {
  command += " " + files.Folder();
  std::vector<std::string> tasks;
  for (int const count : files.VectorCounts()) {
    command += Format(" %d", count);
    for (bool const transposed : directions)
      tasks.push_back(Key(transposed, count));
  }
  return TimeProgram(command, tasks);
}

std::vector<Contender> Peers(Problem const& problem, MatrixFiles const& files) {
  std::vector<Contender> peers{{"Eigen", [&] { return TimeEigen(problem); }}};
  if (*ORX_BENCH_PETSC != '\0')
    peers.push_back({"PETSc", [&] { return TimeProducts(ORX_BENCH_PETSC " products", files); }});
  if (*ORX_BENCH_CHOLMOD != '\0')
    peers.push_back({"CHOLMOD", [&] { return TimeProducts(ORX_BENCH_CHOLMOD " products", files); }});
  if (std::string const python = PythonWithSciPy(); !python.empty())
    peers.push_back({"SciPy", [&files, python] { return TimeProducts(KernelPeersCommand(python), files); }});
  return peers;
}

// ---- claims

bool IsMesh(ProblemKind const& kind) {
  return std::ranges::any_of(meshes, [&](ProblemKind const& mesh) { return mesh.name == kind.name; });
}
bool HasGoodPattern(ProblemKind const& kind) { return kind.name != random.name && !IsMesh(kind); }

std::string ClaimOf(char const* ours, ProblemKind const& kind, bool transposed, int count) {
  return Format("sparse %s, y = A%s*x, %s, %d vector%s: time", ours, transposed ? "'" : "", kind.name, count,
                count == 1 ? "" : "s");
}
/// What is compared with the peers.
std::string Claim(ProblemKind const& kind, bool transposed, int count) {
  return ClaimOf(HasGoodPattern(kind) ? "kernels" : "Multiply", kind, transposed, count);
}

constexpr Goal againstPlainLoop = AtMost(1.03);

Goal GoalAgainstRoofline(ProblemKind const& kind, int count) {
  if (kind.name != elasticity.name) return {};
  return AtMost(count == 1 ? 1.15 : 1.35);
}

Goal GoalAgainstPeers(ProblemKind const& kind, bool transposed, int count) {
  if (IsMesh(kind)) return count == 1 ? AtMost(1.0) : count == 8 ? AtMost(0.5) : Goal{};
  if (!HasGoodPattern(kind)) return count == 1 ? Goal{} : AtMost(0.55); // one vector cannot be packed
  if (count == 1) return AtMost(0.80);
  if (kind.name == planeGrid.name) return AtMost(0.65);
  return AtMost(transposed ? 0.48 : 0.45);
}

void ReportProduct(Report& report, ProblemKind const& kind, bool transposed, int count, Contender const& ours,
                   Contender const& roofline, std::vector<Contender> const& peers) {
  std::string const key = Key(transposed, count);
  std::string const claim = Claim(kind, transposed, count);
  report.Line(claim + " / roofline",
              Format("%.1f : %.1f ms", ours.MedianSecondsOf(key) * 1e3, roofline.MedianSecondsOf(key) * 1e3),
              Ratio(ours, roofline, key), "", GoalAgainstRoofline(kind, count));
  ReportAgainstPeers(report, claim + " / fastest peer", key, ours, peers,
                     GoalAgainstPeers(kind, transposed, count));
}

void ReportAgainstPlainLoop(Report& report, std::string const& claim, std::string const& key,
                            Contender const& ours, Contender const& plain) {
  RequireAgreement(plain.rounds[0].at(key).checksum == ours.rounds[0].at(key).checksum, claim);
  report.Line(claim + " / plain loop",
              Format("%.1f : %.1f ms", ours.MedianSecondsOf(key) * 1e3, plain.MedianSecondsOf(key) * 1e3),
              Ratio(ours, plain, key), "", againstPlainLoop);
}

bool IsWanted(Report const& report, ProblemKind const& kind, std::vector<char const*> const& others) {
  for (int const count : kind.vectorCounts)
    for (bool const transposed : {false, true})
      for (char const* const ours : {"kernels", "Multiply"})
        for (char const* const other : others)
          if (report.Wants(ClaimOf(ours, kind, transposed, count) + other)) return true;
  return false;
}

void CompareProducts(Report& report, ProblemKind const& kind) {
  Problem const problem(kind);
  MatrixFiles const files(problem);
  Contender kernels{"kernels", [&] { return TimeOurs(problem, true); }};
  Contender multiply{"Multiply", [&] { return TimeOurs(problem, false); }};
  Contender roofline{"roofline", [&] { return TimeRoofline(problem); }};
  Contender plain{"plain loop", [&] { return TimePlainLoop(problem); }};
  std::vector<Contender> peers;
  if (IsWanted(report, kind, {" / fastest peer"})) peers = Peers(problem, files);
  for (int round = 0; round < kind.rounds; ++round) {
    for (Contender* const contender : {&kernels, &plain, &multiply, &roofline})
      contender->TakeTurn();
    for (Contender& peer : peers)
      peer.TakeTurn();
  }
  for (int const count : kind.vectorCounts)
    for (bool const transposed : {false, true}) {
      ReportProduct(report, kind, transposed, count, HasGoodPattern(kind) ? kernels : multiply, roofline,
                    peers);
      for (Contender const* const ours : {&kernels, &multiply})
        ReportAgainstPlainLoop(report, ClaimOf(ours->name.c_str(), kind, transposed, count),
                               Key(transposed, count), *ours, plain);
    }
}

// ---- the symmetric form

/// Those that can with one triangle, and the best of those with both: the task is the same.
std::vector<Contender> SymmetricPeers(Problem const& problem, MatrixFiles const& files) {
  std::vector<Contender> peers{{"Eigen", [&] { return TimeEigenTriangle(problem); }}};
  if (*ORX_BENCH_PETSC != '\0') {
    peers.push_back(
        {"PETSc", [&] { return TimeProducts(ORX_BENCH_PETSC " products symmetric", files, notTransposed); }});
    peers.push_back(
        {"PETSc with both triangles", [&] { return TimeProducts(ORX_BENCH_PETSC " products", files); }});
  }
  if (*ORX_BENCH_CHOLMOD != '\0')
    peers.push_back({"CHOLMOD", [&] {
                       return TimeProducts(ORX_BENCH_CHOLMOD " products symmetric", files, notTransposed);
                     }});
  return peers;
}

std::string PlainKey(int count) { return Format("plain_%d", count); }

/// Our products and those of the plain loop.
Timings TimeSymmetricProducts(MatrixFiles const& files) {
  std::string command = std::string(ORX_BENCH_SYMMETRIC_PRODUCTS) + " " + files.Folder();
  std::vector<std::string> tasks;
  for (int const count : files.VectorCounts()) {
    command += Format(" %d", count);
    tasks.push_back(Key(false, count));
    tasks.push_back(PlainKey(count));
  }
  return TimeProgram(command, tasks);
}
std::vector<Timings> PlainProductsOf(std::vector<Timings> rounds, MatrixFiles const& files) {
  for (Timings& round : rounds)
    for (int const count : files.VectorCounts())
      round[Key(false, count)] = round.at(PlainKey(count));
  return rounds;
}

std::string SymmetricClaim(ProblemKind const& kind, int count) {
  return Format("symmetric form, y = A*x, %s, %d vector%s: time", kind.name, count, count == 1 ? "" : "s");
}

Goal SymmetricGoal(ProblemKind const& kind, int count) {
  if (IsMesh(kind)) return GoalAgainstPeers(kind, false, count);
  if (count == 1) return AtMost(0.80);
  return AtMost(kind.name == elasticity.name ? 0.45 : 0.60);
}

bool IsSymmetricFormWanted(Report const& report, ProblemKind const& kind,
                           std::vector<char const*> const& others) {
  for (int const count : kind.vectorCounts)
    for (char const* const other : others)
      if (report.Wants(SymmetricClaim(kind, count) + other)) return true;
  return false;
}

void CompareSymmetricProducts(Report& report, ProblemKind const& kind) {
  Problem const problem(kind);
  MatrixFiles const files(problem);
  Contender ours{"ours", [&] { return TimeSymmetricProducts(files); }};
  std::vector<Contender> peers;
  if (IsSymmetricFormWanted(report, kind, {" / fastest peer"})) peers = SymmetricPeers(problem, files);
  for (int round = 0; round < kind.rounds; ++round) {
    ours.TakeTurn();
    for (Contender& peer : peers)
      peer.TakeTurn();
  }
  Contender const plain{"plain loop", {}, PlainProductsOf(ours.rounds, files)};
  for (int const count : kind.vectorCounts) {
    std::string const claim = SymmetricClaim(kind, count);
    ReportAgainstPeers(report, claim + " / fastest peer", Key(false, count), ours, peers,
                       SymmetricGoal(kind, count));
    ReportAgainstPlainLoop(report, claim, Key(false, count), ours, plain);
  }
}

} // namespace

void ClaimSparseKernels(Report& report) {
  std::vector<ProblemKind> symmetric{elasticity, planeGrid};
  symmetric.insert(symmetric.end(), meshes.begin(), meshes.end());
  std::vector<ProblemKind> all = symmetric;
  all.push_back(random);
  for (ProblemKind const& kind : all)
    if (IsWanted(report, kind, {" / roofline", " / fastest peer", " / plain loop"}))
      report.Try(Format("sparse kernels, %s", kind.name), [&] { CompareProducts(report, kind); });
  for (ProblemKind const& kind : symmetric)
    if (IsSymmetricFormWanted(report, kind, {" / fastest peer", " / plain loop"}))
      report.Try(Format("symmetric form, %s", kind.name), [&] { CompareSymmetricProducts(report, kind); });
}

} // namespace bench
