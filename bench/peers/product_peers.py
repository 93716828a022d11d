"""product_peers.py memmap|dask FILE ORDER BLOCK: C = A*B with all three matrices in files, one thread.

Prints the seconds of the product and one value of C, which is exact: A and B hold small integers. The files are in
the page cache, as they have just been written.
"""
import os
import sys
import time

import numpy


def values(order, seed):
    i = numpy.arange(order)[:, None]
    j = numpy.arange(order)[None, :]
    return ((i * 37 + j * 101 + seed) % 97 - 48).astype("f8")


def with_memmap(path, order, _block):
    def create(name):
        return numpy.memmap(path + name, dtype="f8", mode="w+", shape=(order, order), order="F")

    a, b, c = create("a"), create("b"), create("c")
    a[:] = values(order, 1)
    b[:] = values(order, 2)
    c[:] = 0.0
    start = time.perf_counter()
    numpy.matmul(a, b, out=c)
    return time.perf_counter() - start, c[1234, 3210]


def with_dask(path, order, block):
    import dask
    import dask.array
    import h5py

    with h5py.File(path + "a", "w") as file:
        def create(name, data):
            return file.create_dataset(name, (order, order), "f8", data=data, chunks=(block, block))

        a, b, c = create("a", values(order, 1)), create("b", values(order, 2)), create("c", None)
        start = time.perf_counter()
        with dask.config.set(scheduler="synchronous"):
            product = dask.array.from_array(a, chunks=(block, block)) @ dask.array.from_array(b, chunks=(block, block))
            dask.array.store(product, c)
        return time.perf_counter() - start, c[1234, 3210]


def main():
    mode, path, order, block = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    try:
        seconds, value = {"memmap": with_memmap, "dask": with_dask}[mode](path, order, block)
        print("seconds", seconds)
        print("value", float(value))
    finally:
        for name in ("a", "b", "c"):
            if os.path.exists(path + name):
                os.remove(path + name)


main()
