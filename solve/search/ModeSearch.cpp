#include "solve/search/ModeSearch.h"

#include "mtx/ORXSrvProgress.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace orx {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Least distance of a shift from the eigenvalues beside it, by their distance from the shift that found
/// them: what lies closer together is one cluster, which no shift may cut.
constexpr double leastGap = 1e-5;
/// Modes so close together, by their distance from the shift, are one mode many times: it may be had more
/// often than there is room for.
constexpr double clusterWidth = 1e-8;
/// More modes than this in an interval are shared out among several shifts.
constexpr int modesOfAShift = 120;
constexpr int mostSplits = 24;
/// An interval that has been split so often and still has more modes than a shift finds is a cluster: Lanczos
/// finds it in several runs.
constexpr int splitsToCluster = 8;
/// A run that finds fewer of the missing modes is not worth another one at the same shift.
constexpr int worthwhile = 8;
/// Halvings of an interval to find a bound with no more modes below than can be had there.
constexpr int mostHalvings = 12;
/// Modes that lie so many times farther from a shift than those beside it deserve another one, at this share
/// of their distance.
constexpr double farAway = 100;
constexpr double shareOfNext = 0.3;

/// A value between two neighbours in a sorted list, nearer to the lower one: the upper one may still come
/// down.
double CutBetween(double lower, double upper) { return lower + 0.3 * (upper - lower); }

/// The middle of an interval by frequency, by which modes are spread.
double MiddleOf(double from, double to) {
  auto const frequency = [](double lambda) { return std::copysign(std::sqrt(std::abs(lambda)), lambda); };
  double const middle = 0.5 * (frequency(from) + frequency(to));
  return middle * std::abs(middle);
}

} // namespace

// Counting

int ModeSearch::CountBelow(double shift) const { return shift == -infinity ? 0 : m_counts.at(shift); }

int ModeSearch::FoundBetween(double from, double to) const {
  return static_cast<int>(std::ranges::count_if(
      m_modes, [&](FoundMode const& mode) { return mode.lambda > from && mode.lambda < to; }));
}

void ModeSearch::FactorizeAt(double shift, Pencil::Side side) {
  m_current = m_pencil.Factorize(shift, side);
  m_counts[m_current.shift] = m_current.below;
  m_shifts.push_back(m_current.shift);
  auto const count = static_cast<std::int64_t>(m_shifts.size());
  ORXSrvProgress::Report("ORXSrvModes, factorization", count, count + 1);
}

void ModeSearch::ReportModes(Neighbourhood const* around) {
  if (around != nullptr)
    m_found = static_cast<int>(
        std::ranges::count_if(around->lambdas, [&](double l) { return l > m_goal.from && l < m_goal.to; }));
  ORXSrvProgress::Report("ORXSrvModes, modes", std::min(m_found, m_goal.modes) + 1, m_goal.modes + 2);
}

void ModeSearch::StepAside(double center) {
  double const distance = std::abs(m_current.shift - center);
  if (!(std::abs(m_current.nearest - center) < distance)) return;
  std::vector<FoundMode> const none;
  BlockLanczos lanczos(m_pencil, m_current.shift, none, {}, 0);
  double next = infinity; // distance of the next eigenvalue from the center, as it looks
  while (next == infinity && lanczos.Extend()) {
    ReportModes(nullptr);
    for (std::size_t k = 0; lanczos.HasValues() && k < lanczos.Values().size(); ++k) {
      RitzValue const& value = lanczos.Values()[k];
      double const fromCenter = std::abs(lanczos.Lambda(static_cast<int>(k)) - center);
      bool const isSeen = value.residual < 0.1 * std::abs(value.theta);
      if (isSeen && fromCenter > distance) next = std::min(next, fromCenter);
    }
  }
  if (next < infinity && next > farAway * distance)
    FactorizeAt(center - shareOfNext * next, Pencil::Side::Below);
}

// Lanczos at one shift

BlockLanczos::Size ModeSearch::BasisSize(int expected) const {
  constexpr std::int64_t fewest = 64;
  std::int64_t const order = m_pencil.Order();
  std::int64_t const wanted =
      std::min<std::int64_t>(order + 16, 3 * std::min(expected, 2 * modesOfAShift) + 200);
  // The same for all processes, who go through the vectors together.
  auto const rows = static_cast<std::int64_t>(m_pencil.SharedBy().Largest(m_pencil.OwnRows()));
  std::int64_t const byMemory = m_memory / 3 / (8 * rows);
  return {static_cast<int>(std::max(fewest, wanted)),
          static_cast<int>(std::clamp(byMemory, fewest, std::max(fewest, wanted)))};
}

ModeSearch::Neighbourhood ModeSearch::Look(BlockLanczos const& lanczos) const {
  Neighbourhood around{{}, infinity, 0.0, 0};
  for (FoundMode const& mode : m_modes)
    around.lambdas.push_back(mode.lambda);
  auto const& values = lanczos.Values();
  for (std::size_t k = 0; k < values.size(); ++k) { // the nearest come first
    double const lambda = lanczos.Lambda(static_cast<int>(k));
    double const distance = std::abs(lambda - m_current.shift);
    if (!values[k].isConverged) {
      around.reach = std::min(around.reach, distance);
      continue;
    }
    around.lambdas.push_back(lambda);
    if (around.reach == infinity) around.seen = distance;
  }
  std::ranges::sort(around.lambdas);
  around.below =
      static_cast<int>(std::ranges::lower_bound(around.lambdas, m_current.shift) - around.lambdas.begin());
  return around;
}

void ModeSearch::Keep(BlockLanczos& lanczos) {
  std::ranges::move(lanczos.MakeModes(), std::back_inserter(m_modes)); // from here on Lanczos cannot go on
  std::ranges::sort(m_modes, {}, &FoundMode::lambda);
}

template<class IsDone>
bool ModeSearch::Explore(int expected, IsDone isDone) {
  BlockLanczos lanczos(m_pencil, m_current.shift, m_modes, BasisSize(expected), ++m_runs);
  while (lanczos.Extend()) {
    std::optional<Neighbourhood> around;
    if (lanczos.HasValues()) around = Look(lanczos);
    ReportModes(around ? &*around : nullptr);
    if (around && isDone(*around)) break;
  }
  if (!lanczos.HasValues()) return lanczos.IsExhausted();
  auto const converged = std::ranges::count_if(lanczos.Values(), &RitzValue::isConverged);
  auto const before = std::ssize(m_modes);
  Keep(lanczos);
  return lanczos.IsExhausted() && std::ssize(m_modes) - before == converged;
}

// Completing an interval

double ModeSearch::Floor(double to) const {
  double floor = -infinity;
  for (auto const& [shift, count] : m_counts)
    if (shift < to && count == 0) floor = shift;
  return floor;
}

void ModeSearch::FindMissing(double from, double to) {
  auto const missing = [&] { return CountBelow(to) - CountBelow(from) - FoundBetween(from, to); };
  int before = 0;
  do {
    before = missing();
    double const shift = m_current.shift;
    double const farthest = std::max(std::abs(to - shift), std::abs(shift - from));
    Explore(before, [&](Neighbourhood const& around) {
      auto const inside = std::ranges::count_if(around.lambdas, [&](double l) { return l > from && l < to; });
      return inside >= CountBelow(to) - CountBelow(from) || around.seen > farthest;
    });
  } while (missing() > 0 && before - missing() >= worthwhile);
}

bool ModeSearch::Complete(double from, double to, int depth) {
  auto const missing = [&] { return CountBelow(to) - CountBelow(from) - FoundBetween(from, to); };
  if (missing() == 0) return true;
  if (missing() < 0 || depth > mostSplits) return false;
  if (from == -infinity) return CompleteFromBelow(to, depth);
  if (auto const inside = m_counts.upper_bound(from); inside->first < to) {
    double const middle = inside->first;
    return Complete(from, middle, depth) && Complete(middle, to, depth);
  }
  bool const isAtEnd = m_current.shift == from || m_current.shift == to;
  if (isAtEnd && (missing() <= modesOfAShift || depth >= splitsToCluster)) {
    FindMissing(from, to);
    if (missing() <= 0) return missing() == 0;
  }
  FactorizeAt(MiddleOf(from, to), Pencil::Side::Below);
  double const middle = m_current.shift;
  if (!(middle > from && middle < to)) return false;
  if (missing() <= modesOfAShift) FindMissing(from, to);
  return Complete(from, middle, depth + 1) && Complete(middle, to, depth + 1);
}

bool ModeSearch::CompleteFromBelow(double to, int depth) {
  double const floor = Floor(to);
  if (floor != -infinity) return FoundBetween(-infinity, floor) == 0 && Complete(floor, to, depth);
  double const lowest = std::min(to, m_counts.begin()->first);
  FactorizeAt(lowest > 0.0 ? -lowest : std::min(2 * lowest, -1.0), Pencil::Side::Below);
  return Complete(-infinity, to, depth + 1);
}

// Searches

std::optional<ModeSearch::Range> ModeSearch::EndInCluster(int count) {
  auto const wanted = static_cast<std::size_t>(count);
  if (m_modes.size() < wanted || m_current.below > 0) return {};
  double const shift = m_current.shift;
  double const last = m_modes[wanted - 1].lambda;
  std::size_t first = wanted - 1;
  while (first > 0 && m_modes[first].lambda - m_modes[first - 1].lambda <= leastGap * (last - shift))
    --first;
  double const lowest = m_modes[first].lambda;
  if (!(last - lowest <= clusterWidth * (last - shift))) return {};
  Range range{-infinity, last + clusterWidth * (last - shift), true};
  if (!m_isCertified) return range;
  double const below = first > 0 ? m_modes[first - 1].lambda : shift;
  FactorizeAt(std::max(CutBetween(below, lowest), lowest - leastGap * (last - shift)), Pencil::Side::Below);
  double const cut = m_current.shift;
  range.isComplete = Complete(-infinity, cut, 0);
  // The copies that were not found lie above the cut too, and may lie below those that were.
  for (FoundMode& mode : m_modes)
    if (mode.lambda > cut && mode.lambda < range.to) mode.error = std::max(mode.error, mode.lambda - cut);
  return range;
}

std::optional<double> ModeSearch::FindCut(Neighbourhood const& around, int count) const {
  double const shift = m_current.shift;
  double const reach = shift + around.reach;
  if (around.below < m_current.below) return {};
  for (auto k = static_cast<std::size_t>(count); k <= around.lambdas.size(); ++k) {
    double const last = around.lambdas[k - 1];
    if (last < shift) continue;
    if (!(last < reach)) return {};
    double const next = std::min(k < around.lambdas.size() ? around.lambdas[k] : infinity, reach);
    if (next == infinity) return {};
    if (next - last > leastGap * std::abs(last - shift)) return CutBetween(last, next);
  }
  return {};
}

double ModeSearch::LowerBound(double to, int count) {
  double from = Floor(to);
  for (int k = 0; k < mostHalvings && from != -infinity && CountBelow(to) > count + modesOfAShift; ++k) {
    FactorizeAt(MiddleOf(from, to), Pencil::Side::Below);
    (m_current.below >= count ? to : from) = m_current.shift;
  }
  return to;
}

ModeSearch::Range ModeSearch::FindLowest(int count) {
  m_goal.modes = count;
  FactorizeAt(m_pencil.StartShift(), Pencil::Side::Below);
  StepAside(0.0); // from rigid modes
  for (;;) {
    double const shift = m_current.shift;
    std::optional<double> cut; // a shift above `count` modes, or above all
    bool const isAll = Explore(count, [&](Neighbourhood const& around) {
      cut = FindCut(around, count);
      return cut.has_value();
    });
    if (!cut)
      if (std::optional<Range> const range = EndInCluster(count)) return *range;
    // As many modes as were found below it there are at least.
    auto const wanted = std::min(m_modes.size(), static_cast<std::size_t>(count));
    double const top = m_modes.empty() ? shift : isAll ? m_modes.back().lambda : m_modes[wanted - 1].lambda;
    if (!cut && isAll) cut = top + std::max(std::abs(top), std::abs(shift));
    if (cut && !m_isCertified && FoundBetween(-infinity, *cut) >= count) return {-infinity, *cut, true};
    // Without a cut the basis is full: on from the uppermost mode.
    if (!cut && !(top > shift)) return {-infinity, shift, false};
    FactorizeAt(cut ? *cut : top + leastGap * std::abs(top - shift), Pencil::Side::Above);
    double const to = cut ? m_current.shift : LowerBound(m_current.shift, count);
    bool const isComplete = Complete(-infinity, to, 0);
    if (!isComplete || isAll || FoundBetween(-infinity, to) >= count) return {-infinity, to, isComplete};
  }
}

std::optional<double> ModeSearch::FindRadius(Neighbourhood const& around, double center, int count) const {
  double const reach = around.reach - std::abs(m_current.shift - center);
  std::vector<double> distances;
  for (double const lambda : around.lambdas)
    if (double const distance = std::abs(lambda - center); distance < reach) distances.push_back(distance);
  std::ranges::sort(distances);
  for (auto k = static_cast<std::size_t>(count); k <= distances.size(); ++k) {
    double const last = distances[k - 1];
    double const next = k < distances.size() ? distances[k] : reach;
    if (next == infinity) return {};
    if (next - last > leastGap * last) return CutBetween(last, next);
  }
  return {};
}

ModeSearch::Range ModeSearch::FindNear(double lambda, int count) {
  m_goal.modes = count;
  FactorizeAt(lambda, Pencil::Side::Below);
  StepAside(lambda); // from modes at this very place
  double const shift = m_current.shift;
  int const below = m_current.below;
  std::optional<double> radius;
  bool const isAll = Explore(count, [&](Neighbourhood const& around) {
    radius = FindRadius(around, lambda, count);
    return radius.has_value();
  });
  double const top = m_modes.empty() ? shift : std::max(shift, m_modes.back().lambda);
  double from = radius ? lambda - *radius : -infinity;
  double to = radius ? lambda + *radius : top + std::max(std::abs(top), std::abs(shift));
  if (!m_isCertified && (isAll || FoundBetween(from, to) >= count)) return {from, to, true};
  if (FoundBetween(-infinity, shift) == below) from = -infinity; // all below the shift
  if (from != -infinity) {
    FactorizeAt(from, Pencil::Side::Below);
    from = m_current.shift;
  }
  FactorizeAt(to, Pencil::Side::Above);
  to = m_current.shift;
  bool const isComplete = Complete(from, to, 0);
  return {from, to, isComplete && (isAll || FoundBetween(from, to) >= count)};
}

ModeSearch::Range ModeSearch::FindBetween(double from, double to) {
  FactorizeAt(from, Pencil::Side::Below);
  double const lower = m_current.shift;
  FactorizeAt(to, Pencil::Side::Above);
  double const upper = m_current.shift;
  m_goal = {CountBelow(upper) - CountBelow(lower), lower, upper};
  return {lower, upper, Complete(lower, upper, 0)};
}

} // namespace orx
