#include "tools/mpi/MumpsFactor.h"

#include "tools/mpi/FillReducingOrder.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <exception>
#include <numeric>

namespace orx::mpi {
namespace {

using namespace mumps;
using tool::ExitCode;
using tool::Format;
using tool::ToolError;

/// Parts of PETSc's event table.
struct Events {
  PetscLogEvent order, factorize, solve;
};

Events const& AllEvents() {
  static Events const events = [] {
    Events all{};
    PetscClassId group = 0;
    Check(PetscClassIdRegister("MUMPS", &group));
    Check(PetscLogEventRegister("MumpsOrder", group, &all.order));
    Check(PetscLogEventRegister("MumpsFactorize", group, &all.factorize));
    Check(PetscLogEventRegister("MumpsSolve", group, &all.solve));
    return all;
  }();
  return events;
}

class LoggedEvent {
public:
  explicit LoggedEvent(PetscLogEvent event) : m_event(event) { PetscLogEventBegin(m_event, 0, 0, 0, 0); }
  LoggedEvent(LoggedEvent const&) = delete;
  LoggedEvent& operator=(LoggedEvent const&) = delete;
  ~LoggedEvent() { PetscLogEventEnd(m_event, 0, 0, 0, 0); }

private:
  PetscLogEvent m_event;
};

} // namespace

MumpsFactor::MumpsFactor(Ranks const& ranks, LocalRows const& rows, int order, bool isSymmetric)
    : m_ranks(ranks), m_rows(rows), m_firstRow(ranks.OwnShare(order).first), m_isSymmetric(isSymmetric) {
  LoggedEvent const logged(AllEvents().order);
  MPI_Type_contiguous(measuredTogether, MPI_DOUBLE, &m_group);
  MPI_Type_commit(&m_group);
  m_id.par = 1;
  m_id.sym = isSymmetric ? 2 : 0;
  m_id.comm_fortran = static_cast<MUMPS_INT>(MPI_Comm_c2f(ranks.Communicator()));
  Run(begin);
  SetForAll(m_id);
  m_id.n = order;
  m_ranks.OnEach([&] { TakePattern(); });
  std::vector<int> places = FindFillReducingOrder(rows, order, ranks);
  m_id.perm_in = places.data();
  Control(m_id, 6) = 0;
  Control(m_id, 7) = 1; // the order is given
  Control(m_id, 12) = 1;
  Control(m_id, 13) = 1;  // a last front of ScaLAPACK does not count negative pivots
  Control(m_id, 18) = 3;  // each rank has some entries
  Control(m_id, 20) = 10; // loads and solutions are on all ranks
  Control(m_id, 21) = 1;
  SetFromOptions();
  Run(analyse);
  if (Info(m_id, 1) < 0) Fail("order the unknowns");
  m_estimate = {Count(Info(m_id, 20)), m_id.rinfog[0], Info(m_id, 16) * megabyte, Info(m_id, 26) * megabyte};
  m_id.perm_in = nullptr;
}

MumpsFactor::~MumpsFactor() {
  MPI_Type_free(&m_group);
  if (std::uncaught_exceptions() > 0) return; // the other ranks may be elsewhere
  PetscSFDestroy(&m_toOwners);
  Run(end);
}

void MumpsFactor::Run(Job job) {
  m_id.job = job;
  dmumps_c(&m_id);
}

void MumpsFactor::Fail(char const* what) const {
  int const code = Info(m_id, 1);
  double const bytes = static_cast<double>(m_estimate.bytes);
  if (IsOutOfMemory(code))
    throw ToolError(
        ExitCode::Failure,
        Format("out of memory: MUMPS cannot %s; the factor was foreseen to take %s on a rank. More ranks "
               "on more machines need less each, and --budget BYTES puts the factor on disk",
               what, tool::Gigabytes(bytes).c_str()));
  if (code == diskFailed)
    throw ToolError(ExitCode::Failure,
                    Format("MUMPS cannot write the factor to '%s'. Is the disk full?", m_id.ooc_tmpdir));
  throw ToolError(ExitCode::Failure, Format("MUMPS cannot %s: code %d, %d", what, code, Info(m_id, 2)));
}

void MumpsFactor::SetFromOptions() {
  constexpr int controls = 60, realControls = 15;
  for (int number = 1; number <= controls; ++number) {
    PetscInt value = 0;
    PetscBool isGiven = PETSC_FALSE;
    Check(PetscOptionsGetInt(nullptr, nullptr, Format("-mat_mumps_icntl_%d", number).c_str(), &value,
                             &isGiven));
    if (isGiven == PETSC_TRUE) Control(m_id, number) = value;
  }
  for (int number = 1; number <= realControls; ++number) {
    PetscReal value = 0.0;
    PetscBool isGiven = PETSC_FALSE;
    Check(PetscOptionsGetReal(nullptr, nullptr, Format("-mat_mumps_cntl_%d", number).c_str(), &value,
                              &isGiven));
    if (isGiven == PETSC_TRUE) m_id.cntl[number - 1] = value;
  }
}

// The matrix

void MumpsFactor::TakePattern() {
  m_rows.ForEachEntry([&](int row, int column, double) {
    int const unknown = m_rows.UnknownOf(column);
    if (!IsTaken(m_firstRow + row, unknown)) return;
    m_entryRows.push_back(m_firstRow + row + 1);
    m_entryColumns.push_back(unknown + 1);
  });
  m_values.resize(m_entryRows.size());
  m_id.nnz_loc = static_cast<MUMPS_INT8>(m_entryRows.size());
  m_id.irn_loc = m_entryRows.data();
  m_id.jcn_loc = m_entryColumns.data();
  m_id.a_loc = m_values.data();
  m_ownUnknowns.resize(static_cast<std::size_t>(m_rows.Count()));
  std::iota(m_ownUnknowns.begin(), m_ownUnknowns.end(), m_firstRow + 1);
}

void MumpsFactor::TakeValues(LocalRows const& rows) {
  auto at = m_values.begin();
  rows.ForEachEntry([&](int row, int column, double value) {
    if (IsTaken(m_firstRow + row, rows.UnknownOf(column))) *at++ = value;
  });
}

std::optional<int> MumpsFactor::TryFactorize(LocalRows const& rows, std::int64_t memory,
                                             std::string const& folder) {
  LoggedEvent const logged(AllEvents().factorize);
  TakeValues(rows);
  Control(m_id, 22) = m_estimate.bytes > memory ? 1 : 0;
  std::snprintf(m_id.ooc_tmpdir, sizeof m_id.ooc_tmpdir, "%s", folder.c_str());
  std::snprintf(m_id.ooc_prefix, sizeof m_id.ooc_prefix, "factor");
  m_arePlacesKnown = false;
  FactorizeWithSlack(m_id, [&] { Run(factorize); });
  if (Info(m_id, 1) == singular) return {};
  if (Info(m_id, 1) < 0) Fail("factorize");
  return Info(m_id, 12);
}

// Solutions

void MumpsFactor::FindPlacesOfSolution() {
  if (m_arePlacesKnown) return;
  // MUMPS says with the solution where it is; before it, only how much.
  auto const length = static_cast<std::size_t>(std::max(1, m_id.info[22]));
  m_solutionUnknowns.assign(length, 0);
  m_id.lsol_loc = static_cast<MUMPS_INT>(length);
  m_id.isol_loc = m_solutionUnknowns.data();
}

void MumpsFactor::SolveGroup(double* x, int count) {
  FindPlacesOfSolution();
  auto const own = static_cast<std::size_t>(m_rows.Count());
  auto const length = static_cast<std::size_t>(m_id.lsol_loc);
  std::vector<double> solution(length * static_cast<std::size_t>(count));
  Control(m_id, 27) = count;
  m_id.nrhs = count;
  m_id.nloc_rhs = static_cast<MUMPS_INT>(own);
  m_id.lrhs_loc = static_cast<MUMPS_INT>(std::max<std::size_t>(own, 1));
  m_id.irhs_loc = m_ownUnknowns.data();
  m_id.rhs_loc = x;
  m_id.sol_loc = solution.data();
  Run(solve);
  if (Info(m_id, 1) < 0) Fail("solve");
  auto const places = static_cast<std::size_t>(m_id.info[22]);
  if (!m_arePlacesKnown) {
    std::vector<PetscInt> unknowns(places);
    std::transform(m_solutionUnknowns.begin(),
                   m_solutionUnknowns.begin() + static_cast<std::ptrdiff_t>(places), unknowns.begin(),
                   [](int unknown) { return unknown - 1; });
    Check(PetscSFDestroy(&m_toOwners));
    Check(PetscSFCreate(m_ranks.Communicator(), &m_toOwners));
    Check(PetscSFSetGraphLayout(m_toOwners, m_rows.Layout(), static_cast<PetscInt>(places), nullptr,
                                PETSC_COPY_VALUES, unknowns.data()));
    m_arePlacesKnown = true;
  }
  std::vector<VectorGroup> parts(places, VectorGroup{}), components(own, VectorGroup{});
  for (std::size_t v = 0; v < static_cast<std::size_t>(count); ++v)
    for (std::size_t i = 0; i < places; ++i)
      parts[i][v] = solution[v * length + i];
  Check(PetscSFReduceBegin(m_toOwners, m_group, parts.data(), components.data(), MPI_REPLACE));
  Check(PetscSFReduceEnd(m_toOwners, m_group, parts.data(), components.data(), MPI_REPLACE));
  for (std::size_t v = 0; v < static_cast<std::size_t>(count); ++v)
    for (std::size_t i = 0; i < own; ++i)
      x[v * own + i] = components[i][v];
}

void MumpsFactor::Solve(double* x, int count) {
  LoggedEvent const logged(AllEvents().solve);
  constexpr int most = static_cast<int>(measuredTogether);
  for (int first = 0; first < count; first += most)
    SolveGroup(x + std::ptrdiff_t{first} * m_rows.Count(), std::min(count - first, most));
}

} // namespace orx::mpi
