"""dolfinx on libves: modes of a membrane and of an elastic beam, on any number of processes.

dolfinx assembles the stiffness A and the mass B as matrices of PETSc; BoomerAMG or GAMG makes the
preconditioner. Beside it SLEPc, where it is installed: its LOBPCG with the same preconditioner and
the same bound of residuals, and with exact factors. An argument is the number of rounds.
"""

import pathlib
import sys

import petsc4py

petsc4py.init(sys.argv[:1])

import numpy as np  # noqa: E402
import ufl  # noqa: E402
from dolfinx import fem, la, mesh  # noqa: E402
from dolfinx.fem.petsc import assemble_matrix  # noqa: E402
from mpi4py import MPI  # noqa: E402
from petsc4py import PETSc  # noqa: E402

import ves.petsc  # noqa: E402

try:
    from slepc4py import SLEPc
except ImportError:
    SLEPc = None
sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from replaced import seconds_of  # noqa: E402

k, length, depth, poisson = 8, 8, 0.5, 0.3
LOBPCG = ("-eps_type lobpcg -eps_smallest_real -eps_conv_abs -st_type precond -st_ksp_type preonly"
          " -st_pc_type {} -eps_tol {}")
FACTORS = ("-eps_type krylovschur -eps_target 0 -eps_tol 1e-10 -st_type sinvert"
           " -st_pc_type cholesky -st_pc_factor_mat_solver_type mumps")


def matrices(V, stiffness, where, size):
    """A and B on elements of a size. Fixed rows, 0 but for diagonals like those of other rows, add
    values of 1 / size^2, at the upper end of the spectrum, and nothing to norms."""
    facets = mesh.locate_entities_boundary(V.mesh, V.mesh.topology.dim - 1, where)
    points = fem.locate_dofs_topological(V, V.mesh.topology.dim - 1, facets)
    fixed = fem.dirichletbc(fem.Function(V), points)
    u, v = ufl.TrialFunction(V), ufl.TestFunction(V)
    scale = size**(V.mesh.topology.dim - 2)
    A = assemble_matrix(fem.form(stiffness(u, v) * ufl.dx), bcs=[fixed], diagonal=scale)
    B = assemble_matrix(fem.form(ufl.inner(u, v) * ufl.dx), bcs=[fixed], diagonal=scale * size**2)
    A.assemble()
    B.assemble()
    return A, B


def membrane(n=80):
    V = fem.FunctionSpace(mesh.create_unit_square(MPI.COMM_WORLD, n, n), ("Lagrange", 2))
    return matrices(V, lambda u, v: ufl.inner(ufl.grad(u), ufl.grad(v)),
                    lambda x: np.full(x.shape[1], True), 1 / n)


def beam(n=6):
    """Clamped at one end, 1 wide, of density 1 and Young's modulus 1. A tells GAMG of the motions
    without strain."""
    box = mesh.create_box(MPI.COMM_WORLD, [np.zeros(3), np.array([length, 1, depth])],
                          [length * n, n, int(depth * n)], mesh.CellType.hexahedron)
    V = fem.VectorFunctionSpace(box, ("Lagrange", 1))

    def stiffness(u, v):
        strain = ufl.sym(ufl.grad(u))
        stress = strain + poisson / (1 - 2 * poisson) * ufl.tr(strain) * ufl.Identity(3)
        return ufl.inner(stress, ufl.sym(ufl.grad(v))) / (1 + poisson)

    A, B = matrices(V, stiffness, lambda x: np.isclose(x[0], 0), 1 / n)
    motions = [fem.Function(V) for _ in range(6)]
    for axis, shift, turn in zip(np.eye(3)[:, :, None], motions[:3], motions[3:]):
        shift.interpolate(lambda x: axis + 0 * x)
        turn.interpolate(lambda x: np.cross(axis, x, axis=0))
    vectors = [motion.vector.copy() for motion in motions]  # the memory of a Function ends with it
    la.orthonormalize(vectors)
    A.setNearNullSpace(PETSc.NullSpace().create(vectors=vectors, comm=A.comm))
    return A, B


def on_libves(A, B, kind, bound):
    pc = PETSc.PC().create(A.comm)
    pc.setOperators(A)
    pc.setType(kind)
    pc.setUp()
    result = ves.petsc.eigsh(A, k, B, T=pc, absolute_tol=bound)
    assert result.converged
    return result.values


def on_slepc(A, B, options):
    database = PETSc.Options()
    database.insertString(options)
    eps = SLEPc.EPS().create(A.comm)
    eps.setOperators(A, B)
    eps.setProblemType(eps.ProblemType.GHEP)
    eps.setDimensions(k)
    eps.setFromOptions()
    eps.solve()
    for name in database.getAll():
        database.delValue(name)
    return np.array([eps.getEigenvalue(i).real for i in range(k)])


def compared(title, A, B, kind, bound):
    """Values by libves, which those by SLEPc must equal."""
    runs = {"libves": lambda: on_libves(A, B, kind, bound)}
    if SLEPc:
        runs["SLEPc, LOBPCG"] = lambda: on_slepc(A, B, LOBPCG.format(kind, bound))
        runs["SLEPc, factors"] = lambda: on_slepc(A, B, FACTORS)
    times, values = seconds_of(runs, rounds=int((sys.argv[1:] or [1])[0]))
    PETSc.Sys.Print(f"{title} of {A.getSize()[0]} unknowns, {k} modes, T by {kind}")
    for name, each in values.items():
        error = np.max(np.abs(each / values["libves"] - 1))
        PETSc.Sys.Print(f"  {name:14} {times[name]:6.2f} s   values differ by {error:.1e}")
        assert error < 1e-8
    return values["libves"]


squares = np.arange(1, 6)**2
exact = np.pi**2 * np.sort(np.add.outer(squares, squares), axis=None)[:k]
error = compared("membrane", *membrane(), "hypre", 1e-6) / exact - 1
PETSc.Sys.Print(f"  above those of the membrane by {np.min(error):.1e} to {np.max(error):.1e}")
assert np.all((-1e-12 < error) & (error < 1e-5))
thin = depth**2 / 12 * (1.8751041 / length)**4  # of a slender beam, in its soft and stiff direction
error = compared("beam", *beam(), "gamg", 1e-8)[:2] / [thin, thin / depth**2] - 1
PETSc.Sys.Print(f"  off those of a slender beam by {error[0]:.1%} and {error[1]:.1%}")
assert np.all(np.abs(error) < 0.1)
