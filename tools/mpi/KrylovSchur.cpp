#include "tools/mpi/KrylovSchur.h"

#include "solve/search/ModalAnalysis.h"
#include "solve/search/Vectors.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <string>

namespace orx::mpi {

namespace {

using tool::ExitCode;
using tool::Format;
using tool::ToolError;

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// (K - shift M)^-1, as PETSc calls it.
struct Inverse {
  DistributedPencil& pencil;
  double shift = 0.0;
  std::exception_ptr error{}; ///< of a call, which SLEPc ends at
};

PetscErrorCode Apply(PC shell, Vec x, Vec y) {
  Inverse* self = nullptr;
  PetscScalar* values = nullptr;
  Check(PCShellGetContext(shell, &self));
  Check(VecCopy(x, y));
  Check(VecGetArray(y, &values));
  try {
    self->pencil.Solve(values, 1);
  } catch (...) {
    self->error = std::current_exception();
  }
  Check(VecRestoreArray(y, &values));
  return self->error ? PETSC_ERR_LIB : 0;
}

/// Finds eigenvalues around shifts, one after the other.
class Search {
public:
  Search(DistributedPencil& pencil, Mat k, Mat m) : m_pencil(pencil), m_inverse{pencil}, m_k(k), m_m(m) {}

  KrylovSchurModes FindLowest(int count) {
    ShiftFacts const start = Factorize(m_pencil.StartShift(), Pencil::Side::Below);
    SolveAround(start, start.below + count + 1);
    double const cut = CutAbove(count);
    Compare(-infinity, 0, cut, Factorize(cut, Pencil::Side::Above).below);
    return Take([](double) { return true; }, static_cast<std::size_t>(count));
  }

  KrylovSchurModes FindNear(double lambda, int count) {
    SolveAround(Factorize(lambda, Pencil::Side::Below), count + 1);
    std::vector<double> distances;
    for (FoundMode const& mode : m_found)
      distances.push_back(std::abs(mode.lambda - lambda));
    std::ranges::sort(distances);
    auto const last = std::min(distances.size(), static_cast<std::size_t>(count)) - 1;
    double const next = last + 1 < distances.size() ? distances[last + 1] : 1.001 * distances[last];
    double const radius = distances[last] + 0.3 * (next - distances[last]);
    ShiftFacts const from = Factorize(lambda - radius, Pencil::Side::Below),
                     to = Factorize(lambda + radius, Pencil::Side::Above);
    Compare(from.shift, from.below, to.shift, to.below);
    return Take([&](double value) { return std::abs(value - lambda) < radius; },
                static_cast<std::size_t>(count));
  }

  KrylovSchurModes FindBetween(double from, double to) {
    double const margin = 1e-9 * std::max(std::abs(from), std::abs(to));
    ShiftFacts const lower = Factorize(from - margin, Pencil::Side::Below),
                     upper = Factorize(to + margin, Pencil::Side::Above);
    int const count = upper.below - lower.below;
    // Those inside are nearer to the middle than all others.
    if (count > 0) SolveAround(Factorize(0.5 * (lower.shift + upper.shift), Pencil::Side::Below), count);
    Compare(lower.shift, lower.below, upper.shift, upper.below);
    return Take([&](double value) { return value > lower.shift && value < upper.shift; }, m_found.size());
  }

private:
  ShiftFacts Factorize(double shift, Pencil::Side side) {
    ShiftFacts const facts = m_pencil.Factorize(shift, side);
    m_result.shifts.push_back(facts.shift);
    return facts;
  }

  /// The `count` eigenvalues nearest to the shift that was factorized last.
  void SolveAround(ShiftFacts const& facts, int count) {
    m_inverse.shift = facts.shift;
    Handle<EPS> solver;
    ST transform = nullptr;
    KSP inverse = nullptr;
    PC shell = nullptr;
    Check(EPSCreate(PetscObjectComm(reinterpret_cast<PetscObject>(m_k)), solver.Receive()));
    Check(EPSSetOperators(solver.Get(), m_k, m_m));
    Check(EPSSetProblemType(solver.Get(), EPS_GHEP));
    Check(EPSSetTarget(solver.Get(), facts.shift));
    Check(EPSSetWhichEigenpairs(solver.Get(), EPS_TARGET_MAGNITUDE));
    Check(EPSSetDimensions(solver.Get(), std::min(count, m_pencil.Order()), PETSC_DEFAULT, PETSC_DEFAULT));
    Check(EPSGetST(solver.Get(), &transform));
    Check(STSetType(transform, STSINVERT));
    Check(STSetMatMode(transform, ST_MATMODE_SHELL)); // the pencil has K - shift M
    Check(STGetKSP(transform, &inverse));
    Check(KSPSetType(inverse, KSPPREONLY));
    Check(KSPGetPC(inverse, &shell));
    Check(PCSetType(shell, PCSHELL));
    Check(PCShellSetContext(shell, &m_inverse));
    Check(PCShellSetApply(shell, Apply));
    Check(EPSSetFromOptions(solver.Get()));
    PetscErrorCode const code = EPSSolve(solver.Get());
    if (m_inverse.error) std::rethrow_exception(m_inverse.error);
    Check(code);
    TakeModes(solver.Get());
  }

  void TakeModes(EPS solver) {
    m_found.clear();
    PetscInt converged = 0;
    Check(EPSGetConverged(solver, &converged));
    Handle<Vec> vector;
    Check(MatCreateVecs(m_k, vector.Receive(), nullptr));
    for (PetscInt i = 0; i < converged; ++i) {
      PetscScalar lambda = 0.0;
      PetscReal estimate = 0.0;
      PetscScalar const* values = nullptr;
      Check(EPSGetEigenpair(solver, i, &lambda, nullptr, vector.Get(), nullptr));
      Check(EPSGetErrorEstimate(solver, i, &estimate));
      Check(VecGetArrayRead(vector.Get(), &values));
      std::vector<double> shape(values, values + m_pencil.OwnRows());
      Check(VecRestoreArrayRead(vector.Get(), &values));
      AddMode(lambda, estimate, std::move(shape));
    }
    std::ranges::sort(m_found, {}, &FoundMode::lambda);
  }

  void AddMode(double lambda, double estimate, std::vector<double> shape) {
    Processes const& ranks = m_pencil.SharedBy();
    std::vector<double> massTimes(shape.size());
    m_pencil.MultiplyByMass(shape.data(), 1, massTimes.data());
    double const length = std::sqrt(ranks.Sum(Dot(shape, massTimes)));
    double const scale = SignOfLargest(ranks, shape.data(), static_cast<int>(shape.size())) / length;
    for (double& value : shape)
      value *= scale;
    ModeQuality const quality = m_pencil.Measure({lambda}, shape.data()).front();
    // An error of 1 / (lambda - shift), relative.
    double const error = estimate * std::abs(lambda - m_inverse.shift) + epsilon * quality.defectTerms;
    m_found.push_back({lambda + quality.defect, error, quality, std::move(shape)});
  }

  /// A shift above the first `count` eigenvalues, below the next one that is known.
  double CutAbove(int count) const {
    auto const wanted = std::min(m_found.size(), static_cast<std::size_t>(count));
    if (wanted == 0) throw ToolError(ExitCode::Failure, "SLEPc has found no mode; --solver lanczos may");
    double const last = m_found[wanted - 1].lambda;
    double const above = std::abs(last - m_inverse.shift);
    return wanted < m_found.size() ? last + 0.3 * (m_found[wanted].lambda - last) : last + 1e-3 * above;
  }

  int FoundBetween(double from, double to) const {
    return static_cast<int>(std::ranges::count_if(
        m_found, [&](FoundMode const& mode) { return mode.lambda > from && mode.lambda < to; }));
  }

  /// Looks once more when some are missing, for as many as there are.
  void Compare(double from, int belowFrom, double to, int belowTo) {
    int const counted = belowTo - belowFrom;
    if (FoundBetween(from, to) < counted)
      SolveAround(Factorize(m_inverse.shift, Pencil::Side::Below), counted + 1);
    int const found = FoundBetween(from, to);
    if (found != counted)
      throw ToolError(
          ExitCode::Failure,
          Format("between the eigenvalues %.10g and %.10g SLEPc has found %d modes, and there are %d by "
                 "inertia; --solver lanczos looks for the others",
                 from, to, found, counted));
    m_result.counts.push_back({from, to, found, counted});
  }

  template<class IsWanted>
  KrylovSchurModes Take(IsWanted isWanted, std::size_t most) {
    for (FoundMode& mode : m_found)
      if (isWanted(mode.lambda) && m_result.found.size() < most) m_result.found.push_back(std::move(mode));
    return std::move(m_result);
  }

  DistributedPencil& m_pencil;
  Inverse m_inverse;
  Mat m_k, m_m;
  std::vector<FoundMode> m_found; ///< ascending
  KrylovSchurModes m_result;
};

} // namespace

KrylovSchurModes FindByKrylovSchur(DistributedPencil& pencil, Mat k, Mat m, tool::ModeChoice const& choice) {
  Search search(pencil, k, m);
  if (choice.interval)
    return search.FindBetween(EigenvalueOf(choice.interval->first), EigenvalueOf(choice.interval->second));
  if (choice.near) return search.FindNear(EigenvalueOf(*choice.near), choice.count);
  return search.FindLowest(choice.count);
}

} // namespace orx::mpi
