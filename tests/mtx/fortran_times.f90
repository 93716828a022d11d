! Reads the process timer as solver code does.
subroutine fortran_times(cpu, wall) bind(C, name="fortran_times")
  use, intrinsic :: iso_c_binding, only: c_double
  implicit none
  real(c_double), intent(out) :: cpu, wall
  interface
     subroutine orxsrvgetcputime(t) bind(C, name="ORXSRVGETCPUTIME")
       import :: c_double
       real(c_double), intent(out) :: t
     end subroutine
     subroutine orxsrvgetwalltime(t) bind(C, name="ORXSRVGETWALLTIME")
       import :: c_double
       real(c_double), intent(out) :: t
     end subroutine
  end interface
  call orxsrvgetcputime(cpu)
  call orxsrvgetwalltime(wall)
end subroutine
