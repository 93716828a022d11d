#include "BlacSupport.h"
#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

#include <algorithm>

namespace {

/// The arguments of calls that are right for every routine of the layer, no two of them alike.
struct Call {
  /// With the second letter of each option instead of the first.
  explicit Call(bool second = false) {
    if (second) uplo = 'u', trans = 't', side = 'r', jobz = 'n', range = 'i', diag = 'u';
    std::mt19937 random(1);
    for (double* array : {a, b, c, ap, x, y, w, e, z, work})
      std::generate_n(array, 100, [&] { return static_cast<double>(random() % 1000) * 1e-3; });
    for (int j = 0; j < n; ++j) { // symmetric, definite
      for (int i = 0; i < j; ++i) {
        a[i + j * lda] = a[j + i * lda];
        b[i + j * ldb] = b[j + i * ldb];
      }
      a[j + j * lda] += 9;
      b[j + j * ldb] += 9;
      ap[uplo == 'L' ? j * n - j * (j - 1) / 2 : j * (j + 3) / 2] += 9;
    }
  }
  bool operator==(Call const&) const = default;

  char uplo = 'L', trans = 'N', side = 'L', jobz = 'V', range = 'A', diag = 'N';
  int itype = 1, m = 3, n = 4, k = 2, nrhs = 2, lda = 6, ldb = 7, ldc = 8, incx = 2, incy = 3;
  int il = 1, iu = 3, nzc = 4, lwork = 100, liwork = 100, tryrac = 1, found = 0, info = 99;
  double alpha = -1.5, beta = 0.5, vl = 0, vu = 1, abstol = 0, number = 0;
  int pivots[100] = {1, 3, 3, 4}, iwork[100] = {};
  double a[100], b[100], c[100], ap[100], x[100], y[100], w[100], e[100], z[100], work[100];
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

Fault Uplo(int position) { return {position, &Call::uplo}; }
Fault N(int position) { return {position, &Call::n, -1}; }
Fault M(int position) { return {position, &Call::m, -1}; }
Fault Nrhs(int position) { return {position, &Call::nrhs, -1}; }
Fault Lda(int position) { return {position, &Call::lda, 1}; }
Fault Ldb(int position) { return {position, &Call::ldb, 1}; }
Fault Ldc(int position) { return {position, &Call::ldc, 1}; }
Fault Lwork(int position) { return {position, &Call::lwork, 0}; }
Fault Liwork(int position) { return {position, &Call::liwork, 0}; }
Fault Jobz(int position) { return {position, &Call::jobz}; }
Fault Range(int position) { return {position, &Call::range}; }
Fault Trans(int position) { return {position, &Call::trans}; }
Fault Side(int position) { return {position, &Call::side}; }
Fault Diag(int position) { return {position, &Call::diag}; }
Fault Itype(int position) { return {position, &Call::itype, 4}; }

struct Routine {
  std::string Name() const { return std::string(name) + (name[5] == '\0' ? " " : ""); } ///< for the handler
  char const* name;
  void (*ofLayer)(Call& c);
  void (*ofDependency)(Call& c); ///< none for what the layer does itself
  std::vector<Fault> faults;     ///< of LAPACK, in the order in which they are looked for
};

#define O(field) &c.field
#define LENGTHS_0
#define LENGTHS_1 , 1
#define LENGTHS_2 , 1, 1
#define LENGTHS_3 , 1, 1, 1
#define LENGTHS_4 , 1, 1, 1, 1
#define ROUTINE(NAME, name, options, ...)                                                                    \
#NAME, [](Call & c) { BLAC_##NAME(__VA_ARGS__); }, [](Call & c) { name##_(__VA_ARGS__ LENGTHS_##options); }
#define FUNCTION(NAME, name, ...)                                                                            \
#NAME, [](Call & c) { c.number = BLAC_##NAME(__VA_ARGS__); }, [](Call &                                    \
                                                                   c) { c.number = name##_(__VA_ARGS__); }

std::vector<Routine> const& Routines() {
  static std::vector<Routine> const routines = {
      {FUNCTION(DASUM, dasum, O(n), c.x, O(incx)), {}},
      {FUNCTION(DDOT, ddot, O(n), c.x, O(incx), c.y, O(incy)), {}},
      {FUNCTION(DNRM2, dnrm2, O(n), c.x, O(incx)), {}},
      {FUNCTION(IDAMAX, idamax, O(n), c.x, O(incx)), {}},
      {ROUTINE(DAXPY, daxpy, 0, O(n), O(alpha), c.x, O(incx), c.y, O(incy)), {}},
      {ROUTINE(DCOPY, dcopy, 0, O(n), c.x, O(incx), c.y, O(incy)), {}},
      {ROUTINE(DROT, drot, 0, O(n), c.x, O(incx), c.y, O(incy), O(alpha), O(beta)), {}},
      {ROUTINE(DSCAL, dscal, 0, O(n), O(alpha), c.x, O(incx)), {}},
      {ROUTINE(DSWAP, dswap, 0, O(n), c.x, O(incx), c.y, O(incy)), {}},
      {ROUTINE(DGEMV, dgemv, 1, O(trans), O(m), O(n), O(alpha), c.a, O(lda), c.x, O(incx), O(beta), c.y,
               O(incy)),
       {}},
      {ROUTINE(DGER, dger, 0, O(m), O(n), O(alpha), c.x, O(incx), c.y, O(incy), c.a, O(lda)), {}},
      {ROUTINE(DSPMV, dspmv, 1, O(uplo), O(n), O(alpha), c.ap, c.x, O(incx), O(beta), c.y, O(incy)), {}},
      {ROUTINE(DSPR, dspr, 1, O(uplo), O(n), O(alpha), c.x, O(incx), c.ap), {}},
      {ROUTINE(DSPR2, dspr2, 1, O(uplo), O(n), O(alpha), c.x, O(incx), c.y, O(incy), c.ap), {}},
      {ROUTINE(DSYMV, dsymv, 1, O(uplo), O(n), O(alpha), c.a, O(lda), c.x, O(incx), O(beta), c.y, O(incy)),
       {}},
      {ROUTINE(DSYR, dsyr, 1, O(uplo), O(n), O(alpha), c.x, O(incx), c.a, O(lda)), {}},
      {ROUTINE(DSYR2, dsyr2, 1, O(uplo), O(n), O(alpha), c.x, O(incx), c.y, O(incy), c.a, O(lda)), {}},
      {ROUTINE(DTPMV, dtpmv, 3, O(uplo), O(trans), O(diag), O(n), c.ap, c.x, O(incx)), {}},
      {ROUTINE(DTPSV, dtpsv, 3, O(uplo), O(trans), O(diag), O(n), c.ap, c.x, O(incx)), {}},
      {ROUTINE(DTRMV, dtrmv, 3, O(uplo), O(trans), O(diag), O(n), c.a, O(lda), c.x, O(incx)), {}},
      {ROUTINE(DTRSV, dtrsv, 3, O(uplo), O(trans), O(diag), O(n), c.a, O(lda), c.x, O(incx)), {}},
      {ROUTINE(DSYMM, dsymm, 2, O(side), O(uplo), O(m), O(n), O(alpha), c.a, O(lda), c.b, O(ldb), O(beta),
               c.c, O(ldc)),
       {}},
      {ROUTINE(DSYR2K, dsyr2k, 2, O(uplo), O(trans), O(n), O(k), O(alpha), c.a, O(lda), c.b, O(ldb), O(beta),
               c.c, O(ldc)),
       {}},
      {ROUTINE(DSYRK, dsyrk, 2, O(uplo), O(trans), O(n), O(k), O(alpha), c.a, O(lda), O(beta), c.c, O(ldc)),
       {}},
      {ROUTINE(DTRMM, dtrmm, 4, O(side), O(uplo), O(trans), O(diag), O(m), O(n), O(alpha), c.a, O(lda), c.b,
               O(ldb)),
       {}},
      {ROUTINE(DTRSM, dtrsm, 4, O(side), O(uplo), O(trans), O(diag), O(m), O(n), O(alpha), c.a, O(lda), c.b,
               O(ldb)),
       {}},
      {"DGESV",
       [](Call& c) { BLAC_DGESV(O(n), O(nrhs), c.a, O(lda), c.pivots, c.b, O(ldb), O(info)); },
       nullptr,
       {N(1), Nrhs(2), Lda(4), Ldb(7)}},
      {ROUTINE(DGETRF, dgetrf, 0, O(m), O(n), c.a, O(lda), c.pivots, O(info)), {M(1), N(2), Lda(4)}},
      {ROUTINE(DGETRS, dgetrs, 1, O(trans), O(n), O(nrhs), c.a, O(lda), c.pivots, c.b, O(ldb), O(info)),
       {Trans(1), N(2), Nrhs(3), Lda(5), Ldb(8)}},
      {ROUTINE(DORMTR, dormtr, 3, O(side), O(uplo), O(trans), O(m), O(n), c.a, O(lda), c.w, c.c, O(ldc),
               c.work, O(lwork), O(info)),
       {Side(1), Uplo(2), Trans(3), M(4), N(5), Lda(7), Ldc(10), Lwork(12)}},
      {ROUTINE(DPOTRF, dpotrf, 1, O(uplo), O(n), c.a, O(lda), O(info)), {Uplo(1), N(2), Lda(4)}},
      {"DPPSV",
       [](Call& c) { BLAC_DPPSV(O(uplo), O(n), O(nrhs), c.ap, c.b, O(ldb), O(info)); },
       nullptr,
       {Uplo(1), N(2), Nrhs(3), Ldb(6)}},
      {ROUTINE(DPPTRF, dpptrf, 1, O(uplo), O(n), c.ap, O(info)), {Uplo(1), N(2)}},
      {ROUTINE(DPPTRI, dpptri, 1, O(uplo), O(n), c.ap, O(info)), {Uplo(1), N(2)}},
      {ROUTINE(DPPTRS, dpptrs, 1, O(uplo), O(n), O(nrhs), c.ap, c.b, O(ldb), O(info)),
       {Uplo(1), N(2), Nrhs(3), Ldb(6)}},
      {ROUTINE(DSPEVX, dspevx, 3, O(jobz), O(range), O(uplo), O(n), c.ap, O(vl), O(vu), O(il), O(iu),
               O(abstol), O(found), c.w, c.z, O(ldb), c.work, c.iwork, c.pivots, O(info)),
       {Jobz(1), Range(2), Uplo(3), N(4), Ldb(14)}},
      {ROUTINE(DSTEMR, dstemr, 2, O(jobz), O(range), O(n), c.a, c.e, O(vl), O(vu), O(il), O(iu), O(found),
               c.w, c.z, O(ldb), O(nzc), c.pivots, O(tryrac), c.work, O(lwork), c.iwork, O(liwork), O(info)),
       // LAPACK itself counts the two lengths one short.
       {Jobz(1), Range(2), N(3), Ldb(13), Lwork(17), Liwork(19)}},
      {ROUTINE(DSTEVR, dstevr, 2, O(jobz), O(range), O(n), c.a, c.e, O(vl), O(vu), O(il), O(iu), O(abstol),
               O(found), c.w, c.z, O(ldb), c.pivots, c.work, O(lwork), c.iwork, O(liwork), O(info)),
       {Jobz(1), Range(2), N(3), Ldb(14), Lwork(17), Liwork(19)}},
      {ROUTINE(DSYEV, dsyev, 2, O(jobz), O(uplo), O(n), c.a, O(lda), c.w, c.work, O(lwork), O(info)),
       {Jobz(1), Uplo(2), N(3), Lda(5), Lwork(8)}},
      {ROUTINE(DSYEVX, dsyevx, 3, O(jobz), O(range), O(uplo), O(n), c.a, O(lda), O(vl), O(vu), O(il), O(iu),
               O(abstol), O(found), c.w, c.z, O(ldb), c.work, O(lwork), c.iwork, c.pivots, O(info)),
       {Jobz(1), Range(2), Uplo(3), N(4), Lda(6), Ldb(15), Lwork(17)}},
      {ROUTINE(DSYGST, dsygst, 1, O(itype), O(uplo), O(n), c.a, O(lda), c.b, O(ldb), O(info)),
       {Itype(1), Uplo(2), N(3), Lda(5), Ldb(7)}},
      {ROUTINE(DSYGV, dsygv, 2, O(itype), O(jobz), O(uplo), O(n), c.a, O(lda), c.b, O(ldb), c.w, c.work,
               O(lwork), O(info)),
       {Itype(1), Jobz(2), Uplo(3), N(4), Lda(6), Ldb(8), Lwork(11)}},
      {ROUTINE(DSYTRD, dsytrd, 1, O(uplo), O(n), c.a, O(lda), c.w, c.e, c.z, c.work, O(lwork), O(info)),
       {Uplo(1), N(2), Lda(4), Lwork(9)}},
      {ROUTINE(DSYTRF, dsytrf, 1, O(uplo), O(n), c.a, O(lda), c.pivots, c.work, O(lwork), O(info)),
       {Uplo(1), N(2), Lda(4), Lwork(7)}},
      {ROUTINE(DSYTRS, dsytrs, 1, O(uplo), O(n), O(nrhs), c.a, O(lda), c.pivots, c.b, O(ldb), O(info)),
       {Uplo(1), N(2), Nrhs(3), Lda(5), Ldb(8)}},
      {ROUTINE(DTPTRI, dtptri, 2, O(uplo), O(diag), O(n), c.ap, O(info)), {Uplo(1), Diag(2), N(3)}},
  };
  return routines;
}

} // namespace

TEST(Routines, GiveWhatTheDependencysRoutineOfTheirNameGives) {
  for (Routine const& routine : Routines())
    for (bool const second : {false, true}) {
      SCOPED_TRACE(routine.name);
      Call const before(second);
      Call call = before, expected = before;

      routine.ofLayer(call);

      EXPECT_EQ(TakeReport(), "");
      EXPECT_FALSE(call == before);
      EXPECT_EQ(call.info, routine.faults.empty() ? before.info : 0);
      if (routine.ofDependency == nullptr) continue;
      routine.ofDependency(expected);
      EXPECT_TRUE(call == expected);
    }
}

TEST(Routines, PutAnIllegalArgumentIntoInfoAndTellTheErrorHandler) {
  for (Routine const& routine : Routines())
    for (std::size_t first = 0; first < routine.faults.size(); ++first)
      for (std::size_t const end :
           {first + 1, routine.faults.size()}) { // one of them, and the first of several
        Call spoiled;
        for (std::size_t k = first; k < end; ++k)
          routine.faults[k].Spoil(spoiled);
        routine.ofLayer(spoiled);
        std::string const position = std::to_string(routine.faults[first].position);
        EXPECT_EQ(std::to_string(-spoiled.info), position) << routine.name;
        EXPECT_EQ(TakeReport(), routine.Name() + '/' + position);
        EXPECT_TRUE(std::ranges::equal(spoiled.b, Call().b)) << routine.name;
      }
}
