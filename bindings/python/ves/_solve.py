"""Runs of the solvers."""

import contextlib
import ctypes
import sys
import warnings

import numpy as np

from . import _kernels, _settings
from ._handles import Block, Solver
from ._library import REASONS, StatsStruct, call, check_code, lib
from ._probe import Probe, random_block
from ._problem import Problem
from ._results import ConvergenceWarning, EigenResult, Progress, Statistics


def eigsh(A, k=None, B=None, *, which="SA", T="auto", sigma=None, X0=None, deflate=None, both=None,
          n=None, M=None, v0=None, solver="auto", guard="auto", inner="auto", precision="auto",
          tol=None, absolute_tol=None, maxiter=1000, batch=None, lock_factor=1.0, detector="residuals",
          passes=None, dtype=None, comm=None, everywhere=False, verify=True, monitor=None,
          progress=False, seed=None, return_eigenvectors=True):
    """Lowest or highest eigenpairs of a Hermitian problem A x = lambda x or A x = lambda B x.

    Parameters
    ----------
    A : array, sparse matrix, LinearOperator or callable
        Hermitian operator of order n. A callable multiplies a block of columns, as ``A(X)`` that
        returns an array or as ``A(X, out)`` that fills one. X is a read-only view of shape
        (n, columns) on memory that is valid only until the callable returns, column-major.
    k : int, optional
        Number of wanted pairs, by default as many as X0 has columns, or 6, or n where that is less.
    B : as A, optional
        Hermitian positive definite operator of the generalized problem. A matrix may have empty
        rows, as finite elements leave them where values are prescribed. M is another name.
    which : {"SA", "LA"}
        The lowest pairs, or the highest, for which T and the steps of a run go for -A. Values
        ascend in both.
    T : {"auto", "shift-invert", "ic", "jacobi", "inner"}, as A, or None
        Preconditioner, Hermitian positive definite: an approximate inverse of A. Also an object of
        `scipy.sparse.linalg.splu`, a hierarchy of pyamg, or a PC or KSP of petsc4py. By name, for
        a sparse matrix: exact factors of A - s B with s below the spectrum, in one process;
        incomplete ones, on several processes of the block of each; the inverse diagonal; "inner" is
        none but inner steps. "auto" takes exact factors where they hold few entries, else
        incomplete ones, where the diagonal of A is positive, and none elsewhere.
    sigma : float, optional
        Shift of exact factors, outside the spectrum, for a sparse matrix A in one process.
    X0 : array of shape (n, up to k), optional
        Guess. Missing columns are random. v0 is another name.
    deflate : array of shape (n, m), optional
        Columns that the vectors are kept orthogonal to, in B: the null space of A, rigid motions,
        vectors of an earlier run. They need not be orthonormal; those that do not depend on others
        count as dimensions that are no longer there. Residuals of the run are those of the problem
        beside them.
    both : callable, optional
        Returns A X and B X, where A and B share work, as projections that serve both: LOBPCG calls
        it where it needs both images, and A and B elsewhere.
    n : int, optional
        Order of the problem, where neither A nor X0 tells it.
    solver : {"auto", "lobpcg", "lobpcg_batch", "ppcg"}
        "auto" is LOBPCG, and LOBPCG in batches above 64 pairs of a problem of more than four
        times their number, or where `batch` is given.
    guard : "auto" or int
        Columns that are iterated behind the wanted pairs and not handed back, as far as the order
        goes. With some of them the wanted pairs converge in fewer iterations. "auto" takes a
        quarter as many, 2 to 8.
    inner : "auto" or int
        Steps of a Chebyshev iteration around T, which make it stronger at the cost of A and T; they
        pay where these are cheap; 0 is T alone. "auto" takes as many as pay by the times of the
        run, so that results differ in rounding from run to run, or none where a seed is given.
    precision : {"auto", "double", "mixed"}
        "mixed" begins in single precision, where products cost half, and goes on in double
        precision; the result is as accurate. Matrices are copied to single precision, other
        operators are applied to copies. "auto" does so where A and B are matrices and T is not
        exact.
    tol : float, optional
        Threshold of the convergence test relative to an estimate of the 2-norm of A, by default
        1e-8, in single precision 1e-4. In the generalized problem vectors have unit norm in B and
        it is relative to norm(A) / sqrt(norm(B)), for the same accuracy however B is scaled. For
        detector "relative_residuals" it is relative to the eigenvalue times sqrt(norm(B)), for
        "eigenvalues" to norm(A) / norm(B), for either of two tests to what is smaller.
    absolute_tol : float, optional
        Threshold in the units of A instead.
    maxiter : int
        Limit of iterations.
    batch : int, optional
        Most pairs that "lobpcg_batch" iterates at once (default 64, and up to 128 where they
        come no further), or columns of a sub-block of "ppcg" (default the library's).
    lock_factor : float
        Factor of the threshold, from 0 to 1, at which a pair is no longer iterated.
    detector : {"residuals", "relative_residuals", "eigenvalues", "residuals_or_eigenvalues"}
        Test of convergence.
    passes : int, optional
        Limit of orthogonalization passes, by default 2, in single precision 3.
    dtype : float32, float64, complex64 or complex128, optional
        Scalar type of the computation, by default the one that A, B and T have in common, complex
        where X0 is. Integers are taken as float64, and callables that do not tell as float64.
    comm : mpi4py.MPI.Intracomm, optional
        Processes that solve the problem together, each with its own rows: n, X0, deflate and the
        result are those of this process, and A multiplies them, with messages among the processes
        that hold rows (it is not called on others). A and B may be these rows of a sparse matrix,
        with the columns of all processes; a square B and a matrix given as T act on these rows
        alone. Without comm this process solves the problem alone.
    everywhere : bool
        Whether A, B and T are called on processes without rows, too, with X of shape (0, columns):
        what works on all processes of comm, such as a preconditioner of another library, needs it.
    verify : bool
        Whether A and B are tested to be Hermitian before the run, on two columns, and B and a T
        of yours to be positive definite, on up to 20, and residuals are recomputed after it, by A
        and B on all columns. Without, residuals are those of the last test of the run, if it was
        one of residuals; the norms of A and B, by up to 20 columns, are estimated where a
        threshold is relative to them.
    monitor : callable, optional
        Called with a `Progress` after the start and after each iteration, on every process. The
        run ends when it returns True on any.
    progress : bool
        Whether process 0 writes a line for each iteration to standard error.
    seed : int, optional
        Of random columns, by default 0. Where it is given nothing is decided by times, and the same
        call gives the same bits.
    return_eigenvectors : bool
        False: only the values are returned, as an array.

    Returns
    -------
    EigenResult
        Unpacks as ``values, vectors``; its attributes tell of the run.

    Warns
    -----
    ConvergenceWarning
        Fewer than k pairs have converged and the monitor did not ask for the end. The result is
        complete all the same: converged pairs first, estimates behind. To have an exception, with
        the result as its attribute, use ``warnings.simplefilter("error", ves.ConvergenceWarning)``.
    KernelWarning
        OpenBLAS computes with kernels older than the processor: once, before the first run.

    Raises
    ------
    TypeError, ValueError
        An argument that cannot be worked with, on this process or, as ProcessError, on another.
    ProcessError
        A routine of the caller failed on another process.
    Exception
        Whatever a routine raised, KeyboardInterrupt too, after the run has ended on all processes.
        A routine that communicates must not raise while others wait for its messages.

    Notes
    -----
    Collective over comm: all its processes make the call, with the same settings. Threads of a
    process wait for each other; with several processes only one thread may be in a run. An operator
    may itself call `eigsh`. On several processes each call of an operator is followed by a
    reduction of an int, by which they learn of exceptions. Statistics count all columns that A, B
    and T are applied to.
    """
    B, X0 = _either("B", B, "M", M), _either("X0", X0, "v0", v0)
    with Problem.opened(comm, everywhere, A, B, T, "X0", X0, n, dtype) as problem:
        def choose():
            if _settings.is_highest(which):
                problem.turn()
            problem.take_both(both)
            name, is_exact = problem.choose_preconditioner(
                T, -sigma if problem.is_turned and sigma is not None else sigma)
            settings = _settings.complete(
                _wanted(k, problem), problem.order, problem.dtype, problem.team, guard=guard,
                inner=inner, precision=precision, has_entries=problem.has_entries, solver=solver,
                which=which, verify=verify, tol=tol, absolute_tol=absolute_tol, maxiter=maxiter,
                batch=batch, lock_factor=lock_factor, detector=detector, passes=passes,
                generalized=B is not None,
                preconditioner=name, is_exact=is_exact, repeatable=seed is not None,
                everywhere=bool(everywhere),
                deflated=0 if deflate is None else problem.deflated.shape[1])
            problem.require_fit(settings.k)
            if seed is not None:
                _settings.whole("seed", seed, 0, np.inf)
            if monitor is not None and not callable(monitor):
                raise TypeError("monitor must be callable")
            if problem.team.rank == 0:
                _kernels.warn_once(stacklevel=6)
            return settings

        problem.take_deflated(deflate)
        settings = problem.agreed(choose)
        follow = _printing(monitor) if progress and problem.team.rank == 0 else monitor
        result = _Run(problem, settings, follow, seed or 0).result()
    if not result.converged and result.reason != "monitor":
        warnings.warn(ConvergenceWarning(result.summary(), result), stacklevel=2)
    return result if return_eigenvectors else result.values


def _either(name, value, other, same):
    if value is not None and same is not None:
        raise TypeError(f"{other} is another name of {name}: give one of them")
    return value if same is None else same


def _printing(monitor):
    def follow(state):
        open_residuals = state.residuals[~np.isnan(state.residuals)]
        worst = f", largest residual {np.max(open_residuals):.2e}" if len(open_residuals) else ""
        print(f"ves: iteration {state.iteration}: {state.converged} of {state.wanted} pairs{worst}",
              file=sys.stderr, flush=True)
        return monitor is not None and monitor(state)

    return follow


def _wanted(k, problem):
    """Number of wanted pairs, which a guess has no more columns than."""
    guess = problem.columns
    if k is None:
        return min(6, problem.order) if guess is None else guess.shape[1]
    if guess is not None and guess.shape[1] > _settings.whole("k", k, 1):
        raise ValueError(f"X0 has {guess.shape[1]} columns for k = {k} pairs")
    return k


class _Run:
    """One run of a solver, from the guess to the result."""

    def __init__(self, problem, settings, monitor, seed):
        self._problem, self._settings, self._monitor = problem, settings, monitor
        self._history = []
        probe = Probe(problem, seed)
        if settings.verify:
            probe.require_hermitian()
            if settings.preconditioner == "given":
                probe.require_useful_T()
        self._norm_A, self._threshold = None, settings.absolute_tol
        norm_B = 1.0
        if problem.B is not None and (settings.verify or self._threshold is None):
            norm_B = probe.norm(problem.B, definite=True)
        if self._threshold is None:
            self._norm_A = probe.norm(problem.A)
            self._threshold = settings.threshold(self._norm_A or 1.0, norm_B)
        self._require_measurable()
        self._values = np.zeros((settings.columns, 1), problem.dtype, order="F")
        self._vectors = problem.guard.attempt(self._guess, seed)
        problem.guard.settle()  # memory may have been short on one process alone
        self._probed = problem.columns_applied()

    def _require_measurable(self):
        """Residuals are measured by the sum of their squares, which must be numbers of the type:
        from those at the threshold, or at rounding errors of A, up to the norm of A."""
        if self._norm_A is None:
            return
        limits, norm = np.finfo(self._settings.dtype), self._norm_A
        smallest = max(self._threshold, float(limits.eps) * norm)
        if smallest**2 < limits.tiny or norm**2 > limits.max:
            raise ValueError(f"A is of norm {norm:.0e}: squares of its residuals leave the range of"
                             f" {limits.dtype}; scale the problem")

    def _guess(self, seed):
        problem = self._problem
        guess = random_block(problem.rows, self._settings.columns, problem.dtype, seed + 1,
                             problem.team)
        if problem.columns is not None:
            guess[:, :problem.columns.shape[1]] = problem.columns
        return guess

    def result(self):
        """Runs the solver. Collective."""
        problem, team = self._problem, self._problem.team
        with contextlib.ExitStack() as stack:
            A, B, T = (problem.operator(stack, each, self._settings.is_mixed)
                       for each in (problem.A, problem.B, problem.T))
            if problem.both is not None:
                A.share_with(B, problem.multiply_both, problem.dtype)
            X = stack.enter_context(Block(self._vectors, team)).handle
            D = stack.enter_context(Block(self._values, team)).handle
            solver = stack.enter_context(Solver(self._settings))
            call("VesSolverSetThreshold", solver.handle, self._threshold)
            if problem.deflated is not None:
                Y = stack.enter_context(Block(problem.deflated, team)).handle
                call("VesSolverSetDeflation", solver.handle, Y)
            solver.set_monitor(self._follow)
            problem.guard.settle()  # a copy in single precision may have failed on one process alone
            code = lib.VesRunSolver(solver.handle, A, B, T, X, D)
            problem.guard.settle()
            check_code("VesRunSolver", code)
            in_run = problem.columns_applied()
            residuals = self._history[-1].residuals
            if self._settings.verify or np.any(np.isnan(residuals)):
                residuals = self._residuals(A, B)
            beside = self._probed + problem.columns_applied() - in_run
            return self._describe(solver, residuals, beside)

    def _follow(self, struct):
        guard = self._problem.guard
        return int(guard.agree(guard.attempt(self._note, struct)))

    def _note(self, struct):
        """Remembers where the run stands, and says whether the caller asks for its end."""
        progress = Progress.from_struct(struct, self._settings.k)
        if self._settings.is_highest:
            progress = progress._replace(values=-progress.values)
        self._history.append(progress)
        return self._monitor is not None and bool(self._monitor(progress))

    def _residuals(self, A, B):
        """Residual norms of all pairs, from A applied once more."""
        problem, guard = self._problem, self._problem.guard
        residuals = guard.attempt(np.zeros_like, self._vectors)
        norms = np.zeros_like(self._values)
        guard.settle()
        width = problem.panel
        for first in range(0, len(norms), width):
            part = slice(first, first + width)
            with contextlib.ExitStack() as stack:
                X, R, D, lengths = (
                    stack.enter_context(Block(array, problem.team)).handle
                    for array in (self._vectors[:, part], residuals[:, part], self._values[part],
                                  norms[part]))
                call("VesEigResidual", A, B, X, D, R)
                guard.settle()
                call("VesVectorNorm", R, lengths)
        return norms.real[:, 0].copy()

    def _describe(self, solver, residuals, beside):
        """The result of a run, with the columns of A and B that were multiplied beside it."""
        stats = StatsStruct()
        call("VesGetSolverStats", solver.handle, ctypes.byref(stats))
        stats.columnsA += int(beside[0])
        stats.columnsB += int(beside[1])
        k = self._settings.k
        values, vectors = self._values.real[:k, 0].copy(), self._vectors[:, :k]
        residuals = residuals[:k]
        if self._settings.is_highest:
            values, vectors, residuals = -values[::-1], vectors[:, ::-1], residuals[::-1]
        result = EigenResult(values, vectors)
        n_converged = min(solver.ask_int("VesGetSolverConv"), k)
        vars(result).update(
            n_converged=n_converged, converged=n_converged == k,
            reason=REASONS[solver.ask_int("VesGetSolverReason")],
            iterations=solver.ask_int("VesGetSolverIter"), residuals=residuals,
            threshold=self._threshold, norm_estimate=self._norm_A, history=self._history,
            statistics=Statistics.from_struct(stats), settings=self._settings,
            memory_forecast=solver.memory(*self._vectors.shape, self._settings.generalized))
        return result
