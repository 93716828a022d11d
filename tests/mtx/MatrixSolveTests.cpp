#include "MatrixSupport.h"

namespace {

ORXSrvMatrix RandomSymmetric(int n, double shift = 0.0) {
  ORXSrvMatrix matrix = RandomFull(n, n);
  matrix.SetSymmetricResults();
  for (int i = 0; i < n; ++i)
    matrix(i, i) += shift;
  return matrix;
}

ORXSrvMatrix Unit(int n) { return MatrixOf(Identity(n, 0)); }

/// Largest |A x - b| over |A| |x| + |b|, componentwise.
double BackwardError(Dense const& a, Dense const& x, Dense const& b) {
  Dense const residual = Absolute(a * x + -1.0 * b);
  Dense const scale = Absolute(a) * Absolute(x) + Absolute(b);
  double worst = 0.0;
  for (std::size_t p = 0; p < scale.values.size(); ++p)
    worst = std::max(worst, residual.values[p] / scale.values[p]);
  return worst;
}

TEST(Factorize, InvertsDiagonalsUpToTheFirstZero) {
  ORXSrvMatrix diagonal = Diagonal({2, 4});
  diagonal.Factorize(nullptr);
  EXPECT_EQ(Stored(diagonal), (Doubles{0.5, 0.25}));
  ORXSrvMatrix singular = Diagonal({2, 0, 5});
  EXPECT_RAISED("218 ORXSrvMatrix::Factorize - division by 0.", singular.Factorize(nullptr));
  EXPECT_EQ(Stored(singular), (Doubles{0.5, 0, 5}));
}

TEST(Factorize, LeavesSingularMatricesWithoutAnError) {
  int pivots[2];
  ORXSrvMatrix general = Full({{1, 2}, {2, 4}});
  general.Factorize(pivots);
  EXPECT_EQ(Stored(general), (Doubles{2, 0.5, 4, 0}));
  ORXSrvMatrix zero = Full({{0, 0}, {0, 0}}, true);
  zero.Factorize(pivots);
  EXPECT_EQ(Stored(zero), (Doubles{0, 0, 0, 0}));
}

TEST(Factorize, TellsTheInertiaAndTheFirstZeroPivot) {
  // The signs of a symmetric matrix are those of its eigenvalues: -1 and 1, beside what stands on the
  // diagonal.
  ORXSrvMatrix indefinite(70, 70, nullptr, true);
  indefinite = 0.0;
  for (int i = 0; i < 60; i += 2)
    indefinite(i, i + 1) = indefinite(i + 1, i) = 1.0; // pivots of two rows
  for (int i = 60; i < 69; ++i)
    indefinite(i, i) = i < 62 ? -3.0 : 2.0;
  std::vector<int> pivots(70);
  ORXSrvMatrix::PivotReport report = indefinite.FactorizeReporting(pivots.data());
  EXPECT_EQ((std::vector{report.positive, report.negative, report.zero, report.firstZero}),
            (std::vector{37, 32, 1, 70}));

  ORXSrvMatrix random = RandomSymmetric(40, 1.0), lambda(40, 1), z(40, 40);
  random.SolveEigenproblemSymmetric(Unit(40), lambda, z);
  ORXSrvMatrix factors(40, 40, nullptr, true);
  factors = random;
  report = factors.FactorizeReporting(pivots.data());
  EXPECT_EQ(report.negative,
            std::count_if(lambda.Values(), lambda.Values() + 40, [](double x) { return x < 0; }));
  EXPECT_EQ(report.positive, 40 - report.negative);
  EXPECT_EQ(report.firstZero, 0);

  ORXSrvMatrix general = Full({{1, 2, 0}, {2, 4, 0}, {0, 0, 1}});
  report = general.FactorizeReporting(pivots.data());
  EXPECT_EQ(report.firstZero, 2);
  EXPECT_EQ(report.positive + report.negative + report.zero, 0);
  report = ORXSrvMatrix(Diagonal({-2, 4, notANumber})).FactorizeReporting(nullptr);
  EXPECT_EQ((std::vector{report.positive, report.negative, report.zero}), (std::vector{1, 1, 0}));
}

TEST(Factorize, ReportsWhatLapackRefuses) {
  int pivots[1];
  ORXSrvMatrix empty(0, 0); // its leading dimension of 0 is below LAPACK's least
  testing::internal::CaptureStderr();
  EXPECT_RAISED(IllegalInput("Factorize"), empty.Factorize(pivots));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("DGETRF"), std::string::npos);
}

TEST(ForwardBackwardPass, SolvesForManyRightHandSides) {
  for (int const n : {1, 2, 7, 65, 130}) {
    for (bool const symmetric : {false, true}) {
      ORXSrvMatrix const values = symmetric ? RandomSymmetric(n) : RandomFull(n, n);
      ORXSrvMatrix factors(n, n, nullptr, symmetric, false);
      factors = values;
      std::vector<int> pivots(n);
      factors.Factorize(pivots.data());
      for (bool const transpose : {false, true}) {
        ORXSrvMatrix const b = RandomFull(n, 3);
        ORXSrvMatrix x(b);
        factors.ForwardBackwardPass(pivots.data(), x, transpose);
        Dense const a = transpose ? Transposed(DenseOf(values)) : DenseOf(values);
        EXPECT_LT(BackwardError(a, DenseOf(x), DenseOf(b)), 1e-11) << n << symmetric << transpose;
      }
    }
  }
}

TEST(ForwardBackwardPass, TakesTheRowsOfTheFactorsForTheStrideOfATallerRightHandSide) {
  for (bool const symmetric : {false, true}) {
    ORXSrvMatrix factors = Full({{2, 0}, {0, 4}}, symmetric);
    int pivots[2];
    factors.Factorize(pivots);
    ORXSrvMatrix rhs = Full({{2, 2}, {4, 4}, {2, 9}});
    factors.ForwardBackwardPass(pivots, rhs, false);
    EXPECT_EQ(Stored(rhs), (Doubles{1, 1, 1, 0.5, 4, 9})) << symmetric;
  }
}

TEST(ForwardBackwardPass, RefusesWhatItCannotRead) {
  int const pivots[3] = {1, 2, 3};
  ORXSrvMatrix rhs(3, 1), shortRhs(2, 1), noRhs(0, 1);
  auto const solved = [&](ORXSrvMatrix const& factors, ORXSrvMatrix& b) {
    return Raised([&] { factors.ForwardBackwardPass(pivots, b, false); });
  };
  EXPECT_EQ(solved(Diagonal({1, 2, 3}), rhs), IllegalInput("ForwardBackwardPass"));
  EXPECT_EQ(solved(RandomFull(3, 3), shortRhs), IllegalInput("ForwardBackwardPass"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(solved(ORXSrvMatrix(0, 0), noRhs), IllegalInput("ForwardBackwardPass"));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("DGETRS"), std::string::npos);
}

TEST(Eigenproblem, PairsSatisfyTheEquationAndTheNormalization) {
  int const n = 60;
  ORXSrvMatrix const a = RandomSymmetric(n);
  ORXSrvMatrix const b = RandomSymmetric(n, 20.0); // diagonally dominant
  ORXSrvMatrix lambda(n, 1), z(n, n), problem(a);
  problem.SolveEigenproblemSymmetric(b, lambda, z);

  EXPECT_TRUE(problem == a);
  EXPECT_TRUE(std::is_sorted(lambda.Values(), lambda.Values() + n));
  Dense const modes = DenseOf(z), massTimesModes = DenseOf(b) * modes;
  Dense const values = Filled(n, n, [&](int i, int j) { return i == j ? lambda(i, 0) : 0.0; });
  EXPECT_TRUE(Near(DenseOf(a) * modes, massTimesModes * values, 1e-12));
  EXPECT_TRUE(Near(Identity(n), Transposed(modes) * massTimesModes, 1e-13));
}

TEST(Eigenproblem, TakesDiagonalMatrices) {
  ORXSrvMatrix a = Diagonal({3, 1});
  ORXSrvMatrix lambda(2, 1), z(2, 2);
  z = 9.0;
  a.SolveEigenproblemSymmetric(Diagonal({1, 1}), lambda, z);
  EXPECT_EQ(Stored(lambda), (Doubles{1, 3}));
  EXPECT_EQ(std::abs(At(z, 1, 0)), 1.0);
  EXPECT_EQ(std::abs(At(z, 0, 1)), 1.0);
  EXPECT_EQ(At(z, 0, 0), 0.0);
  EXPECT_EQ(Stored(a), (Doubles{3, 1}));
}

TEST(Eigenproblem, RefusesShapesAndAsymmetry) {
  ORXSrvMatrix a = Full({{2, 1}, {1, 2}}), uneven = Full({{2, 1}, {std::nextafter(1.0, 2.0), 2}});
  ORXSrvMatrix b = Full({{1, 0}, {0, 1}}), empty(0, 0), wide(2, 3), three(3, 3), none(2, 0), lambda(2, 1),
               z(2, 2);
  double buffer[4];
  ORXSrvMatrix diagonal(2, 2, buffer, false, true); // n values for n * n
  struct Problem {
    ORXSrvMatrix &a, &b, &lambda, &z;
  };
  Problem const problems[] = {{empty, empty, empty, empty}, {wide, wide, lambda, wide},
                              {a, three, lambda, z},        {a, b, three, z},
                              {a, b, lambda, three},        {a, b, none, z},
                              {a, b, lambda, diagonal},     {uneven, b, lambda, z},
                              {a, uneven, lambda, z}};
  for (Problem const& p : problems)
    EXPECT_RAISED(IllegalInput("SolveEigenproblemSymmetric"),
                  p.a.SolveEigenproblemSymmetric(p.b, p.lambda, p.z))
        << &p - problems;
}

TEST(Eigenproblem, RefusesResultsOverItsMatricesAndEachOther) {
  double buffer[16];
  ORXSrvMatrix a(2, 2, buffer), b(2, 2, buffer + 4), z(2, 2, buffer + 8), lambda(2, 1, buffer + 12);
  a = b = Full({{1, 0}, {0, 1}});
  Doubles const before(buffer, buffer + 8);
  std::string const refused = IllegalInput("SolveEigenproblemSymmetric");
  for (int const at : {0, 1, 3, 4, 7, 8, 11}) {
    ORXSrvMatrix values(2, 1, buffer + at);
    EXPECT_RAISED(refused, a.SolveEigenproblemSymmetric(b, values, z)) << at;
  }
  for (int const at : {0, 1, 4, 5, 7}) {
    ORXSrvMatrix vectors(2, 2, buffer + at);
    EXPECT_RAISED(refused, a.SolveEigenproblemSymmetric(b, lambda, vectors)) << at;
  }
  EXPECT_EQ(Doubles(buffer, buffer + 8), before);
  a.SolveEigenproblemSymmetric(b, lambda, z); // side by side is no overlap
}

TEST(Eigenproblem, IsNeverSilentAboutNumbersThatAreNone) {
  ORXSrvMatrix lambda(3, 1), z(3, 3);
  std::string const refused = IllegalInput("SolveEigenproblemSymmetric");
  for (double const bad : {notANumber, HUGE_VAL, -HUGE_VAL})
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j <= i; ++j)
        for (bool const inA : {false, true}) {
          ORXSrvMatrix a(RandomSymmetric(3)), b(Unit(3));
          ORXSrvMatrix& spoiled = inA ? a : b;
          spoiled(i, j) = spoiled(j, i) = bad;
          EXPECT_RAISED(refused, a.SolveEigenproblemSymmetric(b, lambda, z)) << bad << i << j;
        }
  ORXSrvMatrix diagonal = Diagonal({1, 1, notANumber});
  EXPECT_RAISED(refused, diagonal.SolveEigenproblemSymmetric(Unit(3), lambda, z));

  // Twice and three times the largest double.
  ORXSrvMatrix large(3, 3);
  large = 1.7e308;
  EXPECT_RAISED("214 ORXSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge.",
                large.SolveEigenproblemSymmetric(Unit(3), lambda, z));
}

TEST(Eigenproblem, SaysWhenTheSecondMatrixIsNotPositiveDefinite) {
  ORXSrvMatrix const indefinite = Diagonal({1, -1});
  ORXSrvMatrix identity = Diagonal({1, 1}), lambda(2, 1), z(2, 2);
  EXPECT_RAISED("215 ORXSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite.",
                identity.SolveEigenproblemSymmetric(indefinite, lambda, z));
}

} // namespace
