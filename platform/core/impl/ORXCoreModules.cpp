#include "core/ORXCoreModules.h"

#include "core/ORXModuleCounter.h"

namespace {
ORXModuleCounter coreUtils;
ORXModuleCounter basicUtils;
ORXModuleCounter unicodeString;
} // namespace

void ORXBasCoreUtils_initialize(int& tally) { coreUtils.Start(tally); }
void ORXBasCoreUtils_finalize(int& tally) { coreUtils.Stop(tally); }

void ORXBasicUtils_initialize(int& tally) { basicUtils.Start(tally); }
void ORXBasicUtils_finalize(int& tally) { basicUtils.Stop(tally); }

void ORXUnicodeString_initialize(int& tally) { unicodeString.Start(tally); }
void ORXUnicodeString_finalize(int& tally) { unicodeString.Stop(tally); }
