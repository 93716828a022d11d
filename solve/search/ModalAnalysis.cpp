#include "solve/search/ModalAnalysis.h"

#include "solve/search/SolveErrors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>

namespace orx {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// x^T K x below this share of the terms that it is summed from is the strain of a rigid motion.
constexpr double rigidStrain = 1e-13;

double FrequencyOf(double lambda) {
  return std::copysign(std::sqrt(std::abs(lambda)) / (2 * std::numbers::pi), lambda);
}

} // namespace

double EigenvalueOf(double frequency) {
  double const omega = 2 * std::numbers::pi * frequency;
  return std::copysign(omega * omega, frequency);
}

ORXSrvMode DescribeMode(FoundMode const& found) {
  return {found.lambda,           FrequencyOf(found.lambda), found.error,
          found.quality.residual, found.quality.strainShare, found.quality.strainShare <= rigidStrain};
}

void RequireCount(int count) {
  if (count < 1)
    RaiseSolveError(ORXSrvSolveError::illegalInput,
                    "ORXSrvModes: " + std::to_string(count) + " modes asked for; expected at least one.");
}

void RequireFrequency(double frequency) {
  if (!std::isfinite(EigenvalueOf(frequency)))
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: modes near " + NumberText(frequency) +
                                                        " Hz asked for; expected a finite frequency.");
}

void RequireInterval(double from, double to) {
  double const lower = EigenvalueOf(from), upper = EigenvalueOf(to);
  if (!(lower < upper) || !std::isfinite(lower) || !std::isfinite(upper))
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: modes between " + NumberText(from) +
                                                        " and " + NumberText(to) +
                                                        " Hz asked for; expected the lower frequency first.");
}

void ModalAnalysis::Begin(std::int64_t memory, bool isCertificateWanted) {
  m_memory = memory;
  m_isCertificateWanted = isCertificateWanted;
  m_isCertified = false;
  m_modes.clear();
  m_found.clear();
  m_counts.clear();
  m_shifts.clear();
}

template<class Find, class Select>
void ModalAnalysis::Run(Find find, Select select) {
  ModeSearch search(m_pencil, m_memory, m_isCertificateWanted);
  ModeSearch::Range const range = find(search);
  m_shifts = search.Shifts();
  std::vector<FoundMode> inside;
  for (FoundMode const& mode : search.Modes())
    if (mode.lambda > range.from && mode.lambda < range.to) inside.push_back(mode);
  m_found = select(std::move(inside));
  for (FoundMode const& mode : m_found)
    m_modes.push_back(DescribeMode(mode));
  SetCounts(search, range);
  m_isCertified = m_isCertificateWanted && range.isComplete;
  if (m_isCertificateWanted && !range.isComplete) RaiseNotCertified();
}

void ModalAnalysis::SetCounts(ModeSearch const& search, ModeSearch::Range const& range) {
  double last = -infinity;
  int below = 0;
  for (auto const& [shift, count] : search.Counts()) {
    if (shift > range.to) break;
    if (last >= range.from && (last != -infinity || range.from == -infinity))
      m_counts.push_back({last, shift, search.FoundBetween(last, shift), count - below});
    last = shift;
    below = count;
  }
}

void ModalAnalysis::RaiseNotCertified() const {
  for (ORXSrvModeCount const& count : m_counts)
    if (count.found != count.counted)
      RaiseSolveError(ORXSrvSolveError::notCertified,
                      "ORXSrvModes: between the eigenvalues " + NumberText(count.from) + " and " +
                          NumberText(count.to) + ", " + std::to_string(count.found) +
                          " modes were found and " + std::to_string(count.counted) + " counted.");
  RaiseSolveError(ORXSrvSolveError::notCertified, "ORXSrvModes: the search came to no end.");
}

void ModalAnalysis::FindLowest(int count) {
  Run([&](ModeSearch& search) { return search.FindLowest(count); },
      [&](std::vector<FoundMode> found) {
        if (found.size() > static_cast<std::size_t>(count)) found.resize(static_cast<std::size_t>(count));
        return found;
      });
}

void ModalAnalysis::FindNear(double frequency, int count) {
  double const lambda = EigenvalueOf(frequency);
  Run([&](ModeSearch& search) { return search.FindNear(lambda, count); },
      [&](std::vector<FoundMode> found) {
        std::ranges::stable_sort(found, {}, [&](FoundMode const& m) { return std::abs(m.lambda - lambda); });
        if (found.size() > static_cast<std::size_t>(count)) found.resize(static_cast<std::size_t>(count));
        std::ranges::sort(found, {}, &FoundMode::lambda);
        return found;
      });
}

void ModalAnalysis::FindBetween(double from, double to) {
  double const lower = EigenvalueOf(from), upper = EigenvalueOf(to);
  // The shifts lie outside: a mode on a bound belongs to the interval.
  double const margin = 1e-9 * std::max(std::abs(lower), std::abs(upper));
  Run([&](ModeSearch& search) { return search.FindBetween(lower - margin, upper + margin); },
      [&](std::vector<FoundMode> found) {
        std::erase_if(found, [&](FoundMode const& m) {
          return m.lambda < lower - std::max(m.error, 1e-12 * std::abs(lower)) ||
                 m.lambda > upper + std::max(m.error, 1e-12 * std::abs(upper));
        });
        return found;
      });
}

} // namespace orx
