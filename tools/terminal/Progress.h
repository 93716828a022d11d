#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace orx::tool {

/// Says what is being done and for how long, until it is destroyed:
///
///     orxmtx: modes of order 92610: Lanczos, 12 of 20 modes, 60 %, about 4 s left, 17 s
///
/// On a terminal from the third second on, in one line that is rewritten each second and erased at the end;
/// elsewhere a line each ten seconds, so that short work leaves nothing in a script's log.
class Progress {
public:
  using Clock = std::chrono::steady_clock;

  /// On standard error.
  explicit Progress(std::string const& activity);
  /// On another stream, which is a terminal or is treated as one; `second` stands for the second.
  Progress(std::string const& activity, std::FILE* stream, bool isTerminal, std::chrono::milliseconds second);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  /// A new phase has begun. `expected` is its length in seconds as far as it is known, else 0.
  void BeginPhase(std::string const& name, double expected = 0.0);
  /// How far the phase is: in words, and as a share from 0 to 1.
  void SetShare(std::string const& words, double share);
  /// Seconds since the phase has begun.
  double SecondsOfPhase() const;
  /// What is said now, after so many seconds in all.
  std::string TextAfter(int seconds) const;

private:
  struct Phase {
    std::string name, words;
    double expected = 0.0, share = 0.0;
    Clock::time_point begin = Clock::now();
  };

  double SecondsSince(Clock::time_point begin) const;
  void Tell();

  std::string const m_activity;
  std::FILE* const m_stream;
  bool const m_isTerminal;
  std::chrono::milliseconds const m_second;
  Clock::time_point const m_begin = Clock::now();
  mutable std::mutex m_mutex; ///< of what follows but the thread
  std::condition_variable m_wake;
  Phase m_phase;
  bool m_isOver = false;
  std::thread m_teller;
};

} // namespace orx::tool
