#include "ToolSupport.h"

#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace {

using namespace std::chrono_literals;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// What a progress line leaves in a stream when the work takes `duration`.
std::string ToldDuring(std::chrono::milliseconds duration, std::chrono::milliseconds period) {
  std::unique_ptr<std::FILE, CloseFile> const stream(std::tmpfile());
  {
    orx::tool::Progress const progress("solving", stream.get(), period);
    std::this_thread::sleep_for(duration);
  }
  std::string text(static_cast<std::size_t>(std::ftell(stream.get())), '\0');
  std::rewind(stream.get());
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), stream.get()), text.size());
  return text;
}

TEST(Progress, TellsTheActivityAndErasesItsLine) {
  std::string const told = ToldDuring(200ms, 10ms);

  EXPECT_TRUE(told.starts_with("\rorxmtx: solving: 2 s\033[K\rorxmtx: solving: 3 s\033[K")) << told;
  EXPECT_TRUE(told.ends_with("s\033[K\r\033[K")) << told;
}

TEST(Progress, ShortWorkLeavesNoTraceAndIsNotHeldUp) {
  auto const start = std::chrono::steady_clock::now();

  EXPECT_EQ(ToldDuring(0ms, 60'000ms), "");

  EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(Memory, RefusesWhatDoesNotFitAndSaysHowMuch) {
  // Four matrices of 10000 x 10000 doubles are 3.2 GB, and columns of workspace.
  EXPECT_EQ(Ending([] { orx::tool::RequireFits(10000, 3'000'000'000U); }),
            "3 order 10000: the dense matrices need 3.2 GB of memory, 3.0 GB are available");
  EXPECT_EQ(Ending([] { orx::tool::RequireFits(10000, 3'300'000'000U); }), "no error");
  EXPECT_EQ(Ending([] { orx::tool::RequireFits(10000, {}); }), "no error");
}

TEST(Memory, RefusesShapesWhoseTablesDoNotFit) {
  EXPECT_EQ(
      Ending([] { orx::tool::RequireRoomForTables("K.txt", 2'000'000'000, 1, 99'000'000'000U); }),
      "3 'K.txt': the matrix is 2000000000 x 1, whose tables of rows and columns need 100.0 GB of memory, "
      "99.0 GB are available");
  EXPECT_EQ(Ending([] { orx::tool::RequireRoomForTables("K.txt", 1, 2'000'000'000, 100'000'000'000U); }),
            "no error");
  if (orx::tool::AvailableMemory().value_or(~0ULL) > 100'000'000'000U) GTEST_SKIP() << "it would fit";
  TemporaryFolder const folder;
  for (std::string const& text : {General("2147483647 1 0\n"), std::string("0,2147483640,1\n")})
    EXPECT_NE(RunTool("info " + folder.Write("a", text)).exitCode, 0) << text;
}

} // namespace
