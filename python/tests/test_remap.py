"""Remap and affine warp against scipy.ndimage.map_coordinates and
affine_transform."""
import numpy as np
import pytest
import scipy.ndimage as ndi

import lumr
from conftest import needs


def _vol(rng, shape, dtype=np.float32, hi=200):
    v = rng.uniform(0, hi, shape)
    return v.astype(dtype) if dtype == np.float32 else np.rint(v).astype(dtype)


def _coords(rng, shape, out_shape, margin=0.0):
    c = np.empty((3,) + out_shape, np.float32)
    for a in range(3):
        c[a] = rng.uniform(margin, shape[a] - 1 - margin, out_shape)
    return c


@needs("remap")
def test_remap_linear_matches_map_coordinates(rng):
    vol = _vol(rng, (12, 14, 16))
    c = _coords(rng, vol.shape, (5, 6, 7))
    got = lumr.remap(vol, c)
    ref = ndi.map_coordinates(vol.astype(np.float64), c.astype(np.float64), order=1)
    np.testing.assert_allclose(got, ref, atol=1e-3)
    # Integer samples: the float32 result rounded half to even.
    for dtype in (np.uint8, np.uint16):
        vi = _vol(rng, vol.shape, dtype, 250)
        gi = lumr.remap(vi, c)
        assert gi.dtype == dtype
        rf = lumr.remap(vi.astype(np.float32), c)
        np.testing.assert_array_equal(gi, np.rint(rf).astype(dtype))
        ri = ndi.map_coordinates(vi.astype(np.float64), c.astype(np.float64), order=1)
        assert np.abs(gi - ri).max() <= 1.0


@needs("remap")
def test_remap_nearest_rounds_half_to_even(rng):
    vol = _vol(rng, (6, 7, 8), np.uint16, 60000)
    c = _coords(rng, vol.shape, (4, 5, 6))
    c[2, 0, 0, :4] = [0.5, 1.5, 2.5, 3.5]  # x ties
    got = lumr.remap(vol, c, interpolation="nearest")
    iz, iy, ix = (np.rint(c[a]).astype(int) for a in range(3))
    np.testing.assert_array_equal(got, vol[iz, iy, ix])
    np.testing.assert_array_equal(got[0, 0, :4], vol[iz[0, 0, :4], iy[0, 0, :4], [0, 2, 2, 4]])


@needs("remap")
def test_remap_bspline_interior_and_float_border(rng):
    vol = _vol(rng, (10, 11, 12))
    c = _coords(rng, vol.shape, (4, 5, 6), margin=1.05)  # no border taps
    got = lumr.remap(vol, c, interpolation="bspline")
    ref = ndi.map_coordinates(vol.astype(np.float64), c.astype(np.float64), order=3,
                              prefilter=False, mode="nearest")
    np.testing.assert_allclose(got, ref, atol=2e-2)
    # Near a face, float32 cubic samples come out truncated to integers.
    c[2] = rng.uniform(0.0, 0.9, c.shape[1:])
    edge = lumr.remap(vol, c, interpolation="catmullrom")
    assert (edge == np.trunc(edge)).all()


@needs("remap")
def test_remap_leaves_outside_samples_and_warns(rng):
    vol = _vol(rng, (8, 8, 8))
    c = _coords(rng, vol.shape, (16, 16, 16))
    c[2, :, :, ::3] = -1.0   # left of the volume
    box = (0, 0, 0, 8, 8, 6)  # x in 0..5 may be read
    inside = (c[2] >= 0) & (c[2] <= 5)
    out = lumr.remap(vol, c, src_box=box, cval=-7)
    assert (out[~inside] == -7).all() and (out[inside] != -7).all()
    before = lumr.get_num_threads()
    try:
        lumr.set_num_threads(1)
        one = lumr.remap(vol, c, src_box=box, cval=-7, interpolation="mitchell")
    finally:
        lumr.set_num_threads(before)
    np.testing.assert_array_equal(one, lumr.remap(vol, c, src_box=box, cval=-7,
                                                  interpolation="mitchell"))
    with pytest.warns(lumr.LumrWarning) as w:
        lumr.remap(vol, c, src_box=(0, 8, 0, 1, 1, 1))
    assert w[0].message.name == "lumWarnNoOverlap"
    with pytest.raises(lumr.LumrError) as e:
        lumr.remap(vol, c, interpolation=0)
    assert e.value.name == "lumStatusBadInterpolation"
    with pytest.raises(TypeError):
        lumr.remap(vol, c.astype(np.float64))
    c[1, 3, 4, 5] = np.nan
    with pytest.raises(ValueError):
        lumr.remap(vol, c)


@needs("remap")
def test_remap_box_one_sample_wide_at_zero(rng):
    # Linear sampling reads sample -1 there with weight zero; the result is
    # the face x = 0 (or plane z = 0) interpolated on the other axes.
    vol = _vol(rng, (6, 7, 8))
    c = _coords(rng, vol.shape, (3, 4, 5))
    c[2] = 0.0
    got = lumr.remap(vol, c, src_box=(0, 0, 0, 6, 7, 1))
    ref = ndi.map_coordinates(vol.astype(np.float64), c.astype(np.float64), order=1)
    np.testing.assert_allclose(got, ref, atol=1e-3)
    c = _coords(rng, vol.shape, (3, 4, 5))
    c[0] = 0.0
    got = lumr.warp_affine(vol, np.eye(4), out_shape=(2, 7, 8), src_box=(0, 0, 0, 1, 7, 8))
    np.testing.assert_array_equal(got[0], vol[0])
    assert (got[1] == 0).all()


@needs("warp_affine")
def test_warp_matches_affine_transform(rng):
    vol = _vol(rng, (12, 14, 16))
    # Forward map in (z, y, x) order: anisotropic scaling, a shear, a shift.
    m = np.array([[1.2, 0.0, 0.1, -1.0],
                  [0.0, 0.9, 0.0, 2.0],
                  [0.2, 0.0, 1.1, 0.5]])
    out_shape = (13, 15, 17)
    got = lumr.warp_affine(vol, m, out_shape, cval=np.nan)
    inv = np.linalg.inv(np.vstack([m, [0, 0, 0, 1]]))
    ref = ndi.affine_transform(vol.astype(np.float64), inv, output_shape=out_shape, order=1,
                               mode="constant", cval=np.nan)
    pos = np.tensordot(inv[:3, :3], np.indices(out_shape), 1) + inv[:3, 3, None, None, None]
    inside = np.all((pos >= 1e-3) & (pos <= np.array(vol.shape)[:, None, None, None] - 1.001),
                    axis=0)
    assert inside.sum() > 500
    np.testing.assert_allclose(got[inside], ref[inside], atol=1e-3)
    outside = np.any((pos < -1e-3) | (pos > np.array(vol.shape)[:, None, None, None] - 0.999),
                     axis=0)
    assert np.isnan(got[outside]).all()


@needs("warp_affine")
def test_warp_identity_box_and_refusals(rng):
    vol = _vol(rng, (9, 10, 11), np.uint8, 255)
    eye = np.eye(4)
    np.testing.assert_array_equal(lumr.warp_affine(vol, eye, interpolation="nearest"), vol)
    np.testing.assert_array_equal(lumr.warp_affine(vol, eye, interpolation="lagrange"), vol)
    out = np.zeros_like(vol)
    lumr.warp_affine(vol, eye, out=out, dst_box=(1, 2, 3, 4, 5, 6))
    np.testing.assert_array_equal(out[1:5, 2:7, 3:9], vol[1:5, 2:7, 3:9])
    out[1:5, 2:7, 3:9] = 0
    assert not out.any()
    for m, name in ((np.zeros((3, 4)), "lumStatusBadCoeffs"),
                    (np.diag([1e-4, 1e-4, 1e-4, 1]), "lumStatusBadCoeffs")):
        with pytest.raises(lumr.LumrError) as e:
            lumr.warp_affine(vol, m)
        assert e.value.name == name
    # Equal z and y rows are refused before the interpolation is looked at.
    m = np.array([[1.0, 2.0, 3.0, 0], [1.0, 2.0, 3.0, 0], [0, 0, 1, 0]])
    with pytest.raises(lumr.LumrError) as e:
        lumr.warp_affine(vol, m, interpolation=3)
    assert e.value.name == "lumStatusBadCoeffs"
