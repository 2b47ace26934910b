"""GPAW on libves: crystals of silicon, on any number of processes.

By default cells of 8 atoms: with real waves, distributed over the processes, and with k points,
which GPAW distributes. With --si64 a cell of 64 atoms.
"""

import pathlib
import sys
import time

from ase.build import bulk
from gpaw import GPAW, PW, Mixer
from gpaw.mpi import world

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from eigensolver import OnLibves  # noqa: E402

ACCURACY = 1e-7  # eV


def ground_state(eigensolver, repeat, cutoff, kpts, parallel):
    """Energy in eV, steps of self-consistency and seconds, of atoms off their places."""
    atoms = bulk("Si", cubic=True).repeat(repeat)
    atoms.rattle(0.02, seed=1)
    atoms.calc = GPAW(
        mode=PW(cutoff), xc="LDA", kpts=kpts, symmetry="off", mixer=Mixer(0.5, 5, 1), txt=None,
        convergence={"energy": 1e-9, "density": 3e-7, "eigenstates": 1e-12},
        eigensolver=eigensolver, parallel=parallel)
    start = time.perf_counter()
    energy = atoms.get_potential_energy()
    return energy, atoms.calc.scf.niter, time.perf_counter() - start


def compare(name, *problem):
    energies = []
    for label, eigensolver in (("Davidson", "dav"), ("libves", OnLibves())):
        energy, steps, seconds = ground_state(eigensolver, *problem)
        energies.append(energy)
        if world.rank == 0:
            print(f"{name:8} by {label:8} {energy:.8f} eV, {steps:3d} steps, {seconds:7.2f} s",
                  flush=True)
    assert abs(energies[1] - energies[0]) < ACCURACY, energies


if "--si64" in sys.argv:
    compare("Si64", 2, 300, (1, 1, 1), {"domain": world.size})
else:
    compare("Si8", 1, 200, (1, 1, 1), {"domain": world.size})
    compare("Si8, 2 k", 1, 200, (2, 1, 1), {})
