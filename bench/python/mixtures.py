"""Two voices before a ring of eight microphones, in the open and in a room: what is separated."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path

import numpy as np
import soundfile
from numpy.typing import NDArray

import zelksss

VOICES = Path("/usr/share/pocketsphinx/test/data")
FILES = (
    ["librivox/sense_and_sensibility_01_austen_64kb-0870.wav"],
    ["cards/005.wav", "cards/002.wav", "cards/003.wav"],
)
RATE, LENGTH, ADVANCE = 16000, 512, 128
AZIMUTHS, DISTANCE = (30.0, -60.0), 1.4

# Talker A, then talker B, then both: MSNR learns from who is silent. Before 0.7 s nobody talks.
TURNS = {0: [[0.7, 2.2], [3.7, 7.8]], 1: [[2.2, 7.8]]}
NOISE_ALONE = [(0.0, 0.7)]
BOTH = slice(int(3.7 * RATE), None)
_angles = np.radians(np.arange(0, 360, 45))
MICROPHONES = 0.05 * np.stack([np.cos(_angles), np.sin(_angles), 0 * _angles], axis=1)


@dataclass
class Mixture:
    """A recording and what is known about it."""

    x: NDArray[np.float32]  # [samples, microphones]
    references: NDArray[np.float32]  # [talkers, samples]: each alone, at microphone 1
    scene: zelksss.Scene
    db: zelksss.Database  # free field, relative to microphone 1
    responses: zelksss.Responses | None = None  # of the room, at the talkers' places

    @property
    def talkers(self) -> list[zelksss.Source]:
        """Both, at their places."""
        return self.scene.at(5.0)

    @property
    def seconds(self) -> float:
        """Length of the recording."""
        return len(self.x) / RATE

    def sir(self, outputs: NDArray[np.float32]) -> float:
        """Return the mean SI-SIR in dB, of outputs in whatever order, where both talk."""
        references = self.references[:, BOTH]
        length = min(references.shape[1], outputs[:, BOTH].shape[1])

        def mean(order: list[int]) -> float:
            scores = zelksss.score(references[:, :length], outputs[order, BOTH][:, :length], 512)
            return float(scores.sir.mean())

        return max(mean([0, 1]), mean([1, 0]))


def make(room: zelksss.Room | None) -> Mixture:
    """Render the voices in the open, or in a room."""
    voices = [
        np.concatenate([soundfile.read(VOICES / name, dtype="float32")[0] for name in names])
        for names in FILES
    ]
    dry = {id: 0.5 * voice / np.abs(voice).max() for id, voice in enumerate(voices)}
    scene = zelksss.Scene.from_dict(
        {
            "sources": [
                {"id": id, "azimuth": a, "distance": DISTANCE, "active": TURNS[id]}
                for id, a in enumerate(AZIMUTHS)
            ]
        }
    )
    grid = {"rate": RATE, "length": LENGTH, "azimuth_step": 5, "distance": DISTANCE}
    air = zelksss.Database.free_field(MICROPHONES, **grid, reference_mic=None)
    heard = zelksss.mix(
        scene, dry, air, room=room, noise_level=-60, diffuse_level=None if room else -50
    )
    references = np.stack([heard.images[id][:, 0] for id in dry])
    mixture = Mixture(
        heard.mixture, references, scene, zelksss.Database.free_field(MICROPHONES, **grid)
    )
    if room:
        mixture.responses = responses_of(scene, air, room)
    return mixture


def responses_of(
    scene: zelksss.Scene, air: zelksss.Database, room: zelksss.Room
) -> zelksss.Responses:
    """Return what the microphones hear of a click at each talker's place."""
    ir, places = [], []
    for source in scene.at(5.0):
        x, y, z = source.position
        place = {"id": 0, "position": [x, y, z]}
        click = zelksss.mix(
            zelksss.Scene.from_dict({"sources": [place]}),
            [np.eye(1, RATE // 2, dtype=np.float32)[0]],
            air,
            room=room,
        )
        ir.append(click.mixture[: RATE // 2].T)
        places.append(source.position)
    return zelksss.Responses(np.array(ir), places, RATE)
