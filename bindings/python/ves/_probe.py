"""What a few applications to random columns tell of an operator before a run."""

import numpy as np

POWER_STEPS = 6
COLUMNS = 2


class Probe:
    """Applies operands to random columns. All methods are collective over the team.

    Parameters
    ----------
    rows : int
        Rows of this process.
    dtype : numpy.dtype
    seed : int
    team, guard
        Processes of the call, and the guard of its call-backs, which knows who takes part.
    """

    def __init__(self, rows, dtype, seed, team, guard):
        self._team, self._guard = team, guard
        self._start = random_block(rows, COLUMNS, dtype, seed, team)

    def norm(self, operand, definite=False):
        """Estimate of the 2-norm from below, by the power method.

        Raises
        ------
        ValueError
            The operand gave NaN or infinity, is not Hermitian, or not positive definite where it
            has to be.
        """
        x = self._start.copy(order="F")
        largest = 0.0
        for step in range(POWER_STEPS):
            y = self._apply(operand, x)
            sizes, gram = self._products(x, y)
            if not np.all(np.isfinite(sizes)) or np.any(gram[:, sizes[1] == 0]):
                raise ValueError(f"operator {operand.name} returned NaN, infinity, or numbers that"
                                 " are too large or too small to square")
            if step == 0:  # later on the columns are close to an eigenvector, which tells less
                self._require_hermitian(operand.name, gram, sizes)
            if definite and np.any(gram.diagonal().real <= 0):
                raise ValueError(f"{operand.name} must be positive definite")
            if not np.all(sizes[1] > 0):
                break
            largest = max(largest, np.max(sizes[1] / sizes[0]))
            x = np.asfortranarray(y / sizes[1].astype(y.real.dtype))
        return float(largest)

    def _apply(self, operand, x):
        y = np.zeros_like(x)
        x.flags.writeable = False
        if self._guard.takes_part:
            self._guard.attempt_together(operand.apply, x, y)
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

    def _require_hermitian(self, name, gram, sizes):
        # Rounding errors of a Hermitian operator stay far below; a fault of one entry in a million
        # does not.
        epsilon = np.finfo(self._start.dtype).eps
        limit = np.sqrt(epsilon) * np.outer(sizes[0], sizes[1])
        if np.any(np.abs(gram - gram.conj().T) > limit):
            raise ValueError(f"{name} is not Hermitian: x^H {name} y and y^H {name} x differ for"
                             " random x and y")


def random_block(rows, columns, dtype, seed, team):
    """Random columns, different on every process."""
    random = np.random.default_rng([seed, team.rank])
    block = np.empty((rows, columns), dtype, order="F")
    for column in block.T:
        column[...] = random.standard_normal(rows)
        if block.dtype.kind == "c":
            column += 1j * random.standard_normal(rows)
    return block
