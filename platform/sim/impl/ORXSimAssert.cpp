#include "sim/ORXSimAssert.h"

#include <cstdio>

void ORXSimAssert::ReportValidationFailure(char const* expression, char const* file, int line) {
  std::fprintf(stderr, "%s:%d: validation failed: %s\n", file, line, expression);
}
