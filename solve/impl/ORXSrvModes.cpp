#include "solve/ORXSrvModes.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/impl/ModeSearch.h"
#include "solve/impl/Pencil.h"
#include "solve/impl/SolveErrors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
#include <string>

using namespace orx;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// x^T K x below this share of the terms that it is summed from is the strain of a rigid motion.
constexpr double rigidStrain = 1e-13;

double FrequencyOf(double lambda) {
  return std::copysign(std::sqrt(std::abs(lambda)) / (2 * std::numbers::pi), lambda);
}

double EigenvalueOf(double frequency) {
  double const omega = 2 * std::numbers::pi * frequency;
  return std::copysign(omega * omega, frequency);
}

void RequireCount(int count) {
  if (count < 1)
    RaiseSolveError(ORXSrvSolveError::illegalInput,
                    "ORXSrvModes: " + std::to_string(count) + " modes asked for; expected at least one.");
}

ORXSrvMode Describe(FoundMode const& found) {
  return {found.lambda,           FrequencyOf(found.lambda), found.error,
          found.quality.residual, found.quality.strainShare, found.quality.strainShare <= rigidStrain};
}

} // namespace

struct ORXSrvModes::State {
  Pencil pencil;
  std::int64_t memory = 0; ///< 0: the default
  std::string folder;
  bool isWanted = true; ///< certification
  bool isCertified = false;
  std::vector<ORXSrvMode> modes;
  std::vector<FoundMode> found; ///< as many as modes
  std::vector<ORXSrvModeCount> counts;
  std::vector<double> shifts;

  State(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m) : pencil(k, m) {}

  EngineLimits Limits() const { return {memory > 0 ? memory : ORXSrvDenseMatrix::WorkMemory(), folder}; }

  /// Performs a search, then keeps what select(modes) returns of the modes in its range.
  template<class Find, class Select>
  void Run(Find find, Select select) {
    modes.clear();
    found.clear();
    counts.clear();
    shifts.clear();
    isCertified = false;
    pencil.BeginAnalysis();
    ModeSearch search(pencil, Limits(), isWanted);
    ModeSearch::Range const range = find(search);
    shifts = search.Shifts();
    std::vector<FoundMode> inside;
    for (FoundMode const& mode : search.Modes())
      if (mode.lambda > range.from && mode.lambda < range.to) inside.push_back(mode);
    found = select(std::move(inside));
    for (FoundMode const& mode : found)
      modes.push_back(Describe(mode));
    SetCounts(search, range);
    isCertified = isWanted && range.isComplete;
    if (isWanted && !range.isComplete) RaiseNotCertified();
  }

  void SetCounts(ModeSearch const& search, ModeSearch::Range const& range) {
    double last = -infinity;
    int below = 0;
    for (auto const& [shift, count] : search.Counts()) {
      if (shift > range.to) break;
      if (last >= range.from && (last != -infinity || range.from == -infinity))
        counts.push_back({last, shift, search.FoundBetween(last, shift), count - below});
      last = shift;
      below = count;
    }
  }

  /// Length of a shape; the matrices may have grown since.
  int Unknowns() const noexcept { return found.empty() ? 0 : static_cast<int>(found.front().shape.size()); }

  template<class Matrix>
  void RequireShape(Matrix const& shapes, bool isFull) const {
    auto const count = static_cast<int>(found.size());
    if (!isFull || shapes.NumberOfRows() != Unknowns() || shapes.NumberOfColumns() != count)
      RaiseSolveError(ORXSrvSolveError::illegalInput,
                      "ORXSrvModes: the matrix for shapes is " +
                          ShapeText(shapes.NumberOfRows(), shapes.NumberOfColumns()) +
                          "; expected a full one of " + ShapeText(Unknowns(), count) + ".");
  }

  [[noreturn]] void RaiseNotCertified() const {
    for (ORXSrvModeCount const& count : counts)
      if (count.found != count.counted)
        RaiseSolveError(ORXSrvSolveError::notCertified,
                        "ORXSrvModes: between the eigenvalues " + NumberText(count.from) + " and " +
                            NumberText(count.to) + ", " + std::to_string(count.found) +
                            " modes were found and " + std::to_string(count.counted) + " counted.");
    RaiseSolveError(ORXSrvSolveError::notCertified, "ORXSrvModes: the search came to no end.");
  }
};

ORXSrvModes::ORXSrvModes(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m)
    : m_state(std::make_unique<State>(k, m)) {}

ORXSrvModes::~ORXSrvModes() = default;

// Settings

void ORXSrvModes::SetMemory(std::int64_t bytes) noexcept { m_state->memory = bytes; }

void ORXSrvModes::SetFolder(char const* path) { m_state->folder = path; }

void ORXSrvModes::SetCertified(bool certified) noexcept { m_state->isWanted = certified; }

// Analyses

void ORXSrvModes::FindLowest(int count) {
  RequireCount(count);
  m_state->Run([&](ModeSearch& search) { return search.FindLowest(count); },
               [&](std::vector<FoundMode> found) {
                 if (found.size() > static_cast<std::size_t>(count))
                   found.resize(static_cast<std::size_t>(count));
                 return found;
               });
}

void ORXSrvModes::FindNear(double frequency, int count) {
  RequireCount(count);
  double const lambda = EigenvalueOf(frequency);
  if (!std::isfinite(lambda))
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: modes near " + NumberText(frequency) +
                                                        " Hz asked for; expected a finite frequency.");
  m_state->Run([&](ModeSearch& search) { return search.FindNear(lambda, count); },
               [&](std::vector<FoundMode> found) {
                 std::ranges::stable_sort(found, {},
                                          [&](FoundMode const& m) { return std::abs(m.lambda - lambda); });
                 if (found.size() > static_cast<std::size_t>(count))
                   found.resize(static_cast<std::size_t>(count));
                 std::ranges::sort(found, {}, &FoundMode::lambda);
                 return found;
               });
}

void ORXSrvModes::FindBetween(double from, double to) {
  double const lower = EigenvalueOf(from), upper = EigenvalueOf(to);
  if (!(lower < upper) || !std::isfinite(lower) || !std::isfinite(upper))
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: modes between " + NumberText(from) +
                                                        " and " + NumberText(to) +
                                                        " Hz asked for; expected the lower frequency first.");
  // The shifts lie outside: a mode on a bound belongs to the interval.
  double const margin = 1e-9 * std::max(std::abs(lower), std::abs(upper));
  m_state->Run([&](ModeSearch& search) { return search.FindBetween(lower - margin, upper + margin); },
               [&](std::vector<FoundMode> found) {
                 std::erase_if(found, [&](FoundMode const& m) {
                   return m.lambda < lower - std::max(m.error, 1e-12 * std::abs(lower)) ||
                          m.lambda > upper + std::max(m.error, 1e-12 * std::abs(upper));
                 });
                 return found;
               });
}

// Results

std::vector<ORXSrvMode> const& ORXSrvModes::Modes() const noexcept { return m_state->modes; }

bool ORXSrvModes::IsCertified() const noexcept { return m_state->isCertified; }

std::vector<ORXSrvModeCount> const& ORXSrvModes::Counts() const noexcept { return m_state->counts; }

std::vector<double> const& ORXSrvModes::Shifts() const noexcept { return m_state->shifts; }

int ORXSrvModes::NumberOfUnknowns() const noexcept { return m_state->Unknowns(); }

double const* ORXSrvModes::Shape(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= m_state->found.size())
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: shape " + std::to_string(index) +
                                                        " asked for; there are " +
                                                        std::to_string(m_state->found.size()) + ".");
  return m_state->found[static_cast<std::size_t>(index)].shape.data();
}

void ORXSrvModes::GetShapes(ORXSrvMatrix& shapes) const {
  m_state->RequireShape(shapes, !shapes.IsDiagonal());
  for (int mode = 0; mode < shapes.NumberOfColumns(); ++mode)
    std::copy_n(Shape(mode), shapes.NumberOfRows(),
                shapes.Values() + std::int64_t{mode} * shapes.NumberOfRows());
}

void ORXSrvModes::GetShapes(ORXSrvDenseMatrix& shapes) const {
  m_state->RequireShape(shapes, true);
  int const width = std::max(1, shapes.MaxNumberOfColumnsInBlock());
  for (int first = 0; first < shapes.NumberOfColumns(); first += width) {
    ORXSrvMatrix columns(shapes.NumberOfRows(), std::min(width, shapes.NumberOfColumns() - first));
    for (int k = 0; k < columns.NumberOfColumns(); ++k)
      std::copy_n(Shape(first + k), columns.NumberOfRows(),
                  columns.Values() + std::int64_t{k} * columns.NumberOfRows());
    shapes.SetColumns(first, first + columns.NumberOfColumns() - 1, columns);
  }
}
