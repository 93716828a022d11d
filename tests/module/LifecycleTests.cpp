#include "module/ORXSrvLinearAlgebra.h"

#include "core/omi_Singleton.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvTimer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

TEST(Lifecycle, NestedStartsChangeNothing) {
  int tally = 0;
  ORXSrvLinearAlgebra_initialize(tally);
  EXPECT_EQ(tally, 9); // the library and the eight modules it starts
  ORXSrvLinearAlgebra_initialize(tally);
  ORXSrvLinearAlgebra_finalize(tally);
  EXPECT_EQ(tally, 9);
  ORXSrvLinearAlgebra_finalize(tally);
  EXPECT_EQ(tally, 0);
}

[[noreturn]] void EndOfHost() {
  std::fputs("the host's handler\n", stderr);
  std::_Exit(3);
}

TEST(Lifecycle, UncaughtErrorsPrintTheirTextBeforeTheHostsHandler) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto const endIn = [](bool inSession) noexcept {
    std::set_terminate(EndOfHost);
    int tally = 0;
    ORXSrvLinearAlgebra_initialize(tally);
    ORXSrvLinearAlgebra_initialize(tally);
    ORXSrvLinearAlgebra_finalize(tally);
    if (!inSession) ORXSrvLinearAlgebra_finalize(tally);
    static_cast<void>(ORXSrvMatrix(2, 2)(2, 0));
  };
  EXPECT_EXIT(endIn(true), testing::ExitedWithCode(3),
              "^Error 206, .*: ORXSrvMatrix::operator\\(\\) - Illegal input.\nthe host's handler\n$");
  EXPECT_EXIT(endIn(false), testing::ExitedWithCode(3), "^the host's handler\n$");
}

TEST(Lifecycle, ModulesInUseByOthersStayUp) {
  int tally = 0;
  mtx_initialize(tally);
  blaC_initialize(tally);
  ORXSrvLinearAlgebra_initialize(tally);
  EXPECT_EQ(tally, 9);
  ORXSrvLinearAlgebra_finalize(tally);
  EXPECT_EQ(tally, 2);
  blaC_formalize();
  blaC_finalize(tally);
  mtx_finalize(tally);
  EXPECT_EQ(tally, 0);
}

TEST(Lifecycle, StoppingTheMatrixLayerEndsTheProcessTimer) {
  int tally = 0;
  mtx_initialize(tally);
  ORXSrvTimer& timer = omi_Singleton<ORXSrvTimer>::Instance();
  EXPECT_EQ(timer.Timer(), nullptr);
  timer.CreateTimer();
  while (timer.Timer()->GetElapsedTime() < 0.002) {
  }
  double const before = timer.Timer()->GetElapsedTime();
  timer.CreateTimer();
  EXPECT_LT(timer.Timer()->GetElapsedTime(), before);

  mtx_initialize(tally);
  mtx_finalize(tally);
  EXPECT_EQ(omi_SingletonBase<ORXSrvTimer>::instance, &timer);
  mtx_finalize(tally);
  EXPECT_EQ(omi_SingletonBase<ORXSrvTimer>::instance, nullptr);
  EXPECT_EQ(omi_Singleton<ORXSrvTimer>::Instance().Timer(), nullptr);
  omi_Singleton<ORXSrvTimer>::Destroy();
}

} // namespace
