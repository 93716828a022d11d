#pragma once

#include "solve/ORXSrvModes.h"
#include "solve/search/ModeSearch.h"

#include <cstdint>
#include <vector>

namespace orx {

/// Raises ORXSrvSolveError::illegalInput for what cannot be looked for.
void RequireCount(int count);
void RequireFrequency(double frequency);
void RequireInterval(double from, double to);

/// Of a frequency in Hz, with its sign.
double EigenvalueOf(double frequency);
/// The mode as users get it.
ORXSrvMode DescribeMode(FoundMode const& found);

/// Searches of one pencil and what the last one has found; ORXSrvModes says what they do.
class ModalAnalysis {
public:
  /// The pencil is lent.
  explicit ModalAnalysis(Pencil& pencil) : m_pencil(pencil) {}

  /// Forgets what was found. A third of `memory` bytes is for the vectors of Lanczos.
  void Begin(std::int64_t memory, bool isCertificateWanted);

  // Searches, once after each Begin, for what the functions above accept

  void FindLowest(int count);
  void FindNear(double frequency, int count);
  void FindBetween(double from, double to);

  /// Ascending by eigenvalue.
  std::vector<ORXSrvMode> const& Modes() const noexcept { return m_modes; }
  /// The same with shapes.
  std::vector<FoundMode> const& Found() const noexcept { return m_found; }
  std::vector<ORXSrvModeCount> const& Counts() const noexcept { return m_counts; }
  std::vector<double> const& Shifts() const noexcept { return m_shifts; }
  bool IsCertified() const noexcept { return m_isCertified; }

private:
  /// Performs a search, then keeps what select(modes) returns of the modes in its range.
  template<class Find, class Select>
  void Run(Find find, Select select);
  void SetCounts(ModeSearch const& search, ModeSearch::Range const& range);
  [[noreturn]] void RaiseNotCertified() const;

  Pencil& m_pencil;
  std::int64_t m_memory = 0;
  bool m_isCertificateWanted = true;
  bool m_isCertified = false;
  std::vector<ORXSrvMode> m_modes;
  std::vector<FoundMode> m_found; ///< as many as modes
  std::vector<ORXSrvModeCount> m_counts;
  std::vector<double> m_shifts;
};

} // namespace orx
