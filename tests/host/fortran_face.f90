! Solver code in Fortran, as the C++ side of these tests calls it.
module fortran_face
  use orx_linear_algebra
  use, intrinsic :: iso_c_binding, only: c_char, c_f_pointer
  implicit none

  type, bind(C) :: reading
     type(c_ptr) :: container
     integer(c_int) :: id
     real(c_double) :: sum
  end type

contains

  subroutine read_times(cpu, wall) bind(C, name="fortran_read_times")
    real(c_double), intent(inout) :: cpu, wall
    call orxsrvgetcputime(cpu)
    call orxsrvgetwalltime(wall)
  end subroutine

  ! values(i, j) of matrix id, counted from 1; -1 unless it is rows x columns.
  function value_of(container, id, rows, columns, i, j) bind(C, name="fortran_value_of") result(value)
    type(c_ptr), value :: container
    integer(c_int), intent(in) :: id, rows, columns, i, j
    real(c_double) :: value
    real(c_double), allocatable :: values(:, :)
    value = -1
    if (orxsrvmatrixcontainernumrows(container, id) /= rows) return
    if (orxsrvmatrixcontainernumcolumns(container, id) /= columns) return
    allocate (values(rows, columns))
    call orxsrvmatrixcontainergetvalues(container, id, values)
    value = values(i, j)
  end function

  ! Sums the values of a 2 x 2 matrix; fails for an unknown one.
  subroutine sum_values(data) bind(C)
    type(c_ptr), value :: data
    type(reading), pointer :: job
    real(c_double) :: values(2, 2)
    call c_f_pointer(data, job)
    call orxsrvmatrixcontainergetvalues(job%container, job%id, values)
    job%sum = sum(values)
  end subroutine

  ! Tries sum_values; returns the error's number, and its text in `text`, padded with blanks to `length`.
  function try_to_sum(container, id, total, text, length) bind(C, name="fortran_try_to_sum") result(error)
    type(c_ptr), value :: container
    integer(c_int), intent(in) :: id, length
    real(c_double), intent(inout) :: total
    character(kind=c_char), intent(inout) :: text(length)
    integer(c_int) :: error, i
    type(reading), target :: job
    character(length) :: message
    job = reading(container, id, -1)
    error = orxsrvtry(c_funloc(sum_values), c_loc(job))
    total = job%sum
    message = orx_last_error()
    do i = 1, length
       text(i) = message(i:i)
    end do
  end function

  ! A life of a container that nobody else sees.
  subroutine own_container() bind(C, name="fortran_own_container")
    type(c_ptr) :: container
    container = orxsrvmatrixcontainercreate()
    call orxsrvmatrixcontainerdelete(container)
    call orxsrvmatrixcontainerdelete(c_null_ptr)
  end subroutine

  ! Solves a 3 x 3 system with the call layer, two-dimensional arrays and part of a larger array included; returns
  ! the largest error of the solution and of its residual.
  function solution_error() bind(C, name="fortran_solution_error") result(error)
    real(c_double) :: error
    real(c_double) :: a(4, 3), factors(4, 3), x(3), residual(3)
    real(c_double), parameter :: exact(3) = [1, -2, 3]
    integer(c_int) :: pivots(3), info
    a(:3, 1) = [4, 1, 0]
    a(:3, 2) = [1, 5, 2]
    a(:3, 3) = [0, 2, 6]
    a(4, :) = 1000 ! not part of the matrix
    x = [2, -3, 14]
    residual = x
    factors = a
    call blac_dgesv(3, 1, factors, 4, pivots, x, 3, info)
    call blac_dgemv("N", 3, 3, 1d0, a, 4, x, 1, -1d0, residual, 1)
    error = max(maxval(abs(x - exact)), abs(residual(blac_idamax(3, residual, 1))), real(abs(info), c_double))
  end function

end module
