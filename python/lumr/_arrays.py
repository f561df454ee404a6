"""From ndarrays to what the C functions take: addresses and byte steps.

The library addresses a volume by a base pointer (or one pointer per plane)
and signed 32-bit byte steps between rows and planes; samples within a row
are adjacent.  Any ndarray whose last axis has unit stride therefore goes in
as it stands, whatever its other strides: views, slices, transposes of the
two outer axes.  The one case that needs a copy is a last axis that is not
unit-stride (``vol[:, :, ::2]``, a Fortran-ordered array): such an *input* is
copied once to C order, and such an *output* is refused.
"""
import ctypes as C
import math

import numpy as np

INT32_MAX = 2**31 - 1
INT32_MIN = -2**31


def fits_i32(v):
    return INT32_MIN <= v <= INT32_MAX


def i32(value, what):
    v = int(value)
    if v != value or not fits_i32(v):
        raise ValueError("%s = %r does not fit a signed 32-bit integer" % (what, value))
    return v


def aligned_empty(shape, dtype, align=64):
    """An uninitialised C-ordered array whose data starts on ``align`` bytes."""
    dtype = np.dtype(dtype)
    count = math.prod(shape) if isinstance(shape, tuple) else int(shape)
    nbytes = max(count * dtype.itemsize, 1)
    raw = np.empty(nbytes + align, dtype=np.uint8)
    off = (-raw.ctypes.data) % align
    return raw[off:off + count * dtype.itemsize].view(dtype).reshape(shape)


def aligned_zeros(shape, dtype, align=64):
    a = aligned_empty(shape, dtype, align)
    a.fill(0)
    return a


class Strided:
    """A 3-D array as (address, row step, plane step) in bytes, z, y, x axes."""

    __slots__ = ("array", "addr", "row_step", "plane_step", "depth", "height", "width")

    def __init__(self, array):
        self.array = array
        self.addr = array.ctypes.data
        self.depth, self.height, self.width = array.shape
        self.plane_step = array.strides[0]
        self.row_step = array.strides[1]

    def span_fits_i32(self):
        """True when every sample's offset from the base, in bytes, fits 32
        bits, so the contiguous (``V``) entry points may address it."""
        span = (abs(self.plane_step) * max(self.depth - 1, 0)
                + abs(self.row_step) * max(self.height - 1, 0)
                + self.width * self.array.itemsize)
        return span <= INT32_MAX

    def planes(self):
        """One address per z plane, in a form the ``PV`` entry points take
        for a pointer argument.  The caller keeps it alive over the call."""
        d, step = self.depth, self.plane_step
        if d <= 64:  # cheapest for the small volumes where overhead shows
            seq = range(self.addr, self.addr + d * step, step) if step else [self.addr] * d
            return (C.c_void_p * d)(*seq)
        # User-space addresses stay below 2^47, so int64 holds every one.
        arr = self.addr + np.arange(d, dtype=np.int64) * step
        return arr.ctypes.data_as(C.c_void_p)  # the pointer keeps arr alive


def _unit_x(a):
    return a.shape[-1] <= 1 or a.strides[-1] == a.itemsize


def volume_in(a, name, dtypes, ndim=3):
    """A readable volume for the library, copied only when its last axis is
    not unit-stride or its data is misaligned for its type."""
    if not isinstance(a, np.ndarray):
        raise TypeError("%s must be a numpy array, not %s" % (name, type(a).__name__))
    if a.ndim != ndim:
        raise ValueError("%s must have %d dimensions (z, y, x), not %d" % (name, ndim, a.ndim))
    if a.dtype not in dtypes:
        raise TypeError("%s has dtype %s; this function takes %s (convert explicitly with "
                        "astype: lumr never converts sample types silently)"
                        % (name, a.dtype, ", ".join(str(np.dtype(d)) for d in dtypes)))
    if not _unit_x(a) or a.ctypes.data % a.itemsize:
        a = np.ascontiguousarray(a)  # the documented copy
    _check_steps(a, name)
    return Strided(a)


def volume_out(a, name, dtype, shape=None):
    """A writable volume for the library; never copied."""
    if not isinstance(a, np.ndarray):
        raise TypeError("%s must be a numpy array" % name)
    if a.dtype != dtype:
        raise TypeError("%s has dtype %s, expected %s" % (name, a.dtype, np.dtype(dtype)))
    if a.ndim != 3:
        raise ValueError("%s must have 3 dimensions (z, y, x)" % name)
    if shape is not None and a.shape != tuple(shape):
        raise ValueError("%s has shape %s, expected %s" % (name, a.shape, tuple(shape)))
    if not a.flags.writeable:
        raise ValueError("%s is read-only" % name)
    if not _unit_x(a) or a.ctypes.data % a.itemsize:
        raise ValueError("%s: the last (x) axis must have unit stride and aligned samples; "
                         "the library writes rows of adjacent samples" % name)
    _check_steps(a, name)
    return Strided(a)


def _check_steps(a, name):
    for ax in range(a.ndim - 1):
        if not fits_i32(a.strides[ax]) and a.shape[ax] > 1:
            raise ValueError("%s: stride %d of axis %d does not fit the library's 32-bit "
                             "byte steps" % (name, a.strides[ax], ax))
    for n in a.shape:
        if n > INT32_MAX:
            raise ValueError("%s: extent %d exceeds the library's 32-bit sizes" % (name, n))


def triple(value, name):
    """A per-axis value given in (z, y, x) order, or one value for all three."""
    if np.ndim(value) == 0:
        return (float(value),) * 3
    t = tuple(float(v) for v in value)
    if len(t) != 3:
        raise ValueError("%s must be one value or three, in (z, y, x) order" % name)
    return t


def box(value, shape, name):
    """A box given as (z, y, x, depth, height, width); None is the whole shape."""
    if value is None:
        return (0, 0, 0) + tuple(shape)
    t = tuple(int(v) for v in value)
    if len(t) != 6:
        raise ValueError("%s must be (z, y, x, depth, height, width)" % name)
    for v in t:
        i32(v, name)
    return t
