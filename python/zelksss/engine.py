"""Separation engines: spectra in, spectra out, one frame at a time.

For whoever has frames of their own. A frame's spectrum is complex [microphones, bins]; what comes
out is complex128 [sources, bins]. All sources that are listed get a row, noise sources, too.
Parameters that are not given have the command's defaults (``zelk-sss methods``).

Examples
--------
>>> import numpy as np, zelksss
>>> db = zelksss.Database.free_field([[0.05, 0, 0], [-0.05, 0, 0]])
>>> eng = NULL(257, 16000)
>>> eng.database = db
>>> eng.update_sources([zelksss.Source(0, azimuth=30), zelksss.Source(1, azimuth=-60)])
>>> eng.process(np.ones((2, 257), complex)).shape, eng.separation_matrices.shape
((2, 257), (257, 2, 2))
"""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._database import Database
from ._scene import Source

__all__ = ["DS", "GICA", "GJ", "ILSE", "LCMV", "ML", "MSNR", "NULL", "WDS", "Engine"]


class Engine:
    """What all engines have in common. One is used by one thread at a time."""

    _native: _core.Engine
    _database: Database | None = None
    _threads: int = 1

    def _make(self, method: str, bins: int, rate: int, **parameters: object) -> None:
        self._native = _core.Engine(method, bins, rate, parameters)

    @property
    def database(self) -> Database | None:
        """The array's transfer functions, which are set before sources are listed."""
        return self._database

    @database.setter
    def database(self, database: Database) -> None:
        self._native.set_database(database._native)
        self._database = database

    @property
    def threads(self) -> int:
        """Threads that share a call's bins where it is worth it; results do not depend on it."""
        return self._threads

    @threads.setter
    def threads(self, threads: int) -> None:
        self._native.set_threads(threads)
        self._threads = threads

    def update_sources(self, sources: Sequence[Source]) -> None:
        """Install a list of sources, when it has changed, and compute the matrices for it."""
        self._native.update_sources(sources)

    def process(self, x: ArrayLike, adapt: bool = True) -> NDArray[np.complex128]:
        """Separate a frame and learn from it.

        Parameters
        ----------
        x : array_like of complex, [microphones, bins]
            The frame's spectrum.
        adapt : bool, optional
            False: the matrices stay.

        Returns
        -------
        ndarray, complex128 [sources, bins]
        """
        return self._native.process(x, adapt)

    @property
    def separation_matrices(self) -> NDArray[np.complex128]:
        """Copy of the matrices W in force, complex128 [bins, sources, microphones]."""
        return self._native.separation_matrices

    @property
    def transfer_functions(self) -> NDArray[np.complex128]:
        """Copy of the sources' transfer functions, complex128 [bins, microphones, sources]."""
        return self._native.transfer_functions

    @property
    def bins(self) -> int:
        """Bins of a frame."""
        return self._native.bins

    @property
    def rate(self) -> int:
        """Sampling rate in Hz."""
        return self._native.rate


class _Fixed(Engine):
    def __init__(self, bins: int, rate: int) -> None:
        self._make(type(self).__name__, bins, rate)


class DS(_Fixed):
    """Delay and sum: every microphone with the same weight after phase alignment."""


class WDS(_Fixed):
    """Delay and sum, weighted by how well each microphone hears the source."""


class NULL(_Fixed):
    """Pseudo-inverse of the sources' transfer functions: a null towards every other source."""


class ILSE(_Fixed):
    """Unit gain towards the source, the least towards the others, in the least-squares sense."""


class _Constrained(Engine):
    def __init__(
        self, bins: int, rate: int, *, lc_method: str = "ADAPTIVE", lc_myu: float | None = None
    ) -> None:
        self._make(type(self).__name__, bins, rate, lc_method=lc_method, lc_myu=lc_myu)


class LCMV(_Constrained):
    """Linearly constrained minimum variance, adapted by constrained least mean squares."""


class GJ(_Constrained):
    """The same aim by a generalised sidelobe canceller."""


class GICA(Engine):
    """Geometrically constrained independent component analysis."""

    def __init__(
        self,
        bins: int,
        rate: int,
        *,
        lc_method: str = "ADAPTIVE",
        lc_myu: float | None = None,
        ss_method: str = "ADAPTIVE",
        ss_myu: float | None = None,
        ss_scal: float | None = None,
    ) -> None:
        self._make(
            "GICA", bins, rate, lc_method=lc_method, lc_myu=lc_myu, ss_method=ss_method,
            ss_myu=ss_myu, ss_scal=ss_scal,
        )  # fmt: skip


class ML(Engine):
    """Minimum variance for noise whose correlation matrices are known.

    Each filter is turned by a circular shift of half a frame: spectra that become sound are to be
    multiplied by (-1)**k.
    """

    def __init__(self, bins: int, rate: int, *, reg_factor: float | None = None) -> None:
        self._make("ML", bins, rate, reg_factor=reg_factor)

    def set_noise(self, matrices: ArrayLike) -> None:
        """Set the noise's correlation matrices, complex [bins, microphones, microphones].

        They count from the next `update_sources` on.
        """
        self._native.set_noise(matrices)


class MSNR(Engine):
    """Maximum signal-to-noise ratio, learnt from when each source is listed as target or noise.

    Parameters
    ----------
    microphones : int
        Rows of the spectra; no database is needed.
    """

    def __init__(
        self,
        bins: int,
        rate: int,
        microphones: int,
        *,
        alpha: float | None = None,
        decomposition_algorithm: str = "GEVD",
    ) -> None:
        self._make("MSNR", bins, rate, alpha=alpha, decomposition_algorithm=decomposition_algorithm)
        self._native.set_microphones(microphones)
