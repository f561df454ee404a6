"""The int16 filter against scipy.ndimage.convolve and an independent model."""
import numpy as np
import pytest
import scipy.ndimage as ndi

import lumr
from conftest import needs

pytestmark = needs("filter")


def _model(vol, kernel, anchor, mode_np, cval=0):
    """sum K[k,j,i] * ext[z + az - k, y + ay - j, x + ax - i] in int64, by
    shifting slices of the padded volume (no convolution routine)."""
    k = np.asarray(kernel, np.int64)
    pad = [(e - 1 - a, a) for e, a in zip(k.shape, anchor)]
    extra = {"constant_values": cval} if mode_np == "constant" else {}
    ext = np.pad(vol.astype(np.int64), pad, mode=mode_np, **extra)
    D, H, W = vol.shape
    acc = np.zeros(vol.shape, np.int64)
    kd, kh, kw = k.shape
    for kz in range(kd):
        for ky in range(kh):
            for kx in range(kw):
                oz, oy, ox = kd - 1 - kz, kh - 1 - ky, kw - 1 - kx
                acc += k[kz, ky, kx] * ext[oz:oz + D, oy:oy + H, ox:ox + W]
    return acc


def _round_div(acc, d):
    return np.clip(np.round(acc / d), -32768, 32767).astype(np.int16)


@pytest.mark.parametrize("kshape", [(3, 3, 3), (5, 5, 5), (3, 5, 7), (1, 1, 1)])
@pytest.mark.parametrize("width", [9, 24])  # scalar path below 16, vector path from 16
def test_matches_scipy_convolve(rng, kshape, width):
    vol = rng.integers(-3000, 3000, (11, 13, width)).astype(np.int16)
    k = rng.integers(-20, 21, kshape)
    for mode in ("reflect", "mirror", "nearest", "wrap", "constant"):
        ref = ndi.convolve(vol.astype(np.int64), k, mode=mode, cval=7)
        got = lumr.filter(vol, k, mode=mode, cval=7)
        np.testing.assert_array_equal(got, np.clip(ref, -32768, 32767), err_msg=mode)
    for d in (2, 8):  # power-of-two divisors: exact shift, halves to even
        ref = ndi.convolve(vol.astype(np.int64), k, mode="nearest")
        np.testing.assert_array_equal(lumr.filter(vol, k, divisor=d, mode="nearest"),
                                      _round_div(ref, d))


def test_other_divisors_scalar_exact_vector_within_one(rng):
    k = rng.integers(-9, 10, (3, 3, 3))
    for width, tol in ((10, 0), (32, 1)):
        vol = rng.integers(-30000, 30000, (6, 7, width)).astype(np.int16)
        ref = ndi.convolve(vol.astype(np.int64), k, mode="reflect")
        for d in (3, -2, -7, 1000):
            got = lumr.filter(vol, k, divisor=d).astype(np.int64)
            diff = np.abs(got - _round_div(ref, d))
            assert diff.max() <= tol, (width, d, diff.max())


def test_anchor_orientation_and_valid_mode(rng):
    vol = rng.integers(-500, 500, (8, 9, 20)).astype(np.int16)
    k = rng.integers(-5, 6, (2, 3, 4))  # even extents: no centre
    for anchor in [(0, 0, 0), (1, 2, 3), (1, 0, 2)]:
        got = lumr.filter(vol, k, anchor=anchor, mode="wrap")
        np.testing.assert_array_equal(got, _model(vol, k, anchor, "wrap"))
    # 'valid' reads in place and gives the samples no border touches.
    valid = lumr.filter(vol, k, mode="valid")
    assert valid.shape == (7, 7, 17)
    # With the anchor on the kernel's last element, output x reads x .. x + 3.
    full = _model(vol, k, (1, 2, 3), "constant")
    np.testing.assert_array_equal(valid, full[:7, :7, :17])
    with pytest.raises(ValueError):
        lumr.filter(vol, k, anchor=(0, 3, 0))  # outside the kernel


def test_strided_views_and_out_in_place(rng):
    big = rng.integers(-1000, 1000, (12, 30, 40)).astype(np.int16)
    view = big[10:1:-2, 3:27, 5:37]  # backwards in z, every other plane
    k = rng.integers(-4, 5, (3, 3, 3))
    ref = lumr.filter(np.ascontiguousarray(view), k)
    canvas = np.full((7, 30, 50), 99, np.int16)
    target = canvas[1:6, 2:26, 10:42]
    res = lumr.filter(view, k, out=target)
    assert res is target
    np.testing.assert_array_equal(target, ref)
    canvas[1:6, 2:26, 10:42] = 99
    assert (canvas == 99).all()  # nothing outside the target was touched


def test_saturation_and_large_kernel_elements(rng):
    vol = np.full((4, 4, 20), 30000, np.int16)
    vol[:, :, ::2] = -30000
    k = np.zeros((3, 3, 3), int)
    k[1, 1, :] = [32767, 0, 1]  # element 32767: scalar path
    got = lumr.filter(vol, k, mode="nearest")
    ref = _model(vol, k, (1, 1, 1), "edge")
    np.testing.assert_array_equal(got, np.clip(ref, -32768, 32767))
    assert got.min() == -32768 and got.max() == 32767
