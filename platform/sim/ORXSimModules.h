#pragma once

#include "core/orx_export.h"

// Counted start and stop of the modules in this library: n starts need n stops. `tally` is the host's count
// of modules that are up; the first start adds 1 to it, the last stop takes 1 from it. See
// core/ORXModuleCounter.h. The modules hold no resources; open databases do not depend on them.

ORX_EXPORT void ORXSimContainers_initialize(int& tally);
ORX_EXPORT void ORXSimContainers_finalize(int& tally);

ORX_EXPORT void ORXSimAPI_initialize(int& tally);
ORX_EXPORT void ORXSimAPI_finalize(int& tally);

ORX_EXPORT void ORXSrvBasic_initialize(int& tally);
ORX_EXPORT void ORXSrvBasic_finalize(int& tally);
