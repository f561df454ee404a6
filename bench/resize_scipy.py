#!/usr/bin/env python3
"""Resize throughput of lumr against scipy.ndimage.zoom, in one run.

Loads build/liblumre9-6.1.so through ctypes and times lumrResize_<type>_C1V on
a 256^3 source for the factors 2.0, 0.5 and (1.3, 0.7, 1.0), next to
scipy.ndimage.zoom with order 0, 1 and 3 (order 3 includes scipy's spline
prefilter) on the same input, and prints output Mvoxel/s and the ratio.

  python3 bench/resize_scipy.py [build-dir] [--threads N] [--quick]
"""
import ctypes
import os
import sys
import time

import numpy as np
from scipy import ndimage

N = 256
FACTORS = [(2.0, 2.0, 2.0), (0.5, 0.5, 0.5), (1.3, 0.7, 1.0)]
# lumr code -> scipy order
PAIRS = [(1, 0), (2, 1), (6, 3)]


class Volume(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32), ("depth", ctypes.c_int32)]


class Box(ctypes.Structure):
    _fields_ = [(n, ctypes.c_int32) for n in ("x", "y", "z", "width", "height", "depth")]


def load(build):
    lib = ctypes.CDLL(os.path.join(build, "liblumre9-6.1.so"))
    d = ctypes.c_double
    i32 = ctypes.c_int32
    p = ctypes.c_void_p
    for name in ("lumrResize_8u_C1V", "lumrResize_16u_C1V", "lumrResize_32f_C1V"):
        f = getattr(lib, name)
        f.argtypes = [p, ctypes.POINTER(Volume), i32, i32, ctypes.POINTER(Box), p, i32, i32,
                      ctypes.POINTER(Box), d, d, d, d, d, d, i32, p]
        f.restype = i32
    lib.lumrResizeGetBufSize.argtypes = [ctypes.POINTER(Box), ctypes.POINTER(Box), i32, i32,
                                         ctypes.POINTER(i32)]
    lib.lumSetNumThreads.argtypes = [i32]
    return lib


def best(fn, reps):
    t = float("inf")
    for _ in range(reps):
        t0 = time.perf_counter()
        fn()
        t = min(t, time.perf_counter() - t0)
    return t


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    build = args[0] if args else "build"
    threads = 1
    if "--threads" in sys.argv:
        threads = int(sys.argv[sys.argv.index("--threads") + 1])
        args = [a for a in args if a != str(threads)]
    quick = "--quick" in sys.argv
    lib = load(build)
    lib.lumSetNumThreads(threads)
    rng = np.random.default_rng(1)
    src = rng.integers(0, 251, size=(N, N, N)).astype(np.float32)
    vol = Volume(N, N, N)
    sbox = Box(0, 0, 0, N, N, N)
    print(f"lumr threads {threads}; scipy {ndimage.__name__} single-threaded; Mvoxel/s of output")
    print(f"{'factor':>16} {'code':>4} {'order':>5} {'lumr 32f':>9} {'scipy':>9} {'ratio':>7}")
    for f in FACTORS:
        shape = tuple(int(N * x + 0.5) for x in f)
        dbox = Box(0, 0, 0, shape[2], shape[1], shape[0])
        dst = np.empty(shape, np.float32)
        voxels = dst.size
        for code, order in PAIRS:
            size = ctypes.c_int32()
            lib.lumrResizeGetBufSize(ctypes.byref(sbox), ctypes.byref(dbox), 1, code, ctypes.byref(size))
            buf = np.empty(size.value + 64, np.uint8)

            def run_lumr():
                st = lib.lumrResize_32f_C1V(src.ctypes.data, ctypes.byref(vol), 4 * N, 4 * N * N,
                                            ctypes.byref(sbox), dst.ctypes.data, 4 * shape[2],
                                            4 * shape[2] * shape[1], ctypes.byref(dbox), f[0],
                                            f[1], f[2], 0.0, 0.0, 0.0, code, buf.ctypes.data)
                assert st == 0, st

            def run_scipy():
                ndimage.zoom(src, (f[2], f[1], f[0]), order=order, mode="nearest", grid_mode=True)

            tl = best(run_lumr, 3)
            ts = best(run_scipy, 1 if (quick or order == 3) else 2)
            ml, ms = voxels / tl / 1e6, voxels / ts / 1e6
            print(f"{str(f):>16} {code:>4} {order:>5} {ml:9.1f} {ms:9.1f} {ml / ms:7.1f}x", flush=True)


if __name__ == "__main__":
    main()
