#pragma once

#include "core/orx_export.h"

// Counted start and stop of the modules in this library; see core/ORXModuleCounter.h for the counting.

ORX_EXPORT void ORXSimContainers_initialize(int& tally);
ORX_EXPORT void ORXSimContainers_finalize(int& tally);

ORX_EXPORT void ORXSimAPI_initialize(int& tally);
ORX_EXPORT void ORXSimAPI_finalize(int& tally);

ORX_EXPORT void ORXSrvBasic_initialize(int& tally);
ORX_EXPORT void ORXSrvBasic_finalize(int& tally);
