"""What the caller chose for a run, checked and completed."""

import numbers
import operator
from dataclasses import dataclass
from typing import Optional

import numpy as np

from ._library import DETECTORS, SOLVERS

LARGEST_INT = 2**31 - 1  # the library counts in 32 bits
LARGEST_ORDER = 32765  # of a dense problem
WIDEST_AT_ONCE = 64  # "auto" iterates more pairs than these in batches of as many
WIDEST_BATCH = 128  # to which such a batch grows where it comes no further
SUB_BLOCK = 64  # columns of a sub-block of PPCG, where none is given
CHOSEN_BY_TIMES = -1  # inner steps, in a run
MOST_FOR_LAPACK = 4  # processes; beyond, the dense problems are spread over them


@dataclass(frozen=True)
class Settings:
    """Settings of a run, the same on all processes."""

    k: int
    guard: int
    inner: int
    is_mixed: bool
    dtype: np.dtype
    solver: str
    batch: Optional[int]
    batch_limit: Optional[int]
    tol: float
    absolute_tol: Optional[float]
    maxiter: int
    lock_factor: float
    detector: str
    passes: int
    generalized: bool
    preconditioner: Optional[str]
    uses_lapack: bool
    everywhere: bool
    deflated: int
    which: str
    verify: bool

    @property
    def is_highest(self):
        """Whether the highest pairs are wanted."""
        return self.which == "LA"

    @property
    def columns(self):
        """Wanted pairs and guards."""
        return self.k + self.guard

    def threshold(self, norm_A, norm_B):
        """What the convergence test compares with."""
        if self.absolute_tol is not None:
            return self.absolute_tol
        return self.tol * DETECTORS[self.detector].scale(norm_A, norm_B)


def whole(name, value, least, most=LARGEST_INT):
    """An integer within the given limits."""
    try:
        value = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an integer, not {value!r}") from None
    if value < least:
        raise ValueError(f"{name} must be at least {least}, not {value}")
    if value > most:
        raise ValueError(f"{name} must be at most {most}, not {value}")
    return value


def _number(name, value):
    if not isinstance(value, numbers.Real):
        raise TypeError(f"{name} must be a number, not {value!r}")
    return float(value)


def _positive(name, value):
    """A positive number, or None for None."""
    if value is None:
        return None
    if not 0 < _number(name, value) < np.inf:
        raise ValueError(f"{name} must be a positive number, not {value!r}")
    return float(value)


def _one_of(name, value, choices):
    if value not in choices:
        raise ValueError(f"{name} must be one of {', '.join(map(repr, choices))}, not {value!r}")
    return value


def _is_small(order, k, solver):
    """Whether of LOBPCG half as many columns as the order span the problem with their residuals."""
    return order <= 4 * k and solver in ("auto", "lobpcg")


def _choose_solver(solver, batch, k, order):
    """Solver, batch and its limit; "auto" goes over to batches for many pairs of a problem that is
    not small, or where a batch is given."""
    _one_of("solver", solver, ("auto", *SOLVERS))
    if batch is not None:
        batch = whole("batch", batch, 1)
    if solver == "lobpcg" and batch is not None:
        raise ValueError("solver 'lobpcg' iterates all pairs at once and takes no batch")
    if solver == "auto":
        is_wide = k > WIDEST_AT_ONCE and not _is_small(order, k, solver)
        solver = "lobpcg_batch" if batch is not None or is_wide else "lobpcg"
    if solver == "lobpcg_batch" and batch is None:
        return solver, WIDEST_AT_ONCE, WIDEST_BATCH
    return solver, batch, batch


def _at_once(solver, batch, k):
    """Pairs or columns that meet in a dense problem, each with two directions."""
    return k if solver == "lobpcg" else min(k, batch or SUB_BLOCK)


def _guards(guard, k, order, is_exact, is_small):
    """Columns behind the wanted ones: "auto" takes a quarter as many, 2 to 8, none where T is exact,
    and of a small problem what makes half of it; as far as the library takes the order of dense
    problems."""
    if guard == "auto":
        most = LARGEST_ORDER // 3
        if is_small:
            guard = max((order + 1) // 2 - k, 0)
        else:
            guard = 0 if is_exact else min(max(k // 4, 2), 8)
        guard = min(guard, max(most - k, 0))
    return min(whole("guard", guard, 0, LARGEST_ORDER), max(order - k, 0))


def _is_mixed(precision, is_single, has_entries):
    """Whether a run begins in single precision; "auto" does where matrices can be copied to it and
    T, which is double, is not exact."""
    if _one_of("precision", precision, ("auto", "double", "mixed")) == "mixed" and is_single:
        raise ValueError("precision 'mixed' needs a problem in double precision")
    return precision == "mixed" or (precision == "auto" and has_entries and not is_single)


def is_highest(which):
    """Whether the highest pairs are wanted, or the lowest."""
    instead = {"LM": "the largest values are at an end of the spectrum: take 'LA' or 'SA'",
               "SM": "take 'SA' for an A without negative values, scipy.sparse.linalg.eigsh for"
                     " others",
               "BE": "call it for 'SA' and for 'LA'"}
    if which in instead:
        raise ValueError(f"which = {which!r}: {instead[which]}; ves.scipy.eigsh knows it")
    return _one_of("which", which, ("SA", "LA")) == "LA"


def complete(k, order, dtype, team, *, guard="auto", inner="auto", precision="auto",
             solver="auto", batch=None, tol=None, absolute_tol=None, maxiter=1000,
             lock_factor=1.0, detector="residuals", passes=None, generalized=False,
             preconditioner=None, is_exact=False, repeatable=False, deflated=0, which="SA",
             verify=True, has_entries=False, everywhere=False):
    """Settings with the defaults of their precision and number of pairs filled in.

    Raises
    ------
    TypeError, ValueError
        A setting that no run can have.
    """
    k = whole("k", k, 1, LARGEST_ORDER)
    is_small = _is_small(order, k, solver)
    guard = _guards(guard, k, order, is_exact, is_small)
    solver, batch, batch_limit = _choose_solver(solver, batch, k, order)
    if 3 * _at_once(solver, batch, k + guard) > LARGEST_ORDER:
        raise ValueError(f"{k} pairs of solver {solver!r} with batch {batch} make dense problems"
                         f" of an order above {LARGEST_ORDER}: take 'lobpcg_batch' and a smaller"
                         " batch")
    if tol is not None and absolute_tol is not None:
        raise ValueError("give either tol or absolute_tol, not both")
    if not 0 <= _number("lock_factor", lock_factor) <= 1:
        raise ValueError(f"lock_factor must be from 0 to 1, not {lock_factor!r}")
    is_single = np.dtype(dtype) in (np.float32, np.complex64)
    default_tol, default_passes = (1e-4, 3) if is_single else (1e-8, 2)
    if inner == "auto":
        inner = 0 if repeatable or is_exact or is_small else CHOSEN_BY_TIMES
    else:
        inner = whole("inner", inner, 0, 1000)
    return Settings(
        k=k, guard=guard, inner=inner,
        is_mixed=_is_mixed(precision, is_single,
                           has_entries and not is_exact and not is_small),
        dtype=np.dtype(dtype),
        solver=solver, batch=batch, batch_limit=batch_limit,
        tol=_positive("tol", tol) or default_tol,
        absolute_tol=_positive("absolute_tol", absolute_tol),
        maxiter=whole("maxiter", maxiter, 1), lock_factor=float(lock_factor),
        detector=_one_of("detector", detector, tuple(DETECTORS)),
        passes=default_passes if passes is None else whole("passes", passes, 1),
        generalized=generalized, preconditioner=preconditioner,
        uses_lapack=team.size <= MOST_FOR_LAPACK, everywhere=everywhere, deflated=deflated,
        which=which, verify=bool(verify))
