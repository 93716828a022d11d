#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

constexpr double alpha = -1.5, beta = 0.5;
constexpr int m = 5, n = 3, k = 4;

} // namespace

TEST(MatrixProducts, MultiplyASymmetricMatrixFromEitherSide) {
  for (char const uplo : {'u', 'L'})
    for (char const side : {'l', 'R'}) {
      bool const left = side == 'l';
      Dense const s = RandomSymmetric(left ? m : n), b = Random(m, n, 2), c = Random(m, n, 3);
      Dense const half = Triangle(uplo, s, notANumber);
      Dense result = c;

      BLAC_DSYMM(&side, &uplo, &m, &n, &alpha, half.Data(), &half.ld, b.Data(), &b.ld, &beta, result.Data(),
                 &result.ld);

      EXPECT_TRUE(Near(alpha * (left ? s * b : b * s) + beta * c, result)) << side << uplo;
    }
}

TEST(MatrixProducts, UpdateOneTriangleOfASymmetricMatrix) {
  for (char const uplo : {'U', 'l'})
    for (char const trans : {'n', 'T', 'c'}) {
      bool const plain = trans == 'n';
      Dense const a = Random(plain ? n : k, plain ? k : n), b = Random(a.rows, a.columns, 2);
      Dense const opA = Op(plain ? 'N' : 'T', a), opB = Op(plain ? 'N' : 'T', b), s = RandomSymmetric(n);
      Dense const once = alpha * (opA * Transposed(opA)) + beta * s;
      Dense const twice = alpha * (opA * Transposed(opB)) + alpha * (opB * Transposed(opA)) + beta * s;

      Dense result = Triangle(uplo, s, 7);
      BLAC_DSYRK(&uplo, &trans, &n, &k, &alpha, a.Data(), &a.ld, &beta, result.Data(), &result.ld);
      EXPECT_TRUE(Near(Triangle(uplo, once, 7), result)) << uplo << trans;

      result = Triangle(uplo, s, 7);
      BLAC_DSYR2K(&uplo, &trans, &n, &k, &alpha, a.Data(), &a.ld, b.Data(), &b.ld, &beta, result.Data(),
                  &result.ld);
      EXPECT_TRUE(Near(Triangle(uplo, twice, 7), result)) << uplo << trans;
    }
}

TEST(MatrixProducts, MultiplyAndSolveWithATriangleFromEitherSide) {
  for (char const side : {'L', 'r'})
    for (char const uplo : {'u', 'L'})
      for (char const trans : {'N', 't'})
        for (char const diag : {'n', 'U'}) {
          bool const left = side == 'L';
          Dense const a = RandomSymmetric(left ? m : n, 5), b = Random(m, n, 2);
          Dense const half = Triangle(uplo, a, notANumber);
          Dense const t = Op(trans, Triangle(uplo, a, 0, diag));
          double const backwards = 1 / alpha;
          std::string const options{side, uplo, trans, diag};

          Dense result = b;
          BLAC_DTRMM(&side, &uplo, &trans, &diag, &m, &n, &alpha, half.Data(), &half.ld, result.Data(),
                     &result.ld);
          EXPECT_TRUE(Near(alpha * (left ? t * b : b * t), result)) << options;
          BLAC_DTRSM(&side, &uplo, &trans, &diag, &m, &n, &backwards, half.Data(), &half.ld, result.Data(),
                     &result.ld);
          EXPECT_TRUE(Near(b, result)) << options;
        }
}
