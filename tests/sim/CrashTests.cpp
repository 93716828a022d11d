#include "Hdf5Support.h"
#include "tests/file/FileSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <random>
#include <utility>
#include <vector>

// Three transactions on a file that holds one, stopped at each of their steps. Whatever happens, the file
// must afterwards hold exactly the last transaction that was acknowledged, or the one whose commit was under
// way.

namespace {

using namespace orx::file;

constexpr int transactions = 3;

/// What a child has to tell after its end.
struct Report {
  int acknowledged; ///< the last transaction whose commit returned
  int steps;
};

class Stopped : public testing::Test {
protected:
  static void SetUpTestSuite() {
    TemporaryFolder const folder(memoryFolder);
    Session const session = Session::Create(folder.Path("file"));
    for (int number = 0; number <= transactions; ++number) {
      Change(session, number);
      session.Commit();
      s_states.push_back(Describe(session.Id()));
      if (number == 0) s_start = ReadWhole(folder.Path("file"));
    }
    for (std::string const& state : s_states) {
      std::string const number = std::to_string(&state - s_states.data());
      ASSERT_EQ(state.find("unreadable"), std::string::npos) << state;
      ASSERT_NE(state.find("/small5 20: 3x-1 1x" + number + " 16x-1"), std::string::npos) << state;
    }
  }
  static void TearDownTestSuite() { s_states.clear(); }

  /// The work of a child. 0: done; 1: an error stopped it, and the file could be closed.
  int Run(FaultPlan::Effect effect, int nth, int error) {
    Session const session = Session::Open(m_path);
    FaultPlan const plan(effect, nth, error);
    int result = 0;
    try {
      for (int number = 1; number <= transactions; ++number) {
        Change(session, number);
        session.Commit();
        m_report->acknowledged = number;
      }
    } catch (FileError const&) {
      result = 1;
    } catch (orx::store::Hdf5Failure const&) {
      result = session.Failure().has_value() ? 1 : 2;
    }
    m_report->steps = plan.Steps();
    session.File().Discard();
    return result;
  }

  /// Starts again and runs in a child; what RunInChild says.
  int RunAgain(FaultPlan::Effect effect, int nth, int error) {
    WriteWhole(m_path, s_start);
    m_report->acknowledged = 0;
    m_report->steps = 0;
    return RunInChild([&] { return Run(effect, nth, error); });
  }

  /// Whether it is the state that was acknowledged, or one of so many that were under way.
  bool IsAllowed(std::string const& seen, int acknowledged, int underWay) const {
    auto const first = s_states.begin() + acknowledged;
    return std::find(first, std::min(first + 1 + underWay, s_states.end()), seen) != s_states.end();
  }

  void ExpectCommittedState(std::string const& what, int underWay) {
    int const acknowledged = m_report->acknowledged;
    std::string const plain = DescribeWithPlainHdf5(m_path);
    EXPECT_TRUE(plain == "refused" || IsAllowed(plain, acknowledged, underWay))
        << what << " plain: " << plain;
    Session session = Session::Open(m_path);
    std::string const seen = Describe(session.Id());
    ASSERT_TRUE(IsAllowed(seen, acknowledged, underWay)) << what << " after " << acknowledged << ": " << seen;
    // Work can go on.
    int const next =
        static_cast<int>(std::find(s_states.begin(), s_states.end(), seen) - s_states.begin()) + 1;
    if (next > transactions) return;
    Change(session, next);
    session.Commit();
    EXPECT_EQ(Describe(session.Id()), s_states[next]) << what;
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), s_states[next]) << what;
  }

  int CountSteps() {
    EXPECT_EQ(RunAgain(FaultPlan::Effect::None, 0, 0), 0);
    EXPECT_EQ(m_report->acknowledged, transactions);
    return m_report->steps;
  }

  void ExpectErrorsToBeSurvived(FaultPlan::Effect effect, int error) {
    int const steps = CountSteps();
    for (int nth = 1; nth <= steps; ++nth) {
      std::string const what = "error in step " + std::to_string(nth);
      int const end = RunAgain(effect, nth, error);
      EXPECT_TRUE(end == 0 || end == 1) << what << " ended with " << end;
      // Unseen are only a reservation ahead of need, and what a second try has made good.
      EXPECT_TRUE(end != 0 || m_report->acknowledged == transactions) << what;
      ExpectCommittedState(what, 0);
    }
  }

  static inline std::vector<std::string> s_states;
  static inline std::string s_start;
  TemporaryFolder m_folder{memoryFolder};
  std::string m_path = m_folder.Path("file");
  Shared<Report> m_report;
};

TEST_F(Stopped, ByDeathInsideAnyStepLeavesACommittedState) {
  int const steps = CountSteps();
  for (int nth = 1; nth <= steps; ++nth) {
    std::string const what = "death in step " + std::to_string(nth);
    EXPECT_EQ(RunAgain(FaultPlan::Effect::Kill, nth, 0), -SIGKILL) << what;
    ExpectCommittedState(what, 1);
  }
}

TEST_F(Stopped, ByOneErrorInAnyStepLeavesACommittedState) {
  ExpectErrorsToBeSurvived(FaultPlan::Effect::FailOnce, EIO);
}

TEST_F(Stopped, ByADiskThatIsFullFromAnyStepOnLeavesACommittedState) {
  ExpectErrorsToBeSurvived(FaultPlan::Effect::FailOn, ENOSPC);
}

/// A disk that loses power: it has all until the last sync, and of what was written since any sectors.
class PowerCuts : Uncopied {
public:
  struct Image {
    std::string bytes;
    int acknowledged;
  };

  PowerCuts(std::string path, Report const& report) : m_path(std::move(path)), m_durable(ReadWhole(m_path)) {
    SetFaultHook([this, &report](FileStep const& step) {
      std::string const now = ReadWhole(m_path);
      // Most can go wrong just before a sync.
      for (int k = 0; k < (step.kind == FileStep::Kind::Sync ? 20 : 3); ++k)
        m_images.push_back({.bytes = AfterCut(now), .acknowledged = report.acknowledged});
      if (step.kind == FileStep::Kind::Sync) m_durable = now;
      return 0;
    });
  }
  ~PowerCuts() { SetFaultHook(nullptr); }

  std::vector<Image> const& Images() const { return m_images; }

private:
  std::string AfterCut(std::string const& now) {
    std::string image = m_durable;
    image.resize(m_random() % 2 == 0 ? m_durable.size() : now.size());
    // Sectors here and there, or all behind one: the journal without what comes before.
    auto const quarters = m_random() % 5;
    std::size_t const first = m_random() % 2 == 0 ? m_random() % (image.size() + 1) : 0;
    for (std::size_t at = first / 512 * 512; at < std::min(image.size(), now.size()); at += 512)
      if (first > 0 || m_random() % 4 < quarters)
        image.replace(at, 512, now, at, std::min<std::size_t>(512, image.size() - at));
    return image;
  }

  std::string m_path, m_durable;
  std::mt19937 m_random{7};
  std::vector<Image> m_images;
};

TEST_F(Stopped, ByAPowerCutLeavesACommittedState) {
  WriteWhole(m_path, s_start);
  std::vector<PowerCuts::Image> images;
  {
    Session const session = Session::Open(m_path);
    m_report->acknowledged = 0;
    PowerCuts const cuts(m_path, *m_report);
    for (int number = 1; number <= transactions; ++number) {
      Change(session, number);
      session.Commit();
      m_report->acknowledged = number;
    }
    images = cuts.Images();
  }

  for (std::size_t k = 0; k < images.size(); ++k) {
    WriteWhole(m_path, images[k].bytes);
    Session const session = Session::Open(m_path);
    ASSERT_TRUE(IsAllowed(Describe(session.Id()), images[k].acknowledged, 1)) << "cut " << k;
  }
}

TEST_F(Stopped, WhileItIsCreatedAFileIsNotThereOrWhole) {
  for (int nth = 1;; ++nth) {
    std::filesystem::remove(m_path);
    int const end = RunInChild([&] {
      FaultPlan const plan(FaultPlan::Effect::Kill, nth, 0);
      Session const session = Session::Create(m_path);
      Change(session, 0);
      session.Commit();
      return 0;
    });
    if (end == 0) break;

    bool const isThere = std::filesystem::exists(m_path);
    std::string const seen = isThere ? DescribeWithPlainHdf5(m_path) : "";
    EXPECT_TRUE(!isThere || seen == s_states[0]) << "death in step " << nth << ": " << seen;
  }
}

} // namespace
