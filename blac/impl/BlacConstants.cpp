#include "blac/BLAC.h"

#include <array>
#include <bit>
#include <cstdint>

namespace {

/// Bit patterns rather than decimal numbers: hosts compare these values bit for bit.
constexpr std::array<std::uint64_t, 16> constants = {
    0x7FFFFFFFFFFFFFFF, // a NaN with all bits set, which differs from the NaN of an arithmetic operation
    0x7FD0000000000000, // 2^1022
    0x7FEFFFFFFFFFFFFF, // largest finite
    0x0010000000000000, // smallest normalized
    0x3CB0000000000000, // 2^-52
    0x3CA0000000000001, // the double just above 2^-53: 1 plus this is more than 1
    0x4000000000000000, // 2
    0x404A800000000000, // 53
    0x4086280000000000, // 709
    0xC086200000000000, // -708
    0x41DFFFFFFFC00000, // 2^31 - 1
    0x400921FB54442D18, // pi
    0x4005BF0A8B145769, // e
    0x3FE2788CFC6FB619, // gamma
    0x3F91DF46A2529D39, // pi / 180
    0x404CA5DC1A63C1F8, // 180 / pi
};

} // namespace

double BLAC_HDMCON(int const* index) {
  bool const known = *index >= 1 && *index <= static_cast<int>(constants.size());
  return std::bit_cast<double>(constants[static_cast<std::size_t>(known ? *index - 1 : 0)]);
}
