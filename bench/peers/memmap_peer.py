"""memmap_peer.py FILE: seconds that numpy.memmap takes for the rectangles of the database benchmark.

The matrix is column-major and contiguous, in the page cache, and each rectangle is copied into a packed buffer.
"""
import os
import sys
import time

import numpy

ORDER = 8192


def rectangles():
    blocks = [(r, r + 1024, c, c + 1024) for c in range(0, ORDER, 1024) for r in range(0, ORDER, 1024)]
    row_blocks = [(r, r + 1024, 0, ORDER) for r in range(0, ORDER, 1024)]
    unaligned = [(r, r + 900, c, c + 1000)
                 for c in range(517, ORDER - 1000, 1024) for r in range(311, ORDER - 900, 1024)]
    at = [(k * 1237 + 100) % ORDER for k in range(512)]
    return {
        "blocks": blocks,
        "row_blocks": row_blocks,
        "unaligned": unaligned,
        "rows": [(k, k + 1, 0, ORDER) for k in at],
        "columns": [(0, ORDER, k, k + 1) for k in at],
    }


def main():
    path = sys.argv[1]
    try:
        a = numpy.memmap(path, dtype="f8", mode="w+", shape=(ORDER, ORDER), order="F")
        a[:] = 1.0
        for name, task in rectangles().items():
            times = []
            r1, r2, c1, c2 = task[0]
            buffer = numpy.zeros((r2 - r1, c2 - c1), order="F")
            for _ in range(5):
                start = time.perf_counter()
                for r1, r2, c1, c2 in task:
                    numpy.copyto(buffer, a[r1:r2, c1:c2])
                times.append(time.perf_counter() - start)
            print(name, sorted(times)[2])
    finally:
        os.remove(path)


main()
