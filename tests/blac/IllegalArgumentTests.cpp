#include "BlacSupport.h"
#include "blac/BLAC.h"

namespace {

/// The arguments of a call that is right for each LAPACK routine of the layer, until one is spoiled.
struct Call {
  char uplo = 'L', trans = 'N', side = 'L', jobz = 'V', range = 'A', diag = 'N';
  int itype = 1, m = 2, n = 2, nrhs = 1, lda = 2, ldb = 2, il = 1, iu = 2, nzc = 2, lwork = 100, liwork = 100;
  int tryrac = 1, found = 0, info = 99, pivots[4] = {1, 2}, iwork[100] = {};
  double vl = 0, vu = 1, abstol = 0, a[4] = {4, 1, 1, 3}, b[4] = {1, 0, 0, 1}, w[4] = {4, 3}, e[4] = {1},
         z[4] = {};
  double work[100] = {};
};

/// An argument's position in a routine's list, the field it is taken from and an illegal value of it.
struct Fault {
  Fault(int at, char Call::*field) : position(at), option(field) {}
  Fault(int at, int Call::*field, int bad) : position(at), number(field), value(bad) {}
  void Spoil(Call& call) const {
    if (option != nullptr) call.*option = '?';
    if (number != nullptr) call.*number = value;
  }
  int position;
  char Call::*option = nullptr;
  int Call::*number = nullptr;
  int value = 0;
};

struct Routine {
  char const* name; ///< as the error handler gets it
  void (*call)(Call& c);
  std::vector<Fault> faults;
};

Fault Uplo(int position) { return {position, &Call::uplo}; }
Fault N(int position) { return {position, &Call::n, -1}; }
Fault Nrhs(int position) { return {position, &Call::nrhs, -1}; }
Fault Lda(int position) { return {position, &Call::lda, 1}; }
Fault Ldb(int position) { return {position, &Call::ldb, 1}; }
Fault Lwork(int position) { return {position, &Call::lwork, 0}; }
Fault Jobz(int position) { return {position, &Call::jobz}; }
Fault Range(int position) { return {position, &Call::range}; }
Fault Itype(int position) { return {position, &Call::itype, 4}; }

std::vector<Routine> const& Routines() {
  static std::vector<Routine> const routines = {
      {"DGETRF",
       [](Call& c) { BLAC_DGETRF(&c.m, &c.n, c.a, &c.lda, c.pivots, &c.info); },
       {{1, &Call::m, -1}, N(2), Lda(4)}},
      {"DGETRS",
       [](Call& c) { BLAC_DGETRS(&c.trans, &c.n, &c.nrhs, c.a, &c.lda, c.pivots, c.b, &c.ldb, &c.info); },
       {{1, &Call::trans}, N(2), Nrhs(3), Lda(5), Ldb(8)}},
      {"DORMTR",
       [](Call& c) {
         BLAC_DORMTR(&c.side, &c.uplo, &c.trans, &c.m, &c.n, c.a, &c.lda, c.w, c.b, &c.ldb, c.work, &c.lwork,
                     &c.info);
       },
       {{1, &Call::side}, Uplo(2), {3, &Call::trans}, {4, &Call::m, -1}, N(5), Lda(7), Ldb(10), Lwork(12)}},
      {"DPOTRF", [](Call& c) { BLAC_DPOTRF(&c.uplo, &c.n, c.a, &c.lda, &c.info); }, {Uplo(1), N(2), Lda(4)}},
      {"DPPTRF", [](Call& c) { BLAC_DPPTRF(&c.uplo, &c.n, c.a, &c.info); }, {Uplo(1), N(2)}},
      {"DPPTRI", [](Call& c) { BLAC_DPPTRI(&c.uplo, &c.n, c.a, &c.info); }, {Uplo(1), N(2)}},
      {"DPPTRS",
       [](Call& c) { BLAC_DPPTRS(&c.uplo, &c.n, &c.nrhs, c.a, c.b, &c.ldb, &c.info); },
       {Uplo(1), N(2), Nrhs(3), Ldb(6)}},
      {"DSPEVX",
       [](Call& c) {
         BLAC_DSPEVX(&c.jobz, &c.range, &c.uplo, &c.n, c.a, &c.vl, &c.vu, &c.il, &c.iu, &c.abstol, &c.found,
                     c.w, c.z, &c.ldb, c.work, c.iwork, c.pivots, &c.info);
       },
       {Jobz(1), Range(2), Uplo(3), N(4), Ldb(14)}},
      {"DSTEMR",
       [](Call& c) {
         BLAC_DSTEMR(&c.jobz, &c.range, &c.n, c.a, c.e, &c.vl, &c.vu, &c.il, &c.iu, &c.found, c.w, c.z,
                     &c.ldb, &c.nzc, c.pivots, &c.tryrac, c.work, &c.lwork, c.iwork, &c.liwork, &c.info);
       },
       // LAPACK itself counts the two lengths one short.
       {Jobz(1), Range(2), N(3), Ldb(13), Lwork(17), {19, &Call::liwork, 0}}},
      {"DSTEVR",
       [](Call& c) {
         BLAC_DSTEVR(&c.jobz, &c.range, &c.n, c.a, c.e, &c.vl, &c.vu, &c.il, &c.iu, &c.abstol, &c.found, c.w,
                     c.z, &c.ldb, c.pivots, c.work, &c.lwork, c.iwork, &c.liwork, &c.info);
       },
       {Jobz(1), Range(2), N(3), Ldb(14), Lwork(17), {19, &Call::liwork, 0}}},
      {"DSYEV ",
       [](Call& c) { BLAC_DSYEV(&c.jobz, &c.uplo, &c.n, c.a, &c.lda, c.w, c.work, &c.lwork, &c.info); },
       {Jobz(1), Uplo(2), N(3), Lda(5), Lwork(8)}},
      {"DSYEVX",
       [](Call& c) {
         BLAC_DSYEVX(&c.jobz, &c.range, &c.uplo, &c.n, c.a, &c.lda, &c.vl, &c.vu, &c.il, &c.iu, &c.abstol,
                     &c.found, c.w, c.z, &c.ldb, c.work, &c.lwork, c.iwork, c.pivots, &c.info);
       },
       {Jobz(1), Range(2), Uplo(3), N(4), Lda(6), Ldb(15), Lwork(17)}},
      {"DSYGST",
       [](Call& c) { BLAC_DSYGST(&c.itype, &c.uplo, &c.n, c.a, &c.lda, c.b, &c.ldb, &c.info); },
       {Itype(1), Uplo(2), N(3), Lda(5), Ldb(7)}},
      {"DSYGV ",
       [](Call& c) {
         BLAC_DSYGV(&c.itype, &c.jobz, &c.uplo, &c.n, c.a, &c.lda, c.b, &c.ldb, c.w, c.work, &c.lwork,
                    &c.info);
       },
       {Itype(1), Jobz(2), Uplo(3), N(4), Lda(6), Ldb(8), Lwork(11)}},
      {"DSYTRD",
       [](Call& c) { BLAC_DSYTRD(&c.uplo, &c.n, c.a, &c.lda, c.w, c.e, c.z, c.work, &c.lwork, &c.info); },
       {Uplo(1), N(2), Lda(4), Lwork(9)}},
      {"DSYTRF",
       [](Call& c) { BLAC_DSYTRF(&c.uplo, &c.n, c.a, &c.lda, c.pivots, c.work, &c.lwork, &c.info); },
       {Uplo(1), N(2), Lda(4), Lwork(7)}},
      {"DSYTRS",
       [](Call& c) { BLAC_DSYTRS(&c.uplo, &c.n, &c.nrhs, c.a, &c.lda, c.pivots, c.b, &c.ldb, &c.info); },
       {Uplo(1), N(2), Nrhs(3), Lda(5), Ldb(8)}},
      {"DTPTRI",
       [](Call& c) { BLAC_DTPTRI(&c.uplo, &c.diag, &c.n, c.a, &c.info); },
       {Uplo(1), {2, &Call::diag}, N(3)}},
  };
  return routines;
}

} // namespace

TEST(IllegalArguments, AreInInfoAndToldToTheErrorHandler) {
  for (Routine const& routine : Routines()) {
    Call right;
    routine.call(right);
    ASSERT_EQ(right.info, 0) << routine.name;
    ASSERT_EQ(TakeReport(), "");
    for (Fault const& fault : routine.faults) {
      Call spoiled;
      fault.Spoil(spoiled);
      routine.call(spoiled);
      EXPECT_EQ(spoiled.info, -fault.position) << routine.name;
      EXPECT_EQ(TakeReport(), routine.name + ('/' + std::to_string(fault.position)));
    }
  }
}
