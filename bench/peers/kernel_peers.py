"""kernel_peers.py FOLDER COUNT...: times SciPy's products of a sparse matrix with COUNT vectors each.

FOLDER holds the compressed rows in ia.bin, ja.bin (32-bit) and a.bin (64-bit); the matrix is square. Vectors are
stored row by row, the only form that SciPy multiplies without a copy. All arrays are on 2 MB pages, as those of the
other contenders are; SciPy's own loops are called for that, which "@" calls on a new array. Prints "product_COUNT SECONDS",
"transposed_COUNT SECONDS" and, under these names with _checksum, a number that products that agree share.
"""
import mmap
import os
import sys
import time

import numpy
from scipy.sparse import _sparsetools


def on_large_pages(shape, kind=float):
    page = 2 << 20
    size = int(numpy.prod(shape)) * numpy.dtype(kind).itemsize
    memory = mmap.mmap(-1, size + 2 * page, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    memory.madvise(mmap.MADV_HUGEPAGE)
    whole = numpy.frombuffer(memory, "u1")
    first = -whole.ctypes.data % page
    return whole[first:first + size].view(kind).reshape(shape)


def copied(array):
    target = on_large_pages(array.shape, array.dtype)
    target[...] = array
    return target


def median_seconds(task, runs=3):
    task()
    seconds = []
    for _ in range(runs):
        start = time.perf_counter()
        task()
        seconds.append(time.perf_counter() - start)
    return sorted(seconds)[runs // 2]


def vectors(rows, count):
    i = numpy.arange(rows)[:, None]
    v = numpy.arange(count)[None, :]
    return ((7 * i + 3 * v) % 11 - 5).astype(float)


def checksum(y):
    i = numpy.arange(y.shape[0])[:, None]
    v = numpy.arange(y.shape[1])[None, :]
    return (y * ((i % 7 + 1) * (v + 1))).sum()


def main():
    folder = sys.argv[1]
    ia, ja, a = (copied(numpy.fromfile(os.path.join(folder, name + ".bin"), dtype=kind))
                 for name, kind in (("ia", "i4"), ("ja", "i4"), ("a", "f8")))
    rows = len(ia) - 1
    loops = (("product", _sparsetools.csr_matvec, _sparsetools.csr_matvecs),
             ("transposed", _sparsetools.csc_matvec, _sparsetools.csc_matvecs))
    for count in map(int, sys.argv[2:]):
        x = copied(vectors(rows, count))
        y = on_large_pages(x.shape)
        for name, for_one, for_several in loops:
            def multiply():
                y[...] = 0.0
                if count == 1:
                    for_one(rows, rows, ia, ja, a, x.ravel(), y.ravel())
                else:
                    for_several(rows, rows, count, ia, ja, a, x.ravel(), y.ravel())

            print(f"{name}_{count} {median_seconds(multiply):.9f}")
            print(f"{name}_{count}_checksum {checksum(y):.17g}")


main()
