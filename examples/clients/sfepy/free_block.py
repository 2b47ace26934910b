"""sfepy on libves: vibrations of a free cube, whose first six modes are motions of a rigid body.

sfepy's eigenvalue solver eig.scipy calls scipy.sparse.linalg by name, so that one exchange serves
it. The stiffness A is singular: factors want a shift below zero. A run that deflates the rigid
motions needs none and finds the elastic modes alone. An argument is the number of rounds.
"""

import pathlib
import sys

import numpy as np
import scipy.sparse.linalg
from sfepy.base.base import Struct, output
from sfepy.discrete import Equation, Equations, FieldVariable, Integral, Material, Problem
from sfepy.discrete.fem import FEDomain, Field
from sfepy.mechanics.matcoefs import stiffness_from_youngpoisson
from sfepy.mesh.mesh_generators import gen_block_mesh
from sfepy.solvers import Solver
from sfepy.terms import Term

import ves
import ves.scipy

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from replaced import replaced, seconds_of  # noqa: E402

n, k, young, poisson = 12, 20, 1.0, 0.3
output.set_output(quiet=True)


def assembled():
    """A and B of a cube of edge and density 1 in n^3 trilinear elements, and its points."""
    mesh = gen_block_mesh([1, 1, 1], [n + 1] * 3, [0, 0, 0], verbose=False)
    omega = FEDomain("cube", mesh).create_region("cube", "all")
    field = Field.from_args("displacement", np.float64, "vector", omega)
    u = FieldVariable("u", "unknown", field)
    v = FieldVariable("v", "test", field, primary_var_name="u")
    solid = Material("solid", D=stiffness_from_youngpoisson(3, young, poisson))
    terms = [Term.new("dw_lin_elastic(solid.D, v, u)", Integral("i", order=2), omega, solid=solid,
                      v=v, u=u),
             Term.new("dw_dot(v, u)", Integral("i", order=2), omega, v=v, u=u)]
    equations = Equations([Equation(term.name, term) for term in terms])
    problem = Problem("free cube", equations=equations)
    problem.time_update()
    problem.update_materials()
    A, B = (equation.evaluate(mode="weak", dw_mode="matrix", asm_obj=problem.mtx_a.copy())
            for equation in equations)
    return A, B, mesh.coors


A, B, points = assembled()
axes = np.eye(3)[:, None, :]
rigid = np.stack([np.ravel(each) for axis in axes
                  for each in (axis + 0 * points, np.cross(axis, points))], axis=1)


def by_sfepy():
    solver = Solver.any_from_conf(
        Struct(name="modes", kind="eig.scipy", method="eigsh", which="LM", sigma=-0.1))
    return solver(A, B, n_eigs=k, eigenvectors=True)


def exchanged():
    with replaced(scipy.sparse.linalg, eigsh=ves.scipy.eigsh):
        return by_sfepy()


def deflated():
    return tuple(ves.eigsh(A, k - 6, B, deflate=rigid))


times, found = seconds_of({"sfepy, ARPACK": by_sfepy, "libves in its place": exchanged,
                           "libves, deflated": deflated}, rounds=int((sys.argv[1:] or [1])[0]))
own = found["sfepy, ARPACK"][0][6:]
print(f"free cube of {A.shape[0]} unknowns: six motions and {len(own)} elastic modes")
for name, (values, _) in found.items():
    error = np.max(np.abs(values[-len(own):] / own - 1))
    print(f"  {name:20} {times[name]:6.2f} s   elastic values differ by {error:.1e}")
    assert error < 1e-9

values, vectors = found["libves in its place"]
beside = vectors[:, :6] - rigid @ np.linalg.lstsq(rigid, vectors[:, :6], rcond=None)[0]
print(f"values of the motions: {np.max(np.abs(values[:6])):.1e}; what is no motion in them:"
      f" {np.max(np.abs(beside)):.1e}")
assert np.max(np.abs(values[:6])) < 1e-9 and np.max(np.abs(beside)) < 1e-6
inner = rigid.T @ (B @ found["libves, deflated"][1])
print(f"elastic modes times motions: {np.max(np.abs(inner)):.1e}")
assert np.max(np.abs(inner)) < 1e-9

# Three modes of a free cube are waves of shear, as cos(pi x) sin(pi y), -sin(pi x) cos(pi y), 0.
error = values[14:17] / (young / (1 + poisson) * np.pi**2) - 1
print(f"above three values that are known by {np.min(error):.1%} to {np.max(error):.1%}")
assert np.all((0 < error) & (error < 0.03))
