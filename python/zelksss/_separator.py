"""Separation of sampled sound."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, TypedDict

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._database import Database
from ._error import Error
from ._output import Output
from ._responses import Responses
from ._scene import Scene, Source

if TYPE_CHECKING:
    from typing_extensions import Unpack

# Samples that `separate` gives to the separator at once.
_BLOCK = 1 << 16


class Parameters(TypedDict, total=False):
    """Keyword arguments of `separate` and `Separator`, which have the command's defaults.

    Attributes
    ----------
    length : int
        Samples per frame; the database's, without one 512.
    advance : int
        Samples from frame to frame; a quarter of the frame, or half of `latency`.
    window : str
        "HANN", "HAMMING", "SINE" or "RECTANGULAR".
    latency : int
        Samples within which a sample is finished, up to `length`: with windows that are long before
        and short after the separation, see `docs/live.md`. `window` does not count then.
    project : bool
        Scale the outputs, bin by bin, to what the reference microphone hears; for MSNR.
    reference_mic : int
        The reference microphone, from 1.
    project_forgetting : float
        How much of the scale's averages a new frame leaves, 0 to 1.
    half_frame_shift : bool
        Undo a shift by half a frame; for ML that is not projected.
    inactive_as_noise : bool
        List sources as noise while they are silent; for MSNR.
    noise_from : list of (float, float)
        ML: begin and end, in seconds, of stretches that hold noise alone. `separate` measures it
        in advance; a `Separator` learns it as the stretches come.
    noise_matrices : array_like of complex, [bins, microphones, microphones]
        ML: correlation matrices of the noise, measured in advance.
    noise_forgetting, noise_loading : float
        ML: see `docs/methods.md`.
    noise_normalize : bool
        ML: the recording's level does not count.
    lc_method : str
        LCMV, GJ, GICA: "ADAPTIVE" or "FIX" step towards the constraint.
    lc_myu : float
        Its size, or its multiplier when adaptive.
    ss_method : str
        GICA: "ADAPTIVE", "FIX" or "LC_MYU" step of the separation.
    ss_myu, ss_scal : float
        GICA: its size or multiplier, and the scale of the outputs inside the tanh.
    reg_factor : float
        ML: regularisation, relative to the norm of the noise matrix.
    alpha : float
        MSNR: forgetting factor of the statistics.
    decomposition_algorithm : str
        MSNR: "GEVD" or "GSVD".
    level : bool
        MSNR that is projected: separate spectra that are brought to the same level, so that it
        makes no difference how loud the recording is.
    loading : float
        MVDR: noise of the microphones' own, as a share of the sources' mean power.
    frames : int
        MVDR: frames that a filter takes, half a frame apart.
    passes : int
        How often the method goes through the recording; LCMV, GICA and MSNR learn on. A `Separator`
        is given the recording as often, see `Separator.start_over`.
    refine : int
        Passes after these that separate anew, by MVDR from masks of what was separated before.
    refine_live : bool
        The same within one pass, from what was heard so far.
    refine_memory : float
        Seconds that it reaches back.
    post_mask : float
        Multiply each output, bin by bin, by its share of the power of all, at least by this. 1: do
        not.
    threads : int
        So many threads, no more than the machine has processors, share the bins of a frame where it
        is worth it. The outputs do not depend on it.
    """

    length: int
    advance: int
    window: str
    latency: int
    project: bool
    reference_mic: int
    project_forgetting: float
    half_frame_shift: bool
    inactive_as_noise: bool
    noise_from: Sequence[tuple[float, float]]
    noise_matrices: ArrayLike
    noise_forgetting: float
    noise_loading: float
    noise_normalize: bool
    lc_method: str
    lc_myu: float
    ss_method: str
    ss_myu: float
    ss_scal: float
    reg_factor: float
    alpha: float
    decomposition_algorithm: str
    level: bool
    loading: float
    frames: int
    passes: int
    refine: int
    refine_live: bool
    refine_memory: float
    post_mask: float
    threads: int


class Separator:
    """Separates the sound of a microphone array into a signal per source, block by block.

    How the samples are cut into blocks makes no difference, to the bit. Outputs are aligned with
    the input and together as long as it. Several separators work side by side on several threads;
    one is used by one thread at a time.

    Parameters
    ----------
    db : Database or None
        The array's transfer functions. None for the methods MSNR, with `microphones`, and MVDR,
        with `responses`.
    rate : int, optional
        Sampling rate of the samples in Hz; the database's. Another one is an error.
    method : str, optional
        DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR or MVDR; see `docs/methods.md`.
    microphones : int, optional
        Channels of the samples, for MSNR without a database.
    responses : Responses, optional
        The room's impulse responses, for MVDR.
    **parameters
        See `Parameters`.

    Examples
    --------
    >>> import numpy as np
    >>> db = Database.free_field([[0.05, 0, 0], [-0.05, 0, 0]])
    >>> sep = Separator(db, method="DS")
    >>> out = sep.process(np.zeros((160, 2), np.float32), [Source(0, azimuth=30)])
    >>> out.start, out.count, sep.flush().count
    (0, 0, 160)
    """

    _native: _core.Separator

    def __init__(
        self,
        db: Database | None,
        rate: int | None = None,
        method: str = "NULL",
        *,
        microphones: int | None = None,
        responses: Responses | None = None,
        **parameters: Unpack[Parameters],
    ) -> None:
        self._make(db, rate, method, microphones, responses, parameters, None)

    def _make(
        self,
        db: Database | None,
        rate: int | None,
        method: str,
        microphones: int | None,
        responses: Responses | None,
        parameters: Parameters,
        recording: ArrayLike | None,
    ) -> None:
        """Make the separator, for a whole recording if there is one."""
        if responses is not None:
            if db is not None:
                raise _error("db", "given", "None beside responses")
            _require_rate(rate, responses.rate, "responses were")
            self._native = _core.Separator(responses._native, method, parameters)
            return
        if db is None:
            if method == "MVDR":
                raise _missing("responses", "zelksss.Responses, for the method MVDR")
            if microphones is None:
                raise _missing("db", "a Database, or microphones=COUNT with the method MSNR")
            if rate is None:
                raise _missing("rate", "the sampling rate in Hz, as there is no database")
            self._native = _core.Separator(microphones, rate, method, parameters)
            return
        _require_rate(rate, db.rate, "db was")
        self._native = _core.Separator(db._native, method, parameters, recording)

    def process(self, x: ArrayLike, sources: Sequence[Source] | Scene | None = None) -> Output:
        """Take the next samples and return what is finished.

        Parameters
        ----------
        x : array_like, float32 or float64 [samples, microphones]
            Samples of -1 … 1. float32, row by row in memory, is read in place. Tensors of torch on
            the CPU and what has ``__array__`` or ``__dlpack__`` are taken, too.
        sources : sequence of Source or Scene, optional
            Whose sound is heard from the first of these samples on, or a scene whose time 0 is the
            first sample of all; None leaves what was given before in force.

        Returns
        -------
        Output
            Samples of each source that sounded.
        """
        if isinstance(sources, Scene):
            return self._native.process(x, sources._native)
        return self._native.process(x, sources)

    def flush(self) -> Output:
        """End the recording: return all samples that are left. Then no more are taken."""
        return self._native.flush()

    def start_over(self) -> None:
        """Begin the next pass: no sample was taken, nobody is listed, what was learnt stays."""
        self._native.start_over()

    @property
    def passes(self) -> int:
        """How often the recording is to be given; outputs come in the last pass."""
        return self._native.passes

    @property
    def samples(self) -> int:
        """Samples of each microphone taken so far."""
        return self._native.samples

    @property
    def latency(self) -> int:
        """After P samples, P - latency at least are finished."""
        return self._native.latency

    @property
    def microphones(self) -> int:
        """Channels of the samples."""
        return self._native.microphones

    @property
    def rate(self) -> int:
        """Sampling rate in Hz."""
        return self._native.rate

    @property
    def length(self) -> int:
        """Samples per frame."""
        return self._native.length

    @property
    def advance(self) -> int:
        """Samples from frame to frame."""
        return self._native.advance


def separate(
    x: ArrayLike,
    db: Database | None,
    sources: Sequence[Source] | Scene,
    rate: int | None = None,
    method: str = "NULL",
    *,
    responses: Responses | None = None,
    **parameters: Unpack[Parameters],
) -> dict[int, NDArray[np.float32]]:
    """Separate a recording into one signal per source.

    Parameters
    ----------
    x : array_like, float32 or float64 [samples, microphones]
        The recording, a column per microphone in the database's order.
    db : Database or None
        The array's transfer functions; None for the methods MSNR and MVDR.
    sources : sequence of Source or Scene
        Who is where: all the time, or as the scene says.
    rate : int, optional
        Sampling rate in Hz; the database's.
    method : str, optional
        DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR or MVDR; see `docs/methods.md`.
    responses : Responses, optional
        The room's impulse responses, for MVDR.
    **parameters
        See `Parameters`.

    Returns
    -------
    dict of int to ndarray, float32 [samples]
        The signal of each target by its id. Sample n belongs to sample n of the recording; where a
        source is not active its signal is 0.
    """
    separator = Separator.__new__(Separator)
    channels = _core.channels_of(x) if db is None else None
    separator._make(db, rate, method, channels, responses, parameters, x)
    recording = separator._native.checked(x)
    separator.process(recording[:0], sources)  # refuses what is no list of sources
    for _ in range(1, separator.passes):
        for _output in _outputs(separator, recording):
            pass  # there is none yet
        separator.start_over()
        separator.process(recording[:0], sources)
    ids = sources.ids if isinstance(sources, Scene) else [s.id for s in sources if s.target]
    result = {id: np.zeros(len(recording), np.float32) for id in ids}
    for output in _outputs(separator, recording):
        for id, samples in output.items():
            result[id][output.start : output.start + output.count] = samples
    return result


def _outputs(separator: Separator, recording: NDArray[np.float32]) -> Iterator[Output]:
    for begin in range(0, len(recording), _BLOCK):
        yield separator.process(recording[begin : begin + _BLOCK])
    yield separator.flush()


def _require_rate(rate: int | None, expected: int, what: str) -> None:
    if rate is None or rate == expected:
        return
    text = f"rate is {rate} Hz, expected {expected} Hz, for which {what} made"
    raise Error(text, "rate", str(rate), str(expected))


def _missing(field: str, expected: str) -> Error:
    return _error(field, "missing", expected)


def _error(field: str, actual: str, expected: str) -> Error:
    return Error(f"{field} is {actual}, expected {expected}", field, actual, expected)
