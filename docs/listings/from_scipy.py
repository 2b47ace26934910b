"""The same six values by the functions of scipy and by libves."""
import numpy as np
import scipy.sparse as sparse
from scipy.sparse.linalg import LinearOperator, eigsh, lobpcg, splu

import ves

line = sparse.diags([-1, 2, -1], [-1, 0, 1], shape=(40, 40))
A = sparse.kronsum(line, line, format="csc")
B = sparse.diags(np.linspace(1, 2, A.shape[0]), format="csc")
inverse = splu(A).solve
X = np.random.default_rng(1).standard_normal((A.shape[0], 6))

# before: a Lanczos method that inverts A, and a block method
lanczos, _ = eigsh(A, k=6, M=B, sigma=0)
T = LinearOperator(A.shape, matvec=inverse, matmat=inverse)
blocks, _ = lobpcg(A, X, B=B, M=T, largest=False, tol=1e-8, maxiter=100)

# after: the inverse is a preconditioner
values, vectors = ves.eigsh(A, k=6, B=B, T=inverse, X0=X)

assert np.allclose(values, lanczos, rtol=1e-10)
assert np.allclose(values, blocks, rtol=1e-10)
