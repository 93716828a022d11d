#include "core/ORXCoreModules.h"
#include "core/ORXModuleCounter.h"
#include "sim/ORXSimModules.h"

#include <gtest/gtest.h>

namespace {

TEST(ModuleCounter, AStopTooManyIsMadeUpByTheNextStart) {
  ORXModuleCounter counter;
  int tally = 0;
  EXPECT_FALSE(counter.Stop(tally));
  EXPECT_FALSE(counter.Start(tally));
  EXPECT_EQ(tally, 0);
  EXPECT_TRUE(counter.Start(tally));
  EXPECT_EQ(tally, 1);
}

TEST(PlatformModules, EachCountsOnItsOwn) {
  using Function = void (*)(int&);
  constexpr Function modules[][2] = {{ORXBasCoreUtils_initialize, ORXBasCoreUtils_finalize},
                                     {ORXBasicUtils_initialize, ORXBasicUtils_finalize},
                                     {ORXUnicodeString_initialize, ORXUnicodeString_finalize},
                                     {ORXSimContainers_initialize, ORXSimContainers_finalize},
                                     {ORXSimAPI_initialize, ORXSimAPI_finalize},
                                     {ORXSrvBasic_initialize, ORXSrvBasic_finalize}};
  int tally = 0;
  for (auto const& [initialize, finalize] : modules) {
    initialize(tally);
    initialize(tally);
  }
  EXPECT_EQ(tally, 6);
  for (auto const& [initialize, finalize] : modules)
    finalize(tally);
  EXPECT_EQ(tally, 6);
  for (auto const& [initialize, finalize] : modules)
    finalize(tally);
  EXPECT_EQ(tally, 0);
}

} // namespace
