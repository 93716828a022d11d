// The second product is BLIS, called through its own interface: its BLAS-named one would clash with the
// first.

#include "blac/BLAC.h"

#include <blis.h>

#include <algorithm>
#include <optional>

namespace {

/// Blocking and kernels for this processor. BLIS takes processors that are newer than itself for generic ones
/// (no vector instructions, a third of the speed), and AVX-512 ones whose name it cannot read for AVX2 ones.
/// What the processor can do is asked here instead; the environment and BLIS's own choice stay as they are.
cntx_t* ChooseKernels() {
  bli_init();
  arch_t architecture = bli_arch_query_id();
#ifdef __x86_64__
  bool const avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  bool const avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  if (architecture == BLIS_ARCH_GENERIC && avx2) architecture = BLIS_ARCH_HASWELL;
  if (architecture == BLIS_ARCH_HASWELL && avx512) architecture = BLIS_ARCH_SKX;
#endif
  return bli_gks_lookup_nat_cntx(architecture);
}

/// Nothing when the option is none of N, T and C.
std::optional<trans_t> Transposition(char option) {
  switch (option) {
  case 'N':
  case 'n':
    return BLIS_NO_TRANSPOSE;
  case 'T':
  case 't':
  case 'C':
  case 'c':
    return BLIS_TRANSPOSE;
  default:
    return std::nullopt;
  }
}

/// C := beta*C, where beta = 0 overwrites even what is not a number.
void Scale(int m, int n, double beta, double* c, int ldc) {
  if (beta == 1) return;
  for (int j = 0; j < n; ++j) {
    double* const column = c + static_cast<std::ptrdiff_t>(j) * ldc;
    for (int i = 0; i < m; ++i)
      column[i] = beta == 0 ? 0 : beta * column[i];
  }
}

} // namespace

void BLAC_DGEMM2(char const* transa, char const* transb, int const* m, int const* n, int const* k,
                 double const* alpha, double const* a, int const* lda, double const* b, int const* ldb,
                 double const* beta, double* c, int const* ldc) {
  auto const transposeA = Transposition(*transa);
  auto const transposeB = Transposition(*transb);
  int const rowsA = transposeA == BLIS_NO_TRANSPOSE ? *m : *k;
  int const rowsB = transposeB == BLIS_NO_TRANSPOSE ? *k : *n;
  int const illegal = !transposeA                 ? 1
                      : !transposeB               ? 2
                      : *m < 0                    ? 3
                      : *n < 0                    ? 4
                      : *k < 0                    ? 5
                      : *lda < std::max(1, rowsA) ? 8
                      : *ldb < std::max(1, rowsB) ? 10
                      : *ldc < std::max(1, *m)    ? 13
                                                  : 0;
  if (illegal != 0) return BLAC_XERBLA("DGEMM ", &illegal);

  // A and B are not read when they do not count: they may hold anything then.
  if (*alpha == 0 || *k == 0) return Scale(*m, *n, *beta, c, *ldc);
  if (*m == 0 || *n == 0) return;

  static cntx_t* const kernels = ChooseKernels();
  // BLIS knows no const, but only reads these.
  auto const readOnly = [](double const* x) { return const_cast<double*>(x); };
  bli_dgemm_ex(*transposeA, *transposeB, *m, *n, *k, readOnly(alpha), readOnly(a), 1, *lda, readOnly(b), 1,
               *ldb, readOnly(beta), c, 1, *ldc, kernels, nullptr);
}
