"""libves as the eigensolver of GPAW for plane waves."""

import warnings

import numpy as np
import ves
from gpaw.eigensolvers.eigensolver import Eigensolver


class OnLibves(Eigensolver):
    """A few iterations of a solver of ves at each k point, in each step of self-consistency.

    Plane waves may be distributed (parallel={"domain": ...}) and k points, but not bands.

    Parameters
    ----------
    iterations : int
        Limit for a k point and a step. As the density still changes, few of them do best.
    tolerance : float
        Residual in Hartree at which fewer will do.
    settings
        Others of `ves.eigsh`.

    Attributes
    ----------
    columns_A, columns_B : int
        Bands that were multiplied, guesses included.
    """

    def __init__(self, iterations=2, tolerance=1e-7, **settings):
        super().__init__(keep_htpsit=False)
        self.orthonormalization_required = False  # vectors come of unit norm in B
        self.iterations, self.tolerance = iterations, tolerance
        # All bands in each iteration; nothing is applied beside it, and no columns that GPAW does
        # not know.
        self.settings = dict(solver="lobpcg", guard=0, inner=0, verify=False, **settings)
        self.columns_A = self.columns_B = 0
        self.comm = None

    def __repr__(self):
        return f"OnLibves(iterations={self.iterations}, tolerance={self.tolerance})"

    def initialize(self, wfs):
        if wfs.mode != "pw" or not wfs.collinear or wfs.bd.comm.size > 1:
            raise NotImplementedError("bands must be of collinear plane waves, all on each process")
        super().initialize(wfs)
        if wfs.gd.comm.size > 1 and self.comm is None:
            from mpi4py import MPI
            group = MPI.COMM_WORLD.group.Incl(wfs.gd.comm.get_members())
            self.comm = MPI.COMM_WORLD.Create_group(group)

    def iterate_one_k_point(self, ham, wfs, kpt, weights):
        problem = _Problem(ham, wfs, kpt, self.preconditioner)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", ves.ConvergenceWarning)  # of a step none is expected
            result = ves.eigsh(
                problem.A, wfs.bd.nbands, problem.B, both=problem.both, T=problem.T,
                X0=problem.guess, absolute_tol=self.tolerance, maxiter=self.iterations, comm=self.comm,
                **self.settings)
        problem.put_back(result.vectors)
        kpt.psit.matrix_elements(wfs.pt, out=kpt.projections)
        kpt.eps_n[:] = result.values
        self.columns_A += result.statistics.columns_A
        self.columns_B += result.statistics.columns_B
        return weights @ result.residuals**2


class _Problem:
    """A x = lambda B x of a k point: A is the Hamiltonian, B the overlap of augmented waves.

    A column is a band, scaled for products of GPAW to be products of columns. Of real bands GPAW
    keeps half the plane waves, as real and imaginary parts: each counts twice but that of G = 0,
    the first on process 0.
    """

    def __init__(self, ham, wfs, kpt, preconditioner):
        self._ham, self._wfs, self._kpt, self._preconditioner = ham, wfs, kpt, preconditioner
        is_real = wfs.dtype == float
        self._has_single = is_real and wfs.gd.comm.rank == 0
        self._scale = np.sqrt(kpt.psit.dv * (2 if is_real else 1))
        self._kinetic = np.mean(preconditioner.calculate_kinetic_energy(kpt.psit.array, kpt))
        self.guess = self._columns(self._scale * kpt.psit.array)

    def put_back(self, vectors):
        """Makes columns the bands of the k point."""
        np.divide(self._bands(vectors), self._scale, out=self._kpt.psit.array)

    def A(self, X, out):
        bands = self._bands(X)
        image = self._local_hamiltonian(bands)
        self._augment(bands, (self._ham.dH, image))
        out[...] = self._columns(image)

    def B(self, X, out):
        bands = self._bands(X)
        image = bands.copy()
        self._augment(bands, (self._wfs.setups.dS.apply, image))
        out[...] = self._columns(image)

    def both(self, X):
        """A X and B X, for which the projections are made once."""
        bands = self._bands(X)
        images = self._local_hamiltonian(bands), bands.copy()
        self._augment(bands, *zip((self._ham.dH, self._wfs.setups.dS.apply), images))
        return [self._columns(image) for image in images]

    def T(self, X, out):
        """By the mean kinetic energy: an operator cannot tell which bands its columns are of."""
        bands = self._bands(X)
        image = np.empty_like(bands)
        kinetic = np.full(len(bands), self._kinetic)
        self._preconditioner(bands, self._kpt, kinetic, out=image)
        out[...] = self._columns(np.negative(image, out=image))

    def _bands(self, X):
        """Rows of plane waves for columns: a copy, as GPAW sends no read-only arrays."""
        bands = np.array(X.T, order="C").view(complex)
        if self._has_single:
            bands[:, 0] *= np.sqrt(2)
        return bands

    def _columns(self, bands):
        """Columns for rows of plane waves, on their memory."""
        if self._has_single:
            bands[:, 0] /= np.sqrt(2)
        return bands.view(self._wfs.dtype).T

    def _local_hamiltonian(self, bands):
        image = np.empty_like(bands)
        self._wfs.apply_pseudo_hamiltonian(self._kpt, self._ham, bands, image)
        return image

    def _augment(self, bands, *corrections):
        """Adds to images what the projectors make of the bands: a small matrix for each atom."""
        projections = self._kpt.projections.new(nbands=len(bands), bcomm=None)
        corrected = projections.new()
        self._wfs.pt.integrate(bands, dict(projections.items()), self._kpt.q)
        for correct, image in corrections:
            correct(projections, out=corrected)
            self._wfs.pt.add(image, dict(corrected.items()), self._kpt.q)
