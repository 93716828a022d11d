#pragma once

#include "sim/ORXSimException.h"

#include <cstdint>
#include <string>

namespace orx::sim {

/// Throws an ORXSimException whose developer report names file and line of the call.
[[noreturn]] inline void RaiseError(std::uint16_t code, std::string const& text,
                                    char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
  ORXSimException(code, text).Throw(file, line);
}

} // namespace orx::sim
