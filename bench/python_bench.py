#!/usr/bin/env python3
"""The Python binding's cost per call, and its throughput beside scipy.ndimage.

Part 1, overhead: each lumr function on a tiny problem, against the bare
ctypes call of the same entry point with every argument prepared in
advance (the baseline, measured in the same run).  The difference is what
the package adds per call: argument checks, array views, records, buffer.

Part 2, throughput on 256^3 volumes: lumr and scipy.ndimage on the same
data in the same run, lumr with one thread and with all threads, as
Mvoxel/s of output and the ratio lumr / scipy.

    LUMR_LIBRARY_DIR=build /usr/bin/python3 bench/python_bench.py [--n 256] [--repeat 3]
        [--part overhead|throughput] [--min-time 0.2] [--json out.json]

Times: per call by the wall clock (short calls, best of five batches);
throughput of scipy and of lumr on one thread by the process's CPU time (a
shared machine's other work does not count), lumr on all threads by the wall
clock.

Needs python3-numpy and python3-scipy (Debian).  Families missing from the
loaded library are left out of the tables.
"""
import argparse
import ctypes as C
import json
import os
import sys
import time

import numpy as np
import scipy.ndimage as ndi

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "python"))
import lumr  # noqa: E402
from lumr import _lib as L  # noqa: E402


def per_call(fn, min_time=0.2):
    """Seconds per call: the best of five batches."""
    n = 1
    while True:
        t0 = time.perf_counter()
        for _ in range(n):
            fn()
        dt = time.perf_counter() - t0
        if dt > min_time / 5:
            break
        n *= 2
    best = dt / n
    for _ in range(4):
        t0 = time.perf_counter()
        for _ in range(n):
            fn()
        best = min(best, (time.perf_counter() - t0) / n)
    return best


def best_of(repeat, fn, clock=time.perf_counter):
    best = float("inf")
    for _ in range(repeat):
        t0 = clock()
        fn()
        best = min(best, clock() - t0)
    return best


# ---- Part 1 ----------------------------------------------------------------------
# The bare calls hold raw addresses; each lambda keeps the arrays behind them
# alive through a default argument.
def _plane_table(a):
    return (C.c_void_p * a.shape[0])(*(a[z].ctypes.data for z in range(a.shape[0])))


def row_filter(rng, lib):
    v = rng.integers(-100, 100, (8, 8, 24)).astype(np.int16)
    k = np.ones((3, 3, 3), np.int32)
    out = np.empty((6, 6, 22), np.int16)
    dv, kv, an = L.LumVolume(22, 6, 6), L.LumVolume(3, 3, 3), L.LumPoint3D(2, 2, 2)
    sp, dp = _plane_table(v), _plane_table(out)
    size = C.c_int32()
    lib.lumrFilterGetBufSize(C.byref(dv), C.byref(kv), 1, C.byref(size))
    buf = np.empty(size.value, np.uint8)
    args = (sp, v.strides[1], dp, out.strides[1], C.byref(dv), k.ctypes.data, C.byref(kv),
            C.byref(an), 1, buf.ctypes.data)
    return ("filter 8x8x24, 3^3, valid", lambda: lumr.filter(v, k, mode="valid", out=out),
            lambda keep=(buf, sp, dp): lib.lumrFilter_16s_C1PV(*args))


def row_resize(rng, lib):
    v = rng.uniform(0, 1, (8, 8, 8)).astype(np.float32)
    out = np.empty((12, 12, 12), np.float32)
    sv, sb, db = L.LumVolume(8, 8, 8), L.LumBox(0, 0, 0, 8, 8, 8), L.LumBox(0, 0, 0, 12, 12, 12)
    size = C.c_int32()
    lib.lumrResizeGetBufSize(C.byref(sb), C.byref(db), 1, 2, C.byref(size))
    buf = np.empty(size.value, np.uint8)
    args = (v.ctypes.data, C.byref(sv), 32, 256, C.byref(sb), out.ctypes.data, 48, 576,
            C.byref(db), 1.5, 1.5, 1.5, 0.0, 0.0, 0.0, 2, buf.ctypes.data)
    return ("resize 8^3 -> 12^3 linear", lambda: lumr.resize(v, 1.5, out=out),
            lambda keep=buf: lib.lumrResize_32f_C1V(*args))


def row_remap(rng, lib):
    v = rng.uniform(0, 1, (8, 8, 8)).astype(np.float32)
    c = rng.uniform(0, 7, (3, 8, 8, 8)).astype(np.float32)
    out = np.empty((8, 8, 8), np.float32)
    sv, sb, dv = L.LumVolume(8, 8, 8), L.LumBox(0, 0, 0, 8, 8, 8), L.LumVolume(8, 8, 8)
    sp, dp, xp, yp, zp = (_plane_table(a) for a in (v, out, c[2], c[1], c[0]))
    args = (sp, C.byref(sv), 32, C.byref(sb), xp, yp, zp, 32, dp, 32, C.byref(dv), 2)
    return ("remap 8^3 linear", lambda: lumr.remap(v, c, out=out),
            lambda keep=(sp, dp, xp, yp, zp): lib.lumrRemap_32f_C1PV(*args))


def row_warp(rng, lib):
    v = rng.uniform(0, 1, (8, 8, 8)).astype(np.float32)
    out = np.empty((8, 8, 8), np.float32)
    m = np.eye(4)
    m[:3, 3] = 0.25
    from lumr import volume as V
    coeffs = V._library_matrix(m)
    sv, sb, db = L.LumVolume(8, 8, 8), L.LumBox(0, 0, 0, 8, 8, 8), L.LumBox(0, 0, 0, 8, 8, 8)
    sp, dp = _plane_table(v), _plane_table(out)
    args = (sp, C.byref(sv), 32, C.byref(sb), dp, 32, C.byref(db), coeffs.ctypes.data, 2)
    return ("warp_affine 8^3 linear", lambda: lumr.warp_affine(v, m, out=out),
            lambda keep=(coeffs, sp, dp): lib.lumrWarpAffine_32f_C1PV(*args))


def row_sh(rng, lib):
    d = rng.normal(size=(16, 3)).astype(np.float32)
    d /= np.linalg.norm(d, axis=1, keepdims=True)
    xyz = tuple(np.ascontiguousarray(d[:, i]) for i in range(3))
    from lumr import sh as S
    state = S._state(3, 0)
    out = np.empty((16, 16), np.float32)
    args = (xyz[0].ctypes.data, xyz[1].ctypes.data, xyz[2].ctypes.data, 16, out.ctypes.data,
            3, state.ctypes.data)
    return ("sh_basis 16 dirs, band 3", lambda: lumr.sh_basis(xyz, 3),
            lambda keep=out: lib.lumrSH_32f(*args))


def row_scene(rng, lib):
    verts = rng.uniform(0, 1, (30, 3)).astype(np.float32)
    scene = lumr.Scene(verts, np.arange(30).reshape(10, 3), build="list")
    dirs = np.zeros((4, 4, 3), np.float32)
    dirs[..., 2] = 1
    planes = tuple(np.ascontiguousarray(dirs[..., i]) for i in range(3))
    org = np.zeros(3, np.float32)
    t = np.full((4, 4), 1e30, np.float32)
    u, w, tri = np.zeros_like(t), np.zeros_like(t), np.empty((4, 4), np.int32)
    hit = (C.c_void_p * 2)(u.ctypes.data, w.ctypes.data)
    dp3 = L.LumPlanes3(*(p.ctypes.data for p in planes))
    roi = L.LumRect2D(4, 4)
    sc = C.byref(scene._scene)
    return ("Scene.intersect 16 rays", lambda: scene.intersect(org, planes),
            lambda keep=(u, w, tri, scene): lib.lumrIntersectEyeSO_32f(org.ctypes.data, C.byref(dp3), t.ctypes.data,
                                               hit, tri.ctypes.data, sc, roi))


def overhead_rows(rng):
    rows = []
    for family, build in (("filter", row_filter), ("resize", row_resize), ("remap", row_remap),
                          ("warp_affine", row_warp), ("sh", row_sh), ("scene", row_scene)):
        if lumr.available(family):
            rows.append(build(rng, L.LIB))
    return rows


# ---- Part 2 ----------------------------------------------------------------------
def throughput_rows(rng, n):
    rows = []
    vol = rng.uniform(0, 255, (n, n, n)).astype(np.float32)
    if lumr.available("resize"):
        for code, kw in (("linear", dict(order=1)), ("bspline", dict(order=3, prefilter=False))):
            rows.append(("resize %d^3 x0.75 %s" % (n, code), int(round(n * 0.75)) ** 3,
                         lambda code=code: lumr.resize(vol, 0.75, interpolation=code),
                         lambda kw=kw: ndi.zoom(vol, 0.75, mode="nearest", grid_mode=True,
                                                **kw)))
        v8 = vol.astype(np.uint8)
        rows.append(("resize %d^3 x0.75 linear u8" % n, int(round(n * 0.75)) ** 3,
                     lambda: lumr.resize(v8, 0.75),
                     lambda: ndi.zoom(v8, 0.75, order=1, mode="nearest", grid_mode=True)))
    if lumr.available("remap"):
        m = n // 2
        c = (rng.uniform(0, n - 1, (3, m, m, m))).astype(np.float32)
        rows.append(("remap %d^3 from %d^3 linear" % (m, n), m ** 3,
                     lambda: lumr.remap(vol, c),
                     lambda: ndi.map_coordinates(vol, c, order=1)))
    if lumr.available("warp_affine"):
        a = np.deg2rad(10)
        rot = np.array([[1, 0, 0, 0], [0, np.cos(a), -np.sin(a), 0], [0, np.sin(a), np.cos(a), 0],
                        [0, 0, 0, 1]])
        ctr = np.eye(4)
        ctr[:3, 3] = (n - 1) / 2
        fwd = ctr @ rot @ np.linalg.inv(ctr)
        inv = np.linalg.inv(fwd)
        rows.append(("warp_affine %d^3 rotation linear" % n, n ** 3,
                     lambda: lumr.warp_affine(vol, fwd),
                     lambda: ndi.affine_transform(vol, inv, order=1)))
    if lumr.available("filter"):
        v16 = rng.integers(-1000, 1000, (n, n, n)).astype(np.int16)
        for ks in ((3, 3, 3), (5, 5, 5)):
            k = np.ones(ks, np.int32)
            rows.append(("filter %d^3 %dx%dx%d valid" % ((n,) + ks), (n - ks[0] + 1) ** 3,
                         lambda k=k: lumr.filter(v16, k, mode="valid"),
                         lambda k=k: ndi.convolve(v16, k, mode="reflect")))
    return rows


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--n", type=int, default=256)
    ap.add_argument("--repeat", type=int, default=3)
    ap.add_argument("--part", action="append", choices=["overhead", "throughput"],
                    help="part(s) to run (default: both)")
    ap.add_argument("--min-time", type=float, default=0.2,
                    help="seconds per timed batch series of a small call")
    ap.add_argument("--json", help="also write the rows to this file")
    args = ap.parse_args()
    parts = args.part or ["overhead", "throughput"]
    rows = []
    rng = np.random.default_rng(1)
    print("lumr %s from %s; threads available: %d" % (lumr.version()["text"],
                                                     lumr.library_path(), lumr.get_num_threads()))
    if "overhead" in parts:
        print()
        print("%-30s %12s %12s %12s %8s" % ("per call (small)", "lumr us", "ctypes us",
                                            "added us", "ratio"))
        for name, wrapped, bare in overhead_rows(rng):
            tw, tb = per_call(wrapped, args.min_time), per_call(bare, args.min_time)
            print("%-30s %12.2f %12.2f %12.2f %8.2f" % (name, tw * 1e6, tb * 1e6,
                                                        (tw - tb) * 1e6, tw / tb))
            rows.append({"case": name, "unit": "kcall/s", "lumr": 1e-3 / tw, "peer": 1e-3 / tb,
                         "peer_name": "bare ctypes call", "clock": "wall", "threads": 1})
    if "throughput" not in parts:
        if args.json:
            with open(args.json, "w") as out:
                json.dump(rows, out, indent=1)
        return
    print()
    nthreads = lumr.get_num_threads()
    print("%-34s %10s %10s %10s %9s %9s" % ("throughput, Mvoxel/s of output", "scipy",
                                             "lumr 1t", "lumr %dt" % nthreads, "1t/scipy",
                                             "%dt/scipy" % nthreads))
    for name, count, ours, theirs in throughput_rows(rng, args.n):
        ts = best_of(args.repeat, theirs, time.process_time)
        lumr.set_num_threads(1)
        t1 = best_of(args.repeat, ours, time.process_time)
        lumr.set_num_threads(nthreads)
        tn = best_of(args.repeat, ours)
        mv = lambda t: count / t / 1e6
        print("%-34s %10.1f %10.1f %10.1f %9.2f %9.2f" % (name, mv(ts), mv(t1), mv(tn), ts / t1,
                                                          ts / tn))
        rows.append({"case": name, "unit": "Mvoxel/s", "lumr": mv(t1), "peer": mv(ts),
                     "lumr_all_threads": mv(tn), "threads": 1, "clock": "cpu",
                     "peer_name": "scipy.ndimage." + {
                         "resize": "zoom", "remap": "map_coordinates",
                         "warp_affine": "affine_transform", "filter": "convolve"}[name.split()[0]]})
    if args.json:
        with open(args.json, "w") as out:
            json.dump(rows, out, indent=1)


if __name__ == "__main__":
    main()
