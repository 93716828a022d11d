#include "bench/Claims.h"
#include "bench/Contenders.h"
#include "bench/RowsOfFolder.h"
#include "bench/SparseProblem.h"

#include <Eigen/SparseCore>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

// Operations that move entries, beside other libraries'. New matrices are destroyed outside of the time.
//
//     transpose    A^T
//     permute      P * A * P^T, all rows scrambled
//     difference   A - A^T
//     symmetry     whether A is its transpose

namespace bench {
namespace {

using SparsePtr = std::unique_ptr<ORXSrvSparseMatrix>;
using EigenMatrix = Eigen::SparseMatrix<double, Eigen::RowMajor>;

struct Task {
  char const* name;
  char const* peer; ///< whose time the goal is a share of; "fastest peer" stands for all
  double goal;
  double goalForRandom;
};
constexpr char fastest[] = "fastest peer";
constexpr Task tasks[] = {{"transpose", "CHOLMOD", 0.95, 0.70},
                          {"permute", fastest, 0.60, 0.60},
                          {"difference", fastest, 0.50, 0.50},
                          {"symmetry", fastest, 0.80, 0.80}};

double ChecksumOf(ORXSrvSparseMatrix const& matrix) {
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix.GetEntries(count));
  double sum = 0.0;
  for (int k = 0; k < count; ++k)
    sum += entries[k].value * ((entries[k].row % 7 + 1) * (entries[k].column % 5 + 1));
  return sum;
}

double ChecksumOf(EigenMatrix const& matrix) {
  return ChecksumOfRows(static_cast<int>(matrix.rows()), matrix.outerIndexPtr(), matrix.innerIndexPtr(),
                        matrix.valuePtr());
}

/// Times a task that returns a new matrix by a pointer.
template<class Make>
Timing TimeNew(Make const& make) {
  using Matrix = std::remove_pointer_t<decltype(make())>;
  double const checksum = ChecksumOf(*std::unique_ptr<Matrix>(make()));
  return {MedianSecondsOfNew(make, [](Matrix* matrix) { delete matrix; }), checksum};
}

Timings TimeOurs(ORXSrvSparseMatrix const& a, std::vector<int> const& perm) {
  Timings timings;
  timings["transpose"] = TimeNew([&] { return a.Transpose(); });
  timings["permute"] = TimeNew([&] { return a.Permute(perm.data()); });
  SparsePtr const b(a.Transpose());
  timings["difference"] = TimeNew([&] {
    auto difference = std::make_unique<ORXSrvSparseMatrix>(0, 0);
    difference->Subtract(a, *b);
    return difference.release();
  });
  // The answer is kept in the matrix: each run has one that has not been asked.
  std::vector<double> seconds;
  bool isSymmetric = false;
  for (int run = 0; run < 4; ++run) {
    SparsePtr const fresh(b->Transpose());
    double const start = Now();
    isSymmetric = fresh->IsSymmetric();
    seconds.push_back(Now() - start);
  }
  timings["symmetry"] = {Median(seconds), isSymmetric ? 1.0 : 0.0};
  return timings;
}

Timings TimeEigen(Problem const& p, std::vector<int> const& perm) {
  EigenMatrix const a = Eigen::Map<EigenMatrix const>(p.rows, p.rows, static_cast<Eigen::Index>(p.a.Size()),
                                                      p.ia.Data(), p.ja.Data(), p.a.Data());
  Eigen::PermutationMatrix<Eigen::Dynamic, Eigen::Dynamic, int> inverse(p.rows);
  for (int k = 0; k < p.rows; ++k)
    inverse.indices()[perm[static_cast<std::size_t>(k)]] = k;
  Timings timings;
  timings["transpose"] = TimeNew([&] { return new EigenMatrix(a.transpose()); });
  timings["permute"] = TimeNew([&] {
    auto permuted = std::make_unique<EigenMatrix>();
    *permuted = a.twistedBy(inverse);
    return permuted.release();
  });
  EigenMatrix const b = a.transpose();
  timings["difference"] = TimeNew([&] { return new EigenMatrix(a - b); });
  return timings;
}

std::string Claim(ProblemKind const& kind, Task const& task, char const* peer) {
  return Format("sparse %s, %s: time / %s", task.name, kind.name, peer);
}

void ReportTask(Report& report, ProblemKind const& kind, Task const& task, Contender const& ours,
                std::vector<Contender> const& peers) {
  Goal const goal = AtMost(kind.name == random.name ? task.goalForRandom : task.goal);
  if (task.peer == fastest)
    return ReportAgainstPeers(report, Claim(kind, task, fastest), task.name, ours, peers, goal);
  ReportAgainstPeers(report, Claim(kind, task, fastest), task.name, ours, peers, {});
  std::vector<Contender> one;
  std::ranges::copy_if(peers, std::back_inserter(one),
                       [&](Contender const& peer) { return peer.name == task.peer; });
  ReportAgainstPeers(report, Claim(kind, task, task.peer), task.name, ours, one, goal);
}

void CompareOperations(Report& report, ProblemKind const& kind) {
  Problem const problem(kind);
  MatrixFiles const files(problem);
  std::vector<int> const perm = ScrambledRows(problem.rows);
  Contender ours{"ours", [&] { return TimeOurs(*problem.matrix, perm); }};
  std::vector<Contender> peers{{"Eigen", [&] { return TimeEigen(problem, perm); }}};
  auto const addProgram = [&](char const* name, std::string const& program,
                              std::vector<std::string> const& itsTasks) {
    if (program.empty()) return;
    peers.push_back({name, [&files, program, itsTasks] {
                       return TimeProgram(program + " operations " + files.Folder(), itsTasks);
                     }});
  };
  addProgram("PETSc", ORX_BENCH_PETSC, {"transpose", "permute", "symmetry"});
  addProgram("CHOLMOD", ORX_BENCH_CHOLMOD, {"transpose", "permute"});
  for (int round = 0; round < 3; ++round) {
    ours.TakeTurn();
    for (Contender& peer : peers)
      peer.TakeTurn();
  }
  for (Task const& task : tasks) // the test of a random matrix ends at once
    if (kind.name != random.name || task.name != std::string("symmetry"))
      ReportTask(report, kind, task, ours, peers);
}

} // namespace

void ClaimSparseOperations(Report& report) {
  for (ProblemKind const& kind : {elasticity, planeGrid, random})
    if (std::ranges::any_of(tasks, [&](Task const& task) {
          return report.Wants(Claim(kind, task, fastest)) || report.Wants(Claim(kind, task, task.peer));
        }))
      report.Try(Format("sparse operations, %s", kind.name), [&] { CompareOperations(report, kind); });
}

} // namespace bench
