"""lumr from Python: numpy arrays in, numpy arrays out, over the shared
objects ``liblumre9-6.1.so`` and ``liblumcore64-6.1.so`` through ctypes.

Volumes are indexed ``vol[z, y, x]`` (C order: x fastest) and every per-axis
argument is given in (z, y, x) order.  Sample types are dispatched by dtype
(uint8, uint16, float32; int16 for :func:`filter`) and never converted.
Strided arrays are read in place through the library's row and plane steps;
the few copies the package makes are stated where they happen.  Refusals
raise :class:`LumrError` with the library's status name; the two warning
statuses emit :class:`LumrWarning`.

Functions: :func:`resize`, :func:`remap`, :func:`warp_affine`,
:func:`filter`, :func:`sh_basis`, :func:`sh_project`, :func:`sh_reconstruct`,
:class:`Scene` (``intersect``, ``intersect_all``, ``occluded``),
:func:`set_num_threads`, :func:`get_num_threads`, :func:`version`.

Where the libraries are found: see ``lumr._lib`` (``LUMR_LIBRARY_DIR``, then
the installed tree, then a source tree's ``build/``, then the system loader).
"""
from ._lib import LIB as _LIB
from ._lib import (STATUS, LumrError, LumrUnavailableError, LumrWarning, check as _check,
                   status_name)
from .scene import Hits, Scene
from .sh import sh_basis, sh_project, sh_reconstruct
from .volume import INTERPOLATION, filter, remap, resize, warp_affine

# ``filter`` stays out of __all__ so that ``from lumr import *`` does not
# shadow the builtin; call it as ``lumr.filter``.
__all__ = ["resize", "remap", "warp_affine", "sh_basis", "sh_project",
           "sh_reconstruct", "Scene", "Hits", "set_num_threads", "get_num_threads",
           "version", "available", "library_path", "LumrError", "LumrWarning",
           "LumrUnavailableError", "STATUS", "status_name", "INTERPOLATION"]

_FAMILIES = {
    "filter": "lumrFilter_16s_C1PV",
    "resize": "lumrResize_32f_C1V",
    "remap": "lumrRemap_32f_C1PV",
    "warp_affine": "lumrWarpAffine_32f_C1PV",
    "sh": "lumrSH_32f",
    "scene": "lumrIntersectMO_32f",
}


def set_num_threads(n):
    """Set the one thread count that every lumr primitive obeys (>= 1).

    Results do not depend on it (but see :func:`warp_affine`).  Until it is
    set, the count follows OpenMP's maximum (``OMP_NUM_THREADS``)."""
    _check(_LIB.lumSetNumThreads(int(n)), "lumSetNumThreads")


def get_num_threads():
    """The thread count the library currently uses."""
    return int(_LIB.lumGetNumThreads())


def version():
    """The library's version record as a dict."""
    v = _LIB.lumrGetLibVersion().contents
    return {"major": v.versionMajor, "minor": v.versionMinor, "build": v.buildMajor,
            "number": v.buildNumber, "cpu": v.cpuTag.decode(), "text": v.versionText.decode(),
            "date": v.dateText.decode()}


def available(family):
    """Whether the loaded library exports a family: 'filter', 'resize',
    'remap', 'warp_affine', 'sh' or 'scene'."""
    return _LIB.has(_FAMILIES[family])


def library_path():
    """The path (or bare name, for the system loader) of the loaded library."""
    return _LIB.path
