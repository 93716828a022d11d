#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

using Doubles = std::vector<double>;

constexpr int two = 2, one = 1;

} // namespace

TEST(Dgesv, SolvesForSeveralRightHandSides) {
  Dense const a = Random(5, 5, 2), x = Random(5, 3, 1);
  Dense factors = a, b = a * x;
  int pivots[5], info = 99;

  BLAC_DGESV(&a.rows, &x.columns, factors.Data(), &factors.ld, pivots, b.Data(), &b.ld, &info);

  EXPECT_EQ(info, 0);
  EXPECT_TRUE(Near(x, b, 1e-11));
}

TEST(Dppsv, SolvesWithEitherTriangle) {
  for (char const uplo : {'u', 'U', 'l', 'L'}) {
    Dense const s = RandomSymmetric(5, 12), x = Random(5, 3, 1);
    Doubles packed = Packed(uplo, s);
    Dense b = s * x;
    int info = 99;

    BLAC_DPPSV(&uplo, &s.rows, &x.columns, packed.data(), b.Data(), &b.ld, &info);

    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(x, b)) << uplo;
  }
}

TEST(Drivers, LeaveTheRightHandSideOfASingularMatrixOrOneThatIsNotDefinite) {
  Doubles singular = {1, 2, 2, 4}, indefinite = {1, 2, 1}, b = {3, 4};
  int pivots[2], info = 99;

  BLAC_DGESV(&two, &one, singular.data(), &two, pivots, b.data(), &two, &info);
  EXPECT_EQ(info, 2);
  BLAC_DPPSV("U", &two, &one, indefinite.data(), b.data(), &two, &info);
  EXPECT_EQ(info, 2);

  EXPECT_EQ(TakeReport(), "");
  EXPECT_EQ(b, (Doubles{3, 4}));
}

TEST(Drivers, WantLeadingDimensionsOfOneForAnEmptySystemToo) {
  int const none = 0;
  double a = 0, b = 0;
  int pivot = 0, info = 99;
  auto const dgesv = [&](int lda, int ldb) {
    BLAC_DGESV(&none, &one, &a, &lda, &pivot, &b, &ldb, &info);
    return info;
  };

  EXPECT_EQ(dgesv(1, 1), 0);
  EXPECT_EQ(TakeReport(), "");
  EXPECT_EQ(dgesv(0, 1), -4);
  EXPECT_EQ(dgesv(1, 0), -7);
  BLAC_DPPSV("L", &none, &one, &a, &b, &none, &info);
  EXPECT_EQ(info, -6);
  EXPECT_EQ(TakeReport(), "DGESV /4DGESV /7DPPSV /6");
}

// | 1 0 |                     | 1         |   | 4 1   |
// | 2 1 |  rows 3, 2, 1  =  | 0.5  1    | * |   0.5 |
// | 4 1 |                     | 0.25 -0.5 |
TEST(Dgetrf, FactorsATallMatrixAsOnPaper) {
  int const rows = 3;
  Doubles a = {1, 2, 4, 0, 1, 1};
  int pivots[] = {0, 0}, info = 9;

  BLAC_DGETRF(&rows, &two, a.data(), &rows, pivots, &info);

  EXPECT_EQ(info, 0);
  EXPECT_EQ(a, (Doubles{4, 0.5, 0.25, 1, 0.5, -0.5}));
  EXPECT_EQ(std::vector(pivots, pivots + 2), (std::vector{3, 2}));
}

TEST(ErrorHandler, GetsSixCharactersOfTheName) {
  int const position = 12;
  BLAC_XERBLA("MYNAME and more", &position);
  EXPECT_EQ(TakeReport(), "MYNAME/12");
}
