// A host program without an error handler: it gets the library's.

#include "blac/BLAC.h"

#include <gtest/gtest.h>

TEST(PlainHost, SeesTheStandardMessageOnStandardErrorAndGoesOn) {
  int const n = 2, negative = -1, wide = 12, lwork = 2;
  double a[4] = {}, one = 1;
  int pivots[2], info = 99;

  testing::internal::CaptureStderr();
  BLAC_DGEMM("N", "N", &n, &n, &negative, &one, a, &n, a, &n, &one, a, &n);
  BLAC_DSYTRF("?", &n, a, &n, pivots, a, &lwork, &info);
  BLAC_XERBLA("ABC   ", &wide);

  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            " ** On entry to DGEMM parameter number  5 had an illegal value\n"
            " ** On entry to DSYTRF parameter number  1 had an illegal value\n"
            " ** On entry to ABC parameter number 12 had an illegal value\n");
  EXPECT_EQ(info, -1);
}
