#pragma once

#include "core/ORXBasException.h"
#include "module/ORXSrvLinearAlgebra.h"

#include <cstdio>
#include <exception>

namespace support {

inline int Fail(char const* program, char const* message) {
  std::fflush(stdout); // what was found so far comes first
  std::fprintf(stderr, "%s: %s\n", program, message);
  return 1;
}

/// Starts the library and calls work(). Returns 0; or prints what was raised and returns 1. An error of the
/// library says what and where.
template<class Work>
int RunProgram(char const* name, Work const& work) {
  try {
    ORXSrvLinearAlgebraSession const session;
    work();
    return 0;
  } catch (ORXBasException const& e) {
    return Fail(name, e.AsString().AsText());
  } catch (std::exception const& e) {
    return Fail(name, e.what());
  }
}

} // namespace support
