// A host program with BLAS and LAPACK routines of its own under the standard names, all of them wrong, and
// with an error handler of its own. The library must do without the former and call the latter.

#include "blac/BLAC.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

int trapped = 0;
std::string report;

std::string TakeReport() { return std::exchange(report, {}); }

auto NumberOfThreads() {
  std::filesystem::directory_iterator const tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

} // namespace

#define TRAP __attribute__((alias("trap")))

extern "C" {

void trap() { ++trapped; }

void dgemm_() TRAP, dgemv_() TRAP, dsymm_() TRAP, dsymv_() TRAP, dsyr2k_() TRAP, dsyrk_() TRAP, dtrmm_() TRAP;
void dtrsm_() TRAP, dtrsv_() TRAP, ddot_() TRAP, dscal_() TRAP, dpotrf_() TRAP, dgetrf_() TRAP,
    dgetrs_() TRAP;
void dsygst_() TRAP, dsyev_() TRAP, dsytrd_() TRAP, dsteqr_() TRAP, ilaenv_() TRAP, lsame_() TRAP;
void gotoblas_init() TRAP, bli_dgemm_ex() TRAP, bli_init() TRAP;

void xerbla_(char const* name, int const* position, std::size_t length) {
  report = std::string(name, strnlen(name, length)) + '/' + std::to_string(*position);
}
}

TEST(HostileHost, DoesNotTakeOverTheLibrarysRoutines) {
  int const n = 3, one = 1, itype = 1, lwork = 9;
  double const factor = 1, none = 0;
  int pivots[3], info = 99;

  // A*A of A = [4 1 0; 1 4 1; 0 1 4]
  std::vector<double> const a = {4, 1, 0, 1, 4, 1, 0, 1, 4}, square = {17, 8, 1, 8, 18, 8, 1, 8, 17};
  for (auto const product : {&BLAC_DGEMM, &BLAC_DGEMM2}) {
    std::vector<double> c(9);
    product("N", "T", &n, &n, &n, &factor, a.data(), &n, a.data(), &n, &none, c.data(), &n);
    EXPECT_EQ(c, square);
  }

  std::vector<double> factors = a, x = {5, 6, 5};
  BLAC_DGESV(&n, &one, factors.data(), &n, pivots, x.data(), &n, &info);
  EXPECT_EQ(info, 0);
  for (double const value : x)
    EXPECT_NEAR(value, 1, 1e-14);

  // A*x = lambda*I*x: 4 - sqrt(2), 4, 4 + sqrt(2)
  std::vector<double> modes = a, identity = {1, 0, 0, 0, 1, 0, 0, 0, 1}, w(3), work(9);
  BLAC_DSYGV(&itype, "V", "L", &n, modes.data(), &n, identity.data(), &n, w.data(), work.data(), &lwork,
             &info);
  EXPECT_EQ(info, 0);
  for (int k = 0; k < 3; ++k)
    EXPECT_NEAR(w[k], 4 + (k - 1) * std::sqrt(2), 1e-13);

  EXPECT_EQ(trapped, 0);
}

TEST(HostileHost, GetsTheReportsOfIllegalArguments) {
  int const n = 2, negative = -1, lwork = 2;
  double a[4] = {}, one = 1;
  int pivots[2], info = 99;

  BLAC_DGEMM("N", "N", &n, &n, &negative, &one, a, &n, a, &n, &one, a, &n);
  EXPECT_EQ(TakeReport(), "DGEMM /5");
  BLAC_DGEMM2("N", "x", &n, &n, &n, &one, a, &n, a, &n, &one, a, &n);
  EXPECT_EQ(TakeReport(), "DGEMM /2");
  BLAC_DSYTRF("?", &n, a, &n, pivots, a, &lwork, &info);
  EXPECT_EQ(TakeReport(), "DSYTRF/1");
  BLAC_DGESV(&n, &negative, a, &n, pivots, a, &n, &info);
  EXPECT_EQ(TakeReport(), "DGESV /2");
}

TEST(HostileHost, SeesNoThreadStartedForALargeProduct) {
  int const n = 1500;
  double const one = 1, none = 0;
  std::vector<double> const a(n * n, 1);
  std::vector<double> c(a.size());
  auto const before = NumberOfThreads();

  std::atomic<bool> done = false;
  auto during = before;
  std::thread watch([&] {
    while (!done) {
      during = std::max(during, NumberOfThreads());
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (auto const product : {&BLAC_DGEMM, &BLAC_DGEMM2})
    product("N", "N", &n, &n, &n, &one, a.data(), &n, a.data(), &n, &none, c.data(), &n);
  auto const after = NumberOfThreads();
  done = true;
  watch.join();

  EXPECT_EQ(during, before + 1); // the one that watches
  EXPECT_EQ(after, before + 1);
  EXPECT_EQ(c.front(), n);
}
