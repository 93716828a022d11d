#pragma once

#include <cstddef>

// The routines that the layer calls, under the names and with the arguments that a Fortran compiler gives
// them: a name ends with an underscore, and the lengths of the character arguments follow the other
// arguments, by value.

#define BLAC_UNWRAP(...) __VA_ARGS__
#define BLAC_LENGTH_TYPES_0
#define BLAC_LENGTH_TYPES_1 , std::size_t
#define BLAC_LENGTH_TYPES_2 , std::size_t, std::size_t
#define BLAC_LENGTH_TYPES_3 , std::size_t, std::size_t, std::size_t
#define BLAC_LENGTH_TYPES_4 , std::size_t, std::size_t, std::size_t, std::size_t

extern "C" {

#define BLAC_ROUTINE(result, NAME, name, parameters, arguments, options)                                     \
  result name##_(BLAC_UNWRAP parameters BLAC_LENGTH_TYPES_##options);
#include "blac/blac_routines.h"

int ilaenv_(int const* ispec, char const* name, char const* opts, int const* n1, int const* n2, int const* n3,
            int const* n4, std::size_t nameLength, std::size_t optsLength);

void dgetrs_(char const* trans, int const* n, int const* nrhs, double const* a, int const* lda,
             int const* ipiv, double* b, int const* ldb, int* info, std::size_t transLength);

void xerbla_(char const* name, int const* position, std::size_t nameLength);
}

#undef BLAC_LENGTH_TYPES_0
#undef BLAC_LENGTH_TYPES_1
#undef BLAC_LENGTH_TYPES_2
#undef BLAC_LENGTH_TYPES_3
#undef BLAC_LENGTH_TYPES_4
