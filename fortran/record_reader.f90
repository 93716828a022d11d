! Reads the records of a symmetric matrix with the Fortran runtime, which knows about subrecords and, told by
! GFORTRAN_CONVERT_UNIT or the host's compiler options, about other byte orders.
!
!   record 1           the order n
!   record 2 ... n+1   one per row: k, k one-based columns, k values; the first pair is the diagonal
!
! Nothing here stops the process: each routine returns 0, or what was wrong. The caller, mtx/impl/FortranRecords.cpp,
! has walked along the markers of a record before it is read, because this runtime does not come back from some
! damaged ones.
module record_reader
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_int32_t, c_int64_t, c_null_char
  implicit none
  private

  integer, parameter :: unit = 81
  integer, parameter :: message_size = 256
  integer(c_int32_t), parameter :: done = 0, unreadable = 1, miscounted = 2

contains

  ! Opens the file and tells the byte order that the runtime will read it in. A unit that the host has in use
  ! is left alone.
  integer(c_int32_t) function open_records(path, length, is_big_endian, message) bind(c, name="orx_fortran_open")
    integer(c_int32_t), value :: length
    character(kind=c_char), intent(in) :: path(length)
    integer(c_int32_t), intent(out) :: is_big_endian
    character(kind=c_char), intent(out) :: message(message_size)
    character(len=length) :: name
    character(len=message_size) :: text
    character(len=16) :: byte_order
    integer :: status, k
    logical :: in_use

    is_big_endian = 0
    do k = 1, length
      name(k:k) = path(k)
    end do
    open_records = unreadable
    inquire (unit=unit, opened=in_use)
    if (in_use) then
      call tell("Fortran unit 81 is in use", message)
      return
    end if
    text = ""
    open (unit=unit, file=name, access="sequential", form="unformatted", action="read", status="old", &
          iostat=status, iomsg=text)
    if (status == 0) then
      inquire (unit=unit, convert=byte_order)
      if (byte_order == "BIG_ENDIAN") is_big_endian = 1
      open_records = done
    end if
    call tell(trim(text), message)
  end function

  ! Reads the first record.
  integer(c_int32_t) function read_order(order, message) bind(c, name="orx_fortran_read_order")
    integer(c_int32_t), intent(out) :: order
    character(kind=c_char), intent(out) :: message(message_size)
    character(len=message_size) :: text
    integer :: status

    text = ""
    order = 0
    read (unit, iostat=status, iomsg=text) order
    read_order = merge(done, unreadable, status == 0)
    call tell(trim(text), message)
  end function

  ! Reads the row records into arrays with room for so many entries besides the diagonal. Of a row that says
  ! to be longer no more than fits is read. `row` and `pairs` tell where it ended and the count read there.
  integer(c_int32_t) function read_rows(order, room, starts, columns, values, diagonal, row, pairs, message) &
      bind(c, name="orx_fortran_read_rows")
    integer(c_int32_t), value :: order
    integer(c_int64_t), value :: room
    integer(c_int32_t), intent(out) :: starts(order + 1_c_int64_t)
    integer(c_int32_t), intent(out) :: columns(room)
    real(c_double), intent(out) :: values(room)
    real(c_double), intent(out) :: diagonal(order)
    integer(c_int32_t), intent(out) :: row, pairs
    character(kind=c_char), intent(out) :: message(message_size)
    character(len=message_size) :: text
    integer(c_int32_t) :: diagonal_column
    integer(c_int64_t) :: at
    integer :: status

    at = 0
    starts(1) = 0
    text = ""
    do row = 1, order
      pairs = 1
      ! The bounds are those of the count that was read just before.
      read (unit, iostat=status, iomsg=text) pairs, &
        diagonal_column, columns(at + 1:at + min(pairs - 1_c_int64_t, room - at)), &
        diagonal(row), values(at + 1:at + min(pairs - 1_c_int64_t, room - at))
      if (pairs < 1 .or. pairs > order) then
        read_rows = miscounted
        return
      end if
      if (status == 0 .and. pairs - 1 > room - at) text = "more pairs than the size of the file allows"
      if (status /= 0 .or. pairs - 1 > room - at) then
        read_rows = unreadable
        call tell(trim(text), message)
        return
      end if
      at = at + pairs - 1
      starts(row + 1) = int(at, c_int32_t)
    end do
    read_rows = done
  end function

  subroutine close_records() bind(c, name="orx_fortran_close")
    integer :: status
    close (unit, iostat=status)
  end subroutine

  ! As a C string.
  subroutine tell(text, message)
    character(len=*), intent(in) :: text
    character(kind=c_char), intent(out) :: message(message_size)
    integer :: k
    do k = 1, min(len(text), message_size - 1)
      message(k) = text(k:k)
    end do
    message(k) = c_null_char
  end subroutine

end module
