#include "ToolSupport.h"

#include "tools/commands/Info.h"

#include <limits>

namespace {

using orx::tool::Measure;
using orx::tool::Measures;

std::string InfoOf(std::string const& file) {
  TemporaryFolder const folder;
  return orx::tool::InfoText(folder.Write("a.txt", file));
}

TEST(Measure, FindsNormsBandsAndZeroLines) {
  //   3 -4  0  0
  //   0  0  0  0      row sums 7, 0, 5, column sums 8, 4, 0, 0
  //   5  0  0  0
  Measures const m = Measure(Sparse({{3, -4, 0, 0}, {0, 0, 0, 0}, {5, 0, 0, 0}}));

  EXPECT_EQ(m.norm1, 8.0);
  EXPECT_EQ(m.normInfinity, 7.0);
  EXPECT_DOUBLE_EQ(m.normFrobenius, std::sqrt(50.0));
  EXPECT_EQ(m.largest.value, 5.0);
  EXPECT_EQ(m.largest.row, 2U);
  EXPECT_EQ(m.lowerBandwidth, 2);
  EXPECT_EQ(m.upperBandwidth, 1);
  EXPECT_EQ(m.zeroRows, (std::vector<int>{1}));
  EXPECT_TRUE(m.zeroColumns.empty()) << "columns behind the last entry do not exist";
}

TEST(Measure, LeavesOutWhatIsNotFinite) {
  double const inf = std::numeric_limits<double>::infinity();

  Measures const m = Measure(Sparse({{1, 0}, {-inf, std::nan("")}}));

  EXPECT_EQ(m.notFinite, 2);
  EXPECT_EQ(m.firstNotFinite.row, 1U);
  EXPECT_EQ(m.firstNotFinite.value, -inf);
  EXPECT_EQ(m.norm1, 1.0);
  EXPECT_EQ(m.normFrobenius, 1.0);
  EXPECT_TRUE(m.zeroRows.empty());
}

TEST(Info, SaysHowSymmetricTheMatrixIs) {
  EXPECT_CONTAINS(InfoOf("1 1 2\n1 2 3\n2 1 3\n"), "exactly symmetric\n");
  EXPECT_CONTAINS(InfoOf("1 1 2\n2 1 3\n"), "lower triangle only");
  EXPECT_CONTAINS(InfoOf("1 1 2\n1 2 3\n"), "upper triangle only");
  EXPECT_CONTAINS(
      InfoOf("1 2 1\n2 1 1.00000000001\n"),
      "symmetric to rounding: relative difference 1e-11, worst pair (2, 1) = 1.00000000001, (1, 2) = 1\n");
  EXPECT_CONTAINS(InfoOf("1 2 1\n2 1 3\n"),
                  "symmetric pattern, unsymmetric values: relative difference 0.667");
  EXPECT_CONTAINS(InfoOf("1 2 1\n2 1 1\n1 3 4\n3 3 1\n"),
                  "unsymmetric pattern: 1 entry without a mirror image, first (3, 1) = 0, (1, 3) = 4");
}

TEST(Info, CountsStoredZerosAndListsZeroRowsFromOne) {
  std::string const text = InfoOf("1 1 0\n2 2 5\n4 4 1\n2 2 -1\n");

  EXPECT_CONTAINS(text, "shape:               4 x 4\n");
  EXPECT_CONTAINS(text, "stored entries:      3\n");
  EXPECT_CONTAINS(text, "stored zeros:        1\n");
  EXPECT_CONTAINS(text, "largest magnitude:   4.000000000000000e+00 at (2, 2)\n");
  EXPECT_CONTAINS(text, "zero rows:           2 (1, 3)\n");
}

TEST(Info, AcceptsAnEmptyFile) { EXPECT_CONTAINS(InfoOf(""), "shape:               0 x 0\n"); }

} // namespace
