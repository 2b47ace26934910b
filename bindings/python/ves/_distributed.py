"""Sparse matrices of which every process has some rows."""

import copy

import numpy as np

from . import _operators
from ._handles import SparseRows


class Rows(_operators.Operand):
    """The rows of this process, n x N, of a sparse matrix of order N, by which the library
    multiplies blocks of its own type and of single precision."""

    is_matrix = True

    def __init__(self, name, matrix):
        super().__init__(name, matrix.shape[0], matrix.dtype)
        self._rows = matrix.tocsr()

    def place(self, team):
        """Finds out which of all rows these are. Collective over the team.

        Returns
        -------
        str or None
            What is wrong, on this process.
        """
        ends = np.cumsum([0, *team.gather(self.order)])
        self._first = ends[team.rank]
        if self._rows.shape[1] != ends[-1]:
            return (f"{self.name} has {self._rows.shape[1]} columns in a problem of {ends[-1]}"
                    " rows: each process gives its rows with the columns of all")
        return None

    def compressed(self):
        """The rows as the library takes them. Local."""
        return SparseRows.compressed(self._rows)

    def connect(self, rows, team, stack):
        """Gives the rows to the library, until the stack ends. Collective over the team."""
        self._entries = stack.enter_context(SparseRows(rows, team))

    @property
    def diagonal_block(self):
        """What couples the rows of this process with each other, n x n."""
        return self._rows[:, self._first:self._first + self.order]

    def prepare(self, dtype):
        self._rows = self._rows.astype(dtype, copy=False)
        if not np.all(np.isfinite(self._rows.data)):
            raise ValueError(f"{self.name} contains NaN or infinity")

    def lowered(self, dtype):
        return copy.copy(self)  # which counts its own columns

    def apply(self, x, y):
        self._entries.multiply(x, y)
