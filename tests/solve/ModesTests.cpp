// Modes of models whose spectra are known.

#include "solve/ORXSrvModes.h"

#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "solve/ORXSrvSolveError.h"
#include "tests/solve/ModeChecks.h"
#include "tests/solve/SolveSupport.h"
#include "tests/support/Raised.h"
#include "tests/support/Shortage.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

TEST(Modes, OfAMembraneWithDoubleFrequenciesAreAllFound) {
  int const n = 50;
  Sparse const k = Grid(n, n), m = UnitMass(n * n);
  std::vector<double> const exact = GridEigenvalues(n, n);
  ORXSrvModes modes(k, m);
  for (int const count : {1, 2, 3, 25, 150}) {
    modes.FindLowest(count);
    ExpectModes(modes, First(exact, count), 8);
  }
  modes.FindBetween(Hertz(0.3), Hertz(0.5));
  ExpectModes(modes, Between(exact, 0.3, 0.5), 8);
  modes.FindBetween(Hertz(exact[30]), Hertz(exact[60])); // both bounds are modes
  ExpectModes(modes, Between(exact, exact[30] - 1e-12, exact[60] + 1e-12), 8);
  modes.FindBetween(Hertz(1e-9), Hertz(1e-6));
  ExpectModes(modes, {}, 8);
  modes.FindNear(Hertz(exact[40]), 2); // the shift is a mode, a double one
  ASSERT_EQ(modes.Modes().size(), 2u);
  for (ORXSrvMode const& mode : modes.Modes())
    EXPECT_NEAR(mode.eigenvalue, exact[40], 0.02);
}

TEST(Modes, AreTheSameWithABasisOutOfCore) {
  WorkingFolder const folder;
  int const n = 50;
  Sparse const k = Grid(n, n), m = UnitMass(n * n);
  ORXSrvModes modes(k, m);
  modes.SetMemory(4000000); // of 2500 unknowns 66 vectors
  modes.FindLowest(100);
  ExpectModes(modes, First(GridEigenvalues(n, n), 100), 8);
  EXPECT_TRUE(folder.Files().empty());
  std::string raised;
  {
    FullDisk const full;
    raised = Raised([&] { modes.FindLowest(100); });
  }
  EXPECT_EQ(raised.substr(0, 2), "70") << raised;
  EXPECT_TRUE(modes.Modes().empty());
  EXPECT_TRUE(folder.Files().empty());
}

TEST(Modes, OfAFreeBodyBeginWithRigidOnes) {
  int const n = 40;
  std::vector<double> exact = GridEigenvalues(n, n, true);
  for (double const stiffness : {1.0, 1e11}) {
    Sparse k = Grid(n, n, true);
    k.Scale(stiffness);
    Sparse const m = UnitMass(n * n);
    ORXSrvModes modes(k, m);
    modes.FindLowest(12);
    std::vector<double> expected = First(exact, 12);
    for (double& value : expected)
      value *= stiffness;
    ExpectModes(modes, expected, 8 * stiffness);
    EXPECT_TRUE(modes.Modes()[0].isRigid);
    EXPECT_FALSE(modes.Modes()[1].isRigid);
  }
}

TEST(Modes, OfOneFrequencyManyTimesAreAllFound) {
  // Equal chains, beside each other and not connected: every mode as many times.
  int const copies = 24, length = 20;
  std::vector<double> exact;
  for (double const value : GridEigenvalues(length, 1))
    exact.insert(exact.end(), copies, value);
  Sparse const k = Assembled(copies * length, [&](auto add) {
    for (int c = 0; c < copies; ++c)
      for (int i = 0; i < length; ++i) {
        add(c * length + i, c * length + i, 2.0 + (i == 0) + (i + 1 == length));
        if (i + 1 < length) AddSpring(add, c * length + i, c * length + i + 1, 1.0);
      }
  });
  Sparse const m = UnitMass(copies * length);
  ORXSrvModes modes(k, m);
  EXPECT_EQ(Raised([&] { modes.FindLowest(3 * copies); }), "nothing raised");
  ExpectModes(modes, First(exact, 3 * copies), 8);
  modes.FindLowest(7); // ends within a cluster
  ExpectModes(modes, First(exact, 7), 8);
}

TEST(Modes, WithMasslessUnknownsAreThoseOfTheCondensedModel) {
  // Every second node of a clamped chain has no mass: two springs in a row are one of half the stiffness.
  int const masses = 300, n = 2 * masses + 1;
  Sparse const k = Grid(n, 1, true);
  Sparse const clamped = Assembled(n, [&](auto add) {
    orx::ForEachEntry(k.View(), add);
    add(0, 0, 1.0), add(n - 1, n - 1, 1.0);
  });
  std::vector<double> diagonal(static_cast<std::size_t>(n), 0.0);
  for (int i = 1; i < n; i += 2)
    diagonal[static_cast<std::size_t>(i)] = 1.0;
  Sparse const m = DiagonalMatrix(diagonal), half = m.SymmetricForm();
  std::vector<double> exact;
  for (int i = 1; i <= masses; ++i)
    exact.push_back(2 * std::pow(std::sin(i * std::numbers::pi / (2.0 * (masses + 1))), 2));
  for (Sparse const* mass : {&m, &half}) {
    ORXSrvModes modes(clamped, *mass);
    modes.FindLowest(20);
    ExpectModes(modes, First(exact, 20), 2);
    // The massless node between two masses is in the middle of them.
    double const* const x = modes.Shape(19);
    EXPECT_NEAR(x[300], (x[299] + x[301]) / 2, 1e-8);
    modes.FindLowest(n); // more than there are
    ExpectModes(modes, exact, 2);
  }
}

TEST(Modes, OfAnIndefiniteStiffnessBeginBelowZero) {
  int const n = 30;
  Sparse const k = Grid(n, n);
  Sparse const lowered = Assembled(n * n, [&](auto add) {
    orx::ForEachEntry(k.View(), add);
    for (int i = 0; i < n * n; ++i)
      add(i, i, -0.15);
  });
  std::vector<double> exact = GridEigenvalues(n, n);
  for (double& value : exact)
    value -= 0.15;
  Sparse const m = UnitMass(n * n);
  ORXSrvModes modes(lowered, m);
  ASSERT_LT(exact[4], 0);
  for (int const count : {2, 15}) {
    modes.FindLowest(count);
    ExpectModes(modes, First(exact, count), 8);
  }
  modes.FindBetween(Hertz(-0.05), Hertz(0.05));
  ExpectModes(modes, Between(exact, -0.05, 0.05), 8);
}

TEST(Modes, HaveShapesOfUnitMassThatAreOrthogonal) {
  WorkingFolder const folder;
  int const n = 25, count = 12;
  Sparse const k = Grid(n, n);
  std::vector<double> masses(static_cast<std::size_t>(n * n));
  for (std::size_t i = 0; i < masses.size(); ++i)
    masses[i] = 1.0 + static_cast<double>(i % 7);
  Sparse const m = DiagonalMatrix(masses);
  ORXSrvModes modes(k, m);
  modes.FindLowest(count);
  ORXSrvMatrix shapes(n * n, count);
  modes.GetShapes(shapes);
  ORXSrvScratchDenseMatrix stored(n * n, count, 100, 5);
  modes.GetShapes(stored);
  std::vector<double> read(static_cast<std::size_t>(n * n * count));
  stored.GetAllValues(read.data());
  EXPECT_TRUE(std::equal(read.begin(), read.end(), shapes.Values()));
  for (int a = 0; a < count; ++a)
    for (int b = 0; b < count; ++b) {
      double sum = 0;
      for (int i = 0; i < n * n; ++i)
        sum += modes.Shape(a)[i] * masses[static_cast<std::size_t>(i)] * modes.Shape(b)[i];
      EXPECT_NEAR(sum, a == b, 1e-9);
    }
  ORXSrvMatrix wrong(n * n, count - 1);
  EXPECT_EQ(Raised([&] { modes.GetShapes(wrong); }),
            "401 ORXSrvModes: the matrix for shapes is 625 x 11; expected a full one of 625 x 12.");
}

TEST(Modes, FollowMatricesThatChange) {
  Sparse k = Grid(40, 3), m = UnitMass(120);
  ORXSrvModes modes(k, m);
  modes.FindLowest(2);
  double const before = modes.Modes()[1].eigenvalue;
  k.AddData(120, 120, 1.0);
  EXPECT_EQ(modes.NumberOfUnknowns(), 120); // the shapes are those of the analysis
  ORXSrvMatrix shapes(120, 2);
  EXPECT_EQ(Raised([&] { modes.GetShapes(shapes); }), "nothing raised");
  EXPECT_EQ(Raised([&] { modes.FindLowest(2); }).substr(0, 4), "401 ");
  k = Grid(40, 3);
  m.Scale(0.25);
  modes.FindLowest(2);
  EXPECT_NEAR(modes.Modes()[1].eigenvalue, 4 * before, 1e-9 * before);
  k = Grid(60, 4), m = UnitMass(240);
  modes.FindLowest(2); // another order and pattern
  ORXSrvModes anew(k, m);
  anew.FindLowest(2);
  EXPECT_NEAR(modes.Modes()[1].eigenvalue, anew.Modes()[1].eigenvalue, 1e-12);
  k.BeginAssembly();
  EXPECT_EQ(Raised([&] { modes.FindLowest(2); }).substr(0, 4), "401 ");
}

TEST(Modes, RefuseMatricesThatHaveNone) {
  Sparse const k = Grid(10, 10);
  auto const find = [&](Sparse const& stiffness, Sparse const& mass) {
    return Raised([&] { ORXSrvModes(stiffness, mass).FindLowest(4); });
  };
  EXPECT_EQ(find(k, UnitMass(99)),
            "401 ORXSrvModes: K is 100 x 100 and M is 99 x 99; expected square matrices of one order.");
  EXPECT_EQ(find(RandomMatrix(100, 0.1, false, 1), UnitMass(100)), "401 ORXSrvModes: K is not symmetric.");
  Sparse const unit = UnitMass(100);
  ORXSrvModes modes(k, unit);
  for (double const frequency :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(Raised([&] { modes.FindNear(frequency, 1); }).substr(0, 29),
              "401 ORXSrvModes: modes near " + std::string(1, "ni"[std::isinf(frequency)]));
    EXPECT_EQ(Raised([&] { modes.FindBetween(0.0, frequency); }).substr(0, 32),
              "401 ORXSrvModes: modes between 0");
  }
  std::vector<double> masses(100, 1.0);
  masses[17] = -1.0;
  EXPECT_EQ(find(k, DiagonalMatrix(masses)).substr(0, 46), "405 ORXSrvModes: M has -1 on the diagonal at u");
  Sparse const indefinite = Assembled(100, [](auto add) {
    for (int i = 0; i < 100; ++i)
      add(i, i, 1.0);
    add(3, 4, 2.0), add(4, 3, 2.0);
  });
  EXPECT_EQ(find(k, indefinite),
            "405 ORXSrvModes: M is indefinite, M(4, 5) is 2; expected at most 1, the root of "
            "the product of both diagonal entries.");
  // What rounding leaves where a massless unknown was turned is no negative mass.
  Sparse const noisy = Assembled(100, [](auto add) {
    for (int i = 0; i < 100; ++i)
      add(i, i, i == 3 ? -1e-33 : 1.0);
    add(3, 4, 1e-17), add(4, 3, 1e-17);
  });
  EXPECT_EQ(find(k, noisy), "nothing raised");
  Sparse grown = UnitMass(100);
  grown.AddData(100, 100, 1.0);
  EXPECT_EQ(find(k, grown).substr(0, 4), "401 ");
  masses[17] = 0.0;
  Sparse const loose = Assembled(100, [&](auto add) {
    orx::ForEachEntry(k.View(), [&](int i, int j, double v) {
      if (i != 17 && j != 17) add(i, j, v);
    });
  });
  std::string const text = find(loose, DiagonalMatrix(masses));
  EXPECT_EQ(text.substr(0, 4), "402 ");
  EXPECT_NE(text.find("unknown 18 (counted from 1)"), std::string::npos) << text;
  EXPECT_EQ(find(k, DiagonalMatrix(std::vector<double>(100, 0.0))), "nothing raised");
}

namespace {

/// What was reported: "factorization 1/2", "modes 5/10"; stops at the report whose text is given.
struct Reports {
  std::vector<std::string> texts;
  std::string stop;

  explicit Reports(std::string stopAt = {}) : stop(std::move(stopAt)) { ORXSrvProgress::Set(Record, this); }
  Reports(Reports const&) = delete;
  Reports& operator=(Reports const&) = delete;
  ~Reports() { ORXSrvProgress::Set(nullptr, nullptr); }

private:
  static bool Record(void* context, char const* operation, std::int64_t done, std::int64_t total) {
    auto& reports = *static_cast<Reports*>(context);
    std::string const name = operation;
    reports.texts.push_back(name.substr(name.find(", ") + 2) + " " + std::to_string(done) + "/" +
                            std::to_string(total));
    return reports.texts.back() != reports.stop;
  }
};

} // namespace

TEST(Modes, ReportTheirPhasesAndTheModesThatAreKnown) {
  Sparse const k = Grid(20, 17), m = UnitMass(20 * 17);
  ORXSrvModes modes(k, m);
  std::vector<double> const all = GridEigenvalues(20, 17);
  struct Case {
    std::function<void()> find;
    char const* last; // with all modes known
  };
  for (Case const& search : {Case{[&] { modes.FindLowest(8); }, "modes 9/10"},
                             Case{[&] { modes.FindNear(Hertz(all[40] * 1.0001), 5); }, "modes 6/7"},
                             Case{[&] {
                                    ORXSrvModes fresh(k, m);
                                    fresh.FindBetween(Hertz(all[9] * 1.0001), Hertz(all[29] * 1.0001));
                                  },
                                  "modes 21/22"}}) {
    Reports const reports;
    search.find();
    std::vector<std::string> ofModes, others;
    for (std::string const& text : reports.texts)
      (text.starts_with("modes") ? ofModes : others).push_back(text);
    ASSERT_FALSE(ofModes.empty());
    EXPECT_EQ(ofModes.back(), search.last);
    EXPECT_GT(std::ranges::count(others, "factorization 1/2") + std::ranges::count(others, "analysis 1/2"),
              0);
    EXPECT_EQ(std::ranges::count(others, "factorization 2/3"), 1);
  }
  for (char const* const phase : {"analysis 1/2", "factorization 1/2", "modes 1/10", "factorization 2/3"}) {
    ORXSrvModes stopped(k, m);
    {
      Reports const reports(phase);
      EXPECT_TRUE(Raised([&] { stopped.FindLowest(8); }).starts_with("301 ORXSrvModes, ")) << phase;
    }
    EXPECT_TRUE(stopped.Modes().empty());
    stopped.FindLowest(8);
    EXPECT_TRUE(stopped.IsCertified());
  }
}
