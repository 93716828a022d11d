#include "Session.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <thread>

// Longer runs: ORX_SESSION_STEPS=100000, ORX_SESSION_KILLS=1000, from ORX_SESSION_SEED on.

namespace {

constexpr int mostFields = 1500; // then a new file is begun; twice as many as HDF5's cache holds

TEST(Session, HoldsWhatItsModelHolds) {
  TemporaryFolder const folder(memoryFolder);
  int const steps = Setting("ORX_SESSION_STEPS", isSanitized ? 400 : 2000);
  int const seed = Setting("ORX_SESSION_SEED", 1);
  Session session(folder.Path("a.sim"));
  session.Seed(seed);
  session.CreateFile();
  int files = 1, step = 0;
  auto const checkFile = [&] {
    session.CloseFile();
    session.OpenFile(true);
    session.CheckAll();
  };
  std::string const failure = FailureOf([&] {
    for (; step < steps; ++step) {
      session.Step();
      if (session.FieldCount() < mostFields) continue;
      checkFile();
      session.CreateFile();
      ++files;
    }
    checkFile();
  });
  EXPECT_EQ(failure, "") << "seed " << seed << ", step " << step;
  std::printf("%d steps, %d files, at last %d fields\n", steps, files, session.FieldCount());
}

/// What a child tells before it is killed, in memory that is shared with it.
struct Progress {
  std::atomic<int> begun{0}, done{0};
  char error[400]{};
};

/// Goes on with a session until it is killed.
[[noreturn]] void WorkUntilKilled(Session session, unsigned seed, int killingStep, Progress& progress) {
  std::string const failure = FailureOf([&] {
    FaultPlan const plan(killingStep > 0 ? FaultPlan::Effect::Kill : FaultPlan::Effect::None, killingStep);
    session.OpenFile(false);
    session.Seed(seed);
    for (int step = 1; step <= 2000; ++step) {
      progress.begun = step;
      session.Step();
      progress.done = step;
    }
    raise(SIGKILL);
  });
  std::strncpy(progress.error, failure.c_str(), sizeof progress.error - 1);
  _exit(1);
}

/// Kills a child that goes on with the session: in the midst of a file step, or when 0, at any moment.
void KillAWorker(Session const& session, unsigned seed, int killingStep, std::chrono::microseconds after,
                 Progress& progress) {
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) WorkUntilKilled(session, seed, killingStep, progress);
  if (killingStep == 0) {
    std::this_thread::sleep_for(after);
    kill(child, SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL)
    throw std::runtime_error("the child ended by itself in step " + std::to_string(progress.begun) + ": " +
                             progress.error);
}

Session AfterSteps(Session const& session, unsigned seed, int steps) {
  Session ghost = session.Ghost();
  ghost.Seed(seed);
  for (int step = 0; step < steps; ++step)
    ghost.Step();
  ghost.GoBackToCommit();
  return ghost;
}

/// "" when the file holds what is expected, but for cells that a last step was changing.
std::string Difference(Session& expected, Session const& inFlight) {
  return FailureOf([&] {
    expected.OpenFile(true);
    expected.CheckAndAdopt(inFlight);
    expected.OpenFile(false);
    expected.CheckAll();
    expected.CloseFile();
  });
}

/// The session that the file holds after a kill.
Session Survivor(Session const& session, unsigned seed, Progress const& progress) {
  Session acknowledged = AfterSteps(session, seed, progress.done);
  bool const isBetweenSteps = progress.begun == progress.done;
  Session inFlight = isBetweenSteps ? acknowledged : AfterSteps(session, seed, progress.begun);
  std::string const first = Difference(acknowledged, inFlight);
  if (first.empty()) return acknowledged;
  if (isBetweenSteps) throw std::runtime_error("the file has not what was acknowledged: " + first);
  acknowledged = AfterSteps(session, seed, progress.done);
  std::string const second = Difference(inFlight, acknowledged);
  if (second.empty()) return inFlight;
  throw std::runtime_error("the file has neither what was acknowledged (" + first +
                           ") nor what was in flight (" + second + ")");
}

TEST(Session, LosesNothingThatWasAcknowledgedWhenItIsKilled) {
  TemporaryFolder const folder(memoryFolder);
  int const kills = Setting("ORX_SESSION_KILLS", isSanitized ? 10 : 40);
  int const seed = Setting("ORX_SESSION_SEED", 1);
  std::mt19937 random(seed);
  Session session(folder.Path("a.sim"));
  std::int64_t steps = 0;
  int whole = 0;
  for (int kill = 0; kill < kills; ++kill) {
    Shared<Progress> progress;
    unsigned const killSeed = seed * 100000 + kill;
    int const killingStep = kill % 2 == 0 ? 0 : kill / 2 + 1;
    std::chrono::microseconds const after(std::uniform_int_distribution<int>(500, 60000)(random));
    std::string const failure = FailureOf([&] {
      if (kill % 25 == 0) {
        session.CreateFile();
        session.CloseFile();
      }
      KillAWorker(session, killSeed, killingStep, after, *progress);
      session = Survivor(session, killSeed, *progress);
    });
    ASSERT_EQ(failure, "") << "seed " << seed << ", kill " << kill << ", " << progress->done << " steps of "
                           << progress->begun;
    steps += progress->done;
    whole += progress->done == progress->begun ? 1 : 0;
  }
  std::printf("%d kills after %lld steps, %d of them between steps\n", kills, static_cast<long long>(steps),
              whole);
}

} // namespace
