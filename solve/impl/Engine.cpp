#include "solve/impl/Engine.h"

#include "core/mem_Allocator.h"
#include "solve/impl/ScratchFolder.h"
#include "solve/mumps/MumpsControls.h"
#include "solve/search/SolveErrors.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <scotch.h>

namespace orx {

namespace {

using namespace mumps;

/// A pivot below this share of the largest entry is exactly zero: rounding errors leave more.
constexpr double exactZero = 1e-20;

extern "C" void dgetrf_(int const* m, int const* n, double* a, int const* lda, int* pivots, int* info);

/// Makes the engine's BLAS take the memory into which it packs matrices, 128 MB of address space, once: it
/// asks forever when the system does not have it. Raises mem_OutOfMemory then.
void RequireBlasMemory() {
  static bool isTaken = false;
  if (isTaken) return;
  mem_MakeArray<char>(std::int64_t{136} << 20).reset();
  int const n = 1;
  double a = 1.0;
  int pivot = 0, info = 0;
  dgetrf_(&n, &n, &a, &n, &pivot, &info);
  isTaken = true;
}

std::string Megabytes(std::int64_t bytes) {
  return std::to_string((bytes + megabyte - 1) / megabyte) + " MB";
}

} // namespace

struct Engine::State {
  DMUMPS_STRUC_C id{};
  RowGroups groups;
  EngineEstimate estimate{};
  std::unique_ptr<ScratchFolder> folder; ///< while a factor is on disk

  explicit State(bool isSymmetric) {
    id.par = 1;
    id.sym = isSymmetric ? 2 : 0;
    id.comm_fortran = -987654; // MPI_COMM_WORLD
    Run(begin);
  }
  State(State const&) = delete;
  State& operator=(State const&) = delete;
  ~State() { Run(end); }

  void Run(Job job) {
    id.job = job;
    dmumps_c(&id);
  }
  /// The arrays of the matrix for the next job, which only reads them.
  void Lend(ShiftedMatrix const& matrix) {
    id.n = matrix.Order();
    id.nnz = matrix.Entries();
    id.irn = const_cast<int*>(matrix.Rows().data());
    id.jcn = const_cast<int*>(matrix.Columns().data());
    id.a = const_cast<double*>(matrix.Values().data());
  }
  bool HasFailed() const { return Info(id, 1) < 0; }
  /// Raises the error for what the last job has returned.
  [[noreturn]] void RaiseFailure(char const* what, std::string const& where);
};

void Engine::State::RaiseFailure(char const* what, std::string const& where) {
  int const code = Info(id, 1), detail = Info(id, 2);
  if (IsOutOfMemory(code)) throw mem_OutOfMemory(static_cast<std::size_t>(Count(detail)) * sizeof(double));
  if (code == diskFailed)
    RaiseSolveError(ORXSrvSolveError::onDisk,
                    std::string(what) + ": the factor cannot be written to " + where + ". Is the disk full?");
  RaiseSolveError(ORXSrvSolveError::engineFailed, std::string(what) + ": MUMPS ended with code " +
                                                      std::to_string(code) + ", " + std::to_string(detail) +
                                                      ".");
}

Engine::Engine(ShiftedMatrix const& matrix) {
  RequireBlasMemory();
  m_state = std::make_unique<State>(matrix.IsSymmetric());
  State& state = *m_state;
  DMUMPS_STRUC_C& id = state.id;
  if (state.HasFailed()) state.RaiseFailure("ORXSrvSparseFactor::Analyse", {});
  SetForAll(id);
  Control(id, 7) = 3; // SCOTCH
  state.Lend(matrix);
  // With zeros on the diagonal MUMPS looks for pairs of unknowns that make good pivots, from the values.
  if (!matrix.HasZeroOnDiagonal()) {
    Control(id, 6) = 0;
    Control(id, 12) = 1;
    state.groups = FindRowGroups(matrix);
    if (!state.groups.pointers.empty()) {
      Control(id, 15) = 1;
      id.nblk = static_cast<int>(state.groups.pointers.size()) - 1;
      id.blkptr = state.groups.pointers.data();
      id.blkvar = state.groups.unknowns.data();
    }
  }
  {
    OneThread const oneThread;
    SCOTCH_randomSeed(1);
    state.Run(analyse);
  }
  if (state.HasFailed()) state.RaiseFailure("ORXSrvSparseFactor::Analyse", {});
  state.estimate = {Count(Info(id, 20)), Info(id, 17) * megabyte, Info(id, 27) * megabyte, id.rinfog[0]};
}

Engine::~Engine() = default;

EngineEstimate const& Engine::Estimate() const noexcept { return m_state->estimate; }

EngineFacts Engine::Factorize(ShiftedMatrix const& matrix, EngineLimits const& limits, double zeroPivot) {
  std::optional<EngineFacts> facts = TryFactorize(matrix, limits, zeroPivot);
  if (!facts) facts = TryFactorize(matrix, limits, exactZero);
  if (!facts) m_state->RaiseFailure("ORXSrvSparseFactor::Factorize", {});
  return *std::move(facts);
}

std::optional<EngineFacts> Engine::TryFactorize(ShiftedMatrix const& matrix, EngineLimits const& limits,
                                                double zeroPivot) {
  State& state = *m_state;
  DMUMPS_STRUC_C& id = state.id;
  Control(id, 24) = zeroPivot > 0.0 ? 1 : 0; // without, elimination is faster
  id.cntl[2] = zeroPivot;
  bool const isOnDisk = state.estimate.bytes > limits.bytes;
  if (isOnDisk && state.estimate.bytesOnDisk > limits.bytes)
    RaiseSolveError(ORXSrvSolveError::beyondBudget,
                    "ORXSrvSparseFactor::Factorize: the factorization needs " +
                        Megabytes(state.estimate.bytes) + " of memory, or " +
                        Megabytes(state.estimate.bytesOnDisk) + " with the factor on disk; the budget is " +
                        Megabytes(limits.bytes) + ".");
  Control(id, 22) = isOnDisk ? 1 : 0;
  // The engine itself deletes the files of the last factor, when it begins with the next one.
  std::unique_ptr<ScratchFolder> const lastFolder = std::move(state.folder);
  if (isOnDisk) {
    state.folder = std::make_unique<ScratchFolder>(limits.folder);
    std::snprintf(id.ooc_tmpdir, sizeof id.ooc_tmpdir, "%s", state.folder->Path().c_str());
    std::snprintf(id.ooc_prefix, sizeof id.ooc_prefix, "factor");
  }
  state.Lend(matrix);
  FactorizeWithSlack(id, [&] { state.Run(factorize); });
  if (Info(id, 1) == singular) return {};
  if (state.HasFailed())
    state.RaiseFailure("ORXSrvSparseFactor::Factorize", state.folder ? state.folder->Path() : "");
  EngineFacts facts{Count(Info(id, 29)), Info(id, 22) * megabyte, isOnDisk, Info(id, 12), Info(id, 13), {}};
  for (int k = 0; k < Info(id, 28); ++k)
    facts.nullUnknowns.push_back(id.pivnul_list[k] - 1);
  std::ranges::sort(facts.nullUnknowns);
  return facts;
}

void Engine::Solve(double* x, int count, int group, bool transposed) {
  DMUMPS_STRUC_C& id = m_state->id;
  Control(id, 9) = transposed ? 0 : 1;
  Control(id, 27) = group;
  id.rhs = x;
  id.nrhs = count;
  id.lrhs = id.n;
  m_state->Run(solve);
  if (m_state->HasFailed())
    m_state->RaiseFailure("ORXSrvSparseFactor::Solve", m_state->folder ? m_state->folder->Path() : "");
}

} // namespace orx
