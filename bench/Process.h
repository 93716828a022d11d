#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <sys/resource.h>
#include <unistd.h>

namespace bench {

/// Seconds of a clock that never goes back.
inline double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Memory of this process that is resident now.
inline std::int64_t ResidentBytes() {
  std::int64_t all = 0;
  std::int64_t resident = 0;
  if (!(std::ifstream("/proc/self/statm") >> all >> resident))
    throw std::runtime_error("/proc/self/statm cannot be read");
  return resident * sysconf(_SC_PAGESIZE);
}

/// The most memory of this process that ever was resident.
inline std::int64_t PeakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return std::int64_t{usage.ru_maxrss} * 1024;
}

} // namespace bench
