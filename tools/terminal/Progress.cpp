#include "tools/terminal/Progress.h"

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <unistd.h>

namespace orx::tool {
namespace {

constexpr int quietPeriods = 2;

/// Sleeps for a period; false when asked to stop.
bool SleepUnlessStopped(std::stop_token const& stop, std::chrono::milliseconds period) {
  std::mutex mutex;
  std::unique_lock lock(mutex);
  std::condition_variable_any wake;
  wake.wait_for(lock, stop, period, [] { return false; });
  return !stop.stop_requested();
}

void Tell(std::stop_token const& stop, std::string const& activity, std::FILE* stream,
          std::chrono::milliseconds period) {
  int periods = 0;
  while (SleepUnlessStopped(stop, period)) {
    if (++periods < quietPeriods) continue;
    std::fprintf(stream, "\r%s: %d s\033[K", activity.c_str(), periods);
    std::fflush(stream);
  }
  if (periods < quietPeriods) return;
  std::fputs("\r\033[K", stream);
  std::fflush(stream);
}

} // namespace

Progress::Progress(std::string const& activity, std::FILE* stream, std::chrono::milliseconds period)
    : m_teller([=](std::stop_token const& stop) { Tell(stop, "orxmtx: " + activity, stream, period); }) {}

Progress::Progress(std::string const& activity) {
  using namespace std::chrono_literals;
  if (isatty(STDERR_FILENO) == 1)
    m_teller =
        std::jthread([=](std::stop_token const& stop) { Tell(stop, "orxmtx: " + activity, stderr, 1000ms); });
}

} // namespace orx::tool
