#include "file/Checksum.h"
#include "file/RunningChecksum.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string_view>
#include <vector>

using namespace orx::file;

// Files on disk have checksums of these bytes: the numbers never change.
TEST(Checksum, IsThatOfTheFileFormat) {
  std::string_view const text = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFG";
  EXPECT_EQ(Checksum(text.data(), text.size(), 1), 0x49a80a27badb2245u);
  EXPECT_EQ(Checksum(nullptr, 0, 1), 0xc31a359a98ec95c9u);
}

TEST(Checksum, OfPartsIsThatOfTheWholeWhereverTheyBeginAndEnd) {
  std::vector<unsigned char> bytes(131);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
  std::uint64_t const whole = Checksum(bytes.data(), bytes.size(), 9);
  for (std::size_t first = 0; first <= bytes.size(); ++first)
    for (std::size_t second = first; second <= bytes.size(); ++second) {
      RunningChecksum sum(9);
      sum.Add(bytes.data(), first);
      sum.Add(bytes.data() + first, second - first);
      sum.Add(bytes.data() + second, bytes.size() - second);
      ASSERT_EQ(sum.Value(), whole) << first << ", " << second;
    }
}
