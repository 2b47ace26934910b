"""networkx on libves: algebraic connectivity, Fiedler vector and a drawing of a graph.

networkx calls scipy.sparse.linalg by name, so that one exchange serves all of it.
"""

import pathlib
import sys

import networkx as nx
import numpy as np
import scipy.sparse.linalg

import ves.scipy

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from replaced import replaced, seconds_of  # noqa: E402

graph = nx.grid_2d_graph(60, 40)
exact = 2 - 2 * np.cos(np.pi / 60)  # of the path along the longer side


def on_libves(run):
    def inner():
        with replaced(scipy.sparse.linalg, lobpcg=ves.scipy.lobpcg, eigsh=ves.scipy.eigsh):
            return run()

    return inner


def connectivity(method):
    return lambda: nx.algebraic_connectivity(graph, tol=1e-8, method=method, seed=1)


times, values = seconds_of({
    "networkx, tracemin_lu": connectivity("tracemin_lu"),
    "networkx, lobpcg": connectivity("lobpcg"),
    "libves": on_libves(connectivity("lobpcg")),
})
print(f"algebraic connectivity of a grid of 60 x 40, {exact:.12f}")
for name, value in values.items():
    print(f"  {name:22} {times[name]:6.2f} s   error {abs(value - exact):.1e}")
assert abs(values["libves"] - exact) < 1e-9

vector = on_libves(lambda: nx.fiedler_vector(graph, tol=1e-8, method="lobpcg", seed=1))()
rows = np.array([node[0] for node in graph])
profile = np.cos(np.pi * (rows + 0.5) / 60)
cosine = abs(vector @ profile) / np.linalg.norm(vector) / np.linalg.norm(profile)
print(f"Fiedler vector: cosine with the exact one {cosine:.12f}")
assert cosine > 1 - 1e-9

drawn = on_libves(lambda: nx.spectral_layout(graph))()
points = np.array([drawn[node] for node in graph])
assert points.shape == (2400, 2) and np.all(np.abs(np.corrcoef(points.T)[0, 1]) < 1e-6)
print("spectral layout: two coordinates without correlation")
