#!/usr/bin/python3
"""Remap against scipy.ndimage.map_coordinates on the same volume and field.

Runs lumrRemap_{8u,16u,32f}_C1PV (ctypes over build/liblumre9-6.1.so) and
map_coordinates (order 1, and order 3 without prefilter) in the same process,
interleaved, and prints Mvoxel/s and the ratios.  Usage:
    bench/remap_scipy.py [build-dir] [repeats] [--type 8u ...] [--code 2 ...]
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
N, DX, DY, DZ = 256, 256, 256, 32

core = ctypes.CDLL(os.path.join(BUILD, "liblumcore64-6.1.so"), mode=ctypes.RTLD_GLOBAL)
lib = ctypes.CDLL(os.path.join(BUILD, "liblumre9-6.1.so"))


class Volume(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32), ("depth", ctypes.c_int32)]


class Box(ctypes.Structure):
    _fields_ = [(n, ctypes.c_int32) for n in ("x", "y", "z", "width", "height", "depth")]


def planes(a):
    """Plane-pointer array of a C-contiguous (z, y, x) array."""
    step = a.strides[0]
    base = a.ctypes.data
    return (ctypes.c_void_p * a.shape[0])(*[base + k * step for k in range(a.shape[0])])


def field():
    """The smooth field of bench/remap_bench.cpp, as float32 (z, y, x) arrays."""
    z, y, x = np.meshgrid(np.arange(DZ), np.arange(DY), np.arange(DX), indexing="ij")
    tau = 2 * np.pi
    fx = 1.0 + 0.98 * x + 2.0 * np.sin(tau * y / 256.0)
    fy = 1.0 + 0.98 * y + 2.0 * np.sin(tau * z / 64.0 + x / 80.0)
    fz = 100.0 + 1.5 * z + 3.0 * np.sin(tau * x / 256.0)
    return [np.ascontiguousarray(f, dtype=np.float32) for f in (fx, fy, fz)]


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
    fx, fy, fz = field()
    coords = np.stack([fz, fy, fx])  # scipy takes (z, y, x) coordinates
    px, py, pz = planes(fx), planes(fy), planes(fz)
    voxels = DX * DY * DZ
    sv, dv, box = Volume(N, N, N), Volume(DX, DY, DZ), Box(0, 0, 0, N, N, N)
    names = {1: "nearest", 2: "linear", 4: "lagrange", 5: "bspline", 6: "catmullrom", 7: "cubicbc"}
    print(f"destination {DX}x{DY}x{DZ} from a {N}^3 source, best of {REPEATS}, Mvoxel/s")
    rows = []
    for dtype, suffix in ((np.uint8, "8u"), (np.uint16, "16u"), (np.float32, "32f")):
        if ARGS.type and suffix not in ARGS.type:
            continue
        src = source(dtype)
        dst = np.zeros((DZ, DY, DX), dtype)
        ps, pd = planes(src), planes(dst)
        fn = getattr(lib, f"lumrRemap_{suffix}_C1PV")
        size = src.itemsize
        peer = {}
        codes = ARGS.code or (1, 2, 4, 5, 6, 7)
        for order in sorted({1 if code <= 2 else 3 for code in codes}):
            out = np.zeros((DZ, DY, DX), dtype)
            peer[order] = voxels / best(lambda: ndimage.map_coordinates(
                src, coords, output=out, order=order, prefilter=False, mode="nearest")) / 1e6
        print(f"{suffix}: scipy " + ", ".join(f"order {o} {r:.1f}" for o, r in sorted(peer.items())))
        for code in codes:
            rate = {}
            call = lambda: fn(ps, ctypes.byref(sv), N * size, ctypes.byref(box), px, py, pz,
                              DX * 4, pd, DX * size, ctypes.byref(dv), code)
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
                         "peer_name": "scipy.ndimage.map_coordinates order %d%s"
                                      % (order, ", no prefilter" if order == 3 else "")})
    if ARGS.json:
        with open(ARGS.json, "w") as out:
            json.dump(rows, out, indent=1)


if __name__ == "__main__":
    main()
