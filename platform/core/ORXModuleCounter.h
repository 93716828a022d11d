#pragma once

#include <cstdint>

/// The use counter of a module: n starts need n stops, and only the outermost pair does work.
/// Plain unsigned 32-bit arithmetic: a stop too many wraps the counter, and the next start then only brings
/// it back to 0. The tally is the host's count of modules that are up, passed through all layers.
class ORXModuleCounter {
public:
  /// Counts a start; true when the module must really start, which adds 1 to the tally.
  bool Start(int& tally) noexcept {
    if (m_uses++ != 0) return false;
    ++tally;
    return true;
  }
  /// Counts a stop; true when the module must really stop, which takes 1 from the tally.
  bool Stop(int& tally) noexcept {
    if (--m_uses != 0) return false;
    --tally;
    return true;
  }

private:
  std::uint32_t m_uses = 0;
};
