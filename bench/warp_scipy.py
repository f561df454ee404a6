#!/usr/bin/python3
"""Affine warp against scipy.ndimage.affine_transform on the same input.

A 256^3 volume rotated by 20 degrees about z and scaled by 1.2 about the
centre (as in bench/warp_bench.cpp), into a 256 x 256 x 32 box in the middle.
Runs lumrWarpAffine_{8u,16u,32f}_C1PV (ctypes over build/liblumre9-6.1.so) and
affine_transform (order 1, and order 3 without prefilter) in the same process
and prints Mvoxel/s and the ratios.  Usage:
    bench/warp_scipy.py [build-dir] [repeats] [--type 8u ...] [--code 2 ...]
                        [--no-threads] [--json out.json]
"""
import argparse
import ctypes
import json
import os
import time

import numpy as np
from scipy import ndimage

AP = argparse.ArgumentParser(description=__doc__.split("\n")[0])
AP.add_argument("build", nargs="?", default=os.path.join(os.path.dirname(__file__), "..", "build"))
AP.add_argument("repeats", nargs="?", type=int, default=3)
AP.add_argument("--type", action="append", choices=["8u", "16u", "32f"],
                help="sample type(s) to run (default: all)")
AP.add_argument("--code", action="append", type=int, choices=[1, 2, 4, 5, 6, 7],
                help="interpolation code(s) to run (default: all)")
AP.add_argument("--no-threads", action="store_true", help="skip the wall-clock thread scaling")
AP.add_argument("--json", help="also write the rows to this file")
ARGS = AP.parse_args()
BUILD, REPEATS = ARGS.build, ARGS.repeats
N, DZ, Z0 = 256, 32, 112

core = ctypes.CDLL(os.path.join(BUILD, "liblumcore64-6.1.so"), mode=ctypes.RTLD_GLOBAL)
lib = ctypes.CDLL(os.path.join(BUILD, "liblumre9-6.1.so"))


class Volume(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32), ("depth", ctypes.c_int32)]


class Box(ctypes.Structure):
    _fields_ = [(n, ctypes.c_int32) for n in ("x", "y", "z", "width", "height", "depth")]


def planes(a):
    base, step = a.ctypes.data, a.strides[0]
    return (ctypes.c_void_p * a.shape[0])(*[base + k * step for k in range(a.shape[0])])


def forward():
    """Forward map in (x, y, z) order, 3 x 4: 1.2 R (p - c) + c."""
    a, s, m = np.deg2rad(20.0), 1.2, 127.5
    r = s * np.array([[np.cos(a), -np.sin(a), 0], [np.sin(a), np.cos(a), 0], [0, 0, 1]])
    return np.hstack([r, (m - r @ np.full(3, m))[:, None]])


def source(dtype):
    z, y, x = np.meshgrid(np.arange(N), np.arange(N), np.arange(N), indexing="ij", sparse=True)
    v = 120.0 + 100.0 * np.sin(x * 0.05) * np.cos(y * 0.07) + (z % 7)
    return np.ascontiguousarray(np.broadcast_to(v, (N, N, N)).astype(dtype))


def best(fn, clock=time.thread_time):
    """Best of REPEATS runs.  The comparison with scipy (single-threaded on
    both sides) uses the CPU time of this thread, so that other work on a
    shared machine does not count; the thread scaling uses the wall clock."""
    times = []
    for _ in range(REPEATS):
        t = clock()
        fn()
        times.append(clock() - t)
    return min(times)


def main():
    c = forward()
    inv = np.linalg.inv(c[:, :3])
    # scipy works in (z, y, x) and maps output indices to input positions;
    # output index (oz, oy, ox) is destination position (ox, oy, Z0 + oz).
    flip = inv[::-1, ::-1]
    t = -inv @ c[:, 3]
    offset = t[::-1] + flip @ np.array([Z0, 0.0, 0.0])
    coeffs = (ctypes.c_double * 12)(*c.ravel())
    voxels = N * N * DZ
    sv, box, dbox = Volume(N, N, N), Box(0, 0, 0, N, N, N), Box(0, 0, Z0, N, N, DZ)
    names = {1: "nearest", 2: "linear", 4: "lagrange", 5: "bspline", 6: "catmullrom", 7: "cubicbc"}
    print(f"20 degrees about z, scale 1.2, {N}x{N}x{DZ} box of a {N}^3 volume, best of {REPEATS}, Mvoxel/s")
    rows = []
    for dtype, suffix in ((np.uint8, "8u"), (np.uint16, "16u"), (np.float32, "32f")):
        if ARGS.type and suffix not in ARGS.type:
            continue
        src = source(dtype)
        dst = np.zeros((N, N, N), dtype)
        ps, pd = planes(src), planes(dst)
        fn = getattr(lib, f"lumrWarpAffine_{suffix}_C1PV")
        size = src.itemsize
        peer = {}
        out = np.zeros((DZ, N, N), dtype)
        codes = ARGS.code or (1, 2, 4, 5, 6, 7)
        for order in sorted({1 if code <= 2 else 3 for code in codes}):
            peer[order] = voxels / best(lambda: ndimage.affine_transform(
                src, flip, offset=offset, output=out, order=order, prefilter=False)) / 1e6
        print(f"{suffix}: scipy " + ", ".join(f"order {o} {r:.1f}" for o, r in sorted(peer.items())))
        for code in codes:
            rate = {}
            call = lambda: fn(ps, ctypes.byref(sv), N * size, ctypes.byref(box), pd, N * size,
                              ctypes.byref(dbox), coeffs, code)
            for threads in () if ARGS.no_threads else (1, 2):
                core.lumSetNumThreads(threads)
                rate[threads] = voxels / best(call, time.perf_counter) / 1e6
            core.lumSetNumThreads(1)
            cpu = voxels / best(call) / 1e6
            order = 1 if code <= 2 else 3
            base = peer[order]
            scaling = "" if ARGS.no_threads else (
                f"; wall 1 thread {rate[1]:7.1f}, 2 threads {rate[2]:7.1f} ({rate[2] / rate[1]:.2f}x)")
            print(f"{suffix} {names[code]:>10}: 1 thread {cpu:7.1f} cpu ({cpu / base:5.2f}x scipy order "
                  f"{order}){scaling}")
            rows.append({"case": f"{suffix} {names[code]}", "unit": "Mvoxel/s", "lumr": cpu,
                         "peer": base, "clock": "cpu", "threads": 1,
                         "peer_name": "scipy.ndimage.affine_transform order %d%s"
                                      % (order, ", no prefilter" if order == 3 else "")})
        # Same samples from both where both write (inside the source).
        if dtype == np.float32 and 2 in codes:
            core.lumSetNumThreads(1)
            fn(ps, ctypes.byref(sv), N * size, ctypes.byref(box), pd, N * size, ctypes.byref(dbox),
               coeffs, 2)
            ndimage.affine_transform(src, flip, offset=offset, output=out, order=1, prefilter=False,
                                     cval=np.nan)
            mine = dst[Z0:Z0 + DZ]
            both = ~np.isnan(out)
            print(f"32f linear, largest difference from scipy where it samples inside: "
                  f"{np.max(np.abs(mine[both] - out[both])):.3g}")

    if ARGS.json:
        with open(ARGS.json, "w") as out:
            json.dump(rows, out, indent=1)


if __name__ == "__main__":
    main()
