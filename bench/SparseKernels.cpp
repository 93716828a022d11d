#include "bench/BlockOfVectors.h"
#include "bench/Claims.h"
#include "bench/Contestants.h"
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
// read a and ja once and to copy x to y, which no product can do without. In each round every contestant has
// its turn with all products; what is reported are medians over the rounds. Our vectors, and those of PETSc
// and Eigen, are stored one after the other; SciPy, which would copy these, has its own order.

namespace bench {
namespace {

constexpr std::array vectorCounts = {1, 7, 8, 16};

// ---- contestants

std::string Key(bool transposed, int count) {
  return Format("%s_%d", transposed ? "transposed" : "product", count);
}

using Directions = std::vector<bool>; ///< transposed or not
Directions const both{false, true};
Directions const notTransposed{false};

/// Times product(transposed, x, y, count) for all counts of vectors.
template<class Product>
Timings TimeProducts(Problem const& problem, Product const& product, Directions const& directions = both) {
  Timings timings;
  for (int const count : vectorCounts) {
    BlockOfVectors const x = BlockOfVectors::Factors(problem.rows, count);
    BlockOfVectors y(problem.rows, count);
    for (bool const transposed : directions) {
      double const seconds = MedianSeconds([&] { product(transposed, x.Data(), y.Data(), count); });
      timings[Key(transposed, count)] = {seconds, y.Checksum()};
    }
  }
  return timings;
}

/// The matrix's own product where the pattern is bad, which may take memory to pack x; else the kernels.
Timings TimeOurs(Problem const& p, bool withKernels) {
  return TimeProducts(p, [&](bool transposed, double const* x, double* y, int count) {
    if (!withKernels) return p.matrix->Multiply(x, count, y, transposed);
    auto* const kernel = transposed ? BLAC_SPARSE_UMTV : BLAC_SPARSE_UMV;
    kernel(p.a.Data(), x, p.ia.Data(), p.ja.Data(), y, &p.rows, &p.rows, &count);
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
  for (int const count : vectorCounts) {
    command += Format(" %d", count);
    for (bool const transposed : directions)
      tasks.push_back(Key(transposed, count));
  }
  return TimeProgram(command, tasks);
}

std::vector<Contestant> Peers(Problem const& problem, MatrixFiles const& files) {
  std::vector<Contestant> peers{{"Eigen", [&] { return TimeEigen(problem); }}};
  if (*ORX_BENCH_PETSC_PRODUCTS != '\0')
    peers.push_back({"PETSc", [&] { return TimeProducts(ORX_BENCH_PETSC_PRODUCTS, files); }});
  if (*ORX_BENCH_CHOLMOD_PRODUCTS != '\0')
    peers.push_back({"CHOLMOD", [&] { return TimeProducts(ORX_BENCH_CHOLMOD_PRODUCTS, files); }});
  if (std::string const python = PythonWithSciPy(); !python.empty())
    peers.push_back({"SciPy", [&files, python] { return TimeProducts(KernelPeersCommand(python), files); }});
  return peers;
}

// ---- claims

bool HasGoodPattern(ProblemKind const& kind) { return kind.name != random.name; }

std::string Claim(ProblemKind const& kind, bool transposed, int count) {
  return Format("sparse %s, y = A%s*x, %s, %d vector%s: time", HasGoodPattern(kind) ? "kernels" : "Multiply",
                transposed ? "'" : "", kind.name, count, count == 1 ? "" : "s");
}

Goal GoalAgainstRoofline(ProblemKind const& kind, int count) {
  if (kind.name != elasticity.name) return {};
  return AtMost(count == 1 ? 1.15 : 1.35);
}

Goal GoalAgainstPeers(ProblemKind const& kind, bool transposed, int count) {
  if (!HasGoodPattern(kind)) return count == 1 ? Goal{} : AtMost(0.55); // one vector cannot be packed
  if (count == 1) return AtMost(0.80);
  if (kind.name == planeGrid.name) return AtMost(0.65);
  return AtMost(transposed ? 0.48 : 0.45);
}

void ReportProduct(Report& report, ProblemKind const& kind, bool transposed, int count,
                   Contestant const& ours, Contestant const& roofline, std::vector<Contestant> const& peers) {
  std::string const key = Key(transposed, count);
  std::string const claim = Claim(kind, transposed, count);
  report.Line(claim + " / roofline",
              Format("%.1f : %.1f ms", ours.MedianSecondsOf(key) * 1e3, roofline.MedianSecondsOf(key) * 1e3),
              Ratio(ours, roofline, key), "", GoalAgainstRoofline(kind, count));
  ReportAgainstPeers(report, claim + " / fastest peer", key, ours, peers,
                     GoalAgainstPeers(kind, transposed, count));
}

bool IsWanted(Report const& report, ProblemKind const& kind) {
  for (int const count : vectorCounts)
    for (bool const transposed : {false, true}) {
      std::string const claim = Claim(kind, transposed, count);
      if (report.Wants(claim + " / roofline") || report.Wants(claim + " / fastest peer")) return true;
    }
  return false;
}

void CompareProducts(Report& report, ProblemKind const& kind) {
  Problem const problem(kind);
  MatrixFiles const files(problem);
  Contestant ours{"ours", [&] { return TimeOurs(problem, HasGoodPattern(kind)); }};
  Contestant roofline{"roofline", [&] { return TimeRoofline(problem); }};
  std::vector<Contestant> peers = Peers(problem, files);
  for (int round = 0; round < kind.rounds; ++round) {
    for (Contestant* const contestant : {&ours, &roofline})
      contestant->TakeTurn();
    for (Contestant& peer : peers)
      peer.TakeTurn();
  }
  for (int const count : vectorCounts)
    for (bool const transposed : {false, true})
      ReportProduct(report, kind, transposed, count, ours, roofline, peers);
}

// ---- the symmetric form

/// Those that can with one triangle, and the best of those with both: the task is the same.
std::vector<Contestant> SymmetricPeers(Problem const& problem, MatrixFiles const& files) {
  std::vector<Contestant> peers{{"Eigen", [&] { return TimeEigenTriangle(problem); }}};
  if (*ORX_BENCH_PETSC_PRODUCTS != '\0') {
    peers.push_back({"PETSc", [&] {
                       return TimeProducts(std::string(ORX_BENCH_PETSC_PRODUCTS) + " symmetric", files,
                                           notTransposed);
                     }});
    peers.push_back(
        {"PETSc with both triangles", [&] { return TimeProducts(ORX_BENCH_PETSC_PRODUCTS, files); }});
  }
  if (*ORX_BENCH_CHOLMOD_PRODUCTS != '\0')
    peers.push_back({"CHOLMOD", [&] {
                       return TimeProducts(std::string(ORX_BENCH_CHOLMOD_PRODUCTS) + " symmetric", files,
                                           notTransposed);
                     }});
  return peers;
}

std::string SymmetricClaim(ProblemKind const& kind, int count) {
  return Format("symmetric form, y = A*x, %s, %d vector%s: time / fastest peer", kind.name, count,
                count == 1 ? "" : "s");
}

void CompareSymmetricProducts(Report& report, ProblemKind const& kind) {
  Problem const problem(kind);
  MatrixFiles const files(problem);
  Contestant ours{"ours", [&] { return TimeProducts(ORX_BENCH_SYMMETRIC_PRODUCTS, files, notTransposed); }};
  std::vector<Contestant> peers = SymmetricPeers(problem, files);
  for (int round = 0; round < kind.rounds; ++round) {
    ours.TakeTurn();
    for (Contestant& peer : peers)
      peer.TakeTurn();
  }
  for (int const count : vectorCounts) {
    double const fewer = kind.name == elasticity.name ? 0.45 : 0.60;
    ReportAgainstPeers(report, SymmetricClaim(kind, count), Key(false, count), ours, peers,
                       AtMost(count == 1 ? 0.80 : fewer));
  }
}

bool IsSymmetricFormWanted(Report const& report, ProblemKind const& kind) {
  return std::ranges::any_of(vectorCounts,
                             [&](int count) { return report.Wants(SymmetricClaim(kind, count)); });
}

} // namespace

void ClaimSparseKernels(Report& report) {
  for (ProblemKind const& kind : {elasticity, planeGrid, random})
    if (IsWanted(report, kind))
      report.Try(Format("sparse kernels, %s", kind.name), [&] { CompareProducts(report, kind); });
  for (ProblemKind const& kind : {elasticity, planeGrid})
    if (IsSymmetricFormWanted(report, kind))
      report.Try(Format("symmetric form, %s", kind.name), [&] { CompareSymmetricProducts(report, kind); });
}

} // namespace bench
