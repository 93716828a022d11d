#include "ToolSupport.h"

#include "tools/commands/Compare.h"

#include <limits>

namespace {

using orx::tool::Compare;
using orx::tool::Difference;

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Compare, FindsTheWorstDifferencesAndTheirPlaces) {
  //  1    100     1    101      absolute 1 at (1, 2), relative 1/2 at (2, 1)
  //  0.5    0     1      0
  Difference const d = Compare(Sparse({{1, 100}, {0.5, 0}}), Sparse({{1, 101}, {1, 0}}));

  EXPECT_EQ(d.absolute, 1.0);
  EXPECT_EQ(d.absoluteAt.row, 0U);
  EXPECT_EQ(d.absoluteAt.column, 1U);
  EXPECT_EQ(d.absoluteAt.b, 101.0);
  EXPECT_EQ(d.relative, 0.5);
  EXPECT_EQ(d.relativeAt.row, 1U);
  EXPECT_EQ(d.relativeAt.column, 0U);
  EXPECT_EQ(d.relativeAt.a, 0.5);
  EXPECT_EQ(d.inBoth, 3);
}

TEST(Compare, CountsWhatOnlyOneOfThemStores) {
  //  1 . 2     1 3 .
  //  . . .     . . 4
  //  . 5 .     . . .
  Difference const d = Compare(Sparse({{1, 0, 2}, {0, 0, 0}, {0, 5, 0}}), Sparse({{1, 3, 0}, {0, 0, 4}}));

  EXPECT_EQ(d.inBoth, 1);
  EXPECT_EQ(d.onlyInA, 2);
  EXPECT_EQ(d.onlyInB, 2);
  EXPECT_EQ(d.absolute, 5.0);
  EXPECT_EQ(d.relative, 1.0);
}

TEST(Compare, ExtremeValues) {
  double const nan = std::numeric_limits<double>::quiet_NaN();
  double const large = std::numeric_limits<double>::max();

  EXPECT_EQ(Compare(Sparse({{nan, infinity}}), Sparse({{nan, infinity}})).relative, 0.0);
  EXPECT_EQ(Compare(Sparse({{nan, 1}}), Sparse({{1, 1}})).relative, infinity);
  EXPECT_EQ(Compare(Sparse({{infinity}}), Sparse({{-infinity}})).relative, infinity);
  EXPECT_EQ(Compare(Sparse({{large}}), Sparse({{-large}})).relative, 2.0);
  EXPECT_EQ(Compare(Sparse({{0x1p-1074}}), Sparse({{0x1p-1073}})).relative, 0.5);
}

class ComparedFiles : public testing::Test {
protected:
  RunResult Cmp(std::string const& a, std::string const& b, std::string const& options = "") const {
    return RunTool("cmp " + options + " '" + m_folder.Write("a", a) + "' '" + m_folder.Write("b", b) + "'");
  }
  TemporaryFolder m_folder;
};

TEST_F(ComparedFiles, EqualIsExitCode0WhateverTheTypes) {
  RunResult const result = Cmp("1 1 2\n2 1 -1\n", General("2 1 2\n2 1 -1\n1 1 2\n"));

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_CONTAINS(result.out, "only in A:           0\n");
  EXPECT_CONTAINS(result.out, "result:              equal\n");
}

TEST_F(ComparedFiles, ToleranceDecides) {
  std::string const a = "1 1 1\n2 2 8\n", b = "1 1 1\n2 2 8.0000008\n";

  RunResult const exact = Cmp(a, b), tolerant = Cmp(a, b, "--tolerance 1e-6");

  EXPECT_EQ(exact.exitCode, 1);
  EXPECT_EQ(exact.err, "");
  EXPECT_CONTAINS(exact.out, "worst absolute:      8e-07 at (2, 2): A 8, B 8.0000008\n");
  EXPECT_CONTAINS(exact.out, "worst relative:      1e-07 at (2, 2)");
  EXPECT_CONTAINS(exact.out, "result:              different by more than 0 in 1 position\n");
  EXPECT_EQ(tolerant.exitCode, 0);
  EXPECT_CONTAINS(tolerant.out, "result:              equal within 1e-06\n");
}

TEST_F(ComparedFiles, EachPositionMayMeetEitherTolerance) {
  std::string const a = "1 1 1e-20\n2 2 8\n", b = "1 1 -3e-20\n2 2 8.0000008\n";

  RunResult const relative = Cmp(a, b, "--tolerance 1e-6");

  EXPECT_EQ(relative.exitCode, 1);
  EXPECT_CONTAINS(relative.out, "different by more than 1e-06 in 1 position\n");
  EXPECT_EQ(Cmp(a, b, "--absolute 1e-12").exitCode, 1);
  EXPECT_EQ(Cmp(a, b, "--absolute 1e-3").exitCode, 0);
  EXPECT_CONTAINS(Cmp(a, b, "--tolerance 1e-6 --absolute 1e-12").out,
                  "equal within 1e-06 relative or 1e-12 absolute\n");
}

TEST_F(ComparedFiles, AStoredZeroEqualsWhatIsNotStored) {
  RunResult const result = Cmp("1 1 1\n1 2 0\n2 2 1\n", "1 1 1\n2 2 1\n");

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_CONTAINS(result.out, "only in A:           1\n");
}

TEST_F(ComparedFiles, OtherShapesAreDifferent) {
  RunResult const result = Cmp("1 1 1\n", "2 3 1\n");

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_CONTAINS(result.out, "different shapes: A 1 x 1, B 2 x 3\n");
}

TEST_F(ComparedFiles, ErrorsAreExitCode2) {
  EXPECT_EQ(Cmp("1 1 1\n", "1 x 1\n").exitCode, 2);
  EXPECT_EQ(Cmp("1 1 1\n", "1 1 1\n", "--tolerance -1").exitCode, 2);
  EXPECT_EQ(RunTool("cmp '" + m_folder.Write("a", "1 1 1\n") + "'").exitCode, 2);
  RunResult const missing = RunTool("cmp '" + m_folder.Path("a") + "' '" + m_folder.Path("none") + "'");
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_EQ(missing.out, "");
  EXPECT_CONTAINS(missing.err, "none': No such file or directory");
}

} // namespace
