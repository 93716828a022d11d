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

  ! Stops at the count-th call; `context` is the address of the count.
  function stop_early(context, operation, done, total) bind(C) result(answer)
    type(c_ptr), value :: context
    character(kind=c_char), intent(in) :: operation(*)
    integer(c_int64_t), intent(in) :: done, total
    integer(c_int) :: answer
    integer(c_int), pointer :: count
    call c_f_pointer(context, count)
    count = count - 1
    answer = merge(1_c_int, 0_c_int, count == 0 .and. done <= total .and. operation(1) == "O")
  end function

  ! A chain of n springs as a host would work on it. Returns stat of an analysis that is stopped, and in x the ends of a
  ! row of values: of a solution, read back from the file of this name.
  subroutine use_host(n, path, length, x, stat) bind(C, name="fortran_use_host")
    integer(c_int), intent(in) :: n, length
    character(kind=c_char), intent(in) :: path(length)
    real(c_double), intent(out) :: x(2)
    integer(c_int), intent(out) :: stat
    integer(orx_handle) :: k, factor, database, u
    integer(c_int), target :: count
    integer(c_int) :: i
    integer(c_int), pointer :: row_pointers(:)
    type(c_ptr) :: p, columns, values, diagonal
    real(c_double) :: f(n), spring(2, 2)
    character(length + 3) :: name
    name = ""
    do i = 1, length
       name(i:i) = path(i)
    end do
    spring = reshape([1d0, -1d0, -1d0, 1d0], [2, 2])
    call orx_start()
    call orx_sparse_create(n, n, k)
    do i = 1, n
       call orx_sparse_add_element(k, 2, [i - 1, i], spring)
    end do
    call orx_sparse_end(k)
    call orx_sparse_arrays(k, p, columns, values, diagonal)
    call c_f_pointer(p, row_pointers, [n + 1])
    f = 0
    f(n) = row_pointers(n + 1) - row_pointers(n) - 1 ! 1: the last row has two entries
    call orx_factor_create(factor)
    count = 1
    call orx_set_progress(c_funloc(stop_early), c_loc(count))
    call orx_factor_factorize(factor, k, stat)
    call orx_set_progress(c_null_funptr, c_null_ptr)
    call orx_factor_factorize(factor, k)
    call orx_factor_solve(factor, 1, f)
    call orx_database_create(name, 1, database)
    call orx_database_add(database, "u ", n, 1, 100, 1, matrix=u)
    call orx_block_set(u, 1, n, 1, 1, f)
    call orx_database_close(database)
    call orx_database_open(name, 1, database)
    call orx_database_matrix(database, "u", u)
    call orx_block_get(u, 1, 1, 1, 1, x(1))
    call orx_block_get(u, n, n, 1, 1, x(2))
    call orx_stop()
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
