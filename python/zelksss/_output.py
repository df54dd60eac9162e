"""What the streaming separation gives."""

from __future__ import annotations

import numpy as np
from numpy.typing import NDArray


class Output(dict[int, NDArray[np.float32]]):
    """What a call of `Separator.process` finished: samples of each source by its id.

    Each array, float32 [count], is the caller's own. A source that is not here is silent in this
    stretch.

    Attributes
    ----------
    start : int
        Number of the first sample, from the recording's begin.
    count : int
        Samples of every source.
    """

    __slots__ = ("count", "start")

    start: int
    count: int

    @classmethod
    def of(cls, start: int, count: int, signals: dict[int, NDArray[np.float32]]) -> Output:
        """Make one of its parts."""
        output = cls(signals)
        output.start = start
        output.count = count
        return output
