#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

// Each routine of the list calls the routine of the BLAS or LAPACK library with the same arguments. The
// length of each character argument is 1.

#define BLAC_LENGTHS_0
#define BLAC_LENGTHS_1 , 1
#define BLAC_LENGTHS_2 , 1, 1
#define BLAC_LENGTHS_3 , 1, 1, 1
#define BLAC_LENGTHS_4 , 1, 1, 1, 1

#define BLAC_ROUTINE(result, NAME, name, parameters, arguments, options)                                     \
  result BLAC_##NAME parameters { return name##_(BLAC_UNWRAP arguments BLAC_LENGTHS_##options); }
#include "blac/blac_routines.h"

int BLAC_ILAENV(int const* ispec, char const* name, char const* opts, int const* n1, int const* n2,
                int const* n3, int const* n4, int name_length, int opts_length) {
  return ilaenv_(ispec, name, opts, n1, n2, n3, n4, static_cast<std::size_t>(name_length),
                 static_cast<std::size_t>(opts_length));
}
