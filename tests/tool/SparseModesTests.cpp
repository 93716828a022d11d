#include "ToolSupport.h"

#include "tools/numerics/ModalProblem.h"

#include <algorithm>
#include <cmath>
#include <numbers>

// Pairs that are solved without dense matrices.

namespace {

using orx::tool::ModalSolution;
using orx::tool::Mode;
using orx::tool::ModeChoice;
using orx::tool::SolveModes;

/// Springs of stiffness 1 between neighbours, the first `loose` unknowns without any; free at both ends.
ORXSrvSparseMatrix FreeChain(int order, int loose = 0) {
  std::vector<Entry> lower;
  for (auto i = static_cast<std::uint32_t>(loose); i < static_cast<std::uint32_t>(order); ++i) {
    bool const isEnd = i == static_cast<std::uint32_t>(loose) || i + 1 == static_cast<std::uint32_t>(order);
    lower.push_back({i, i, isEnd ? 1.0 : 2.0});
    if (!isEnd || i > static_cast<std::uint32_t>(loose)) lower.push_back({i, i - 1, -1.0});
  }
  if (loose > 0) // springs that hold two unknowns together and nothing else
    lower.insert(lower.end(), {{0, 0, 1.0}, {1, 0, -1.0}, {1, 1, 1.0}});
  return Assembled(lower, order, order).SymmetricForm();
}

ORXSrvSparseMatrix Masses(int order, int loose = 0) {
  std::vector<Entry> diagonal;
  for (auto i = static_cast<std::uint32_t>(loose); i < static_cast<std::uint32_t>(order); ++i)
    diagonal.push_back({i, i, 1.0});
  return Assembled(diagonal, order, order).SymmetricForm();
}

double ChainEigenvalue(int k, int order) {
  double const s = std::sin(k * std::numbers::pi / (2.0 * order));
  return 4 * s * s;
}

double Hertz(double eigenvalue) { return std::sqrt(eigenvalue) / (2 * std::numbers::pi); }

void ExpectChain(ModalSolution const& s, int first, int count, int order) {
  ASSERT_EQ(std::ssize(s.modes), count);
  for (int k = 0; k < count; ++k) {
    Mode const& mode = s.modes[static_cast<std::size_t>(k)];
    double const exact = ChainEigenvalue(first + k, order);
    EXPECT_NEAR(mode.eigenvalue, exact, 1e-11 * exact + 1e-13);
    EXPECT_EQ(mode.isRigid, first + k == 0);
    EXPECT_LE(std::fabs(mode.eigenvalue - exact), std::max(mode.error, 1e-13) * exact + 1e-13);
  }
}

TEST(SparseModes, AreTheSameAsDenseOnesAtTheOrderWhereTheyMeet) {
  ModalSolution const dense = SolveModes(FreeChain(499), Masses(499), 12);
  ModalSolution const sparse = SolveModes(FreeChain(501), Masses(501), 12);
  EXPECT_FALSE(dense.isSparse);
  EXPECT_TRUE(sparse.isSparse);
  ExpectChain(dense, 0, 12, 499);
  ExpectChain(sparse, 0, 12, 501);
}

TEST(SparseModes, NearAFrequencyOrBetweenTwoAreChosenAtAnyOrder) {
  for (int const order : {60, 3000}) {
    ModeChoice choice(3);
    choice.near = Hertz(ChainEigenvalue(7, order)) * 1.001;
    ExpectChain(SolveModes(FreeChain(order), Masses(order), choice), 6, 3, order);
    ModeChoice all;
    all.interval = {Hertz(ChainEigenvalue(4, order)) * 1.001, Hertz(ChainEigenvalue(21, order)) * 1.001};
    ExpectChain(SolveModes(FreeChain(order), Masses(order), all), 5, 17, order);
  }
}

TEST(SparseModes, AreNotReplacedByOthersWhereMassIsNegative) {
  // The dense solver takes such a mass, but finds the lowest modes only.
  ORXSrvSparseMatrix const mass = Assembled({{0, 0, 1.0}, {1, 1, -1.0}}).SymmetricForm();
  ModeChoice choice;
  choice.interval = {0.1, 0.2};
  EXPECT_CONTAINS(Ending([&] {
                    SolveModes(Assembled({{0, 0, 1.0}, {1, 1, 1.0}}).SymmetricForm(), mass, choice);
                  }),
                  "3 ORXSrvModes: M has -1 on the diagonal at unknown 2");
}

TEST(SparseModes, HoldWhatNothingHolds) {
  // Two unknowns tied to each other and to nothing else, without mass, and two of no matrix at all.
  int const order = 700;
  ModalSolution const s = SolveModes(FreeChain(order, 4), Masses(order, 4), 5);
  ExpectChain(s, 0, 5, order - 4);
  EXPECT_EQ(s.emptyUnknowns, (std::vector<int>{2, 3}));
  ASSERT_EQ(s.heldUnknowns.size(), 1u);
  EXPECT_LE(s.heldUnknowns[0], 1);
}

TEST(SparseModes, ArePrintedWithTheirCertificate) {
  TemporaryFolder const folder;
  std::string k, m;
  for (int i = 1; i <= 800; ++i) {
    k += std::to_string(i) + " " + std::to_string(i) + " 2\n";
    if (i > 1) k += std::to_string(i) + " " + std::to_string(i - 1) + " -1\n";
    m += std::to_string(i) + " " + std::to_string(i) + " 1\n";
  }
  std::string const pair = folder.Write("K.txt", k) + " " + folder.Write("M.txt", m);
  RunResult const result = RunTool("modes " + pair + " -n 3 --explain --budget 1GB");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_CONTAINS(result.out, "# order 800: the factor of K - sigma M has ");
  EXPECT_CONTAINS(result.out, "# sparse: block Lanczos, 2 factorizations of K - sigma M");
  EXPECT_CONTAINS(result.out, "counted by inertia, all found");
  auto const modes = ReadModes(result.out);
  ASSERT_EQ(modes.size(), 3u);
  double const s = std::sin(3 * std::numbers::pi / (2.0 * 801));
  EXPECT_NEAR(static_cast<double>(modes[2].eigenvalue), 4 * s * s, 1e-12 * 4 * s * s);

  EXPECT_EQ(RunTool("modes " + pair + " --interval 0.2 0.1").exitCode, 3);
  EXPECT_EQ(RunTool("modes " + pair + " --near nan").exitCode, 2);
  EXPECT_EQ(RunTool("modes " + pair + " --budget much").exitCode, 2);
}

} // namespace
