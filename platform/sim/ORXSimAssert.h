#pragma once

#include "core/orx_export.h"

/// Failed internal assertions.
class ORX_EXPORT ORXSimAssert {
public:
  /// Writes "FILE:LINE: validation failed: EXPRESSION" on standard error and returns; the caller then ends
  /// the process.
  static void ReportValidationFailure(char const* expression, char const* file, int line);
};
