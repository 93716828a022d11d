"""mode_peers.py slepc|scipy FOLDER COUNT: times the lowest COUNT modes of the pair in FOLDER, by SLEPc with MUMPS or by
SciPy's eigsh, both with a shift of 0, and prints "modes SECONDS", "last EIGENVALUE" and "peak_bytes BYTES". FOLDER has
K and M in compressed rows, as NAME/ia.bin, NAME/ja.bin and NAME/a.bin. Neither certifies anything."""

import resource
import sys
import time

import numpy
import scipy.sparse


def read(name):
    pointers, columns = (numpy.fromfile(f"{folder}/{name}/{part}.bin", numpy.int32) for part in ("ia", "ja"))
    order = len(pointers) - 1
    return scipy.sparse.csr_matrix((numpy.fromfile(f"{folder}/{name}/a.bin"), columns, pointers), (order, order))


def solve_slepc():
    import slepc4py

    slepc4py.init([])
    from petsc4py import PETSc
    from slepc4py import SLEPc

    def matrix(a):
        result = PETSc.Mat().createAIJ(a.shape, csr=(a.indptr, a.indices, a.data))
        result.setOption(PETSc.Mat.Option.SYMMETRIC, True)
        return result

    k, m = matrix(stiffness), matrix(mass)
    start = time.perf_counter()
    problem = SLEPc.EPS().create()
    problem.setOperators(k, m)
    problem.setProblemType(SLEPc.EPS.ProblemType.GHEP)
    problem.setDimensions(count)
    problem.setTarget(0.0)
    problem.setWhichEigenpairs(SLEPc.EPS.Which.TARGET_MAGNITUDE)
    transform = problem.getST()
    transform.setType("sinvert")
    transform.setShift(0.0)
    solver = transform.getKSP()
    solver.setType("preonly")
    solver.getPC().setType("cholesky")
    solver.getPC().setFactorSolverType("mumps")
    problem.solve()
    seconds = time.perf_counter() - start
    return seconds, sorted(problem.getEigenvalue(i).real for i in range(problem.getConverged()))[count - 1]


def solve_scipy():
    import scipy.sparse.linalg

    start = time.perf_counter()
    values = scipy.sparse.linalg.eigsh(stiffness.tocsc(), count, mass.tocsc(), sigma=0.0, return_eigenvectors=True)[0]
    return time.perf_counter() - start, max(values)


peer, folder, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
stiffness, mass = read("K"), read("M")
seconds, last = solve_slepc() if peer == "slepc" else solve_scipy()
print("modes", seconds)
print("last", repr(float(last)))
print("peak_bytes", 1024 * resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
