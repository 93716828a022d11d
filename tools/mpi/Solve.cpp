#include "tools/mpi/Solve.h"

#include "tools/mpi/OwnColumns.h"
#include "tools/mpi/RootsFiles.h"
#include "tools/mpi/SourceOnRanks.h"
#include "tools/mpi/StaticSolvers.h"

#include "tools/commands/SolutionFiles.h"
#include "tools/commands/SolveReport.h"
#include "tools/formats/Loads.h"
#include "tools/formats/ModelText.h"
#include "tools/numerics/FactorText.h"
#include "tools/terminal/Interruption.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>

namespace orx::mpi {
namespace {

using tool::Columns;
using tool::ExitCode;
using tool::Format;
using tool::HeldUnknown;
using tool::Nodes;
using tool::Note;
using tool::StaticSolution;
using tool::ToolError;
using Print = std::function<void(std::string const&)>;

void RequireUsableOptions(SolveOptions const& o) {
  tool::RequireUsableNames(o);
  if (!o.coordinatesPath.empty() && o.solver != "cg")
    throw ToolError(ExitCode::WrongUsage,
                    "--coordinates is for --solver cg: a factorization does not need nodes");
}

template<class T>
void BroadcastVector(std::vector<T>& values, Ranks const& ranks) {
  auto count = std::ssize(values);
  ranks.Broadcast(count);
  ranks.OnEach([&] { values.resize(static_cast<std::size_t>(count)); });
  MPI_Bcast(values.data(), static_cast<int>(values.size() * sizeof(T)), MPI_BYTE, 0, ranks.Communicator());
}

/// The same matrix with whole nodes on each rank. PETSc's equal shares may end within one.
Handle<Mat> WithWholeNodes(Handle<Mat> matrix, int unknownsOfNode, Ranks const& ranks) {
  PetscInt first = 0, end = 0, order = 0;
  Check(MatGetOwnershipRange(matrix.Get(), &first, &end));
  Check(MatGetSize(matrix.Get(), &order, nullptr));
  if (ranks.AreAll(first % unknownsOfNode == 0 && end % unknownsOfNode == 0)) return matrix;
  Range const nodes = ranks.OwnShare(order / unknownsOfNode);
  Handle<IS> rows;
  Check(ISCreateStride(ranks.Communicator(), nodes.count * unknownsOfNode, nodes.first * unknownsOfNode, 1,
                       rows.Receive()));
  Handle<Mat> moved;
  Check(MatCreateSubMatrix(matrix.Get(), rows.Get(), rows.Get(), MAT_INITIAL_MATRIX, moved.Receive()));
  return moved;
}

double Norm(double const* values, std::vector<bool> const& isLeftOut, Ranks const& ranks) {
  double largest = 0.0;
  for (std::size_t i = 0; i < isLeftOut.size(); ++i)
    if (!isLeftOut[i]) largest = std::max(largest, std::fabs(values[i]));
  largest = ranks.Largest(largest);
  if (largest == 0.0) return 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < isLeftOut.size(); ++i)
    if (!isLeftOut[i]) sum += values[i] / largest * (values[i] / largest);
  return largest * std::sqrt(ranks.Sum(sum));
}

/// One run of K u = f.
class StaticRun {
public:
  StaticRun(SolveOptions const& options, Ranks const& ranks) : m_options(options), m_ranks(ranks) {
    ranks.OnEach([&] { RequireUsableOptions(options); });
    ranks.OnRoot([&] { m_files = std::make_unique<tool::SolutionFiles>(options); });
    m_rootsFiles.emplace(ranks);
    m_source = std::make_unique<SourceOnRanks>("K", options.stiffnessPath, ranks);
    m_source->RequireAsStated();
    ReadModel();
    m_isSymmetric = Facts().IsSymmetric();
    if (m_options.solver == "cg" && !m_isSymmetric)
      ranks.OnEach([&] {
        throw ToolError(ExitCode::Failure,
                        Facts().FullName() +
                            ": the matrix is not symmetric, which --solver cg needs; --solver "
                            "direct solves it too");
      });
    m_stiffness = m_source->TakeSquare(Facts().Order());
    if (m_nodes) m_stiffness = WithWholeNodes(std::move(m_stiffness), m_nodes->unknownsOfNode, ranks);
  }

  void Perform(Print const& print) {
    HeldMatrix matrix(m_ranks, m_stiffness.Get());
    Range const own{matrix.FirstRow(), matrix.Rows().Count()};
    matrix.Hold(OwnHeld(own));
    OwnColumns loads(own.count, m_loadCount, m_ranks), displacements(own.count, m_loadCount, m_ranks);
    loads.TakeFromRoot(m_allLoads);
    m_allLoads = {};
    std::unique_ptr<StaticSolver> const solver = MakeSolver(matrix, print);
    Solve(matrix, own, loads, displacements, solver.get());
    Report(solver.get(), print);
    Write(loads, displacements, print);
  }

private:
  tool::SourceFacts const& Facts() const { return m_source->Facts(); }

  void ReadModel() {
    m_ranks.OnRoot([&] {
      m_allLoads = tool::ReadLoads(m_options.loadsPath, Facts());
      m_loadCount = m_allLoads.count;
      if (!m_options.heldPath.empty())
        m_held = tool::ReadHeldUnknowns(tool::InputFile(m_options.heldPath), Facts().Order());
    });
    m_ranks.Broadcast(m_loadCount);
    BroadcastVector(m_held, m_ranks);
    if (m_options.coordinatesPath.empty()) return;
    m_nodes.emplace();
    m_ranks.OnRoot(
        [&] { *m_nodes = tool::ReadNodes(tool::InputFile(m_options.coordinatesPath), Facts().Order()); });
    m_ranks.Broadcast(m_nodes->unknownsOfNode);
    BroadcastVector(m_nodes->points, m_ranks);
  }

  std::vector<int> OwnHeld(Range const& own) const {
    std::vector<int> unknowns;
    for (HeldUnknown const& held : m_held)
      if (own.Has(held.unknown)) unknowns.push_back(held.unknown);
    return unknowns;
  }

  bool AreAllHeld() const { return std::ssize(m_held) == Facts().Order(); }

  std::unique_ptr<StaticSolver> MakeSolver(HeldMatrix& matrix, Print const& print) {
    if (AreAllHeld()) return {};
    std::optional<tool::Progress> progress;
    if (m_ranks.IsRoot()) progress.emplace(Format("solving for %d unknowns", Facts().Order()));
    if (m_options.solver == "cg") return MakeIteration(matrix);
    // Each rank may have its part of half of the machine.
    std::int64_t const memory = m_options.memory > 0 ? m_options.memory / m_ranks.Count() : OwnMemory();
    auto direct = std::make_unique<DirectSolver>(m_ranks, matrix, m_isSymmetric,
                                                 DistributedPencil::Limits{memory, m_folder.Path()});
    MumpsFactor::Estimate const& e = direct->Foreseen();
    if (m_options.explains && m_ranks.IsRoot())
      print(
          tool::EstimateText("K", direct->Facts().order, {e.entries, e.bytes, e.bytesOnDisk, e.operations}));
    return direct;
  }

  std::int64_t OwnMemory() const {
    return static_cast<std::int64_t>(tool::AvailableMemory().value_or(std::uint64_t{1} << 40) / 2) /
           m_ranks.Count();
  }

  std::unique_ptr<StaticSolver> MakeIteration(HeldMatrix const& matrix) {
    std::vector<double> const largest = matrix.LargestInRows();
    auto const loose = std::ranges::find(largest, 0.0);
    m_ranks.OnEach([&] {
      if (loose != largest.end())
        tool::RefuseSingular({matrix.FirstRow() + static_cast<int>(loose - largest.begin())}, {});
    });
    if (!m_nodes) return std::make_unique<ConjugateGradients>(m_ranks, matrix, nullptr);
    Nodes own;
    own.unknownsOfNode = m_nodes->unknownsOfNode;
    auto const first = m_nodes->points.begin() + matrix.FirstRow() / own.unknownsOfNode;
    own.points.assign(first, first + matrix.Rows().Count() / own.unknownsOfNode);
    return std::make_unique<ConjugateGradients>(m_ranks, matrix, &own);
  }

  /// The loads become K u - f: the reactions at held unknowns, the residual at the others.
  void Solve(HeldMatrix const& matrix, Range const& own, OwnColumns& loads, OwnColumns& displacements,
             StaticSolver* solver) {
    LocalRows const stiffness(m_stiffness.Get());
    std::vector<double> forces(static_cast<std::size_t>(own.count)), moved(forces.size()),
        free(forces.size());
    for (int j = 0; j < m_loadCount; ++j) {
      double* const u = displacements.Column(j);
      double* const f = loads.Column(j);
      for (HeldUnknown const& held : m_held)
        if (own.Has(held.unknown)) u[held.unknown - own.first] = held.value;
      stiffness.Multiply(u, 1, forces.data());
      for (std::size_t i = 0; i < free.size(); ++i)
        free[i] = matrix.IsHeld()[i] ? 0.0 : f[i] - forces[i];
      double const size = Norm(free.data(), matrix.IsHeld(), m_ranks);
      if (solver != nullptr) {
        solver->Solve(free.data(), moved.data());
        for (std::size_t i = 0; i < free.size(); ++i)
          if (!matrix.IsHeld()[i]) u[i] = moved[i];
      }
      stiffness.Multiply(u, 1, forces.data());
      for (std::size_t i = 0; i < free.size(); ++i)
        f[i] = forces[i] - f[i];
      double const residual = Norm(f, matrix.IsHeld(), m_ranks);
      if (residual > 0.0) m_solution.residual = std::max(m_solution.residual, residual / size);
    }
  }

  void Report(StaticSolver const* solver, Print const& print) {
    if (!m_ranks.IsRoot()) return;
    print(m_source->NoteText() + tool::ProblemText(Facts(), {m_options.loadsPath, m_loadCount,
                                                             m_options.heldPath, std::ssize(m_held)}));
    if (auto const* iteration = dynamic_cast<ConjugateGradients const*>(solver))
      return print(Note(Format(
          "conjugate gradients with algebraic multigrid%s: %s, residual ||K u - f|| / ||f|| %.1e",
          m_nodes ? " that knows the rigid bodies" : "",
          tool::Counted(iteration->Iterations(), "iteration", "iterations").c_str(), m_solution.residual)));
    if (auto const* direct = dynamic_cast<DirectSolver const*>(solver)) {
      m_solution.facts = direct->Facts();
      m_solution.backwardError = direct->BackwardError();
    }
    m_solution.condition = std::numeric_limits<double>::quiet_NaN();
    print(tool::FactsText(m_solution));
  }

  void Write(OwnColumns const& differences, OwnColumns const& displacements, Print const& print) {
    Columns const all = differences.GatheredOnRoot();
    m_solution.displacements = displacements.GatheredOnRoot();
    m_ranks.OnRoot([&] {
      m_solution.reactions = Columns(static_cast<int>(m_held.size()), m_loadCount);
      for (int j = 0; j < m_loadCount; ++j)
        for (std::size_t k = 0; k < m_held.size(); ++k)
          m_solution.reactions.Column(j)[k] = all.Column(j)[m_held[k].unknown];
      m_files->Write(m_held, m_solution, Facts().labels, print);
    });
  }

  SolveOptions const& m_options;
  Ranks const& m_ranks;
  tool::WorkFolder const m_folder;
  std::unique_ptr<tool::SolutionFiles> m_files; ///< the root's
  std::optional<RootsFiles> m_rootsFiles;
  std::unique_ptr<SourceOnRanks> m_source;
  Columns m_allLoads; ///< the root's
  int m_loadCount = 0;
  std::vector<HeldUnknown> m_held;
  std::optional<Nodes> m_nodes;
  bool m_isSymmetric = true;
  Handle<Mat> m_stiffness;
  StaticSolution m_solution; ///< the root has all of it
};

} // namespace

void PrintSolution(SolveOptions const& options, Ranks const& ranks, Print const& print) {
  StaticRun(options, ranks).Perform(print);
}

} // namespace orx::mpi
