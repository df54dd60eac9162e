"""Scores of separated sources."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core


class Scores(NamedTuple):
    """Scores in dB, float64 [sources] each, from -inf to inf.

    Attributes
    ----------
    sdr : ndarray
        SI-SDR: the target against everything else.
    sir : ndarray
        SI-SIR: the target against what came from the other sources.
    sar : ndarray
        SI-SAR: the target against what came from no source.
    """

    sdr: NDArray[np.float64]
    sir: NDArray[np.float64]
    sar: NDArray[np.float64]


def score(references: ArrayLike, estimates: ArrayLike, filter_taps: int = 512) -> Scores:
    """Score estimates of sources against references, in the same order.

    Parameters
    ----------
    references : array_like, [sources, samples]
        Each source alone, as a microphone hears it.
    estimates : array_like, [sources, samples]
        The separated sources.
    filter_taps : int, optional
        Length of a filter that an estimate may have been through without loss.

    Returns
    -------
    Scores

    Notes
    -----
    `docs/scores.md` has the definition. With the allowed filter centred on no delay, scores equal
    those of BSS Eval for estimates that are ``(filter_taps - 1) // 2`` samples later, but for the
    SAR, in which BSS Eval compares the artefacts with target and interference together.
    """
    sdr, sir, sar = _core.score(references, estimates, filter_taps).T
    return Scores(sdr, sir, sar)
