"""`eigsh` and `lobpcg` with the arguments and results of those in `scipy.sparse.linalg`, by libves.

>>> from ves.scipy import eigsh, lobpcg  # in place of scipy.sparse.linalg

Values are the same but for their accuracy: `tol` bounds residuals here. What a block method cannot
do, pairs in the middle of the spectrum, is refused by a ValueError that names the way.
"""

import numpy as np
from scipy.sparse.linalg import aslinearoperator

from . import _solve

__all__ = ["eigsh", "lobpcg"]

FINEST = 1e-10  # relative threshold of tol = 0, which in scipy stands for rounding


def eigsh(A, k=6, M=None, sigma=None, which="LM", v0=None, ncv=None, maxiter=None, tol=0,
          return_eigenvectors=True, Minv=None, OPinv=None, mode="normal"):
    """Pairs at the ends of the spectrum, as `scipy.sparse.linalg.eigsh`.

    Parameters
    ----------
    A, k, M, v0, return_eigenvectors
        As there: k values in ascending order, and vectors that are orthonormal in M.
    sigma : float, optional
        As there with which = "LM", but below or above all values: the pairs next to it. A is a
        sparse matrix then, or OPinv is given.
    which : {"LM", "SA", "LA", "SM", "BE"}
        "LM" looks at both ends where it must; "SM" wants an A without negative values.
    maxiter : int, optional
        Iterations of a block method, by default 1000.
    tol : float
        Relative accuracy of values; 0 for 1e-10.
    OPinv : LinearOperator, optional
        (A - sigma M)^-1.
    ncv, Minv, mode
        Not needed; a mode other than "normal" is refused.

    Returns
    -------
    w : ndarray of shape (k,)
    v : ndarray of shape (n, k)
        Where return_eigenvectors is set.

    Raises
    ------
    ValueError
        For pairs in the middle of the spectrum.
    """
    if mode != "normal":
        raise ValueError(f"mode = {mode!r}: only 'normal' is known; take scipy.sparse.linalg.eigsh")
    settings = dict(B=M, X0=v0, maxiter=maxiter or 1000)
    if np.dtype(getattr(A, "dtype", float)) not in (np.float32, np.complex64):
        settings["tol"] = max(tol, FINEST)
    elif tol > 0:
        settings["tol"] = tol
    if sigma is not None:
        if which != "LM":
            raise ValueError(f"sigma with which = {which!r}: only 'LM', the pairs next to it")
        pairs = _next_to(A, k, sigma, OPinv, settings)
    elif which in _ENDS:
        pairs = _ENDS[which](A, k, settings)
    else:
        raise ValueError(f"which must be one of {', '.join(map(repr, _ENDS))}, not {which!r}")
    return pairs if return_eigenvectors else pairs[0]


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
    return _joined(_lowest(A, k, settings), high, lambda values: np.argsort(-np.abs(values))[:k])


def _smallest_magnitude(A, k, settings):
    pairs = _lowest(A, k, settings)
    noise = 1e-8 * np.max(np.abs(pairs[0]))
    if np.any(pairs[0] < -noise):
        raise ValueError("which = 'SM': A has negative values, so these are in the middle of the"
                         " spectrum; take scipy.sparse.linalg.eigsh with sigma = 0")
    return pairs


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
        return tuple(_solve.eigsh(A, k, which="SA" if is_below else "LA", T=T, **settings))
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
        Bound of residuals, by default sqrt(1e-15) n as there.
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
    result = _solve.eigsh(
        A, X.shape[1], B, which="LA" if largest else "SA", T=M, X0=X, deflate=Y,
        absolute_tol=np.sqrt(1e-15) * X.shape[0] if tol is None else tol,
        maxiter=1000 if maxiter is None else max(maxiter, 1), progress=verbosityLevel > 0)
    order = slice(None, None, -1) if largest else slice(None)
    found = [result.values[order], result.vectors[:, order]]
    if retLambdaHistory:
        found.append([state.values for state in result.history])
    if retResidualNormsHistory:
        found.append([state.residuals for state in result.history])
    return tuple(found)
