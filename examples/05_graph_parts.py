"""Cuts a graph in two by its Fiedler vector: the eigenvector of the second lowest eigenvalue of
the graph's Laplacian is negative on one part and positive on the other, and few edges cross.

usage: 05_graph_parts.py [picture.svg]
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
    """Writes a picture of the parts, with the edges that are cut in red."""
    at = [f"{180 * (x + 2.2):.0f} {180 * (1.05 - y):.0f}" for x, y in places]
    lines = [f"M{at[i]}L{at[j]}" for i, j in edges]
    dots = [f"M{place}h0" for place in at]
    cut = side[edges[:, 0]] != side[edges[:, 1]]
    with open(path, "w") as picture:
        picture.write('<svg xmlns="http://www.w3.org/2000/svg" width="792" height="378" fill="none"'
                      ' stroke-linecap="round">\n<rect width="100%" height="100%" fill="#fff"/>\n')
        for marks, chosen, colour, width in ((lines, ~cut, "#ccc", 1), (lines, cut, "#c33", 1.5),
                                             (dots, side, "#27b", 5), (dots, ~side, "#e83", 5)):
            path = "".join(np.array(marks)[chosen])
            picture.write(f'<path stroke="{colour}" stroke-width="{width}" d="{path}"/>\n')
        picture.write("</svg>\n")


places = two_discs(np.random.default_rng(5))
edges = short_edges(places)
value, vector = fiedler_vector(edges, len(places))
side = vector * vector[0] < 0  # the sign of a vector is arbitrary
cut = np.count_nonzero(side[edges[:, 0]] != side[edges[:, 1]])
print(f"algebraic connectivity {value:.3e}: parts of {np.sum(~side)} and {np.sum(side)} points,"
      f" {cut} of {len(edges)} edges are cut")
assert cut < 30 and min(np.sum(side), np.sum(~side)) > 400
if len(sys.argv) > 1:
    draw(places, edges, side, sys.argv[1])
