"""What a call gives back."""

from pathlib import Path
from typing import NamedTuple

import numpy as np

from . import _plot


class ConvergenceWarning(UserWarning):
    """A run ended before all wanted pairs had converged.

    Attributes
    ----------
    result : EigenResult or None
        What the run had, also where a filter of warnings makes an exception of this.
    """

    def __init__(self, message, result=None):
        super().__init__(message)
        self.result = result


class Progress(NamedTuple):
    """Where a run stands after an iteration."""

    iteration: int  #: iterations made, 0 after the start
    wanted: int  #: pairs wanted
    converged: int  #: leading pairs that pass the convergence test
    locked: int  #: pairs that are no longer changed, guards among them
    active: int  #: pairs that are iterated, guards among them
    values: np.ndarray  #: eigenvalue estimates, shape (wanted,), infinity where unknown
    residuals: np.ndarray  #: residual norms when last tested, shape (wanted,), NaN where unknown
    columns_A: int  #: columns that A was applied to so far

    @classmethod
    def from_struct(cls, struct, k):
        """Copy of the library's record, which lives only as long as its call, for the first k
        pairs: without the guards."""
        arrays = (np.ctypeslib.as_array(pointer, (k,)).copy()
                  for pointer in (struct.values, struct.residuals))
        return cls(struct.iteration, k, min(struct.converged, k), struct.locked, struct.active,
                   *arrays, struct.columnsA)


class Statistics(NamedTuple):
    """What a run cost on this process."""

    columns_A: int  #: columns that A was applied to
    columns_B: int  #: columns that B was applied to
    columns_T: int  #: columns that the preconditioner was applied to
    reductions: int  #: reductions over processes
    bytes_reduced: int  #: bytes that this process gave to them
    seconds_operators: float  #: in the routines of A, B and T
    seconds_dense: float  #: in dense factorizations and eigendecompositions
    seconds_total: float
    columns_low: int  #: of columns_A those in single precision

    @classmethod
    def from_struct(cls, struct):
        """The library's record."""
        return cls(*(getattr(struct, name) for name, _ in struct._fields_[:len(cls._fields)]))


class _Pairs(NamedTuple):
    values: np.ndarray
    vectors: np.ndarray


class EigenResult(_Pairs):
    """Eigenpairs that unpack as ``values, vectors``, and what is known of the run.

    Attributes
    ----------
    values : ndarray of shape (k,)
        Eigenvalues in ascending order, real, also where they are the highest.
    vectors : ndarray of shape (n, k)
        Eigenvectors as columns, orthonormal (in B where it is given); the rows of this process.
    converged : bool
        Whether all k pairs passed the convergence test.
    n_converged : int
        Pairs that passed it, from the wanted end of the spectrum on.
    reason : str
        Why the run ended: "converged", "iterations" (their limit), "monitor", "stagnated" (rounding
        allows no more) or "nonfinite" (an operator gave NaN or infinity).
    iterations : int
    residuals : ndarray of shape (k,)
        2-norms of A x - lambda B x, recomputed after the run, or as the run knew them.
    threshold : float
        What the convergence test compared with.
    norm_estimate : float or None
        Estimate of the 2-norm of A, from above in all but contrived cases; `tol` is relative to it.
        None with `absolute_tol`.
    history : list of Progress
        The run after its start and after each iteration, with 2 k numbers for each.
    statistics : Statistics
        Cost on this process; columns of A and B with those before the run and after it.
    memory_forecast : int
        Bytes that the run was forecast to take on this process beside values and vectors.
    settings : Settings
        The settings of the run with all defaults filled in.
    """

    def summary(self):
        """Text of a line on how the run ended."""
        return (f"{self.n_converged} of {len(self.values)} pairs converged in {self.iterations}"
                f" iterations of {self.settings.solver} ({self.reason}), largest residual"
                f" {np.max(self.residuals):.2e} for a threshold of {self.threshold:.2e}")

    def plot(self, path):
        """Writes a picture of the run into an SVG file: the residual of each pair by iteration, with
        the threshold where it is one of residuals; the values; where the time of this process
        went. Local: on several processes one of them is enough.
        """
        Path(path).write_text(_plot.draw(self), encoding="utf-8")

    def __repr__(self):
        return f"<EigenResult: {self.summary()}\n values={self.values!r}>"


class Check(NamedTuple):
    """Recomputed quality of eigenpairs."""

    max_residual: float  #: largest 2-norm of A x - lambda B x
    max_ortho_error: float  #: largest entry of abs(X^H B X - I)
