! The library for solver code in Fortran: explicit interfaces of its entry points and of the call layer.
!
!     use orx_linear_algebra
!     type(c_ptr) :: matrices                            ! from the C++ side, or from orxsrvmatrixcontainercreate()
!     real(c_double), allocatable :: phi(:, :)
!     allocate (phi(orxsrvmatrixcontainernumrows(matrices, 7), orxsrvmatrixcontainernumcolumns(matrices, 7)))
!     call orxsrvmatrixcontainergetvalues(matrices, 7, phi)
!
! Compile this source with the program: module files differ from compiler to compiler. The interfaces are bound to
! the C names, so that the library has to be linked and nothing more.
!
! Errors leave the entry points as C++ exceptions, through the Fortran code that called them. A C++ host catches
! them as usual. A Fortran program runs the part that may fail as a module procedure of its own:
!
!     if (orxsrvtry(c_funloc(read_modes), c_loc(data)) /= 0) print *, orx_last_error()
!
! and learns the error's number and text. What the procedure had allocated stays allocated.
!
! The call layer's conventions are in blac/BLAC.h. Matrices are stored by columns, with a leading dimension; S is a
! symmetric and T a triangular matrix, of which only the triangle named by uplo is used; "packed" is that triangle
! column by column; op(A) is A or its transpose.
module orx_linear_algebra
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_float, c_funloc, c_funptr, c_int, c_loc, c_null_char, &
       c_null_ptr, c_ptr
  implicit none
  private

  ! What callers need of iso_c_binding.
  public :: c_double, c_funloc, c_int, c_loc, c_null_ptr, c_ptr
  public :: orx_last_error
  public :: orxsrvmatrixcontainercreate, orxsrvmatrixcontainernumrows, orxsrvmatrixcontainernumcolumns, &
       orxsrvmatrixcontainergetvalues, orxsrvmatrixcontainerdelete, orxsrvgetcputime, orxsrvgetwalltime, &
       orxsrvtry, orxsrvlasterror
  public :: blac_dasum, blac_daxpy, blac_dcopy, blac_ddot, blac_dnrm2, blac_drot, blac_dscal, blac_dswap, &
       blac_idamax, blac_dgemv, blac_dger, blac_dspmv, blac_dspr, blac_dspr2, blac_dsymv, blac_dsyr, &
       blac_dsyr2, blac_dtpmv, blac_dtpsv, blac_dtrmv, blac_dtrsv, blac_dgemm, blac_dsymm, blac_dsyr2k, &
       blac_dsyrk, blac_dtrmm, blac_dtrsm, blac_dgetrf, blac_dgetrs, blac_dormtr, blac_dpotrf, blac_dpptrf, &
       blac_dpptri, blac_dpptrs, blac_dspevx, blac_dstemr, blac_dstevr, blac_dsyev, blac_dsyevx, &
       blac_dsygst, blac_dsygv, blac_dsytrd, blac_dsytrf, blac_dsytrs, blac_dtptri, blac_dlamch, &
       blac_ieeeck, blac_lsame, blac_ilaenv, blac_dgemm2, blac_dgesv, blac_dppsv, blac_xerbla, blac_hdmcon, &
       blac_sparse_umv, blac_sparse_umtv, blac_sparse_sparse_umtv

  interface
     ! Matrix registry; a container is known by its handle. Only c_null_ptr is a handle of nothing.

     ! A new container.
     function orxsrvmatrixcontainercreate() bind(C, name="ORXSRVMATRIXCONTAINERCREATE") result(container)
       import :: c_ptr
       type(c_ptr) :: container
     end function

     function orxsrvmatrixcontainernumrows(container, id) bind(C, name="ORXSRVMATRIXCONTAINERNUMROWS") result(rows)
       import :: c_int, c_ptr
       type(c_ptr), value :: container
       integer(c_int), intent(in) :: id
       integer(c_int) :: rows
     end function

     function orxsrvmatrixcontainernumcolumns(container, id) &
          bind(C, name="ORXSRVMATRIXCONTAINERNUMCOLUMNS") result(columns)
       import :: c_int, c_ptr
       type(c_ptr), value :: container
       integer(c_int), intent(in) :: id
       integer(c_int) :: columns
     end function

     ! All values of matrix id; `values` is dimensioned (rows, columns).
     subroutine orxsrvmatrixcontainergetvalues(container, id, values) bind(C, name="ORXSRVMATRIXCONTAINERGETVALUES")
       import :: c_double, c_int, c_ptr
       type(c_ptr), value :: container
       integer(c_int), intent(in) :: id
       real(c_double), intent(inout) :: values(*)
     end subroutine

     ! Destroys a container with its matrices; c_null_ptr is ignored.
     subroutine orxsrvmatrixcontainerdelete(container) bind(C, name="ORXSRVMATRIXCONTAINERDELETE")
       import :: c_ptr
       type(c_ptr), value :: container
     end subroutine

     ! Process timer: seconds since the host started it, 0 before.

     subroutine orxsrvgetcputime(t) bind(C, name="ORXSRVGETCPUTIME")
       import :: c_double
       real(c_double), intent(inout) :: t
     end subroutine

     subroutine orxsrvgetwalltime(t) bind(C, name="ORXSRVGETWALLTIME")
       import :: c_double
       real(c_double), intent(inout) :: t
     end subroutine

     ! Errors

     ! Calls work(data), `subroutine work(data) bind(C)` with `type(c_ptr), value :: data`. 0, or the number of the
     ! error that ended it; -1 for an exception that is not the library's.
     function orxsrvtry(work, data) bind(C, name="ORXSRVTRY") result(error)
       import :: c_funptr, c_int, c_ptr
       type(c_funptr), value :: work
       type(c_ptr), value :: data
       integer(c_int) :: error
     end function

     ! The last error's text, cut to length - 1 characters and ended by c_null_char; returns its full length.
     function orxsrvlasterror(text, length) bind(C, name="ORXSRVLASTERROR") result(full_length)
       import :: c_char, c_int
       character(kind=c_char), intent(inout) :: text(*)
       integer(c_int), intent(in) :: length
       integer(c_int) :: full_length
     end function

     ! BLAS level 1: vectors

     ! sum of |dx(i)|
     function blac_dasum(n, dx, incx) &
          bind(C, name="BLAC_DASUM")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: dx(*)
       real(c_double) :: blac_dasum
     end function

     ! dy := da*dx + dy
     subroutine blac_daxpy(n, da, dx, incx, dy, incy) &
          bind(C, name="BLAC_DAXPY")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(in) :: da, dx(*)
       real(c_double), intent(inout) :: dy(*)
     end subroutine

     ! dy := dx
     subroutine blac_dcopy(n, dx, incx, dy, incy) &
          bind(C, name="BLAC_DCOPY")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(in) :: dx(*)
       real(c_double), intent(inout) :: dy(*)
     end subroutine

     ! dx'*dy
     function blac_ddot(n, dx, incx, dy, incy) &
          bind(C, name="BLAC_DDOT")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(in) :: dx(*), dy(*)
       real(c_double) :: blac_ddot
     end function

     ! Euclidean norm of x
     function blac_dnrm2(n, x, incx) &
          bind(C, name="BLAC_DNRM2")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: x(*)
       real(c_double) :: blac_dnrm2
     end function

     ! (dx, dy) := (c*dx + s*dy, c*dy - s*dx)
     subroutine blac_drot(n, dx, incx, dy, incy, c, s) &
          bind(C, name="BLAC_DROT")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(inout) :: dx(*), dy(*)
       real(c_double), intent(in) :: c, s
     end subroutine

     ! dx := da*dx
     subroutine blac_dscal(n, da, dx, incx) &
          bind(C, name="BLAC_DSCAL")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: da
       real(c_double), intent(inout) :: dx(*)
     end subroutine

     ! dx <-> dy
     subroutine blac_dswap(n, dx, incx, dy, incy) &
          bind(C, name="BLAC_DSWAP")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(inout) :: dx(*), dy(*)
     end subroutine

     ! one-based index of the first element of largest |dx(i)|; 0 when n < 1
     function blac_idamax(n, dx, incx) &
          bind(C, name="BLAC_IDAMAX")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: dx(*)
       integer(c_int) :: blac_idamax
     end function

     ! BLAS level 2: matrix and vector

     ! y := alpha*op(A)*x + beta*y, A is m x n
     subroutine blac_dgemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy) &
          bind(C, name="BLAC_DGEMV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: trans
       integer(c_int), intent(in) :: m, n, lda, incx, incy
       real(c_double), intent(in) :: alpha, a(lda, *), x(*), beta
       real(c_double), intent(inout) :: y(*)
     end subroutine

     ! A := alpha*x*y' + A, A is m x n
     subroutine blac_dger(m, n, alpha, x, incx, y, incy, a, lda) &
          bind(C, name="BLAC_DGER")
       import :: c_double, c_int
       integer(c_int), intent(in) :: m, n, incx, incy, lda
       real(c_double), intent(in) :: alpha, x(*), y(*)
       real(c_double), intent(inout) :: a(lda, *)
     end subroutine

     ! y := alpha*S*x + beta*y, S packed
     subroutine blac_dspmv(uplo, n, alpha, ap, x, incx, beta, y, incy) &
          bind(C, name="BLAC_DSPMV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(in) :: alpha, ap(*), x(*), beta
       real(c_double), intent(inout) :: y(*)
     end subroutine

     ! S := alpha*x*x' + S, S packed
     subroutine blac_dspr(uplo, n, alpha, x, incx, ap) &
          bind(C, name="BLAC_DSPR")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: alpha, x(*)
       real(c_double), intent(inout) :: ap(*)
     end subroutine

     ! S := alpha*x*y' + alpha*y*x' + S, S packed
     subroutine blac_dspr2(uplo, n, alpha, x, incx, y, incy, ap) &
          bind(C, name="BLAC_DSPR2")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, incx, incy
       real(c_double), intent(in) :: alpha, x(*), y(*)
       real(c_double), intent(inout) :: ap(*)
     end subroutine

     ! y := alpha*S*x + beta*y
     subroutine blac_dsymv(uplo, n, alpha, a, lda, x, incx, beta, y, incy) &
          bind(C, name="BLAC_DSYMV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, lda, incx, incy
       real(c_double), intent(in) :: alpha, a(lda, *), x(*), beta
       real(c_double), intent(inout) :: y(*)
     end subroutine

     ! S := alpha*x*x' + S
     subroutine blac_dsyr(uplo, n, alpha, x, incx, a, lda) &
          bind(C, name="BLAC_DSYR")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, incx, lda
       real(c_double), intent(in) :: alpha, x(*)
       real(c_double), intent(inout) :: a(lda, *)
     end subroutine

     ! S := alpha*x*y' + alpha*y*x' + S
     subroutine blac_dsyr2(uplo, n, alpha, x, incx, y, incy, a, lda) &
          bind(C, name="BLAC_DSYR2")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, incx, incy, lda
       real(c_double), intent(in) :: alpha, x(*), y(*)
       real(c_double), intent(inout) :: a(lda, *)
     end subroutine

     ! x := op(T)*x, T packed
     subroutine blac_dtpmv(uplo, trans, diag, n, ap, x, incx) &
          bind(C, name="BLAC_DTPMV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans, diag
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: ap(*)
       real(c_double), intent(inout) :: x(*)
     end subroutine

     ! x := inverse of op(T) times x, T packed
     subroutine blac_dtpsv(uplo, trans, diag, n, ap, x, incx) &
          bind(C, name="BLAC_DTPSV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans, diag
       integer(c_int), intent(in) :: n, incx
       real(c_double), intent(in) :: ap(*)
       real(c_double), intent(inout) :: x(*)
     end subroutine

     ! x := op(T)*x
     subroutine blac_dtrmv(uplo, trans, diag, n, a, lda, x, incx) &
          bind(C, name="BLAC_DTRMV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans, diag
       integer(c_int), intent(in) :: n, lda, incx
       real(c_double), intent(in) :: a(lda, *)
       real(c_double), intent(inout) :: x(*)
     end subroutine

     ! x := inverse of op(T) times x
     subroutine blac_dtrsv(uplo, trans, diag, n, a, lda, x, incx) &
          bind(C, name="BLAC_DTRSV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans, diag
       integer(c_int), intent(in) :: n, lda, incx
       real(c_double), intent(in) :: a(lda, *)
       real(c_double), intent(inout) :: x(*)
     end subroutine

     ! BLAS level 3: matrices

     ! C := alpha*op(A)*op(B) + beta*C, C is m x n, op(A) m x k
     subroutine blac_dgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) &
          bind(C, name="BLAC_DGEMM")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: transa, transb
       integer(c_int), intent(in) :: m, n, k, lda, ldb, ldc
       real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
       real(c_double), intent(inout) :: c(ldc, *)
     end subroutine

     ! C := alpha*S*B + beta*C or C := alpha*B*S + beta*C, C is m x n
     subroutine blac_dsymm(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc) &
          bind(C, name="BLAC_DSYMM")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: side, uplo
       integer(c_int), intent(in) :: m, n, lda, ldb, ldc
       real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
       real(c_double), intent(inout) :: c(ldc, *)
     end subroutine

     ! S := alpha*op(A)*op(B)' + alpha*op(B)*op(A)' + beta*S, S is n x n, op(A) n x k
     subroutine blac_dsyr2k(uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc) &
          bind(C, name="BLAC_DSYR2K")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans
       integer(c_int), intent(in) :: n, k, lda, ldb, ldc
       real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
       real(c_double), intent(inout) :: c(ldc, *)
     end subroutine

     ! S := alpha*op(A)*op(A)' + beta*S, S is n x n, op(A) n x k
     subroutine blac_dsyrk(uplo, trans, n, k, alpha, a, lda, beta, c, ldc) &
          bind(C, name="BLAC_DSYRK")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, trans
       integer(c_int), intent(in) :: n, k, lda, ldc
       real(c_double), intent(in) :: alpha, a(lda, *), beta
       real(c_double), intent(inout) :: c(ldc, *)
     end subroutine

     ! B := alpha*op(T)*B or B := alpha*B*op(T), B is m x n
     subroutine blac_dtrmm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb) &
          bind(C, name="BLAC_DTRMM")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: side, uplo, transa, diag
       integer(c_int), intent(in) :: m, n, lda, ldb
       real(c_double), intent(in) :: alpha, a(lda, *)
       real(c_double), intent(inout) :: b(ldb, *)
     end subroutine

     ! solves op(T)*X = alpha*B or X*op(T) = alpha*B, B is m x n and becomes X
     subroutine blac_dtrsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb) &
          bind(C, name="BLAC_DTRSM")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: side, uplo, transa, diag
       integer(c_int), intent(in) :: m, n, lda, ldb
       real(c_double), intent(in) :: alpha, a(lda, *)
       real(c_double), intent(inout) :: b(ldb, *)
     end subroutine

     ! LAPACK

     ! LU factors of the m x n matrix A with row exchanges ipiv, in place
     subroutine blac_dgetrf(m, n, a, lda, ipiv, info) &
          bind(C, name="BLAC_DGETRF")
       import :: c_double, c_int
       integer(c_int), intent(in) :: m, n, lda
       real(c_double), intent(inout) :: a(lda, *)
       integer(c_int), intent(out) :: ipiv(*), info
     end subroutine

     ! solves op(A)*X = B with the factors of DGETRF
     subroutine blac_dgetrs(trans, n, nrhs, a, lda, ipiv, b, ldb, info) &
          bind(C, name="BLAC_DGETRS")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: trans
       integer(c_int), intent(in) :: n, nrhs, lda, ipiv(*), ldb
       real(c_double), intent(in) :: a(lda, *)
       real(c_double), intent(inout) :: b(ldb, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! C := op(Q)*C or C := C*op(Q) with the orthogonal Q of DSYTRD; a is used meanwhile and as before at the end
     subroutine blac_dormtr(side, uplo, trans, m, n, a, lda, tau, c, ldc, work, lwork, info) &
          bind(C, name="BLAC_DORMTR")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: side, uplo, trans
       integer(c_int), intent(in) :: m, n, lda, ldc, lwork
       real(c_double), intent(inout) :: a(lda, *), c(ldc, *), work(*)
       real(c_double), intent(in) :: tau(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! Cholesky factor of a positive definite S, in place
     subroutine blac_dpotrf(uplo, n, a, lda, info) &
          bind(C, name="BLAC_DPOTRF")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, lda
       real(c_double), intent(inout) :: a(lda, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! Cholesky factor of a positive definite S, packed, in place
     subroutine blac_dpptrf(uplo, n, ap, info) &
          bind(C, name="BLAC_DPPTRF")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n
       real(c_double), intent(inout) :: ap(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! inverse of S from the factor of DPPTRF, in place
     subroutine blac_dpptri(uplo, n, ap, info) &
          bind(C, name="BLAC_DPPTRI")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n
       real(c_double), intent(inout) :: ap(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! solves S*X = B with the factor of DPPTRF
     subroutine blac_dpptrs(uplo, n, nrhs, ap, b, ldb, info) &
          bind(C, name="BLAC_DPPTRS")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, nrhs, ldb
       real(c_double), intent(in) :: ap(*)
       real(c_double), intent(inout) :: b(ldb, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! chosen eigenvalues, and eigenvectors if wanted, of S, packed; destroys ap
     subroutine blac_dspevx(jobz, range, uplo, n, ap, vl, vu, il, iu, abstol, m, w, z, ldz, work, iwork, &
          ifail, info) &
          bind(C, name="BLAC_DSPEVX")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: jobz, range, uplo
       integer(c_int), intent(in) :: n, il, iu, ldz
       real(c_double), intent(inout) :: ap(*), z(ldz, *), work(*)
       real(c_double), intent(in) :: vl, vu, abstol
       integer(c_int), intent(out) :: m, ifail(*), info
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(inout) :: iwork(*)
     end subroutine

     ! chosen eigenvalues, and eigenvectors if wanted, of the tridiagonal matrix (d, e); e has n elements
     subroutine blac_dstemr(jobz, range, n, d, e, vl, vu, il, iu, m, w, z, ldz, nzc, isuppz, tryrac, &
          work, lwork, iwork, liwork, info) &
          bind(C, name="BLAC_DSTEMR")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: jobz, range
       integer(c_int), intent(in) :: n, il, iu, ldz, nzc, lwork, liwork
       real(c_double), intent(inout) :: d(*), e(*), z(ldz, *), work(*)
       real(c_double), intent(in) :: vl, vu
       integer(c_int), intent(out) :: m, isuppz(*), info
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(inout) :: tryrac, iwork(*)
     end subroutine

     ! as DSTEMR; takes the fastest algorithm that serves, e has n - 1 elements
     subroutine blac_dstevr(jobz, range, n, d, e, vl, vu, il, iu, abstol, m, w, z, ldz, isuppz, work, &
          lwork, iwork, liwork, info) &
          bind(C, name="BLAC_DSTEVR")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: jobz, range
       integer(c_int), intent(in) :: n, il, iu, ldz, lwork, liwork
       real(c_double), intent(inout) :: d(*), e(*), z(ldz, *), work(*)
       real(c_double), intent(in) :: vl, vu, abstol
       integer(c_int), intent(out) :: m, isuppz(*), info
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(inout) :: iwork(*)
     end subroutine

     ! all eigenvalues, and eigenvectors if wanted (they replace a), of S
     subroutine blac_dsyev(jobz, uplo, n, a, lda, w, work, lwork, info) &
          bind(C, name="BLAC_DSYEV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: jobz, uplo
       integer(c_int), intent(in) :: n, lda, lwork
       real(c_double), intent(inout) :: a(lda, *), work(*)
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! chosen eigenvalues, and eigenvectors if wanted, of S; destroys a
     subroutine blac_dsyevx(jobz, range, uplo, n, a, lda, vl, vu, il, iu, abstol, m, w, z, ldz, work, &
          lwork, iwork, ifail, info) &
          bind(C, name="BLAC_DSYEVX")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: jobz, range, uplo
       integer(c_int), intent(in) :: n, lda, il, iu, ldz, lwork
       real(c_double), intent(inout) :: a(lda, *), z(ldz, *), work(*)
       real(c_double), intent(in) :: vl, vu, abstol
       integer(c_int), intent(out) :: m, ifail(*), info
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(inout) :: iwork(*)
     end subroutine

     ! reduces S*x = lambda*B*x and its kin to standard form, b holds the factor of DPOTRF of B
     subroutine blac_dsygst(itype, uplo, n, a, lda, b, ldb, info) &
          bind(C, name="BLAC_DSYGST")
       import :: c_char, c_double, c_int
       integer(c_int), intent(in) :: itype, n, lda, ldb
       character(kind=c_char), intent(in) :: uplo
       real(c_double), intent(inout) :: a(lda, *)
       real(c_double), intent(in) :: b(ldb, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! all solutions of S*x = lambda*B*x and its kin; the eigenvectors replace a, the factor of B replaces b
     subroutine blac_dsygv(itype, jobz, uplo, n, a, lda, b, ldb, w, work, lwork, info) &
          bind(C, name="BLAC_DSYGV")
       import :: c_char, c_double, c_int
       integer(c_int), intent(in) :: itype, n, lda, ldb, lwork
       character(kind=c_char), intent(in) :: jobz, uplo
       real(c_double), intent(inout) :: a(lda, *), b(ldb, *), work(*)
       real(c_double), intent(out) :: w(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! tridiagonal form (d, e) of S by an orthogonal Q, which is left in a and tau
     subroutine blac_dsytrd(uplo, n, a, lda, d, e, tau, work, lwork, info) &
          bind(C, name="BLAC_DSYTRD")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, lda, lwork
       real(c_double), intent(inout) :: a(lda, *), d(*), e(*), work(*)
       real(c_double), intent(out) :: tau(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! Bunch-Kaufman factors of S, which need not be definite, in place
     subroutine blac_dsytrf(uplo, n, a, lda, ipiv, work, lwork, info) &
          bind(C, name="BLAC_DSYTRF")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, lda, lwork
       real(c_double), intent(inout) :: a(lda, *), work(*)
       integer(c_int), intent(out) :: ipiv(*), info
     end subroutine

     ! solves S*X = B with the factors of DSYTRF
     subroutine blac_dsytrs(uplo, n, nrhs, a, lda, ipiv, b, ldb, info) &
          bind(C, name="BLAC_DSYTRS")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, nrhs, lda, ipiv(*), ldb
       real(c_double), intent(in) :: a(lda, *)
       real(c_double), intent(inout) :: b(ldb, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! inverse of T, packed, in place
     subroutine blac_dtptri(uplo, diag, n, ap, info) &
          bind(C, name="BLAC_DTPTRI")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo, diag
       integer(c_int), intent(in) :: n
       real(c_double), intent(inout) :: ap(*)
       integer(c_int), intent(out) :: info
     end subroutine

     ! LAPACK auxiliaries

     ! a property of the arithmetic: E rounding unit, P precision, S safe minimum, B base, O overflow threshold
     function blac_dlamch(cmach) &
          bind(C, name="BLAC_DLAMCH")
       import :: c_char, c_double
       character(kind=c_char), intent(in) :: cmach
       real(c_double) :: blac_dlamch
     end function

     ! 1 when infinities (ispec 0), and NaNs too (ispec 1), work; zero and one are single precision
     function blac_ieeeck(ispec, zero, one) &
          bind(C, name="BLAC_IEEECK")
       import :: c_float, c_int
       integer(c_int), intent(in) :: ispec
       real(c_float), intent(in) :: zero, one
       integer(c_int) :: blac_ieeeck
     end function

     ! whether two letters are the same, case aside
     function blac_lsame(ca, cb) &
          bind(C, name="BLAC_LSAME")
       import :: c_char, c_int
       character(kind=c_char), intent(in) :: ca, cb
       integer(c_int) :: blac_lsame
     end function

     ! the rest of the call layer

     ! block sizes and crossover points of LAPACK's algorithms; ispec 1 is the block size
     function blac_ilaenv(ispec, name, opts, n1, n2, n3, n4, name_length, opts_length) &
          bind(C, name="BLAC_ILAENV")
       import :: c_char, c_int
       integer(c_int), intent(in) :: ispec, n1, n2, n3, n4
       character(kind=c_char), intent(in) :: name(*), opts(*)
       integer(c_int), value :: name_length, opts_length
       integer(c_int) :: blac_ilaenv
     end function

     ! the contract of blac_dgemm, served by another implementation
     subroutine blac_dgemm2(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) &
          bind(C, name="BLAC_DGEMM2")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: transa, transb
       integer(c_int), intent(in) :: m, n, k, lda, ldb, ldc
       real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
       real(c_double), intent(inout) :: c(ldc, *)
     end subroutine

     ! solves A*X = B; a becomes its LU factors, b becomes X
     subroutine blac_dgesv(n, nrhs, a, lda, ipiv, b, ldb, info) &
          bind(C, name="BLAC_DGESV")
       import :: c_double, c_int
       integer(c_int), intent(in) :: n, nrhs, lda, ldb
       real(c_double), intent(inout) :: a(lda, *), b(ldb, *)
       integer(c_int), intent(out) :: ipiv(*), info
     end subroutine

     ! solves S*X = B, S positive definite and packed; ap becomes its factor, b becomes X
     subroutine blac_dppsv(uplo, n, nrhs, ap, b, ldb, info) &
          bind(C, name="BLAC_DPPSV")
       import :: c_char, c_double, c_int
       character(kind=c_char), intent(in) :: uplo
       integer(c_int), intent(in) :: n, nrhs, ldb
       real(c_double), intent(inout) :: ap(*), b(ldb, *)
       integer(c_int), intent(out) :: info
     end subroutine

     ! calls the error handler as the routine of this name does for its argument number info
     subroutine blac_xerbla(name, info) &
          bind(C, name="BLAC_XERBLA")
       import :: c_char, c_int
       character(kind=c_char), intent(in) :: name(*)
       integer(c_int), intent(in) :: info
     end subroutine

     ! a constant of the machine or of mathematics, see blac/BLAC.h
     function blac_hdmcon(index) &
          bind(C, name="BLAC_HDMCON")
       import :: c_double, c_int
       integer(c_int), intent(in) :: index
       real(c_double) :: blac_hdmcon
     end function

     ! Sparse products of a block of nvec vectors; row i of A, from zero, has the values a(ia(i)+1 ... ia(i+1)) in the
     ! columns ja(...), from zero. See blac/BLAC.h.

     ! y := A*x
     subroutine blac_sparse_umv(a, x, ia, ja, y, nrows, ncols, nvec) bind(C, name="BLAC_SPARSE_UMV")
       import :: c_double, c_int
       real(c_double), intent(in) :: a(*), x(*)
       integer(c_int), intent(in) :: ia(*), ja(*), nrows, ncols, nvec
       real(c_double), intent(inout) :: y(*)
     end subroutine

     ! y := A'*x
     subroutine blac_sparse_umtv(a, x, ia, ja, y, nrows, ncols, nvec) bind(C, name="BLAC_SPARSE_UMTV")
       import :: c_double, c_int
       real(c_double), intent(in) :: a(*), x(*)
       integer(c_int), intent(in) :: ia(*), ja(*), nrows, ncols, nvec
       real(c_double), intent(inout) :: y(*)
     end subroutine

     ! y := A'*z, z zero but for the nrows rows idx, which x has
     subroutine blac_sparse_sparse_umtv(a, x, ia, ja, y, nrows, ncols, nvec, idx) &
          bind(C, name="BLAC_SPARSE_SPARSE_UMTV")
       import :: c_double, c_int
       real(c_double), intent(in) :: a(*), x(*)
       integer(c_int), intent(in) :: ia(*), ja(*), nrows, ncols, nvec, idx(*)
       real(c_double), intent(inout) :: y(*)
     end subroutine
  end interface

contains

  ! The text of the last error that left an entry point; empty when there was none.
  function orx_last_error() result(text)
    character(:), allocatable :: text
    character(kind=c_char), allocatable :: buffer(:)
    integer(c_int) :: i, length
    allocate (buffer(1))
    length = orxsrvlasterror(buffer, 1_c_int) + 1_c_int
    deallocate (buffer)
    allocate (buffer(length))
    length = orxsrvlasterror(buffer, length)
    allocate (character(length) :: text)
    do i = 1, length
       text(i:i) = buffer(i)
    end do
  end function

end module
