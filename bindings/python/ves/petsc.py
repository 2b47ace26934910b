"""Eigenpairs of matrices of petsc4py, on the processes that hold them.

>>> result = ves.petsc.eigsh(A, 6, B, T=pc)  # doctest: +SKIP
"""

import numpy as np

from . import _solve


def eigsh(A, k=6, B=None, *, T=None, **settings):
    """Lowest or highest pairs of A x = lambda x or A x = lambda B x, as `ves.eigsh`.

    Parameters
    ----------
    A, B : petsc4py.PETSc.Mat
        Hermitian, with rows distributed alike, B positive definite; also Mats without entries.
    k : int
        Number of wanted pairs.
    T : petsc4py.PETSc.PC or KSP, optional
        Hermitian positive definite preconditioner, set up for a matrix like A, such as GAMG.
    **settings
        Those of `ves.eigsh` but n, comm, everywhere and dtype, which A tells.

    Returns
    -------
    EigenResult
        With the rows of this process as vectors.

    Notes
    -----
    Collective over the communicator of A. A failure of PETSc raises petsc4py.PETSc.Error after the
    run has ended on all processes.
    """
    from petsc4py import PETSc
    return _solve.eigsh(A, k, B, T=T, n=A.getLocalSize()[0], comm=A.getComm().tompi4py(),
                        everywhere=True, dtype=np.dtype(PETSc.ScalarType), **settings)
