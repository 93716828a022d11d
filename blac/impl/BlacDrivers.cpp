#include "blac/BLAC.h"
#include "blac/impl/BlacDependency.h"

#include <algorithm>
#include <string_view>

namespace {

/// True when `info` names an illegal argument, which is then reported to the error handler.
bool ReportIllegalArgument(char const* routine, int info) {
  if (info == 0) return false;
  int const position = -info;
  BLAC_XERBLA(routine, &position);
  return true;
}

// Each check returns 0 when the arguments of its driver are legal, otherwise -k for the first illegal one,
// the k-th argument of the driver.

int CheckGeneral(int n, int nrhs, int lda, int ldb) {
  if (n < 0) return -1;
  if (nrhs < 0) return -2;
  if (lda < std::max(1, n)) return -4;
  if (ldb < std::max(1, n)) return -7;
  return 0;
}

/// True when `option` is one of the letters, in upper or lower case.
bool IsOneOf(char option, std::string_view letters) {
  return std::any_of(letters.begin(), letters.end(),
                     [&](char letter) { return lsame_(&option, &letter, 1, 1) != 0; });
}

int CheckFactored(char trans, int n, int nrhs, int lda, int ldb) {
  if (!IsOneOf(trans, "NTC")) return -1;
  if (n < 0) return -2;
  if (nrhs < 0) return -3;
  if (lda < std::max(1, n)) return -5;
  if (ldb < std::max(1, n)) return -8;
  return 0;
}

int CheckPacked(char uplo, int n, int nrhs, int ldb) {
  if (!IsOneOf(uplo, "UL")) return -1;
  if (n < 0) return -2;
  if (nrhs < 0) return -3;
  if (ldb < std::max(1, n)) return -6;
  return 0;
}

} // namespace

/// The arguments are checked here, because OpenBLAS reports an illegal argument of this routine to the error
/// handler only and does not set INFO.
void BLAC_DGETRS(char const* trans, int const* n, int const* nrhs, double const* a, int const* lda,
                 int const* ipiv, double* b, int const* ldb, int* info) {
  *info = CheckFactored(*trans, *n, *nrhs, *lda, *ldb);
  if (!ReportIllegalArgument("DGETRS", *info)) dgetrs_(trans, n, nrhs, a, lda, ipiv, b, ldb, info, 1);
}

void BLAC_DGESV(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b,
                int const* ldb, int* info) {
  *info = CheckGeneral(*n, *nrhs, *lda, *ldb);
  if (ReportIllegalArgument("DGESV ", *info)) return;

  constexpr std::string_view noTranspose = "No transpose";
  dgetrf_(n, n, a, lda, ipiv, info);
  if (*info == 0) dgetrs_(noTranspose.data(), n, nrhs, a, lda, ipiv, b, ldb, info, noTranspose.size());
}

void BLAC_DPPSV(char const* uplo, int const* n, int const* nrhs, double* ap, double* b, int const* ldb,
                int* info) {
  *info = CheckPacked(*uplo, *n, *nrhs, *ldb);
  if (ReportIllegalArgument("DPPSV ", *info)) return;

  dpptrf_(uplo, n, ap, info, 1);
  if (*info == 0) dpptrs_(uplo, n, nrhs, ap, b, ldb, info, 1);
}
