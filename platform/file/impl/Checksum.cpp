#include "file/Checksum.h"

#include <cstring>

namespace orx::file {

namespace {

std::uint64_t MixWord(std::uint64_t sum, std::uint64_t word) noexcept {
  sum = (sum ^ word) * 0x9E3779B97F4A7C15ull;
  return sum ^ (sum >> 29);
}

std::uint64_t WordAt(unsigned char const* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

} // namespace

std::uint64_t Checksum(void const* data, std::size_t bytes, std::uint64_t seed) noexcept {
  auto const* at = static_cast<unsigned char const*>(data);
  // The processor works on four independent sums at the same time; a single sum would wait for each
  // multiplication.
  std::uint64_t lanes[4] = {seed, seed + 1, seed + 2, seed + 3};
  std::size_t left = bytes;
  for (; left >= 32; left -= 32, at += 32)
    for (std::size_t lane = 0; lane < 4; ++lane)
      lanes[lane] = MixWord(lanes[lane], WordAt(at + 8 * lane));
  std::uint64_t sum = MixWord(MixWord(MixWord(MixWord(seed, lanes[0]), lanes[1]), lanes[2]), lanes[3]);
  for (; left > 0; --left, ++at)
    sum = MixWord(sum, *at);
  return MixWord(sum, bytes);
}

} // namespace orx::file
