"""MPI as a run sees it: this process alone, or the processes of a communicator."""

import atexit
import contextlib
import ctypes
import importlib

import numpy as np

from ._library import lib

_THREAD_MULTIPLE = 3
_LONGEST_RELEASE = 8192  # MPI_MAX_LIBRARY_VERSION_STRING is smaller everywhere


class ProcessError(RuntimeError):
    """Another process of the communicator failed; the message names it and what it raised."""


def _mpi_state(question):
    """What the MPI that the library uses says of itself, which need not be that of mpi4py."""
    flag = ctypes.c_int()
    getattr(lib, question)(ctypes.byref(flag))
    return bool(flag.value)


def _finalize():
    if not _mpi_state("MPI_Finalized"):
        lib.MPI_Finalize()


def ensure_mpi():
    """Initialises MPI where nobody has: by mpi4py when it is there, which also ends it."""
    if _mpi_state("MPI_Finalized"):
        raise RuntimeError("MPI has been finalized: ves cannot be used any more")
    if _mpi_state("MPI_Initialized"):
        return
    with contextlib.suppress(ImportError):
        importlib.import_module("mpi4py.MPI")  # initialises MPI unless it is told not to
    if not _mpi_state("MPI_Initialized"):
        provided = ctypes.c_int()
        if lib.MPI_Init_thread(None, None, _THREAD_MULTIPLE, ctypes.byref(provided)) != 0:
            raise RuntimeError("MPI cannot be initialised")
        atexit.register(_finalize)


def _mpi_release():
    """Name and release of the MPI that the library uses."""
    text, length = ctypes.create_string_buffer(_LONGEST_RELEASE), ctypes.c_int()
    lib.MPI_Get_library_version(text, ctypes.byref(length))
    return text.value.decode()


def _handle_of_self():
    """Fortran handle of MPI_COMM_SELF."""
    try:
        address = ctypes.addressof(ctypes.c_char.in_dll(lib, "ompi_mpi_comm_self"))
    except ValueError:
        from mpi4py import MPI

        return MPI.COMM_SELF.py2f()
    lib.MPI_Comm_c2f.argtypes = (ctypes.c_void_p,)
    return lib.MPI_Comm_c2f(address)


class Alone:
    """One process that takes part with nobody."""

    rank, size = 0, 1

    def __init__(self):
        ensure_mpi()
        self.handle = _handle_of_self()

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        pass

    def gather(self, item):
        """The items of all processes, by rank."""
        return [item]

    def total(self, values):
        """Sum over the processes."""
        return values

    def any(self, flag):
        """Whether the flag is set on any process."""
        return flag

    def split(self, is_member):
        """Those processes that are members."""
        return self


class Team(Alone):
    """The processes of a communicator of mpi4py. All methods are collective; the communicator is a
    duplicate, so that no message of the caller can meet one of a run."""

    def __init__(self, comm):
        ensure_mpi()
        from mpi4py import MPI

        if MPI.Get_library_version().rstrip("\0") != _mpi_release():
            raise RuntimeError(f"mpi4py uses {MPI.Get_library_version()}, libves {_mpi_release()}:"
                               " communicators cannot be shared")
        if not isinstance(comm, MPI.Intracomm) or comm == MPI.COMM_NULL:
            raise TypeError("comm must be an intracommunicator of mpi4py that this process is in")
        self._adopt(comm.Dup())

    def _adopt(self, comm):
        self._comm = comm
        self._parts = []
        self.rank, self.size, self.handle = comm.rank, comm.size, comm.py2f()

    def __exit__(self, *exception):
        for part in self._parts:
            part.__exit__()
        self._comm.Free()

    def gather(self, item):
        return self._comm.allgather(item)

    def total(self, values):
        return self._comm.allreduce(values)

    def any(self, flag):
        from mpi4py import MPI

        largest = np.array([flag], np.intc)
        self._comm.Allreduce(MPI.IN_PLACE, largest, MPI.MAX)
        return bool(largest[0])

    def split(self, is_member):
        """None where this process is no member."""
        from mpi4py import MPI

        comm = self._comm.Split(0 if is_member else MPI.UNDEFINED, self.rank)
        if comm == MPI.COMM_NULL:
            return None
        part = Team.__new__(Team)
        part._adopt(comm)
        self._parts.append(part)
        return part


def open_team(comm):
    """The processes of a call: those of an mpi4py communicator, or this one alone for None."""
    if comm is None:
        return Alone()
    return Team(comm)
