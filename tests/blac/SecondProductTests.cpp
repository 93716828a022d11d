#include "BlacSupport.h"
#include "blac/BLAC.h"

#include <cmath>
#include <utility>

namespace {

constexpr double one = 1;

/// Both entry points have one contract: each test runs over both.
class Product : public testing::TestWithParam<decltype(&BLAC_DGEMM)> {
protected:
  static Dense Of(decltype(&BLAC_DGEMM) product, char transa, char transb, double alpha, Dense const& a,
                  Dense const& b, double beta, Dense c) {
    int const k = transa == 'N' || transa == 'n' ? a.columns : a.rows;
    product(&transa, &transb, &c.rows, &c.columns, &k, &alpha, a.Data(), &a.ld, b.Data(), &b.ld, &beta,
            c.Data(), &c.ld);
    return c;
  }
};

INSTANTIATE_TEST_SUITE_P(BothProducts, Product, testing::Values(&BLAC_DGEMM, &BLAC_DGEMM2),
                         [](auto const& product) { return product.index == 0 ? "First" : "Second"; });

} // namespace

TEST_P(Product, AgreesWithTheDefinitionForAllTransposesFactorsAndSizes) {
  for (auto const [m, n, k] : {std::array{5, 3, 4}, {1, 7, 2}, {6, 1, 3}, {4, 5, 1}, {37, 29, 260}})
    for (char const transa : {'N', 'n', 'T', 't', 'C', 'c'})
      for (char const transb : {'N', 'n', 'T', 't', 'C', 'c'})
        for (auto const [alpha, beta] : {std::pair{1.0, 0.0}, {-0.7, 1.0}, {2.0, -0.3}}) {
          Dense const opA = Random(m, k, 2), opB = Random(k, n, 3), c = Random(m, n, 4);

          Dense const result =
              Of(GetParam(), transa, transb, alpha, Op(transa, opA), Op(transb, opB), beta, c);

          ASSERT_TRUE(Near(alpha * (opA * opB) + beta * c, result))
              << transa << transb << m << ' ' << n << ' ' << k;
        }
}

TEST_P(Product, OverwritesWhatIsNotANumberWhenBetaIsZero) {
  Dense const a = Random(5, 4), b = Random(4, 3), notNumbers(5, 3);

  EXPECT_TRUE(Near(a * b, Of(GetParam(), 'N', 'N', 1, a, b, 0, notNumbers)));
  EXPECT_TRUE(Near(0 * (a * b), Of(GetParam(), 'N', 'N', 0, a, b, 0, notNumbers)));
}

TEST_P(Product, DoesNotReadFactorsThatDoNotCount) {
  Dense const notNumbers(5, 5), c = Random(5, 5);

  EXPECT_TRUE(Near(-2 * c, Of(GetParam(), 'N', 'T', 0, notNumbers, notNumbers, -2, c)));
  EXPECT_TRUE(Near(-2 * c, Of(GetParam(), 'N', 'T', 1, Dense(5, 0), Dense(5, 0), -2, c)));
}

TEST_P(Product, OfNoRowsOrColumnsIsNothing) {
  for (auto const [m, n] : {std::pair{0, 3}, {3, 0}}) {
    Dense c = Random(3, 3);
    Dense const a = Random(3, 3), before = c;

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
      {{.transa = 't', .transb = 'T', .lda = 4, .ldb = 3, .ldc = 1}, "DGEMM /13"},
      {{.m = 0, .ldc = 0}, "DGEMM /13"}};
  for (auto const& [at, report] : cases) {
    std::vector<double> const a(12, 1), b(12, 1);
    std::vector<double> c(6, 5);

    GetParam()(&at.transa, &at.transb, &at.m, &at.n, &at.k, &one, a.data(), &at.lda, b.data(), &at.ldb, &one,
               c.data(), &at.ldc);

    EXPECT_EQ(TakeReport(), report);
    EXPECT_EQ(c, std::vector<double>(6, report.empty() ? 9 : 5)) << report;
  }
}

// A product this deep is summed in another order by another implementation: the same bits would mean the same
// code.
TEST(SecondProduct, IsAnotherImplementationThatAgreesToRounding) {
  int const m = 200, k = 1500;
  Dense const a = Random(m, k), b = Random(k, m);
  Dense first(m, m), second(m, m);
  double const none = 0;
  BLAC_DGEMM("N", "N", &m, &m, &k, &one, a.Data(), &a.ld, b.Data(), &b.ld, &none, first.Data(), &first.ld);
  BLAC_DGEMM2("N", "N", &m, &m, &k, &one, a.Data(), &a.ld, b.Data(), &b.ld, &none, second.Data(), &second.ld);

  auto const absolute = [](Dense const& x) {
    return Filled(x.rows, x.columns, 1, [&](int i, int j) { return std::abs(x(i, j)); });
  };
  Dense const size = absolute(a) * absolute(b);
  int different = 0;
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) {
      different += first(i, j) != second(i, j) ? 1 : 0;
      ASSERT_LE(std::abs(first(i, j) - second(i, j)),
                k * std::numeric_limits<double>::epsilon() * size(i, j));
    }
  EXPECT_GT(different, m * m / 10);
}
