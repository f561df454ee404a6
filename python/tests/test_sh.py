"""Spherical harmonics against scipy.special.sph_harm and across layouts."""
import numpy as np
import pytest
from scipy.special import sph_harm

import lumr
from conftest import needs

pytestmark = needs("sh")


def _dirs(rng, n):
    d = rng.normal(size=(n, 3))
    return (d / np.linalg.norm(d, axis=1, keepdims=True)).astype(np.float32)


def _scipy_real(d, L):
    x, y, z = (d[:, i].astype(np.float64) for i in range(3))
    polar, azim = np.arccos(np.clip(z, -1, 1)), np.arctan2(y, x)
    out = np.zeros((d.shape[0], (L + 1) ** 2))
    for l in range(L + 1):
        out[:, l * l + l] = sph_harm(0, l, azim, polar).real
        for m in range(1, l + 1):
            c = sph_harm(m, l, azim, polar)
            out[:, l * l + l + m] = np.sqrt(2) * c.real
            out[:, l * l + l - m] = np.sqrt(2) * c.imag
    return out


def test_known_values_and_order():
    d = np.array([[0, 0, 1], [1, 0, 0], [0, 1, 0]], np.float32)
    b = lumr.sh_basis(d, 2)
    assert b.shape == (3, 9) and b.dtype == np.float32
    np.testing.assert_allclose(b[0, :4], [0.28209479, 0, 0.48860252, 0], atol=1e-7)
    np.testing.assert_allclose(b[1], [0.28209479, 0, 0, -0.48860252, 0, 0, -0.31539157, 0,
                                      0.54627424], atol=1e-7)
    np.testing.assert_allclose(b[2], [0.28209479, -0.48860252, 0, 0, 0, 0, -0.31539157, 0,
                                      -0.54627424], atol=1e-7)


@pytest.mark.parametrize("algorithm", ["closed", "recurrence"])
def test_basis_matches_scipy(rng, algorithm):
    d = _dirs(rng, 200)
    b = lumr.sh_basis(d, 8, algorithm=algorithm)
    np.testing.assert_allclose(b, _scipy_real(d, 8), atol=3e-5)
    xyz = tuple(np.ascontiguousarray(d[:, i]) for i in range(3))
    np.testing.assert_array_equal(lumr.sh_basis(xyz, 8, algorithm=algorithm), b)


def test_single_band_is_the_closed_form_block(rng):
    d = _dirs(rng, 33)
    full = lumr.sh_basis(d, 15)
    for L in (0, 3, 15):
        np.testing.assert_array_equal(lumr.sh_basis(d, L, single_band=True),
                                      full[:, L * L:(L + 1) ** 2])


def test_project_and_reconstruct_layouts(rng):
    d = _dirs(rng, 300)
    s3 = rng.uniform(-1, 1, (300, 3)).astype(np.float32)
    L = 4
    c1 = [lumr.sh_project(d, np.ascontiguousarray(s3[:, k]), L) for k in range(3)]
    ref = lumr.sh_basis(d, L).astype(np.float64).T @ s3.astype(np.float64)
    np.testing.assert_allclose(np.array(c1), ref.T, atol=1e-4)
    inter = lumr.sh_project(d, s3, L)                 # (N, 3) interleaved samples
    planar = lumr.sh_project(d, tuple(np.ascontiguousarray(s3[:, k]) for k in range(3)), L)
    np.testing.assert_array_equal(inter, np.array(c1))
    np.testing.assert_array_equal(planar, np.array(c1))
    # Accumulation: two calls over halves give the bits of one call.
    acc = lumr.sh_project(d[:120], s3[:120], L)
    lumr.sh_project(d[120:], s3[120:], L, coeffs=acc)
    np.testing.assert_array_equal(acc, inter)

    back = lumr.sh_reconstruct(inter, d)
    assert back.shape == (300, 3)
    np.testing.assert_array_equal(lumr.sh_reconstruct(inter, d, planar=True), back.T)
    for k in range(3):
        np.testing.assert_array_equal(lumr.sh_reconstruct(inter[k].copy(), d), back[:, k])
    np.testing.assert_allclose(back, lumr.sh_basis(d, L).astype(np.float64) @ inter.T.astype(
        np.float64), atol=1e-4)


def test_refusals(rng):
    d = _dirs(rng, 4)
    with pytest.raises(lumr.LumrError) as e:
        lumr.sh_basis(d, 16)
    assert (e.value.name, e.value.function) == ("lumStatusSize", "lumrSHGetSize_32f")
    with pytest.raises(lumr.LumrError) as e:
        lumr.sh_basis(d, 16, algorithm="recurrence")
    assert e.value.name == "lumStatusBadBand"
    with pytest.raises(lumr.LumrError) as e:
        lumr.sh_project(d, np.ones(4, np.float32), 16, algorithm="recurrence")
    assert e.value.name == "lumStatusBadBand"
    with pytest.raises(lumr.LumrError) as e:
        lumr.sh_basis(np.zeros((0, 3), np.float32), 2)
    assert e.value.name == "lumStatusSize"
    with pytest.raises(ValueError):
        lumr.sh_reconstruct(np.zeros(5, np.float32), d)
