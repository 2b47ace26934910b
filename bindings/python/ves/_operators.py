"""What a caller may give as A, B or T, made into routines on blocks."""

import copy
import inspect

import numpy as np
import scipy.sparse
from scipy.sparse.linalg import LinearOperator, aslinearoperator

from ._handles import SparseRows
from ._processes import Alone


class Operand:
    """A, B or T: its name, order and dtype as far as they are known, and apply(x, y).

    Attributes
    ----------
    order : int or None
        Rows of this process.
    dtype : numpy.dtype or None
    is_matrix : bool
        Whether it is an array or a sparse matrix, whose entries are at hand.
    entries : sparse matrix or None
        Those of a sparse matrix.
    empty_rows : int
        Those of a matrix B, on this process.
    columns : int
        Columns that it was applied to on this process.
    """

    is_matrix = False
    entries = None
    columns = empty_rows = 0

    def multiply(self, x, y):
        """apply(x, y), counted."""
        self.columns += x.shape[1]
        self.apply(x, y)

    def __init__(self, name, order, dtype):
        self.name = name
        self.order = order
        self.dtype = None if dtype is None else np.dtype(dtype)

    def prepare(self, dtype):
        """Gets ready for blocks of the given dtype."""

    def begin(self, stack):
        """Gets ready for products until the stack ends."""

    def lowered(self, dtype):
        """The same operand with entries of a dtype of single precision; None: there are none, or
        they leave its range."""
        return None

    def require_definite(self):
        """Refuses what its entries tell not to be positive definite."""

    def store(self, result, y):
        """Copies what a routine returned into the library's block."""
        result = np.asarray(result)
        if result.shape != y.shape:
            raise ValueError(f"operator {self.name} returned an array of shape {result.shape} for a"
                             f" block of shape {y.shape}")
        if result.dtype.kind == "c" and y.dtype.kind != "c":
            raise TypeError(f"operator {self.name} returned complex numbers in a real problem;"
                            " pass dtype=numpy.complex128")
        np.copyto(y, result, casting="same_kind")


class _Matrix(Operand):
    is_matrix = True

    def __init__(self, name, matrix):
        if matrix.ndim != 2 or matrix.shape[0] != matrix.shape[1]:
            raise ValueError(f"{name} must be square, not of shape {matrix.shape}")
        super().__init__(name, matrix.shape[0], matrix.dtype)
        self._matrix = matrix

    def prepare(self, dtype):
        self._matrix = self._matrix.astype(dtype, copy=False)
        entries = self._matrix.data if scipy.sparse.issparse(self._matrix) else self._matrix
        if not np.all(np.isfinite(entries)):
            raise ValueError(f"{self.name} contains NaN or infinity")

    def lowered(self, dtype):
        low = copy.copy(self)
        with np.errstate(over="ignore"):
            try:
                low.prepare(dtype)
            except ValueError:
                return None
        return low

    def require_definite(self):
        diagonal = self._matrix.diagonal().real
        self.empty_rows = int(np.count_nonzero(self._row_sizes() == 0))
        if np.any(diagonal < 0) or np.count_nonzero(diagonal == 0) > self.empty_rows:
            raise ValueError(f"{self.name} must be positive definite, with a positive diagonal but"
                             " where its rows are empty")

    def _row_sizes(self):
        return np.asarray(abs(self._matrix).sum(axis=1)).ravel()


class _DenseMatrix(_Matrix):
    def prepare(self, dtype):
        super().prepare(dtype)
        if not self._matrix.flags.forc:
            self._matrix = np.ascontiguousarray(self._matrix)

    def apply(self, x, y):
        # The transposes of column-major blocks are row-major, which is what matmul writes in place.
        np.matmul(x.T, self._matrix.T, out=y.T)


class _SparseMatrix(_Matrix):
    def __init__(self, name, matrix):
        super().__init__(name, matrix.tocsr())

    @property
    def entries(self):
        return self._matrix

    def begin(self, stack):
        self._rows = stack.enter_context(SparseRows(SparseRows.compressed(self._matrix), Alone()))

    def lowered(self, dtype):
        largest = np.max(np.abs(self._matrix.data), initial=0)
        return copy.copy(self) if largest <= np.finfo(dtype).max else None

    def apply(self, x, y):
        self._rows.multiply(x, y)


class Negated(Operand):
    """-A, whose lowest values are the highest of A."""

    def __init__(self, inner):
        super().__init__(inner.name, inner.order, inner.dtype)
        self._inner, self.is_matrix = inner, inner.is_matrix

    @property
    def entries(self):
        return None if self._inner.entries is None else -self._inner.entries

    def prepare(self, dtype):
        self._inner.prepare(dtype)

    def lowered(self, dtype):
        low = self._inner.lowered(dtype)
        return None if low is None else Negated(low)

    def apply(self, x, y):
        self._inner.apply(x, y)
        np.negative(y, out=y)


class _Linear(Operand):
    def __init__(self, name, operator):
        if len(operator.shape) != 2 or operator.shape[0] != operator.shape[1]:
            raise ValueError(f"{name} must be square, not of shape {operator.shape}")
        super().__init__(name, operator.shape[0], operator.dtype)
        self._operator = operator

    def apply(self, x, y):
        self.store(self._operator.matmat(x), y)


class _Routine(Operand):
    def __init__(self, name, function):
        shape = getattr(function, "shape", None)
        super().__init__(name, shape[0] if shape else None, getattr(function, "dtype", None))
        self._function = function
        self._fills = _required_arguments(name, function) == 2

    def apply(self, x, y):
        if self._fills:
            self._function(x, y)
        else:
            self.store(self._function(x), y)


def _required_arguments(name, function):
    try:
        parameters = inspect.signature(function).parameters.values()
    except (TypeError, ValueError):  # compiled routines may not tell
        return 1
    if any(p.kind is p.VAR_POSITIONAL for p in parameters):
        return 1
    positional = [p for p in parameters
                  if p.kind in (p.POSITIONAL_ONLY, p.POSITIONAL_OR_KEYWORD)]
    required = sum(p.default is p.empty for p in positional)
    if not positional or required > 2:
        raise TypeError(f"{name} must be callable as {name}(X) or {name}(X, out)")
    return max(required, 1)


def is_of_petsc(given):
    """Whether it is an object of petsc4py, which need not be installed."""
    return type(given).__module__.startswith("petsc4py")


def _by_columns(given):
    """A Mat, PC or KSP of petsc4py, which take a vector at a time."""
    kind = type(given).__name__
    if kind not in ("Mat", "PC", "KSP"):
        raise TypeError(f"a {kind} of petsc4py is no operator: take a Mat, PC or KSP")
    mat = given if kind == "Mat" else given.getOperators()[0]
    x, y = mat.createVecs()
    multiply = {"Mat": "mult", "PC": "apply", "KSP": "solve"}[kind]

    def columns(X, out):
        for source, target in zip(X.T, out.T):
            x.array[:] = source
            getattr(given, multiply)(x, y)
            target[:] = y.array

    return columns


def as_operand(name, given):
    """Operand of a matrix, LinearOperator or callable; None for None.

    Raises
    ------
    TypeError, ValueError
        It is nothing that can be applied to a block, or it is not square.
    """
    if given is None:
        return None
    if scipy.sparse.issparse(given):
        return _SparseMatrix(name, given)
    if isinstance(given, LinearOperator) or hasattr(given, "matmat"):
        return _Linear(name, given)
    if hasattr(given, "matvec") and hasattr(given, "shape"):
        return _Linear(name, aslinearoperator(given))
    if is_of_petsc(given):
        return _Routine(name, _by_columns(given))
    if callable(given):
        return _Routine(name, given)
    matrix = np.asarray(given)
    if matrix.dtype.kind not in "biufc":
        raise TypeError(f"{name} must be an array of numbers, a sparse matrix, a LinearOperator or"
                        f" a callable, not {type(given).__name__}")
    return _DenseMatrix(name, matrix)


def working_dtype(operands, columns_name, columns, dtype):
    """The one of the four scalar types in which a problem is solved.

    Integers and booleans become float64 and half precision becomes float32. Types wider than
    double are refused unless dtype is given.
    """
    parts = [(operand.name, operand.dtype) for operand in operands if operand is not None]
    parts += [] if columns is None else [(columns_name, columns.dtype)]
    known = [(name, part) for name, part in parts if part is not None]
    is_complex = [name for name, part in known if part.kind == "c"]
    if dtype is not None:
        dtype = np.dtype(dtype)
        if dtype not in (np.float32, np.float64, np.complex64, np.complex128):
            raise TypeError(f"dtype must be float32, float64, complex64 or complex128, not {dtype}")
        if is_complex and dtype.kind != "c":
            raise TypeError(f"{is_complex[0]} is complex: dtype cannot be {dtype}")
        return dtype
    for name, part in known:
        if part.kind not in "biufc":
            raise TypeError(f"{name} has dtype {part}, which holds no numbers")
        if part.itemsize > (16 if part.kind == "c" else 8):
            raise TypeError(f"{name} has dtype {part}: pass dtype= to solve in double precision")
    # A guess does not widen a problem: random numbers in double precision are a common start.
    deciding = [part for name, part in known if name != columns_name] or [part for _, part in known]
    common = np.result_type(*deciding) if deciding else np.dtype(np.float64)
    if common.kind in "biu":
        common = np.dtype(np.float64)
    return np.result_type(common, np.complex64 if is_complex else np.float32)


def common_order(operands, columns_name, columns, n):
    """Rows of this process, on which all that know them must agree."""
    orders = [(o.name, o.order) for o in operands if o is not None and o.order is not None]
    orders += [] if columns is None else [(columns_name, columns.shape[0])]
    orders += [] if n is None else [("n", n)]
    if not orders:
        raise ValueError("the order of the problem is unknown: pass n, X0 or an A with a shape")
    for name, order in orders[1:]:
        if order != orders[0][1]:
            raise ValueError(f"{name} is for {order} rows, but {orders[0][0]} for {orders[0][1]}")
    return orders[0][1]
