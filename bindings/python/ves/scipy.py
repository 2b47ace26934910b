"""`eigsh` and `lobpcg` with the arguments and results of those in `scipy.sparse.linalg`, by libves.

>>> from ves.scipy import eigsh, lobpcg  # in place of scipy.sparse.linalg

Values are the same but for their accuracy: `tol` bounds residuals here. What a block method cannot
do, pairs in the middle of the spectrum of a large problem, is refused by a ValueError that names
the way.
"""

import warnings

import numpy as np
from scipy.sparse.linalg import aslinearoperator

from . import _solve
from ._results import ConvergenceWarning

__all__ = ["eigsh", "lobpcg"]

FINEST = 1e-10  # relative threshold of tol = 0, which in scipy stands for rounding
WHOLE = 64  # order up to which all pairs are computed


def eigsh(A, k=6, M=None, sigma=None, which="LM", v0=None, ncv=None, maxiter=None, tol=0,
          return_eigenvectors=True, Minv=None, OPinv=None, mode="normal"):
    """Pairs at the ends of the spectrum, as `scipy.sparse.linalg.eigsh`.

    Parameters
    ----------
    A, k, M, v0, return_eigenvectors
        As there: k values in ascending order, and vectors that are orthonormal in M.
    sigma : float, optional
        As there, but above an order of 64 with which = "LM" alone, and below or above all values:
        the pairs next to it. A is a sparse matrix then, or OPinv is given.
    which : {"LM", "SA", "LA", "SM", "BE"}
        "LM" looks at both ends where it must; "SM" wants an A without negative values where the
        order is above 64.
    maxiter : int, optional
        Iterations of a block method, by default 1000.
    tol : float
        Relative accuracy of values; 0 for 1e-10.
    OPinv : LinearOperator, optional
        (A - sigma M)^-1.
    mode : {"normal", "buckling", "cayley"}
        How values are measured beside sigma; above an order of 64 "normal" alone.
    ncv, Minv
        Not needed.

    Returns
    -------
    w : ndarray of shape (k,)
    v : ndarray of shape (n, k)
        Where return_eigenvectors is set.

    Raises
    ------
    ValueError
        For pairs in the middle of the spectrum of a large problem.
    """
    if which not in _ENDS:
        raise ValueError(f"which must be one of {', '.join(map(repr, _ENDS))}, not {which!r}")
    if mode not in _MEASURES:
        raise ValueError(f"mode must be one of {', '.join(map(repr, _MEASURES))}, not {mode!r}")
    settings = dict(B=M, X0=v0, maxiter=maxiter or 1000)
    if np.dtype(getattr(A, "dtype", float)) not in (np.float32, np.complex64):
        settings["tol"] = max(tol, FINEST)
    elif tol > 0:
        settings["tol"] = tol
    order = _order(A)
    if order is not None and k <= order <= WHOLE:
        pairs = _of_all(A, k, order, sigma, which, mode, settings)
    elif sigma is None:
        pairs = _ENDS[which](A, k, settings)
    elif which == "LM" and mode == "normal":
        pairs = _next_to(A, k, sigma, OPinv, settings)
    else:
        raise ValueError(f"sigma with which = {which!r} and mode = {mode!r}: only 'LM' and"
                         " 'normal', the pairs next to it")
    return pairs if return_eigenvectors else pairs[0]


def _order(A):
    shape = getattr(A, "shape", None) or np.shape(A)
    return shape[0] if shape else None


def _of_all(A, k, order, sigma, which, mode, settings):
    """Chosen from all pairs, by what scipy measures values by."""
    guess = settings.pop("X0")
    if guess is not None:
        settings["X0"] = np.reshape(guess, (order, -1))
    values, vectors = _solve.eigsh(A, order, guard=0, precision="double", **settings)
    with np.errstate(divide="ignore"):
        measured = values if sigma is None else _MEASURES[mode](values, sigma)
    ranks = np.argsort(measured)
    size = np.argsort(np.abs(measured))
    chosen = {"SA": ranks[:k], "LA": ranks[order - k:], "SM": size[:k], "LM": size[order - k:],
              "BE": np.r_[ranks[:k // 2], ranks[order - (k - k // 2):]]}[which]
    chosen = np.sort(chosen)  # values ascend
    return values[chosen], vectors[:, chosen]


_MEASURES = {"normal": lambda w, sigma: 1 / (w - sigma),
             "buckling": lambda w, sigma: w / (w - sigma),
             "cayley": lambda w, sigma: (w + sigma) / (w - sigma)}


def _lowest(A, k, settings):
    return tuple(_solve.eigsh(A, k, which="SA", **settings))


def _highest(A, k, settings):
    return tuple(_solve.eigsh(A, k, which="LA", **settings))


def _joined(low, high, order):
    """The pairs of two ends that order(values) chooses, with ascending values."""
    values, vectors = (np.concatenate(both, axis=-1) for both in zip(low, high))
    chosen = order(values)
    chosen = chosen[np.argsort(values[chosen])]
    return values[chosen], vectors[:, chosen]


def _largest_magnitude(A, k, settings):
    high = _highest(A, k, settings)
    lowest = _lowest(A, 1, settings)
    if -lowest[0][0] <= high[0][0] or k == high[1].shape[0]:
        return high
    low = _lowest(A, min(k, high[1].shape[0] - k), settings)  # none of them is in both
    return _joined(low, high, lambda values: np.argsort(-np.abs(values))[:k])


def _smallest_magnitude(A, k, settings):
    pairs = _solve.eigsh(A, k, which="SA", **settings)
    if np.any(pairs.values < -max(pairs.threshold, 1e-8 * (pairs.norm_estimate or 0.0))):
        raise ValueError("which = 'SM': A has negative values, so these are in the middle of the"
                         " spectrum; take scipy.sparse.linalg.eigsh with sigma = 0")
    return tuple(pairs)


def _both_ends(A, k, settings):
    high = _highest(A, (k + 1) // 2, settings)
    if k == 1:
        return high
    return _joined(_lowest(A, k // 2, settings), high, lambda values: np.arange(k))


_ENDS = {"LM": _largest_magnitude, "SA": _lowest, "LA": _highest, "SM": _smallest_magnitude,
         "BE": _both_ends}


def _next_to(A, k, sigma, inverse, settings):
    if inverse is not None:
        inverse = aslinearoperator(inverse)
        x = np.random.default_rng(0).standard_normal(inverse.shape[0])
        is_below = np.vdot(x, inverse.matvec(x)).real > 0
        T = inverse if is_below else lambda X: -inverse.matmat(X)
        values, vectors = _solve.eigsh(A, k, which="SA" if is_below else "LA", T=T, **settings)
        if np.any((values > sigma) != is_below):
            raise ValueError("sigma must lie outside the spectrum, at the end that is wanted")
        return values, vectors
    refusals = []
    for which in "SA", "LA":
        try:
            return tuple(_solve.eigsh(A, k, which=which, sigma=sigma, **settings))
        except ValueError as refusal:
            refusals.append(refusal)
    raise refusals[0]


def lobpcg(A, X, B=None, M=None, Y=None, tol=None, maxiter=None, largest=True, verbosityLevel=0,
           retLambdaHistory=False, retResidualNormsHistory=False, restartControl=20):
    """Pairs at an end of the spectrum from a block of vectors, as `scipy.sparse.linalg.lobpcg`.

    Parameters
    ----------
    A, X, B, M, Y, largest
        As there: operator, guess, operator of the generalized problem, preconditioner, columns
        that vectors are kept orthogonal to in B, and the end of the spectrum.
    tol : float, optional
        Bound of residuals, by default and for 0 sqrt(1e-15) n.
    maxiter : int, optional
        By default 1000.
    verbosityLevel : int
        Above 0 a line is written for each iteration.
    restartControl : int
        Not needed.

    Returns
    -------
    w : ndarray of shape (k,)
        Descending where largest is set, else ascending.
    v : ndarray of shape (n, k)
    lambdas, residual_norms : list of ndarray
        Of each iteration, where they are asked for.
    """
    X = np.asarray(X)
    if X.ndim != 2:
        raise ValueError(f"X must have a column for each pair, not the shape {X.shape}")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", ConvergenceWarning)
        result = _solve.eigsh(
            A, X.shape[1], B, which="LA" if largest else "SA", T=M, X0=X, deflate=Y,
            absolute_tol=tol if tol is not None and tol > 0 else np.sqrt(1e-15) * X.shape[0],
            maxiter=1000 if maxiter is None else max(maxiter, 1), progress=verbosityLevel > 0)
    if not result.converged:
        text = f"Exited at iteration {result.iterations}: {result.summary()}"
        warnings.warn(ConvergenceWarning(text, result), stacklevel=2)
    order = slice(None, None, -1) if largest else slice(None)
    found = [result.values[order], result.vectors[:, order]]
    if retLambdaHistory:
        found.append([state.values for state in result.history])
    if retResidualNormsHistory:
        found.append([state.residuals for state in result.history])
    return tuple(found)
