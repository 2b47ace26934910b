"""Cuts a graph in two by its Fiedler vector: the eigenvector of the second lowest eigenvalue of
the graph's Laplacian is negative on one part and positive on the other, and few edges cross.

usage: fiedler.py [picture.png]    the picture needs matplotlib
"""

import sys

import numpy as np
import scipy.sparse as sparse
from scipy.spatial import Delaunay

import ves


def two_discs(rng, points=900):
    """Points in two discs that a narrow bridge joins."""
    angle = rng.uniform(0, 2 * np.pi, points)
    radius = np.sqrt(rng.uniform(0, 1, points))
    places = np.column_stack([radius * np.cos(angle), radius * np.sin(angle)])
    places[: points // 2, 0] -= 1.15
    places[points // 2:, 0] += 1.15
    bridge = np.column_stack([rng.uniform(-0.3, 0.3, 25), rng.uniform(-0.1, 0.1, 25)])
    return np.vstack([places, bridge])


def short_edges(places, longest=0.25):
    """Edges of the Delaunay triangulation, as pairs of points, without the long ones."""
    corners = Delaunay(places).simplices
    edges = np.sort(np.vstack([corners[:, [0, 1]], corners[:, [1, 2]], corners[:, [0, 2]]]))
    edges = np.unique(edges, axis=0)
    lengths = np.linalg.norm(places[edges[:, 0]] - places[edges[:, 1]], axis=1)
    return edges[lengths < longest]


def fiedler_vector(edges, n):
    """Second lowest eigenvalue of the Laplacian and its vector."""
    adjacency = sparse.coo_matrix((np.ones(len(edges)), edges.T), shape=(n, n))
    adjacency = (adjacency + adjacency.T).tocsr()
    degrees = np.asarray(adjacency.sum(axis=1)).ravel()
    laplacian = sparse.diags(degrees) - adjacency
    # The lowest vector is constant, which makes a good first column of the guess.
    values, vectors = ves.eigsh(laplacian, k=3, X0=np.ones((n, 1)),
                                T=sparse.diags(1 / np.maximum(degrees, 1)))
    assert abs(values[0]) < 1e-6 < values[1], "the graph is not connected"
    return values[1], vectors[:, 1]


def draw(places, edges, side, path):
    """Writes a picture of the parts and the edges that cross."""
    import matplotlib.pyplot as plt

    crossing = side[edges[:, 0]] != side[edges[:, 1]]
    figure, axes = plt.subplots(figsize=(8, 4))
    for chosen, color in (~crossing, "0.8"), (crossing, "tab:red"):
        axes.plot(*places[edges[chosen]].transpose(2, 1, 0), color=color, linewidth=0.8)
    axes.scatter(*places.T, c=np.where(side, "tab:blue", "tab:orange"), s=8, zorder=2)
    axes.set_aspect("equal")
    axes.axis("off")
    figure.savefig(path, dpi=150)


places = two_discs(np.random.default_rng(5))
edges = short_edges(places)
value, vector = fiedler_vector(edges, len(places))
side = vector > 0
cut = np.count_nonzero(side[edges[:, 0]] != side[edges[:, 1]])
print(f"algebraic connectivity {value:.3e}: parts of {np.sum(~side)} and {np.sum(side)} points,"
      f" {cut} of {len(edges)} edges are cut")
assert cut < 30 and min(np.sum(side), np.sum(~side)) > 400
if len(sys.argv) > 1:
    draw(places, edges, side, sys.argv[1])
