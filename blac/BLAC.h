#ifndef BLAC_BLAC_H
#define BLAC_BLAC_H

/*
 * BLAS/LAPACK call layer, usable from C, C++ and, with ISO_C_BINDING, from Fortran.
 *
 * Each entry point is named BLAC_ and the upper-case name of a standard double-precision BLAS or LAPACK
 * routine, and takes that routine's arguments in that routine's order:
 *
 *  - Every argument is passed by address: integers as 32-bit signed int, reals as double, arrays by the first
 *    element. Arrays are the caller's; nothing is kept after the call.
 *  - Matrices are stored by columns: element (i, j), counted from zero, is a[i + j*lda], lda >= max(1, rows).
 *  - Character options point to one character, upper or lower case; further characters are not read.
 *  - Hidden character lengths are not passed. Only BLAC_ILAENV takes lengths, by value.
 *  - Functions return their value. LAPACK routines set info: 0 is success, a negative value the position of
 *    an illegal argument, a positive value a numerical failure.
 *
 * An illegal argument is also reported to the error handler, the global routine
 *
 *     void xerbla_(char const* name, int const* position, size_t name_length);
 *
 * which in Fortran is `subroutine xerbla(name, position)`. The library has a default that prints the standard
 * message to standard error and returns; a program that defines a routine of this name gets the calls. The
 * name is in upper case, padded with blanks to six characters; a zero may or may not follow, within the
 * length. Nothing is thrown, and the layer has no state: calls from several threads do not disturb each
 * other.
 *
 * The first call that is not small takes 128 MB of address space for good. It does not return when the
 * process may not have that much (ulimit -v); blaC_initialize takes it before, when it is there.
 *
 *     int n = 2;
 *     double a[4] = {4, 1, 1, 3}, b[2] = {1, 2};   // a by columns; b becomes the solution of A*x = b
 *     int one = 1, pivots[2], info;
 *     BLAC_DGESV(&n, &one, a, &n, pivots, b, &n, &info);
 */

#ifndef BLAC_EXPORT
#define BLAC_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The plain forwarders: one prototype for every line of the table, each under its formula there. */
#define BLAC_ROUTINE(result, NAME, name, parameters, arguments, options)                                     \
  BLAC_EXPORT result BLAC_##NAME parameters;
#include "blac/blac_routines.h"

/*
 * Block sizes and crossover points of LAPACK's algorithms: ispec says which, 1 is the block size.
 * REQUIRES: name_length and opts_length are the numbers of characters of `name` and `opts`.
 */
BLAC_EXPORT int BLAC_ILAENV(int const* ispec, char const* name, char const* opts, int const* n1,
                            int const* n2, int const* n3, int const* n4, int name_length, int opts_length);

/*
 * C := alpha*op(A)*op(B) + beta*C, the contract of BLAC_DGEMM served by another implementation of the
 * product: a second opinion on a result. Both agree to rounding, not in every bit. Reports as "DGEMM ".
 */
BLAC_EXPORT void BLAC_DGEMM2(char const* transa, char const* transb, int const* m, int const* n, int const* k,
                             double const* alpha, double const* a, int const* lda, double const* b,
                             int const* ldb, double const* beta, double* c, int const* ldc);

/*
 * Solves op(A)*X = B with the LU factors and row exchanges of DGETRF: A itself for trans N, its transpose for
 * T and C. b (n x nrhs) becomes X.
 */
BLAC_EXPORT void BLAC_DGETRS(char const* trans, int const* n, int const* nrhs, double const* a,
                             int const* lda, int const* ipiv, double* b, int const* ldb, int* info);

/*
 * Solves A*X = B for nrhs right-hand sides. a (n x n) becomes its LU factors and ipiv (n) their row
 * exchanges, b (n x nrhs) becomes X. info > 0: U(info, info) is exactly zero; a holds the factors, b is
 * untouched.
 */
BLAC_EXPORT void BLAC_DGESV(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b,
                            int const* ldb, int* info);

/*
 * Solves A*X = B for a symmetric positive definite A in packed storage. ap (n*(n+1)/2) becomes its Cholesky
 * factor, b (n x nrhs) becomes X. info > 0: the leading minor of that order is not positive definite; b is
 * untouched.
 */
BLAC_EXPORT void BLAC_DPPSV(char const* uplo, int const* n, int const* nrhs, double* ap, double* b,
                            int const* ldb, int* info);

/* Calls the error handler as the routine `name` (six characters, blank-padded) does that finds its argument
 * number *info illegal. */
BLAC_EXPORT void BLAC_XERBLA(char const* name, int const* info);

/*
 * A constant of the machine or of mathematics; any other index gives the first.
 *
 *     1  not a number                     9  truncated log of the largest double (exp stays finite)
 *     2  2^1022, safe to double          10  truncated log of the smallest normalized double
 *     3  largest finite double           11  largest 32-bit signed integer
 *     4  smallest normalized double      12  pi
 *     5  machine epsilon, 2^-52          13  e
 *     6  rounding unit, just over 2^-53  14  Euler's constant gamma
 *     7  radix, 2                        15  one degree in radians
 *     8  digits of the mantissa, 53      16  one radian in degrees
 */
BLAC_EXPORT double BLAC_HDMCON(int const* index);

/*
 * Sparse kernels: products of a sparse matrix A in compressed rows and a block of nvec vectors.
 *
 *     BLAC_SPARSE_UMV          y := A*x     x: ncols x nvec   y: nrows x nvec
 *     BLAC_SPARSE_UMTV         y := A'*x    x: nrows x nvec   y: ncols x nvec
 *     BLAC_SPARSE_SPARSE_UMTV  y := A'*z    x: nrows x nvec   y: ncols x nvec
 *
 * Row i of A, from zero, has the values a[k] in the columns ja[k], from zero, for k = ia[i] ... ia[i+1] - 1.
 * x and y are stored by columns without gaps and do not overlap; y is overwritten, whatever it held.
 *
 * The third kernel takes x on some rows of A only: its nrows is the length of the list idx, row p of x stands
 * for row idx[p] of z, and all other rows of z are zero. Rows of A that are not listed are not read.
 *
 * Each vector's sums are made one product at a time, rows ascending, entries as they are stored: its result
 * does not depend on nvec, bit for bit. nvec < 1 writes nothing. The kernels do not allocate; arguments are
 * not checked.
 */
BLAC_EXPORT void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                                 int const* nrows, int const* ncols, int const* nvec);
BLAC_EXPORT void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                                  int const* nrows, int const* ncols, int const* nvec);
BLAC_EXPORT void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja,
                                         double* y, int const* nrows, int const* ncols, int const* nvec,
                                         int const* idx);

#ifdef __cplusplus
}
#endif

#endif
