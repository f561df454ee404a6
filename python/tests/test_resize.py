"""Resize against scipy.ndimage.zoom and against itself across layouts."""

import numpy as np
import pytest
import scipy.ndimage as ndi

import lumr
from lumr import _arrays as A
from conftest import needs

pytestmark = needs("resize")

CODES = ["nearest", "linear", "lagrange", "bspline", "catmullrom", "mitchell"]


def _vol(rng, shape=(16, 20, 24), dtype=np.float32, hi=200):
    v = rng.uniform(0, hi, shape)
    return v.astype(dtype) if dtype == np.float32 else np.rint(v).astype(dtype)


def test_linear_and_bspline_match_zoom_with_grid_mode(rng):
    vol = _vol(rng)
    f = (2.0, 1.5, 0.5)
    for code, kw in (("linear", dict(order=1)), ("bspline", dict(order=3, prefilter=False))):
        got = lumr.resize(vol, f, interpolation=code)
        ref = ndi.zoom(vol.astype(np.float64), f, mode="nearest", grid_mode=True, **kw)
        assert got.shape == ref.shape == (32, 30, 12)
        np.testing.assert_allclose(got, ref, atol=2e-3, err_msg=code)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_nearest_matches_zoom_order0(rng, dtype):
    vol = _vol(rng, (7, 9, 11), dtype)
    for f in ((2, 3, 2), (3, 1, 2)):
        got = lumr.resize(vol, f, interpolation="nearest")
        assert got.dtype == dtype
        ref = ndi.zoom(vol, f, order=0, mode="nearest", grid_mode=True)
        np.testing.assert_array_equal(got, ref)


@pytest.mark.parametrize("code", CODES[2:])
@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_integer_cubic_is_the_float_result_converted(rng, code, dtype):
    # The integer forms compute in float32 like the float form and differ
    # only in the final conversion: truncation in the core, rounding with
    # trunc(v + 0.5000001) in the rim, saturation in both.
    hi = np.iinfo(dtype).max
    vol = _vol(rng, (12, 13, 14), dtype, hi)
    f = (1.7, 2.0, 0.8)
    got = lumr.resize(vol, f, interpolation=code).astype(np.int64)
    v = lumr.resize(vol.astype(np.float32), f, interpolation=code).astype(np.float64)
    core = np.clip(np.trunc(v.astype(np.float32)), 0, hi)
    rim = np.clip(np.trunc(v + 0.5000001), 0, hi)
    assert ((got == core) | (got == rim)).all()
    assert (got != core).any() and (got != rim).any()  # both conversions occur


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_integer_linear_within_the_rounding_chain_of_float(rng, dtype):
    # The rim rounds after each of three axes (at most 1.5 in all), the
    # 14-bit weights add at most 3 * 2^-14 of the sample range.
    vol = _vol(rng, (10, 12, 14), dtype, 250)
    f = (1.5, 2.5, 0.7)
    got = lumr.resize(vol, f).astype(np.float64)
    ref = lumr.resize(vol.astype(np.float32), f).astype(np.float64)
    assert np.abs(got - ref).max() <= 1.5 + 3 * 250 / 16384


def test_layouts_threads_and_views_give_identical_bits(rng, monkeypatch):
    vol = _vol(rng, (20, 24, 28))
    big = np.zeros((24, 30, 40), np.float32)
    big[2:22, 3:27, 5:33] = vol
    view = big[2:22, 3:27, 5:33]
    before = lumr.get_num_threads()
    for code in CODES:
        ref = lumr.resize(vol, 1.3, interpolation=code)
        np.testing.assert_array_equal(lumr.resize(view, 1.3, interpolation=code), ref)
        try:
            lumr.set_num_threads(1)
            one = lumr.resize(vol, 1.3, interpolation=code)
        finally:
            lumr.set_num_threads(before)
        np.testing.assert_array_equal(one, ref)
        with monkeypatch.context() as m:  # the plane-pointer entry points
            m.setattr(A.Strided, "span_fits_i32", lambda self: False)
            np.testing.assert_array_equal(lumr.resize(view, 1.3, interpolation=code), ref)
        # A view running backwards in y is copied first, so it resizes like
        # its contiguous copy.
        flip = vol[:, ::-1]
        np.testing.assert_array_equal(lumr.resize(flip, 1.3, interpolation=code),
                                      lumr.resize(flip.copy(), 1.3, interpolation=code))


def test_boxes_and_out(rng):
    vol = _vol(rng, (8, 8, 8))
    full = lumr.resize(vol, 2.0, interpolation="catmullrom")
    out = np.full((16, 16, 16), -1, np.float32)
    # Only the destination box is written, with the samples of the full result.
    res = lumr.resize(vol, 2.0, interpolation="catmullrom", out=out, dst_box=(2, 4, 6, 5, 6, 7))
    assert res is out
    np.testing.assert_array_equal(out[2:7, 4:10, 6:13], full[2:7, 4:10, 6:13])
    out[2:7, 4:10, 6:13] = -1
    assert (out == -1).all()
    with pytest.raises(ValueError):
        lumr.resize(vol, 2.0, out=out, dst_box=(10, 0, 0, 7, 16, 16))


def test_refusals_and_warnings(rng):
    vol = _vol(rng, (6, 6, 6))
    with pytest.raises(lumr.LumrError) as e:
        lumr.resize(vol, (1, 0, 1), interpolation=3)  # factor is checked first
    assert e.value.name == "lumStatusBadResizeFactor"
    assert e.value.function == "lumrResize_32f_C1V"
    with pytest.raises(lumr.LumrError) as e:
        lumr.resize(vol, 2, interpolation=3)
    assert e.value.name == "lumStatusBadInterpolation"
    with pytest.raises(lumr.LumrError) as e:
        lumr.resize(vol, 2, src_box=(0, 0, -1, 6, 6, 6))
    assert e.value.name == "lumStatusSize"
    with pytest.raises(ValueError):
        lumr.resize(vol, 2, interpolation="cubic")
    with pytest.warns(lumr.LumrWarning) as w:
        out = lumr.resize(vol, 2, src_box=(6, 0, 0, 2, 6, 6), cval=7)
    assert w[0].message.name == "lumWarnNoOverlap" and (out == 7).all()
    with pytest.warns(lumr.LumrWarning) as w:
        out = lumr.resize(vol, 2, shifts=(0, 0, 100))
    assert w[0].message.name == "lumWarnEmptyResult" and (out == 0).all()
