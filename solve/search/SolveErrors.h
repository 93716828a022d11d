#pragma once

#include "solve/ORXSrvSolveError.h"

#include <array>
#include <cstdio>
#include <string>

namespace orx {

/// Throws an ORXSrvSolveError whose developer report names file and line of the call.
[[noreturn]] inline void RaiseSolveError(ORXSrvSolveError::Cause cause, std::string const& text,
                                         int unknown = -1, char const* file = __builtin_FILE(),
                                         int line = __builtin_LINE()) {
  ORXSrvSolveError(cause, text.c_str(), unknown).Throw(file, line);
}

/// A value in a message: enough digits to find it again, whatever its size.
inline std::string NumberText(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.10g", value);
  return text.data();
}

/// "3 x 4"
inline std::string ShapeText(int rows, int columns) {
  return std::to_string(rows) + " x " + std::to_string(columns);
}

} // namespace orx
