"""How the package finds its libraries and MPI, each case in an interpreter of its own."""

import os
import subprocess
import sys

import pytest

SOLVE = "import ves; print(ves.eigsh([[2, 1], [1, 2]], k=1).values.round(9))"


def run(code, **environment):
    # Without a warning of kernels that whoever runs the tests has chosen.
    environment = {**os.environ, "PYTHONWARNINGS": "ignore:OpenBLAS", **environment}
    return subprocess.run([sys.executable, "-c", code], env=environment, timeout=60, text=True,
                          capture_output=True)


NO_MPI4PY = "import sys; sys.modules['mpi4py'] = None; "
FINALIZED = "from mpi4py import MPI; MPI.Finalize(); "
UNINITIALIZED = "import mpi4py; mpi4py.rc.initialize = False; "
WITH_COMM = "import ves; ves.eigsh([[2, 1], [1, 2]], k=1, comm="
OTHER_MPI = ("from mpi4py import MPI; import unittest.mock\n"
             "with unittest.mock.patch('mpi4py.MPI.Get_library_version', lambda: 'Other'): ")


@pytest.mark.parametrize("code, environment, text", [
    (SOLVE, {"VES_LIBRARY": "/nowhere/libves.so"}, "ImportError: libves cannot be loaded"),
    (SOLVE, {"VES_LIBRARY": "libm.so.6"}, "libm.so.6 is not the libves of this package"),
    (SOLVE, {"VES_PROVIDER": "libnothing.so"}, "ImportError: VES_PROVIDER: libnothing.so"),
    (SOLVE, {"VES_PROVIDER": "libm.so.6"}, "no BLAS, LAPACK and ScaLAPACK for libves were found"),
    (FINALIZED + SOLVE, {}, "MPI has been finalized"),
    (NO_MPI4PY + WITH_COMM + "1)", {}, "mpi4py"),
    (OTHER_MPI + WITH_COMM + "MPI.COMM_SELF)", {}, "mpi4py uses Other, libves"),
])
def test_what_cannot_be_used(code, environment, text):
    outcome = run(code, **environment)
    assert outcome.returncode == 1 and text in outcome.stderr.splitlines()[-1]


@pytest.mark.parametrize("before, environment", [
    ("", {}), (NO_MPI4PY, {}), (UNINITIALIZED, {}), ("from mpi4py import MPI; ", {}),
    ("", {"VES_PROVIDER": os.pathsep.join(
        ["libblas.so.3", "liblapack.so.3", "libscalapack-openmpi.so.2.2"])}),
])
def test_mpi_is_initialised_by_whom_it_may(before, environment):
    outcome = run(before + SOLVE + "; print(ves.memory_forecast(10) > 0)", **environment)
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (0, "[1.]\nTrue\n", "")


FORKED = """
import os, numpy, ves
solve = lambda: ves.eigsh(lambda x: numpy.arange(1.0, 4001.0)[:, None] * x, k=2, n=4000, tol=1e-2,
                          T=lambda x: x / numpy.arange(1.0, 4001.0)[:, None])
solve()
child = os.fork()
if child == 0:
    solve()
    os._exit(7)
print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
"""


def test_a_forked_process_solves():
    """Threads that shared a run's work do not survive a fork, and nobody waits for them."""
    assert run(FORKED, OPENBLAS_NUM_THREADS="2").stdout.split()[-1] == "7"
