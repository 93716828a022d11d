#pragma once

#include <cstdint>

/// The use counter of a module: n starts need n stops, and only the outermost pair does work.
/// The counter is a plain unsigned 32-bit number: a stop too many wraps it, and the next start only brings
/// the counter back to 0. The tally is the host's count of modules that are up; all layers pass it on.
class ORXModuleCounter {
public:
  /// Counts a start. Returns true, and adds 1 to the tally, when the module must do the work of starting.
  bool Start(int& tally) noexcept {
    if (m_uses++ != 0) return false;
    ++tally;
    return true;
  }
  /// Counts a stop. Returns true, and takes 1 from the tally, when the module must do the work of stopping.
  bool Stop(int& tally) noexcept {
    if (--m_uses != 0) return false;
    --tally;
    return true;
  }

private:
  std::uint32_t m_uses = 0;
};
