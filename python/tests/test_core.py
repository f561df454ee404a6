"""Loading, statuses, warnings, dtype dispatch and array layout handling."""
import ctypes as C
import os
import subprocess
import sys

import numpy as np
import pytest

import lumr
from conftest import needs
from lumr import _arrays as A
from lumr._lib import check


def test_status_names_and_exception_fields():
    # Every status the library can return maps to its own name.
    expected = {40: "lumWarnNoOverlap", 1: "lumWarnEmptyResult", -2: "lumStatusInternal",
                -4: "lumStatusNoMem", -5: "lumStatusBadArg", -6: "lumStatusSize",
                -7: "lumStatusBadBand", -8: "lumStatusNullPtr", -9: "lumStatusPoolExhausted",
                -11: "lumStatusBadBuildParam", -22: "lumStatusBadInterpolation",
                -23: "lumStatusBadResizeFactor", -53: "lumStatusBadChannels",
                -56: "lumStatusBadCoeffs"}
    for value, name in expected.items():
        assert lumr.status_name(value) == name
    assert check(0, "f") == 0
    with pytest.raises(lumr.LumrError) as e:
        check(-23, "lumrResize_8u_C1V")
    assert (e.value.status, e.value.name, e.value.function) == (
        -23, "lumStatusBadResizeFactor", "lumrResize_8u_C1V")
    assert "lumStatusBadResizeFactor" in str(e.value)
    for value in (1, 40):
        with pytest.warns(lumr.LumrWarning) as w:
            assert check(value, "g") == value
        assert w[0].message.status == value and w[0].message.name == expected[value]


@needs("filter")
def test_library_statuses_reach_python():
    vol = np.zeros((4, 20, 20), np.int16)
    with pytest.raises(lumr.LumrError) as e:
        lumr.filter(vol, np.ones((3, 3, 3), int), divisor=0)
    assert e.value.name == "lumStatusSize" and e.value.function == "lumrFilter_16s_C1PV"
    with pytest.raises(lumr.LumrError) as e:
        lumr.set_num_threads(0)
    assert e.value.name == "lumStatusSize"


def test_threads_and_version():
    before = lumr.get_num_threads()
    try:
        lumr.set_num_threads(3)
        assert lumr.get_num_threads() == 3
    finally:
        lumr.set_num_threads(before)
    v = lumr.version()
    assert (v["major"], v["minor"], v["cpu"]) == (6, 1, "e9")


def test_strided_inputs_are_not_copied():
    base = np.zeros((10, 12, 16), np.int16)
    for view in (base, base[2:8, 1:11, 3:15], base[::-1], base[:, ::-2], base.transpose(1, 0, 2)):
        s = A.volume_in(view, "v", (np.dtype(np.int16),))
        assert s.array is view
        assert (s.row_step, s.plane_step) == (view.strides[1], view.strides[0])
        planes = s.planes()
        for z in (0, view.shape[0] - 1):
            assert planes[z] == view[z].ctypes.data
    # Deep volumes take the array form of the plane table.
    deep = np.zeros((70, 2, 4), np.int16)[::-1]
    planes = C.cast(A.volume_in(deep, "v", (np.dtype(np.int16),)).planes(),
                    C.POINTER(C.c_void_p))
    assert [planes[z] for z in (0, 69)] == [deep[0].ctypes.data, deep[69].ctypes.data]
    # Only a non-unit x stride costs a copy, and only for inputs.
    s = A.volume_in(base[:, :, ::2], "v", (np.dtype(np.int16),))
    assert s.array is not base and s.array.flags.c_contiguous
    with pytest.raises(ValueError):
        A.volume_out(base[:, :, ::2], "out", np.int16)
    ro = base.copy()
    ro.flags.writeable = False
    with pytest.raises(ValueError):
        A.volume_out(ro, "out", np.int16)


def test_dtype_is_never_converted():
    with pytest.raises(TypeError):
        lumr.filter(np.zeros((5, 5, 5), np.float32), np.ones((3, 3, 3), int))
    with pytest.raises(TypeError):
        lumr.filter(np.zeros((5, 5, 5), np.int16), np.full((3, 3, 3), 0.5))
    with pytest.raises(TypeError):
        lumr.filter(np.zeros((5, 5, 5), np.int16), np.ones((3, 3, 3), int),
                    out=np.zeros((5, 5, 5), np.int32))


def _import_in(env_dir):
    env = dict(os.environ)
    env["LUMR_LIBRARY_DIR"] = env_dir
    pkg = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir)
    return subprocess.run([sys.executable, "-c", "import lumr; print(lumr.library_path())"],
                          env=env, cwd=pkg, capture_output=True, text=True)


def test_explicit_library_dir_is_obeyed():
    here = os.path.dirname(lumr.library_path())
    ok = _import_in(here)
    assert ok.returncode == 0 and ok.stdout.strip() == lumr.library_path()
    bad = _import_in("/nonexistent/lumr")
    assert bad.returncode != 0 and "LUMR_LIBRARY_DIR=/nonexistent/lumr" in bad.stderr
