"""What can be asked before and after a run."""

import contextlib
import ctypes

import numpy as np

from . import _settings
from ._handles import SCALAR_TYPES, Block, Solver
from ._library import call
from ._problem import Problem
from ._processes import Alone
from ._results import Check


def check(A, values, vectors, B=None, *, comm=None, everywhere=False):
    """Recomputes the quality of eigenpairs, from `eigsh` or from elsewhere.

    Parameters
    ----------
    A, B : as in `eigsh`
    values : array of shape (k,), or a number for one vector
        Eigenvalues, the same on all processes.
    vectors : array of shape (n, k)
        Eigenvectors as columns; the rows of this process. A vector is taken as one column.
    comm : mpi4py.MPI.Intracomm, optional
        Processes among which the rows are distributed; the call is collective over it.
    everywhere : as in `eigsh`

    Returns
    -------
    Check
        ``(max_residual, max_ortho_error)``: the largest 2-norm of A x - lambda B x, and the largest
        entry of abs(X^H B X - I).

    Raises
    ------
    TypeError, ValueError, ProcessError, Exception
        As `eigsh`.
    """
    with Problem.opened(comm, everywhere, A, B, None, "vectors", vectors, None,
                        None) as problem:
        def take():
            if problem.columns is None:
                raise TypeError("vectors must be an array, not None")
            k = problem.columns.shape[1]
            given = np.atleast_1d(values)
            if given.shape not in ((k,), (k, 1)) or given.dtype.kind not in "biuf":
                raise ValueError(f"values must be real numbers for the {k} columns of vectors"
                                 f", not {given.dtype} of shape {given.shape}")
            problem.require_fit(_settings.whole("number of vectors", k, 1))
            return given.reshape(k, 1)

        D = np.asfortranarray(problem.agreed(take).astype(problem.dtype))
        X = problem.guard.attempt(np.asfortranarray, problem.columns, problem.dtype)
        problem.guard.settle()  # memory may have been short on one process alone
        residual, ortho_error = ctypes.c_double(), ctypes.c_double()
        with contextlib.ExitStack() as stack:
            operators = [problem.operator(stack, each) for each in (problem.A, problem.B)]
            blocks = [stack.enter_context(Block(each, problem.team)).handle for each in (X, D)]
            call("VesCheckEigenpairs", *operators, *blocks, ctypes.byref(residual),
                 ctypes.byref(ortho_error))
            problem.guard.settle()
    return Check(residual.value, ortho_error.value)


def memory_forecast(n, k=6, *, dtype=np.float64, generalized=False, solver="auto", batch=None,
                    guard="auto", inner="auto", precision="auto"):
    """Bytes that a run takes beside the arrays of values and vectors.

    Parameters
    ----------
    n : int
        Order of the problem; of a distributed one the rows of a process.
    k : int
        Number of wanted pairs.
    dtype : float32, float64, complex64 or complex128
    generalized : bool
        Whether there is a B.
    solver, batch, guard, inner, precision
        As in `eigsh`, for an A that is a matrix; its copy in single precision is left out.

    Returns
    -------
    int
    """
    if np.dtype(dtype) not in SCALAR_TYPES:
        raise TypeError(f"dtype must be float32, float64, complex64 or complex128, not {dtype}")
    n = _settings.whole("n", n, 0)
    settings = _settings.complete(k, n, dtype, Alone(), solver=solver,
                                  batch=batch, guard=guard, inner=inner, precision=precision,
                                  has_entries=True, generalized=bool(generalized))
    with Solver(settings) as handle:
        return handle.memory(n, settings.columns, settings.generalized)
