"""Sparse matrices of which every process has some rows."""

import copy

import numpy as np
import scipy.sparse as sparse

from . import _operators


class Rows(_operators.Operand):
    """The rows of this process, n x N, of a sparse matrix of order N.

    A product takes the entries of a block that the rows of this process meet from the processes
    that hold them: those that need nothing of each other exchange no message, so that processes
    without rows need not take part.
    """

    is_matrix = True

    def __init__(self, name, matrix):
        super().__init__(name, matrix.shape[0], matrix.dtype)
        self._rows = matrix.tocsr()

    def connect(self, team):
        """Finds out what is to be exchanged with whom. Collective over the team.

        Returns
        -------
        str or None
            What is wrong, on this process.
        """
        ends = np.cumsum([0, *team.gather(self.order)])
        first, last = ends[team.rank], ends[team.rank + 1]
        total, fits = ends[-1], self._rows.shape[1] == ends[-1]
        columns = np.unique(self._rows.indices) if fits else np.empty(0, int)
        beyond = columns[(columns < first) | (columns >= last)]
        owners = np.searchsorted(ends, beyond, side="right") - 1
        wanted = {rank: beyond[owners == rank] for rank in np.unique(owners)}
        self._takes = [(rank, len(places)) for rank, places in wanted.items()]
        self._gives = [(rank, asked[team.rank] - first)
                       for rank, asked in enumerate(team.gather(wanted)) if team.rank in asked]
        self._comm = team.messages()
        if not fits:
            return (f"{self.name} has {self._rows.shape[1]} columns in a problem of {total} rows:"
                    " each process gives its rows with the columns of all")
        # Own columns first, then those of others in the order in which they arrive.
        place = np.full(total, -1)
        place[first:last] = np.arange(self.order)
        place[beyond] = self.order + np.arange(len(beyond))
        self._matrix = sparse.csr_matrix(  # a copy, since columns are to be sorted anew
            (self._rows.data, place[self._rows.indices], self._rows.indptr),
            shape=(self.order, self.order + len(beyond)), copy=True)
        return None

    @property
    def diagonal_block(self):
        """What couples the rows of this process with each other, n x n."""
        return self._matrix[:, :self.order]

    def prepare(self, dtype):
        self._rows = self._rows.astype(dtype, copy=False)
        if not np.all(np.isfinite(self._rows.data)):
            raise ValueError(f"{self.name} contains NaN or infinity")

    def lowered(self, dtype):
        low = copy.copy(self)
        with np.errstate(over="ignore"):  # a run goes on without what is infinite there
            low._matrix = self._matrix.astype(dtype)
        return low

    def apply(self, x, y):
        blocks = [np.empty((count, x.shape[1]), x.dtype) for _, count in self._takes]
        requests = [self._comm.Irecv(block, rank)
                    for (rank, _), block in zip(self._takes, blocks)]
        requests += [self._comm.Isend(np.ascontiguousarray(x[places]), rank)
                     for rank, places in self._gives]
        for request in requests:
            request.Wait()
        y[...] = self._matrix @ np.concatenate([x, *blocks])
