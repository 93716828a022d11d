#include "file/Checksum.h"

#include "file/RunningChecksum.h"

namespace orx::file {

std::uint64_t Checksum(void const* data, std::size_t bytes, std::uint64_t seed) noexcept {
  RunningChecksum sum(seed);
  sum.Add(data, bytes);
  return sum.Value();
}

} // namespace orx::file
