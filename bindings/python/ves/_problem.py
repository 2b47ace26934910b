"""An eigenproblem on the processes of a call, with the arguments of all of them agreed on."""

import contextlib
import os
import threading

import numpy as np
import scipy.sparse as sparse

from . import _operators, _preconditioners, _settings
from ._distributed import Rows
from ._guard import Guard
from ._handles import Operator
from ._processes import open_team

# The library is not thread-safe. A run inside an operator of another one is on the same thread.
_one_at_a_time = threading.RLock()


def _renew_lock():
    """Takes a new lock in a forked process, where no thread is left that would release the old."""
    global _one_at_a_time
    _one_at_a_time = threading.RLock()


os.register_at_fork(after_in_child=_renew_lock)


@contextlib.contextmanager
def _serialized(team, guard):
    """Lets one thread at a time into the library. Collective.

    Threads of one process wait for each other. Those of several cannot: each could wait for one
    that another process waits for.
    """
    def require():
        if not is_held:
            raise RuntimeError("another thread of this process is in a run of ves")

    # Outside of attempt(), where a Ctrl-C could part the lock from its release.
    lock = _one_at_a_time
    is_held = lock.acquire(blocking=False)
    while not is_held and team.size == 1 and not guard.interrupted:
        is_held = lock.acquire(timeout=0.1)
    try:
        guard.attempt(require)
        guard.settle()
        yield
    finally:
        if is_held:
            lock.release()


def _as_columns(name, given):
    """A finite numeric array of two dimensions; a vector is taken as a column."""
    array = np.asarray(given)
    if array.dtype.kind not in "biufc":
        raise TypeError(f"{name} must be an array of numbers, not {type(given).__name__}")
    if array.ndim == 1:
        array = array[:, np.newaxis]
    if array.ndim != 2:
        raise ValueError(f"{name} must have a column for each vector, not the shape {array.shape}")
    if not np.all(np.isfinite(array)):
        raise ValueError(f"{name} contains NaN or infinity")
    return array


class Problem:
    """Operands, order and dtype of A x = lambda B x on the processes of a communicator.

    Attributes
    ----------
    team, guard
        Processes of the call, and the guard of its call-backs.
    A, B, T : Operand or None
    columns : ndarray or None
        The columns that were given, a guess or vectors to be checked.
    rows : int
        Rows of this process.
    is_turned : bool
        Whether A is the negative of what was given.
    deflated : ndarray or None
        Columns that vectors are kept orthogonal to.
    total_rows : int
        Rows on all processes.
    dtype : numpy.dtype
    """

    @classmethod
    @contextlib.contextmanager
    def opened(cls, comm, everywhere, *arguments):
        """A problem for the time of a with statement. Collective."""
        with open_team(comm) as team, Guard(team, bool(everywhere)) as guard, \
                _serialized(team, guard), contextlib.ExitStack() as stack:
            yield cls(team, guard, stack, *arguments)

    def __init__(self, team, guard, stack, A, B, T, columns_name, columns, n, dtype):
        self.team, self.guard = team, guard
        self.deflated, self._deflated_rank = None, 0
        self.is_turned, self.is_positive = False, False
        guard.attempt(self._take, stack, A, B, T, columns_name, columns, n, dtype)
        guard.settle()
        self._connect(stack)
        self.total_rows = int(team.total(self.rows))
        guard.have_rows(self.rows > 0)

    def _take(self, stack, A, B, T, columns_name, columns, n, dtype):
        if A is None:
            raise TypeError("A must be a matrix, a LinearOperator or a callable, not None")
        self.A, self.B = self._as_operand("A", A), self._as_operand("B", B)
        self.T = _preconditioners.given(T)
        operands = self.A, self.B, self.T
        if self.team.size > 1 and self.A.is_matrix and not isinstance(self.A, Rows):
            raise TypeError("on several processes A must be a sparse matrix with the rows of this"
                            " process and the columns of all, or a LinearOperator or a callable"
                            " that multiplies these rows")
        self.columns = None if columns is None else _as_columns(columns_name, columns)
        n = None if n is None else _settings.whole("n", n, 0)
        self.rows = _operators.common_order(operands, columns_name, self.columns, n)
        self.dtype = _operators.working_dtype(operands, columns_name, self.columns, dtype)
        for operand in operands:
            if operand is not None:
                operand.prepare(self.dtype)
                operand.begin(stack)
        if self.B is not None:
            self.B.require_definite()

    def _as_operand(self, name, given):
        """On several processes A, and a B that is not square, are rows of a sparse matrix."""
        if self.team.size > 1 and sparse.issparse(given) and given.ndim == 2 and (
                name == "A" or given.shape[0] != given.shape[1]):
            return Rows(name, given)
        return _operators.as_operand(name, given)

    def _connect(self, stack):
        """Has processes with rows of a matrix agree on what they exchange, until the stack ends.
        Collective."""
        for operand in self.A, self.B:
            if self.team.any(isinstance(operand, Rows)):
                self.guard.attempt(self._require_rows, operand)
                self.guard.settle()
                self.guard.attempt(self._complain, operand.place(self.team))
                self.guard.settle()
                rows = self.guard.attempt(operand.compressed)
                self.guard.settle()  # memory may have been short on one process alone
                operand.connect(rows, self.team, stack)
        if isinstance(self.A, Rows):
            diagonal = self.guard.attempt(lambda: self.A.diagonal_block.diagonal().real)
            self.guard.settle()
            self.is_positive = not self.team.any(bool(np.any(diagonal <= 0)))

    @staticmethod
    def _require_rows(operand):
        if not isinstance(operand, Rows):
            raise TypeError("other processes gave rows of a sparse matrix")

    @staticmethod
    def _complain(text):
        if text is not None:
            raise ValueError(text)

    def turn(self):
        """Goes for the other end of the spectrum. Local."""
        if self.B is not None and self.B.empty_rows > 0:
            raise ValueError("B has empty rows: the highest values are infinite")
        self.A, self.is_turned = _operators.Negated(self.A), True

    def take_both(self, both):
        """Takes a routine of the caller that returns A x and B x, None for none. Local."""
        if both is not None and (self.B is None or not callable(both)):
            raise TypeError("both must be a callable that returns A X and B X, beside a B")
        self.both = both

    def multiply_both(self, x, ax, bx):
        """A x and B x by one routine, counted."""
        images = self.both(x)
        if not isinstance(images, (tuple, list)) or len(images) != 2:
            raise TypeError("both must return two arrays, A X and B X")
        for operand, image, y in zip((self.A, self.B), images, (ax, bx)):
            operand.store(image, y)
            operand.columns += x.shape[1]
        if self.is_turned:
            np.negative(ax, out=ax)

    def columns_applied(self):
        """Columns that A and B were applied to on this process, as an array of two."""
        return np.array([0 if each is None else each.columns for each in (self.A, self.B)])

    def choose_preconditioner(self, T, sigma):
        """T by its name, and by a shift for one that inverts exactly. Local.

        Returns
        -------
        name : str or None
            Of what was chosen, "given" for a T that is no name.
        is_exact : bool
        """
        if not isinstance(T, str) and sigma is None:
            return None if self.T is None else "given", False
        if self.T is not None or T is None:
            raise ValueError("sigma makes a preconditioner: leave T out")
        if isinstance(self.A, Rows) and T != "inner" and sigma is None:
            chosen = _preconditioners.chosen_by_blocks(T, self.A.diagonal_block, self.is_positive,
                                                       self.dtype)
        else:
            B = None
            if self.B is not None:
                B = _preconditioners.UNKNOWN if self.B.entries is None else self.B.entries
            chosen = _preconditioners.chosen(T, self.A.entries, B, sigma, self.dtype,
                                             self.team.size == 1)
        self.T = chosen.operand
        return chosen.name, chosen.is_exact

    def take_deflated(self, given):
        """Takes columns that a run keeps its vectors orthogonal to, None for none. Collective."""
        self.guard.attempt(self._take_deflated, given)
        self.guard.settle()
        widths = self.team.gather(None if given is None else self.deflated.shape[1])
        for rank, width in enumerate(widths):
            if width != widths[0]:
                raise ValueError(f"processes 0 and {rank} were called differently: columns to"
                                 f" deflate are {widths[0]} and {width}")
        if given is None:
            return
        self._deflated_rank = self._rank_of(self.deflated)
        if self.order < 1:
            raise ValueError(f"deflate has {self._deflated_rank} columns, which leave nothing of a"
                             f" problem with {self.total_rows} rows")

    def _rank_of(self, columns):
        """Columns that do not depend on others, by about the limit of the library. Collective."""
        triangles = self.team.gather(np.linalg.qr(columns.astype(
            np.result_type(columns, np.float64), copy=False), mode="r"))
        whole = np.vstack(triangles)
        sizes = np.max(np.abs(whole), axis=0, initial=0)
        whole = whole[:, sizes > 0] / sizes[sizes > 0]
        whole /= np.linalg.norm(whole, axis=0)
        return int(np.linalg.matrix_rank(whole, 1e4 * np.finfo(columns.dtype).eps))

    def _take_deflated(self, given):
        if given is None:
            return
        given = _as_columns("deflate", given)
        if given.shape[0] != self.rows:
            raise ValueError(f"deflate has {given.shape[0]} rows in a problem of {self.rows}")
        if given.dtype.kind == "c" and self.dtype.kind != "c":
            raise TypeError("deflate is complex in a real problem; pass dtype=numpy.complex128")
        self.deflated = np.array(given, self.dtype, order="F")

    @property
    def order(self):
        """Dimensions of the space that is searched: without what is deflated, and without empty
        rows of B, which only have infinite values."""
        empty = self.B.empty_rows if self.B is not None and self.team.size == 1 else 0
        return self.total_rows - self._deflated_rank - empty

    @property
    def panel(self):
        """Columns that hold no more entries than the library counts by an int on any process, but
        at least one. Collective."""
        return max(_settings.LARGEST_INT // max(*self.team.gather(self.rows), 1), 1)

    @property
    def has_entries(self):
        """Whether A and B are matrices, of which copies can be made."""
        return self.A.is_matrix and (self.B is None or self.B.is_matrix)

    def require_fit(self, k):
        """Refuses more pairs than rows. Local."""
        if k > self.order:
            beside = " beside what is deflated" if self.deflated is not None else ""
            raise ValueError(f"k = {k} pairs are wanted of a problem with {self.order}"
                             f" rows{beside}")

    def operator(self, stack, operand, is_mixed=False):
        """The library's operator of an operand, which the stack releases; None for None. For runs
        that begin in single precision a matrix multiplies there with a copy of its entries."""
        if operand is None:
            return None
        operator = stack.enter_context(Operator(operand.multiply, self.dtype, self.guard))
        low_dtype = np.dtype(np.complex64 if self.dtype.kind == "c" else np.float32)
        low = self.guard.attempt(operand.lowered, low_dtype) if is_mixed else None
        if low is not None:
            operator.set_low(low.multiply, low_dtype)
        return operator

    def agreed(self, choose):
        """What choose() returns, which must be the same on all processes. Collective."""
        choice = self.guard.attempt(choose)
        self.guard.settle()
        choices = self.team.gather(repr(choice))
        for rank, other in enumerate(choices):
            if other != choices[0]:
                raise ValueError(f"processes 0 and {rank} were called differently: {choices[0]} and"
                                 f" {other}")
        return choice
