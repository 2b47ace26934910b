"""How the package finds its libraries and MPI, each case in an interpreter of its own."""

import os
import subprocess
import sys

import pytest

SOLVE = "import ves; print(ves.eigsh([[2, 1], [1, 2]], k=1).values.round(9))"


def run(code, **environment):
    environment = {**os.environ, **environment}
    return subprocess.run([sys.executable, "-c", code], env=environment, timeout=60, text=True,
                          capture_output=True)


@pytest.mark.parametrize("variable, value, text", [
    ("VES_LIBRARY", "/nowhere/libves.so", "libves cannot be loaded"),
    ("VES_LIBRARY", "libm.so.6", "libm.so.6 is not the libves of this package"),
    ("VES_PROVIDER", "libnothing.so", "VES_PROVIDER: libnothing.so"),
    ("VES_PROVIDER", "libm.so.6", "no BLAS, LAPACK and ScaLAPACK for libves were found"),
])
def test_libraries_that_cannot_be_used(variable, value, text):
    outcome = run(SOLVE, **{variable: value})
    assert outcome.returncode == 1 and "ImportError" in outcome.stderr and text in outcome.stderr


def test_provider_of_choice():
    outcome = run(SOLVE, VES_PROVIDER=os.pathsep.join(
        ["libblas.so.3", "liblapack.so.3", "libscalapack-openmpi.so.2.2"]))
    assert outcome.stdout == "[1.]\n" and outcome.stderr == ""


NO_MPI4PY = "import sys; sys.modules['mpi4py'] = None; "
FINALIZED_HERE = "from mpi4py import MPI; MPI.Finalize(); "
UNINITIALIZED = "import mpi4py; mpi4py.rc.initialize = False; "


@pytest.mark.parametrize("before", ["", NO_MPI4PY, UNINITIALIZED, "from mpi4py import MPI; "])
def test_mpi_is_initialised_by_whom_it_may(before):
    outcome = run(before + SOLVE + "; print(ves.memory_forecast(10) > 0)")
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (0, "[1.]\nTrue\n", "")


def test_finalized_mpi_is_an_error():
    outcome = run(FINALIZED_HERE + SOLVE)
    assert outcome.returncode == 1 and "MPI has been finalized" in outcome.stderr


def test_communicators_need_mpi4py():
    outcome = run(NO_MPI4PY + "import ves; ves.eigsh([[2, 1], [1, 2]], k=1, comm=1)")
    assert outcome.returncode == 1 and "mpi4py" in outcome.stderr.splitlines()[-1]


def test_communicators_of_another_mpi_are_refused():
    outcome = run("from mpi4py import MPI; import unittest.mock, ves\n"
                  "with unittest.mock.patch('mpi4py.MPI.Get_library_version', lambda: 'Other'):\n"
                  "    ves.eigsh([[2, 1], [1, 2]], k=1, comm=MPI.COMM_SELF)")
    assert outcome.returncode == 1 and "mpi4py uses Other, libves" in outcome.stderr
