#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

#include <cstdio>
#include <cstring>
#include <string_view>

/// The default error handler: prints the routine and the position of its illegal argument on standard error,
/// and returns. The handler of reference BLAS would stop the process, which is for the host to decide. The
/// symbol is weak and exported: the BLAS and LAPACK inside this library and our drivers call the first
/// `xerbla_` of the process, and a host that has a handler of its own gets all reports.
extern "C" __attribute__((weak, visibility("default"))) void xerbla_(char const* name, int const* position,
                                                                     std::size_t nameLength) {
  // The length that OpenBLAS passes includes the zero at the end of a C string.
  std::string_view routine(name, strnlen(name, nameLength));
  routine = routine.substr(0, routine.find_last_not_of(' ') + 1);
  std::fprintf(stderr, " ** On entry to %.*s parameter number %2d had an illegal value\n",
               static_cast<int>(routine.size()), routine.data(), *position);
}

void BLAC_XERBLA(char const* name, int const* info) { xerbla_(name, info, 6); }
