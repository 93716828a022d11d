#include "BlacSupport.h"
#include "blac/BLAC.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int n = 6;

/// A clamped chain of springs: 2 on the diagonal, -1 beside it.
Dense Chain() {
  return Filled(n, n, 1, [](int i, int j) { return i == j ? 2 : std::abs(i - j) == 1 ? -1 : 0; });
}

/// Its eigenvalue of number k = 1 ... n, ascending.
double Exact(int k) { return 2 - 2 * std::cos(k * std::numbers::pi / (n + 1)); }

/// Columns first ... of `z` are eigenvectors of length 1 to the eigenvalues of numbers first ... of the
/// chain.
void ExpectModes(int first, int count, double const* w, Dense const& z) {
  for (int k = 0; k < count; ++k)
    EXPECT_NEAR(w[k], Exact(first + k), 1e-13);
  Dense const modes = Filled(n, count, 1, [&](int i, int j) { return z(i, j); });
  Dense const values = Filled(count, count, 1, [&](int i, int j) { return i == j ? Exact(first + i) : 0; });
  EXPECT_TRUE(Near(modes * values, Chain() * modes));
  EXPECT_TRUE(Near(Identity(count), Transposed(modes) * modes));
}

/// The chosen part of the spectrum, numbers 2 to 4 or the same by an interval, and room for the results.
class PartOfTheSpectrum : public testing::TestWithParam<char> {
protected:
  char range = GetParam();
  int il = 2, iu = 4, found = 0, info = 9;
  double vl = (Exact(1) + Exact(2)) / 2, vu = (Exact(4) + Exact(5)) / 2, abstol = 0;
  Dense z = Dense(n, n, 2);
  std::vector<double> w = std::vector<double>(n), work = std::vector<double>(20 * n);
  std::vector<int> support = std::vector<int>(2 * n), iwork = std::vector<int>(10 * n),
                   failed = std::vector<int>(n, 9);
  int lwork = 20 * n, liwork = 10 * n;

  void ExpectFound() {
    EXPECT_EQ(info, 0);
    ASSERT_EQ(found, 3);
    ExpectModes(2, 3, w.data(), z);
  }
};

INSTANTIATE_TEST_SUITE_P(ByIndexAndByInterval, PartOfTheSpectrum, testing::Values('i', 'V'));

} // namespace

TEST_P(PartOfTheSpectrum, OfAFullMatrix) {
  Dense a = Triangle('L', Chain(), notANumber);
  BLAC_DSYEVX("v", &range, "l", &n, a.Data(), &a.ld, &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.Data(),
              &z.ld, work.data(), &lwork, iwork.data(), failed.data(), &info);
  ExpectFound();
  EXPECT_EQ(std::count(failed.begin(), failed.end(), 0), found);
}

TEST_P(PartOfTheSpectrum, OfAPackedMatrix) {
  std::vector<double> packed = Packed('U', Chain());
  BLAC_DSPEVX("V", &range, "u", &n, packed.data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.Data(),
              &z.ld, work.data(), iwork.data(), failed.data(), &info);
  ExpectFound();
  EXPECT_EQ(std::count(failed.begin(), failed.end(), 0), found);
}

TEST_P(PartOfTheSpectrum, OfATridiagonalMatrix) {
  std::vector<double> d(n, 2), e(n, -1);
  BLAC_DSTEVR("v", &range, &n, d.data(), e.data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.Data(),
              &z.ld, support.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
  ExpectFound();
}

TEST_P(PartOfTheSpectrum, OfATridiagonalMatrixByRelativelyRobustRepresentations) {
  std::vector<double> d(n, 2), e(n, -1);
  int const columns = n;
  int highAccuracy = 1;
  BLAC_DSTEMR("V", &range, &n, d.data(), e.data(), &vl, &vu, &il, &iu, &found, w.data(), z.Data(), &z.ld,
              &columns, support.data(), &highAccuracy, work.data(), &lwork, iwork.data(), &liwork, &info);
  ExpectFound();
  EXPECT_EQ(std::count(support.begin(), support.end(), 0),
            2 * (n - found)); // a first and a last row for each
}

TEST(Spectrum, IsCompleteWithDsyev) {
  for (char const uplo : {'u', 'L'}) {
    Dense a = Triangle(uplo, Chain(), notANumber);
    double w[n], work[3 * n];
    int const lwork = 3 * n;
    int info = 9;

    BLAC_DSYEV("v", &uplo, &n, a.Data(), &a.ld, w, work, &lwork, &info);

    EXPECT_EQ(info, 0);
    ExpectModes(1, n, w, a);
  }
}

TEST(Spectrum, OfAPairFulfilsItsEquationAndNormalization) {
  int const itype = 1, lwork = 3 * n;
  Dense const k = Chain(), m = RandomSymmetric(n, 15);
  Dense modes = Triangle('L', k, notANumber), factor = Filled(n, n, 3, [&](int i, int j) { return m(i, j); });
  double w[n], work[3 * n];
  int info = 9;

  BLAC_DSYGV(&itype, "V", "l", &n, modes.Data(), &modes.ld, factor.Data(), &factor.ld, w, work, &lwork,
             &info);

  ASSERT_EQ(info, 0);
  Dense const values = Filled(n, n, 1, [&](int i, int j) { return i == j ? w[i] : 0; });
  EXPECT_TRUE(Near(m * modes * values, k * modes));
  EXPECT_TRUE(Near(Identity(n), Transposed(modes) * m * modes));
}

TEST(Reductions, OfAPairToStandardFormKeepTheMatrix) {
  int const itype = 1;
  Dense const k = Chain(), m = RandomSymmetric(n, 15);
  Dense factor = Filled(n, n, 3, [&](int i, int j) { return m(i, j); }),
        standard = Triangle('U', k, notANumber);
  int info = 9;
  BLAC_DPOTRF("U", &n, factor.Data(), &factor.ld, &info);
  ASSERT_EQ(info, 0);

  BLAC_DSYGST(&itype, "u", &n, standard.Data(), &standard.ld, factor.Data(), &factor.ld, &info);

  EXPECT_EQ(info, 0);
  Dense const r = Triangle('U', factor);
  EXPECT_TRUE(Near(k, Transposed(r) * Mirrored('U', standard) * r));
}

TEST(Reductions, ToTridiagonalFormAndBackGiveTheMatrix) {
  for (char const uplo : {'u', 'L'}) {
    Dense const s = RandomSymmetric(n);
    Dense reflectors = Triangle(uplo, s, notANumber);
    double d[n], e[n - 1], tau[n - 1], work[8 * n];
    int const lwork = 8 * n, columns = 2;
    int info = 9;
    BLAC_DSYTRD(&uplo, &n, reflectors.Data(), &reflectors.ld, d, e, tau, work, &lwork, &info);
    ASSERT_EQ(info, 0);

    // Q*T, then (Q*T)*Q'.
    Dense product = Filled(n, n, 2, [&](int i, int j) {
      return i == j ? d[i] : std::abs(i - j) == 1 ? e[std::min(i, j)] : 0;
    });
    BLAC_DORMTR("l", &uplo, "n", &n, &n, reflectors.Data(), &reflectors.ld, tau, product.Data(), &product.ld,
                work, &lwork, &info);
    EXPECT_EQ(info, 0);
    BLAC_DORMTR("R", &uplo, "t", &n, &n, reflectors.Data(), &reflectors.ld, tau, product.Data(), &product.ld,
                work, &lwork, &info);
    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(s, product)) << uplo;

    // Q'*(Q*X) of a matrix that is not square.
    Dense const x = Random(n, columns);
    Dense there = x;
    for (char const* trans : {"N", "T"})
      BLAC_DORMTR("L", &uplo, trans, &n, &columns, reflectors.Data(), &reflectors.ld, tau, there.Data(),
                  &there.ld, work, &lwork, &info);
    EXPECT_TRUE(Near(x, there)) << uplo;
  }
}
