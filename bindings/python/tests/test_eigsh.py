import doctest
import itertools
import pickle
from pathlib import Path
from xml.etree import ElementTree

import numpy as np
import pytest
import scipy.linalg
import scipy.sparse as sparse
from scipy.sparse.linalg import LinearOperator, eigsh, splu

import ves
from problems import gallery, line, line_values, mass, random_hermitian, ring


def test_listings_of_the_documentation():
    listing = (Path(__file__).parents[1] / "README.md").read_text().split("```")[1]
    names = {}
    exec(listing.removeprefix("python"), names)
    assert names["values"].shape == (6,)
    assert doctest.testmod(ves) == (0, 3)


@pytest.mark.parametrize("name", gallery())
def test_agrees_with_scipy(name):
    A = gallery()[name]
    result = ves.eigsh(A, k=5, maxiter=4000)
    expected = np.sort(eigsh(A, k=5, which="SA", return_eigenvectors=False, maxiter=10**5))
    assert result.converged
    # The error of a value is below its residual.
    assert np.allclose(result.values, expected, rtol=0, atol=result.threshold)
    quality = ves.check(A, *result)
    assert quality.max_residual < 2 * result.threshold and quality.max_ortho_error < 1e-10
    assert np.isclose(np.max(result.residuals), quality.max_residual, rtol=1e-3)


@pytest.mark.parametrize("solver", ["lobpcg", "lobpcg_batch", "ppcg"])
@pytest.mark.parametrize("dtype", [np.float32, np.float64, np.complex64, np.complex128])
def test_scalar_types(solver, dtype):
    A = random_hermitian(80, dtype)
    result = ves.eigsh(A, 8, solver=solver, batch=None if solver == "lobpcg" else 4)
    real = np.dtype(dtype).type(0).real.dtype
    assert result.converged and result.vectors.dtype == dtype and result.values.dtype == real
    exact = np.linalg.eigvalsh(A.astype(np.complex128))[:8]
    assert np.allclose(result.values, exact, rtol=0, atol=result.threshold)
    B = np.diag(np.linspace(1, 2, 80)).astype(dtype)
    generalized = ves.eigsh(A, 8, B, solver=solver)
    assert generalized.converged
    assert np.allclose(generalized.values, scipy.linalg.eigvalsh(A, B)[:8], rtol=0,
                       atol=2 * generalized.threshold)


def test_what_types_are_taken_for():
    for given, computed in ((np.int32, np.float64), (bool, np.float64), (np.float16, np.float32),
                            (">f8", np.float64)):
        result = ves.eigsh(np.diag(np.arange(8) % 2).astype(given), 2)
        assert result.vectors.dtype == computed and np.allclose(result.values, 0, atol=1e-6)
    # Complex operators and guesses make a problem complex, but a guess does not make it double.
    assert ves.eigsh(line(30), 2, T=ring(30, 0) + 5 * sparse.eye(30)).vectors.dtype == complex
    guess = np.ones((30, 1), complex)
    assert ves.eigsh(line(30, np.float32), 2, X0=guess).vectors.dtype == np.complex64
    assert ves.eigsh(line(30), 2, dtype=np.complex64).vectors.dtype == np.complex64
    assert ves.eigsh(lambda X: line(30) @ X, 2, n=30).vectors.dtype == np.float64


def test_residuals_of_wide_blocks_come_in_panels(monkeypatch):
    A, widths = line(60), []

    def multiply(X):
        widths.append(X.shape[1])
        return A @ X

    monkeypatch.setattr(ves._settings, "LARGEST_INT", 130)  # entries of two columns
    result = ves.eigsh(multiply, 5, n=60, guard=0)
    assert widths[-3:] == [2, 2, 1]
    expected = np.linalg.norm(A @ result.vectors - result.vectors * result.values, axis=0)
    assert np.allclose(result.residuals, expected, rtol=1e-3, atol=1e-14)


def test_forms_of_an_operator():
    A, seen = line(60), []

    def fills(X, out):
        seen.append((X.flags.writeable, X.flags.f_contiguous, X.dtype))
        out[...] = A @ X

    class Applies:
        shape, dtype = (60, 60), np.dtype(float)

        def matvec(self, x):
            return A @ x

    strided = np.zeros((120, 180))
    strided[::2, ::3] = A.toarray()
    for form in (A.toarray().tolist(), strided[::2, ::3], A.tolil(), fills,
                 lambda X: A @ X, Applies(), LinearOperator((60, 60), matvec=A.dot)):
        result = ves.eigsh(form, 3, n=60)
        assert result.converged and np.allclose(result.values, line_values(60, 3), atol=1e-9)
    assert set(seen) == {(False, True, np.dtype(float))}


def test_generalized_accuracy_does_not_depend_on_the_scale_of_b():
    A, B = line(60), mass(60)
    exact = scipy.linalg.eigvalsh(A.toarray(), B.toarray())[:4]
    # The error of a value is of the order of a squared residual, or of its last change.
    rtols = {"residuals": 1e-9, "relative_residuals": 1e-9, "eigenvalues": 1e-4,
             "residuals_or_eigenvalues": 1e-4}
    for scale, (detector, rtol) in itertools.product((1e-9, 1.0, 1e9), rtols.items()):
        result = ves.eigsh(A, 4, scale * B, detector=detector)
        assert result.converged and np.allclose(scale * result.values, exact, rtol=rtol, atol=0)


def test_preconditioner_and_guess_save_products():
    A = line(200)
    plain = ves.eigsh(A, 3, T=None)
    preconditioned = ves.eigsh(A, 3, T=splu(A.tocsc()).solve)
    assert preconditioned.converged
    assert preconditioned.statistics.columns_A < plain.statistics.columns_A / 4
    assert preconditioned.statistics.columns_T > 0
    again = ves.eigsh(A, X0=plain.vectors)
    assert again.iterations == 0 and len(again.values) == 3
    more = ves.eigsh(A, 5, X0=plain.vectors[:, 0])
    assert more.converged and np.allclose(more.values, line_values(200, 5), atol=1e-9)


def test_deflation():
    A, B = line(120), mass(120)
    exact = scipy.linalg.eigvalsh(A.toarray(), B.toarray())
    first = ves.eigsh(A, 3, B)
    mixed = first.vectors @ np.array([[2.0, 1, 0, 3], [0, 1, 0, 1], [0, 0, 5, 5]])
    beside = ves.eigsh(A, 4, B, deflate=mixed, precision="mixed")
    assert beside.converged and np.allclose(beside.values, exact[3:7], rtol=0, atol=1e-9)
    assert np.max(np.abs(mixed.T @ (B @ beside.vectors))) < 1e-9
    whole = ves.eigsh(ring(12, 0), 11, deflate=np.ones(12))  # all but the constant vector
    assert whole.converged and whole.values[0] > -1.8
    again = ves.eigsh(A, 3, B, X0=first.vectors, deflate=first.vectors[:, :2] * 1e-200)
    assert again.converged and np.allclose(again.values, exact[2:5], rtol=0, atol=1e-9)
    # Three of the four columns are independent.
    rest = ves.eigsh(A, 117, B, deflate=mixed)
    assert rest.converged and np.allclose(rest.values, exact[3:], rtol=0, atol=1e-9)
    with pytest.raises(ValueError, match="beside what is deflated"):
        ves.eigsh(A, 118, deflate=mixed)


def test_both():
    """Images of A and B from one routine, for explicit matrices."""
    A, B = line(150).toarray(), mass(150).toarray()
    plain, calls = ves.eigsh(A, 4, B), []

    def both(X):
        calls.append(X.shape[1])
        return A @ X, B @ X

    def fails(X):
        raise ArithmeticError("no images")

    shared = ves.eigsh(A, 4, B, both=both, solver="lobpcg")
    assert sum(calls) > shared.iterations
    wrong = ves.eigsh(A, 4, B, both=lambda X: (A @ X, 2 * X), solver="lobpcg")
    for result in shared, wrong:
        assert result.converged and np.allclose(result.values, plain.values, rtol=0, atol=1e-9)
    with pytest.raises(ArithmeticError, match="no images"):
        ves.eigsh(A, 4, B, both=fails, solver="lobpcg")


def test_precision_inner_steps_and_guards():
    A, exact = line(400), line_values(400, 5)
    plain = ves.eigsh(A, 5, T=None, precision="double", inner=0, guard=0)
    helped = ves.eigsh(A, 5, T=None, precision="mixed", inner=8, guard=3)
    assert plain.statistics.columns_low == 0 < helped.statistics.columns_low
    assert helped.iterations < plain.iterations / 4
    assert ves.eigsh(A.dot, 5, n=400).statistics.columns_low == 0  # nothing to copy
    for result in plain, helped:
        assert result.converged and np.allclose(result.values, exact, rtol=0, atol=1e-11)
        assert result.vectors.shape == (400, 5) and result.history[-1].wanted == 5
    for wrong in ({"precision": "low"}, {"inner": -1}, {"guard": -1}):
        with pytest.raises(ValueError):
            ves.eigsh(A, 5, **wrong)
    with pytest.raises(ValueError, match="double precision"):
        ves.eigsh(A, 5, dtype=np.float32, precision="mixed")


def test_result_tells_of_the_run():
    seen = []
    assert ves.eigsh(line(100), 70).settings.solver == "lobpcg"  # which spans all of it at once
    result = ves.eigsh(line(300), 70, monitor=seen.append)
    assert result.settings.solver == "lobpcg_batch" and result.settings.batch == 64
    assert result.reason == "converged" and result.n_converged == 70
    assert len(seen) == len(result.history) and seen[-1].wanted == 70
    # A copy of every step, not views of memory that is gone.
    assert np.all(result.history[0].values > result.history[-1].values + 1e-3)
    assert result.statistics.columns_A >= result.history[-1].columns_A > 0
    assert 300 * 70 * 8 < result.memory_forecast < ves.memory_forecast(1000, 70)
    assert 3.99 < result.norm_estimate < 4.4 and result.threshold == 1e-8 * result.norm_estimate
    assert "70 of 70 pairs" in repr(result)
    copy = pickle.loads(pickle.dumps(result))
    assert np.array_equal(copy[0], result.values) and copy.reason == "converged"


@pytest.mark.filterwarnings("ignore::ves.ConvergenceWarning")
@pytest.mark.parametrize("k, lines, arguments", [
    (20, 1, {}), (1, 0, {"detector": "eigenvalues"}), (3, 1, {"which": "LA", "maxiter": 2}),
    (2, 1, {"X0": np.eye(300, 2), "guard": 0, "absolute_tol": 9})])  # at once
def test_picture(k, lines, arguments, tmp_path):
    result = ves.eigsh(line(300), k, **arguments)
    result.plot(tmp_path / "run.svg")
    drawn = list(ElementTree.parse(tmp_path / "run.svg").iter())
    curves = [each.get("d") for each in drawn if each.get("class") == "pair"]
    dots = [each.get("fill") for each in drawn if each.tag.endswith("circle")]
    assert len(curves) == len(dots) == k and dots.count("#fff") == k - result.n_converged
    assert sum(each.get("class") == "threshold" for each in drawn) == 3 * lines  # with its name
    if "which" in arguments:  # the pairs of the picture ascend, those of the run descend
        ends = [float(curve.split()[-1]) for curve in curves]  # from above
        assert list(np.argsort(ends)) == list(np.argsort(-result.history[-1].residuals[::-1]))


def test_absolute_threshold():
    result = ves.eigsh(line(50), 2, absolute_tol=1e-5)
    assert result.threshold == 1e-5 and np.max(result.residuals) < 2e-5


def test_a_run_that_does_not_converge_warns_with_its_result():
    with pytest.warns(ves.ConvergenceWarning, match="0 of 4 pairs.*iterations") as record:
        result = ves.eigsh(line(500), 4, T=None, maxiter=5)
    assert not result.converged and result.reason == "iterations" and result.iterations == 5
    assert record[0].message.result is result and record[0].filename == __file__
    assert np.all(result.values >= line_values(500, 4) - 1e-12)


@pytest.mark.filterwarnings("error::ves.ConvergenceWarning")
def test_monitor_stops_without_warning():
    result = ves.eigsh(line(500), 4, T=None, monitor=lambda progress: progress.iteration == 7)
    assert result.reason == "monitor" and result.iterations == 7


def test_same_seed_gives_the_same_bits():
    first, again, other = (ves.eigsh(line(90), 3, seed=seed) for seed in (1, 1, 2))
    assert np.array_equal(first.vectors, again.vectors)
    assert not np.array_equal(first.vectors, other.vectors)
    assert np.allclose(first.values, other.values, atol=1e-9)


def test_all_pairs_of_small_problems():
    for n in 1, 2, 7:
        result = ves.eigsh(np.diag(np.arange(n)), n)
        assert result.converged and np.allclose(result.values, np.arange(n), atol=1e-12)
    zero = ves.eigsh(np.zeros((9, 9)), 2)
    assert zero.converged and np.array_equal(zero.values, [0, 0])


def test_check_of_foreign_pairs():
    A, B = random_hermitian(40, complex), np.diag(np.linspace(1, 3, 40))
    values, vectors = scipy.linalg.eigh(A, B)
    assert max(ves.check(A, values, vectors, B)) < 1e-12
    assert ves.check(A, values[:1] + 1e-3, vectors[:, 0], B).max_residual > 1e-4
    assert ves.check(A, values, 2 * vectors, B).max_ortho_error == pytest.approx(3)
    with pytest.raises(ValueError, match=r"40 columns .* shape \(3,\)"):
        ves.check(A, values[:3], vectors, B)
