#include "BlacSupport.h"
#include "blac/BLAC.h"

#include <array>
#include <utility>

namespace {

constexpr double one = 1;

using Entry = decltype(&BLAC_DGEMM);

Dense Multiply(Entry product, char transa, char transb, double alpha, Dense const& a, Dense const& b,
               double beta, Dense c) {
  int const k = transa == 'N' || transa == 'n' ? a.columns : a.rows;
  product(&transa, &transb, &c.rows, &c.columns, &k, &alpha, a.Data(), &a.ld, b.Data(), &b.ld, &beta,
          c.Data(), &c.ld);
  return c;
}

/// Both entry points have one contract: each test runs over both.
class Product : public testing::TestWithParam<Entry> {};

INSTANTIATE_TEST_SUITE_P(BothProducts, Product, testing::Values(&BLAC_DGEMM, &BLAC_DGEMM2),
                         [](auto const& product) { return product.index == 0 ? "First" : "Second"; });

} // namespace

TEST_P(Product, AgreesWithTheDefinitionForAllTransposesFactorsAndSizes) {
  for (auto const& [m, n, k] : {std::array{5, 3, 4}, {1, 7, 2}, {6, 1, 3}, {4, 5, 1}, {37, 29, 260}})
    for (char const transa : {'N', 'n', 'T', 't', 'C', 'c'})
      for (char const transb : {'N', 'n', 'T', 't', 'C', 'c'})
        for (auto const& [alpha, beta] : {std::pair{1.0, 0.0}, {-0.7, 1.0}, {2.0, -0.3}}) {
          Dense const opA = Random(m, k, 2), opB = Random(k, n, 3), c = Random(m, n, 4);

          Dense const result =
              Multiply(GetParam(), transa, transb, alpha, Op(transa, opA), Op(transb, opB), beta, c);

          ASSERT_TRUE(Near(alpha * (opA * opB) + beta * c, result))
              << transa << transb << m << ' ' << n << ' ' << k;
        }
}

TEST_P(Product, OverwritesWhatIsNotANumberWhenBetaIsZero) {
  Dense const a = Random(5, 4, 1), b = Random(4, 3, 1), notNumbers(5, 3, 1);

  EXPECT_TRUE(Near(a * b, Multiply(GetParam(), 'N', 'N', 1, a, b, 0, notNumbers)));
  EXPECT_TRUE(Near(0 * (a * b), Multiply(GetParam(), 'N', 'N', 0, a, b, 0, notNumbers)));
}

TEST_P(Product, OfNoRowsOrColumnsIsNothing) {
  for (auto const& [m, n] : {std::pair{0, 3}, {3, 0}}) {
    Dense c = Random(3, 3, 1);
    Dense const a = Random(3, 3, 1), before = c;

    GetParam()("N", "N", &m, &n, &a.rows, &one, a.Data(), &a.ld, a.Data(), &a.ld, &one, c.Data(), &c.ld);

    EXPECT_TRUE(Near(before, c, 0));
    EXPECT_EQ(TakeReport(), "");
  }
}

TEST_P(Product, ReportsTheFirstIllegalArgument) {
  struct Arguments {
    char transa = 'N', transb = 'N';
    int m = 2, n = 3, k = 4, lda = 2, ldb = 4, ldc = 2;
  };
  std::pair<Arguments, std::string> const cases[] = {
      {{}, ""},
      {{.transa = 'x', .transb = 'x', .m = -1}, "DGEMM /1"},
      {{.transb = '?', .m = -1, .n = -1}, "DGEMM /2"},
      {{.m = -1, .n = -1, .k = -1}, "DGEMM /3"},
      {{.n = -1, .k = -1, .lda = 0}, "DGEMM /4"},
      {{.k = -1, .lda = 1, .ldb = 0}, "DGEMM /5"},
      {{.lda = 1, .ldb = 1, .ldc = 1}, "DGEMM /8"},
      {{.transa = 'T', .lda = 3}, "DGEMM /8"},
      {{.ldb = 3, .ldc = 1}, "DGEMM /10"},
      {{.transb = 'c', .ldb = 2}, "DGEMM /10"},
      {{.transa = 't', .transb = 'T', .lda = 4, .ldb = 3, .ldc = 1}, "DGEMM /13"}};
  for (auto const& [at, report] : cases) {
    std::vector<double> const a(12, 1), b(12, 1);
    std::vector<double> c(6, 5);

    GetParam()(&at.transa, &at.transb, &at.m, &at.n, &at.k, &one, a.data(), &at.lda, b.data(), &at.ldb, &one,
               c.data(), &at.ldc);

    EXPECT_EQ(TakeReport(), report);
    EXPECT_EQ(c, std::vector<double>(6, report.empty() ? 9 : 5)) << report;
  }
}

// The first one, OpenBLAS 0.3.21, falls short of the standard in these two.

TEST(SecondProduct, DoesNotReadFactorsThatDoNotCount) {
  Dense const notNumbers(5, 5, 1), c = Random(5, 5, 1);

  EXPECT_TRUE(Near(-2 * c, Multiply(&BLAC_DGEMM2, 'N', 'T', 0, notNumbers, notNumbers, -2, c)));
  EXPECT_TRUE(Near(-2 * c, Multiply(&BLAC_DGEMM2, 'N', 'T', 1, Dense(5, 0), Dense(5, 0), -2, c)));
}

TEST(SecondProduct, WantsALeadingDimensionOfOneEvenForNoRows) {
  int const none = 0, columns = 1;
  double a = 1;
  BLAC_DGEMM2("N", "N", &none, &columns, &columns, &one, &a, &columns, &a, &columns, &one, &a, &none);
  EXPECT_EQ(TakeReport(), "DGEMM /13");
}

// Products this deep are summed in another order by another implementation: all bits the same would mean the
// same code. The sizes are beyond those for which BLIS has separate code for small matrices.
TEST(SecondProduct, IsAnotherImplementationThatAgreesToRounding) {
  int const m = 220, n = 210, k = 1500;
  Dense const opA = Random(m, k, 1), opB = Random(k, n, 1), empty(m, n, 1);
  Dense const bound = k * std::numeric_limits<double>::epsilon() * (Absolute(opA) * Absolute(opB));
  for (char const transa : {'N', 'T'})
    for (char const transb : {'N', 'T'}) {
      Dense const a = Op(transa, opA), b = Op(transb, opB);
      Dense const first = Multiply(&BLAC_DGEMM, transa, transb, 1, a, b, 0, empty);
      Dense const second = Multiply(&BLAC_DGEMM2, transa, transb, 1, a, b, 0, empty);

      int different = 0;
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) {
          different += first(i, j) != second(i, j) ? 1 : 0;
          ASSERT_LE(std::abs(first(i, j) - second(i, j)), bound(i, j)) << transa << transb;
        }
      EXPECT_GT(different, m * n / 10) << transa << transb;
    }
}
