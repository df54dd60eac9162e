"""Who is where, and when."""

from __future__ import annotations

import json
from collections.abc import Mapping, Sequence
from os import PathLike, fspath
from typing import Any

from . import _core


class Source(_core.Source):
    """A sound source at a place.

    Parameters
    ----------
    id : int
        Which source it is. Methods that learn keep what they have learnt under this number.
    azimuth : float, optional
        Degrees counter-clockwise from the front.
    elevation : float, optional
        Degrees up from the horizontal plane.
    distance : float, optional
        Metres from the array's centre.
    position : sequence of 3 floats, optional
        x (forward), y (left) and z (up) in metres instead of a direction.
    target : bool, optional
        False for a noise source, which gets no signal and is kept out of the others.

    Attributes
    ----------
    id : int
    position : tuple of 3 floats
        Metres.
    target : bool

    Examples
    --------
    >>> Source(0, azimuth=90, distance=2).target
    True
    """

    def __init__(
        self,
        id: int,
        azimuth: float = 0.0,
        elevation: float = 0.0,
        distance: float = 1.0,
        *,
        position: Sequence[float] | None = None,
        target: bool = True,
    ) -> None:
        if position is None:
            super().__init__(id, azimuth, elevation, distance, True, target)
        else:
            x, y, z = position
            super().__init__(id, x, y, z, False, target)

    def __repr__(self) -> str:
        """Return how the source is made."""
        place = ", ".join(f"{c:.4g}" for c in self.position)
        return (
            f"Source({self.id}, position=({place})"
            + ("" if self.target else ", target=False")
            + ")"
        )


class Scene:
    """Sources that come, go and move during a recording.

    Made by `read`, `from_dict` or `from_rttm`.
    """

    _native: _core.Scene

    @classmethod
    def _of(cls, core: _core.Scene) -> Scene:
        scene = cls.__new__(cls)
        scene._native = core
        return scene

    @classmethod
    def read(cls, path: str | PathLike[str]) -> Scene:
        """Read a scene file (JSON), as `docs/formats.md` describes it.

        Raises
        ------
        Error
            Naming the file, the place in it, what stands there and what was expected.
        """
        return cls._of(_core.Scene.read(fspath(path)))

    @classmethod
    def from_dict(cls, document: dict[str, Any]) -> Scene:
        """Make a scene of what a scene file holds.

        Examples
        --------
        >>> scene = Scene.from_dict({"sources": [{"id": 0, "azimuth": 30, "active": [[0.5, 4.0]]}]})
        >>> scene.ids
        (0,)
        """
        return cls._of(_core.Scene.parse(json.dumps(document), "document"))

    @classmethod
    def from_rttm(
        cls,
        path: str | PathLike[str],
        speakers: Mapping[str, Source],
        recording: str | None = None,
    ) -> Scene:
        """Read who speaks when from an RTTM file, as diarisation writes it.

        Parameters
        ----------
        path : str or path
            The file; its lines of type SPEAKER count.
        speakers : mapping of str to Source
            Who each name in the file is, and where: ``{"anna": Source(0, azimuth=30)}``. A name in
            the file that is not here is an error.
        recording : str, optional
            Which recording of the file, if it has several.
        """
        return cls._of(_core.Scene.from_rttm(fspath(path), dict(speakers), recording or ""))

    @property
    def ids(self) -> tuple[int, ...]:
        """Ids of the targets, in the scene's order."""
        return self._native.ids

    @property
    def noise_ids(self) -> tuple[int, ...]:
        """Ids of the noise sources, in the scene's order."""
        return self._native.noise_ids

    def active(self, id: int) -> list[tuple[float, float]] | None:
        """Return when a target is active: begin and end in seconds; None means always."""
        return self._native.active(id)

    def at(self, time: float) -> list[Source]:
        """Return the sources that are active at a time in seconds, noise sources last."""
        return [Source(s.id, position=s.position, target=s.target) for s in self._native.at(time)]
