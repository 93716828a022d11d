#include "ToolSupport.h"

#include "mtx/ORXSrvProgress.h"
#include "tools/formats/OutputFile.h"
#include "tools/numerics/SearchProgress.h"
#include "tools/terminal/Interruption.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace {

using namespace std::chrono_literals;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// What progress leaves in a stream, where `second` stands for the second, during work(progress).
template<class Work>
std::string ToldDuring(bool isTerminal, std::chrono::milliseconds second, Work const& work) {
  std::unique_ptr<std::FILE, CloseFile> const stream(std::tmpfile());
  {
    orx::tool::Progress progress("modes", stream.get(), isTerminal, second);
    work(progress);
  }
  std::string text(static_cast<std::size_t>(std::ftell(stream.get())), '\0');
  std::rewind(stream.get());
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), stream.get()), text.size());
  return text;
}

TEST(Progress, TellsTheActivityAndErasesItsLine) {
  std::string const told =
      ToldDuring(true, 10ms, [](orx::tool::Progress&) { std::this_thread::sleep_for(200ms); });

  EXPECT_TRUE(told.starts_with("\rorxmtx: modes: 2 s\033[K\rorxmtx: modes: 3 s\033[K")) << told;
  EXPECT_TRUE(told.ends_with("s\033[K\r\033[K")) << told;
}

TEST(Progress, ShortWorkLeavesNoTraceAndIsNotHeldUp) {
  auto const start = std::chrono::steady_clock::now();

  for (bool const isTerminal : {true, false})
    EXPECT_EQ(ToldDuring(isTerminal, 60'000ms, [](orx::tool::Progress&) {}), "");

  EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(Progress, TellsElsewhereALineEachTenSecondsWithPhaseShareAndEstimate) {
  std::string const told = ToldDuring(false, 20ms, [](orx::tool::Progress& progress) {
    progress.BeginPhase("factorization 2", 1e6);
    std::this_thread::sleep_for(300ms);
    progress.BeginPhase("Lanczos");
    progress.SetShare("5 of 20 modes", 0.25);
    std::this_thread::sleep_for(200ms);
  });

  std::string const first = "orxmtx: modes: factorization 2, 0 %, about 16";
  EXPECT_TRUE(told.starts_with(first)) << told;
  EXPECT_CONTAINS(told, " min left, 10 s\norxmtx: modes: Lanczos, 5 of 20 modes, 25 %, about ");
  EXPECT_CONTAINS(told, " s left, 20 s\n");
  EXPECT_EQ(told.find('\r'), std::string::npos);
}

TEST(Progress, OfASearchFollowsItsReports) {
  struct Case {
    char const* operation;
    int done, total;
    char const* line;
  };
  std::string const told = ToldDuring(true, 60'000ms, [](orx::tool::Progress& progress) {
    orx::tool::SearchProgress const search(progress);
    for (Case const& report :
         {Case{orx::tool::SearchProgress::start, 1, 1, "orxmtx: modes: analysis"},
          Case{"ORXSrvModes, analysis", 1, 2, "orxmtx: modes: factorization 1"},
          Case{"ORXSrvModes, factorization", 1, 2, "orxmtx: modes: Lanczos"},
          Case{"ORXSrvModes, modes", 2, 22, "orxmtx: modes: Lanczos, 1 of 20 modes"},
          Case{"ORXSrvDenseMatrix::Multiply", 1, 2, "orxmtx: modes: Lanczos, 1 of 20 modes"},
          Case{"ORXSrvModes, modes", 21, 22, "orxmtx: modes: all modes found, factorization 2 counts them"},
          Case{"ORXSrvModes, factorization", 2, 3, "orxmtx: modes: completing"}}) {
      ORXSrvProgress::Report(report.operation, report.done, report.total);
      EXPECT_TRUE(progress.TextAfter(7).starts_with(report.line)) << progress.TextAfter(7);
    }
  });
  EXPECT_EQ(told, "");
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

TEST(InterruptionDeathTest, LeavesNothingBehind) {
  TemporaryFolder const folder;
  auto const interrupt = [&] {
    setenv("TMPDIR", folder.Path("").c_str(), 1);
    orx::tool::WorkFolder const work;
    std::filesystem::create_directory(work.Path() + "/inner");
    for (int i = 0; i < 300; ++i)
      std::ofstream(work.Path() + "/inner/a file of the factor " + std::to_string(i)) << "x";
    orx::tool::ReplacedFile const first(folder.Path("u.txt")), second(folder.Path("r.txt"));
    if (folder.Files().size() != 3) std::_Exit(1);
    std::raise(SIGINT);
  };
  EXPECT_EXIT(interrupt(), testing::KilledBySignal(SIGINT), "");
  EXPECT_TRUE(folder.Files().empty());
}

} // namespace
