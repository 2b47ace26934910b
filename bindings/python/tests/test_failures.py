import functools
import gc
import os
import signal
import threading
import time
import weakref

import numpy as np
import pytest
import scipy.sparse as sparse
from scipy.sparse.linalg import LinearOperator, splu

import ves
from problems import line, line_values


def identity(X):
    return X


REFUSED = [
    (ValueError, "k must be at least 1", dict(k=0)),
    (TypeError, "k must be an integer", dict(k=2.5)),
    (ValueError, "10 pairs are wanted of a problem with 9 rows", dict(k=10)),
    (ValueError, "at most 32765", dict(A=identity, n=10**6, k=32766)),
    (ValueError, "smaller batch", dict(A=identity, n=10**5, k=10922, solver="lobpcg")),
    (TypeError, "not None", dict(A=None)),
    (TypeError, "A must be an array of numbers", dict(A="matrix")),
    (ValueError, r"not of shape \(3, 4\)", dict(A=np.ones((3, 4)))),
    (ValueError, "A contains NaN", dict(A=np.diag([1, np.nan, 3]))),
    (ValueError, "A returned NaN", dict(A=lambda X: X * np.nan, n=9)),
    (ValueError, "A is not Hermitian: .* random", dict(A=line(10**4) + sparse.coo_matrix(
        ([1.0], ([7], [90])), shape=(10**4, 10**4)))),
    (ValueError, "order of the problem is unknown", dict(A=identity)),
    (TypeError, r"callable as A\(X\)", dict(A=lambda a, b, c: a, n=9)),
    (TypeError, "dtype float128", dict(A=np.eye(9, dtype=np.longdouble))),
    (ValueError, "norm .*e-160.*scale", dict(A=np.eye(9) * 1e-160)),
    (ValueError, "too small to square", dict(A=np.eye(9) * 1e-200)),
    (ValueError, "norm .*e.25.*float32", dict(A=np.eye(9, dtype="f") * 1e25)),
    (ValueError, r"shape \(8, 2\)", dict(A=lambda X: X[:-1], n=9)),
    (TypeError, "complex numbers in a real", dict(A=lambda X: 1j * X, n=9)),
    (ValueError, "read-only", dict(A=lambda X: X.__imul__(2), n=9)),
    (ValueError, "B must be positive definite, with", dict(B=-np.eye(9))),
    (ValueError, "B must be positive definite$", dict(B=lambda X: -X)),
    (ValueError, "B must be positive definite, with", dict(B=np.eye(9)[::-1])),
    (ValueError, "T must be positive definite", dict(T=np.diag(np.arange(9) - 0.5))),
    (ValueError, "T must be positive definite", dict(A=line(9), T=splu(
        (line(9) - 0.5 * sparse.identity(9)).tocsc(), permc_spec="NATURAL", diag_pivot_thresh=0))),
    (ValueError, "highest values are infinite", dict(B=np.diag([0.0] + 8 * [1]), which="LA")),
    (ValueError, "leave nothing", dict(deflate=np.eye(9))),
    (ValueError, "T must be one of 'auto'", dict(T="cholesky")),
    (ValueError, "needs a sparse matrix", dict(A=identity, n=9, T="ic")),
    (ValueError, "sigma must lie outside", dict(A=line(9), sigma=2.0)),
    (ValueError, "leave T out", dict(A=line(9), sigma=0.0, T=identity)),
    (ValueError, "ves.scipy.eigsh knows it", dict(which="LM")),
    (TypeError, "another name of B", dict(B=np.eye(9), M=np.eye(9))),
    (ValueError, "B is for 8 rows, but A for 9", dict(B=np.eye(8))),
    (ValueError, "X0 is for 8 rows", dict(X0=np.ones((8, 1)))),
    (ValueError, "X0 has 3 columns", dict(k=2, X0=np.eye(9, 3))),
    (ValueError, "X0 contains NaN", dict(X0=np.full((9, 1), np.nan))),
    (TypeError, "dtype must be", dict(dtype=np.float16)),
    (TypeError, "A is complex", dict(A=1j * np.zeros((9, 9)), dtype=float)),
    (ValueError, "tol must be a positive", dict(tol=0)),
    (ValueError, "either tol or", dict(tol=1, absolute_tol=1)),
    (ValueError, "solver must be one of 'auto'", dict(solver="davidson")),
    (ValueError, "takes no batch", dict(solver="lobpcg", batch=3)),
    (ValueError, "lock_factor", dict(lock_factor=2)),
    (ValueError, "maxiter must be at least 1", dict(maxiter=0)),
    (ValueError, "at most 2147483647", dict(maxiter=2**32 + 5)),
    (TypeError, "monitor must be callable", dict(monitor=1)),
    (TypeError, "comm must be an intracommunicator", dict(comm="world")),
]


@pytest.mark.parametrize("kind, text, arguments", REFUSED, ids=[text for _, text, _ in REFUSED])
def test_refused(kind, text, arguments):
    with pytest.raises(kind, match=text):
        ves.eigsh(**{"A": np.eye(9)} | arguments)


def test_handles_are_released_after_a_failure(monkeypatch):
    created, released = [], []
    create = ves._handles.Handle.__init__

    def count(self, *arguments):
        create(self, *arguments)
        created.append(self.handle.value)

    monkeypatch.setattr(ves._handles.Handle, "__init__", count)
    for name in "VesMatrixDestroy", "VesVectorDestroy", "VesSolverDestroy":
        monkeypatch.setattr(ves._library.lib, name, lambda handle, destroy=getattr(
            ves._library.lib, name): (released.append(handle.value), destroy(handle)))
    monitor = iter([None] * 9).__next__
    with pytest.raises(StopIteration):
        ves.eigsh(line(300), 2, identity, T=identity, monitor=lambda progress: monitor())
    assert created and sorted(created) == sorted(released)


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
        shape, dtype = (300, 300), np.dtype(float)

        def __call__(self, X):
            return np.arange(300.0)[:, np.newaxis] * X

    def gone_after(form, n):
        operator = Big()
        reference = weakref.ref(operator)
        try:
            ves.eigsh(form(operator), 2, n=n)
        except ValueError:
            assert n != 300
        return reference

    gc.disable()
    try:
        linear = functools.partial(LinearOperator, (300, 300), dtype=float)
        for form, n in (identity, 300), (lambda A: linear(A, matmat=A), 300), (identity, 299):
            assert gone_after(form, n)() is None
    finally:
        gc.enable()
