"""kernel_peers.py FOLDER COUNT...: times SciPy's products of a sparse matrix with COUNT vectors each.

FOLDER holds the compressed rows in ia.bin, ja.bin (32-bit) and a.bin (64-bit); the matrix is square. Vectors are
stored row by row, the only form that SciPy multiplies without a copy. Prints "product_COUNT SECONDS",
"transposed_COUNT SECONDS" and, under these names with _checksum, a number that products that agree share.
"""
import os
import sys
import time

import numpy
import scipy.sparse


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
    ia, ja, a = (numpy.fromfile(os.path.join(folder, name + ".bin"), dtype=kind)
                 for name, kind in (("ia", "i4"), ("ja", "i4"), ("a", "f8")))
    rows = len(ia) - 1
    matrix = scipy.sparse.csr_matrix((a, ja, ia), shape=(rows, rows))
    for count in map(int, sys.argv[2:]):
        x = vectors(rows, count)
        factor = x[:, 0].copy() if count == 1 else x
        for name, operand in (("product", matrix), ("transposed", matrix.T)):
            seconds = median_seconds(lambda: operand @ factor)
            print(f"{name}_{count} {seconds:.9f}")
            print(f"{name}_{count}_checksum {checksum((operand @ factor).reshape(rows, count)):.17g}")


main()
