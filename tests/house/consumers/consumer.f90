program consumer
  implicit none
  interface
    subroutine dgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) bind(c, name="BLAC_DGEMM")
      use iso_c_binding, only: c_char, c_int, c_double
      character(kind=c_char), intent(in) :: transa, transb
      integer(c_int), intent(in) :: m, n, k, lda, ldb, ldc
      real(c_double), intent(in) :: alpha, beta, a(lda, *), b(ldb, *)
      real(c_double), intent(inout) :: c(ldc, *)
    end subroutine
  end interface
  double precision :: a(2, 2), c(2, 2)
  a = reshape([1d0, 3d0, 2d0, 4d0], [2, 2])
  call dgemm("T", "N", 2, 2, 2, 1d0, a, 2, a, 2, 0d0, c, 2)
  print "(4f5.1)", c
end program
