! A writer of the Fortran exchange file that knows nothing of the reader: row i holds its diagonal and then
! the columns i+1, i+2, ... as far as `band` and the order go, with the value 1000 i + column.
subroutine write_record_file(path, length, order, band, swapped) bind(c)
  use, intrinsic :: iso_c_binding
  implicit none
  integer(c_int32_t), value :: length, order, band, swapped
  character(kind=c_char), intent(in) :: path(length)
  character(len=length) :: name
  character(len=16) :: conversion
  integer(c_int32_t) :: i, j, last
  integer :: file

  do i = 1, length
    name(i:i) = path(i)
  end do
  conversion = "native"
  if (swapped /= 0) conversion = "big_endian"
  open (newunit=file, file=name, access="sequential", form="unformatted", action="write", &
        status="replace", convert=conversion)
  write (file) order
  do i = 1, order
    last = min(order, i + band)
    write (file) last - i + 1, (j, j=i, last), (1000d0*i + j, j=i, last)
  end do
  close (file)
end subroutine

! What a host program may have on unit 81.
subroutine occupy_unit(number) bind(c)
  use, intrinsic :: iso_c_binding
  integer(c_int32_t), value :: number
  open (unit=number, status="scratch")
end subroutine

subroutine release_unit(number, is_open) bind(c)
  use, intrinsic :: iso_c_binding
  integer(c_int32_t), value :: number
  integer(c_int32_t), intent(out) :: is_open
  logical :: opened
  inquire (unit=number, opened=opened)
  is_open = 0
  if (opened) is_open = 1
  close (number)
end subroutine
