"""Rendering of scenes."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import NamedTuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._database import Database
from ._error import Error
from ._scene import Scene


class Room(_core.Room):
    """A rectangular room around the array.

    Parameters
    ----------
    size : sequence of 3 floats
        Length (x), width (y) and height (z) in metres.
    t60 : float, optional
        Seconds in which sound falls by 60 dB; the walls' absorption follows by Eyring's formula.
    absorption : float or sequence of 6 floats, optional
        Instead: the part of the energy that all walls absorb, or x = 0, x = length, y = 0,
        y = width, floor and ceiling.
    at : sequence of 3 floats, optional
        Where the array's origin is, in metres; near the middle, 1.2 m high.
    facing : float, optional
        Degrees counter-clockwise from the room's x axis to the array's.
    jitter : float, optional
        Metres by which every image of a source is moved at random, against sweeping echoes.
    """

    def __init__(
        self,
        size: Sequence[float],
        t60: float | None = None,
        absorption: float | Sequence[float] = (),
        at: Sequence[float] | None = None,
        facing: float = 0.0,
        jitter: float = 0.0,
    ) -> None:
        walls = [float(a) for a in np.atleast_1d(np.asarray(absorption, dtype=np.float64))]
        super().__init__(size, t60, walls, at, facing, jitter)


class Mix(NamedTuple):
    """What the microphones hear.

    Attributes
    ----------
    mixture : ndarray, float32 [samples, microphones]
        Everything together.
    images : dict of int to ndarray, float32 [samples, microphones]
        Each source and noise source alone, by its id.
    noise : ndarray, float32 [samples, microphones]
        Diffuse noise and that of the microphones.
    """

    mixture: NDArray[np.float32]
    images: dict[int, NDArray[np.float32]]
    noise: NDArray[np.float32]


def mix(
    scene: Scene,
    dry: Mapping[int, ArrayLike] | Sequence[ArrayLike],
    db: Database,
    *,
    noise_level: float | None = None,
    diffuse_level: float | None = None,
    reverb: float = 0.0,
    direct_to_reverberant: float = 0.0,
    room: Room | None = None,
    seed: int = 1,
) -> Mix:
    """Render what an array hears of a scene.

    Parameters
    ----------
    scene : Scene
        Who is where and when. A source's first sample is emitted when it is first active.
    dry : mapping of int to array_like, or sequence of array_like, [samples] each
        What each source emits, at the database's rate: by id, or in the scene's order with the
        noise sources last.
    db : Database
        The array's transfer functions, best not relative to a microphone.
    noise_level, diffuse_level : float, optional
        Level in dB (0: RMS 1) of noise that is independent at each microphone, and of noise from
        all around.
    reverb : float, optional
        Seconds in which a late reverberation falls by 60 dB; 0: none.
    direct_to_reverberant : float, optional
        Energy of a response over that of its reverberation, in dB.
    room : Room, optional
        A room around the array, whose microphones then are alone in the air.
    seed : int, optional
        Start of the random numbers.

    Returns
    -------
    Mix
    """
    ids = scene.ids + scene.noise_ids
    if isinstance(dry, Mapping):
        if set(dry) != set(ids):
            expected = f"a signal for each id of the scene: {', '.join(map(str, ids))}"
            actual = f"for {', '.join(map(str, dry))}"
            raise Error(f"dry is {actual}, expected {expected}", "dry", actual, expected)
        dry = [dry[id] for id in ids]
    images = _core.mix(
        scene._native, dry, db._native, noise_level, diffuse_level, reverb, direct_to_reverberant,
        room, seed,
    )  # fmt: skip
    mixture = np.zeros_like(images[0]) if images else np.zeros((0, 0), np.float32)
    noise = np.zeros_like(mixture)
    for number, image in enumerate(images):
        mixture += image
        if number >= len(ids):
            noise += image
    return Mix(mixture, dict(zip(ids, images)), noise)
