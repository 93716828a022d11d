#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

constexpr double alpha = -1.5, beta = 0.5;
constexpr int order = 4;

/// Vectors are rows: x*A' stands for A*x.
Dense Vector(int n, int stride) { return Random(1, n, stride - 1); }

} // namespace

TEST(MatrixVectorRoutines, MultiplyAGeneralMatrix) {
  for (char const trans : {'n', 'T', 'c'}) {
    Dense const a = Random(5, 3);
    Dense const opA = Op(trans, a);
    Dense const x = Vector(opA.columns, 2), y = Vector(opA.rows, 3);
    Dense result = y;

    BLAC_DGEMV(&trans, &a.rows, &a.columns, &alpha, a.Data(), &a.ld, x.Data(), &x.ld, &beta, result.Data(),
               &result.ld);

    EXPECT_TRUE(Near(alpha * (x * Transposed(opA)) + beta * y, result)) << trans;
  }
}

TEST(MatrixVectorRoutines, UpdateAGeneralMatrix) {
  Dense const a = Random(5, 3), x = Vector(5, 2), y = Vector(3, 3);
  Dense result = a;

  BLAC_DGER(&a.rows, &a.columns, &alpha, x.Data(), &x.ld, y.Data(), &y.ld, result.Data(), &result.ld);

  EXPECT_TRUE(Near(alpha * (Transposed(x) * y) + a, result));
}

TEST(MatrixVectorRoutines, MultiplyASymmetricMatrixOfWhichOneTriangleIsThere) {
  for (char const uplo : {'u', 'L'}) {
    Dense const s = RandomSymmetric(order), x = Vector(order, 2), y = Vector(order, 3);
    Dense const half = Triangle(uplo, s, notANumber);
    Dense const expected = alpha * (x * s) + beta * y;

    Dense full = y;
    BLAC_DSYMV(&uplo, &order, &alpha, half.Data(), &half.ld, x.Data(), &x.ld, &beta, full.Data(), &full.ld);
    EXPECT_TRUE(Near(expected, full)) << uplo;

    Dense packed = y;
    BLAC_DSPMV(&uplo, &order, &alpha, Packed(uplo, s).data(), x.Data(), &x.ld, &beta, packed.Data(),
               &packed.ld);
    EXPECT_TRUE(Near(expected, packed)) << uplo;
  }
}

TEST(MatrixVectorRoutines, UpdateOneTriangleOfASymmetricMatrix) {
  for (char const uplo : {'U', 'l'}) {
    Dense const s = RandomSymmetric(order), x = Vector(order, 2), y = Vector(order, 3);
    Dense const once = s + alpha * (Transposed(x) * x);
    Dense const twice = s + alpha * (Transposed(x) * y) + alpha * (Transposed(y) * x);

    Dense full = Triangle(uplo, s, 7);
    BLAC_DSYR(&uplo, &order, &alpha, x.Data(), &x.ld, full.Data(), &full.ld);
    EXPECT_TRUE(Near(Triangle(uplo, once, 7), full)) << uplo;

    full = Triangle(uplo, s, 7);
    BLAC_DSYR2(&uplo, &order, &alpha, x.Data(), &x.ld, y.Data(), &y.ld, full.Data(), &full.ld);
    EXPECT_TRUE(Near(Triangle(uplo, twice, 7), full)) << uplo;

    std::vector<double> packed = Packed(uplo, s);
    BLAC_DSPR(&uplo, &order, &alpha, x.Data(), &x.ld, packed.data());
    EXPECT_TRUE(Near(Triangle(uplo, once), Unpacked(uplo, packed, order))) << uplo;

    packed = Packed(uplo, s);
    BLAC_DSPR2(&uplo, &order, &alpha, x.Data(), &x.ld, y.Data(), &y.ld, packed.data());
    EXPECT_TRUE(Near(Triangle(uplo, twice), Unpacked(uplo, packed, order))) << uplo;
  }
}

TEST(MatrixVectorRoutines, MultiplyAndSolveWithATriangle) {
  for (char const uplo : {'u', 'L'})
    for (char const trans : {'N', 't'})
      for (char const diag : {'n', 'U'}) {
        Dense const a = RandomSymmetric(order, 5), x = Vector(order, 2);
        Dense const half = Triangle(uplo, a, notANumber);
        std::vector<double> const packed = Packed(uplo, a);
        Dense const product = x * Transposed(Op(trans, Triangle(uplo, a, 0, diag)));
        std::string const options{uplo, trans, diag};

        Dense full = x;
        BLAC_DTRMV(&uplo, &trans, &diag, &order, half.Data(), &half.ld, full.Data(), &full.ld);
        EXPECT_TRUE(Near(product, full)) << options;
        BLAC_DTRSV(&uplo, &trans, &diag, &order, half.Data(), &half.ld, full.Data(), &full.ld);
        EXPECT_TRUE(Near(x, full)) << options;

        Dense byPacked = x;
        BLAC_DTPMV(&uplo, &trans, &diag, &order, packed.data(), byPacked.Data(), &byPacked.ld);
        EXPECT_TRUE(Near(product, byPacked)) << options;
        BLAC_DTPSV(&uplo, &trans, &diag, &order, packed.data(), byPacked.Data(), &byPacked.ld);
        EXPECT_TRUE(Near(x, byPacked)) << options;
      }
}
