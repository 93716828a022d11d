#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orx::file {

/// The checksum of bytes that come in parts of any lengths, see Checksum. It is plain data: it can be sent to
/// another process, which goes on with the next part. The bytes before the last multiple of 32 are in four
/// independent sums, on which the processor works at the same time:
///
///     bytes   0 ...  7   8 ... 15   16 ... 23   24 ... 31   32 ... 39   ...   the last, fewer than 32
///     in      lanes[0]   lanes[1]   lanes[2]    lanes[3]    lanes[0]          tail
class RunningChecksum {
public:
  explicit RunningChecksum(std::uint64_t seed = 1) noexcept
      : m_seed(seed), m_lanes{seed, seed + 1, seed + 2, seed + 3} {}

  void Add(void const* data, std::size_t bytes) noexcept {
    auto const* at = static_cast<unsigned char const*>(data);
    std::size_t const before = TailBytes();
    m_bytes += bytes;
    if (before > 0) {
      std::size_t const taken = std::min(blockBytes - before, bytes);
      AppendToTail(before, at, taken);
      if (before + taken < blockBytes) return;
      AddBlocks(m_tail, 1);
      at += taken;
      bytes -= taken;
    }
    AddBlocks(at, bytes / blockBytes);
    AppendToTail(0, at + bytes / blockBytes * blockBytes, bytes % blockBytes);
  }

  /// Of all bytes so far.
  std::uint64_t Value() const noexcept {
    std::uint64_t sum = m_seed;
    for (std::uint64_t const lane : m_lanes)
      sum = Mix(sum, lane);
    for (std::size_t k = 0; k < TailBytes(); ++k)
      sum = Mix(sum, m_tail[k]);
    return Mix(sum, m_bytes);
  }

private:
  static constexpr std::size_t blockBytes = 32;

  static std::uint64_t Mix(std::uint64_t sum, std::uint64_t word) noexcept {
    sum = (sum ^ word) * 0x9E3779B97F4A7C15ull;
    return sum ^ (sum >> 29);
  }
  static std::uint64_t WordAt(unsigned char const* bytes) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
  }

  std::size_t TailBytes() const noexcept { return m_bytes % blockBytes; }
  void AppendToTail(std::size_t before, unsigned char const* at, std::size_t bytes) noexcept {
    if (bytes > 0) std::memcpy(m_tail + before, at, bytes);
  }
  void AddBlocks(unsigned char const* at, std::size_t blocks) noexcept {
    std::uint64_t lanes[4] = {m_lanes[0], m_lanes[1], m_lanes[2], m_lanes[3]};
    for (; blocks > 0; --blocks, at += blockBytes)
      for (std::size_t lane = 0; lane < 4; ++lane)
        lanes[lane] = Mix(lanes[lane], WordAt(at + 8 * lane));
    std::copy_n(lanes, 4, m_lanes);
  }

  std::uint64_t m_seed;
  std::uint64_t m_lanes[4];
  std::uint64_t m_bytes = 0;
  unsigned char m_tail[blockBytes] = {}; ///< the last m_bytes % 32 bytes
};

} // namespace orx::file
