#include "tools/numerics/SearchProgress.h"

#include "tools/terminal/Text.h"

#include "mtx/ORXSrvProgress.h"

#include <string_view>

namespace orx::tool {

SearchProgress::SearchProgress(Progress& progress) : m_progress(progress) {
  ORXSrvProgress::Set(Receive, this);
}

SearchProgress::~SearchProgress() { ORXSrvProgress::Set(nullptr, nullptr); }

bool SearchProgress::Receive(void* self, char const* operation, std::int64_t done, std::int64_t total) {
  auto& search = *static_cast<SearchProgress*>(self);
  std::string_view const ended = operation;
  if (ended == start)
    search.m_progress.BeginPhase("analysis");
  else if (ended == "ORXSrvModes, analysis")
    search.m_progress.BeginPhase("factorization 1");
  else if (ended == "ORXSrvModes, factorization")
    search.EndFactorization(done);
  else if (ended == "ORXSrvModes, modes")
    search.ShowModes(done - 1, total - 2);
  return true;
}

void SearchProgress::EndFactorization(std::int64_t number) {
  if (number == 1) m_secondsOfFirst = m_progress.SecondsOfPhase();
  m_factorizations = number;
  m_progress.BeginPhase(m_areAllKnown ? "completing" : "Lanczos");
}

void SearchProgress::ShowModes(std::int64_t found, std::int64_t wanted) {
  if (m_areAllKnown) return;
  m_areAllKnown = found >= wanted;
  if (!m_areAllKnown)
    m_progress.SetShare(Format("%d of %d modes", static_cast<int>(found), static_cast<int>(wanted)),
                        static_cast<double>(found) / static_cast<double>(wanted));
  else if (m_factorizations == 1)
    m_progress.BeginPhase("all modes found, factorization 2 counts them", m_secondsOfFirst);
  else
    m_progress.BeginPhase("all modes found, completing");
}

} // namespace orx::tool
