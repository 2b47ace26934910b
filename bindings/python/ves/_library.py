"""Finds and loads the shared library and what it computes with, and declares its functions."""

import ctypes
import os
from ctypes import POINTER, c_bool, c_char_p, c_double, c_int, c_longlong, c_size_t, c_void_p
from pathlib import Path
from typing import Callable, NamedTuple

from ._kernels import newest_while_loading

LIBRARY_NAME = "libves.so.0"

# The library names no provider of BLAS, LAPACK, ScaLAPACK and BLACS. On Debian the first of these
# draws in the other two; where it does not, they are loaded by their usual names.
PROVIDER_NAMES = (
    ("libscalapack-openmpi.so.2.2", "libscalapack-openmpi.so", "libscalapack.so"),
    ("liblapack.so.3", "liblapack.so"),
    ("libblas.so.3", "libblas.so"),
)

SOLVERS = {"lobpcg": 0, "lobpcg_batch": 1, "ppcg": 2}


class Detector(NamedTuple):
    """A test of convergence."""

    kind: int
    scale: Callable  # size of what it compares, by the norms of A and B


# Vectors have unit norm in B, that is a 2-norm of about norm_B ** -0.5, with which residuals grow;
# values are of the size of norm_A / norm_B. B x is of the size of norm_B ** 0.5, and so is a
# residual over its value.
DETECTORS = {
    "residuals": Detector(0, lambda norm_A, norm_B: norm_A / norm_B ** 0.5),
    "relative_residuals": Detector(1, lambda norm_A, norm_B: norm_B ** 0.5),
    "eigenvalues": Detector(2, lambda norm_A, norm_B: norm_A / norm_B),
    "residuals_or_eigenvalues":
        Detector(3, lambda norm_A, norm_B: min(norm_A / norm_B ** 0.5, norm_A / norm_B)),
}
REASONS = ("none", "converged", "iterations", "monitor", "stagnated", "nonfinite")
SHELL_MATRIX = DENSE_VECTOR = GENERALIZED = 1
LAPACK_DIAG = 0


class ProgressStruct(ctypes.Structure):
    """VesProgress."""

    _fields_ = [
        ("iteration", c_int),
        ("wanted", c_int),
        ("converged", c_int),
        ("locked", c_int),
        ("active", c_int),
        ("values", POINTER(c_double)),
        ("residuals", POINTER(c_double)),
        ("columnsA", c_longlong),
    ]


class StatsStruct(ctypes.Structure):
    """VesSolverStats."""

    _fields_ = [(name, c_longlong) for name in
                ("columnsA", "columnsB", "columnsT", "reductions", "bytesReduced")]
    _fields_ += [(name, c_double) for name in ("secondsOperators", "secondsDense", "secondsTotal")]
    _fields_ += [("columnsLow", c_longlong), ("reserved", c_longlong * 7)]


# (shellData, x, y, nRows, nCols, ld) and (data, progress)
MATVEC = ctypes.CFUNCTYPE(None, c_void_p, c_void_p, c_void_p, c_int, c_int, c_int)
PAIR = ctypes.CFUNCTYPE(None, *(c_void_p,) * 4, c_int, c_int, c_int)  # (shellData, x, ax, bx, ...)
MONITOR = ctypes.CFUNCTYPE(c_int, c_void_p, POINTER(ProgressStruct))

# Functions that return a code.
_PROTOTYPES = {
    "VesMatrixCreate": (POINTER(c_void_p), c_int, c_int),
    "VesMatrixSetShellMatVec": (c_void_p, c_void_p, MATVEC),
    "VesMatrixSetShellMatVecLow": (c_void_p, c_void_p, MATVEC),
    "VesMatrixSetRows_f": (c_void_p, c_int, c_int) + (c_void_p,) * 3,
    "VesMatrixMultiply": (c_void_p,) * 3,
    "VesMatrixSetShellPair": (c_void_p, c_void_p, c_void_p, PAIR),
    "VesMatrixSetCalledEverywhere": (c_void_p, c_bool),
    "VesVectorCreate": (POINTER(c_void_p), c_int, c_int),
    "VesVectorSetComm_f": (c_void_p, c_int, c_int),
    "VesVectorSetDim": (c_void_p, c_int, c_int),
    "VesVectorDenseSetValues": (c_void_p, c_void_p, c_int),
    "VesVectorNorm": (c_void_p, c_void_p),
    "VesEigResidual": (c_void_p,) * 5,
    "VesSolverCreate": (POINTER(c_void_p), c_int, c_int),
    "VesSolverSetProblemType": (c_void_p, c_int),
    "VesSolverSetMaxIter": (c_void_p, c_int),
    "VesSolverSetMaxOrthoIter": (c_void_p, c_int),
    "VesSolverSetThreshold": (c_void_p, c_double),
    "VesSolverSetLockFactor": (c_void_p, c_double),
    "VesSolverSetMixedPrecision": (c_void_p, c_bool),
    "VesSolverSetInnerSteps": (c_void_p, c_int),
    "VesSolverSetThreads": (c_void_p, c_int),
    "VesSolverSetWanted": (c_void_p, c_int),
    "VesSolverSetDeflation": (c_void_p, c_void_p),
    "VesSolverSetBatchLimit": (c_void_p, c_int),
    "VesSolverSetBatchStart": (c_void_p, c_int),
    "VesSolverSetPPCGBatch": (c_void_p, c_int),
    "VesSolverSetMonitor": (c_void_p, MONITOR, c_void_p),
    "VesSetDenseEigenSolverType": (c_void_p, c_int),
    "VesSetConvergeDetectorType": (c_void_p, c_int),
    "VesRunSolver": (c_void_p,) * 6,
    "VesGetSolverIter": (c_void_p, POINTER(c_int)),
    "VesGetSolverConv": (c_void_p, POINTER(c_int)),
    "VesGetSolverReason": (c_void_p, POINTER(c_int)),
    "VesGetSolverStats": (c_void_p, POINTER(StatsStruct)),
    "VesSolverMemory": (c_void_p, c_int, c_int, c_bool, POINTER(c_size_t)),
    "VesCheckEigenpairs": (c_void_p,) * 4 + (POINTER(c_double),) * 2,
    "VesMatrixEstimateSpectrum": (c_void_p,) * 2 + (POINTER(c_double),) * 2,
}


class VesError(RuntimeError):
    """A function of the library refused its arguments.

    Attributes
    ----------
    code : int
        The return code.
    """

    def __init__(self, function, code):
        super().__init__(f"{function}: {lib.VesErrorString(code).decode()} (code {code})")
        self.code = code


def call(function, *arguments):
    """Calls a function that returns a code; raises VesError where it is not 0."""
    check_code(function, getattr(lib, function)(*arguments))


def check_code(function, code):
    """Raises VesError for the code of a function where it is not 0."""
    if code != 0:
        raise VesError(function, code)


def _load_provider():
    """Makes BLAS, LAPACK and ScaLAPACK visible to the library, which is loaded after them."""
    chosen = os.environ.get("VES_PROVIDER")
    chosen = chosen.split(os.pathsep) if chosen else []
    with newest_while_loading(chosen or [name for names in PROVIDER_NAMES for name in names]):
        _load_names(chosen)


def _load_names(chosen):
    if chosen:
        for name in chosen:
            try:
                ctypes.CDLL(name, ctypes.RTLD_GLOBAL)
            except OSError as error:
                raise ImportError(f"VES_PROVIDER: {error}") from error
        return
    # What is missing in the end shows when the library is loaded: it may have a provider itself.
    for names in PROVIDER_NAMES:
        for name in names:
            try:
                ctypes.CDLL(name, ctypes.RTLD_GLOBAL)
                break
            except OSError:
                continue


def _find_library():
    chosen = os.environ.get("VES_LIBRARY")
    if chosen:
        return chosen
    package = Path(__file__).resolve().parent
    # <libdir>/python3/dist-packages/ves is where an installation of the library puts the package.
    for folder in (package, package.parents[2]):
        if (folder / LIBRARY_NAME).exists():
            return str(folder / LIBRARY_NAME)
    return LIBRARY_NAME


def _load():
    _load_provider()
    path = _find_library()
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        if "undefined symbol" in str(error):
            raise ImportError(
                f"{error}: no BLAS, LAPACK and ScaLAPACK for libves were found; install a ScaLAPACK"
                " (on Debian libscalapack-openmpi2.2) or name libraries in VES_PROVIDER, separated"
                f" by '{os.pathsep}'") from error
        raise ImportError(
            f"libves cannot be loaded: {error}; set VES_LIBRARY to the path of libves.so, or"
            " LD_LIBRARY_PATH to its folder") from error
    try:
        for name, arguments in _PROTOTYPES.items():
            getattr(library, name).argtypes = arguments
            getattr(library, name).restype = c_int
        for name in ("VesMatrixDestroy", "VesVectorDestroy", "VesSolverDestroy"):
            getattr(library, name).argtypes = (c_void_p,)
            getattr(library, name).restype = None
        for name in ("VesErrorString", "VesReasonString"):
            getattr(library, name).argtypes = (c_int,)
            getattr(library, name).restype = c_char_p
        library.VesGetVersion.restype = c_char_p
    except AttributeError as error:
        raise ImportError(f"{path} is not the libves of this package: {error}") from error
    return library


lib = _load()


def version():
    """Release of the shared library, as "major.minor.patch"."""
    return lib.VesGetVersion().decode()
