"""Lowest eigenpairs of large Hermitian problems A x = lambda x and A x = lambda B x.

>>> import numpy as np, ves
>>> values, vectors = ves.eigsh(np.diag(np.arange(100.0)), k=3)
>>> np.round(values, 6) + 0.0
array([0., 1., 2.])

The shared library is searched for at the path in the environment variable VES_LIBRARY, beside an
installed package, and by the system's loader. Its BLAS, LAPACK and ScaLAPACK are those of Debian,
or the libraries listed in VES_PROVIDER.
"""

from ._kernels import KernelWarning
from ._library import VesError, version
from ._processes import ProcessError
from ._results import Check, ConvergenceWarning, EigenResult, Progress, Statistics
from ._settings import Settings
from ._solve import eigsh
from ._tools import check, memory_forecast
from .scipy import lobpcg

__all__ = [
    "Check",
    "ConvergenceWarning",
    "EigenResult",
    "KernelWarning",
    "ProcessError",
    "Progress",
    "Settings",
    "Statistics",
    "VesError",
    "check",
    "eigsh",
    "lobpcg",
    "memory_forecast",
    "version",
]

__version__ = version()
