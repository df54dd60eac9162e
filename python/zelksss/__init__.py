"""Sound-source separation for microphone arrays.

A recording of several microphones goes in, one clean signal per source comes out. `Database` says
how the array hears each direction, `Source` and `Scene` say who is where; `separate` does a whole
recording, `Separator` one block at a time.

Coordinates are metres (x forward, y left, z up), azimuths degrees counter-clockwise from the front.
"""

from . import engine
from ._core import __version__
from ._database import Database
from ._error import Error
from ._mix import Mix, Room, mix
from ._output import Output
from ._responses import Responses
from ._scene import Scene, Source
from ._scores import Scores, score
from ._separator import Parameters, Separator, separate

__all__ = [
    "Database",
    "Error",
    "Mix",
    "Output",
    "Parameters",
    "Responses",
    "Room",
    "Scene",
    "Scores",
    "Separator",
    "Source",
    "__version__",
    "engine",
    "mix",
    "score",
    "separate",
]
