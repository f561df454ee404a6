"""Real spherical harmonics up to band 15: basis, projection, reconstruction.

Coefficient order: bands l = 0, 1, ... L, and within a band m = -l .. l, so
Y(l, m) stands at index ``l*l + l + m`` and a set up to band L has
``(L + 1)**2`` entries.  Real harmonics with the Condon-Shortley phase:

* m = 0:  ``Y = K(l,0) P_l(z)``
* m > 0:  ``Y = (-1)^m sqrt(2) K(l,m) P_l^(m)(z) Re((x + iy)^m)``
* m < 0:  ``Y = (-1)^|m| sqrt(2) K(l,|m|) P_l^(|m|)(z) Im((x + iy)^|m|)``

so ``Y(1,-1) = -0.4886 y``, ``Y(1,0) = 0.4886 z``, ``Y(1,1) = -0.4886 x``.  With
scipy's complex ``sph_harm(m, l, azimuth, polar)`` for m > 0:
``Y(l, m) = sqrt(2) Re(sph_harm)`` and ``Y(l, -m) = sqrt(2) Im(sph_harm)``.

Directions are unit vectors (x, y, z); they are neither checked nor
normalised, and the polynomials are evaluated as they stand on non-unit
input.  Give them as an array of shape (N, 3) (split into three float32
streams: one copy of 12 N bytes) or as a tuple ``(x, y, z)`` of three
contiguous float32 arrays of length N (read in place).

Algorithms: 'closed' (default) evaluates fixed polynomials, powers in
float32 and sums in float64; 'recurrence' runs a three-term recurrence in
float32.  They agree to about 1e-8 up to band 5 and 1e-4 at band 15.
"""
import ctypes as C

import numpy as np

from . import _arrays as A
from ._lib import LIB, LumPlanes3, LumrError, check

_ALGORITHM = {"closed": 0, "closed_form": 0, "recurrence": 1}
_F32 = np.dtype(np.float32)
_STATES = {}
MAX_BAND = 15


def _algorithm(algorithm):
    if isinstance(algorithm, str):
        try:
            return _ALGORITHM[algorithm.lower()]
        except KeyError:
            raise ValueError("algorithm must be 'closed' or 'recurrence'") from None
    return int(algorithm)


def _state(band, algorithm):
    """A built LumSHState for (band, algorithm), kept for later calls: a state
    holds pointers into itself and must never move, which an ndarray's data
    does not."""
    key = (band, algorithm)
    st = _STATES.get(key)
    if st is None:
        size = C.c_uint32(0)
        check(LIB.lumrSHGetSize_32f(band, algorithm, C.byref(size)), "lumrSHGetSize_32f", 4)
        st = A.aligned_zeros(max(size.value, 16), np.uint8)
        check(LIB.lumrSHInit_32f(st.ctypes.data, band, algorithm), "lumrSHInit_32f", 4)
        _STATES[key] = st
    return st


def _band(band):
    b = int(band)
    if b != band or b < 0 or b > 0xFFFFFFFF:
        raise ValueError("band must be a non-negative integer")
    return b


def _dirs(dirs):
    """Three dense float32 streams x, y, z and the count."""
    if isinstance(dirs, (tuple, list)):
        if len(dirs) != 3:
            raise ValueError("dirs as a tuple must be (x, y, z)")
        xs = []
        for i, c in enumerate(dirs):
            if not isinstance(c, np.ndarray) or c.dtype != _F32:
                raise TypeError("dirs[%d] must be a float32 ndarray" % i)
            if c.ndim != 1:
                raise ValueError("dirs[%d] must be one-dimensional" % i)
            # A strided stream is copied: the library reads dense streams.
            xs.append(np.ascontiguousarray(c))
        if len({c.shape[0] for c in xs}) != 1:
            raise ValueError("x, y, z must have one length")
        return xs, xs[0].shape[0]
    d = np.asarray(dirs)
    if d.dtype.kind != "f":
        raise TypeError("dirs must be floating point")
    if d.ndim != 2 or d.shape[1] != 3:
        raise ValueError("dirs must have shape (N, 3), or be a tuple (x, y, z)")
    planes = A.aligned_empty((3, d.shape[0]), np.float32)
    planes[...] = d.T  # the documented split into streams (float64 rounds to float32)
    return [planes[0], planes[1], planes[2]], d.shape[0]


def _count(n):
    return A.i32(n, "number of directions")


def sh_basis(dirs, band, algorithm="closed", single_band=False):
    """Real SH of every direction: shape (N, (band + 1)**2), float32.

    With ``single_band=True`` only band ``band`` is evaluated (closed form,
    ``lumrSHBand_32f``), shape (N, 2 * band + 1), bit for bit the
    corresponding columns of the full closed-form basis.

    Errors: band above 15 -> ``lumStatusBadBand`` (closed form: already from
    the state, as ``lumStatusSize``); N = 0 -> ``lumStatusSize``.
    """
    L = _band(band)
    (x, y, z), n = _dirs(dirs)
    n32 = _count(n)
    if single_band:
        out = np.empty((n, 2 * L + 1), dtype=np.float32)
        check(LIB.lumrSHBand_32f(x.ctypes.data, y.ctypes.data, z.ctypes.data, n32,
                                 out.ctypes.data, L), "lumrSHBand_32f")
        return out
    alg = _algorithm(algorithm)
    state = _state(L, alg)
    out = np.empty((n, (L + 1) ** 2), dtype=np.float32)
    check(LIB.lumrSH_32f(x.ctypes.data, y.ctypes.data, z.ctypes.data, n32, out.ctypes.data,
                         L, state.ctypes.data), "lumrSH_32f")
    return out


def _guard_band(L, function):
    # Deliberate: the transforms keep one basis block of 256 values; a band
    # above 15 on a recurrence state would overrun it, so it is refused here
    # with the status that evaluation gives such a band.
    if L > MAX_BAND:
        raise LumrError(-7, function)


def sh_project(dirs, samples, band, algorithm="closed", coeffs=None):
    """Project samples at directions onto SH coefficients (a plain sum).

    ``coeffs[k] += sum_i samples[i] * Y_k(dirs[i])``, point by point in order,
    without quadrature weights or normalisation: scale by ``4 pi / N`` for
    uniformly spread directions.

    samples : float32, shape (N,) for one channel, or (N, 3) for three
        channels (read in place when C-contiguous), or a tuple of three (N,)
        arrays.
    coeffs : optional float32 array to accumulate into, shape ((L+1)**2,)
        for one channel, (3, (L+1)**2) for three.  Default: zeros.  Splitting
        the directions over several calls gives the same bits as one call.
    Returns coeffs.
    """
    L = _band(band)
    (x, y, z), n = _dirs(dirs)
    n32 = _count(n)
    nc = (L + 1) ** 2
    alg = _algorithm(algorithm)
    planar = isinstance(samples, (tuple, list))
    if planar:
        s = [np.ascontiguousarray(c) for c in samples]
        if len(s) != 3 or any(c.dtype != _F32 or c.shape != (n,) for c in s):
            raise ValueError("samples as a tuple must be three float32 arrays of shape (N,)")
        channels = 3
    else:
        if not isinstance(samples, np.ndarray) or samples.dtype != _F32:
            raise TypeError("samples must be a float32 ndarray")
        if samples.shape == (n,):
            channels = 1
        elif samples.shape == (n, 3):
            channels = 3
        else:
            raise ValueError("samples must have shape (N,) or (N, 3), N = %d" % n)
        s = np.ascontiguousarray(samples)
    shape = (nc,) if channels == 1 else (3, nc)
    if coeffs is None:
        coeffs = np.zeros(shape, dtype=np.float32)
    elif (not isinstance(coeffs, np.ndarray) or coeffs.dtype != _F32 or coeffs.shape != shape
          or not coeffs.flags.c_contiguous or not coeffs.flags.writeable):
        raise ValueError("coeffs must be a writable C-contiguous float32 array of shape %s"
                         % (shape,))
    name = ("lumrSHTFwd_32f_C1I" if channels == 1 else
            "lumrSHTFwd_32f_P3I" if planar else "lumrSHTFwd_32f_C3P3I")
    _guard_band(L, name)
    state = _state(L, alg)
    if channels == 1:
        st = LIB.lumrSHTFwd_32f_C1I(x.ctypes.data, y.ctypes.data, z.ctypes.data, s.ctypes.data,
                                    n32, coeffs.ctypes.data, L, state.ctypes.data)
    else:
        cp = LumPlanes3(coeffs[0].ctypes.data, coeffs[1].ctypes.data, coeffs[2].ctypes.data)
        if planar:
            sp = LumPlanes3(s[0].ctypes.data, s[1].ctypes.data, s[2].ctypes.data)
            src = C.addressof(sp)
        else:
            src = s.ctypes.data
        st = getattr(LIB, name)(x.ctypes.data, y.ctypes.data, z.ctypes.data, src, n32,
                                C.addressof(cp), L, state.ctypes.data)
    check(st, name)
    return coeffs


def sh_reconstruct(coeffs, dirs, algorithm="closed", planar=False):
    """Evaluate SH coefficient sets at directions.

    coeffs : float32, shape ((L+1)**2,) or (3, (L+1)**2); the band L follows
        from the length.
    Returns float32 of shape (N,), or (N, 3) for three channels (interleaved,
    ``lumrSHTInv_32f_P3C3``), or (3, N) with ``planar=True``.  Each value is
    the dot product of the basis with the set, summed lane-wise (two or
    sixteen partial sums), not left to right.
    """
    c = coeffs
    if not isinstance(c, np.ndarray) or c.dtype != _F32:
        raise TypeError("coeffs must be a float32 ndarray")
    nc = c.shape[-1]
    L = int(round(nc ** 0.5)) - 1
    if (L + 1) ** 2 != nc or c.ndim not in (1, 2) or (c.ndim == 2 and c.shape[0] != 3):
        raise ValueError("coeffs must have shape ((L+1)**2,) or (3, (L+1)**2)")
    c = np.ascontiguousarray(c)
    (x, y, z), n = _dirs(dirs)
    n32 = _count(n)
    alg = _algorithm(algorithm)
    if c.ndim == 1:
        name = "lumrSHTInv_32f_C1"
        _guard_band(L, name)
        state = _state(L, alg)
        out = np.empty(n, dtype=np.float32)
        st = LIB.lumrSHTInv_32f_C1(c.ctypes.data, L, x.ctypes.data, y.ctypes.data,
                                   z.ctypes.data, out.ctypes.data, n32, state.ctypes.data)
        check(st, name)
        return out
    name = "lumrSHTInv_32f_P3" if planar else "lumrSHTInv_32f_P3C3"
    _guard_band(L, name)
    state = _state(L, alg)
    cp = LumPlanes3(c[0].ctypes.data, c[1].ctypes.data, c[2].ctypes.data)
    if planar:
        out = np.empty((3, n), dtype=np.float32)
        op = LumPlanes3(out[0].ctypes.data, out[1].ctypes.data, out[2].ctypes.data)
        dst = C.addressof(op)
    else:
        out = np.empty((n, 3), dtype=np.float32)
        dst = out.ctypes.data
    st = getattr(LIB, name)(C.addressof(cp), L, x.ctypes.data, y.ctypes.data, z.ctypes.data,
                            dst, n32, state.ctypes.data)
    check(st, name)
    return out
