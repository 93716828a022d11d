// The second product is the one of BLIS, which is called through its native interface: the names of its BLAS
// interface are those of the first product.

#include "blac/BLAC.h"

#include <blis.h>

#include <algorithm>
#include <optional>

namespace {

/// Returns the block sizes and kernels for this processor. BLIS does not recognize processors that are newer
/// than itself: it uses generic kernels for them, without vector instructions and at a third of the speed, or
/// kernels for AVX2 where the processor has AVX-512. In these two cases the choice is made from the
/// instruction sets of the processor. The global setting of BLIS and the environment are not changed.
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

/// The transposition that an option stands for; nothing when the option is none of N, T and C.
std::optional<trans_t> ParseTransposition(char option) {
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

/// C := beta*C. With beta = 0 all of C is overwritten, infinities and NaN included.
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
  auto const transposeA = ParseTransposition(*transa);
  auto const transposeB = ParseTransposition(*transb);
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

  // Without a product A and B are not read: they may hold anything.
  if (*alpha == 0 || *k == 0) return Scale(*m, *n, *beta, c, *ldc);
  if (*m == 0 || *n == 0) return;

  static cntx_t* const kernels = ChooseKernels();
  // The interface of BLIS lacks const for arguments that are only read.
  auto const readOnly = [](double const* x) { return const_cast<double*>(x); };
  bli_dgemm_ex(*transposeA, *transposeB, *m, *n, *k, readOnly(alpha), readOnly(a), 1, *lda, readOnly(b), 1,
               *ldb, readOnly(beta), c, 1, *ldc, kernels, nullptr);
}
