#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

constexpr int n = 5, nrhs = 2;

/// R'*R or L*L' of a Cholesky factor.
Dense Squared(char uplo, Dense const& factor) {
  return uplo == 'u' || uplo == 'U' ? Transposed(factor) * factor : factor * Transposed(factor);
}

} // namespace

// | 1 0 |                     | 1         |   | 4 1   |
// | 2 1 |  rows 3, 2, 1  =  | 0.5  1    | * |   0.5 |
// | 4 1 |                     | 0.25 -0.5 |
TEST(Factorizations, LuOfATallMatrixIsTheOneOnPaper) {
  int const rows = 3, columns = 2;
  double a[] = {1, 2, 4, 0, 1, 1};
  int pivots[] = {0, 0}, info = 9;

  BLAC_DGETRF(&rows, &columns, a, &rows, pivots, &info);

  EXPECT_EQ(info, 0);
  EXPECT_EQ(std::vector(a, a + 6), (std::vector<double>{4, 0.5, 0.25, 1, 0.5, -0.5}));
  EXPECT_EQ(std::vector(pivots, pivots + 2), (std::vector{3, 2}));
}

TEST(Factorizations, LuSolvesWithTheMatrixAndItsTranspose) {
  for (char const trans : {'n', 'T', 'c'}) {
    Dense const a = Random(n, n), x = Random(n, nrhs, 2);
    Dense factors = a, b = Filled(n, nrhs, 3, [b = Op(trans, a) * x](int i, int j) { return b(i, j); });
    int pivots[n], info = 9;
    BLAC_DGETRF(&n, &n, factors.Data(), &factors.ld, pivots, &info);
    ASSERT_EQ(info, 0);

    BLAC_DGETRS(&trans, &n, &nrhs, factors.Data(), &factors.ld, pivots, b.Data(), &b.ld, &info);

    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(x, b)) << trans;
  }
}

TEST(Factorizations, CholeskyFactorSquaredIsTheMatrix) {
  for (char const uplo : {'u', 'L'}) {
    Dense const s = RandomSymmetric(n, 12);
    Dense factor = Triangle(uplo, s, notANumber);
    int info = 9;

    BLAC_DPOTRF(&uplo, &n, factor.Data(), &factor.ld, &info);

    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(s, Squared(uplo, Triangle(uplo, factor)))) << uplo;
  }
}

TEST(Factorizations, PackedCholeskySolvesAndInverts) {
  for (char const uplo : {'U', 'l'}) {
    Dense const s = RandomSymmetric(n, 12), x = Random(n, nrhs);
    std::vector<double> packed = Packed(uplo, s);
    Dense b = s * x;
    int info = 9;

    BLAC_DPPTRF(&uplo, &n, packed.data(), &info);
    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(s, Squared(uplo, Unpacked(uplo, packed, n)))) << uplo;

    BLAC_DPPTRS(&uplo, &n, &nrhs, packed.data(), b.Data(), &b.ld, &info);
    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(x, b)) << uplo;

    BLAC_DPPTRI(&uplo, &n, packed.data(), &info);
    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(Identity(n), s * Mirrored(uplo, Unpacked(uplo, packed, n)))) << uplo;
  }
}

TEST(Factorizations, BunchKaufmanSolvesAnIndefiniteSystem) {
  for (char const uplo : {'u', 'L'}) {
    // Zeros on the diagonal leave no pivots of one row.
    Dense const s = Filled(n, n, 1, [a = RandomSymmetric(n)](int i, int j) { return i == j ? 0 : a(i, j); });
    Dense const x = Random(n, nrhs);
    Dense factors = Triangle(uplo, s, notANumber), b = s * x;
    int pivots[n], info = 9;
    int const lwork = 3 * n;
    double work[3 * n];

    BLAC_DSYTRF(&uplo, &n, factors.Data(), &factors.ld, pivots, work, &lwork, &info);
    ASSERT_EQ(info, 0);
    BLAC_DSYTRS(&uplo, &n, &nrhs, factors.Data(), &factors.ld, pivots, b.Data(), &b.ld, &info);

    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(x, b, 1e-11)) << uplo;
  }
}

TEST(Factorizations, PackedTrianglesAreInverted) {
  for (char const uplo : {'u', 'L'})
    for (char const diag : {'N', 'u'}) {
      Dense const t = RandomSymmetric(n, 5);
      std::vector<double> packed = Packed(uplo, t);
      int info = 9;

      BLAC_DTPTRI(&uplo, &diag, &n, packed.data(), &info);

      EXPECT_EQ(info, 0);
      Dense const inverse = Triangle(uplo, Unpacked(uplo, packed, n), 0, diag);
      EXPECT_TRUE(Near(Identity(n), Triangle(uplo, t, 0, diag) * inverse)) << uplo << diag;
    }
}
