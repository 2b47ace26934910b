"""The lowest eigenvalues of a square drum, from the first call to one without a matrix."""

import numpy as np
import scipy.sparse as sparse
import scipy.sparse.linalg

import ves

# The Laplacian of the unit square by finite differences on 60 x 60 inner points.
points = 60
h = 1 / (points + 1)
line = sparse.diags([-1, 2, -1], [-1, 0, 1], shape=(points, points)) / h**2
A = sparse.kronsum(line, line, format="csc")

# A matrix is all that is needed: the preconditioner, an approximate inverse, is chosen by its entries.
# The result unpacks, and knows more than values and vectors.
values, vectors = result = ves.eigsh(A, k=6)
print(result.summary())

# Waves along both sides, (i pi)^2 + (j pi)^2 but for the error of the finite differences.
frequencies = (2 / h * np.sin(np.arange(1, 4) * np.pi * h / 2)) ** 2
exact = np.sort(np.add.outer(frequencies, frequencies), axis=None)[:6]
assert np.allclose(values, exact, rtol=1e-9)

# What it saves, and one of your own, here the factors of a shifted matrix.
plain = ves.eigsh(A, k=6, T=None)
print(plain.summary())
factors = scipy.sparse.linalg.splu(A - 10 * sparse.identity(points**2, format="csc"))
own = ves.eigsh(A, k=6, T=factors, inner=0)
assert max(result.iterations, own.iterations) < plain.iterations

# A may be a routine instead, here one that never forms the matrix, and vectors of a neighbouring
# problem are a good start. The monitor follows the run.


def drum(X, out):
    """Multiplies a block: every column of X is a field on the grid."""
    field = X.T.reshape(-1, points, points)
    product = 4 * field
    product[:, 1:] -= field[:, :-1]
    product[:, :-1] -= field[:, 1:]
    product[:, :, 1:] -= field[:, :, :-1]
    product[:, :, :-1] -= field[:, :, 1:]
    out[...] = product.reshape(-1, points**2).T / h**2


def follow(progress):
    if progress.iteration % 10 == 0:
        print(f"iteration {progress.iteration}: {progress.converged} of {progress.wanted} pairs")


again = ves.eigsh(drum, X0=vectors[:, :4], k=8, monitor=follow)
print(again.summary())
print("residual and orthogonality, recomputed:", ves.check(A, *again))
assert np.allclose(again.values[:6], exact, rtol=1e-9)
