// Factorization and solution against dense algebra, and what it says of matrices that have no inverse.

#include "blac/BLAC.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "solve/ORXSrvSolveError.h"
#include "solve/ORXSrvSparseFactor.h"
#include "tests/solve/SolveSupport.h"
#include "tests/support/Raised.h"
#include "tests/support/Shortage.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

int CountNegative(Dense a) {
  std::vector<double> w(static_cast<std::size_t>(a.rows)), work(static_cast<std::size_t>(a.rows) * 40);
  int const lwork = static_cast<int>(work.size());
  int info = 0;
  BLAC_DSYEV("N", "U", &a.rows, a.Data(), &a.ld, w.data(), work.data(), &lwork, &info);
  EXPECT_EQ(info, 0);
  return static_cast<int>(std::count_if(w.begin(), w.end(), [](double x) { return x < 0; }));
}

double OneNorm(Dense const& a) {
  double largest = 0.0;
  for (int j = 0; j < a.columns; ++j) {
    double sum = 0.0;
    for (int i = 0; i < a.rows; ++i)
      sum += std::abs(a(i, j));
    largest = std::max(largest, sum);
  }
  return largest;
}

/// By the dense inverse.
double Condition(Dense a) {
  Dense inverse = Identity(a.rows, 0);
  std::vector<int> pivots(static_cast<std::size_t>(a.rows));
  int info = 0;
  double const norm = OneNorm(a);
  BLAC_DGESV(&a.rows, &a.rows, a.Data(), &a.ld, pivots.data(), inverse.Data(), &inverse.ld, &info);
  EXPECT_EQ(info, 0);
  return norm * OneNorm(inverse);
}

/// Checks that solving recovers random vectors.
void ExpectSolves(ORXSrvSparseFactor& factor, Dense const& a, double tolerance) {
  Dense const x = Random(a.rows, 11);
  Dense b = a * x;
  factor.Solve(b.Data(), b.columns);
  EXPECT_TRUE(Near(x, b, tolerance));
}

} // namespace

TEST(SparseFactor, SolvesWhatDenseAlgebraSolvesAndCountsItsSigns) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    int const order = 40 * static_cast<int>(seed);
    Sparse const k = RandomMatrix(order, 0.08, true, seed), m = RandomMatrix(order, 0.02, true, seed + 100);
    ORXSrvSparseFactor factor;
    factor.Factorize(k);
    EXPECT_TRUE(factor.Facts().isSymmetric);
    EXPECT_EQ(factor.Facts().negative, CountNegative(ToDense(k)));
    EXPECT_EQ(factor.Facts().negative + factor.Facts().positive, order);
    ExpectSolves(factor, ToDense(k), 1e-9);

    // One triangle, stored below or above the diagonal, is the same matrix; so is K - shift M of any two
    // forms.
    for (bool const upper : {false, true}) {
      Sparse const half = k.SymmetricForm(upper);
      factor.Factorize(half, 0.7, m);
      Dense const shifted = ToDense(k) + -0.7 * ToDense(m);
      EXPECT_EQ(factor.Facts().negative, CountNegative(shifted));
      ExpectSolves(factor, shifted, 1e-9);
    }
    Sparse const u = RandomMatrix(order, 0.08, false, seed);
    factor.Factorize(u, -2.5, m);
    EXPECT_FALSE(factor.Facts().isSymmetric);
    ExpectSolves(factor, ToDense(u) + 2.5 * ToDense(m), 1e-9);
  }
}

TEST(SparseFactor, SolvesMatricesInMemoryAndOutOfCoreAlike) {
  WorkingFolder const folder;
  Sparse const k = Grid(30, 20);
  ORXSrvSparseFactor factor;
  factor.Factorize(k);
  Dense const loads = Random(600, 70);
  Dense expected = loads;
  factor.Solve(expected.Data(), 70);
  ORXSrvMatrix inMemory(600, 70);
  std::copy(loads.values.begin(), loads.values.end(), inMemory.Values());
  ORXSrvScratchDenseMatrix outOfCore(600, 70, 128, 16);
  outOfCore.SetColumns(0, 69, inMemory);
  factor.Solve(inMemory);
  factor.Solve(outOfCore);
  Dense read(600, 70);
  outOfCore.GetAllValues(read.Data());
  EXPECT_TRUE(
      Near(expected, Filled(600, 70, [&](int i, int j) { return inMemory.Values()[i + 600 * j]; }), 1e-12));
  EXPECT_TRUE(Near(expected, read, 1e-12));

  std::vector<double> x(600 * 3);
  EXPECT_LT(factor.SolveRefined(loads.Data(), x.data(), 3), 1e-15);
  EXPECT_NEAR(x[1234], expected.values[1234], 1e-11);
  EXPECT_EQ(Raised([&] { factor.SolveRefined(x.data(), x.data() + 600, 2); }),
            "401 ORXSrvSparseFactor::SolveRefined: the 2 vectors of b and x overlap; expected two arrays.");
  EXPECT_EQ(Raised([&] {
              ORXSrvMatrix wrong(599, 2);
              factor.Solve(wrong);
            }),
            "401 ORXSrvSparseFactor::Solve: x is 599 x 2; expected a full matrix of 600 rows.");
}

TEST(SparseFactor, GivesTheSameBitsEachTimeAndAnalysesAPatternOnce) {
  Sparse const k = Grid(40, 40), m = UnitMass(1600);
  std::vector<double> first(1600, 1.0), again(1600, 1.0);
  Recording const recording;
  ORXSrvSparseFactor factor;
  factor.Factorize(k, 0.5, m);
  factor.Solve(first.data(), 1);
  factor.Factorize(k, 0.1, m);
  factor.Factorize(k, 0.5, m);
  factor.Solve(again.data(), 1);
  EXPECT_EQ(first, again);
  ORXSrvSparseFactor other;
  std::vector<double> others(1600, 1.0);
  other.Factorize(k, 0.5, m);
  other.Solve(others.data(), 1);
  EXPECT_EQ(first, others);
  EXPECT_EQ(std::ranges::count(recording.Reported(), "ORXSrvSparseFactor::Analyse"), 2);
  EXPECT_EQ(std::ranges::count(recording.Reported(), "ORXSrvSparseFactor::Factorize"), 4);
}

TEST(SparseFactor, NamesTheUnknownsOfASingularMatrix) {
  // A free chain, an unknown without stiffness, and an unknown that is not stored at all.
  int const n = 400;
  Sparse const k = Assembled(n, [&](auto add) {
    for (int i = 0; i + 3 < n; ++i)
      AddSpring(add, i, i + 1, 1e6 * (1 + i % 3));
    add(n - 2, n - 2, 0.0);
  });
  ORXSrvSparseFactor factor;
  factor.Factorize(k);
  ORXSrvFactorFacts const& facts = factor.Facts();
  EXPECT_EQ(facts.zero, 3);
  EXPECT_EQ(facts.negative, 0);
  EXPECT_EQ(facts.positive, n - 3);
  ASSERT_EQ(facts.nullUnknowns.size(), 3u);
  EXPECT_LT(facts.nullUnknowns[0], n - 2);
  EXPECT_EQ(facts.nullUnknowns[1], n - 2);
  EXPECT_EQ(facts.nullUnknowns[2], n - 1);
  std::vector<double> b(n, 0.0), x(n);
  b[3] = 1.0, b[200] = -1.0; // in balance: the chain can carry it
  std::string const text = Raised([&] { factor.Solve(b.data(), 1); });
  EXPECT_EQ(text, "402 ORXSrvSparseFactor::Solve: the matrix is singular, 3 independent motions meet no "
                  "resistance; held they are at unknowns (counted from 1) " +
                      std::to_string(facts.nullUnknowns[0] + 1) + ", 399, 400.");
  factor.HoldNullUnknowns(true);
  EXPECT_LT(factor.SolveRefined(b.data(), x.data(), 1), 1e-9);
  EXPECT_EQ(x[facts.nullUnknowns[0]], 0.0);
}

TEST(SparseFactor, TellsASlenderBodyFromAFreeOne) {
  // Rounding errors of K weigh more the longer a beam in bending is: beyond 4000 elements they would hold it.
  for (int const elements : {50, 1000, 3000}) {
    Beam const clamped(elements, {0, 1}), isFree(elements);
    ORXSrvSparseFactor factor;
    factor.Factorize(clamped.K());
    EXPECT_EQ(factor.Facts().zero, 0) << elements;
    EXPECT_LT(factor.Facts().backwardError, 1e-14);
    EXPECT_GT(factor.Facts().backwardError, 0);
    factor.Factorize(isFree.K());
    EXPECT_EQ(factor.Facts().zero, 2) << elements;
    EXPECT_EQ(factor.Facts().negative, 0) << elements;
  }
}

TEST(SparseFactor, FindsEachMechanismOfManyParts) {
  // 45 free beams of other lengths and stiffnesses, two of them hinged to each other, numbered at random.
  int const parts = 45;
  std::vector<int> number(parts * 2 * 31);
  std::iota(number.begin(), number.end(), 0);
  std::shuffle(number.begin(), number.end(), std::mt19937_64(3));
  int order = 0;
  Sparse const k = Assembled(static_cast<int>(number.size()), [&](auto add) {
    for (int part = 0; part < parts; ++part) {
      Beam const beam(part % 30 + 1);
      orx::ForEachEntry(beam.K().View(), [&](int i, int j, double value) {
        add(number[static_cast<std::size_t>(order + i)], number[static_cast<std::size_t>(order + j)],
            value * std::pow(10.0, part % 7));
      });
      order += beam.Order();
    }
    AddSpring(add, number[0], number[4], 1e3);
  });
  int const unused = k.NumberOfRows() - order;
  Sparse const half = k.SymmetricForm();
  for (Sparse const* form : {&k, &half}) {
    ORXSrvSparseFactor factor;
    factor.Factorize(*form);
    EXPECT_EQ(factor.Facts().zero, 2 * parts - 1 + unused);
    EXPECT_EQ(factor.Facts().negative, 0);
    // What is held carries no load when the loads are in balance.
    Dense const b = ToDense(k) * Random(k.NumberOfRows(), 1);
    Dense x(k.NumberOfRows(), 1);
    factor.HoldNullUnknowns(true);
    factor.SolveRefined(b.Data(), x.Data(), 1);
    EXPECT_TRUE(Near(ToDense(k) * x, b, 1e-13 * std::abs(*std::ranges::max_element(b.values))));
  }
}

TEST(SparseFactor, FindsAMechanismAtEachOfManyNodes) {
  // Nodes of a plane in a row, which resist across a direction of their own only: they are free along it.
  int const nodes = 1500;
  std::mt19937_64 generator(7);
  std::uniform_real_distribution<double> angle(0, 3);
  std::vector<std::array<double, 2>> across;
  for (int i = 0; i < nodes; ++i) {
    double const a = angle(generator);
    across.push_back({std::cos(a), std::sin(a)});
  }
  Sparse const k = Assembled(2 * nodes, [&](auto add) {
    for (int i = 0; i < nodes; ++i)
      for (int j = std::max(0, i - 1); j <= std::min(i + 1, nodes - 1); ++j)
        for (int c = 0; c < 2; ++c)
          for (int d = 0; d < 2; ++d)
            add(2 * i + c, 2 * j + d, (i == j ? 2.5 : -1.0) * (across[i][c] * across[j][d]));
  });
  ORXSrvSparseFactor factor;
  factor.Factorize(k);
  EXPECT_EQ(factor.Facts().zero, nodes);
  EXPECT_EQ(factor.Facts().negative, 0);
  EXPECT_EQ(factor.Facts().positive, nodes);
  EXPECT_LT(factor.Facts().backwardError, 1e-14);
}

TEST(SparseFactor, KeepsFactorsOnDiskWhenTheBudgetIsSmall) {
  WorkingFolder const folder;
  Sparse const k = Grid(300, 300);
  std::vector<double> inMemory(90000, 1.0), onDisk(90000, 1.0);
  ORXSrvSparseFactor factor;
  ORXSrvFactorEstimate const estimate = factor.Analyse(k);
  ASSERT_LT(estimate.bytesOnDisk, estimate.bytes);
  factor.SetMemory(estimate.bytes);
  factor.Factorize(k);
  EXPECT_FALSE(factor.Facts().isOnDisk);
  factor.Solve(inMemory.data(), 1);

  factor.SetMemory(estimate.bytes - 1);
  factor.SetFolder("/nowhere/at/all");
  EXPECT_EQ(Raised([&] { factor.Factorize(k); }).substr(0, 46),
            "404 A folder for factors on disk, /nowhere/at/");
  factor.SetFolder(".");
  for (int time = 0; time < 2; ++time) { // the files of the first factor make way for those of the second
    factor.Factorize(k);
    EXPECT_TRUE(factor.Facts().isOnDisk);
  }
  EXPECT_EQ(folder.Files().size(), 1u);
  factor.Solve(onDisk.data(), 1);
  for (std::size_t i = 0; i < onDisk.size(); ++i)
    ASSERT_NEAR(onDisk[i], inMemory[i], 1e-10 * std::abs(inMemory[i]));
  {
    FullDisk const full;
    EXPECT_EQ(Raised([&] { factor.Factorize(k); }).substr(0, 4), "404 ");
  }
  EXPECT_FALSE(factor.HasFactor());
  factor.SetMemory(1);
  std::string const megabytes = std::to_string(estimate.bytes / 1000000);
  EXPECT_EQ(Raised([&] {
              factor.Factorize(k);
            }).find("403 ORXSrvSparseFactor::Factorize: the factorization needs " + megabytes + " MB"),
            0u);
  factor.SetMemory(estimate.bytes);
  factor.Factorize(k);
  EXPECT_TRUE(folder.Files().empty());
}

TEST(SparseFactor, RefusesWhatItCannotFactorize) {
  ORXSrvSparseFactor factor;
  double x = 1.0;
  EXPECT_EQ(Raised([&] { factor.Solve(&x, 1); }),
            "401 ORXSrvSparseFactor::Solve: there is no factor. Factorize comes before.");
  Sparse const k = Grid(3, 3), m = UnitMass(8);
  EXPECT_EQ(Raised([&] { factor.Factorize(k, 1.0, m); }),
            "401 ORXSrvSparseFactor: M is 8 x 8; expected 9 x 9, as K is.");
  Sparse grown = Grid(3, 3);
  grown.AddData(9, 9, 1.0);
  EXPECT_EQ(
      Raised([&] { factor.Factorize(grown); }),
      "401 ORXSrvSparseFactor: K is not assembled, or has more rows than when it was: 10, in its arrays 9.");
  Sparse const empty = Assembled(0, [](auto) {});
  EXPECT_EQ(Raised([&] { factor.Factorize(empty); }),
            "401 ORXSrvSparseFactor: K is 0 x 0; expected a square matrix with rows.");
  Sparse const bad = Assembled(2, [](auto add) {
    add(0, 0, 1.0), add(1, 1, 1.0), add(1, 0, std::numeric_limits<double>::quiet_NaN());
  });
  EXPECT_EQ(Raised([&] { factor.Factorize(bad); }),
            "401 ORXSrvSparseFactor: entry (2, 1), counted from 1, is nan; expected a finite number.");
  {
    Recording const stop(0);
    EXPECT_EQ(Raised([&] { factor.Factorize(k); }),
              "301 ORXSrvSparseFactor::Analyse stopped by the host after 1 of 2 blocks.");
  }
  EXPECT_FALSE(factor.HasFactor());
  factor.Factorize(k);
  EXPECT_TRUE(factor.HasFactor());
}

TEST(SparseFactor, EstimatesTheConditionWithinAFactorOfThree) {
  auto const hilbert = [](int order, double skew) {
    return Assembled(order, [=](auto add) {
      for (int i = 0; i < order; ++i)
        for (int j = 0; j < order; ++j)
          add(i, j, (i < j ? skew : 1.0) / (i + j + 1));
    });
  };
  // Its transposed inverse has other sums of columns: a solve with the wrong one of the two is seen.
  Sparse const lopsided = Assembled(30, [](auto add) {
    for (int i = 0; i < 30; ++i) {
      add(i, i, 1.0);
      if (i > 0) add(i, 0, -1.0);
      if (i > 1) add(i, i - 1, 0.9);
    }
  });
  auto const expectNear = [](Sparse const& a) {
    SCOPED_TRACE(a.NumberOfRows());
    ORXSrvSparseFactor factor;
    factor.Factorize(a);
    double const ratio = factor.EstimateCondition() / Condition(ToDense(a));
    EXPECT_GT(ratio, 1.0 / 3.0);
    EXPECT_LT(ratio, 1.0 + 1e-6);
  };
  expectNear(DiagonalMatrix({-5.0}));
  expectNear(DiagonalMatrix({1e-6, 3.0, -1e4, 2.0}));
  expectNear(hilbert(5, 1.0));
  expectNear(hilbert(6, -2.0));
  expectNear(lopsided);
  expectNear(*std::unique_ptr<Sparse>(lopsided.Transpose()));
  for (bool const upper : {false, true})
    expectNear(Grid(12, 9).SymmetricForm(upper));
  for (unsigned seed = 1; seed <= 10; ++seed)
    expectNear(RandomMatrix(50 + static_cast<int>(seed), 0.1, seed % 2 == 0, seed));
  ORXSrvSparseFactor factor;
  EXPECT_EQ(Raised([&] { factor.EstimateCondition(); }),
            "401 ORXSrvSparseFactor::EstimateCondition: there is no factor. Factorize comes before.");
  factor.Factorize(Grid(4, 4, true));
  EXPECT_EQ(factor.EstimateCondition(), std::numeric_limits<double>::infinity());
}
