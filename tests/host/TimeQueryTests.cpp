#include "module/ORXSrvTimeQueries.h"

#include "core/omi_Singleton.h"
#include "mtx/ORXSrvDataRequest.h"
#include "mtx/ORXSrvTimer.h"

#include <gtest/gtest.h>

#include <memory>

extern "C" void fortran_read_times(double* cpu, double* wall);

namespace {

struct Times {
  double cpu = -1.0, wall = -1.0;
};

Times FromFortran() {
  Times times;
  fortran_read_times(&times.cpu, &times.wall);
  return times;
}

TEST(TimeQueries, AreZeroUntilTheHostStartsTheTimer) {
  Times const times = FromFortran();
  EXPECT_EQ(times.cpu, 0.0);
  EXPECT_EQ(times.wall, 0.0);
  omi_Singleton<ORXSrvTimer>::Destroy();
}

TEST(TimeQueries, ReportTheTimerSinceItsLastStart) {
  omi_Singleton<ORXSrvTimer>::Instance().CreateTimer();
  Times times;
  do {
    ORXSRVGETCPUTIME(&times.cpu);
    ORXSRVGETWALLTIME(&times.wall);
  } while (times.cpu < 0.02);
  EXPECT_GE(times.wall, 0.019) << "one thread uses no more processor time than passes";
  Times const later = FromFortran();
  EXPECT_GE(later.cpu, times.cpu);
  EXPECT_GE(later.wall, times.wall);

  omi_Singleton<ORXSrvTimer>::Instance().CreateTimer();
  EXPECT_LT(FromFortran().cpu, 0.02);
  omi_Singleton<ORXSrvTimer>::Destroy();
}

/// Complete as soon as it is started.
class Immediate : public ORXSrvDataRequest {
public:
  explicit Immediate(bool& gone) : m_gone(gone) {}
  ~Immediate() override { m_gone = true; }
  void Start() override { m_complete = true; }
  bool IsComplete() const override { return m_complete; }
  void Cancel() override { m_complete = false; }

private:
  bool& m_gone;
  bool m_complete = false;
};

TEST(DataRequest, IsUsedAndDeletedThroughItsBase) {
  bool gone = false;
  std::unique_ptr<ORXSrvDataRequest> request = std::make_unique<Immediate>(gone);
  EXPECT_FALSE(request->IsComplete());
  request->Start();
  EXPECT_TRUE(request->IsComplete());
  request.reset();
  EXPECT_TRUE(gone);
}

} // namespace
