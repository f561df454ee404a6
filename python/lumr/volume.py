"""Volume functions: resize, remap, affine warp and the integer filter.

Conventions shared by all of them, in numpy terms
-------------------------------------------------
* A volume is a 3-D ndarray indexed ``vol[z, y, x]``: for a C-contiguous
  array x is the fastest axis.  Every per-axis argument (factors, shifts,
  boxes, anchors, coordinates, matrix rows) is given in this (z, y, x) order;
  the package reorders to the library's (x, y, z) internally.
* Sample types are chosen by dtype through tables of entry points:
  ``uint8`` -> ``_8u``, ``uint16`` -> ``_16u``, ``float32`` -> ``_32f``
  (``int16`` only for ``filter``).  Nothing is converted: other dtypes raise
  ``TypeError``.
* Strided input is read in place through the library's row and plane steps.
  Only an input whose x axis is not unit-stride is copied (once, to C order);
  an ``out`` array must have a unit-stride x axis and is written in place.
* Where the library leaves destination samples unwritten (outside the
  source box, or a warning status), ``out`` keeps its contents; an output
  allocated by the package starts filled with ``cval`` (default 0).
* Refusals raise :class:`lumr.LumrError` carrying the library's status name;
  the two warning statuses emit :class:`lumr.LumrWarning` and return the
  untouched output.
* Results do not depend on :func:`lumr.set_num_threads`, except for the
  affine warp, whose per-thread start positions may differ in the last bit
  of a double (a sample lying exactly on a range or rounding boundary).
"""
import ctypes as C
import math

import numpy as np

from . import _arrays as A
from ._lib import LIB, LumBox, LumPoint3D, LumVolume, check

#: Interpolation names and their library codes.
INTERPOLATION = {
    "nearest": 1,
    "linear": 2,
    "lagrange": 4,
    "bspline": 5,
    "catmullrom": 6,
    "mitchell": 7,
    "cubic_bc": 7,
}

_U8, _U16, _F32, _S16 = (np.dtype(np.uint8), np.dtype(np.uint16), np.dtype(np.float32),
                         np.dtype(np.int16))
_SAMPLES = (_U8, _U16, _F32)

# Dispatch tables: dtype -> entry point.
_RESIZE_V = {_U8: "lumrResize_8u_C1V", _U16: "lumrResize_16u_C1V", _F32: "lumrResize_32f_C1V"}
_RESIZE_PV = {_U8: "lumrResize_8u_C1PV", _U16: "lumrResize_16u_C1PV",
              _F32: "lumrResize_32f_C1PV"}
_REMAP = {_U8: "lumrRemap_8u_C1PV", _U16: "lumrRemap_16u_C1PV", _F32: "lumrRemap_32f_C1PV"}
_WARP = {_U8: "lumrWarpAffine_8u_C1PV", _U16: "lumrWarpAffine_16u_C1PV",
         _F32: "lumrWarpAffine_32f_C1PV"}


def interpolation_code(interpolation):
    """Library code of an interpolation given by name or code.  Integer codes
    go to the library unchecked, so a bad one is refused with
    ``lumStatusBadInterpolation``."""
    if isinstance(interpolation, str):
        try:
            return INTERPOLATION[interpolation.lower()]
        except KeyError:
            raise ValueError("unknown interpolation %r; one of %s" % (
                interpolation, ", ".join(sorted(INTERPOLATION)))) from None
    return A.i32(interpolation, "interpolation")


def _lib_box(b):
    """(z, y, x, depth, height, width) -> LumBox."""
    z, y, x, d, h, w = b
    return LumBox(x, y, z, w, h, d)


def _new_out(shape, dtype, cval):
    out = np.empty(shape, dtype=dtype)
    out.fill(cval)
    return out


def _check_inside(b, shape, name):
    z, y, x, d, h, w = b
    for o, e, n in ((z, d, shape[0]), (y, h, shape[1]), (x, w, shape[2])):
        if e > 0 and o >= 0 and o + e > n:
            raise ValueError("%s %s reaches beyond the output of shape %s; the library does "
                             "not know the output's size and would write past it"
                             % (name, b, shape))


# ---- resize ---------------------------------------------------------------------
def resize(vol, factors, shifts=0.0, interpolation="linear", out=None, output_shape=None,
           src_box=None, dst_box=None, cval=0):
    """Resample a volume by a scale and a shift on each axis.

    Parameters
    ----------
    vol : ndarray, uint8, uint16 or float32, shape (depth, height, width)
        Read in place through its strides (copied once only if its x axis is
        not unit-stride, or if its y axis runs backwards: the cubic rim of the
        library treats descending row order differently).
    factors : float or (fz, fy, fx)
        Output samples per input sample on each axis; must be > 0, else
        ``lumStatusBadResizeFactor``.
    shifts : float or (sz, sy, sx)
        Translation in output samples, applied after scaling.
    interpolation : 'nearest', 'linear', 'lagrange', 'bspline', 'catmullrom',
        'mitchell' (or the codes 1, 2, 4, 5, 6, 7).
    out : ndarray, optional
        Destination of vol's dtype; samples outside the mapped region keep
        their values.  Default: a new array of ``output_shape`` filled with
        ``cval``.
    output_shape : tuple, optional
        Default ``floor(n * factor + 0.5)`` per axis (at least 1).
    src_box, dst_box : (z, y, x, depth, height, width), optional
        The source region that limits the output, and the destination region
        that may be written (default: all of ``vol`` and of ``out``).  Filter
        taps may read outside ``src_box`` as long as they stay in ``vol``.

    Geometry
    --------
    Sample centres sit at index + 0.5: output sample X (centre X + 0.5) reads
    the input at position ``(X + 0.5 - shift) / factor``, whose sample n has
    its centre at n + 0.5.  The volumes' outer faces therefore line up
    (a factor 2 turns 64 samples into 128 covering the same extent).  The
    written region on each axis is ``[trunc(max(start, box0) + 0.4999999999),
    trunc(min(stop, box1) + 0.5000000001))`` with ``start = z0 * f + shift``,
    ``stop = (z0 + extent) * f + shift`` of the clipped source box.

    Edges: taps are clamped to the volume (edge replication), never to
    ``src_box``.  'nearest' takes the sample whose cell holds the position
    (truncation of position - 1e-10).

    Integer outputs
    ---------------
    'nearest' copies samples.  'linear' uses 14-bit weights; the rim (outputs
    whose taps reach past the volume) rounds after each axis, the interior
    (core) of uint8 keeps 6 fraction bits and rounds once: a rim and a core
    sample of one ramp may differ by one, and a rim sample may lie up to 1.5
    from the float32 result of the same input.  Cubic codes compute in float32 and
    *truncate* interior samples toward zero (a 100.9 gives 100), while the
    rim rounds half up (``trunc(v + 0.5000001)``); both saturate.  float32
    output is not clamped: cubic overshoot stays.

    Compared with ``scipy.ndimage.zoom``: ``resize(v, f, interpolation=
    'linear')`` matches ``zoom(v, f, order=1, mode='nearest', grid_mode=True)``
    to float rounding when ``n * f`` is an integer; 'bspline' matches
    ``order=3, prefilter=False`` (lumr's cubic codes interpolate the samples
    directly, without scipy's spline prefilter); 'nearest' matches ``order=0``
    except at exact ties.  Only 'lagrange' and 'catmullrom' pass through the
    samples at integer positions.

    Threads: only the float32 contiguous form uses several threads (all
    output extents >= 16); results are identical for any thread count.
    Warnings: ``lumWarnNoOverlap`` (src_box starts outside vol) and
    ``lumWarnEmptyResult`` (nothing of the mapped box falls in dst_box).
    """
    code = interpolation_code(interpolation)
    if isinstance(vol, np.ndarray) and vol.ndim == 3 and vol.shape[1] > 1 and vol.strides[1] < 0:
        vol = np.ascontiguousarray(vol)  # documented: descending rows are copied
    src = A.volume_in(vol, "vol", _SAMPLES)
    dtype = src.array.dtype
    fz, fy, fx = A.triple(factors, "factors")
    sz, sy, sx = A.triple(shifts, "shifts")
    if out is None:
        if output_shape is None:
            output_shape = tuple(
                max(1, int(math.floor(n * f + 0.5))) if f > 0 and math.isfinite(n * f) else 1
                for n, f in zip(src.array.shape, (fz, fy, fx)))
        out = _new_out(tuple(output_shape), dtype, cval)
    dst = A.volume_out(out, "out", dtype)
    sbox = _lib_box(A.box(src_box, src.array.shape, "src_box"))
    dbox_t = A.box(dst_box, out.shape, "dst_box")
    _check_inside(dbox_t, out.shape, "dst_box")
    dbox = _lib_box(dbox_t)
    svol = LumVolume(src.width, src.height, src.depth)

    size = C.c_int32(0)
    st = LIB.lumrResizeGetBufSize(C.byref(sbox), C.byref(dbox), 1, code, C.byref(size))
    # Deliberate: a refusal of the size query is reported through the resize
    # entry point itself, so the user sees its order of checks (factors before
    # interpolation).  Every condition the query refuses is also refused by
    # the entry point before it touches the buffer.
    buf = np.empty(max(size.value, 64) if st == 0 else 64, dtype=np.uint8)
    use_v = src.span_fits_i32() and dst.span_fits_i32()
    if use_v:
        name = _RESIZE_V[dtype]
        st2 = getattr(LIB, name)(src.addr, C.byref(svol), src.row_step, src.plane_step,
                                 C.byref(sbox), dst.addr, dst.row_step, dst.plane_step,
                                 C.byref(dbox), fx, fy, fz, sx, sy, sz, code, buf.ctypes.data)
    else:
        name = _RESIZE_PV[dtype]
        sp, dp = src.planes(), dst.planes()
        st2 = getattr(LIB, name)(sp, C.byref(svol), src.row_step, C.byref(sbox),
                                 dp, dst.row_step, C.byref(dbox), fx, fy, fz,
                                 sx, sy, sz, code, buf.ctypes.data)
    if st != 0 and st2 >= 0:
        check(st, "lumrResizeGetBufSize")
    check(st2, name)
    return out



# ---- remap and warp: reads the library leaves to the caller ----------------------
def _effective_code(code, shape):
    """The code the library runs after its silent downgrade on small volumes."""
    small = min(shape)
    if small < 4 and code in (4, 5, 6, 7):
        code = 2
    if small < 2:
        code = 1
    return code


def _source_planes(src, box_t, code):
    """The plane table handed to remap and warp.

    Linear sampling lowers an index that equals the box's upper bound by one
    and reads that sample with weight zero; for a box one sample wide at
    index 0 that is sample, row or plane -1, outside vol.  Only in that case
    vol is copied (documented) into an array with one zero sample, row and
    plane in front, so the weight-zero read stays inside memory we own; the
    values are the same as the library gives wherever the read is valid."""
    z, y, x, d, h, w = box_t
    if _effective_code(code, src.array.shape) != 2 or not any(
            o == 0 and e == 1 for o, e in ((z, d), (y, h), (x, w))):
        return src.row_step, src.planes(), None
    D, H, W = src.array.shape
    padded = np.zeros((D + 1, H + 1, W + 1), dtype=src.array.dtype)
    padded[1:, 1:, 1:] = src.array
    table = A.Strided(padded[:, 1:, 1:]).planes()  # D + 1 entries, the first for plane -1
    first = C.cast(table, C.c_void_p).value + C.sizeof(C.c_void_p)
    return padded.strides[1], first, (padded, table)  # the caller keeps them alive

# ---- remap ------------------------------------------------------------------------
def _coord_fields(coords, shape=None):
    if isinstance(coords, np.ndarray):
        if coords.ndim != 4 or coords.shape[0] != 3:
            raise ValueError("coords must have shape (3, depth, height, width): "
                             "z, y, x coordinate fields")
        fields = [coords[0], coords[1], coords[2]]
    else:
        fields = list(coords)
        if len(fields) != 3:
            raise ValueError("coords must be three fields (z, y, x)")
    views = [A.volume_in(f, "coords[%d]" % i, (_F32,)) for i, f in enumerate(fields)]
    shp = views[0].array.shape
    if any(v.array.shape != shp for v in views):
        raise ValueError("the three coordinate fields must have one shape")
    if len({v.row_step for v in views}) != 1:
        # The library takes one row step for the three fields.
        views = [A.Strided(np.ascontiguousarray(v.array)) for v in views]
    return views  # z, y, x


def remap(vol, coords, interpolation="linear", out=None, cval=0, src_box=None):
    """Sample a volume at given positions: ``out[z, y, x] = vol(coords[:, z, y, x])``.

    Parameters
    ----------
    vol : ndarray, uint8, uint16 or float32, shape (depth, height, width)
    coords : float32 array of shape (3, D, H, W), or three float32 arrays
        The z, y and x source positions of every output sample, in the order
        of ``scipy.ndimage.map_coordinates``.  Positions are absolute sample
        indices of ``vol`` with sample centres on the integers (x = 3.0 is
        column 3), not relative to ``src_box``.  float32 is required (the
        library computes in single precision); no conversion is made.
    interpolation : 'nearest', 'linear', 'lagrange', 'bspline', 'catmullrom',
        'mitchell' or a code.  A vol with an extent below 4 silently uses
        'linear' for the cubic codes, below 2 'nearest'.
    out : ndarray, optional, shape (D, H, W), vol's dtype
    cval : value that a new ``out`` starts with.
    src_box : (z, y, x, depth, height, width), optional
        The region of vol that may be read; default all of it.

    NaN coordinates are refused (``ValueError``): the library's range test
    lets them through and would index with them.  A ``src_box`` one sample
    wide at index 0 with linear sampling makes the library read sample -1
    with weight zero; vol is then copied once into a padded array.

    Edges: an output sample whose position lies outside ``src_box`` (inclusive
    bounds ``[x0, x0 + width - 1]``) is not written at all: ``out`` keeps its
    value there (``cval`` for a new array).  'linear' lowers an index equal to
    the upper bound by one, so the far face is reached exactly.  Cubic taps
    clamp to 0 at the low side and to the box at the high side.

    Rounding: 'nearest' rounds positions half to even (2.5 -> 2).  Integer
    'linear' results round half to even.  Integer cubic results round half to
    even inside, and ``trunc(v + 0.5000001)`` for samples whose taps touch a
    border; both saturate.  float32 cubic samples at a border are truncated
    toward zero to an integer value (the library's remap does this, the affine
    warp does not).  Cubic weights come from tables (within 6.2e-5 of the
    polynomials of :func:`resize`).

    Compared with ``scipy.ndimage.map_coordinates(vol, coords, order=1)``:
    equal to float32 rounding for positions inside the volume; for uint8 and
    uint16 within one unit (scipy rounds its float64 result).  'bspline' is
    close to ``order=3, prefilter=False``.  scipy's ``mode``/``cval`` fill
    outside positions; here they are left unwritten.
    """
    code = interpolation_code(interpolation)
    src = A.volume_in(vol, "vol", _SAMPLES)
    dtype = src.array.dtype
    cz, cy, cx = _coord_fields(coords)
    shape = cz.array.shape
    if out is None:
        out = _new_out(shape, dtype, cval)
    dst = A.volume_out(out, "out", dtype, shape)
    for f, axis in ((cz, "z"), (cy, "y"), (cx, "x")):
        # The library tests ranges by comparisons that NaN passes and then
        # indexes with it; refuse it here.
        if np.isnan(f.array).any():
            raise ValueError("coords: NaN %s coordinates (the library would index with them)"
                             % axis)
    box_t = A.box(src_box, src.array.shape, "src_box")
    sbox = _lib_box(box_t)
    svol = LumVolume(src.width, src.height, src.depth)
    dvol = LumVolume(shape[2], shape[1], shape[0])
    src_step, sp, keep = _source_planes(src, box_t, code)
    dp = dst.planes()
    xp, yp, zp = cx.planes(), cy.planes(), cz.planes()
    name = _REMAP[dtype]
    st = getattr(LIB, name)(sp, C.byref(svol), src_step, C.byref(sbox),
                            xp, yp, zp, cx.row_step,
                            dp, dst.row_step, C.byref(dvol), code)
    del keep
    check(st, name)
    return out


# ---- affine warp ----------------------------------------------------------------
def _library_matrix(matrix):
    """A forward map in numpy (z, y, x) order, 3x4 or 4x4, to the library's
    row-major 3x4 in (x, y, z) order."""
    m = np.asarray(matrix, dtype=np.float64)
    if m.shape == (4, 4):
        m = m[:3]
    if m.shape != (3, 4):
        raise ValueError("matrix must be 3x4 or 4x4 (homogeneous), in (z, y, x) order")
    lib = np.empty((3, 4), dtype=np.float64)
    lib[:, :3] = m[::-1, 2::-1]
    lib[:, 3] = m[::-1, 3]
    return np.ascontiguousarray(lib)


def warp_affine(vol, matrix, out_shape=None, interpolation="linear", out=None, cval=0,
                src_box=None, dst_box=None):
    """Apply an affine map to a volume.

    Parameters
    ----------
    vol : ndarray, uint8, uint16 or float32, shape (depth, height, width)
    matrix : 3x4 or 4x4 array, (z, y, x) order
        The *forward* map, from source position to destination position:
        ``[zd, yd, xd] = matrix[:3, :3] @ [zs, ys, xs] + matrix[:3, 3]``, in
        absolute sample indices with sample centres on the integers.  The
        library inverts it in double precision and walks each output row by
        repeated addition.  ``scipy.ndimage.affine_transform`` takes the
        *inverse* (output -> input) map: ``warp_affine(v, M)`` corresponds to
        ``affine_transform(v, numpy.linalg.inv(M))``.
    out_shape : shape of a new output (default vol's shape).
    interpolation, cval, src_box : as in :func:`remap`.
    dst_box : (z, y, x, depth, height, width), optional
        The region of ``out`` to fill, in its absolute indices; default all.

    Degenerate matrices raise ``lumStatusBadCoeffs``: all three diagonal
    entries at most 1e-100 in magnitude; the z and y rows (``matrix[0, :3]``
    and ``matrix[1, :3]``) parallel to a relative 1e-10, whatever the x row;
    or an absolute determinant below 1e-10 (so a uniform scaling by 1e-4 is
    refused although well conditioned).  The first two tests run before the
    interpolation and overlap checks, the determinant test after them.

    A non-finite matrix is refused (``ValueError``); a ``src_box`` one
    sample wide at index 0 is handled as in :func:`remap`.

    Edges and rounding are those of :func:`remap`, with positions carried in
    float64 ('nearest' rounds the double half to even) and one difference:
    float32 cubic samples at a border keep their fraction.  The output may
    differ with the thread count in the last bit of a position, i.e. only for
    a sample on an exact range or rounding boundary.
    """
    code = interpolation_code(interpolation)
    src = A.volume_in(vol, "vol", _SAMPLES)
    dtype = src.array.dtype
    coeffs = _library_matrix(matrix)
    if not np.isfinite(coeffs).all():
        raise ValueError("matrix must be finite")
    if out is None:
        out = _new_out(tuple(out_shape) if out_shape is not None else src.array.shape,
                       dtype, cval)
    dst = A.volume_out(out, "out", dtype)
    box_t = A.box(src_box, src.array.shape, "src_box")
    sbox = _lib_box(box_t)
    dbox_t = A.box(dst_box, out.shape, "dst_box")
    _check_inside(dbox_t, out.shape, "dst_box")
    dbox = _lib_box(dbox_t)
    svol = LumVolume(src.width, src.height, src.depth)
    src_step, sp, keep = _source_planes(src, box_t, code)
    dp = dst.planes()
    name = _WARP[dtype]
    st = getattr(LIB, name)(sp, C.byref(svol), src_step, C.byref(sbox),
                            dp, dst.row_step, C.byref(dbox), coeffs.ctypes.data,
                            code)
    del keep
    check(st, name)
    return out


# ---- filter -------------------------------------------------------------------------
_PAD_MODES = {"reflect": "symmetric", "mirror": "reflect", "nearest": "edge", "wrap": "wrap",
              "constant": "constant"}


def _kernel_i32(kernel):
    k = np.asarray(kernel)
    if k.dtype == np.int32 and k.ndim == 3 and k.flags.c_contiguous:
        return k  # already the library's layout
    if k.dtype.kind not in "iub":
        if k.dtype.kind == "f" and np.all(np.isfinite(k)) and np.all(k == np.round(k)):
            pass
        else:
            raise TypeError("kernel must hold integers (the library's kernel is int32)")
    if k.size and (k.min() < A.INT32_MIN or k.max() > A.INT32_MAX):
        raise ValueError("kernel values must fit int32")
    while k.ndim < 3:
        k = k[np.newaxis]
    if k.ndim != 3:
        raise ValueError("kernel must have at most 3 dimensions (z, y, x)")
    return np.ascontiguousarray(k, dtype=np.int32)  # small: copied to the library's layout


def filter(vol, kernel, anchor=None, divisor=1, mode="reflect", cval=0, out=None):
    """Convolve an int16 volume with an integer kernel, divide, round, saturate.

    ``out[z, y, x] = round(sum_k,j,i K[k, j, i] * vol[z + az - k, y + ay - j,
    x + ax - i] / divisor)``, saturated to int16: a true convolution, the
    same orientation as ``scipy.ndimage.convolve``.

    Parameters
    ----------
    vol : int16 ndarray, shape (depth, height, width); read through its strides.
    kernel : integer array, up to 3-D in (z, y, x) order (int32 values).
    anchor : (az, ay, ax), default ``k // 2`` per axis: the kernel element
        that meets the output position.  With odd extents the default matches
        scipy's ``origin=0``.  Must lie inside the kernel for padded modes.
    divisor : nonzero int32.  1: no division.  A power of two: exact shift
        with round half to even.  Anything else (negative ones too): the
        wide-row vector path multiplies by the float32 reciprocal and rounds
        half to even; the scalar path (width < 16, large kernel elements or a
        kernel sum above 98301) divides exactly in double; the two can differ
        by one.  0 raises ``lumStatusSize``.
    mode : 'valid', or a scipy border mode 'reflect', 'mirror', 'nearest',
        'wrap', 'constant' (with ``cval``).
        The library has no border handling of its own.  'valid' reads vol in
        place and returns shape ``vol.shape - kernel.shape + 1`` (the anchor
        plays no part).  The other modes build **one padded copy** of vol
        (numpy.pad) and return vol's shape.
    out : int16 ndarray of the result's shape, optional, written in place.

    Accumulation is 32-bit in the vector path (wrapping for kernels of large
    elements of both signs whose plain sum stays <= 98301) and 64-bit in the
    scalar path.  Single-threaded.
    """
    src = A.volume_in(vol, "vol", (_S16,))
    k = _kernel_i32(kernel)
    kd, kh, kw = k.shape
    divisor = A.i32(divisor, "divisor")
    if mode == "valid":
        shape = tuple(n - e + 1 for n, e in zip(src.array.shape, k.shape))
        if min(shape) < 1:
            raise ValueError("mode='valid': kernel %s larger than vol %s" % (k.shape,
                                                                             src.array.shape))
    elif mode in _PAD_MODES:
        shape = src.array.shape
        a = tuple(e // 2 for e in k.shape) if anchor is None else tuple(int(v) for v in anchor)
        if len(a) != 3 or any(not 0 <= ai < e for ai, e in zip(a, k.shape)):
            raise ValueError("anchor %r must lie inside the kernel %s" % (anchor, k.shape))
        pad = [(e - 1 - ai, ai) for ai, e in zip(a, k.shape)]
        extra = {"constant_values": cval} if mode == "constant" else {}
        src = A.Strided(np.pad(src.array, pad, mode=_PAD_MODES[mode], **extra))
    else:
        raise ValueError("mode must be 'valid' or one of %s" % ", ".join(sorted(_PAD_MODES)))
    if out is None:
        out = np.empty(shape, dtype=np.int16)
    dst = A.volume_out(out, "out", _S16, shape)
    # On the (padded) source every output reads only inside the array when
    # the library's anchor is the kernel's last element.
    lanchor = LumPoint3D(kw - 1, kh - 1, kd - 1)
    dvol = LumVolume(shape[2], shape[1], shape[0])
    kvol = LumVolume(kw, kh, kd)
    size = C.c_int32(0)
    check(LIB.lumrFilterGetBufSize(C.byref(dvol), C.byref(kvol), 1, C.byref(size)),
          "lumrFilterGetBufSize")
    buf = np.empty(max(size.value, 16), dtype=np.uint8)
    sp, dp = src.planes(), dst.planes()
    st = LIB.lumrFilter_16s_C1PV(sp, src.row_step, dp, dst.row_step,
                                 C.byref(dvol), k.ctypes.data, C.byref(kvol), C.byref(lanchor),
                                 divisor, buf.ctypes.data)
    check(st, "lumrFilter_16s_C1PV")
    return out
