import numpy as np
import pytest
import scipy.sparse as sparse
import scipy.sparse.linalg as theirs

import ves
import ves.scipy as ours
from problems import line, line_values, mass, random_hermitian


def square(points):
    return sparse.kronsum(line(points), line(points), format="csr")


@pytest.mark.parametrize("dtype", [np.float64, np.complex128, np.float32])
def test_ends_of_the_spectrum(dtype):
    A = random_hermitian(70, dtype)
    exact = np.linalg.eigvalsh(A.astype(np.complex128))
    largest = exact[np.argsort(-abs(exact))[:5]]
    assert largest.min() < 0 < largest.max()
    accuracy = 1e-3 if dtype == np.float32 else 1e-9
    for which, expected in (("LM", np.sort(largest)), ("SA", exact[:5]), ("LA", exact[-5:]),
                            ("BE", exact[[0, 1, -3, -2, -1]])):
        values, vectors = ours.eigsh(A, 5, which=which)
        assert np.allclose(values, expected, rtol=0, atol=accuracy), which
        assert ves.check(A, values, vectors).max_residual < 10 * accuracy
    negative = np.diag(np.arange(-100.0, 0))
    assert np.allclose(ours.eigsh(negative, 60)[0], np.arange(-100, -40))  # ends that meet
    path = sparse.diags(np.r_[1, np.full(198, 2.0), 1]) - sparse.diags([1, 1], [1, -1], (200, 200))
    assert abs(ours.eigsh(path, 1, which="SM")[0][0]) < 1e-9
    alone = ours.eigsh(A, 5, which="LA", return_eigenvectors=False)
    assert np.allclose(alone, exact[-5:], rtol=0, atol=accuracy)


def test_next_to_a_shift():
    A, B = square(20), sparse.kron(mass(20), mass(20), format="csr")
    for sigma, M in (-0.5, None), (9.0, None), (0.0, B), (400.0, B):
        expected = np.sort(theirs.eigsh(A, 4, M=M, sigma=sigma)[0])
        assert np.allclose(ours.eigsh(A, 4, M=M, sigma=sigma)[0], expected, rtol=1e-9)
    inverse = theirs.LinearOperator(A.shape, theirs.splu(A.tocsc()).solve)
    assert np.allclose(ours.eigsh(A, 4, sigma=0, OPinv=inverse)[0],
                       ves.eigsh(A, 4, sigma=0).values, rtol=1e-9)
    with pytest.raises(ValueError, match="outside the spectrum"):
        ours.eigsh(A, 4, sigma=3.0)
    with pytest.raises(ValueError, match="'SM': A has negative values"):
        ours.eigsh(A - 3 * sparse.identity(400), 4, which="SM")


def test_blocks_with_constraints_and_histories():
    A = square(30)
    X = np.random.default_rng(1).standard_normal((900, 4))
    for largest in True, False:
        values, vectors, lambdas, norms = ours.lobpcg(
            A, X, largest=largest, tol=1e-7, retLambdaHistory=True, retResidualNormsHistory=True)
        exact = np.sort(np.add.outer(line_values(30, 30), line_values(30, 30)), axis=None)
        assert np.allclose(values, exact[::-1][:4] if largest else exact[:4], rtol=0, atol=1e-10)
        assert np.linalg.norm(A @ vectors - vectors * values, axis=0).max() < 2e-7
        assert len(lambdas) == len(norms) and np.allclose(lambdas[-1], values, atol=1e-6)
    ring = sparse.diags([-1, 2, -1, -1, -1], [-1, 0, 1, 99, -99], shape=(100, 100))
    T = sparse.diags(1 / ring.diagonal())
    values, vectors = ves.lobpcg(ring, X[:100], M=T, Y=np.ones((100, 1)), largest=False, tol=1e-8)
    assert np.allclose(values, 2 - 2 * np.cos(2 * np.pi * np.array([1, 1, 2, 2]) / 100), atol=1e-12)
    assert np.max(np.abs(vectors.sum(axis=0))) < 1e-10


def test_highest_pairs_and_what_is_told_of_them(capfd):
    A, B = square(15), sparse.kron(mass(15), mass(15), format="csr")
    seen = []
    result = ves.eigsh(A, 3, B, which="LA", progress=True, monitor=seen.append)
    expected = np.sort(theirs.eigsh(A, 3, M=B, which="LA")[0])
    assert result.converged and np.allclose(result.values, expected, rtol=1e-9)
    assert np.all(np.diff(result.values) >= 0) and np.allclose(seen[-1].values[::-1], expected)
    assert ves.check(A, *result, B=B).max_residual < 2 * result.threshold
    assert f"iteration {result.iterations}: 3 of 3 pairs" in capfd.readouterr().err


def test_preconditioners_by_name_and_of_others():
    A = square(40)
    plain = ves.eigsh(A, 4, T=None, inner=0)

    class Hierarchy:
        def aspreconditioner(self):
            return theirs.aslinearoperator(sparse.diags(1 / A.diagonal()))

    for T, name in (("auto", "shift-invert"), ("shift-invert", "shift-invert"), ("ic", "ic"),
                    ("jacobi", "jacobi"), ("inner", "inner"), (Hierarchy(), "given"),
                    (theirs.splu((A + 0.1 * sparse.identity(1600)).tocsc()), "given")):
        result = ves.eigsh(A, 4, T=T)
        assert result.converged and np.allclose(result.values, plain.values, rtol=1e-9), name
        assert result.settings.preconditioner == name
        if name not in ("jacobi", "given"):
            assert result.iterations < plain.iterations / 2
    assert ves.eigsh(-A, 4).settings.preconditioner is None  # its diagonal tells nothing
    complexes = A.astype(complex) + 1e-3 * sparse.diags([1j, -1j], [1, -1], shape=A.shape)
    for T in "ic", "shift-invert":
        assert ves.eigsh(complexes, 4, T=T).converged


def test_rows_without_mass():
    """Of finite elements with prescribed values: B is empty there, A the identity."""
    A, B = line(50).tolil(), mass(50).tolil()
    for row in 0, 49:
        A[row, :], A[:, row], B[row, :], B[:, row] = 0, 0, 0, 0
        A[row, row] = 1
    exact = ves.eigsh(line(48), 4, mass(48)).values
    for T in "auto", None:
        assert np.allclose(ves.eigsh(A.tocsr(), 4, B.tocsr(), T=T).values, exact, rtol=1e-8)


def test_products_are_counted():
    A, applied = square(20), []

    def multiply(X):
        applied.append(X.shape[1])
        return A @ X

    for settings in {}, {"absolute_tol": 1e-6}, {"absolute_tol": 1e-6, "verify": False}:
        applied.clear()
        result = ves.eigsh(multiply, 4, n=400, precision="double", **settings)
        assert result.statistics.columns_A == sum(applied)
    assert result.norm_estimate is None and np.all(result.residuals < 1e-6)
