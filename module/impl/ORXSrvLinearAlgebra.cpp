#include "module/ORXSrvLinearAlgebra.h"

#include "core/ORXCoreModules.h"
#include "core/ORXModuleCounter.h"
#include "core/omi_Singleton.h"
#include "module/impl/TerminateHandler.h"
#include "mtx/ORXSrvTimer.h"
#include "mtx/impl/matrix/ProductMemory.h"
#include "sim/ORXSimModules.h"

namespace {
ORXModuleCounter library;
ORXModuleCounter matrixLayer;
ORXModuleCounter blasLayer;
} // namespace

void ORXSrvLinearAlgebra_initialize(int& tally) {
  if (!library.Start(tally)) return;
  orx::InstallTerminateHandler();
  ORXBasCoreUtils_initialize(tally);
  ORXBasicUtils_initialize(tally);
  ORXUnicodeString_initialize(tally);
  ORXSimContainers_initialize(tally);
  ORXSimAPI_initialize(tally);
  ORXSrvBasic_initialize(tally);
  blaC_initialize(tally);
  mtx_initialize(tally);
}

void ORXSrvLinearAlgebra_finalize(int& tally) {
  if (!library.Stop(tally)) return;
  mtx_finalize(tally);
  blaC_finalize(tally);
  ORXSrvBasic_finalize(tally);
  ORXSimAPI_finalize(tally);
  ORXSimContainers_finalize(tally);
  ORXUnicodeString_finalize(tally);
  ORXBasicUtils_finalize(tally);
  ORXBasCoreUtils_finalize(tally);
  orx::RestoreTerminateHandler();
}

void mtx_initialize(int& tally) { matrixLayer.Start(tally); }
void mtx_finalize(int& tally) {
  if (matrixLayer.Stop(tally)) omi_Singleton<ORXSrvTimer>::Destroy();
}

void blaC_initialize(int& tally) {
  if (blasLayer.Start(tally)) orx::TryTakeProductMemory();
}
void blaC_finalize(int& tally) { blasLayer.Stop(tally); }
void blaC_formalize() {}
