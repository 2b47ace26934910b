import gc
import os
import signal
import threading
import time
import weakref

import numpy as np
import pytest
import scipy.sparse as sparse
from scipy.sparse.linalg import LinearOperator

import ves
from problems import line, line_values


def identity(X):
    return X


REFUSED = {
    "k at least 1": (ValueError, "k must be at least 1", dict(A=np.eye(9), k=0)),
    "k whole": (TypeError, "k must be an integer", dict(A=np.eye(9), k=2.5)),
    "k at most n": (ValueError, "6 pairs are wanted of a problem with 4 rows",
                    dict(A=np.eye(4), k=6)),
    "k below 2^15": (ValueError, "at most 32765", dict(A=identity, n=10**6, k=32766)),
    "k of one block": (ValueError, "smaller batch",
                       dict(A=identity, n=10**5, k=10922, solver="lobpcg")),
    "32 bits": (ValueError, "spread the rows", dict(A=identity, n=10**8, k=8)),
    "no A": (TypeError, "not None", dict(A=None)),
    "A a text": (TypeError, "A must be an array of numbers", dict(A="matrix")),
    "A of objects": (TypeError, "A must be an array of numbers", dict(A=np.full((3, 3), None))),
    "A not square": (ValueError, r"not of shape \(3, 4\)", dict(A=np.ones((3, 4)))),
    "A a vector": (ValueError, "A must be square", dict(A=np.ones(9))),
    "A with NaN": (ValueError, "A contains NaN", dict(A=np.diag([1, np.nan, 3]))),
    "A gives NaN": (ValueError, "A returned NaN", dict(A=lambda X: X * np.nan, n=9)),
    "A triangular": (ValueError, "A is not Hermitian", dict(A=np.triu(np.ones((9, 9))))),
    "A complex symmetric": (ValueError, "not Hermitian", dict(A=1j * np.ones((9, 9)))),
    "A of an order": (ValueError, "order of the problem is unknown", dict(A=identity)),
    "A of three arguments": (TypeError, r"callable as A\(X\)", dict(A=lambda a, b, c: a, n=9)),
    "A too wide": (TypeError, "dtype float128", dict(A=np.eye(9, dtype=np.longdouble))),
    "A too small": (ValueError, "norm .*e-160.*scale", dict(A=np.eye(9) * 1e-160)),
    "A far too small": (ValueError, "too small to square", dict(A=np.eye(9) * 1e-200)),
    "A too large": (ValueError, "norm .*e.25.*float32", dict(A=np.eye(9, dtype="f") * 1e25)),
    "A of other rows": (ValueError, r"shape \(8, 2\)", dict(A=lambda X: X[:-1], n=9)),
    "A turns complex": (TypeError, "complex numbers in a real", dict(A=lambda X: 1j * X, n=9)),
    "A writes to X": (ValueError, "read-only", dict(A=lambda X: X.__imul__(2), n=9)),
    "A one off-diagonal entry": (
        ValueError, "not Hermitian",
        dict(A=line(10**4) + sparse.coo_matrix(([1.0], ([7], [90])), shape=(10**4, 10**4)))),
    "B indefinite": (ValueError, "B must be positive definite", dict(A=np.eye(9), B=-np.eye(9))),
    "B with a zero": (ValueError, "B must be positive definite",
                      dict(A=np.eye(9), B=np.diag(np.arange(9.0)))),
    "B of other order": (ValueError, "B is for 8 rows, but A for 9",
                         dict(A=np.eye(9), B=np.eye(8))),
    "T of other order": (ValueError, "T is for 8 rows", dict(A=np.eye(9), T=np.eye(8))),
    "X0 of other order": (ValueError, "X0 is for 8 rows", dict(A=np.eye(9), X0=np.ones((8, 1)))),
    "X0 of too many columns": (ValueError, "X0 has 3 columns", dict(A=np.eye(9), k=2,
                                                                   X0=np.eye(9, 3))),
    "X0 with NaN": (ValueError, "X0 contains NaN", dict(A=np.eye(9), X0=np.full((9, 1), np.nan))),
    "dtype": (TypeError, "dtype must be", dict(A=np.eye(9), dtype=np.float16)),
    "dtype real": (TypeError, "A is complex", dict(A=1j * np.zeros((9, 9)), dtype=float)),
    "tol": (ValueError, "tol must be a positive", dict(A=np.eye(9), tol=0)),
    "two tolerances": (ValueError, "either tol or", dict(A=np.eye(9), tol=1, absolute_tol=1)),
    "solver": (ValueError, "solver must be one of 'auto'", dict(A=np.eye(9), solver="davidson")),
    "detector": (ValueError, "detector must be one of", dict(A=np.eye(9), detector="relative")),
    "batch": (ValueError, "takes no batch", dict(A=np.eye(9), solver="lobpcg", batch=3)),
    "lock_factor": (ValueError, "lock_factor", dict(A=np.eye(9), lock_factor=2)),
    "maxiter": (ValueError, "maxiter", dict(A=np.eye(9), maxiter=0)),
    "maxiter of 32 bits": (ValueError, "at most 2147483647", dict(A=np.eye(9), maxiter=2**32 + 5)),
    "monitor": (TypeError, "monitor must be callable", dict(A=np.eye(9), monitor=1)),
    "comm": (TypeError, "comm must be an intracommunicator", dict(A=np.eye(9), comm="world")),
}


@pytest.mark.parametrize("name", REFUSED)
def test_refused(name):
    kind, text, arguments = REFUSED[name]
    with pytest.raises(kind, match=text):
        ves.eigsh(**arguments)


class Unexpected(BaseException):
    """Not even an Exception."""


@pytest.mark.parametrize("failing", ["A", "B", "T", "monitor"])
@pytest.mark.parametrize("kind", [ZeroDivisionError, KeyboardInterrupt, Unexpected])
def test_exceptions_reach_the_caller(failing, kind, monkeypatch):
    created, released = [], []
    create = ves._handles._Handle.__init__

    def count(self, *arguments):
        create(self, *arguments)
        created.append(self.handle.value)

    monkeypatch.setattr(ves._handles._Handle, "__init__", count)
    for name in "VesMatrixDestroy", "VesVectorDestroy", "VesSolverDestroy":
        monkeypatch.setattr(ves._library.lib, name, lambda handle, destroy=getattr(
            ves._library.lib, name): (released.append(handle.value), destroy(handle)))
    calls = []

    def fails(given):
        calls.append(given)
        if len(calls) == 10:
            raise kind("enough")
        return given if failing in "BT" else None if failing == "monitor" else line(300) @ given

    roles = {"A": line(300), "n": 300} | {failing: fails}
    with pytest.raises(kind, match="enough"):
        ves.eigsh(**roles)
    # Nothing is called again, and everything is released at once.
    assert len(calls) == 10
    assert created and sorted(created) == sorted(released)


def test_nan_during_a_run_ends_it():
    calls = []

    def spoils(X):
        calls.append(None)
        return line(300) @ X * (np.nan if len(calls) == 25 else 1)

    with pytest.warns(ves.ConvergenceWarning, match="nonfinite"):
        result = ves.eigsh(spoils, 3, n=300)
    assert result.reason == "nonfinite" and np.all(np.isfinite(result.vectors))


@pytest.mark.parametrize("delay", [0.05, 0.11, 0.23])
def test_ctrl_c_at_any_time(delay):
    timer = threading.Timer(delay, os.kill, (os.getpid(), signal.SIGINT))
    timer.start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        # Never converges, and spends its time on both sides of the interface.
        ves.eigsh(lambda X: line(3000) @ X, 20, n=3000, absolute_tol=1e-300, maxiter=10**6)
    assert time.monotonic() - start < delay + 5
    assert signal.getsignal(signal.SIGINT) is signal.default_int_handler


def test_threads_wait_for_each_other():
    results, busy = {}, threading.Lock()

    def run(n):
        def multiply(X):
            assert busy.acquire(blocking=False), "two runs at once"
            time.sleep(1e-5)
            busy.release()
            return line(n) @ X

        results[n] = ves.eigsh(multiply, 3, n=n).values

    threads = [threading.Thread(target=run, args=(n,)) for n in range(100, 108)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert all(np.allclose(results[n], line_values(n, 3), atol=1e-9) for n in range(100, 108))


def test_a_fork_while_another_thread_is_in_a_run():
    begun, forked = threading.Event(), threading.Event()

    def wait(progress):
        begun.set()
        return forked.wait(60)

    thread = threading.Thread(target=ves.eigsh, args=(line(40), 1), kwargs={"monitor": wait})
    thread.start()
    begun.wait(60)
    child = os.fork()
    if child == 0:
        signal.alarm(20)  # ends a child that waits for the thread, which it does not have
        is_done = False
        try:
            is_done = ves.eigsh(line(40), 1).converged
        finally:
            os._exit(0 if is_done else 1)
    status = os.waitpid(child, 0)[1]
    forked.set()
    thread.join(60)
    assert status == 0


def test_a_run_inside_an_operator():
    inner = []

    def preconditioner(X):
        inner.append(ves.eigsh(line(20), 1).values[0])
        return X

    result = ves.eigsh(line(40), 2, T=preconditioner)
    assert result.converged and np.allclose(inner, line_values(20, 1), atol=1e-9)

    def fails_inside(X):
        ves.eigsh(lambda X: X / 0, 1, n=5, dtype="no type")

    with pytest.raises(TypeError, match="no type"):
        ves.eigsh(line(40), 2, T=fails_inside)


def test_memory_is_given_back():
    class Big:
        def __init__(self):
            self.data = np.ones(300)

        def __call__(self, X):
            return self.data[:, np.newaxis] * X

    gc.disable()
    try:
        operator = Big()
        gone = weakref.ref(operator)
        ves.eigsh(operator, 2, n=300)
        linear = LinearOperator((300, 300), matmat=operator, matvec=operator, dtype=float)
        ves.eigsh(linear, 2)
        del operator, linear
        assert gone() is None

        failing = Big()
        gone = weakref.ref(failing)
        with pytest.raises(ValueError):
            ves.eigsh(failing, 2, n=299)
        del failing
        assert gone() is None
    finally:
        gc.enable()
