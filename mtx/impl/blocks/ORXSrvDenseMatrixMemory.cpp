#include "mtx/ORXSrvDenseMatrix.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <sys/resource.h>
#include <unistd.h>

// The memory that products may work with.

namespace {

constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();

std::int64_t MachineMemory() {
  std::int64_t const pages = sysconf(_SC_PHYS_PAGES);
  std::int64_t const pageBytes = sysconf(_SC_PAGESIZE);
  return pages > 0 && pageBytes > 0 ? pages * pageBytes : unlimited;
}

/// Limit of a container or a batch system; none if the file does not exist or says "max".
std::int64_t ControlGroupLimit() {
  std::int64_t least = unlimited;
  for (char const* const name :
       {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"}) {
    std::int64_t bytes = 0;
    if (std::ifstream(name) >> bytes && bytes > 0) least = std::min(least, bytes);
  }
  return least;
}

std::int64_t ResourceLimit(int resource) {
  rlimit limit{};
  bool const isLimited = getrlimit(static_cast<__rlimit_resource>(resource), &limit) == 0 &&
                         limit.rlim_cur < static_cast<rlim_t>(unlimited);
  return isLimited ? static_cast<std::int64_t>(limit.rlim_cur) : unlimited;
}

std::int64_t HalfOfMemory() {
  return std::min(
             {MachineMemory(), ControlGroupLimit(), ResourceLimit(RLIMIT_AS), ResourceLimit(RLIMIT_DATA)}) /
         2;
}

std::int64_t& WorkMemoryBytes() noexcept {
  static std::int64_t bytes = HalfOfMemory();
  return bytes;
}

} // namespace

void ORXSrvDenseMatrix::SetWorkMemory(std::int64_t bytes) noexcept {
  WorkMemoryBytes() = bytes > 0 ? bytes : HalfOfMemory();
}

std::int64_t ORXSrvDenseMatrix::WorkMemory() noexcept { return WorkMemoryBytes(); }
