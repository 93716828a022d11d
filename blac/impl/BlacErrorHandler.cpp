#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

#include <cstdio>
#include <cstring>
#include <string_view>

/// The default error handler, weak and exported: BLAS and LAPACK, which are linked into this library, and our
/// drivers call whatever `xerbla_` the process sees first, so a program's own comes before this one. Unlike
/// the standard's example it does not stop the process: a library has no right to.
extern "C" __attribute__((weak, visibility("default"))) void xerbla_(char const* name, int const* position,
                                                                     std::size_t nameLength) {
  // OpenBLAS counts the zero that closes a C text.
  std::string_view routine(name, strnlen(name, nameLength));
  routine = routine.substr(0, routine.find_last_not_of(' ') + 1);
  std::fprintf(stderr, " ** On entry to %.*s parameter number %2d had an illegal value\n",
               static_cast<int>(routine.size()), routine.data(), *position);
}

void BLAC_XERBLA(char const* name, int const* info) { xerbla_(name, info, 6); }
