"""Preconditioners that are named, and those of other packages."""

import numpy as np
import scipy.sparse as sparse
from scipy.sparse.csgraph import reverse_cuthill_mckee
from scipy.sparse.linalg import LinearOperator, spilu, splu

from . import _operators

NAMES = ("auto", "shift-invert", "ic", "jacobi", "inner")
UNKNOWN = object()
SMALL, MOST_FILLED = 100_000, 20  # entries of exact factors that are cheap; times those of A


class Preconditioner:
    """T for a run.

    Attributes
    ----------
    operand : Operand or None
    name : str or None
        What was chosen: "shift-invert", "ic", "jacobi" or "inner" (none but inner steps); "given"
        for one of the caller's, None without one.
    is_exact : bool
        Whether it is an exact inverse.
    """

    def __init__(self, name=None, apply=None, order=None, dtype=None):
        self.name, self.is_exact = name, name == "shift-invert"
        self.operand = None if apply is None else _operators.as_operand(
            "T", LinearOperator((order, order), matvec=apply, matmat=apply, dtype=dtype))


def given(T):
    """Operand of a T that is no name: also an object of SuperLU, a hierarchy of pyamg, or a PC or
    KSP of petsc4py."""
    if T is None or isinstance(T, str):
        return None
    if hasattr(T, "solve") and hasattr(T, "perm_c"):
        if np.array_equal(T.perm_r, T.perm_c) and np.any(T.U.diagonal().real < 0):
            raise ValueError("T must be positive definite, but has negative values: an inverse of"
                             " A - s B does where s lies inside the spectrum")
        return _operators.as_operand("T", _factors(T))
    if hasattr(T, "aspreconditioner"):
        return _operators.as_operand("T", T.aspreconditioner())
    is_operator = callable(T) or hasattr(T, "shape") or _operators.is_of_petsc(T)
    if not is_operator and not isinstance(T, (list, tuple)):
        raise TypeError(f"T must be a matrix, a LinearOperator, a callable, one of"
                        f" {', '.join(map(repr, NAMES))} or None, not {T!r}")
    return _operators.as_operand("T", T)


def _factors(lu):
    dtype = lu.U.dtype

    def solve(x):
        x = np.asarray(x)
        if x.dtype.kind == "c" and dtype.kind != "c":
            return solve(x.real) + 1j * solve(x.imag)
        return lu.solve(np.ascontiguousarray(x, dtype))

    return LinearOperator(lu.shape, matvec=solve, matmat=solve, dtype=dtype)


def chosen(name, A, B, sigma, dtype, alone):
    """The preconditioner of that name for sparse matrices A and B.

    Parameters
    ----------
    A : sparse matrix or None
        None for an A without entries.
    B : sparse matrix, None or UNKNOWN
        None for the identity, UNKNOWN for a B without entries.
    sigma : float or None
        Shift of an exact inverse, below all values.
    alone : bool
        Whether all rows are on this process.
    """
    if name not in NAMES:
        raise ValueError(f"T must be one of {', '.join(map(repr, NAMES))}, not {name!r}")
    if sigma is not None:
        if name not in ("auto", "shift-invert"):
            raise ValueError(f"sigma makes a preconditioner: leave T = {name!r} out")
        name = "shift-invert"
    if name == "inner":
        return Preconditioner("inner")
    needs_B = B is UNKNOWN and name == "shift-invert"
    if A is None or not alone or needs_B:
        if name == "auto":
            return Preconditioner()
        raise ValueError(f"T = {name!r} needs a sparse matrix {'B' if needs_B else 'A'} on one"
                         " process")
    if name == "shift-invert":
        return _shift_invert(A, B, sigma, dtype)
    if name == "jacobi":
        return _jacobi(A, dtype)
    if name == "auto" and np.any(A.diagonal().real <= 0):
        return Preconditioner()
    if name == "auto" and B is not UNKNOWN and _are_factors_cheap(A, B):
        return _shift_invert(A, B, None, dtype)
    return _incomplete(A, dtype) or _jacobi(A, dtype)


def chosen_by_blocks(name, block, is_positive, dtype):
    """The same on several processes, each with the block of A that couples its own rows, and
    whether the whole diagonal is positive."""
    if name not in ("auto", "ic", "jacobi"):
        raise ValueError(f"T = {name!r} needs all rows on one process; on several there are 'ic',"
                         " 'jacobi' and 'inner'")
    if name == "auto" and not is_positive:
        return Preconditioner()
    made = None
    if block.shape[0] > 0:
        made = name != "jacobi" and _incomplete(block, dtype) or _jacobi(block, dtype)
    if made is None or made.operand is None:  # there are no rows, or only a diagonal of zeros
        made = Preconditioner("jacobi", lambda x: x, block.shape[0], dtype)
    made.name = "ic" if name == "auto" else name  # on all processes
    return made


def _jacobi(A, dtype):
    diagonal = np.abs(A.diagonal())
    largest = np.max(diagonal, initial=0)
    if largest == 0:
        return Preconditioner()
    # A row whose diagonal nearly vanishes must not outweigh all others.
    inverse = 1 / np.maximum(diagonal, 1e-12 * largest)
    return Preconditioner("jacobi", lambda x: (inverse * x.T).T, len(inverse), dtype)


def _are_factors_cheap(A, B):
    """Whether exact factors hold few entries, as nested dissection would leave them: n log n, and
    squares of separators, which are as wide as the levels of the graph."""
    pattern = abs(A) if B is None else abs(A) + abs(B)
    n = pattern.shape[0]
    order = reverse_cuthill_mckee(pattern.tocsr(), symmetric_mode=True)
    entries = pattern.tocsr()[order][:, order].tocoo()
    reach = np.zeros(n)
    np.maximum.at(reach, entries.row, entries.row - entries.col)
    filled = n * np.log2(max(n, 2)) + 16 * np.mean(reach) ** 2
    return filled <= max(SMALL, MOST_FILLED * pattern.nnz)


def _definite_factors(matrix):
    """Factors of a Hermitian matrix by pivots on the diagonal, and how many of these are not
    positive: by Sylvester's law as many values are not above zero. None: they break down."""
    try:
        lu = splu(matrix.tocsc(), permc_spec="MMD_AT_PLUS_A", diag_pivot_thresh=0.0,
                  options={"SymmetricMode": True})
    except RuntimeError:  # a pivot is zero
        return None, matrix.shape[0]
    pivots = lu.U.diagonal().real
    if not np.array_equal(lu.perm_r, lu.perm_c) or not np.all(np.isfinite(pivots)):
        return None, matrix.shape[0]
    return lu, int(np.count_nonzero(pivots <= 0))


def _shift_invert(A, B, sigma, dtype):
    """(A - sigma B)^-1; without a sigma the first below all values, from just below zero down."""
    B = sparse.identity(A.shape[0], A.dtype, "csr") if B is None else B
    double = np.result_type(dtype, np.float64)
    A, B = A.astype(double), B.astype(double)
    if sigma is not None:
        lu, below = _definite_factors(A - float(sigma) * B)
        if lu is None or below > 0:
            raise ValueError("sigma must lie outside the spectrum, at the end that is wanted: the"
                             " pairs of an end are found without it as well, those in the middle"
                             " by scipy.sparse.linalg.eigsh")
        return Preconditioner("shift-invert", _factors(lu).matmat, A.shape[0], double)
    norms = [np.max(np.asarray(abs(each).sum(axis=1)), initial=0) for each in (A, B)]
    scale = norms[0] / (norms[1] or 1) or 1.0
    for part in 10.0 ** np.arange(-6, 8):
        lu, below = _definite_factors(A + part * scale * B)
        if lu is not None and below == 0:
            return Preconditioner("shift-invert", _factors(lu).matmat, A.shape[0], double)
    raise ValueError("T = 'shift-invert': no shift makes A - shift B positive definite; is B?")


def _incomplete(A, dtype):
    """L D L^H by an incomplete factorization of A, with a diagonal raised where D is not positive;
    None where that does not help."""
    double = np.result_type(dtype, np.float64)
    A = A.astype(double).tocsc()
    diagonal = sparse.diags(A.diagonal().real)
    for raised in (0.0, 1e-3, 1e-2, 1e-1):
        try:
            ilu = spilu(A + raised * diagonal, drop_tol=1e-3, fill_factor=4, diag_pivot_thresh=0.0,
                        permc_spec="MMD_AT_PLUS_A", options={"SymmetricMode": True})
        except RuntimeError:
            continue
        pivots = ilu.U.diagonal().real
        if np.array_equal(ilu.perm_r, ilu.perm_c) and np.all(pivots > 0):
            break
    else:
        return None
    # Both solves by the unit lower triangle alone, so that T is Hermitian whatever was dropped.
    lower = splu(ilu.L.tocsc(), permc_spec="NATURAL", diag_pivot_thresh=0.0)
    order, pivots = np.argsort(ilu.perm_r), pivots.copy()

    def solve(x):
        x = np.asarray(x)
        if x.dtype.kind == "c" and double.kind != "c":
            return solve(x.real) + 1j * solve(x.imag)
        inner = lower.solve(np.ascontiguousarray(x[order], double))
        inner = lower.solve(((inner.T) / pivots).T, "H")
        result = np.empty_like(inner)
        result[order] = inner
        return result

    return Preconditioner("ic", solve, A.shape[0], double)
