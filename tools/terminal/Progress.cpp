#include "tools/terminal/Progress.h"

#include "tools/terminal/Program.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <unistd.h>

namespace orx::tool {
namespace {

using namespace std::chrono_literals;

/// Seconds before the first line, and from one to the next.
struct Rhythm {
  int first, step;
};
constexpr Rhythm onTerminal{2, 1}, elsewhere{10, 10};

/// Below this share of a phase its length is anybody's guess.
constexpr double leastShare = 0.1;

/// ", 60 %, about 4 s left"
std::string EstimateText(double share, double left) {
  constexpr double many = 120.0;
  std::string const time =
      left < many ? Format("%.0f s", std::max(1.0, left)) : Format("%.0f min", left / 60.0);
  return Format(", %.0f %%, about ", 100 * share) + time + " left";
}

} // namespace

Progress::Progress(std::string const& activity)
    : Progress(activity, stderr, isatty(STDERR_FILENO) == 1, 1000ms) {}

Progress::Progress(std::string const& activity, std::FILE* stream, bool isTerminal,
                   std::chrono::milliseconds second)
    : m_activity(activity), m_stream(stream), m_isTerminal(isTerminal), m_second(second),
      m_teller([this] { Tell(); }) {}

Progress::~Progress() {
  {
    std::lock_guard const lock(m_mutex);
    m_isOver = true;
  }
  m_wake.notify_one();
  m_teller.join();
}

void Progress::BeginPhase(std::string const& name, double expected) {
  std::lock_guard const lock(m_mutex);
  m_phase = {name, "", expected};
}

void Progress::SetShare(std::string const& words, double share) {
  std::lock_guard const lock(m_mutex);
  m_phase.words = words;
  m_phase.share = share;
}

double Progress::SecondsSince(Clock::time_point begin) const {
  return std::chrono::duration<double>(Clock::now() - begin) / m_second;
}

double Progress::SecondsOfPhase() const {
  std::lock_guard const lock(m_mutex);
  return SecondsSince(m_phase.begin);
}

std::string Progress::TextAfter(int seconds) const {
  std::lock_guard const lock(m_mutex);
  std::string text = ProgramName() + ": " + m_activity + ": ";
  text += m_phase.name;
  if (!m_phase.words.empty()) text += ", " + m_phase.words;
  double const ofPhase = SecondsSince(m_phase.begin);
  if (m_phase.share >= leastShare)
    text += EstimateText(m_phase.share, ofPhase / m_phase.share - ofPhase);
  else if (ofPhase < m_phase.expected)
    text += EstimateText(ofPhase / m_phase.expected, m_phase.expected - ofPhase);
  return text + Format(m_phase.name.empty() ? "%d s" : ", %d s", seconds);
}

void Progress::Tell() {
  Rhythm const rhythm = m_isTerminal ? onTerminal : elsewhere;
  std::unique_lock lock(m_mutex);
  int next = rhythm.first;
  for (; !m_wake.wait_until(lock, m_begin + next * m_second, [&] { return m_isOver; }); next += rhythm.step) {
    lock.unlock(); // the work does not wait for a slow terminal
    std::fprintf(m_stream, m_isTerminal ? "\r%s\033[K" : "%s\n", TextAfter(next).c_str());
    std::fflush(m_stream);
    lock.lock();
  }
  if (!m_isTerminal || next == rhythm.first) return;
  std::fputs("\r\033[K", m_stream);
  std::fflush(m_stream);
}

} // namespace orx::tool
