"""Runs on several processes: mpirun -np N python3 on_processes.py. Each case runs on all of them;
a hang is the fault that the caller's timeout tells."""

import signal
import sys
import threading
import traceback

import numpy as np
import scipy.linalg
import scipy.sparse.linalg
from mpi4py import MPI

import ves

WORLD = MPI.COMM_WORLD


class Chain:
    """tridiag(-1, 2, -1) of order n with its rows dealt out unevenly: the first process holds none
    as soon as there are three."""

    def __init__(self, comm, n=120):
        shares = np.arange(comm.size) + (1 if comm.size < 3 else 0)
        ends = np.concatenate([[0], np.cumsum(shares) * n // shares.sum()])
        self.n, self.rows = n, int(ends[comm.rank + 1] - ends[comm.rank])
        self.first = int(ends[comm.rank])
        self.peers = comm.Split(0 if self.rows else MPI.UNDEFINED, comm.rank)

    def exact(self, k):
        return 2 - 2 * np.cos(np.pi * np.arange(1, k + 1) / (self.n + 1))

    def __call__(self, X):
        assert not X.flags.writeable
        below, above = (rank if 0 <= rank < self.peers.size else MPI.PROC_NULL
                        for rank in (self.peers.rank - 1, self.peers.rank + 1))
        head, tail = np.zeros(X.shape[1], X.dtype), np.zeros(X.shape[1], X.dtype)
        self.peers.Sendrecv(X[0].copy(), below, recvbuf=tail, source=above)
        self.peers.Sendrecv(X[-1].copy(), above, recvbuf=head, source=below)
        Y = 2 * X
        Y[1:] -= X[:-1]
        Y[:-1] -= X[1:]
        Y[0] -= head
        Y[-1] -= tail
        return Y


def expect(kind, text, function):
    try:
        function()
    except kind as error:
        assert not text or text in str(error), f"{error!r} does not say {text!r}"
    else:
        raise AssertionError(f"no {kind.__name__} that says {text!r}")


def expect_failure_on(failing, kind, text, function):
    """The exception itself on one process, ProcessError that names it on the others."""
    if WORLD.rank == failing:
        expect(kind, text, function)
    else:
        expect(ves.ProcessError, f"process {failing} failed with {kind.__name__}", function)


def test_all_types():
    chain = Chain(WORLD)
    for dtype, accuracy in (np.float64, 1e-7), (np.complex128, 1e-7), (np.float32, 2e-3):
        result = ves.eigsh(chain, 4, n=chain.rows, comm=WORLD, dtype=dtype)
        assert result.converged and result.vectors.shape == (chain.rows, 4)
        assert np.allclose(result.values, chain.exact(4), atol=accuracy)


def test_linear_operator_with_b_t_and_guess():
    chain = Chain(WORLD)
    A = scipy.sparse.linalg.LinearOperator((chain.rows,) * 2, matmat=chain, matvec=chain,
                                           dtype=float)
    places = chain.first + np.arange(1, chain.rows + 1)[:, np.newaxis]
    guess = np.sin(np.pi * places * [1, 2, 3] / (chain.n + 1))
    result = ves.eigsh(A, X0=guess, B=2 * scipy.sparse.eye(chain.rows, format="csr"),
                       T=lambda X: X / 2, comm=WORLD)
    assert result.converged and result.iterations == 0
    assert np.allclose(result.values, chain.exact(3) / 2, atol=1e-12)


def test_operators_that_need_every_process():
    chain = Chain(WORLD)

    def joint(X):
        assert WORLD.allreduce(X.shape[1], MPI.MAX) == X.shape[1]
        return chain(X) if chain.rows else X

    # A matrix of no rows takes part as well.
    B, T = 2 * scipy.sparse.eye(chain.rows, format="csr"), lambda X: joint(X) + X
    result = ves.eigsh(joint, 3, B, T=T, n=chain.rows, comm=WORLD, everywhere=True)
    assert result.converged and np.allclose(result.values, chain.exact(3) / 2, atol=1e-7)
    assert ves.check(joint, *result, B, comm=WORLD, everywhere=True).max_residual < 1e-5


def test_rows_of_a_sparse_matrix():
    chain, size = Chain(WORLD), WORLD.size
    whole = scipy.sparse.diags([-1, 2, -1, 0.1, 0.1], [-1, 0, 1, 70, -70], shape=(chain.n,) * 2)
    mass = scipy.sparse.diags([1, 4, 1], [-1, 0, 1], shape=(chain.n,) * 2) / 6
    own = slice(chain.first, chain.first + chain.rows)
    A, B = whole.tocsr()[own], mass.tocsr()[own]
    exact = scipy.linalg.eigvalsh(whole.toarray(), mass.toarray())
    for T in "auto", "jacobi", "inner":
        result = ves.eigsh(A, 4, B, T=T, comm=WORLD)
        assert result.converged and np.allclose(result.values, exact[:4], atol=1e-9)
    assert ves.check(A, *result, B, comm=WORLD).max_residual < 2 * result.threshold
    highest = ves.eigsh(A, 3, which="LA", comm=WORLD)
    assert np.allclose(highest.values, np.linalg.eigvalsh(whole.toarray())[-3:], atol=1e-9)
    if size > 1:
        expect(ValueError if WORLD.rank == 0 else (ValueError, ves.ProcessError), "",
               lambda: ves.eigsh(A[:, :-1], 3, comm=WORLD))
        expect_failure_on(size - 1, TypeError, "rows of a sparse", lambda: ves.eigsh(
            chain if WORLD.rank == size - 1 else A, 3, n=chain.rows, comm=WORLD))


class Mute(BaseException):
    def __str__(self):
        raise ArithmeticError


def test_operator_fails_on_one_process():
    last = WORLD.size - 1
    for fatal, role in (Mute, "A"), (KeyboardInterrupt, "B"), (ValueError, "T"):
        chain, calls = Chain(WORLD), []

        def fails_after_its_messages(X):
            Y = chain(X)
            calls.append(None)
            if WORLD.rank == last and len(calls) == 8:
                raise fatal("no more")
            return Y

        # Others that went on calling would wait for messages for ever.
        operators = {"A": chain, "B": lambda X: X + chain(X), role: fails_after_its_messages}
        expect_failure_on(last, fatal, "" if fatal is Mute else "no more",
                          lambda: ves.eigsh(**operators, n=chain.rows, comm=WORLD))
        assert len(calls) == (8 if chain.rows else 0)
        # The communicator is as good as new.
        assert ves.eigsh(chain, 2, n=chain.rows, comm=WORLD).converged


def test_ctrl_c_before_the_messages_of_a_routine():
    chain, calls, last = Chain(WORLD), [], WORLD.size - 1

    def interrupted(X):
        calls.append(None)
        if WORLD.rank == last and len(calls) == 30:
            signal.raise_signal(signal.SIGINT)
        return chain(X)

    expect_failure_on(last, KeyboardInterrupt, "",
                      lambda: ves.eigsh(interrupted, n=chain.rows, comm=WORLD))


def test_monitor_fails():
    chain, seen = Chain(WORLD), []
    for failing in 0, WORLD.size - 1:
        seen.clear()

        def fails_late(progress):
            seen.append(progress)
            if WORLD.rank == failing and progress.iteration == 3:
                raise ArithmeticError("seen enough")

        expect_failure_on(failing, ArithmeticError, "seen enough",
                          lambda: ves.eigsh(chain, n=chain.rows, comm=WORLD, monitor=fails_late))
        assert len(seen) == 4


def test_another_thread_is_in_a_run():
    chain, last = Chain(WORLD), WORLD.size - 1
    begun, done = threading.Event(), threading.Event()

    def wait(progress):
        begun.set()
        return done.wait(60)

    thread = threading.Thread(target=ves.eigsh, args=(np.eye(9), 1), kwargs={"monitor": wait})
    if WORLD.rank == last > 0:
        thread.start()
        begun.wait(60)
    if last > 0:
        expect_failure_on(last, RuntimeError, "another thread",
                          lambda: ves.eigsh(chain, n=chain.rows, comm=WORLD))
    if thread.is_alive():
        done.set()
        thread.join()


def test_any_process_may_stop_a_run():
    chain = Chain(WORLD)
    result = ves.eigsh(chain, n=chain.rows, comm=WORLD, monitor=lambda progress:
                       progress.iteration == 2 and WORLD.rank == WORLD.size - 1)
    assert result.reason == "monitor" and result.iterations == 2


def test_wrong_arguments_are_refused_on_all():
    chain = Chain(WORLD)
    last = WORLD.size - 1
    expect_failure_on(last, ValueError, "k must be at least", lambda: ves.eigsh(
        chain, 0 if WORLD.rank == last else 2, n=chain.rows, comm=WORLD))
    expect_failure_on(last, ValueError, "NaN", lambda: ves.eigsh(
        chain, X0=np.full((chain.rows, 1), np.nan if WORLD.rank == last else 1.0), comm=WORLD))
    if WORLD.size > 1:
        expect(ValueError, "called differently", lambda: ves.eigsh(
            chain, n=chain.rows, maxiter=10 + WORLD.rank, comm=WORLD))
        expect(ValueError, "called differently", lambda: ves.eigsh(
            chain, n=chain.rows, verify=WORLD.rank == 0, comm=WORLD))
        expect(TypeError, "multiplies these rows", lambda: ves.eigsh(np.eye(9), comm=WORLD))
    expect(ValueError, "pairs are wanted", lambda: ves.eigsh(
        lambda X: X, 9, n=1, comm=WORLD))


def test_processes_by_themselves():
    values, _ = ves.eigsh(np.diag(np.arange(30.0) + WORLD.rank), 2)
    assert np.allclose(values, [WORLD.rank, WORLD.rank + 1])


if __name__ == "__main__":
    try:
        for name in [name for name in globals() if name.startswith("test_")]:
            globals()[name]()
            WORLD.Barrier()
            if WORLD.rank == 0:
                print(name, "passed", flush=True)
    except BaseException:
        traceback.print_exc()
        sys.stderr.flush()
        WORLD.Abort(1)
