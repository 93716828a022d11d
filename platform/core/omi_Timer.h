#pragma once

#include "core/orx_export.h"

/// A stop watch of wall-clock and processor time, in seconds. Times add up over the intervals between Start
/// and Stop; while the timer runs, they include the current interval.
class ORX_EXPORT omi_Timer {
public:
  /// Begins an interval; a running timer goes on.
  void Start() noexcept;
  /// Ends the interval; a stopped timer stays as it is.
  void Stop() noexcept;
  /// Wall-clock seconds, from a clock that is never set back.
  double GetElapsedTime() const noexcept;
  /// Processor seconds of the whole process, user and system.
  double GetTotalCpuTime() const noexcept;

private:
  struct Reading {
    double elapsed = 0.0;
    double cpu = 0.0;
  };
  ORX_LOCAL static Reading ReadClocks() noexcept;

  Reading m_total;   ///< of the intervals that have ended
  Reading m_started; ///< clocks at the start of the current interval
  bool m_running = false;
};
