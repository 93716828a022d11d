#pragma once

#include "core/orx_export.h"

// Counted start and stop of the modules in this library: n starts need n stops. `tally` is the host's count
// of modules that are up, see ORXModuleCounter.h. A host starts the whole suite with
// ORXSrvLinearAlgebra_initialize, which calls the initializers in this order.

ORX_EXPORT void ORXBasCoreUtils_initialize(int& tally);
ORX_EXPORT void ORXBasCoreUtils_finalize(int& tally);

ORX_EXPORT void ORXBasicUtils_initialize(int& tally);
ORX_EXPORT void ORXBasicUtils_finalize(int& tally);

ORX_EXPORT void ORXUnicodeString_initialize(int& tally);
ORX_EXPORT void ORXUnicodeString_finalize(int& tally);
