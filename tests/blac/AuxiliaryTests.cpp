#include "BlacSupport.h"
#include "blac/BLAC.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <numbers>

namespace {

std::uint64_t BitsOfConstant(int index) { return std::bit_cast<std::uint64_t>(BLAC_HDMCON(&index)); }

} // namespace

TEST(Constants, AreThoseOfTheArithmeticAndOfMathematicsInEveryBit) {
  using limits = std::numeric_limits<double>;
  double const expected[] = {std::ldexp(1, 1022),
                             limits::max(),
                             limits::min(),
                             limits::epsilon(),
                             std::nextafter(std::ldexp(1, -53), 1),
                             limits::radix,
                             limits::digits,
                             std::trunc(std::log(limits::max())),
                             std::trunc(std::log(limits::min())),
                             INT_MAX,
                             std::numbers::pi,
                             std::numbers::e,
                             std::numbers::egamma,
                             std::numbers::pi / 180,
                             180 / std::numbers::pi};
  int index = 1;
  for (double const value : expected)
    EXPECT_EQ(BitsOfConstant(++index), std::bit_cast<std::uint64_t>(value)) << index;
}

TEST(Constants, OfIndexOneAndOfUnknownIndicesAreTheNanOfAllOnes) {
  for (int const index : {1, 0, -3, 17, INT_MAX, INT_MIN})
    EXPECT_EQ(BitsOfConstant(index), 0x7FFFFFFFFFFFFFFFU) << index;
}

TEST(Auxiliaries, TellPropertiesOfTheArithmetic) {
  using limits = std::numeric_limits<double>;
  EXPECT_EQ(BLAC_DLAMCH("E"), limits::epsilon() / 2);
  EXPECT_EQ(BLAC_DLAMCH("eps"), limits::epsilon() / 2);
  EXPECT_EQ(BLAC_DLAMCH("p"), limits::epsilon());
  EXPECT_EQ(BLAC_DLAMCH("O"), limits::max());
  EXPECT_EQ(BLAC_DLAMCH("B"), 2);
}

TEST(Auxiliaries, CompareLettersWithoutTheirCase) {
  EXPECT_NE(BLAC_LSAME("u", "U"), 0);
  EXPECT_NE(BLAC_LSAME("Upper", "u"), 0);
  EXPECT_EQ(BLAC_LSAME("U", "L"), 0);
}

TEST(Auxiliaries, FindInfinitiesAndNansAtWork) {
  float const zero = 0, one = 1;
  for (int const ispec : {0, 1})
    EXPECT_EQ(BLAC_IEEECK(&ispec, &zero, &one), 1) << ispec;
}

TEST(Auxiliaries, BlockSizeIsTheOneThatTheRoutineWorksWith) {
  int const blockSize = 1, n = 500, query = -1, unused = -1;
  double a = 0, work = 0;
  int info = 9;
  BLAC_DSYTRD("L", &n, &a, &n, &a, &a, &a, &work, &query, &info);
  ASSERT_EQ(info, 0);
  ASSERT_GT(work, n);

  // The lengths end the texts: what follows is not part of the name.
  EXPECT_EQ(BLAC_ILAENV(&blockSize, "DSYTRD", "L", &n, &unused, &unused, &unused, 6, 1) * n, work);
  EXPECT_EQ(BLAC_ILAENV(&blockSize, "dsytrd and more", "Lower", &n, &unused, &unused, &unused, 6, 1) * n,
            work);
  EXPECT_EQ(BLAC_ILAENV(&blockSize, "DSYTRD", "L", &n, &unused, &unused, &unused, 2, 1), 1);
}
