"""Problems with a matrix at hand."""

import numpy as np
import scipy.sparse as sparse


def line(n, dtype=float):
    """tridiag(-1, 2, -1), whose values are 2 - 2 cos(i pi / (n + 1))."""
    return sparse.diags([-1, 2, -1], [-1, 0, 1], shape=(n, n), format="csr", dtype=dtype)


def line_values(n, k):
    return 2 - 2 * np.cos(np.pi * np.arange(1, k + 1) / (n + 1))


def mass(n):
    """Mass matrix of linear elements on as many points."""
    return sparse.diags([1 / 6, 2 / 3, 1 / 6], [-1, 0, 1], shape=(n, n), format="csc")


def ring(n, flux):
    """Hopping around a ring with a complex phase."""
    hop = sparse.diags([np.exp(1j * flux / n)] * 2, [1, 1 - n], shape=(n, n))
    return (-hop - hop.conj().T).tocsr()


def random_hermitian(n, dtype, seed=3):
    rng = np.random.default_rng(seed)
    entries = rng.standard_normal((n, n))
    if np.dtype(dtype).kind == "c":
        entries = entries + 1j * rng.standard_normal((n, n))
    return ((entries + entries.conj().T) / 2).astype(dtype)


def gallery():
    """Matrices of various kinds and formats, by name."""
    levels = np.repeat(np.arange(1, 21), 10) + np.random.default_rng(1).uniform(0, 1e-3, 200)
    return {
        "square": sparse.kronsum(line(18), line(21), format="csc"),
        "cube": sparse.kronsum(sparse.kronsum(line(7), line(8)), line(9), format="bsr"),
        "dense real": random_hermitian(120, float),
        "dense complex": random_hermitian(90, complex),
        "ring with flux": ring(101, 0.7),
        "clusters": sparse.diags(levels, format="dia"),
        "bending beam": (line(80) @ line(80)).tocoo(),
    }
