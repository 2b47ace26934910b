"""Handles of the library that are released on leaving a with statement."""

import ctypes

import numpy as np

from . import _library
from ._library import MATVEC, call, lib

SCALAR_TYPES = {
    np.dtype(np.float64): 0,
    np.dtype(np.float32): 1,
    np.dtype(np.complex128): 2,
    np.dtype(np.complex64): 3,
}


class Handle:
    """A handle, from creation to the end of its with statement."""

    def __init__(self, kind, dtype, subtype):
        self._destroy = getattr(lib, f"Ves{kind}Destroy")
        self.handle = ctypes.c_void_p()
        create = f"Ves{kind}Create"
        call(create, ctypes.byref(self.handle), SCALAR_TYPES[np.dtype(dtype)], subtype)
        self._as_parameter_ = self.handle  # what ctypes passes for this object

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self._destroy(self.handle)
        self.handle = None


class Block(Handle):
    """A block on the memory of an array of shape (rows here, columns), by columns that may have
    gaps between them."""

    def __init__(self, array, team):
        super().__init__("Vector", array.dtype, _library.DENSE_VECTOR)
        self.array = array
        rows, columns = array.shape
        ld = rows
        if not array.flags.f_contiguous:
            assert array.strides[0] == array.itemsize
            ld = array.strides[1] // array.itemsize
        call("VesVectorSetComm_f", self.handle, 0, team.handle)
        call("VesVectorSetDim", self.handle, rows, columns)
        call("VesVectorDenseSetValues", self.handle, array.ctypes.data, max(ld, 1))


def view_block(address, dtype, rows, columns, ld):
    """Array of shape (rows, columns) on memory of the library, column-major."""
    if rows == 0:
        return np.empty((rows, columns), dtype, order="F")
    size = dtype.itemsize
    memory = (ctypes.c_char * (size * (ld * (columns - 1) + rows))).from_address(address)
    return np.ndarray((rows, columns), dtype, memory, strides=(size, size * ld))


def _routine_of(apply, dtype, guard):
    """The routine that has apply(x, y) multiply the library's blocks."""
    def multiply(_, x, y, rows, columns, ld):
        source = view_block(x, dtype, rows, columns, ld)
        source.flags.writeable = False
        target = view_block(y, dtype, rows, columns, ld)
        if not guard.attempt_together(apply, source, target):
            target[...] = np.nan

    return MATVEC(multiply)


class Operator(Handle):
    """An operator that calls apply(x, y) on views of the library's blocks, x read-only.

    The guard keeps what the routine raises; y then is NaN.
    """

    def __init__(self, apply, dtype, guard):
        super().__init__("Matrix", dtype, _library.SHELL_MATRIX)
        self._guard = guard
        # The library may call a routine as long as the handle lives.
        self._routine = _routine_of(apply, np.dtype(dtype), guard)
        call("VesMatrixSetShellMatVec", self.handle, None, self._routine)
        call("VesMatrixSetCalledEverywhere", self.handle, guard.calls_everywhere)

    def set_low(self, apply, dtype):
        """Installs the routine of the same operator in single precision."""
        self._low = _routine_of(apply, np.dtype(dtype), self._guard)
        call("VesMatrixSetShellMatVecLow", self.handle, None, self._low)

    def share_with(self, B, apply, dtype):
        """Has apply(x, ax, bx) multiply by this operator and by B at once."""
        def multiply(_, x, ax, bx, rows, columns, ld):
            source, *images = (view_block(each, dtype, rows, columns, ld) for each in (x, ax, bx))
            source.flags.writeable = False
            if not self._guard.attempt_together(apply, source, *images):
                for image in images:
                    image[...] = np.nan

        self._pair = _library.PAIR(multiply)
        call("VesMatrixSetShellPair", self.handle, B.handle, None, self._pair)


class SparseRows(Handle):
    """An operator of entries: the rows of this process, as compressed() gives them, with the
    columns of all processes of the team, over which its beginning and its end are collective."""

    @staticmethod
    def compressed(rows):
        """Starts, columns and values of a matrix in CSR, as the library takes them. Local."""
        return (*(np.ascontiguousarray(each, np.longlong) for each in (rows.indptr, rows.indices)),
                np.ascontiguousarray(rows.data))

    def __init__(self, rows, team):
        starts, columns, values = rows
        super().__init__("Matrix", values.dtype, _library.SHELL_MATRIX)
        self._team = team
        try:
            call("VesMatrixSetRows_f", self.handle, team.handle, len(starts) - 1, starts.ctypes.data,
                 columns.ctypes.data, values.ctypes.data)
        except BaseException:
            self.__exit__()
            raise

    def multiply(self, x, y):
        """y = A x, in the type of the entries or their single precision."""
        with Block(x, self._team) as X, Block(y, self._team) as Y:
            call("VesMatrixMultiply", self.handle, X.handle, Y.handle)


class Solver(Handle):
    """A solver set up as the settings of a run say."""

    def __init__(self, settings):
        super().__init__("Solver", settings.dtype, _library.SOLVERS[settings.solver])
        call("VesSolverSetMaxIter", self.handle, settings.maxiter)
        call("VesSolverSetMaxOrthoIter", self.handle, settings.passes)
        call("VesSolverSetLockFactor", self.handle, settings.lock_factor)
        detector = _library.DETECTORS[settings.detector].kind
        call("VesSetConvergeDetectorType", self.handle, detector)
        call("VesSolverSetWanted", self.handle, settings.k)
        call("VesSolverSetMixedPrecision", self.handle, settings.is_mixed)
        call("VesSolverSetInnerSteps", self.handle, settings.inner)
        call("VesSolverSetThreads", self.handle, -1)
        if settings.generalized:
            call("VesSolverSetProblemType", self.handle, _library.GENERALIZED)
        if settings.uses_lapack:
            call("VesSetDenseEigenSolverType", self.handle, _library.LAPACK_DIAG)
        if settings.solver == "lobpcg_batch":
            call("VesSolverSetBatchLimit", self.handle, settings.batch_limit)
            call("VesSolverSetBatchStart", self.handle, settings.batch)
        elif settings.batch is not None:
            call("VesSolverSetPPCGBatch", self.handle, settings.batch)

    def set_monitor(self, routine):
        """Installs a routine of a pointer to a ProgressStruct that returns an int."""
        self._monitor = _library.MONITOR(lambda _, progress: routine(progress.contents))
        call("VesSolverSetMonitor", self.handle, self._monitor, None)

    def ask_int(self, function):
        """The int that a function such as VesGetSolverIter gives."""
        answer = ctypes.c_int()
        call(function, self.handle, ctypes.byref(answer))
        return answer.value

    def memory(self, rows, columns, generalized):
        """Forecast of the bytes of a run."""
        size = ctypes.c_size_t()
        call("VesSolverMemory", self.handle, rows, columns, generalized, ctypes.byref(size))
        return size.value
