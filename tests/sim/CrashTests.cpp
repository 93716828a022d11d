#include "DatabaseSupport.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

// What a file must hold after `n` rounds is computed, not remembered, so that it can be compared with what is
// found after the process that wrote it was killed.
//
//   round k    a set {k, k + 5, k + 3}; a field of 6 x 4 in chunks 2 x 3 with cells k, k + 1, ...; one more
//   row in
//              field k - 3; each 4th: a new drawer for field k - 2, whole, all cells -k; commit; then, in
//              place, cell 0 of the newest field becomes 1000 + k

namespace {

constexpr int columns = 6;
constexpr int rows = 4;

std::vector<double> FirstCells(int round) {
  std::vector<double> cells(columns * rows);
  for (std::size_t k = 0; k < cells.size(); ++k)
    cells[k] = round + static_cast<double>(k);
  return cells;
}

void DoRound(ORXSimContext const& context, int round) {
  ORXSimTransaction transaction(context.ID());
  ORXSimCollection const collection(context.Collections()[0]);
  int const labels[] = {round, round + 5, round + 3};
  ORXSimCSetID const set = collection.CreateOrderedCSet(labels, 3);
  ORXSimDistributionID const field = CreateField(context, {columns, rows});
  CreateDrawer(field, {2, 3});
  WriteCells(field, FirstCells(round));
  auto const fields = context.Distributions();
  if (round >= 3) {
    ORXSimDistribution const older(fields[round - 3]);
    ORXSimCSetID const more = ORXSimCollection(older.Collection(1)).CreateCSetStrided(rows, 1, 1, 1);
    ORXSimTransfer(older).SetDimExtension(more).InitializeExtension();
  }
  if (round % 4 == 3) CreateDrawer(fields[round - 2], {}, -round);
  ORXSimCSet const kept(set);
  transaction.Commit();
}

void ChangeInPlace(ORXSimContext const& context, int round) {
  double const value = 1000.0 + round;
  ORXSimTransfer(ORXSimDistribution(context.Distributions()[round]))
      .SetWrite()
      .SetDimOrdinalRange(0, {}, 0, 0)
      .SetDimOrdinalRange(1, {}, 0, 0)
      .SetBuffer(0, &value, 8)
      .ExecWrite();
}

/// Cells of a field after `rounds` rounds; cell 0 apart.
std::vector<double> ExpectedCells(int field, int rounds) {
  bool const isLonger = field + 3 < rounds;
  bool const isReplaced = (field + 2) % 4 == 3 && field + 2 < rounds;
  // The extension comes after the replacement: field + 3 follows field + 2.
  int const length = rows + (isLonger ? 1 : 0);
  std::vector<double> cells(static_cast<std::size_t>(columns * length), 0.0);
  for (int c = 0; c < columns; ++c)
    for (int r = 0; r < length; ++r) {
      double& cell = cells[static_cast<std::size_t>(c * length + r)];
      cell = isReplaced ? -(field + 2) : r < rows ? field + c * rows + r : 0.0;
    }
  return cells;
}

/// "" when the context holds exactly `rounds` rounds.
std::string Difference(ORXSimContext const& context, int rounds) {
  auto const fields = context.Distributions();
  if (fields.Size() != rounds) return "there are " + std::to_string(fields.Size()) + " fields";
  if (context.Collections().Size() != 1 + 2 * rounds) return "there are other collections";
  int const members = ORXSimCollection(context.Collections()[0]).Size();
  std::vector<bool> labels(static_cast<std::size_t>(rounds) + 5, false);
  for (int k = 0; k < rounds; ++k)
    for (int const label : {k, k + 5, k + 3})
      labels[static_cast<std::size_t>(label)] = true;
  if (members != std::count(labels.begin(), labels.end(), true))
    return "the collection has " + std::to_string(members);
  for (int k = 0; k < rounds; ++k) {
    std::vector<double> const found = CellsOf(fields[k]);
    std::vector<double> const expected = ExpectedCells(k, rounds);
    if (found.size() != expected.size()) return "field " + std::to_string(k) + " has another size";
    for (std::size_t cell = 0; cell < found.size(); ++cell) {
      bool const isInPlace = cell == 0 && found[0] == 1000.0 + k;
      if (!isInPlace && found[cell] != expected[cell])
        return "cell " + std::to_string(cell) + " of field " + std::to_string(k) + " is " +
               std::to_string(found[cell]);
    }
  }
  return "";
}

void Prepare(std::string const& path) {
  ORXSimDatabase database;
  Create(database, path);
  ORXSimContext(database.CreateContext({})).CreateCollection(0, {});
  database.Close();
}

/// Works until it is killed; tells through the pipe before each commit (-k-1) and after it (k+1).
[[noreturn]] void WorkUntilKilled(std::string const& path, int pipe) {
  ORXSimDatabase database;
  Open(database, path);
  ORXSimContext const context(database.Contexts()[0]);
  auto const tell = [pipe](int word) {
    if (write(pipe, &word, sizeof word) != sizeof word) _exit(3);
  };
  for (int round = context.Distributions().Size();; ++round) {
    tell(-round - 1);
    DoRound(context, round);
    tell(round + 1);
    ChangeInPlace(context, round);
  }
}

/// The last word that a killed child told.
int LastWord(int pipe) {
  int word = 0;
  int last = 0;
  while (read(pipe, &word, sizeof word) == sizeof word)
    last = word;
  return last;
}

int KillAWorker(std::string const& path, std::chrono::microseconds after) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    close(ends[0]);
    WorkUntilKilled(path, ends[1]);
  }
  close(ends[1]);
  std::this_thread::sleep_for(after);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  int const word = LastWord(ends[0]);
  close(ends[0]);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL)
    throw std::runtime_error("the worker ended by itself");
  return word;
}

TEST(Crash, AKilledWriterLeavesTheLastCommitOrTheOneInFlight) {
  std::vector<std::string> const parents{memoryFolder, std::filesystem::temp_directory_path().string()};
  int const kills = Setting("ORX_CRASH_KILLS", isSanitized ? 20 : 100);
  std::mt19937 random(Setting("ORX_CRASH_SEED", 1));
  int insideCommit = 0;
  int inFlight = 0;
  std::unique_ptr<TemporaryFolder> folder;
  for (int k = 0; k < kills; ++k) {
    if (k % 10 == 0) {
      folder = std::make_unique<TemporaryFolder>(parents[static_cast<std::size_t>(k / 10) % 2]);
      Prepare(folder->Path("a.sim"));
    }
    std::string const path = folder->Path("a.sim");
    int before = 0;
    {
      ORXSimDatabase database;
      Open(database, path, true);
      before = ORXSimContext(database.Contexts()[0]).Distributions().Size();
    }
    int const word =
        KillAWorker(path, std::chrono::microseconds(std::uniform_int_distribution<int>(500, 40000)(random)));
    int const least = word == 0 ? before : word > 0 ? word : -word - 1;
    insideCommit += word < 0 ? 1 : 0;

    int found = -1;
    std::string const bytes = ReadWhole(path);
    for (bool const readOnly : {true, false}) {
      ORXSimDatabase database;
      ASSERT_EQ(CodeOf([&] { Open(database, path, readOnly); }), 0) << "kill " << k;
      ORXSimContext const context(database.Contexts()[0]);
      int const rounds = context.Distributions().Size();
      ASSERT_TRUE(rounds == least || (word <= 0 && rounds == least + 1))
          << "kill " << k << ": " << rounds << " rounds, acknowledged " << least;
      ASSERT_EQ(Difference(context, rounds), "") << "kill " << k;
      if (readOnly) {
        ASSERT_EQ(ReadWhole(path), bytes) << "reading changed the file";
        found = rounds;
      } else {
        ASSERT_EQ(rounds, found);
        DoRound(context, rounds);
        ASSERT_EQ(Difference(context, rounds + 1), "") << "kill " << k;
      }
    }
    inFlight += found > least ? 1 : 0;
  }
  std::printf("%d kills, %d inside a round, %d of them after its journal was whole\n", kills, insideCommit,
              inFlight);
}

TEST(Crash, EveryStepOfACommitMayFail) {
  TemporaryFolder const folder(memoryFolder);
  std::string const path = folder.Path("a.sim");
  Prepare(path);
  {
    ORXSimDatabase database;
    Open(database, path);
    for (int round = 0; round < 4; ++round)
      DoRound(ORXSimContext(database.Contexts()[0]), round);
    database.Close();
  }
  std::string const start = ReadWhole(path);
  for (int const error : {EIO, ENOSPC}) {
    auto const effect = error == EIO ? FaultPlan::Effect::FailOnce : FaultPlan::Effect::FailOn;
    int failures = 0;
    for (int nth = 1; nth < 200; ++nth) {
      WriteWhole(path, start);
      int code = 0;
      bool isReached = false;
      {
        ORXSimDatabase database;
        Open(database, path);
        ORXSimContext const context(database.Contexts()[0]);
        {
          FaultPlan const plan(effect, nth, error);
          code = CodeOf([&] { DoRound(context, 4); });
          isReached = plan.Steps() >= nth;
        }
        // What is there now is what it was, whether the round failed or not.
        if (code != 0) {
          EXPECT_EQ(code, ORXSimException::writeFailed) << "step " << nth;
          EXPECT_EQ(Difference(context, 4), "") << "step " << nth;
          ++failures;
        }
      }
      ORXSimDatabase database;
      ASSERT_EQ(CodeOf([&] { Open(database, path); }), 0) << "step " << nth;
      ORXSimContext const context(database.Contexts()[0]);
      int const rounds = context.Distributions().Size();
      EXPECT_EQ(rounds, code == 0 ? 5 : 4) << "step " << nth;
      EXPECT_EQ(Difference(context, rounds), "") << "step " << nth;
      if (!isReached) break;
    }
    EXPECT_GE(failures, 6);
  }
}

TEST(Processes, OneWritesOrManyRead) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("a.sim");
  Prepare(path);
  auto const codeInChild = [&](bool readOnly) {
    return RunInChild([&] {
      ORXSimDatabase database;
      return CodeOf([&] { Open(database, path, readOnly); });
    });
  };
  ORXSimDatabase database;
  Open(database, path);
  EXPECT_EQ(codeInChild(false), ORXSimException::fileInUse);
  EXPECT_EQ(codeInChild(true), ORXSimException::fileInUse);
  ORXSimDatabase again;
  std::string text;
  EXPECT_EQ(CodeOf([&] { Open(again, path); }, &text), ORXSimException::fileInUse);
  EXPECT_NE(text.find(path), std::string::npos);
  EXPECT_EQ(CodeOf([&] { Create(again, path); }), ORXSimException::fileInUse);
  database.Close();
  Open(database, path, true);
  EXPECT_EQ(codeInChild(true), 0);
  EXPECT_EQ(codeInChild(false), ORXSimException::fileInUse);
}

ORXSimContext AfterThreeRounds(ORXSimDatabase& database, std::string const& path) {
  Create(database, path);
  ORXSimContext const context(database.CreateContext({}));
  context.CreateCollection(0, {});
  for (int round = 0; round < 3; ++round)
    DoRound(context, round);
  return context;
}

/// Creates fields until the disk is full, then commits and extends; frees space and goes on.
void FillDisk(std::string const& path, std::function<void()> const& makeRoom) {
  ORXSimDatabase database;
  ORXSimContext const context = AfterThreeRounds(database, path);

  ORXSimTransaction transaction(context.ID());
  ORXSimDistributionID field;
  std::string text;
  int code = 0;
  int fields = 0;
  for (; code == 0 && fields < 1000; ++fields) {
    field = CreateField(context, {256, 256});
    code = CodeOf([&] { CreateDrawer(field, {}); }, &text);
  }
  EXPECT_EQ(code, ORXSimException::writeFailed);
  EXPECT_NE(text.find("a.sim"), std::string::npos) << text;
  ORXSimDistribution const older(context.Distributions()[0]);
  ORXSimCSetID const more = ORXSimCollection(older.Collection(0)).CreateCSetStrided(columns, 100000, 1, 1);
  EXPECT_EQ(CodeOf([&] { ORXSimTransfer(older).SetDimExtension(more).InitializeExtension(); }),
            ORXSimException::writeFailed);
  EXPECT_EQ(CellsOf(context.Distributions()[0]), ExpectedCells(0, 3));
  // Metadata that fits nowhere: the commit fails, and again, and the state is as before.
  for (int k = 0; k < 60000; ++k)
    context.CreateCollection(k, {});
  EXPECT_EQ(CodeOf([&] { transaction.Commit(); }), ORXSimException::writeFailed);
  EXPECT_EQ(CodeOf([&] { transaction.Commit(); }, &text), ORXSimException::writeFailed) << text;
  makeRoom();
  EXPECT_EQ(CodeOf([&] { transaction.Commit(); }), 0) << "once there is space";
  EXPECT_EQ(CodeOf([&] { database.Close(); }), 0);

  Open(database, path, true);
  ORXSimContext const there(database.Contexts()[0]);
  EXPECT_EQ(there.Distributions().Size(), 3 + fields);
  EXPECT_EQ(CellsOf(there.Distributions()[0]), ExpectedCells(0, 3));
}

TEST(FullDisk, IsAnErrorAtTheCallAndLosesNothing) {
  SmallDisk const disk(8 << 20);
  if (!disk.IsMounted()) GTEST_SKIP() << "mounting a small file system is not permitted";
  disk.Fill(6 << 20);
  std::string const path = disk.Path("a.sim");
  ORXSimDatabase database;
  ORXSimContext const context = AfterThreeRounds(database, path);

  // Outside of any transaction, until no cell and no structure has space.
  std::string text;
  int code = 0;
  for (int fields = 0; code == 0 && fields < 100; ++fields)
    code = CodeOf([&] { CreateDrawer(CreateField(context, {256, 256}), {}); }, &text);
  EXPECT_EQ(code, ORXSimException::writeFailed);
  EXPECT_NE(text.find("bytes are free"), std::string::npos) << text;
  for (int k = 0; k < 60000; ++k)
    context.CreateCollection(k, {});
  EXPECT_EQ(CodeOf([&] { database.Close(); }), ORXSimException::writeFailed);
  ASSERT_TRUE(database.IsOpen());
  TemporaryFolder const elsewhere;
  std::filesystem::copy_file(path, elsewhere.Path("a.sim"));
  std::filesystem::remove(disk.Path("filler"));
  EXPECT_EQ(CodeOf([&] { database.Close(); }), 0) << "once there is space";

  ORXSimDatabase copy;
  Open(copy, elsewhere.Path("a.sim"));
  EXPECT_EQ(Difference(ORXSimContext(copy.Contexts()[0]), 3), "") << "what a crash on the full disk leaves";
  Open(database, path);
  EXPECT_GT(ORXSimContext(database.Contexts()[0]).Collections().Size(), 60000);
  EXPECT_EQ(CellsOf(ORXSimContext(database.Contexts()[0]).Distributions()[0]), ExpectedCells(0, 3));
  database.Close();
}

TEST(FullDisk, AFileSizeLimitIsOneToo) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("a.sim");
  int const failures = RunInChild([&] {
    rlimit const limit{.rlim_cur = 4 << 20, .rlim_max = RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    FillDisk(path, [] {
      rlimit const more{.rlim_cur = 64 << 20, .rlim_max = RLIM_INFINITY};
      setrlimit(RLIMIT_FSIZE, &more);
    });
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(failures, 0);
}

} // namespace
