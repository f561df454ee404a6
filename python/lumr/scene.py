"""Triangle scenes and ray queries.

A :class:`Scene` holds what the library's ray functions read: the inflated
scene box, one 40-byte record per triangle and the KD-tree block.  It is
read-only once built and may serve any number of threads.

Ray streams
-----------
The library reads rays as three planes (x, y, z) of float32 laid out as a
grid of ``height`` rows of ``width`` rays.  Rays may be given as

* an array of shape (H, W, 3): a grid of H rows of W rays;
* an array of shape (N, 3): one row of N rays;
* an array of shape (3,): one ray;
* a tuple ``(x, y, z)`` of three float32 arrays of the grid's shape.

An interleaved (..., 3) array is split into three 64-byte aligned planes
(one copy, 12 bytes per ray); tuple planes that are C-contiguous float32 are
read in place.  Results have the grid's shape.

Each query has a one-ray-at-a-time body and a packet body (tiles of 4 x 4
rays) chosen by the library when the grid's width and height are multiples
of 4 and every stream is 16-byte aligned (the package's own buffers are).
Both bodies are correct; they may disagree on a hit within 1e-5 of another
and on near-parallel triangles, and their reciprocals differ in the last
bits, so a (4, 4, 3) grid and the same 16 rays as (16, 3) can differ in such
cases.  u and v are 0 for rays that miss (the package zeroes them first).

Distances t are in multiples of each ray's direction (directions need not
be unit length).  A hit at t = 0 is never taken.  Weights u, v belong to
the triangle's first and second vertex; the third carries 1 - u - v.
"""
import ctypes as C
from collections import namedtuple

import numpy as np

from . import _arrays as A
from ._lib import (LIB, LumKDTreeBuildParams, LumPlanes3, LumRayScene, LumRect2D, LumVolume,
                   check)

TAG_LIST = 0x499D3DC2
TAG_SAH = 0x2D07705B
FLT_MAX = float(np.finfo(np.float32).max)

Hits = namedtuple("Hits", "t u v triangle")
Hits.__doc__ = """Nearest hits: ``t`` distance (``tmax`` where nothing was hit), ``u``, ``v``
weights of the first and second vertex, ``triangle`` index or -1."""

_F32 = np.dtype(np.float32)


class _Rays:
    """A ray stream as three aligned float32 planes over a grid."""

    def __init__(self, rays, name):
        if isinstance(rays, (tuple, list)):
            if len(rays) != 3:
                raise ValueError("%s as a tuple must be (x, y, z)" % name)
            planes = []
            for i, p in enumerate(rays):
                if not isinstance(p, np.ndarray) or p.dtype != _F32:
                    raise TypeError("%s[%d] must be a float32 ndarray" % (name, i))
                if not p.flags.c_contiguous:
                    q = A.aligned_empty(p.shape, np.float32)
                    q[...] = p  # a strided plane is copied: streams are dense
                    p = q
                planes.append(p)
            shape = planes[0].shape
            if any(p.shape != shape for p in planes) or len(shape) not in (1, 2):
                raise ValueError("%s: x, y, z must share a shape (N,) or (H, W)" % name)
        else:
            r = np.asarray(rays)
            if r.dtype.kind != "f":
                raise TypeError("%s must be floating point" % name)
            if r.ndim not in (1, 2, 3) or r.shape[-1] != 3:
                raise ValueError("%s must have shape (3,), (N, 3) or (H, W, 3)" % name)
            shape = r.shape[:-1]
            pl = A.aligned_empty((3,) + shape, np.float32)
            pl[...] = np.moveaxis(r, -1, 0)
            planes = [pl[0], pl[1], pl[2]]
        self.planes = planes
        self.shape = shape
        h, w = (1, shape[0]) if len(shape) == 1 else (1, 1) if len(shape) == 0 else shape
        self.width, self.height = A.i32(w, "grid width"), A.i32(h, "grid height")
        self.count = w * h
        self.struct = LumPlanes3(planes[0].ctypes.data, planes[1].ctypes.data,
                                 planes[2].ctypes.data)


def _point(p, name):
    a = np.asarray(p, dtype=np.float32).reshape(-1)
    if a.shape != (3,):
        raise ValueError("%s must be one point (x, y, z)" % name)
    return np.ascontiguousarray(a)


class Scene:
    """A triangle mesh prepared for ray queries.

    Parameters
    ----------
    vertices : (V, 3) float array, x, y, z per vertex (float32 C-contiguous
        is used in place; anything else is converted once).
    triangles : (T, 3) or (T, 4) integer array of vertex indices (copied to
        the library's four int32 per triangle; the fourth is never read).
        Indices are checked against V here: the library does not check them.
    build : 'sah' (surface-area heuristic; the default) or 'list' (one leaf
        holding every triangle: each ray tests all of them, in order).
    max_depth : 0..50, tree depth limit (checked for both builds).
    split_quality : 0..1, SAH only: 0 fewest splits, 1 most.
    memory_limit_mb : SAH only, at least 32.
    clip_box : SAH only, optional (xmin, ymin, zmin, xmax, ymax, zmax) to
        which triangles are clipped.

    Triangles with zero area are kept but never hit.  Build failures raise
    :class:`lumr.LumrError` with the library's status (``lumStatusBadArg``
    for a build this library does not provide).  Free the tree early with
    :meth:`close` or a ``with`` block; otherwise it goes with the object.
    """

    def __init__(self, vertices, triangles, build="sah", max_depth=50, split_quality=1.0,
                 memory_limit_mb=256, clip_box=None):
        self._tree = C.c_void_p(None)
        v = np.ascontiguousarray(vertices, dtype=np.float32)
        if v.ndim != 2 or v.shape[1] != 3:
            raise ValueError("vertices must have shape (V, 3)")
        t = np.asarray(triangles)
        if t.dtype.kind not in "iu" or t.ndim != 2 or t.shape[1] not in (3, 4):
            raise ValueError("triangles must be an integer array of shape (T, 3) or (T, 4)")
        if t.size and (t[:, :3].min() < 0 or t[:, :3].max() >= v.shape[0]):
            raise ValueError("triangle vertex indices must lie in 0..%d" % (v.shape[0] - 1))
        tri = np.zeros((t.shape[0], 4), dtype=np.int32)
        tri[:, :3] = t[:, :3]
        nv, nt = A.i32(v.shape[0], "vertex count"), A.i32(t.shape[0], "triangle count")
        self.vertices, self.triangles = v, tri

        self.bound = A.aligned_zeros(6, np.float32)
        check(LIB.lumrSetBoundBox_32f(v.ctypes.data, nv, self.bound.ctypes.data),
              "lumrSetBoundBox_32f")
        rec = C.c_int32(0)
        check(LIB.lumrTriangleAccelGetSize(C.byref(rec)), "lumrTriangleAccelGetSize")
        self.accel = A.aligned_zeros(max(nt, 1) * rec.value, np.uint8)
        check(LIB.lumrTriangleAccelInit(self.accel.ctypes.data, v.ctypes.data, tri.ctypes.data,
                                        nt), "lumrTriangleAccelInit")

        if build == "list":
            tag = TAG_LIST
        elif build == "sah":
            tag = TAG_SAH
        else:
            raise ValueError("build must be 'sah' or 'list'")
        self.build = build
        self._clip = None
        if clip_box is not None:
            self._clip = np.ascontiguousarray(clip_box, dtype=np.float32).reshape(6)
        params = LumKDTreeBuildParams(tag, int(max_depth), float(split_quality),
                                      int(memory_limit_mb),
                                      self._clip.ctypes.data if self._clip is not None else None)
        tree = C.c_void_p(None)
        size = C.c_int32(0)
        check(LIB.lumrKDTreeBuildAlloc(C.byref(tree), v.ctypes.data, tri.ctypes.data, nv, nt,
                                       C.byref(size), C.byref(params)), "lumrKDTreeBuildAlloc")
        self._tree = tree
        self.tree_bytes = size.value
        self._scene = LumRayScene(self.bound.ctypes.data, self.accel.ctypes.data, tree.value)

    # -- lifetime --------------------------------------------------------------
    def close(self):
        """Free the tree block; the scene can no longer be queried."""
        if self._tree.value:
            LIB.lumrKDTreeFree(self._tree.value)
            self._tree = C.c_void_p(None)

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def _live(self):
        if not self._tree.value:
            raise ValueError("the scene is closed")
        return C.byref(self._scene)

    # -- queries ----------------------------------------------------------------
    def intersect(self, origins, directions, tmax=FLT_MAX):
        """Nearest hit of every ray: :class:`Hits` of the grid's shape.

        origins : one point (3,) shared by all rays (``lumrIntersectEyeSO_32f``)
            or one origin per ray in the layout of ``directions``
            (``lumrIntersectMO_32f``).
        tmax : scalar or per-ray array; hits at t >= tmax are not taken, and
            rays that miss keep it as t.

        The two entry points differ in small ways in their one-ray body: with
        one origin a direction component of 0 adds no constraint to the box
        test and any t in (0, tmax) is accepted; with per-ray origins such a
        ray must start strictly inside the box's slab on that axis, a hit must
        be 1e-5 nearer than tmax (or than the previous best), and
        near-degenerate (|det| < 1.2e-6) triangles are skipped.
        """
        scene = self._live()
        d = _Rays(directions, "directions")
        planes = isinstance(origins, (tuple, list)) and all(
            isinstance(p, np.ndarray) and p.ndim >= 1 for p in origins)
        single = not planes and np.shape(origins) == (3,)
        t = A.aligned_empty(d.shape, np.float32)
        t[...] = tmax
        u = A.aligned_zeros(d.shape, np.float32)
        v = A.aligned_zeros(d.shape, np.float32)
        tri = A.aligned_empty(d.shape, np.int32)
        tri.fill(-1)
        hit = (C.c_void_p * 2)(u.ctypes.data, v.ctypes.data)
        roi = LumRect2D(d.width, d.height)
        if single:
            org = _point(origins, "origins")
            st = LIB.lumrIntersectEyeSO_32f(org.ctypes.data, C.byref(d.struct), t.ctypes.data,
                                            hit, tri.ctypes.data, scene, roi)
            check(st, "lumrIntersectEyeSO_32f")
        else:
            org = _Rays(origins, "origins")
            if org.shape != d.shape:
                raise ValueError("origins must be one point or match directions' grid")
            st = LIB.lumrIntersectMO_32f(C.byref(org.struct), C.byref(d.struct), t.ctypes.data,
                                         hit, tri.ctypes.data, scene, roi)
            check(st, "lumrIntersectMO_32f")
        return Hits(t, u, v, tri)

    def intersect_all(self, origin, directions, layers, tmax=FLT_MAX):
        """Up to ``layers`` successive hits along each ray from one origin.

        Returns :class:`Hits` with a leading axis of ``layers``.  Layer l+1
        continues from layer l's hit point; every t is measured from
        ``origin``.  A triangle met in several tree leaves is reported once.
        After a ray's last hit, ``triangle`` is -1 and ``t``, ``u``, ``v`` of
        those layers mean nothing.  ``tmax`` limits layer 0 only.  Repeats
        are screened over the last eight layers in the one-ray body (four in
        the packet body), so a ray crossing the same triangle again after
        more layers than that can report it again.
        """
        scene = self._live()
        layers = A.i32(layers, "layers")
        if layers < 1:
            raise ValueError("layers must be at least 1")
        org = _point(origin, "origin")
        d = _Rays(directions, "directions")
        shape = (layers,) + tuple(d.shape)
        t = A.aligned_empty(shape, np.float32)
        t[...] = tmax
        u = A.aligned_zeros(shape, np.float32)
        v = A.aligned_zeros(shape, np.float32)
        tri = A.aligned_empty(shape, np.int32)
        tri.fill(-1)
        hit = (C.c_void_p * 2)(u.ctypes.data, v.ctypes.data)
        roi = LumVolume(d.width, d.height, layers)
        st = LIB.lumrIntersectMultipleSO_32f(org.ctypes.data, C.byref(d.struct), t.ctypes.data,
                                             hit, tri.ctypes.data, C.byref(roi), scene)
        check(st, "lumrIntersectMultipleSO_32f")
        return Hits(t, u, v, tri)

    def occluded(self, origin, directions, mask=None, return_occluder=False):
        """Which segments ``origin -> origin + direction`` are blocked.

        Only hits with 0 < t < 1 count (a blocker exactly at either end does
        not).  The search stops at the first blocker found, not the nearest.
        ``mask`` (bool, grid shape, True = test this ray) leaves the other
        rays unblocked in the result.  Returns a bool array; with
        ``return_occluder=True`` also the int32 occluder stream, which is
        exact in the one-ray body (-1 = not blocked by this call) but only
        a by-product in the packet body (may hold 0 or other values for
        unblocked rays): rely on the bool result.
        """
        scene = self._live()
        org = _point(origin, "origin")
        d = _Rays(directions, "directions")
        m = A.aligned_empty(d.shape, np.int32)
        if mask is None:
            lit = np.ones(d.shape, dtype=bool)
        else:
            lit = np.broadcast_to(np.asarray(mask, dtype=bool), d.shape)
        m[...] = np.where(lit, 0, -1)
        occ = A.aligned_empty(d.shape, np.int32)
        occ.fill(-1)
        if d.count:
            roi = LumRect2D(d.width, d.height)
            st = LIB.lumrIntersectAnySO_32f(org.ctypes.data, C.byref(d.struct), occ.ctypes.data,
                                            m.ctypes.data, roi, scene)
            check(st, "lumrIntersectAnySO_32f")
        blocked = (m < 0) & lit
        return (blocked, occ) if return_occluder else blocked
