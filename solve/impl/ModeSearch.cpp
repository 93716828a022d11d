#include "solve/impl/ModeSearch.h"

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
/// often than there is room for, and any of its copies are the lowest.
constexpr double clusterWidth = 1e-8;
/// So many copies beyond those that are wanted, and it is such a mode.
constexpr std::size_t copiesBeyond = 32;
/// More modes than this in an interval are shared out among several shifts.
constexpr int modesOfAShift = 120;
constexpr int mostSplits = 24;
/// Modes that lie so many times farther from a shift than those beside it deserve another one, at this share
/// of their distance.
constexpr double farAway = 100;
constexpr double shareOfNext = 0.3;

/// A value between two neighbours in a sorted list, nearer to the lower one: the upper one may still come
/// down.
double CutBetween(double lower, double upper) { return lower + 0.3 * (upper - lower); }

} // namespace

// Counting

int ModeSearch::CountBelow(double shift) const { return shift == -infinity ? 0 : m_counts.at(shift); }

int ModeSearch::FoundBetween(double from, double to) const {
  return static_cast<int>(std::ranges::count_if(
      m_modes, [&](FoundMode const& mode) { return mode.lambda > from && mode.lambda < to; }));
}

void ModeSearch::FactorizeAt(double shift, Pencil::Side side) {
  m_current = m_pencil.Factorize(shift, side, m_limits);
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
  std::int64_t const byMemory = m_limits.bytes / 3 / (8 * order);
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

bool ModeSearch::Complete(double from, double to, int depth) {
  auto const missing = [&] { return CountBelow(to) - CountBelow(from) - FoundBetween(from, to); };
  if (missing() == 0) return true;
  if (missing() < 0 || depth > mostSplits) return false;
  auto const explore = [&] {
    double const shift = m_current.shift;
    int const wanted = missing();
    Explore(wanted, [&](Neighbourhood const& around) {
      auto const inside = std::ranges::count_if(around.lambdas, [&](double l) { return l > from && l < to; });
      double const farthest =
          std::max(std::abs(to - shift), from == -infinity ? 0.0 : std::abs(shift - from));
      return inside >= CountBelow(to) - CountBelow(from) || (from != -infinity && around.seen > farthest);
    });
  };
  bool const isAtEnd = m_current.shift == from || m_current.shift == to;
  if (isAtEnd && missing() <= modesOfAShift) {
    explore();
    if (missing() <= 0) return missing() == 0;
  }
  double const lower = from == -infinity ? std::min(2 * to, to - 1.0) : from;
  double middle = lower + 0.5 * (to - lower);
  if (lower > 0.0) {
    double const root = 0.5 * (std::sqrt(lower) + std::sqrt(to)); // modes are spread by frequency
    middle = root * root;
  }
  FactorizeAt(from == -infinity ? lower : middle, Pencil::Side::Below);
  middle = m_current.shift;
  if (!(middle > from && middle < to)) return false;
  if (CountBelow(to) - CountBelow(from) - FoundBetween(from, to) <= modesOfAShift) explore();
  return Complete(from, middle, depth + 1) && Complete(middle, to, depth + 1);
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
  double cut = first > 0 ? CutBetween(m_modes[first - 1].lambda, lowest) : shift;
  if (m_isCertified && !m_counts.contains(cut)) {
    FactorizeAt(cut, Pencil::Side::Below);
    cut = m_current.shift;
  }
  return Range{-infinity, last + clusterWidth * (last - shift),
               !m_isCertified || Complete(-infinity, cut, 0)};
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

ModeSearch::Range ModeSearch::FindLowest(int count) {
  m_goal.modes = count;
  FactorizeAt(m_pencil.StartShift(), Pencil::Side::Below);
  StepAside(0.0); // from rigid modes
  for (;;) {
    double const shift = m_current.shift;
    std::optional<double> cut; // a shift above `count` modes, or above all
    bool const isAll = Explore(count, [&](Neighbourhood const& around) {
      cut = FindCut(around, count);
      auto const wanted = static_cast<std::size_t>(count);
      if (cut || around.lambdas.size() < wanted + copiesBeyond) return cut.has_value();
      double const last = around.lambdas[wanted - 1];
      return around.lambdas[wanted + copiesBeyond - 1] - last <= clusterWidth * std::abs(last - shift);
    });
    if (!cut)
      if (std::optional<Range> const range = EndInCluster(count)) return *range;
    double const top = m_modes.empty() ? shift : m_modes.back().lambda;
    if (!cut && isAll) cut = top + std::max(std::abs(top), std::abs(shift));
    if (cut && !m_isCertified && FoundBetween(-infinity, *cut) >= count) return {-infinity, *cut, true};
    // Without a cut the basis is full: on from the uppermost mode.
    if (!cut && !(top > shift)) return {-infinity, shift, false};
    FactorizeAt(cut ? *cut : top + leastGap * std::abs(top - shift), Pencil::Side::Above);
    double const to = m_current.shift;
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
