"""scikit-learn on libves: spectral embedding of a swiss roll, and clusters of moons.

scikit-learn looks for the pairs next to sigma = 1 of a negative Laplacian, which lie at its upper
end.
"""

import pathlib
import sys

import numpy as np
import sklearn.manifold._spectral_embedding as spectral
from sklearn.cluster import SpectralClustering
from sklearn.datasets import make_moons, make_swiss_roll
from sklearn.manifold import SpectralEmbedding

import ves.scipy

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from replaced import replaced, seconds_of  # noqa: E402

points, along = make_swiss_roll(5000, random_state=0)


def embedding(solver):
    return lambda: SpectralEmbedding(3, affinity="nearest_neighbors", n_neighbors=12,
                                     eigen_solver=solver, random_state=0).fit_transform(points)


def on_libves(run):
    def inner():
        with replaced(spectral, eigsh=ves.scipy.eigsh, lobpcg=ves.scipy.lobpcg):
            return run()

    return inner


times, found = seconds_of({"scikit-learn, arpack": embedding("arpack"),
                           "libves": on_libves(embedding("arpack"))})
for name, each in found.items():
    correlation = abs(np.corrcoef(each[:, 0], along)[0, 1])
    print(f"{name:22} {times[name]:6.2f} s   correlation with the place along the roll"
          f" {correlation:.4f}")
    assert correlation > 0.9
spans = [np.linalg.qr(each)[0] for each in found.values()]
angle = np.linalg.norm(spans[0] - spans[1] @ (spans[1].T @ spans[0]), 2)
print(f"sine of the largest angle between both embeddings: {angle:.1e}")
assert angle < 1e-4

moons, half = make_moons(600, noise=0.05, random_state=0)
labels = on_libves(lambda: SpectralClustering(
    2, affinity="nearest_neighbors", assign_labels="cluster_qr", random_state=0)
    .fit_predict(moons))()
right = max(np.mean(labels == half), np.mean(labels != half))
print(f"moons: {right:.1%} of the points with their own")
assert right > 0.99
