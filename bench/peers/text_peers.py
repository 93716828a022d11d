"""text_peers.py mmread|mmwrite|loadtxt FOLDER: one run of SciPy or NumPy on the text of the benchmark.

FOLDER holds text.txt (one "row column value" item a line, one-based), text.mtx (the same behind a Matrix Market
header) and the arrays rows.bin, columns.bin (32-bit, zero-based) and values.bin (64-bit). Prints the seconds of
the call alone and whether its result agrees with the arrays.
"""
import os
import sys
import time

import numpy
import scipy
import scipy.io
import scipy.sparse


def arrays(folder):
    names = (("rows.bin", "i4"), ("columns.bin", "i4"), ("values.bin", "f8"))
    return [numpy.fromfile(os.path.join(folder, name), dtype=kind) for name, kind in names]


def same(found, wanted):
    return all(numpy.array_equal(f, w) for f, w in zip(found, wanted))


def mmread(folder):
    start = time.perf_counter()
    a = scipy.io.mmread(os.path.join(folder, "text.mtx"))
    return time.perf_counter() - start, same((a.row, a.col, a.data), arrays(folder))


def mmwrite(folder):
    rows, columns, values = arrays(folder)
    a = scipy.sparse.coo_matrix((values, (rows, columns)))
    path = os.path.join(folder, "scipy.mtx")
    start = time.perf_counter()
    # Telling the symmetry spares it the search for one; 16 digits as in the other files.
    scipy.io.mmwrite(path, a, symmetry="general", precision=16)
    seconds = time.perf_counter() - start
    with open(path, encoding="ascii") as file:
        while file.readline().startswith("%"):
            pass  # the last line read is the one with the sizes
        items = numpy.fromfile(file, sep=" ").reshape(-1, 3)
    os.remove(path)
    return seconds, same((items[:, 0] - 1, items[:, 1] - 1, items[:, 2]), (rows, columns, values))


def loadtxt(folder):
    kinds = numpy.dtype([("row", "i4"), ("column", "i4"), ("value", "f8")])
    start = time.perf_counter()
    items = numpy.loadtxt(os.path.join(folder, "text.txt"), dtype=kinds)
    seconds = time.perf_counter() - start
    return seconds, same((items["row"] - 1, items["column"] - 1, items["value"]), arrays(folder))


def main():
    if sys.argv[1] == "version":
        print("scipy", scipy.__version__)
        print("numpy", numpy.__version__)
        return
    seconds, agrees = {"mmread": mmread, "mmwrite": mmwrite, "loadtxt": loadtxt}[sys.argv[1]](sys.argv[2])
    print("seconds", seconds)
    print("agrees", int(agrees))


main()
