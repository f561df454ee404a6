#!/usr/bin/env python3
"""Volume filter against scipy.ndimage.convolve on the same int16 data.

Runs lumrFilter_16s_C1PV through ctypes over the built shared object and
scipy.ndimage.convolve on one 256^3 int16 volume, for 3x3x3, 5x5x5 and
3x5x7 kernels, in the same run, one thread each, and prints Mvoxel/s and the
ratio.  Each kernel runs on the vector path (small elements) and on the
scalar path (elements whose sum passes 98301), and the vector result is
checked against scipy's on the samples where scipy's border handling plays
no part.

    python3 bench/filter_scipy.py [build/liblumre9-6.1.so] [--n 256] [--repeat 3]
        [--kernel 3x3x3 ...] [--json out.json]

Needs python3-numpy and python3-scipy (Debian packages).
"""
import argparse
import ctypes as C
import json
import os
import time

import numpy as np
import scipy.ndimage as ndi


class LumVolume(C.Structure):
    _fields_ = [("width", C.c_int32), ("height", C.c_int32), ("depth", C.c_int32)]


class LumPoint3D(C.Structure):
    _fields_ = [("x", C.c_int32), ("y", C.c_int32), ("z", C.c_int32)]


def load(path):
    lib = C.CDLL(os.path.abspath(path))
    lib.lumrFilterGetBufSize.argtypes = [C.POINTER(LumVolume), C.POINTER(LumVolume), C.c_int32,
                                         C.POINTER(C.c_int32)]
    lib.lumrFilterGetBufSize.restype = C.c_int32
    lib.lumrFilter_16s_C1PV.argtypes = [C.c_void_p, C.c_int32, C.c_void_p, C.c_int32,
                                        C.POINTER(LumVolume), C.c_void_p, C.POINTER(LumVolume),
                                        C.POINTER(LumPoint3D), C.c_int32, C.c_void_p]
    lib.lumrFilter_16s_C1PV.restype = C.c_int32
    return lib


def best_of(repeat, fn):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.process_time()
        fn()
        best = min(best, time.process_time() - t0)
    return best


def run(lib, n, pad, vol_padded, kernel, repeat):
    """lumr on the interior n^3 of vol_padded (pad samples of room per side)."""
    kd, kh, kw = kernel.shape
    side = n + 2 * pad
    dst = np.zeros((n, n, n), dtype=np.int16)
    # Plane pointers: index -pad .. n + pad - 1 must work, so hand over the
    # address of entry `pad`.
    src_planes = (C.c_void_p * side)(*[vol_padded.ctypes.data + (z * side * side + pad * side + pad) * 2
                                       for z in range(side)])
    dst_planes = (C.c_void_p * n)(*[dst.ctypes.data + z * n * n * 2 for z in range(n)])
    src_arg = C.addressof(src_planes) + pad * C.sizeof(C.c_void_p)
    dv, kv = LumVolume(n, n, n), LumVolume(kw, kh, kd)
    anchor = LumPoint3D(kw // 2, kh // 2, kd // 2)
    size = C.c_int32()
    assert lib.lumrFilterGetBufSize(C.byref(dv), C.byref(kv), 1, C.byref(size)) == 0
    buf = np.zeros(size.value, dtype=np.uint8)
    k32 = np.ascontiguousarray(kernel, dtype=np.int32)

    def call():
        st = lib.lumrFilter_16s_C1PV(src_arg, side * 2, C.addressof(dst_planes), n * 2, C.byref(dv),
                                     k32.ctypes.data, C.byref(kv), C.byref(anchor), 1, buf.ctypes.data)
        assert st == 0, st

    return best_of(repeat, call), dst


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("lib", nargs="?", default="build/liblumre9-6.1.so")
    ap.add_argument("--n", type=int, default=256)
    ap.add_argument("--repeat", type=int, default=3)
    ap.add_argument("--kernel", action="append", choices=["3x3x3", "5x5x5", "3x5x7"],
                    help="kernel shape(s) w x h x d to run (default: all)")
    ap.add_argument("--json", help="also write the rows to this file")
    args = ap.parse_args()
    lib = load(args.lib)
    n, pad = args.n, 4
    rng = np.random.default_rng(11)
    # Samples small enough that no sum saturates, so both libraries agree.
    vol = rng.integers(-80, 81, size=(n + 2 * pad,) * 3, dtype=np.int16)
    inner = np.ascontiguousarray(vol[pad:-pad, pad:-pad, pad:-pad])
    mvox = n ** 3 / 1e6
    print(f"{n}^3 int16, one thread, best of {args.repeat} (CPU time)")
    print(f"{'kernel':8} {'path':7} {'lumr Mvox/s':>12} {'scipy Mvox/s':>13} {'ratio':>7} {'vs scalar':>9}")
    rows = []
    for shape in [(3, 3, 3), (5, 5, 5), (7, 5, 3)]:  # (kd, kh, kw): 3x5x7 is kw 3, kh 5, kd 7
        name = f"{shape[2]}x{shape[1]}x{shape[0]}"
        if args.kernel and name not in args.kernel:
            continue
        small = rng.integers(-3, 4, size=shape).astype(np.int32)
        small.flat[0] = 3  # keep the plain sum well under the limit either way
        count = small.size
        scalar = np.full(shape, 98301 // count + 1, dtype=np.int32)
        t_scipy = best_of(args.repeat, lambda: ndi.convolve(inner, small, mode="reflect"))
        t_vec, out_vec = run(lib, n, pad, vol, small, args.repeat)
        t_sca, _ = run(lib, n, pad, vol, scalar, 1)
        # Compare where every tap lies inside the inner volume.
        ref = ndi.convolve(inner, small, mode="reflect")
        h = [s // 2 for s in shape]
        sl = tuple(slice(hh, n - hh) for hh in h)
        assert np.array_equal(out_vec[sl], ref[sl]), "lumr and scipy disagree"
        print(f"{name:8} {'vector':7} {mvox / t_vec:12.1f} {mvox / t_scipy:13.2f} {t_scipy / t_vec:7.1f} "
              f"{t_sca / t_vec:9.1f}")
        print(f"{name:8} {'scalar':7} {mvox / t_sca:12.1f} {'':13} {t_scipy / t_sca:7.1f}")
        rows.append({"case": f"16s {n}^3 {name}", "unit": "Mvoxel/s", "lumr": mvox / t_vec,
                     "peer": mvox / t_scipy, "scalar": mvox / t_sca, "clock": "cpu", "threads": 1,
                     "peer_name": "scipy.ndimage.convolve"})
    if args.json:
        with open(args.json, "w") as out:
            json.dump(rows, out, indent=1)


if __name__ == "__main__":
    main()
