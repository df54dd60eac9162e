"""Impulse responses of a room."""

from __future__ import annotations

from os import PathLike, fspath

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core


class Responses:
    """Whole impulse responses from source positions to every microphone, for the method MVDR.

    Parameters
    ----------
    ir : array_like, float32 or float64 [positions, microphones, taps]
        Direct sound and everything that the room adds.
    positions : array_like, [positions, 3]
        Metres: x forward, y left, z up.
    rate : int
        Sampling rate in Hz.
    """

    _native: _core.Responses

    def __init__(self, ir: ArrayLike, positions: ArrayLike, rate: int) -> None:
        self._native = _core.Responses(ir, positions, rate)

    @classmethod
    def read(cls, path: str | PathLike[str], rate: int) -> Responses:
        """Read a SOFA file, converted to a sampling rate in Hz."""
        responses = cls.__new__(cls)
        responses._native = _core.Responses.read(fspath(path), rate)
        return responses

    @property
    def ir(self) -> NDArray[np.float32]:
        """float32 [positions, microphones, taps]: a view, to be read only."""
        return self._native.ir

    @property
    def positions(self) -> NDArray[np.float64]:
        """Source positions in metres, float64 [positions, 3]."""
        return self._native.positions

    @property
    def rate(self) -> int:
        """Sampling rate in Hz."""
        return self._native.rate
