"""Matrices and multigrid of petsc4py on libves: modes of a membrane, on any number of processes.

Bilinear elements on n x n squares with a fixed edge; A is the stiffness, B the mass. GAMG makes the
preconditioner. Beside it the same with T = None.
"""

import sys
import time

import petsc4py

petsc4py.init(sys.argv[:1])

import numpy as np  # noqa: E402
import ves.petsc  # noqa: E402
from petsc4py import PETSc  # noqa: E402

n, k = 60, 6
STIFFNESS = np.array([[4, -1, -2, -1], [-1, 4, -1, -2], [-2, -1, 4, -1], [-1, -2, -1, 4]]) / 6
MASS = np.array([[4, 2, 1, 2], [2, 4, 2, 1], [1, 2, 4, 2], [2, 1, 2, 4]]) / 36 / n**2


def assembled(element):
    mat = PETSc.Mat().createAIJ(((n - 1)**2, (n - 1)**2), nnz=9)
    mat.setOption(PETSc.Mat.Option.NEW_NONZERO_ALLOCATION_ERR, False)
    rank, size = mat.comm.rank, mat.comm.size
    for row in range(rank * n // size, (rank + 1) * n // size):
        for column in range(n):
            corners = [(row, column), (row, column + 1), (row + 1, column + 1), (row + 1, column)]
            points = [(i - 1) * (n - 1) + j - 1 if 0 < i < n and 0 < j < n else -1
                      for i, j in corners]
            mat.setValues(points, points, element, addv=True)  # negative ones are left out
    mat.assemble()
    return mat


A, B = assembled(STIFFNESS), assembled(MASS)
ksp = PETSc.KSP().create(A.comm)
ksp.setOperators(A)
ksp.getPC().setType("gamg")
ksp.setUp()
exact = np.sort([6 * n**2 * ((1 - ci) / (2 + ci) + (1 - cj) / (2 + cj))
                 for ci in np.cos(np.arange(1, 8) * np.pi / n)
                 for cj in np.cos(np.arange(1, 8) * np.pi / n)])[:k]
iterations = []
for name, T in (("GAMG", ksp.getPC()), ("none", None)):
    start = time.perf_counter()
    result = ves.petsc.eigsh(A, k, B, T=T, inner=0)
    seconds = time.perf_counter() - start
    error = np.max(np.abs(result.values / exact - 1))
    PETSc.Sys.Print(f"T {name:5} {seconds:6.2f} s, {result.iterations:4d} iterations, largest error"
                    f" of a value {error:.1e}")
    assert result.converged and error < 1e-9
    iterations.append(result.iterations)
assert 3 * iterations[0] < iterations[1]
