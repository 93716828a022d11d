! Prints each mode's frequency and largest displacement from matrices that the C++ side has registered.
subroutine print_modes(matrices, shapes, stiffness, mass) bind(C)
  use orx_linear_algebra
  use, intrinsic :: iso_fortran_env, only: output_unit
  implicit none
  type(c_ptr), value :: matrices
  integer(c_int), intent(in) :: shapes, stiffness, mass
  real(c_double), parameter :: pi = acos(-1d0)
  real(c_double), allocatable :: phi(:, :), k(:, :), m(:, :)
  integer(c_int) :: j, modes, place, unknowns

  unknowns = orxsrvmatrixcontainernumrows(matrices, shapes)
  modes = orxsrvmatrixcontainernumcolumns(matrices, shapes)
  allocate (phi(unknowns, modes), k(modes, modes), m(modes, modes))
  call orxsrvmatrixcontainergetvalues(matrices, shapes, phi)
  call orxsrvmatrixcontainergetvalues(matrices, stiffness, k)
  call orxsrvmatrixcontainergetvalues(matrices, mass, m)

  do j = 1, modes
     place = blac_idamax(unknowns, phi(:, j), 1)
     print "('Fortran ', i4, es25.16e2, es25.16e2, i9)", j, sqrt(k(j, j) / m(j, j)) / (2 * pi), phi(place, j), place
  end do
  flush (output_unit)
end subroutine
