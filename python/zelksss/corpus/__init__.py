"""Many recordings at once, on the cores of one machine or of many.

`separate`, `mix` and `score` go through a manifest (JSON lines, an item a line) on a cluster of
dask.distributed: one of this machine, or any whose scheduler's address is given. `docs/corpus.md`
says what manifests hold, what is written, and what happens when machines fail.
"""

from __future__ import annotations

import importlib.util
import json
from collections.abc import Mapping
from os import PathLike, fspath
from typing import TYPE_CHECKING, Any, TypedDict, Union

_missing = [n for n in ("distributed", "fsspec", "soundfile") if not importlib.util.find_spec(n)]
if _missing:
    raise ImportError(
        f"zelksss.corpus needs {', '.join(_missing)}: pip install 'zelksss[corpus]' brings it",
        name=_missing[0],
    )

from .._error import Error  # noqa: E402
from .._separator import Parameters  # noqa: E402
from ._errors import InterruptedRunError  # noqa: E402
from ._files import absolute  # noqa: E402
from ._items import METHODS, channel_list  # noqa: E402
from ._manifest import Manifest, json_lines, read_items, read_speakers, with_supervisions  # noqa: E402
from ._run import INDEX, Failure, Options, Progress, Report, run  # noqa: E402
from ._store import Store  # noqa: E402

if TYPE_CHECKING:
    from distributed import Client
    from typing_extensions import Unpack

__all__ = ["Failure", "InterruptedRunError", "Report", "Running", "mix", "score", "separate"]

Path = Union[str, "PathLike[str]"]


class Running(TypedDict, total=False):
    """Keyword arguments of `separate`, `mix` and `score` that do not change what comes out.

    Attributes
    ----------
    client : str or distributed.Client
        The scheduler's address, or a client of it. Without one the cores of this machine work.
    jobs : int
        How many of them; all.
    batch : int
        Items that a worker is given at once; as many as take it about a second.
    retries : int
        How often an item is tried again that ended its process, took too long, or could not read or
        write; 2.
    limit : float
        Seconds that an item may take; two minutes and 30 times its length.
    memory : int
        Bytes that an item's process may have; as many as there are.
    force : bool
        Go on where another call has put results, and make them anew.
    parquet : bool
        Write the index also as `index.parquet`.
    progress : callable
        Is told a `Report` twice a second.
    """

    client: str | Client | None
    jobs: int | None
    batch: int | None
    retries: int
    limit: float | None
    memory: int | None
    force: bool
    parquet: bool
    progress: Progress | None


class _Separating(Parameters, Running, total=False):
    pass


def separate(
    manifest: Manifest,
    output: Path,
    *,
    method: str = "NULL",
    database: Path | None = None,
    responses: Path | None = None,
    scene: Path | Mapping[str, Any] | None = None,
    speakers: Path | Mapping[str, Any] | None = None,
    supervisions: Path | None = None,
    channels: str | list[int] | None = None,
    samples: str = "PCM_16",
    flac: bool = False,
    piece: float = 600.0,
    overlap: float = 10.0,
    **options: Unpack[_Separating],
) -> Report:
    """Separate every recording of a manifest.

    What is there already is not done again. An item that fails is reported and does not stop the
    others.

    Parameters
    ----------
    manifest : path, URL or iterable of mappings
        JSON lines with `recording`, `scene` or `rttm`, and so on; or a recording manifest of
        Lhotse.
    output : path or URL
        Folder for a folder per item, `index.jsonl` and `failures.jsonl`.
    method : str, optional
        As for `zelksss.separate`.
    database, responses, scene, speakers, channels : optional
        What counts where a line of the manifest lacks it.
    supervisions : path or URL, optional
        A supervision manifest of Lhotse: who speaks when. `speakers` has the places.
    samples : str, optional
        "PCM_16", "PCM_24" or "FLOAT".
    flac : bool, optional
        Write FLAC instead of WAV.
    piece : float, optional
        Seconds. Recordings more than 1.5 times as long are cut into pieces of about this length,
        on which several workers work at once.
    overlap : float, optional
        Seconds before a piece from which methods that learn begin.
    **options
        See `Running` and `zelksss.Parameters`.

    Returns
    -------
    Report

    Raises
    ------
    zelksss.Error
        For arguments and manifests that cannot be used.
    InterruptedRunError
        When the disk is full or the scheduler is gone. The same call goes on from what is there.
    """
    if method not in METHODS:
        raise _wrong("method", method, f"one of {', '.join(METHODS)}")
    if samples not in ("PCM_16", "PCM_24", *(() if flac else ("FLOAT",))):
        raise _wrong("samples", samples, "PCM_16, PCM_24 or, without flac, FLOAT")
    if not piece > 0 or not overlap >= 0:
        raise _wrong("piece, overlap", f"{piece}, {overlap}", "seconds above 0, from 0 on")
    known = Parameters.__annotations__
    parameters: dict[str, Any] = {k: v for k, v in options.items() if k in known}
    running: Any = {k: v for k, v in options.items() if k not in known}
    settings = {
        "method": method,
        "parameters": {k: parameters[k] for k in sorted(parameters)},
        "format": {"samples": samples, "flac": flac},
        "cut": {"piece": float(piece), "overlap": float(overlap)},
    }
    channel_list(channels)
    defaults = {
        "database": _text(database),
        "responses": _text(responses),
        "scene": scene if isinstance(scene, Mapping) else _text(scene),
        "channels": channels,
    }
    if supervisions is not None:
        items = read_items("separate", manifest, defaults)
        items = with_supervisions(items, fspath(supervisions), read_speakers(speakers))
    else:
        places = read_speakers(speakers) or None
        items = read_items("separate", manifest, {**defaults, "speakers": places})
    return run("separate", items, fspath(output), settings, _options(running))


def mix(
    manifest: Manifest,
    output: Path,
    *,
    database: Path | None = None,
    samples: str = "FLOAT",
    flac: bool = False,
    reference_mic: int = 1,
    **options: Unpack[Running],
) -> Report:
    """Render every scene of a manifest.

    Parameters
    ----------
    manifest : path, URL or iterable of mappings
        JSON lines with `id`, `scene`, `dry` and, as for `zelksss.mix`, `room`, `noise_level`, ….
    output : path or URL
        Folder for a folder per item, and `manifest.jsonl`, which `separate` takes.
    database : path or URL, optional
        What counts where a line of the manifest lacks it.
    samples, flac : optional
        As for `separate`.
    reference_mic : int, optional
        The microphone, from 1, whose images of the sources are written as references.
    **options
        See `Running`.

    Returns
    -------
    Report
    """
    if samples not in ("PCM_16", "PCM_24", *(() if flac else ("FLOAT",))):
        raise _wrong("samples", samples, "PCM_16, PCM_24 or, without flac, FLOAT")
    settings = {"format": {"samples": samples, "flac": flac}, "reference_mic": reference_mic}
    items = read_items("mix", manifest, {"database": _text(database)})
    report = run("mix", items, fspath(output), settings, _options(options))
    store = Store(absolute(fspath(output)))
    lines = []
    for line in json_lines(f"{store.url}/{INDEX}"):
        files = {id: f"{line['id']}/{file}" for id, file in line["references"].items()}
        recording = f"{line['id']}/{line['recording']}"
        entry = {"id": line["id"], "recording": recording, "scene": line["scene"]}
        lines.append(json.dumps({**entry, "references": files}) + "\n")
    store.write("manifest.jsonl", "".join(lines))
    return report


def score(
    manifest: Manifest,
    output: Path,
    *,
    estimates: Path | None = None,
    **options: Unpack[Running],
) -> Report:
    """Score separated sources against references.

    Parameters
    ----------
    manifest : path, URL or iterable of mappings
        JSON lines with `id`, `references` (an object of files by the source's id) and `estimates`.
    output : path or URL
        Folder for `index.jsonl` with the scores, and a folder per item.
    estimates : path or URL, optional
        What `separate` has made of items with the same ids, where a line has no `estimates`.
    **options
        See `Running`.

    Returns
    -------
    Report
    """
    settings = {"estimates": _text(estimates)}
    items = read_items("score", manifest, {})
    return run("score", items, fspath(output), settings, _options(options))


def _options(given: Running) -> Options:
    defaults: dict[str, Any] = dict.fromkeys(Running.__annotations__)
    defaults.update(retries=2, force=False, parquet=False)
    for name in given:
        if name not in defaults:
            raise _wrong(name, "given", f"one of {', '.join(defaults)}")
    options = Options(**{**defaults, **given})
    for name, least in (("jobs", 1), ("batch", 1), ("retries", 0), ("limit", 0), ("memory", 1)):
        value = getattr(options, name)
        if value is not None and not value >= least:
            raise _wrong(name, str(value), f"{least} or more")
    if options.parquet and not importlib.util.find_spec("pyarrow"):
        raise _wrong("parquet", "given", "the package pyarrow, which zelksss[corpus] brings")
    return options


def _text(path: Path | None) -> str | None:
    return None if path is None else absolute(fspath(path))


def _wrong(field: str, actual: str, expected: str) -> Error:
    return Error(f"{field} is {actual}, expected {expected}", field, actual, expected)
