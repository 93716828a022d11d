#include "module/ORXSrvTimeQueries.h"

#include "core/omi_Singleton.h"
#include "mtx/ORXSrvTimer.h"

namespace {
omi_Timer const* ProcessTimer() { return omi_Singleton<ORXSrvTimer>::Instance().Timer(); }
} // namespace

void ORXSRVGETCPUTIME(double* t) {
  omi_Timer const* const timer = ProcessTimer();
  *t = timer == nullptr ? 0.0 : timer->GetTotalCpuTime();
}

void ORXSRVGETWALLTIME(double* t) {
  omi_Timer const* const timer = ProcessTimer();
  *t = timer == nullptr ? 0.0 : timer->GetElapsedTime();
}
