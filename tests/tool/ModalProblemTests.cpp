#include "ToolSupport.h"

#include "tools/numerics/ModalProblem.h"

#include <cmath>
#include <numbers>
#include <numeric>

namespace {

using orx::tool::ModalSolution;
using orx::tool::Mode;
using orx::tool::SolveModes;
using std::numbers::pi;

std::vector<double> Eigenvalues(ModalSolution const& solution) {
  std::vector<double> values;
  for (Mode const& mode : solution.modes)
    values.push_back(mode.eigenvalue);
  return values;
}

void ExpectNear(std::vector<double> const& found, std::vector<double> const& expected, double tolerance) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i)
    EXPECT_NEAR(found[i], expected[i], tolerance) << "at " << i;
}

ORXSrvSparseMatrix SymmetricOf(int order, std::vector<Entry> const& lower) {
  return Assembled(lower, order, order).SymmetricForm();
}

ORXSrvSparseMatrix Identity(int order, double value = 1.0) {
  std::vector<Entry> diagonal;
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(order); ++i)
    diagonal.push_back({i, i, value});
  return SymmetricOf(order, diagonal);
}

/// Springs of stiffness 1 between `order` neighbours; with `fixed` also from both ends to the ground. Each
/// unknown is held by a spring of stiffness `soft`.
ORXSrvSparseMatrix Chain(int order, bool fixed, double soft = 0.0) {
  std::vector<Entry> lower;
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(order); ++i) {
    bool const isEnd = i == 0 || i + 1 == static_cast<std::uint32_t>(order);
    lower.push_back({i, i, (isEnd && !fixed ? 1.0 : 2.0) + soft});
    if (i > 0) lower.push_back({i, i - 1, -1.0});
  }
  return SymmetricOf(order, lower);
}

TEST(Modes, TwoMassesBetweenWalls) {
  //   2 -1       lambda 1 with (1, 1), 3 with (1, -1), at unit mass; both masses are 4
  //  -1  2
  ModalSolution const s = SolveModes(Symmetric({{2, -1}, {-1, 2}}), Identity(2, 4.0), 2);

  EXPECT_TRUE(s.isStiffnessDefinite);
  EXPECT_TRUE(s.isMassDefinite);
  EXPECT_EQ(s.shifts, std::vector<double>{0.0});
  EXPECT_EQ(s.infiniteEigenvalues, 0);
  ExpectNear(Eigenvalues(s), {0.25, 0.75}, 1e-15);
  double const scaled = 0.5 / std::sqrt(2.0); // x^T M x = 1
  ExpectNear(s.modes[0].shape, {scaled, scaled}, 1e-15);
  ExpectNear(s.modes[1].shape, {scaled, -scaled}, 1e-15);
  EXPECT_NEAR(orx::tool::Frequency(s.modes[0]), 0.25 / pi, 1e-15);
  EXPECT_LT(s.modes[1].residual, 1e-15);
}

TEST(Modes, MasslessUnknownsHaveInfiniteEigenvalues) {
  //   2 -1     M = diag(1, 0): the spring behind the massless unknown carries nothing, lambda = 2 - 1
  //  -1  1
  ModalSolution const s = SolveModes(Symmetric({{2, -1}, {-1, 1}}), Symmetric({{1, 0}, {0, 0}}), 2);

  EXPECT_TRUE(s.isStiffnessDefinite);
  EXPECT_FALSE(s.isMassDefinite);
  EXPECT_EQ(s.infiniteEigenvalues, 1);
  EXPECT_EQ(s.finiteEigenvalues, 1);
  ExpectNear(Eigenvalues(s), {1.0}, 1e-15);
  ExpectNear(s.modes[0].shape, {1.0, 1.0}, 1e-15);
}

TEST(Modes, FreeBodyHasARigidMode) {
  ModalSolution const s = SolveModes(Chain(2, false), Identity(2), 2);

  EXPECT_FALSE(s.isStiffnessDefinite);
  EXPECT_TRUE(s.isMassDefinite);
  EXPECT_GT(s.shifts.front(), 0.0);
  ExpectNear(Eigenvalues(s), {0.0, 2.0}, 1e-15);
  EXPECT_TRUE(s.modes[0].isRigid);
  EXPECT_EQ(orx::tool::Frequency(s.modes[0]), 0.0);
  EXPECT_FALSE(s.modes[1].isRigid);
}

TEST(Modes, FreeBodyWithAMasslessUnknown) {
  // Two unit masses, a massless joint between two unit springs: a spring of 1/2, lambda 0 and 1.
  ModalSolution const s = SolveModes(Chain(3, false), Symmetric({{1, 0, 0}, {0, 0, 0}, {0, 0, 1}}), 3);

  EXPECT_FALSE(s.isStiffnessDefinite);
  EXPECT_FALSE(s.isMassDefinite);
  EXPECT_EQ(s.infiniteEigenvalues, 1);
  ExpectNear(Eigenvalues(s), {0.0, 1.0}, 1e-14);
  EXPECT_TRUE(s.modes[0].isRigid);
  ExpectNear(s.modes[1].shape, {std::sqrt(0.5), 0.0, -std::sqrt(0.5)}, 1e-14);
}

TEST(Modes, BodyWithoutStiffnessIsAllRigid) {
  ModalSolution const s = SolveModes(SymmetricOf(3, {}), Symmetric({{2, 0, 0}, {0, 1, 0}, {0, 0, 1.1}}), 3);

  ASSERT_EQ(s.modes.size(), 3U);
  for (Mode const& mode : s.modes) {
    EXPECT_TRUE(mode.isRigid);
    EXPECT_EQ(mode.residual, 0.0) << "a residual of the rounding errors in lambda alone says nothing";
  }
}

TEST(Modes, NegativeStiffnessHasImaginaryFrequency) {
  ModalSolution const s = SolveModes(Symmetric({{-4, 0}, {0, 9}}), Identity(2), 2);

  ExpectNear(Eigenvalues(s), {-4.0, 9.0}, 1e-14);
  EXPECT_NEAR(orx::tool::Frequency(s.modes[0]), -1.0 / pi, 1e-15);
  EXPECT_FALSE(s.modes[0].isRigid);
}

TEST(Modes, IndefiniteMassIsCountedAndOrderedByMagnitude) {
  // lambda = 6 / 1, 1 / -1, 8 / 4
  ModalSolution const s = SolveModes(Symmetric({{6, 0, 0}, {0, 1, 0}, {0, 0, 8}}),
                                     Symmetric({{1, 0, 0}, {0, -1, 0}, {0, 0, 4}}), 3);

  EXPECT_EQ(s.negativeMasses, 1);
  ExpectNear(Eigenvalues(s), {-1.0, 2.0, 6.0}, 1e-14);
}

TEST(Modes, UnknownsWithoutStiffnessAndMassAreLeftOut) {
  ModalSolution const s = SolveModes(Symmetric({{2, 0, -1}, {0, 0, 0}, {-1, 0, 2}}),
                                     Symmetric({{1, 0, 0}, {0, 0, 0}, {0, 0, 1}}), 3);

  EXPECT_EQ(s.emptyUnknowns, (std::vector<int>{1}));
  EXPECT_TRUE(s.isMassDefinite);
  ExpectNear(Eigenvalues(s), {1.0, 3.0}, 1e-14);
  ExpectNear(s.modes[0].shape, {std::sqrt(0.5), 0.0, std::sqrt(0.5)}, 1e-14);
}

TEST(Modes, KnownErrorsOfKWidenWhatIsRigid) {
  ORXSrvSparseMatrix const noisy = Symmetric({{1, -1}, {-1, 1 - 1e-11}});

  ModalSolution const exact = SolveModes(noisy, Identity(2), 2);
  ModalSolution const rounded = SolveModes(noisy, Identity(2), 2, 1e-10);

  EXPECT_FALSE(exact.modes[0].isRigid);
  EXPECT_LT(orx::tool::Frequency(exact.modes[0]), 0.0);
  EXPECT_NEAR(exact.modes[0].stiffnessShare, 1e-11 / 4, 1e-13);
  EXPECT_TRUE(rounded.modes[0].isRigid);
  EXPECT_FALSE(rounded.modes[1].isRigid);
}

TEST(Modes, NoDefiniteCombinationIsAnError) {
  EXPECT_CONTAINS(Ending([] {
                    SolveModes(Symmetric({{1, 0}, {0, -4}}), Symmetric({{1, 0}, {0, 0}}), 1);
                  }),
                  "Unknown 2 has the diagonal values K = -4 and M = 0");
  EXPECT_CONTAINS(Ending([] { SolveModes(Identity(2, 1e308), Identity(2, 1e-300), 1); }),
                  "3 an eigenvalue that was asked for is beyond the range");
  EXPECT_CONTAINS(Ending([] { SolveModes(Identity(2), SymmetricOf(2, {}), 1); }),
                  "1 M holds no value other than 0");
}

// The first guess of the shift goes by the diagonals and is 11 decades too low here.
TEST(Modes, ShiftMovesToWhereTheEigenvaluesAre) {
  double const m = 1e8; // one heavy mass, two unit masses: m lambda^2 - (3m + 1) lambda + m + 2 = 0
  double const root = std::sqrt((3 * m + 1) * (3 * m + 1) - 4 * m * (m + 2));

  ModalSolution const s = SolveModes(Chain(3, false), Symmetric({{m, 0, 0}, {0, 1, 0}, {0, 0, 1}}), 3);

  EXPECT_TRUE(s.modes[0].isRigid);
  EXPECT_NEAR(s.modes[1].eigenvalue, 2 * (m + 2) / (3 * m + 1 + root), 1e-14);
  EXPECT_NEAR(s.modes[2].eigenvalue, (3 * m + 1 + root) / (2 * m), 1e-14);
}

// A free chain, softly held: lambda = e + 4 sin^2(k pi / 2n). Without a shift the first nu, 1/e, drowns the
// others in its rounding errors.
TEST(Modes, SoftlyHeldChainsAreAccurateAsFarAsIsClaimed) {
  for (int const n : {2, 3, 10, 100, 250})
    for (double const e : {0.0, 1e-16, 1e-15, 1e-14, 1e-13, 1e-12, 1e-9, 1e-6, 1e-3}) {
      ModalSolution const s = SolveModes(Chain(n, false, e), Identity(n), 10);

      ASSERT_EQ(s.modes.size(), static_cast<std::size_t>(std::min(n, 10)));
      EXPECT_EQ(s.infiniteEigenvalues, 0);
      for (std::size_t k = 0; k < s.modes.size(); ++k) {
        SCOPED_TRACE(orx::tool::Format("n %d, e %g, mode %zu, error %g", n, e, k + 1, s.modes[k].error));
        double const exact = e + 4.0 * std::pow(std::sin(static_cast<double>(k) * pi / (2.0 * n)), 2);
        if (s.modes[k].isRigid) {
          EXPECT_EQ(k, 0U);
          EXPECT_LT(e, 1e-12);
          continue;
        }
        double const difference = std::fabs(s.modes[k].eigenvalue / exact - 1.0);
        EXPECT_LE(difference, 2.0 * s.modes[k].error);
        EXPECT_LE(s.modes[k].error, k == 0 ? 0.5 : 1e-11);
      }
    }
}

// Unconnected oscillators over 20 decades: more than any one shift serves.
TEST(Modes, EigenvaluesOverManyDecadesAreAllAccurate) {
  for (bool const isFree : {false, true}) {
    std::vector<Entry> stiffness;
    for (std::uint32_t i = 0; i < 21; ++i)
      stiffness.push_back({i, i, isFree && i == 0 ? 0.0 : std::pow(10.0, i)});

    ModalSolution const s = SolveModes(SymmetricOf(21, stiffness), Identity(21), 21);

    ASSERT_EQ(s.modes.size(), 21U);
    for (std::size_t i = isFree ? 1 : 0; i < 21; ++i) {
      EXPECT_NEAR(s.modes[i].eigenvalue / stiffness[i].value, 1.0, 2.0 * s.modes[i].error);
      EXPECT_LE(s.modes[i].error, 2e-11) << i;
    }
  }
}

// All elastic modes of a ring but one come in pairs of one eigenvalue, whose vectors each solution chooses
// anew.
TEST(Modes, CloseEigenvaluesHaveOrthogonalVectorsAcrossShifts) {
  constexpr int n = 60, count = 40;
  bool wasSeam = false;
  for (int step = 0; step < 12; ++step) {
    std::vector<Entry> lower{{n - 1, 0, -1.0}};
    for (std::uint32_t i = 0; i < n; ++i) {
      lower.push_back({i, i, 2.0 + std::pow(10.0, -4.0 - 0.5 * step)});
      if (i > 0) lower.push_back({i, i - 1, -1.0});
    }

    ModalSolution const s = SolveModes(SymmetricOf(n, lower), Identity(n), count);

    wasSeam = wasSeam || s.shifts.size() > 1;
    for (int i = 0; i < count; ++i)
      for (int j = 0; j < i; ++j)
        ASSERT_NEAR(std::inner_product(s.modes[i].shape.begin(), s.modes[i].shape.end(),
                                       s.modes[j].shape.begin(), 0.0),
                    0.0, 1e-9)
            << "step " << step << ", modes " << i + 1 << " and " << j + 1;
  }
  EXPECT_TRUE(wasSeam);
}

// A structure of five unknowns told as one of six that depend on each other: x = T y, of which K and M know
// T^T K T and T^T M T. What remains of the sixth motion are rounding errors; in files of ten digits, larger
// ones.
TEST(Modes, MotionsThatBothMatricesTakeForNothingAreHeld) {
  double const t[5][6] = {{1, 0, 0, 0, 0, 0.3},
                          {0, 1, 0, 0, 0, -0.7},
                          {0, 0, 1, 0, 0, 1.1},
                          {0, 0, 0, 1, 0, 0.9},
                          {0, 0, 0, 0, 1, 0.2}};
  auto const told = [&](auto const& value, double rounding) {
    std::vector<Entry> lower;
    for (std::uint32_t i = 0; i < 6; ++i)
      for (std::uint32_t j = 0; j <= i; ++j) {
        double sum = 0.0;
        for (int k = 0; k < 5; ++k)
          for (int l = 0; l < 5; ++l)
            sum += t[k][i] * value(k, l) * t[l][j];
        lower.push_back({i, j, rounding == 0.0 ? sum : std::round(sum / rounding) * rounding});
      }
    return SymmetricOf(6, lower);
  };
  auto const chain = [](int k, int l) { return 7e9 * (k == l ? 2.0 : std::abs(k - l) == 1 ? -1.0 : 0.0); };
  auto const masses = [](int k, int l) { return k == l ? 3.0 : 0.0; };
  for (double const rounding : {0.0, 1e-10}) {
    ModalSolution const s = SolveModes(told(chain, 1e10 * rounding), told(masses, rounding), 6);

    EXPECT_EQ(s.heldUnknowns, std::vector<int>{5});
    EXPECT_EQ(s.negativeMasses + s.infiniteEigenvalues, 0);
    ASSERT_EQ(s.modes.size(), 5U);
    for (int k = 1; k <= 5; ++k) {
      double const exact = 7e9 / 3.0 * 4.0 * std::pow(std::sin(k * pi / 12.0), 2);
      EXPECT_NEAR(s.modes[k - 1].eigenvalue / exact, 1.0, rounding == 0.0 ? 1e-13 : 1e-8);
      EXPECT_LE(s.modes[k - 1].residual, rounding == 0.0 ? 1e-14 : 1e-8);
      EXPECT_EQ(s.modes[k - 1].shape[5], 0.0);
    }
  }
}

TEST(Modes, ARigidResidualIsMeasuredAgainstMoreThanItsRounding) {
  // A free mass beside an oscillator: the rigid shape has a rounding error in it, and all of K x is that.
  ModalSolution const s = SolveModes(Symmetric({{0, 0, 0}, {0, 1, 0.3}, {0, 0.3, 2}}),
                                     Symmetric({{1, 0, 0}, {0, 2, 1}, {0, 1, 3}}), 3);

  ASSERT_TRUE(s.modes[0].isRigid);
  EXPECT_LT(s.modes[0].residual, 1e-15);
}

} // namespace
