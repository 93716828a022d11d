C     The solver module in Fortran, as a structural code of long
C     standing has it: a tower of plane beams under wind and its modes.
C     solver_module.c and solver_module.cpp are the same module in C and
C     in C++; all three do the same arithmetic in the same order and
C     print the same digits.
C
C     The tower has two legs, struts and diagonals in nstor storeys, and
C     a mast on top. Nodes 1 and 2 are its feet, which hinges hold. A
C     node has three unknowns: the displacements across and up, and the
C     rotation. id(3, node) has their numbers, 0 for what a foot holds.
C
C     Integers that the library sees are integer(c_int), and handles
C     integer(orx_handle). All others are default integers, of 32 bits
C     or, with -fdefault-integer-8, of 64.

      module watch
      use orx_linear_algebra
      implicit none
      contains

C     Shows the progress of long operations on the unit that context is.
      function show(context, op, done, total) bind(C) result(stopit)
      type(c_ptr), value :: context
      character(kind=c_char), intent(in) :: op(*)
      integer(c_int64_t), intent(in) :: done, total
      integer(c_int) stopit
      integer i
      integer(c_int), pointer :: unit
      call c_f_pointer(context, unit)
      i = 1
   10 if (op(i) .eq. c_null_char) goto 20
         write (unit, '(a)', advance='no') op(i)
         i = i + 1
      goto 10
   20 write (unit, '(a, i0, a, i0)') ': ', done, ' of ', total
      flush (unit)
      stopit = 0
      end function
      end module

      program tower
      use orx_linear_algebra
      use watch
      implicit none
      integer nstor, nmast, nn, ne
      integer(c_int) nmode
      parameter (nstor = 40, nmast = 12, nmode = 8)
      parameter (nn = 2 * (nstor + 1) + nmast)
      parameter (ne = 4 * nstor + 2 + nmast - 1)
      integer con(2, ne), sect(ne)
      integer(c_int) id(3, nn), n
      integer(c_int), target :: errout = 0
      integer(orx_handle) k, m, reg
      double precision xz(2, nn), f(3 * nn), u(3 * nn), wind, moment
      double precision t

      call orx_start()
      call orx_start_timer()
      call orx_set_progress(c_funloc(show), c_loc(errout))
      call mesh(nstor, nmast, nn, ne, xz, con, sect)
      call number(nn, id, n)
      print '(3(i0, a))', nn, ' nodes, ', ne, ' beams, ', n,
     &  ' unknowns'

      call assemb(ne, xz, con, sect, id, n, k, m)
      call loads(nstor, nn, xz, id, n, f, wind, moment)
      call static(k, n, f, u)
      call react(ne, xz, con, sect, id, u, wind, moment)

      call orx_registry_create(reg)
      call modal(k, m, n, nmode, reg)
      call keep(reg, n, nmode, u)
      call orxsrvgetwalltime(t)
      write (errout, '(f6.2, a)') t, ' seconds'
      call orx_stop()
      end

C     Places the nodes, in metres, and connects them by beams: the legs
C     (section 1), struts and diagonals (2), and the mast (3).
      subroutine mesh(nstor, nmast, nn, ne, xz, con, sect)
      implicit none
      integer nstor, nmast, nn, ne, con(2, ne), sect(ne)
      integer i, last, left, top
      double precision xz(2, nn), half, height, z
      height = 3d0 * dble(nstor)
      do 10 i = 0, nstor
         z = 3d0 * dble(i)
         half = 8d0 - 6.5d0 * z / height
         xz(1, 2 * i + 1) = -half
         xz(2, 2 * i + 1) = z
         xz(1, 2 * i + 2) = half
         xz(2, 2 * i + 2) = z
   10 continue
      top = 2 * (nstor + 1)
      do 20 i = 1, nmast
         xz(1, top + i) = 0d0
         xz(2, top + i) = height + 2d0 * dble(i)
   20 continue

      last = 0
      do 30 i = 1, nstor
         left = 2 * i + 1
         call beam(left - 2, left, 1, con, sect, last)
         call beam(left - 1, left + 1, 1, con, sect, last)
         call beam(left, left + 1, 2, con, sect, last)
         if (mod(i, 2) .eq. 1) then
            call beam(left - 2, left + 1, 2, con, sect, last)
         else
            call beam(left - 1, left, 2, con, sect, last)
         end if
   30 continue
      call beam(top - 1, top + 1, 1, con, sect, last)
      call beam(top, top + 1, 1, con, sect, last)
      do 40 i = 2, nmast
         call beam(top + i - 1, top + i, 3, con, sect, last)
   40 continue
      end

      subroutine beam(i, j, section, con, sect, last)
      implicit none
      integer i, j, section, con(2, *), sect(*), last
      last = last + 1
      con(1, last) = i
      con(2, last) = j
      sect(last) = section
      end

C     Numbers the unknowns from 1 to n. The feet have their rotations.
      subroutine number(nn, id, n)
      use orx_linear_algebra
      implicit none
      integer nn, node, i
      integer(c_int) id(3, nn), n
      n = 0
      do 20 node = 1, nn
         do 10 i = 1, 3
            id(i, node) = 0
            if (node .le. 2 .and. i .le. 2) goto 10
            n = n + 1_c_int
            id(i, node) = n
   10    continue
   20 continue
      end

C     Stiffness ke and mass me of beam e, Bernoulli's, in N, m and kg.
      subroutine elmats(e, xz, con, sect, ke, me)
      implicit none
      integer e, con(2, *), sect(*)
      double precision xz(2, *), ke(6, 6), me(6, 6), young, rho
      double precision area(3), inert(3), dx, dz, l, c, s, ea, ei, w
      parameter (young = 2.1d11, rho = 7850d0)
      data area / 3d-2, 6d-3, 1.2d-2 /, inert / 8.7d-4, 3d-5, 1d-4 /
      dx = xz(1, con(2, e)) - xz(1, con(1, e))
      dz = xz(2, con(2, e)) - xz(2, con(1, e))
      l = sqrt(dx * dx + dz * dz)
      c = dx / l
      s = dz / l
      ea = young * area(sect(e)) / l
      ei = young * inert(sect(e)) / (l * l * l)
      call rotate(c, s, (/ ea, -ea /), (/ 12d0 * ei, 6d0 * ei * l,
     &  -12d0 * ei, 6d0 * ei * l, 4d0 * ei * l * l,
     &  2d0 * ei * l * l /), ke)
      w = rho * area(sect(e)) * l / 420d0
      call rotate(c, s, (/ 140d0 * w, 70d0 * w /), (/ 156d0 * w,
     &  22d0 * w * l, 54d0 * w, -13d0 * w * l, 4d0 * w * l * l,
     &  -3d0 * w * l * l /), me)
      end

C     An element matrix in the directions of the tower. Along the beam,
C     whose direction is (c, s), it is
C
C         a1 a2                            b1  b2  b3  b4
C         a2 a1    and across the beam     b2  b5 -b4  b6
C                                          b3 -b4  b1 -b2
C                                          b4  b6 -b2  b5
      subroutine rotate(c, s, a, b, g)
      implicit none
      double precision c, s, a(2), b(6), g(6, 6)
      double precision nxx, nxz, nzz, nx, nz, fxx, fxz, fzz, fx, fz
      nxx = a(1) * c * c + b(1) * s * s
      nxz = (a(1) - b(1)) * c * s
      nzz = a(1) * s * s + b(1) * c * c
      nx = -s * b(2)
      nz = c * b(2)
      fxx = a(2) * c * c + b(3) * s * s
      fxz = (a(2) - b(3)) * c * s
      fzz = a(2) * s * s + b(3) * c * c
      fx = -s * b(4)
      fz = c * b(4)
      g = reshape((/
     &  nxx, nxz,   nx, fxx, fxz,   fx,
     &  nxz, nzz,   nz, fxz, fzz,   fz,
     &   nx,  nz, b(5), -fx, -fz, b(6),
     &  fxx, fxz,  -fx, nxx, nxz,  -nx,
     &  fxz, fzz,  -fz, nxz, nzz,  -nz,
     &   fx,  fz, b(6), -nx, -nz, b(5) /), (/ 6, 6 /))
      end

C     The unknowns of beam e.
      subroutine unknwn(e, con, id, dof)
      use orx_linear_algebra
      implicit none
      integer e, con(2, *), i
      integer(c_int) id(3, *), dof(6)
      do 10 i = 1, 3
         dof(i) = id(i, con(1, e))
         dof(i + 3) = id(i, con(2, e))
   10 continue
      end

C     New matrices: stiffness k and mass m. The library leaves out the
C     rows and columns of unknowns that are 0.
      subroutine assemb(ne, xz, con, sect, id, n, k, m)
      use orx_linear_algebra
      implicit none
      integer ne, con(2, ne), sect(ne), e
      integer(c_int) id(3, *), n, dof(6)
      integer(orx_handle) k, m
      double precision xz(2, *), ke(6, 6), me(6, 6)
      call orx_sparse_create(n, n, k)
      call orx_sparse_create(n, n, m)
      do 10 e = 1, ne
         call elmats(e, xz, con, sect, ke, me)
         call unknwn(e, con, id, dof)
         call orx_sparse_add_element(k, 6_c_int, dof, ke)
         call orx_sparse_add_element(m, 6_c_int, dof, me)
   10 continue
      call orx_sparse_end(k)
      call orx_sparse_end(m)
      end

C     Wind on the left leg and on the mast: the loads, their sum, and
C     their moment about the ground.
      subroutine loads(nstor, nn, xz, id, n, f, wind, moment)
      use orx_linear_algebra
      implicit none
      integer nstor, nn, node
      integer(c_int) id(3, nn), n
      double precision xz(2, nn), f(n), wind, moment, force
      f = 0d0
      wind = 0d0
      moment = 0d0
      do 10 node = 3, nn
         force = 1.5d3
         if (node .le. 2 * (nstor + 1)) then
            force = 6d3
            if (mod(node, 2) .eq. 0) goto 10
         end if
         f(id(1, node)) = force
         wind = wind + force
         moment = moment + force * xz(2, node)
   10 continue
      end

C     The displacements u under the loads f.
      subroutine static(k, n, f, u)
      use orx_linear_algebra
      implicit none
      integer(orx_handle) k, factor
      integer(c_int) n, worst
      double precision f(n), u(n), error
      call orx_factor_create(factor)
      call orx_factor_factorize(factor, k)
      call orx_factor_solve_refined(factor, 1_c_int, f, u, error)
      call orx_delete(factor)
      worst = blac_idamax(n, u, 1_c_int)
      print '(a, es23.15e2, a, i0)', 'largest displacement', u(worst),
     &  ' m, unknown ', worst
      print '(a, es8.1e2)', 'backward error', error
      end

C     Reactions of the feet from the beams that end there, and whether
C     they are in equilibrium with the wind.
      subroutine react(ne, xz, con, sect, id, u, wind, moment)
      use orx_linear_algebra
      implicit none
      integer ne, con(2, ne), sect(ne), e, iend, foot, i, j
      integer(c_int) id(3, *), dof(6)
      double precision xz(2, *), u(*), wind, moment
      double precision r(2, 2), ke(6, 6), me(6, 6), off
      r = 0d0
      do 40 e = 1, ne
         call elmats(e, xz, con, sect, ke, me)
         call unknwn(e, con, id, dof)
         do 30 iend = 1, 2
            foot = con(iend, e)
            if (foot .gt. 2) goto 30
            do 20 i = 1, 2
               do 10 j = 1, 6
                  if (dof(j) .eq. 0) goto 10
                  r(i, foot) = r(i, foot)
     &              + ke(3 * (iend - 1) + i, j) * u(dof(j))
   10          continue
   20       continue
   30    continue
   40 continue
      do 50 foot = 1, 2
         print '(a, i0, 2es24.15e2, a)', 'reaction ', foot,
     &     r(1, foot), r(2, foot), ' N'
   50 continue
      off = max(abs(r(1, 1) + r(1, 2) + wind) / wind,
     &  abs(xz(1, 1) * r(2, 1) + xz(1, 2) * r(2, 2) - moment) / moment)
      print '(a, es8.1e2)', 'equilibrium to', off
      end

C     The lowest modes, whose shapes become matrix 1 of the registry.
      subroutine modal(k, m, n, nmode, reg)
      use orx_linear_algebra
      implicit none
      integer(orx_handle) k, m, reg, modes, phi
      integer(c_int) n, nmode, i, count, cert, rigid
      double precision lambda(nmode), freq, error, resid
      call orx_modes_create(k, m, modes)
      call orx_modes_find_lowest(modes, nmode)
      call orx_modes_count(modes, count, cert)
      print '(i0, a, i0)', count, ' modes, certified ', cert
      do 10 i = 1, nmode
         call orx_modes_get(modes, i, lambda(i), freq, error, resid,
     &     rigid)
         print '(a, i0, es23.15e2, a)', 'mode ', i, freq, ' Hz'
   10 continue

      call orx_registry_add(reg, 1_c_int, n, nmode, 64_c_int, nmode)
      call orx_registry_matrix(reg, 1_c_int, phi)
      call orx_modes_shapes(modes, phi)
      call orx_delete(modes)
      call projct(k, phi, n, nmode, lambda, reg)
      end

C     The modal stiffness, shapes^T * K * shapes, with lambda on its
C     diagonal.
      subroutine projct(k, phi, n, nmode, lambda, reg)
      use orx_linear_algebra
      implicit none
      integer(orx_handle) k, phi, reg, kphi, modalk
      integer(c_int) n, nmode, i, j
      double precision lambda(nmode), a(nmode, nmode), couple, off
      call orx_registry_add(reg, 2_c_int, n, nmode, 64_c_int, nmode)
      call orx_registry_matrix(reg, 2_c_int, kphi)
      call orx_registry_add(reg, 3_c_int, nmode, nmode, nmode, nmode)
      call orx_registry_matrix(reg, 3_c_int, modalk)
      call orx_sparse_multiply(k, 0_c_int, phi, kphi)
      call orx_block_multiply(phi, 1_c_int, kphi, modalk)
      call orx_block_get(modalk, 1_c_int, nmode, 1_c_int, nmode, a)
      call orx_registry_remove(reg, 2_c_int)
      couple = 0d0
      off = 0d0
      do 20 j = 1, nmode
         off = max(off, abs(a(j, j) / lambda(j) - 1d0))
         do 10 i = 1, nmode
            if (i .ne. j) couple = max(couple,
     &        abs(a(i, j)) / sqrt(a(i, i) * a(j, j)))
   10    continue
   20 continue
      print '(2(a, es8.1e2))', 'modal stiffness: coupling', couple,
     &  ', diagonal off by', off
      end

C     Writes displacements and shapes to the file tower.sim, in one
C     transaction, and reads a value back.
      subroutine keep(reg, n, nmode, u)
      use orx_linear_algebra
      implicit none
      integer(orx_handle) reg, db, phi, matrix
      integer(c_int) n, nmode, ierr
      double precision u(n), value(1)
      call orx_registry_matrix(reg, 1_c_int, phi)
      call orx_database_create('tower.sim', 1_c_int, db)
      call orx_database_begin(db)
      call orx_database_add(db, 'displacements', n, 1_c_int, n, 1_c_int,
     &  matrix=matrix)
      call orx_block_set(matrix, 1_c_int, n, 1_c_int, 1_c_int, u)
      call orx_database_add(db, 'mode shapes', n, nmode, n, nmode,
     &  matrix=matrix)
      call orx_block_copy(phi, matrix)
      call orx_database_commit(db)
      call orx_database_close(db)

C     With ierr, an error is ours to handle.
      call orx_database_open('tower.sim', 1_c_int, db, ierr)
      if (ierr .ne. 0) then
         print '(a)', orx_last_error()
         stop 1
      end if
      call orx_database_matrix(db, 'mode shapes', matrix)
      call orx_block_get(matrix, n, n, 2_c_int, 2_c_int, value)
      print '(a, es23.15e2)', 'tower.sim: last component of mode 2',
     &  value
      call orx_database_close(db)
      end
