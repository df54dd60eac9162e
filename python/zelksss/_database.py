"""Transfer-function databases."""

from __future__ import annotations

from collections.abc import Sequence
from os import PathLike, fspath

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core


class Database:
    """Transfer functions from a grid of source positions to every microphone of an array.

    Made by `read`, `free_field`, `from_responses` or `from_arrays`; never changes. The transform is
    forward with exp(-2j*pi*k*n/length): a source with the spectrum s is heard as h[k, m, p] * s[k].
    """

    _native: _core.Database

    @classmethod
    def _of(cls, core: _core.Database) -> Database:
        database = cls.__new__(cls)
        database._native = core
        return database

    @classmethod
    def read(cls, path: str | PathLike[str]) -> Database:
        """Read a SOFA file of DataType TF.

        The file is parsed by a process of its own which can do nothing else, so that files from
        strangers do no harm.
        """
        return cls._of(_core.Database.read(fspath(path)))

    @classmethod
    def free_field(
        cls,
        mics: ArrayLike,
        rate: int = 16000,
        length: int = 512,
        azimuth_step: float = 5.0,
        distance: float | Sequence[float] = 1.5,
        elevations: Sequence[float] = (0.0,),
        reference_mic: int | None = 1,
    ) -> Database:
        """Compute the transfer functions of spherical waves in a free field.

        Parameters
        ----------
        mics : array_like, [microphones, 3]
            Positions in metres: x forward, y left, z up.
        rate : int, optional
            Sampling rate in Hz.
        length : int, optional
            Samples per frame, even: the database has length/2 + 1 bins.
        azimuth_step : float, optional
            Degrees between neighbouring directions.
        distance : float or sequence of floats, optional
            Metres from the origin to the sources.
        elevations : sequence of floats, optional
            Degrees up from the horizontal plane.
        reference_mic : int or None, optional
            Microphone, from 1, that the functions are made relative to, so that separated sources
            sound as it hears them. None: compared with the centre of the array; `mix` needs that.
        """
        distances = [float(d) for d in np.atleast_1d(np.asarray(distance, dtype=np.float64))]
        heights = [float(e) for e in elevations]
        return cls._of(
            _core.Database.free_field(
                mics, rate, length, azimuth_step, heights, distances, reference_mic or 0
            )
        )

    @classmethod
    def from_responses(
        cls,
        ir: ArrayLike,
        positions: ArrayLike,
        microphones: ArrayLike,
        rate: int,
        length: int | None = None,
        reference_mic: int | None = 1,
    ) -> Database:
        """Make transfer functions of measured or simulated impulse responses.

        Parameters
        ----------
        ir : array_like, float32 or float64 [positions, microphones, taps]
            Impulse responses, sample 0 at the time when the sound is emitted, or any time common to
            all.
        positions : array_like, [positions, 3]
            Metres: x forward, y left, z up.
        microphones : array_like, [microphones, 3]
            Likewise.
        rate : int
            Sampling rate in Hz.
        length : int, optional
            Samples per frame, even. Unless given, the least power of two, from 20 to 600 ms, of
            which half holds 99.99 % of the energy; `energy_in_frame` says how much it holds.
        reference_mic : int or None, optional
            As for `free_field`.
        """
        return cls._of(
            _core.Database.from_responses(
                ir, positions, microphones, rate, length or 0, reference_mic or 0
            )
        )

    @classmethod
    def from_arrays(
        cls, h: ArrayLike, positions: ArrayLike, microphones: ArrayLike, rate: int
    ) -> Database:
        """Take transfer functions as they are.

        Parameters
        ----------
        h : array_like of complex, [bins, microphones, positions]
            Bin k is the frequency k * rate / (2 * (bins - 1)).
        positions : array_like, [positions, 3]
            Metres: x forward, y left, z up.
        microphones : array_like, [microphones, 3]
            Likewise.
        rate : int
            Sampling rate in Hz.
        """
        return cls._of(_core.Database.from_arrays(h, positions, microphones, rate))

    def write(self, path: str | PathLike[str]) -> None:
        """Write a SOFA file of DataType TF, in place of one that is there."""
        self._native.write(fspath(path))

    @property
    def h(self) -> NDArray[np.complex64]:
        """Transfer functions, complex64 [bins, microphones, positions]: a view, to be read only."""
        return self._native.h

    @property
    def positions(self) -> NDArray[np.float64]:
        """Source positions in metres, float64 [positions, 3]."""
        return self._native.positions

    @property
    def microphones(self) -> NDArray[np.float64]:
        """Positions of the microphones in metres, float64 [microphones, 3]."""
        return self._native.microphones

    @property
    def reference_mic(self) -> int | None:
        """Microphone, from 1, that the transfer functions are relative to; None: none."""
        return self._native.reference_mic or None

    @property
    def energy_in_frame(self) -> float | None:
        """Part of the energy of the impulse responses that the frame holds; None: not known."""
        return self._native.energy_in_frame

    @property
    def rate(self) -> int:
        """Sampling rate in Hz."""
        return self._native.rate

    @property
    def length(self) -> int:
        """Samples per frame: 2 * (bins - 1)."""
        return self._native.length

    def __repr__(self) -> str:
        """Return the counts and the rate."""
        bins, mics, positions = self.h.shape
        return f"<Database: {positions} positions, {mics} microphones, {bins} bins, {self.rate} Hz>"
