"""Loading the shared objects, the C prototypes, statuses and their exceptions.

Where the libraries are looked for, first match wins:

1. ``LUMR_LIBRARY_DIR`` (one directory, or several joined by ``os.pathsep``).
   When it is set, nothing else is tried: an explicit choice that does not
   hold is reported, not papered over.
2. The library directory of an installed tree, relative to this package
   (``_libdir.py``, written at install time).
3. ``../../build`` from this package: the build directory of a source tree,
   so ``PYTHONPATH=python`` works right after ``make build``.
4. The system loader (``ld.so.conf``, ``LD_LIBRARY_PATH``).

The core library (memory, thread count) is loaded first with ``RTLD_GLOBAL``
from the same place, so the main library's dependency resolves to that very
file whatever its own run path says.
"""
import ctypes as C
import os
import warnings

LIBRARY_NAME = "liblumre9-6.1.so"
CORE_NAME = "liblumcore64-6.1.so"

# ---- Statuses --------------------------------------------------------------
#: value -> (name, meaning)
STATUS = {
    40: ("lumWarnNoOverlap", "the source region starts outside the source volume; nothing written"),
    1: ("lumWarnEmptyResult", "the mapped destination region is empty; nothing written"),
    0: ("lumStatusOk", "success"),
    -2: ("lumStatusInternal", "the SAH subdivision disagrees with its split search"),
    -4: ("lumStatusNoMem", "memory could not be obtained, or the memory limit is below 32 MiB"),
    -5: ("lumStatusBadArg", "unknown build tag, or a build not available in this library"),
    -6: ("lumStatusSize", "a size, count, region or divisor is out of range"),
    -7: ("lumStatusBadBand", "band above what the call can serve, or unknown SH algorithm"),
    -8: ("lumStatusNullPtr", "a required pointer is null"),
    -9: ("lumStatusPoolExhausted", "the SAH build used up the memory limit"),
    -11: ("lumStatusBadBuildParam", "maxDepth outside 0..50 or splitQuality outside 0..1"),
    -22: ("lumStatusBadInterpolation", "interpolation code not one of 1, 2, 4, 5, 6, 7"),
    -23: ("lumStatusBadResizeFactor", "a resize factor is not greater than zero"),
    -53: ("lumStatusBadChannels", "the channel count is not 1"),
    -56: ("lumStatusBadCoeffs", "the affine matrix is degenerate"),
}


def status_name(status):
    """The library's name of a status value, e.g. ``-6 -> 'lumStatusSize'``."""
    return STATUS.get(status, ("lumStatus(%d)" % status, ""))[0]


class LumrError(Exception):
    """A lumr function refused its arguments (a negative status).

    Attributes: ``status`` (int), ``name`` (the library's status name, e.g.
    ``'lumStatusBadResizeFactor'``) and ``function`` (the C entry point).
    Nothing was written to any output.
    """

    def __init__(self, status, function):
        self.status = int(status)
        self.name = status_name(self.status)
        self.function = function
        meaning = STATUS.get(self.status, ("", "unknown status"))[1]
        super().__init__("%s: %s (%d): %s" % (function, self.name, self.status, meaning))


class LumrWarning(UserWarning):
    """A lumr function returned a warning status (``lumWarnNoOverlap`` 40 or
    ``lumWarnEmptyResult`` 1): the call did nothing and the output holds what
    it held before (zeros, or ``cval``, for an output the package allocated).
    """

    def __init__(self, status, function):
        self.status = int(status)
        self.name = status_name(self.status)
        self.function = function
        meaning = STATUS.get(self.status, ("", ""))[1]
        super().__init__("%s: %s (%d): %s" % (function, self.name, self.status, meaning))


class LumrUnavailableError(NotImplementedError):
    """The loaded library lacks the entry point (an older or partial build)."""


def check(status, function, stacklevel=3):
    """Turn a status into an exception (negative) or a warning (positive)."""
    if status == 0:
        return 0
    if status < 0:
        raise LumrError(status, function)
    warnings.warn(LumrWarning(status, function), stacklevel=stacklevel)
    return status


# ---- Records -----------------------------------------------------------------
class LumVolume(C.Structure):
    _fields_ = [("width", C.c_int32), ("height", C.c_int32), ("depth", C.c_int32)]


class LumBox(C.Structure):
    _fields_ = [("x", C.c_int32), ("y", C.c_int32), ("z", C.c_int32),
                ("width", C.c_int32), ("height", C.c_int32), ("depth", C.c_int32)]


class LumPoint3D(C.Structure):
    _fields_ = [("x", C.c_int32), ("y", C.c_int32), ("z", C.c_int32)]


class LumRect2D(C.Structure):
    _fields_ = [("width", C.c_int32), ("height", C.c_int32)]


class LumPlanes3(C.Structure):
    _fields_ = [("X", C.c_void_p), ("Y", C.c_void_p), ("Z", C.c_void_p)]


class LumKDTreeBuildParams(C.Structure):
    _fields_ = [("tag", C.c_uint32), ("maxDepth", C.c_int32), ("splitQuality", C.c_float),
                ("memoryLimitMB", C.c_int32), ("pClipBox", C.c_void_p)]


class LumRayScene(C.Structure):
    _fields_ = [("pBound", C.c_void_p), ("pAccel", C.c_void_p), ("pRoot", C.c_void_p)]


class LumLibVersion(C.Structure):
    _fields_ = [("versionMajor", C.c_int32), ("versionMinor", C.c_int32),
                ("buildMajor", C.c_int32), ("buildNumber", C.c_int32),
                ("cpuTag", C.c_char * 4), ("fileName", C.c_char_p),
                ("versionText", C.c_char_p), ("dateText", C.c_char_p)]


# ---- Prototypes ----------------------------------------------------------------
# Pointers go as c_void_p so that plain integer addresses (ndarray.ctypes.data)
# pass without conversion; records go by reference.
_p = C.c_void_p
_i = C.c_int32
_u = C.c_uint32
_d = C.c_double
_f = C.c_float
_s = C.c_int32  # LumStatus

_RESIZE_V = [_p, _p, _i, _i, _p, _p, _i, _i, _p, _d, _d, _d, _d, _d, _d, _i, _p]
_RESIZE_PV = [_p, _p, _i, _p, _p, _i, _p, _d, _d, _d, _d, _d, _d, _i, _p]
_REMAP = [_p, _p, _i, _p, _p, _p, _p, _i, _p, _i, _p, _i]
_WARP = [_p, _p, _i, _p, _p, _i, _p, _p, _i]
_SH_FWD = [_p, _p, _p, _p, _i, _p, _u, _p]
_SH_INV = [_p, _u, _p, _p, _p, _p, _i, _p]

PROTOTYPES = {
    "lumrGetLibVersion": (C.POINTER(LumLibVersion), []),
    "lumrFilterGetBufSize": (_s, [_p, _p, _i, _p]),
    "lumrFilter_16s_C1PV": (_s, [_p, _i, _p, _i, _p, _p, _p, _p, _i, _p]),
    "lumrResizeGetBufSize": (_s, [_p, _p, _i, _i, _p]),
    "lumrResize_8u_C1V": (_s, _RESIZE_V),
    "lumrResize_16u_C1V": (_s, _RESIZE_V),
    "lumrResize_32f_C1V": (_s, _RESIZE_V),
    "lumrResize_8u_C1PV": (_s, _RESIZE_PV),
    "lumrResize_16u_C1PV": (_s, _RESIZE_PV),
    "lumrResize_32f_C1PV": (_s, _RESIZE_PV),
    "lumrRemap_8u_C1PV": (_s, _REMAP),
    "lumrRemap_16u_C1PV": (_s, _REMAP),
    "lumrRemap_32f_C1PV": (_s, _REMAP),
    "lumrWarpAffineGetBufSize": (_s, [_p, _p, _i, _i, _p]),
    "lumrWarpAffine_8u_C1PV": (_s, _WARP),
    "lumrWarpAffine_16u_C1PV": (_s, _WARP),
    "lumrWarpAffine_32f_C1PV": (_s, _WARP),
    "lumrSHGetSize_32f": (_s, [_u, _u, _p]),
    "lumrSHInit_32f": (_s, [_p, _u, _u]),
    "lumrSH_32f": (_s, [_p, _p, _p, _i, _p, _u, _p]),
    "lumrSHBand_32f": (_s, [_p, _p, _p, _i, _p, _u]),
    "lumrSHTFwd_32f_C1I": (_s, _SH_FWD),
    "lumrSHTFwd_32f_C3P3I": (_s, _SH_FWD),
    "lumrSHTFwd_32f_P3I": (_s, _SH_FWD),
    "lumrSHTInv_32f_C1": (_s, _SH_INV),
    "lumrSHTInv_32f_P3": (_s, _SH_INV),
    "lumrSHTInv_32f_P3C3": (_s, _SH_INV),
    "lumrSetBoundBox_32f": (_s, [_p, _i, _p]),
    "lumrTriangleAccelGetSize": (_s, [_p]),
    "lumrTriangleAccelInit": (_s, [_p, _p, _p, _i]),
    "lumrKDTreeBuildAlloc": (_s, [_p, _p, _p, _i, _i, _p, _p]),
    "lumrKDTreeFree": (None, [_p]),
    "lumrIntersectMO_32f": (_s, [_p, _p, _p, _p, _p, _p, LumRect2D]),
    "lumrIntersectEyeSO_32f": (_s, [_p, _p, _p, _p, _p, _p, LumRect2D]),
    "lumrIntersectMultipleSO_32f": (_s, [_p, _p, _p, _p, _p, _p, _p]),
    "lumrIntersectAnySO_32f": (_s, [_p, _p, _p, _p, LumRect2D, _p]),
}

CORE_PROTOTYPES = {
    "lumSetNumThreads": (_s, [_i]),
    "lumGetNumThreads": (_i, []),
}


class _Missing:
    """Stands in for an entry point that the loaded library does not export."""

    def __init__(self, name, path):
        self.name, self.path = name, path

    def __call__(self, *args):
        raise LumrUnavailableError("%s is not exported by %s" % (self.name, self.path))


class Library:
    """The two loaded shared objects with every known prototype attached."""

    def __init__(self, directory):
        self.directory = directory
        core_path = os.path.join(directory, CORE_NAME) if directory else CORE_NAME
        lib_path = os.path.join(directory, LIBRARY_NAME) if directory else LIBRARY_NAME
        self.core = C.CDLL(core_path, mode=C.RTLD_GLOBAL)
        self.lib = C.CDLL(lib_path)
        self.path = lib_path
        self.missing = []
        for table, dll in ((PROTOTYPES, self.lib), (CORE_PROTOTYPES, self.core)):
            for name, (restype, argtypes) in table.items():
                try:
                    fn = getattr(dll, name)
                except AttributeError:
                    self.missing.append(name)
                    setattr(self, name, _Missing(name, lib_path))
                    continue
                fn.restype = restype
                fn.argtypes = argtypes
                setattr(self, name, fn)

    def has(self, name):
        return name not in self.missing


def _candidates():
    env = os.environ.get("LUMR_LIBRARY_DIR")
    if env:
        return [os.path.abspath(d) for d in env.split(os.pathsep) if d], True
    here = os.path.dirname(os.path.abspath(__file__))
    found = []
    try:
        from . import _libdir  # written by the install step
        found.append(os.path.normpath(os.path.join(here, _libdir.RELATIVE_LIBDIR)))
    except ImportError:
        pass
    found.append(os.path.normpath(os.path.join(here, os.pardir, os.pardir, "build")))
    found.append(None)  # the system loader
    return found, False


def load():
    dirs, explicit = _candidates()
    tried = []
    for d in dirs:
        if d is not None and not os.path.exists(os.path.join(d, LIBRARY_NAME)):
            tried.append(os.path.join(d, LIBRARY_NAME) + " (absent)")
            continue
        try:
            return Library(d)
        except OSError as e:
            tried.append("%s (%s)" % (d or "system loader", e))
    how = "LUMR_LIBRARY_DIR=%s" % os.environ.get("LUMR_LIBRARY_DIR") if explicit else \
        "installed tree, source tree build/, system loader"
    raise ImportError("lumr: cannot load %s (searched %s):\n  %s"
                      % (LIBRARY_NAME, how, "\n  ".join(tried)))


LIB = load()
