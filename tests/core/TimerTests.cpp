#include "core/omi_Singleton.h"
#include "core/omi_Timer.h"

#include <gtest/gtest.h>

namespace {

void Spin(double seconds) {
  omi_Timer watch;
  watch.Start();
  while (watch.GetTotalCpuTime() < seconds) {
  }
}

TEST(Timer, AddsUpIntervalsAndStandsStillBetweenThem) {
  omi_Timer timer;
  EXPECT_EQ(timer.GetElapsedTime(), 0.0);
  timer.Start();
  Spin(0.002);
  EXPECT_GE(timer.GetTotalCpuTime(), 0.002);
  timer.Stop();
  double const elapsed = timer.GetElapsedTime(), cpu = timer.GetTotalCpuTime();
  Spin(0.002);
  EXPECT_EQ(timer.GetElapsedTime(), elapsed);
  EXPECT_EQ(timer.GetTotalCpuTime(), cpu);
  timer.Start();
  Spin(0.002);
  timer.Stop();
  EXPECT_GE(timer.GetTotalCpuTime(), cpu + 0.002);
  EXPECT_LT(timer.GetTotalCpuTime(), cpu + 1.0);
}

struct Single : omi_SingletonBase<Single> {
  static inline int made = 0;
  Single() { ++made; }
};

TEST(Singleton, IsMadeOnFirstUseAndAgainAfterItsEnd) {
  EXPECT_EQ(omi_SingletonBase<Single>::instance, nullptr);
  Single& first = omi_Singleton<Single>::Instance();
  EXPECT_EQ(&omi_Singleton<Single>::Instance(), &first);
  omi_Singleton<Single>::Destroy();
  omi_Singleton<Single>::Destroy();
  EXPECT_EQ(omi_SingletonBase<Single>::instance, nullptr);
  omi_Singleton<Single>::Instance();
  EXPECT_EQ(Single::made, 2);
  omi_Singleton<Single>::Destroy();
}

} // namespace
