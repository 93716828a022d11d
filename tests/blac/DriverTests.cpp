#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

using Doubles = std::vector<double>;

/// A call of DGESV that fits [2 1; 1 3]*x = (3, 4), x = (1, 1), and is then spoiled.
struct GeneralSystem {
  int n = 2, nrhs = 1, lda = 2, ldb = 2, info = 99;
  Doubles a = {2, 1, 1, 3}, b = {3, 4};
  int pivots[2] = {0, 0};

  std::string Solve() {
    BLAC_DGESV(&n, &nrhs, a.data(), &lda, pivots, b.data(), &ldb, &info);
    return TakeReport();
  }
};

/// The same for DPPSV; the triangle packed is 2 1 3 either way.
struct PackedSystem {
  char uplo = 'U';
  int n = 2, nrhs = 1, ldb = 2, info = 99;
  Doubles ap = {2, 1, 3}, b = {3, 4};

  std::string Solve() {
    BLAC_DPPSV(&uplo, &n, &nrhs, ap.data(), b.data(), &ldb, &info);
    return TakeReport();
  }
};

template<class System>
void ExpectRefused(System system, std::string const& routine, int position) {
  Doubles const before = system.b;
  EXPECT_EQ(system.Solve(), routine + '/' + std::to_string(position));
  EXPECT_EQ(system.info, -position);
  EXPECT_EQ(system.b, before);
}

} // namespace

TEST(Dgesv, SolvesForSeveralRightHandSides) {
  Dense const a = Random(5, 5, 2), x = Random(5, 3);
  Dense factors = a, b = a * x;
  int pivots[5], info = 99;

  BLAC_DGESV(&a.rows, &x.columns, factors.Data(), &factors.ld, pivots, b.Data(), &b.ld, &info);

  EXPECT_EQ(info, 0);
  EXPECT_TRUE(Near(x, b, 1e-11));
}

TEST(Dgesv, ReportsTheFirstIllegalArgument) {
  ExpectRefused(GeneralSystem{.n = -1, .nrhs = -1, .lda = 0}, "DGESV ", 1);
  ExpectRefused(GeneralSystem{.nrhs = -1, .lda = 0, .ldb = 0}, "DGESV ", 2);
  ExpectRefused(GeneralSystem{.lda = 1, .ldb = 1}, "DGESV ", 4);
  ExpectRefused(GeneralSystem{.n = 3, .lda = 2, .ldb = 3}, "DGESV ", 4);
  ExpectRefused(GeneralSystem{.n = 0, .lda = 0}, "DGESV ", 4);
  ExpectRefused(GeneralSystem{.ldb = 1}, "DGESV ", 7);
}

TEST(Dgesv, AcceptsAnEmptySystem) {
  GeneralSystem system{.n = 0, .lda = 1, .ldb = 1};
  EXPECT_EQ(system.Solve(), "");
  EXPECT_EQ(system.info, 0);
}

TEST(Dgesv, LeavesTheRightHandSideWhenTheMatrixIsSingular) {
  GeneralSystem system{.a = {1, 2, 2, 4}};
  EXPECT_EQ(system.Solve(), "");
  EXPECT_EQ(system.info, 2);
  EXPECT_EQ(system.b, (Doubles{3, 4}));
}

TEST(Dppsv, SolvesWithEitherTriangle) {
  for (char const uplo : {'u', 'U', 'l', 'L'}) {
    Dense const s = RandomSymmetric(5, 12), x = Random(5, 3);
    Doubles packed = Packed(uplo, s);
    Dense b = s * x;
    int info = 99;

    BLAC_DPPSV(&uplo, &s.rows, &x.columns, packed.data(), b.Data(), &b.ld, &info);

    EXPECT_EQ(info, 0);
    EXPECT_TRUE(Near(x, b)) << uplo;
  }
}

TEST(Dppsv, ReportsTheFirstIllegalArgument) {
  ExpectRefused(PackedSystem{.uplo = 'x', .n = -1}, "DPPSV ", 1);
  ExpectRefused(PackedSystem{.n = -1, .nrhs = -1}, "DPPSV ", 2);
  ExpectRefused(PackedSystem{.nrhs = -1, .ldb = 0}, "DPPSV ", 3);
  ExpectRefused(PackedSystem{.ldb = 1}, "DPPSV ", 6);
  ExpectRefused(PackedSystem{.n = 0, .ldb = 0}, "DPPSV ", 6);
}

TEST(Dppsv, LeavesTheRightHandSideWhenAMinorIsNotPositive) {
  PackedSystem system{.ap = {1, 2, 1}};
  EXPECT_EQ(system.Solve(), "");
  EXPECT_EQ(system.info, 2);
  EXPECT_EQ(system.b, (Doubles{3, 4}));
}

TEST(ErrorHandler, IsTheProgramsOwnForLapackToo) {
  int const n = -1, lda = 1, lwork = 1;
  int pivot = 0, info = 99;
  double a = 0, work = 0;

  BLAC_DSYTRF("L", &n, &a, &lda, &pivot, &work, &lwork, &info);

  EXPECT_EQ(info, -2);
  EXPECT_EQ(TakeReport(), "DSYTRF/2");
}

TEST(ErrorHandler, GetsSixCharactersOfTheName) {
  int const position = 12;
  BLAC_XERBLA("MYNAME and more", &position);
  EXPECT_EQ(TakeReport(), "MYNAME/12");
}
