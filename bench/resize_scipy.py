#!/usr/bin/python3
"""Resize throughput of lumr against scipy.ndimage.zoom, in one run.

Loads build/liblumre9-6.1.so through ctypes and times lumrResize_32f_C1V on
a 256^3 float source for the factors 2.0, 0.5 and (1.3, 0.7, 1.0), next to
scipy.ndimage.zoom on the same input, and prints output Mvoxel/s and the
ratio.  Pairs (lumr code -> scipy order): nearest -> 0, linear -> 1,
B-spline -> 3 without prefilter (the same smoothing kernel), Catmull-Rom -> 3
with scipy's spline prefilter (an interpolating cubic each).  With one
thread both sides are timed by the process's CPU time (a shared machine's
other work does not count); with more, by the wall clock.

  python3 bench/resize_scipy.py [build-dir] [--threads N] [--quick]
      [--factor 0.5 ...] [--code 2 ...] [--json out.json]
"""
import argparse
import ctypes
import json
import os
import time

import numpy as np
from scipy import ndimage

N = 256
FACTORS = {"2.0": (2.0, 2.0, 2.0), "0.5": (0.5, 0.5, 0.5), "1.3,0.7,1.0": (1.3, 0.7, 1.0)}
# lumr code -> (scipy order, scipy prefilter)
PAIRS = {1: (0, True), 2: (1, True), 5: (3, False), 6: (3, True)}
NAMES = {1: "nearest", 2: "linear", 5: "bspline", 6: "catmullrom"}


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


def best(fn, reps, clock):
    t = float("inf")
    for _ in range(reps):
        t0 = clock()
        fn()
        t = min(t, clock() - t0)
    return t


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("build", nargs="?", default="build")
    ap.add_argument("--threads", type=int, default=1)
    ap.add_argument("--quick", action="store_true", help="one scipy run per case")
    ap.add_argument("--factor", action="append", choices=sorted(FACTORS),
                    help="factor(s) to run (default: all)")
    ap.add_argument("--code", action="append", type=int, choices=sorted(PAIRS),
                    help="lumr interpolation code(s) to run (default: all)")
    ap.add_argument("--json", help="also write the rows to this file")
    args = ap.parse_args()
    threads = args.threads
    clock = time.process_time if threads == 1 else time.perf_counter
    lib = load(args.build)
    lib.lumSetNumThreads(threads)
    rng = np.random.default_rng(1)
    src = rng.integers(0, 251, size=(N, N, N)).astype(np.float32)
    vol = Volume(N, N, N)
    sbox = Box(0, 0, 0, N, N, N)
    rows = []
    print(f"lumr threads {threads}; scipy single-threaded; Mvoxel/s of output "
          f"({'CPU' if threads == 1 else 'wall'} time)")
    print(f"{'factor':>16} {'code':>10} {'order':>8} {'lumr 32f':>9} {'scipy':>9} {'ratio':>7}")
    for fname in args.factor or list(FACTORS):
        f = FACTORS[fname]
        shape = tuple(int(N * x + 0.5) for x in f)
        dbox = Box(0, 0, 0, shape[2], shape[1], shape[0])
        dst = np.empty(shape, np.float32)
        voxels = dst.size
        for code in args.code or list(PAIRS):
            order, prefilter = PAIRS[code]
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
                ndimage.zoom(src, (f[2], f[1], f[0]), order=order, prefilter=prefilter,
                             mode="nearest", grid_mode=True)

            tl = best(run_lumr, 3, clock)
            ts = best(run_scipy, 1 if (args.quick or order == 3) else 2, clock)
            ml, ms = voxels / tl / 1e6, voxels / ts / 1e6
            peer = f"order {order}" + ("" if prefilter or order < 2 else ", no prefilter")
            print(f"{fname:>16} {NAMES[code]:>10} {peer:>8} {ml:9.1f} {ms:9.1f} {ml / ms:7.1f}x",
                  flush=True)
            rows.append({"case": f"32f {N}^3 x{fname} {NAMES[code]}", "unit": "Mvoxel/s",
                         "lumr": ml, "peer": ms, "peer_name": f"scipy.ndimage.zoom {peer}",
                         "clock": "cpu" if threads == 1 else "wall", "threads": threads})
    if args.json:
        with open(args.json, "w") as out:
            json.dump(rows, out, indent=1)


if __name__ == "__main__":
    main()
