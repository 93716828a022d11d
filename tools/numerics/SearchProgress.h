#pragma once

#include "tools/terminal/Progress.h"

#include <cstdint>

namespace orx::tool {

/// Shows what the library reports of a search for modes, as long as it lives: analysis, factorizations, and
/// how many of the modes are known. The progress is lent. Other reports are not shown.
class SearchProgress {
public:
  /// What whoever starts a search reports before it; the analysis follows.
  static constexpr char start[] = "orxmtx, sparse modes";

  explicit SearchProgress(Progress& progress);
  SearchProgress(SearchProgress const&) = delete;
  SearchProgress& operator=(SearchProgress const&) = delete;
  ~SearchProgress();

private:
  static bool Receive(void* self, char const* operation, std::int64_t done, std::int64_t total);
  void EndFactorization(std::int64_t number);
  void ShowModes(std::int64_t found, std::int64_t wanted);

  Progress& m_progress;
  std::int64_t m_factorizations = 0;
  double m_secondsOfFirst = 0.0; ///< seconds that the first factorization took
  bool m_areAllKnown = false;    ///< what follows is for the certificate
};

} // namespace orx::tool
