"""What the tests share: an array, a scene and what it sounds like."""

from __future__ import annotations

import numpy as np
import pytest

import zelksss

MICS = [[0.05, 0, 0], [0, 0.05, 0], [-0.05, 0, 0], [0, -0.05, 0]]
TALKERS = {
    "sources": [
        {"id": 7, "azimuth": 30, "distance": 1.5},
        {"id": 3, "azimuth": -60, "distance": 1.5, "active": [[0.5, 2.0]]},
    ]
}


@pytest.fixture(scope="session")
def db() -> zelksss.Database:
    """Transfer functions relative to microphone 1."""
    return zelksss.Database.free_field(MICS)


@pytest.fixture(scope="session")
def scene() -> zelksss.Scene:
    return zelksss.Scene.from_dict(TALKERS)


@pytest.fixture(scope="session")
def heard(scene: zelksss.Scene) -> zelksss.Mix:
    """Two seconds of it, of noises whose spectra fall as speech's do."""
    noise = np.random.default_rng(1).standard_normal((2, 32000)).astype(np.float32)
    dry = 0.1 * (noise + np.roll(noise, 1, 1) + np.roll(noise, 2, 1))
    air = zelksss.Database.free_field(MICS, reference_mic=None)
    return zelksss.mix(scene, {7: dry[0], 3: dry[1, :24000]}, air, noise_level=-60)
