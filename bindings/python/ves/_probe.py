"""What a few applications to random columns tell of an operator before a run."""

import contextlib
import ctypes

import numpy as np

from ._handles import Block
from ._library import call

COLUMNS = 2


class Probe:
    """Applies operands to random columns. All methods are collective over the team.

    Parameters
    ----------
    problem : Problem
        Whose rows, scalar type, processes and guard of call-backs are taken.
    seed : int
    """

    def __init__(self, problem, seed):
        self._problem, self._team, self._guard = problem, problem.team, problem.guard
        self._start = random_block(problem.rows, COLUMNS, problem.dtype, seed, problem.team)

    def norm(self, operand, definite=False):
        """Estimate of the 2-norm, from above in all but contrived cases.

        Raises
        ------
        ValueError
            The operand gave NaN or infinity, or is not positive definite where it has to be.
        """
        norm, lowest = self._estimate_spectrum(operand)
        if not np.isfinite(norm):
            self._refuse_numbers(operand)
        if definite and (norm == 0 or lowest < -100 * np.finfo(self._start.dtype).eps * norm):
            raise ValueError(f"{operand.name} must be positive definite")
        return norm

    def _estimate_spectrum(self, operand):
        norm, lowest = ctypes.c_double(), ctypes.c_double()
        with contextlib.ExitStack() as stack:
            handle = self._problem.operator(stack, operand)
            like = stack.enter_context(Block(self._start, self._team)).handle
            call("VesMatrixEstimateSpectrum", handle, like, ctypes.byref(norm),
                 ctypes.byref(lowest))
            self._guard.settle()
        return norm.value, lowest.value

    def _apply(self, operand, x):
        y = np.zeros_like(x)
        x.flags.writeable = False
        if self._guard.takes_part:
            self._guard.attempt_together(operand.multiply, x, y)
        self._guard.settle()
        return y

    def _products(self, x, y):
        """2-norms of the columns of x and of y, and x^H y."""
        double = np.result_type(x, np.float64)
        x, y = x.astype(double), y.astype(double)
        with np.errstate(over="ignore", invalid="ignore"):  # seen in the result
            local = np.array([x.conj().T @ x, y.conj().T @ y, x.conj().T @ y], dtype=complex)
        xx, yy, xy = self._team.total(local)
        return np.sqrt([xx.diagonal().real, yy.diagonal().real]), xy

    def require_useful_T(self):
        """Refuses a preconditioner with a negative Ritz value, with a ValueError."""
        T = self._problem.T
        norm, lowest = self._estimate_spectrum(T)
        if not np.isfinite(norm):
            self._refuse_numbers(T)
        if lowest < -np.sqrt(np.finfo(self._start.dtype).eps) * norm:
            raise ValueError(f"T must be positive definite, but has a value of at most"
                             f" {lowest:.2g}: an inverse of A - s B does where s lies inside the"
                             " spectrum")

    def require_hermitian(self):
        """Refuses an A or B that is not Hermitian, or gives NaN or infinity, with a ValueError."""
        for operand in self._problem.A, self._problem.B:
            if operand is not None:
                self._require_hermitian(operand)

    def _require_hermitian(self, operand):
        # Rounding errors of a Hermitian operator stay far below; a fault of one entry in a million
        # does not.
        sizes, gram = self._products(self._start, self._apply(operand, self._start.copy(order="F")))
        if not np.all(np.isfinite(sizes)) or np.any(gram[:, sizes[1] == 0]):
            self._refuse_numbers(operand)
        epsilon = np.finfo(self._start.dtype).eps
        limit = np.sqrt(epsilon) * np.outer(sizes[0], sizes[1])
        if np.any(np.abs(gram - gram.conj().T) > limit):
            raise ValueError(f"{operand.name} is not Hermitian: x^H {operand.name} y and"
                             f" y^H {operand.name} x differ for random x and y")

    @staticmethod
    def _refuse_numbers(operand):
        raise ValueError(f"operator {operand.name} returned NaN, infinity, or numbers that are too"
                         " large or too small to square")


def random_block(rows, columns, dtype, seed, team):
    """Random columns, different on every process."""
    random = np.random.default_rng([seed, team.rank])
    block = np.empty((rows, columns), dtype, order="F")
    for column in block.T:
        column[...] = random.standard_normal(rows)
        if block.dtype.kind == "c":
            column += 1j * random.standard_normal(rows)
    return block
