#include "sim/ORXSimModules.h"

#include "core/ORXModuleCounter.h"

namespace {
ORXModuleCounter containers;
ORXModuleCounter api;
ORXModuleCounter serviceBasics;
} // namespace

void ORXSimContainers_initialize(int& tally) { containers.Start(tally); }
void ORXSimContainers_finalize(int& tally) { containers.Stop(tally); }

void ORXSimAPI_initialize(int& tally) { api.Start(tally); }
void ORXSimAPI_finalize(int& tally) { api.Stop(tally); }

void ORXSrvBasic_initialize(int& tally) { serviceBasics.Start(tally); }
void ORXSrvBasic_finalize(int& tally) { serviceBasics.Stop(tally); }
