#include "host/impl/Call.h"

#include "core/omi_Singleton.h"
#include "host/orx_linear_algebra.h"
#include "module/ORXSrvLinearAlgebra.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvTimer.h"

namespace orx::host {
namespace {

int starts = 0;
int tally = 0; ///< of the modules that these starts have brought up

struct Watcher {
  orx_progress function;
  void* context;
};
Watcher watcher{};

bool Watch(void*, char const* operation, std::int64_t done, std::int64_t total) {
  return watcher.function(watcher.context, operation, &done, &total) == 0;
}

void Start() {
  ORXSrvLinearAlgebra_initialize(tally);
  ++starts;
}

void Stop() {
  if (starts == 0)
    RaiseHostError(HostError::wrongOrder, "the library was not started; expected ORX_START before.");
  if (--starts == 0) RemoveAllObjects();
  ORXSrvLinearAlgebra_finalize(tally);
}

void Version(int& major, int& minor, int& patch) {
  major = ORX_VERSION_MAJOR;
  minor = ORX_VERSION_MINOR;
  patch = ORX_VERSION_PATCH;
}

void RaiseErrors(int raise) { SetRaising(Flag("raise", raise)); }

void StartTimer() { omi_Singleton<ORXSrvTimer>::Instance().CreateTimer(); }

void SetMemory(std::int64_t bytes) { ORXSrvDenseMatrix::SetWorkMemory(bytes); }

void GetMemory(std::int64_t& bytes) { bytes = ORXSrvDenseMatrix::WorkMemory(); }

void SetProgress(orx_progress function, void* context) {
  watcher = {function, context};
  ORXSrvProgress::Set(function != nullptr ? Watch : nullptr, nullptr);
}

void Delete(std::int64_t& object) {
  RemoveObject(object);
  object = 0;
}

void CountObjects(int& count) { count = orx::host::CountObjects(); }

} // namespace
} // namespace orx::host

#include "host/Library.inc"
