#include "tools/mpi/Modes.h"

#include "tools/mpi/ColumnsForRoot.h"
#include "tools/mpi/DistributedPencil.h"
#include "tools/mpi/KrylovSchur.h"
#include "tools/mpi/RootsFiles.h"
#include "tools/mpi/SourceOnRanks.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvProgress.h"
#include "solve/ORXSrvSolveError.h"
#include "solve/search/ModalAnalysis.h"
#include "tools/commands/ModesReport.h"
#include "tools/formats/ShapesFile.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/SearchProgress.h"
#include "tools/numerics/SparseModes.h"
#include "tools/terminal/Interruption.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ModalSolution;
using tool::ModeChoice;
using tool::Note;
using tool::ToolError;
using Print = std::function<void(std::string const&)>;

/// The values of all ranks behind one another, on the root.
std::vector<int> GatherOnRoot(Ranks const& ranks, std::vector<int> const& own) {
  std::vector<int> const counts = ranks.Gathered(static_cast<int>(own.size()));
  std::vector<int> firsts(counts.size());
  std::exclusive_scan(counts.begin(), counts.end(), firsts.begin(), 0);
  std::vector<int> all;
  ranks.OnRoot(
      [&] { all.resize(static_cast<std::size_t>(firsts.back()) + static_cast<std::size_t>(counts.back())); });
  MPI_Gatherv(own.data(), static_cast<int>(own.size()), MPI_INT, all.data(), counts.data(), firsts.data(),
              MPI_INT, 0, ranks.Communicator());
  return all;
}

/// Marks rows with a value other than 0; returns whether there is one at all.
bool MarkFilled(Mat matrix, std::vector<bool>& isFilled) {
  bool hasValue = false;
  LocalRows(matrix).ForEachEntry([&](int row, int, double value) {
    if (value == 0.0) return;
    isFilled[static_cast<std::size_t>(row)] = true;
    hasValue = true;
  });
  return hasValue;
}

/// Bytes that each rank may use, the same on all: what was said, else its share of what its machine has.
std::int64_t MemoryOfRank(Ranks const& ranks, std::int64_t said) {
  if (said > 0) return said;
  MPI_Comm machine = MPI_COMM_NULL;
  int ranksHere = 1;
  MPI_Comm_split_type(ranks.Communicator(), MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &machine);
  MPI_Comm_size(machine, &ranksHere);
  MPI_Comm_free(&machine);
  std::optional<std::uint64_t> const available = tool::AvailableMemory();
  auto const share =
      available ? static_cast<std::int64_t>(*available) / ranksHere : ORXSrvDenseMatrix::WorkMemory();
  return -ranks.Largest(-share);
}

/// Finds the modes of one pair.
class ModesOnRanks {
public:
  ModesOnRanks(Ranks const& ranks, Handle<Mat> k, Handle<Mat> m, ModesOptions const& options,
               double stiffnessError, tool::WorkFolder const& folder)
      : m_ranks(ranks), m_k(std::move(k)), m_m(std::move(m)), m_choice(options.choice),
        m_isBySlepc(options.solver == "slepc"),
        m_stiffnessError(stiffnessError), m_limits{MemoryOfRank(ranks, options.choice.memory),
                                                   folder.Path()} {
    FindEmptyUnknowns();
  }

  std::string FactorizationText() {
    StartPencil();
    MumpsFactor::Estimate const factor = m_pencil->Foresee();
    PetscInt order = 0;
    Check(MatGetSize(m_k.Get(), &order, nullptr));
    return tool::EstimateText("K - sigma M", order,
                              {factor.entries, factor.bytes, factor.bytesOnDisk, factor.operations}) +
           Note("memory is that of the rank that needs most");
  }

  /// The shapes are those of this rank's rows.
  ModalSolution Solve() {
    ORXSrvProgress::Report(tool::SearchProgress::start, 1, 1);
    for (;;) {
      try {
        StartPencil();
        return SolveOnce();
      } catch (ORXSrvSolveError const& e) {
        bool const canHold = e.ErrorCode() == ORXSrvSolveError::singular && e.Unknown() >= 0 &&
                             m_heldMotions.size() < tool::mostHeldMotions;
        if (!canHold) throw ToolError(ExitCode::Failure, e.AsString().AsText());
        m_pencil.reset();
        Hold(e.Unknown());
      }
    }
  }

private:
  void FindEmptyUnknowns() {
    PetscInt first = 0, end = 0;
    Check(MatGetOwnershipRange(m_k.Get(), &first, &end));
    std::vector<bool> isFilled(static_cast<std::size_t>(end - first), false);
    MarkFilled(m_k.Get(), isFilled);
    bool const hasMass = MarkFilled(m_m.Get(), isFilled);
    tool::RequireMassValue(!m_ranks.AreAll(!hasMass));
    for (std::size_t i = 0; i < isFilled.size(); ++i)
      if (!isFilled[i]) m_empty.push_back(first + static_cast<int>(i));
  }

  void StartPencil() {
    if (m_pencil) return;
    std::vector<int> held = m_empty;
    held.insert(held.end(), m_ownHeldMotions.begin(), m_ownHeldMotions.end());
    m_pencil.emplace(m_ranks, m_k.Get(), m_m.Get(), std::move(held), m_limits);
  }

  ModalSolution SolveOnce() {
    if (m_choice.interval) {
      RequireInterval(m_choice.interval->first, m_choice.interval->second);
    } else if (m_choice.near) {
      RequireFrequency(*m_choice.near);
    }
    m_pencil->RequireMass();
    ModalSolution solution = m_isBySlepc ? SolveBySlepc() : SolveByLanczos();
    solution.method += " on " + tool::Counted(m_ranks.Count(), "rank", "ranks");
    solution.emptyUnknowns = GatherOnRoot(m_ranks, m_empty);
    solution.heldUnknowns = m_heldMotions;
    return solution;
  }

  ModalSolution SolveByLanczos() {
    ModalAnalysis analysis(*m_pencil);
    analysis.Begin(m_limits.memory, true);
    if (m_choice.interval)
      analysis.FindBetween(m_choice.interval->first, m_choice.interval->second);
    else if (m_choice.near)
      analysis.FindNear(*m_choice.near, m_choice.count);
    else
      analysis.FindLowest(m_choice.count);
    auto const shape = [&](int mode) { return analysis.Found()[static_cast<std::size_t>(mode)].shape; };
    return tool::DescribeSearch({analysis.Modes(), analysis.Counts(), analysis.Shifts()}, shape, m_choice,
                                m_stiffnessError);
  }

  ModalSolution SolveBySlepc() {
    KrylovSchurModes const result = FindByKrylovSchur(*m_pencil, m_k.Get(), m_m.Get(), m_choice);
    std::vector<ORXSrvMode> modes;
    std::ranges::transform(result.found, std::back_inserter(modes), DescribeMode);
    auto const shape = [&](int mode) { return result.found[static_cast<std::size_t>(mode)].shape; };
    ModalSolution solution =
        tool::DescribeSearch({modes, result.counts, result.shifts}, shape, m_choice, m_stiffnessError);
    solution.method = "SLEPc";
    return solution;
  }

  void Hold(int unknown) {
    m_heldMotions.push_back(unknown);
    std::ranges::sort(m_heldMotions);
    PetscInt first = 0, end = 0;
    Check(MatGetOwnershipRange(m_k.Get(), &first, &end));
    std::vector<PetscInt> own;
    if (unknown >= first && unknown < end) own.push_back(unknown);
    m_ownHeldMotions.insert(m_ownHeldMotions.end(), own.begin(), own.end());
    for (Mat matrix : {m_k.Get(), m_m.Get()})
      Check(MatZeroRowsColumns(matrix, static_cast<PetscInt>(own.size()), own.data(), 0.0, nullptr, nullptr));
  }

  Ranks const& m_ranks;
  Handle<Mat> m_k, m_m;
  ModeChoice m_choice;
  bool m_isBySlepc;
  double m_stiffnessError;
  DistributedPencil::Limits m_limits;
  std::optional<DistributedPencil> m_pencil;
  std::vector<int> m_empty;          ///< of this rank's unknowns
  std::vector<int> m_heldMotions;    ///< of all unknowns
  std::vector<int> m_ownHeldMotions; ///< of this rank's
};

/// What the root has begun.
struct RootsPart {
  std::optional<tool::ShapesFile> shapes;
  std::optional<tool::Progress> progress;
  std::optional<tool::SearchProgress> search;
};

/// What orxmtx solves densely.
bool IsForRootAlone(ModesOptions const& options, SourceOnRanks const& k) {
  bool const isReadOnce = options.stiffnessPath == "-" || options.massPath == "-";
  bool const areTheLowest = !options.choice.near && !options.choice.interval;
  return k.Facts().Order() < tool::sparseOrder && areTheLowest && !isReadOnce && options.solver != "slepc";
}

std::string RanksText(Ranks const& ranks) {
  return ranks.Count() > 1 ? "" : Note("one rank: orxmtx modes does the same without MPI");
}

} // namespace

void PrintModes(ModesOptions const& options, Ranks const& ranks, Print const& print) {
  std::string massName;
  RootsPart root;
  ranks.OnRoot([&] {
    tool::RequireUsableNames(options);
    massName = tool::MassName(options);
  });
  ranks.Broadcast(massName);
  SourceOnRanks k("K", options.stiffnessPath, ranks);
  if (IsForRootAlone(options, k)) return ranks.OnRoot([&] { tool::PrintModes(options, print); });
  ranks.OnRoot([&] {
    if (!options.shapesPath.empty()) root.shapes.emplace(options.shapesPath);
  });
  tool::WorkFolder const folder;
  RootsFiles const rootsFiles(ranks);
  SourceOnRanks m("M", massName, ranks);
  ranks.OnEach([&] { tool::RequireTwoMatrices(options, k.Facts(), m.Facts()); });
  k.RequireAsStated();
  m.RequireAsStated();
  ranks.OnEach([&] { tool::RequireOneOrder(k.Facts(), m.Facts()); });
  std::string const notes = RanksText(ranks) + k.NoteText() + m.NoteText();

  int const order = std::max(k.Facts().Order(), m.Facts().Order());
  double const stiffnessError = k.Facts().symmetry.worstDifference;
  Handle<Mat> stiffness = k.TakeSymmetric(order);
  Handle<Mat> mass = m.TakeSymmetric(order);
  ModesOnRanks modes(ranks, std::move(stiffness), std::move(mass), options, stiffnessError, folder);
  if (options.explains) {
    std::string const text = modes.FactorizationText();
    ranks.OnRoot([&] { print(text); });
  }
  ranks.OnRoot([&] {
    root.progress.emplace(Format("modes of order %d", order));
    root.search.emplace(*root.progress);
  });
  ModalSolution const solution = modes.Solve();
  ranks.OnRoot([&] {
    root.search.reset();
    root.progress.reset();
    print(notes + tool::ModesText(k.Facts(), m.Facts(), solution, options.choice.count));
  });
  if (options.shapesPath.empty()) return;
  ServeColumns(
      ranks, order, [&](int mode) { return solution.modes[static_cast<std::size_t>(mode)].shape.data(); },
      [&](auto const& column) { root.shapes->Write(solution.modes, order, column, k.Facts().labels); });
  ranks.OnRoot([&] { print(tool::ShapesFileText(options.shapesPath)); });
}

} // namespace orx::mpi
