#pragma once

#include "core/orx_export.h"

/// Failed internal assertions.
class ORX_EXPORT ORXSimAssert {
public:
  /// Reports a failed assertion on standard error; ending the process is the caller's next step.
  static void ReportValidationFailure(char const* expression, char const* file, int line);
};
