#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

#include <algorithm>
#include <string_view>

namespace {

/// Reports the argument that `info` complains of, if any; true if so.
bool Refused(char const* routine, int info) {
  if (info == 0) return false;
  int const position = -info;
  BLAC_XERBLA(routine, &position);
  return true;
}

int CheckGeneral(int n, int nrhs, int lda, int ldb) {
  if (n < 0) return -1;
  if (nrhs < 0) return -2;
  if (lda < std::max(1, n)) return -4;
  if (ldb < std::max(1, n)) return -7;
  return 0;
}

int CheckPacked(char const* uplo, int n, int nrhs, int ldb) {
  if (lsame_(uplo, "U", 1, 1) == 0 && lsame_(uplo, "L", 1, 1) == 0) return -1;
  if (n < 0) return -2;
  if (nrhs < 0) return -3;
  if (ldb < std::max(1, n)) return -6;
  return 0;
}

} // namespace

void BLAC_DGESV(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b,
                int const* ldb, int* info) {
  *info = CheckGeneral(*n, *nrhs, *lda, *ldb);
  if (Refused("DGESV ", *info)) return;

  constexpr std::string_view asItIs = "No transpose";
  dgetrf_(n, n, a, lda, ipiv, info);
  if (*info == 0) dgetrs_(asItIs.data(), n, nrhs, a, lda, ipiv, b, ldb, info, asItIs.size());
}

void BLAC_DPPSV(char const* uplo, int const* n, int const* nrhs, double* ap, double* b, int const* ldb,
                int* info) {
  *info = CheckPacked(uplo, *n, *nrhs, *ldb);
  if (Refused("DPPSV ", *info)) return;

  dpptrf_(uplo, n, ap, info, 1);
  if (*info == 0) dpptrs_(uplo, n, nrhs, ap, b, ldb, info, 1);
}
