#pragma once

#include "solve/search/BlockLanczos.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <vector>

namespace orx {

/// Finds modes by Lanczos at as many shifts as are needed, and counts them by inertia: between two shifts
/// there are as many eigenvalues as the negative pivots of the factorizations there differ by.
class ModeSearch {
public:
  /// A third of `memory` bytes is for the vectors of Lanczos.
  ModeSearch(Pencil& pencil, std::int64_t memory, bool isCertified)
      : m_pencil(pencil), m_memory(memory), m_isCertified(isCertified) {}

  // Each leaves more modes than asked for in Modes: those that were found on the way. Returns the bounds
  // between which all modes are found; when certified, counted.

  struct Range {
    double from, to;
    bool isComplete; ///< found as many as counted, or not certified
  };
  Range FindLowest(int count);
  Range FindNear(double lambda, int count);
  Range FindBetween(double from, double to);

  /// Ascending.
  std::vector<FoundMode> const& Modes() const noexcept { return m_modes; }
  /// Eigenvalues below each shift.
  std::map<double, int> const& Counts() const noexcept { return m_counts; }
  std::vector<double> const& Shifts() const noexcept { return m_shifts; }
  int FoundBetween(double from, double to) const;

private:
  /// What is known around the current shift while Lanczos goes on.
  struct Neighbourhood {
    std::vector<double> lambdas; ///< modes that were found before, and converged values; ascending
    double reach;                ///< every eigenvalue nearer to the shift is among them
    double seen; ///< distance of the farthest new value that has converged, all nearer ones too
    int below;   ///< of lambdas, below the shift
  };

  /// What is looked for, as far as it is known, for reports of progress.
  struct Goal {
    int modes = 0;
    double from = -std::numeric_limits<double>::infinity();
    double to = std::numeric_limits<double>::infinity();
  };

  void FactorizeAt(double shift, Pencil::Side side);
  /// Reports the number of modes that are known, after a block for which `around` may be null.
  void ReportModes(Neighbourhood const* around);
  /// Where modes lie at `center` and the shift is next to them, the others are so far away that rounding
  /// errors of these would cover them: moves the shift below the center, towards the others.
  void StepAside(double center);
  /// Extends Lanczos at the current shift until isDone(neighbourhood), and keeps the converged modes. Returns
  /// true when there is nothing more to find.
  template<class IsDone>
  bool Explore(int expected, IsDone isDone);
  Neighbourhood Look(BlockLanczos const& lanczos) const;
  void Keep(BlockLanczos& lanczos);
  /// Finds what is missing between two shifts that were factorized; `from` may be -infinity. Returns false
  /// when it gives up.
  bool Complete(double from, double to, int depth);
  /// The same below `to`, from a shift below all eigenvalues.
  bool CompleteFromBelow(double to, int depth);
  /// Explores at the current shift, as long as that finds modes that are missing between two others.
  void FindMissing(double from, double to);
  /// The uppermost shift below `to` that has no eigenvalues below it; -infinity if there is none.
  double Floor(double to) const;
  /// A shift at or below `to` that still has `count` eigenvalues below it, and not many more.
  double LowerBound(double to, int count);
  /// A shift in a gap above at least `count` modes, all of which are known; nothing if there is none yet.
  std::optional<double> FindCut(Neighbourhood const& around, int count) const;
  /// A distance from the center, in a gap on both sides, within which at least `count` modes are known.
  std::optional<double> FindRadius(Neighbourhood const& around, double center, int count) const;
  /// The end of a search for the lowest modes that lies within a mode which is there very often.
  std::optional<Range> EndInCluster(int count);
  int CountBelow(double shift) const;
  BlockLanczos::Size BasisSize(int expected) const;

  Pencil& m_pencil;
  std::int64_t m_memory;
  bool m_isCertified;
  ShiftFacts m_current;
  Goal m_goal;
  int m_found = 0; ///< modes of the goal that were known when they were last counted
  std::vector<FoundMode> m_modes;
  std::map<double, int> m_counts;
  std::vector<double> m_shifts;
  std::size_t m_runs = 0; ///< of Lanczos
};

} // namespace orx
