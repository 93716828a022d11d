/*
 * The plain forwarders of the call layer, each stated once:
 *
 *     BLAC_ROUTINE(result, NAME, name, (parameters), (arguments), options)
 *
 * `result` is the type of the returned value, NAME and `name` the standard routine's name, `options` the
 * number of single-character arguments, each of which has a hidden length of 1 in the routine that is called.
 *
 * In the parameters `x[]` is an array and `*x` one value: the Fortran module's interfaces are made of them,
 * see fortran/call_layer.awk.
 *
 * Whoever includes this file defines BLAC_ROUTINE first: blac/BLAC.h makes the prototypes of it, the sources
 * of the layer the prototypes of the routines that are called and the bodies of the forwarders. The macro is
 * undefined at the end.
 *
 * In the comments op(A) is A or its transpose, as `trans` says. S is a symmetric and T a triangular matrix,
 * of which only the triangle named by `uplo` is used; "packed" is that triangle column by column, without
 * gaps.
 */
#ifdef BLAC_ROUTINE

/* One source makes definitions of these lines: NOLINTBEGIN(misc-definitions-in-headers,*-avoid-c-arrays) */

/* ---- BLAS level 1: vectors ---- */

/* sum of |dx(i)| */
BLAC_ROUTINE(double, DASUM, dasum, (int const* n, double const dx[], int const* incx), (n, dx, incx), 0)
/* dy := da*dx + dy */
BLAC_ROUTINE(void, DAXPY, daxpy,
             (int const* n, double const* da, double const dx[], int const* incx, double dy[],
              int const* incy),
             (n, da, dx, incx, dy, incy), 0)
/* dy := dx */
BLAC_ROUTINE(void, DCOPY, dcopy,
             (int const* n, double const dx[], int const* incx, double dy[], int const* incy),
             (n, dx, incx, dy, incy), 0)
/* dx'*dy */
BLAC_ROUTINE(double, DDOT, ddot,
             (int const* n, double const dx[], int const* incx, double const dy[], int const* incy),
             (n, dx, incx, dy, incy), 0)
/* Euclidean norm of x */
BLAC_ROUTINE(double, DNRM2, dnrm2, (int const* n, double const x[], int const* incx), (n, x, incx), 0)
/* (dx, dy) := (c*dx + s*dy, c*dy - s*dx) */
BLAC_ROUTINE(void, DROT, drot,
             (int const* n, double dx[], int const* incx, double dy[], int const* incy, double const* c,
              double const* s),
             (n, dx, incx, dy, incy, c, s), 0)
/* dx := da*dx */
BLAC_ROUTINE(void, DSCAL, dscal, (int const* n, double const* da, double dx[], int const* incx),
             (n, da, dx, incx), 0)
/* dx <-> dy */
BLAC_ROUTINE(void, DSWAP, dswap, (int const* n, double dx[], int const* incx, double dy[], int const* incy),
             (n, dx, incx, dy, incy), 0)
/* one-based index of the first element of largest |dx(i)|; 0 when n < 1 */
BLAC_ROUTINE(int, IDAMAX, idamax, (int const* n, double const dx[], int const* incx), (n, dx, incx), 0)

/* ---- BLAS level 2: matrix and vector ---- */

/* y := alpha*op(A)*x + beta*y, A is m x n */
BLAC_ROUTINE(void, DGEMV, dgemv,
             (char const* trans, int const* m, int const* n, double const* alpha, double const a[],
              int const* lda, double const x[], int const* incx, double const* beta, double y[],
              int const* incy),
             (trans, m, n, alpha, a, lda, x, incx, beta, y, incy), 1)
/* A := alpha*x*y' + A, A is m x n */
BLAC_ROUTINE(void, DGER, dger,
             (int const* m, int const* n, double const* alpha, double const x[], int const* incx,
              double const y[], int const* incy, double a[], int const* lda),
             (m, n, alpha, x, incx, y, incy, a, lda), 0)
/* y := alpha*S*x + beta*y, S packed */
BLAC_ROUTINE(void, DSPMV, dspmv,
             (char const* uplo, int const* n, double const* alpha, double const ap[], double const x[],
              int const* incx, double const* beta, double y[], int const* incy),
             (uplo, n, alpha, ap, x, incx, beta, y, incy), 1)
/* S := alpha*x*x' + S, S packed */
BLAC_ROUTINE(void, DSPR, dspr,
             (char const* uplo, int const* n, double const* alpha, double const x[], int const* incx,
              double ap[]),
             (uplo, n, alpha, x, incx, ap), 1)
/* S := alpha*x*y' + alpha*y*x' + S, S packed */
BLAC_ROUTINE(void, DSPR2, dspr2,
             (char const* uplo, int const* n, double const* alpha, double const x[], int const* incx,
              double const y[], int const* incy, double ap[]),
             (uplo, n, alpha, x, incx, y, incy, ap), 1)
/* y := alpha*S*x + beta*y */
BLAC_ROUTINE(void, DSYMV, dsymv,
             (char const* uplo, int const* n, double const* alpha, double const a[], int const* lda,
              double const x[], int const* incx, double const* beta, double y[], int const* incy),
             (uplo, n, alpha, a, lda, x, incx, beta, y, incy), 1)
/* S := alpha*x*x' + S */
BLAC_ROUTINE(void, DSYR, dsyr,
             (char const* uplo, int const* n, double const* alpha, double const x[], int const* incx,
              double a[], int const* lda),
             (uplo, n, alpha, x, incx, a, lda), 1)
/* S := alpha*x*y' + alpha*y*x' + S */
BLAC_ROUTINE(void, DSYR2, dsyr2,
             (char const* uplo, int const* n, double const* alpha, double const x[], int const* incx,
              double const y[], int const* incy, double a[], int const* lda),
             (uplo, n, alpha, x, incx, y, incy, a, lda), 1)
/* x := op(T)*x, T packed */
BLAC_ROUTINE(void, DTPMV, dtpmv,
             (char const* uplo, char const* trans, char const* diag, int const* n, double const ap[],
              double x[], int const* incx),
             (uplo, trans, diag, n, ap, x, incx), 3)
/* x := inverse of op(T) times x, T packed */
BLAC_ROUTINE(void, DTPSV, dtpsv,
             (char const* uplo, char const* trans, char const* diag, int const* n, double const ap[],
              double x[], int const* incx),
             (uplo, trans, diag, n, ap, x, incx), 3)
/* x := op(T)*x */
BLAC_ROUTINE(void, DTRMV, dtrmv,
             (char const* uplo, char const* trans, char const* diag, int const* n, double const a[],
              int const* lda, double x[], int const* incx),
             (uplo, trans, diag, n, a, lda, x, incx), 3)
/* x := inverse of op(T) times x */
BLAC_ROUTINE(void, DTRSV, dtrsv,
             (char const* uplo, char const* trans, char const* diag, int const* n, double const a[],
              int const* lda, double x[], int const* incx),
             (uplo, trans, diag, n, a, lda, x, incx), 3)

/* ---- BLAS level 3: matrices ---- */

/* C := alpha*op(A)*op(B) + beta*C, C is m x n, op(A) m x k */
BLAC_ROUTINE(void, DGEMM, dgemm,
             (char const* transa, char const* transb, int const* m, int const* n, int const* k,
              double const* alpha, double const a[], int const* lda, double const b[], int const* ldb,
              double const* beta, double c[], int const* ldc),
             (transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc), 2)
/* C := alpha*S*B + beta*C or C := alpha*B*S + beta*C, C is m x n */
BLAC_ROUTINE(void, DSYMM, dsymm,
             (char const* side, char const* uplo, int const* m, int const* n, double const* alpha,
              double const a[], int const* lda, double const b[], int const* ldb, double const* beta,
              double c[], int const* ldc),
             (side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc), 2)
/* S := alpha*op(A)*op(B)' + alpha*op(B)*op(A)' + beta*S, S is n x n, op(A) n x k */
BLAC_ROUTINE(void, DSYR2K, dsyr2k,
             (char const* uplo, char const* trans, int const* n, int const* k, double const* alpha,
              double const a[], int const* lda, double const b[], int const* ldb, double const* beta,
              double c[], int const* ldc),
             (uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc), 2)
/* S := alpha*op(A)*op(A)' + beta*S, S is n x n, op(A) n x k */
BLAC_ROUTINE(void, DSYRK, dsyrk,
             (char const* uplo, char const* trans, int const* n, int const* k, double const* alpha,
              double const a[], int const* lda, double const* beta, double c[], int const* ldc),
             (uplo, trans, n, k, alpha, a, lda, beta, c, ldc), 2)
/* B := alpha*op(T)*B or B := alpha*B*op(T), B is m x n */
BLAC_ROUTINE(void, DTRMM, dtrmm,
             (char const* side, char const* uplo, char const* transa, char const* diag, int const* m,
              int const* n, double const* alpha, double const a[], int const* lda, double b[],
              int const* ldb),
             (side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb), 4)
/* solves op(T)*X = alpha*B or X*op(T) = alpha*B, B is m x n and becomes X */
BLAC_ROUTINE(void, DTRSM, dtrsm,
             (char const* side, char const* uplo, char const* transa, char const* diag, int const* m,
              int const* n, double const* alpha, double const a[], int const* lda, double b[],
              int const* ldb),
             (side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb), 4)

/* ---- LAPACK ---- */

/* LU factors of the m x n matrix A with row exchanges ipiv, in place */
BLAC_ROUTINE(void, DGETRF, dgetrf,
             (int const* m, int const* n, double a[], int const* lda, int ipiv[], int* info),
             (m, n, a, lda, ipiv, info), 0)
/* C := op(Q)*C or C := C*op(Q) with the orthogonal Q of DSYTRD; a is as before at the end, but used meanwhile
 */
BLAC_ROUTINE(void, DORMTR, dormtr,
             (char const* side, char const* uplo, char const* trans, int const* m, int const* n, double a[],
              int const* lda, double const tau[], double c[], int const* ldc, double work[], int const* lwork,
              int* info),
             (side, uplo, trans, m, n, a, lda, tau, c, ldc, work, lwork, info), 3)
/* Cholesky factor of a positive definite S, in place */
BLAC_ROUTINE(void, DPOTRF, dpotrf, (char const* uplo, int const* n, double a[], int const* lda, int* info),
             (uplo, n, a, lda, info), 1)
/* Cholesky factor of a positive definite S, packed, in place */
BLAC_ROUTINE(void, DPPTRF, dpptrf, (char const* uplo, int const* n, double ap[], int* info),
             (uplo, n, ap, info), 1)
/* inverse of S from the factor of DPPTRF, in place */
BLAC_ROUTINE(void, DPPTRI, dpptri, (char const* uplo, int const* n, double ap[], int* info),
             (uplo, n, ap, info), 1)
/* solves S*X = B with the factor of DPPTRF */
BLAC_ROUTINE(void, DPPTRS, dpptrs,
             (char const* uplo, int const* n, int const* nrhs, double const ap[], double b[], int const* ldb,
              int* info),
             (uplo, n, nrhs, ap, b, ldb, info), 1)
/* chosen eigenvalues, and eigenvectors if wanted, of S, packed; destroys ap */
BLAC_ROUTINE(void, DSPEVX, dspevx,
             (char const* jobz, char const* range, char const* uplo, int const* n, double ap[],
              double const* vl, double const* vu, int const* il, int const* iu, double const* abstol, int* m,
              double w[], double z[], int const* ldz, double work[], int iwork[], int ifail[], int* info),
             (jobz, range, uplo, n, ap, vl, vu, il, iu, abstol, m, w, z, ldz, work, iwork, ifail, info), 3)
/* chosen eigenvalues, and eigenvectors if wanted, of the tridiagonal matrix (d, e); e has n elements */
BLAC_ROUTINE(void, DSTEMR, dstemr,
             (char const* jobz, char const* range, int const* n, double d[], double e[], double const* vl,
              double const* vu, int const* il, int const* iu, int* m, double w[], double z[], int const* ldz,
              int const* nzc, int isuppz[], int* tryrac, double work[], int const* lwork, int iwork[],
              int const* liwork, int* info),
             (jobz, range, n, d, e, vl, vu, il, iu, m, w, z, ldz, nzc, isuppz, tryrac, work, lwork, iwork,
              liwork, info),
             2)
/* as DSTEMR; takes the fastest algorithm that serves, e has n - 1 elements */
BLAC_ROUTINE(void, DSTEVR, dstevr,
             (char const* jobz, char const* range, int const* n, double d[], double e[], double const* vl,
              double const* vu, int const* il, int const* iu, double const* abstol, int* m, double w[],
              double z[], int const* ldz, int isuppz[], double work[], int const* lwork, int iwork[],
              int const* liwork, int* info),
             (jobz, range, n, d, e, vl, vu, il, iu, abstol, m, w, z, ldz, isuppz, work, lwork, iwork, liwork,
              info),
             2)
/* all eigenvalues, and eigenvectors if wanted (they replace a), of S */
BLAC_ROUTINE(void, DSYEV, dsyev,
             (char const* jobz, char const* uplo, int const* n, double a[], int const* lda, double w[],
              double work[], int const* lwork, int* info),
             (jobz, uplo, n, a, lda, w, work, lwork, info), 2)
/* chosen eigenvalues, and eigenvectors if wanted, of S; destroys a */
BLAC_ROUTINE(void, DSYEVX, dsyevx,
             (char const* jobz, char const* range, char const* uplo, int const* n, double a[], int const* lda,
              double const* vl, double const* vu, int const* il, int const* iu, double const* abstol, int* m,
              double w[], double z[], int const* ldz, double work[], int const* lwork, int iwork[],
              int ifail[], int* info),
             (jobz, range, uplo, n, a, lda, vl, vu, il, iu, abstol, m, w, z, ldz, work, lwork, iwork, ifail,
              info),
             3)
/* reduces S*x = lambda*B*x and its kin to standard form, b holds the factor of DPOTRF of B */
BLAC_ROUTINE(void, DSYGST, dsygst,
             (int const* itype, char const* uplo, int const* n, double a[], int const* lda, double const b[],
              int const* ldb, int* info),
             (itype, uplo, n, a, lda, b, ldb, info), 1)
/* all solutions of S*x = lambda*B*x and its kin; the eigenvectors replace a, the factor of B replaces b */
BLAC_ROUTINE(void, DSYGV, dsygv,
             (int const* itype, char const* jobz, char const* uplo, int const* n, double a[], int const* lda,
              double b[], int const* ldb, double w[], double work[], int const* lwork, int* info),
             (itype, jobz, uplo, n, a, lda, b, ldb, w, work, lwork, info), 2)
/* tridiagonal form (d, e) of S by an orthogonal Q, which is left in a and tau */
BLAC_ROUTINE(void, DSYTRD, dsytrd,
             (char const* uplo, int const* n, double a[], int const* lda, double d[], double e[],
              double tau[], double work[], int const* lwork, int* info),
             (uplo, n, a, lda, d, e, tau, work, lwork, info), 1)
/* Bunch-Kaufman factors of S, which need not be definite, in place */
BLAC_ROUTINE(void, DSYTRF, dsytrf,
             (char const* uplo, int const* n, double a[], int const* lda, int ipiv[], double work[],
              int const* lwork, int* info),
             (uplo, n, a, lda, ipiv, work, lwork, info), 1)
/* solves S*X = B with the factors of DSYTRF */
BLAC_ROUTINE(void, DSYTRS, dsytrs,
             (char const* uplo, int const* n, int const* nrhs, double const a[], int const* lda,
              int const ipiv[], double b[], int const* ldb, int* info),
             (uplo, n, nrhs, a, lda, ipiv, b, ldb, info), 1)
/* inverse of T, packed, in place */
BLAC_ROUTINE(void, DTPTRI, dtptri, (char const* uplo, char const* diag, int const* n, double ap[], int* info),
             (uplo, diag, n, ap, info), 2)

/* ---- LAPACK auxiliaries ---- */

/* a property of the arithmetic: E rounding unit, P precision, S safe minimum, B base, O overflow threshold */
BLAC_ROUTINE(double, DLAMCH, dlamch, (char const* cmach), (cmach), 1)
/* 1 when infinities (ispec 0), and NaNs too (ispec 1), work; zero and one are single precision, as the
 * standard says */
BLAC_ROUTINE(int, IEEECK, ieeeck, (int const* ispec, float const* zero, float const* one), (ispec, zero, one),
             0)
/* whether two letters are the same, case aside */
BLAC_ROUTINE(int, LSAME, lsame, (char const* ca, char const* cb), (ca, cb), 2)

/* NOLINTEND(misc-definitions-in-headers,*-avoid-c-arrays) */

#undef BLAC_ROUTINE
#endif
