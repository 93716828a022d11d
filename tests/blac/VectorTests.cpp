#include "blac/BLAC.h"

#include <gtest/gtest.h>

#include <vector>

using Doubles = std::vector<double>;

// Strides 2 and 3 over x = (3, -4, 12) and y = (1, 2, 3); what lies between is 100.
class VectorRoutines : public testing::Test {
protected:
  int n = 3, incx = 2, incy = 3;
  Doubles x = {3, 100, -4, 100, 12};
  Doubles y = {1, 100, 100, 2, 100, 100, 3};
};

TEST_F(VectorRoutines, ReduceAVectorToANumber) {
  EXPECT_EQ(BLAC_DASUM(&n, x.data(), &incx), 19);
  EXPECT_EQ(BLAC_DDOT(&n, x.data(), &incx, y.data(), &incy), 31);
  EXPECT_DOUBLE_EQ(BLAC_DNRM2(&n, x.data(), &incx), 13);
  EXPECT_EQ(BLAC_IDAMAX(&n, x.data(), &incx), 3);

  int const none = 0;
  EXPECT_EQ(BLAC_IDAMAX(&none, x.data(), &incx), 0);
}

TEST_F(VectorRoutines, ChangeOnlyTheElementsOfTheirStride) {
  double const minusTwo = -2;
  BLAC_DAXPY(&n, &minusTwo, x.data(), &incx, y.data(), &incy);
  EXPECT_EQ(y, (Doubles{-5, 100, 100, 10, 100, 100, -21}));

  BLAC_DSCAL(&n, &minusTwo, x.data(), &incx);
  EXPECT_EQ(x, (Doubles{-6, 100, 8, 100, -24}));

  BLAC_DSWAP(&n, x.data(), &incx, y.data(), &incy);
  EXPECT_EQ(x, (Doubles{-5, 100, 10, 100, -21}));
  EXPECT_EQ(y, (Doubles{-6, 100, 100, 8, 100, 100, -24}));

  BLAC_DCOPY(&n, x.data(), &incx, y.data(), &incy);
  EXPECT_EQ(y, (Doubles{-5, 100, 100, 10, 100, 100, -21}));
}

TEST_F(VectorRoutines, RotatePlanes) {
  double const c = 0.5, s = 2;
  BLAC_DROT(&n, x.data(), &incx, y.data(), &incy, &c, &s);

  EXPECT_EQ(x, (Doubles{3.5, 100, 2, 100, 12}));
  EXPECT_EQ(y, (Doubles{-5.5, 100, 100, 9, 100, 100, -22.5}));
}
