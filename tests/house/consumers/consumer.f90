module work
  use orx_linear_algebra
  implicit none
  type(c_ptr) :: matrices
contains
  subroutine read_unknown(data) bind(C)
    type(c_ptr), value :: data
    if (orxsrvmatrixcontainernumrows(matrices, 6) == 0) print *, data
  end subroutine
end module

program consumer
  use work
  implicit none
  real(c_double) :: a(2, 2), c(2, 2)
  a = reshape([1d0, 3d0, 2d0, 4d0], [2, 2])
  call blac_dgemm("T", "N", 2, 2, 2, 1d0, a, 2, a, 2, 0d0, c, 2)
  print "(4f5.1)", c
  matrices = orxsrvmatrixcontainercreate()
  print "(i0)", orxsrvtry(c_funloc(read_unknown), c_null_ptr)
  print "(a)", orx_last_error()
  call orxsrvmatrixcontainerdelete(matrices)
end program
