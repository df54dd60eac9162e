"""The work on one item, in the process that `_process` starts for it."""

from __future__ import annotations

import errno
import os
import resource
import shutil
import socket
import tempfile
import time
from collections.abc import Iterable, Iterator, Mapping
from contextlib import suppress
from functools import lru_cache
from pathlib import Path
from typing import Any, Callable, TypeVar

import numpy as np
from numpy.typing import NDArray

from .._database import Database
from .._error import Error
from .._mix import Room, mix
from .._output import Output
from .._responses import Responses
from .._scene import Scene, Source
from .._scores import score
from .._separator import Separator
from ._errors import StaleRunError
from ._files import Recording, SoundWriter, is_local, joined, local_path, read_bytes
from ._manifest import Item, places_of, read_speakers
from ._store import Store

# One item to be worked on: operation, item, settings, run, output, folder, key; for a piece of a
# long recording also its limits in samples, for joining them their folders.
Task = dict[str, Any]
Result = dict[str, Any]

_T = TypeVar("_T")

METHODS = ("DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA", "ML", "MSNR", "MVDR")


def work(task: Task, opened: Callable[[float], None]) -> Result:
    """Do an item, unless it is done: {"record": …}, or why not.

    Parameters
    ----------
    opened : callable
        Is told the seconds of sound that there are, as soon as they are known.

    Returns
    -------
    dict
        Of "record"; "cut": a long recording's pieces; "error": its fault; "full": no room;
        "stale": another run has begun.
    """
    store = Store(task["output"])
    try:
        found = store.record(task["folder"])
        if found is not None and found["key"] == task["key"]:
            return {"record": found, "found": True}
        begun = time.monotonic()
        scratch = store.scratch(task["run"])
        try:
            result = _OPERATIONS[task["operation"]](task, scratch, opened)
            if "cut" in result:
                return result
            seconds = time.monotonic() - begun
            record = {
                "id": task["item"]["id"],
                "key": task["key"],
                **result,
                "work": {
                    "seconds": round(seconds, 4),
                    "real_time_factor": round(seconds / max(result["seconds"], 1e-9), 6),
                    "host": socket.gethostname(),
                },
            }
            store.commit(scratch, task["run"], task["folder"], record)
            for folder in task.get("pieces", ()):
                store.remove(os.path.dirname(folder))
            return {"record": record}
        finally:
            shutil.rmtree(scratch, ignore_errors=True)
    except StaleRunError:
        return {"stale": True}
    except MemoryError:
        limit = resource.getrlimit(resource.RLIMIT_AS)[0]
        than = "there is" if limit == resource.RLIM_INFINITY else f"{limit >> 20} MiB"
        return {"retry": f"needs more memory than {than}"}
    except OSError as error:
        text = f"{error.filename or task['output']}: {error.strerror or error}"
        full = error.errno in (errno.ENOSPC, errno.EDQUOT)
        return {"full": text} if full else {"retry": text}
    except Error as error:
        return {"error": str(error)}
    except Exception as error:  # a network's, for example; whatever it is, the others go on
        return {"retry": f"{type(error).__name__}: {error}"}


# ---- separate


def _separate(task: Task, scratch: Path, opened: Callable[[float], None]) -> Result:
    item, settings = task["item"], task["settings"]
    recording = _recording(item)
    parameters = settings["parameters"]
    cut = settings["cut"]
    begin, end = task.get("stretch", (0, recording.samples))
    opened((end - begin) / recording.rate)
    separator = _separator(task, recording)
    scene = _scene(item)
    is_long = recording.samples > 1.5 * cut["piece"] * recording.rate
    if "stretch" not in task and is_long and not parameters.get("noise_from"):
        return {"cut": _pieces(recording, cut["piece"], separator.advance)}
    stored = {"samples": "FLOAT", "flac": False} if "stretch" in task else settings["format"]

    lead = max(int(cut["overlap"] * recording.rate), separator.length)
    first = max(0, begin - -(-lead // separator.advance) * separator.advance)
    last = min(recording.samples, end + separator.length)
    separator._native.begin_at(first)
    with _Files(scratch, scene.ids, recording.rate, **stored) as files:
        for output in _outputs(separator, scene, recording, first, last):
            files.add(output, first + output.start, begin, end)
    result = {
        "method": settings["method"],
        "rate": recording.rate,
        "samples": end - begin,
        "seconds": (end - begin) / recording.rate,
        "sources": files.sources(),
    }
    if recording.warnings:
        result["warnings"] = recording.warnings
    _add_scores(result, item, scratch)
    return result


def _pieces(recording: Recording, seconds: float, advance: int) -> list[tuple[int, int]]:
    """Return stretches of about the same length, from frame to frame."""
    count = max(1, round(recording.samples / (seconds * recording.rate)))
    length = -(-recording.samples // (count * advance)) * advance
    begins = range(0, recording.samples, length)
    return [(begin, min(begin + length, recording.samples)) for begin in begins]


def _separator(task: Task, recording: Recording) -> Separator:
    item, run = task["item"], task["run"]
    method, parameters = task["settings"]["method"], task["settings"]["parameters"]
    db = responses = None
    if method == "MVDR":
        responses = _responses(_needed(item, "responses", method), recording.rate, run)
    elif method != "MSNR":
        db = _database(_needed(item, "database", method), run)
    noise = None
    if parameters.get("noise_from"):
        until = max(end for _, end in parameters["noise_from"])
        noise = recording.read(0, min(recording.samples, int(until * recording.rate) + 1))
    separator = Separator.__new__(Separator)
    channels = recording.microphones
    settings: Any = parameters
    separator._make(db, recording.rate, method, channels, responses, settings, noise)
    if channels != separator.microphones:
        expected = f"the {separator.microphones} microphones of the database"
        raise Error(f"the recording has {channels} channels, expected {expected}")
    return separator


def _needed(item: Item, key: str, method: str) -> str:
    if not isinstance(item.get(key), str):
        raise Error(f"{key} is missing, which {method} needs")
    path: str = item[key]
    return path


def _outputs(
    separator: Separator, scene: Scene, recording: Recording, first: int, last: int
) -> Iterator[Output]:
    for remaining in range(separator.passes, 0, -1):
        separator.process(np.zeros((0, separator.microphones), np.float32), scene)
        for block in recording.blocks(first, last):
            output = separator.process(block)
            if remaining == 1:
                yield output
        if remaining > 1:
            separator.start_over()
    yield separator.flush()


class _Files:
    """A sound file for each source."""

    def __init__(
        self, folder: Path, ids: Iterable[int], rate: int, samples: str, flac: bool
    ) -> None:
        ending = "flac" if flac else "wav"
        self._names = {id: f"source_{id}.{ending}" for id in ids}
        self._writers = {
            id: SoundWriter(folder / name, rate, samples, flac) for id, name in self._names.items()
        }

    def __enter__(self) -> _Files:
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        for writer in self._writers.values():
            with suppress(*(() if kind is None else (Exception,))):
                writer.close()

    def add(self, output: Output, start: int, begin: int, end: int) -> None:
        """Write the part of an output, which starts at a sample, that lies in a stretch."""
        part = slice(max(0, begin - start), max(0, end - start))
        for id, writer in self._writers.items():
            signal = output.get(id)
            if signal is None:
                signal = np.zeros(output.count, np.float32)
            writer.write(signal[part])

    def sources(self) -> list[dict[str, Any]]:
        return [
            {"id": id, "file": self._names[id], "peak": writer.peak, "clipped": writer.clipped}
            for id, writer in self._writers.items()
        ]


def _join(task: Task, scratch: Path, opened: Callable[[float], None]) -> Result:
    """Put the pieces of a long recording together."""
    store = Store(task["output"])
    records = [store.record(folder) for folder in task["pieces"]]
    if any(record is None for record in records):
        return {"retry": "a piece of it has vanished"}
    first: dict[str, Any] = records[0]  # type: ignore[assignment]
    seconds = sum(record["seconds"] for record in records if record)
    opened(seconds)
    ids = [source["id"] for source in first["sources"]]
    with _Files(scratch, ids, first["rate"], **task["settings"]["format"]) as files:
        at = 0
        for folder, record in zip(task["pieces"], records):
            assert record is not None
            parts = [
                Recording([(f"{task['output']}/{folder}/{source['file']}", None)]).blocks(
                    0, record["samples"]
                )
                for source in record["sources"]
            ]
            for blocks in zip(*parts):
                signals = {id: block[:, 0] for id, block in zip(ids, blocks)}
                count = len(blocks[0])
                files.add(Output.of(at, count, signals), 0, 0, count)
                at += count
    result = {**first, "samples": at, "seconds": seconds, "sources": files.sources()}
    result["pieces"] = len(records)
    for key in ("id", "key", "work"):
        del result[key]
    _add_scores(result, task["item"], scratch)
    return result


# ---- mix


def _mix(task: Task, scratch: Path, opened: Callable[[float], None]) -> Result:
    item, settings = task["item"], task["settings"]
    db = _database(_needed(item, "database", "mix"), task["run"])
    scene = _scene(item)
    dry = item["dry"]
    ids = scene.ids + scene.noise_ids
    if not isinstance(dry, dict):
        if len(dry) != len(ids):
            raise Error(f"dry has {len(dry)} files, expected {len(ids)}, one for each source")
        dry = dict(zip(map(str, ids), dry))
    signals = {int(id): _mono(path, db.rate) for id, path in dry.items()}
    seconds = max((len(signal) / db.rate for signal in signals.values()), default=0.0)
    opened(seconds)
    names = ("noise_level", "diffuse_level", "reverb", "direct_to_reverberant", "seed")
    options = {name: item[name] for name in names if item.get(name) is not None}
    if item.get("room"):
        options["room"] = Room(**item["room"])
    heard = mix(scene, signals, db, **options)
    ending = "flac" if settings["format"]["flac"] else "wav"
    microphone = settings["reference_mic"] - 1
    if not 0 <= microphone < heard.mixture.shape[1]:
        expected = f"1 to {heard.mixture.shape[1]}"
        raise Error(f"reference_mic is {microphone + 1}, expected {expected}")
    clipped = 0
    references = {}
    sounds = {"mixture": heard.mixture}
    for id in scene.ids:
        sounds[f"reference_{id}"] = heard.images[id][:, [microphone]]
        references[str(id)] = f"reference_{id}.{ending}"
    for name, signal in sounds.items():
        writer = SoundWriter(
            scratch / f"{name}.{ending}", db.rate, channels=signal.shape[1], **settings["format"]
        )
        writer.write(signal)
        writer.close()
        clipped += writer.clipped
    return {
        "rate": db.rate,
        "samples": len(heard.mixture),
        "seconds": len(heard.mixture) / db.rate,
        "recording": f"mixture.{ending}",
        "references": references,
        "scene": item["scene"],
        "clipped": clipped,
    }


# ---- score


def _score(task: Task, scratch: Path, opened: Callable[[float], None]) -> Result:
    item = task["item"]
    estimates = item.get("estimates")
    if estimates is None:
        folder = task["settings"]["estimates"]
        record = Store(folder).record(item["id"]) if folder else None
        if record is None:
            raise Error(f"{folder or 'estimates'}: has no item {item['id']}")
        files = {str(s["id"]): f"{folder}/{item['id']}/{s['file']}" for s in record["sources"]}
        estimates = {id: files.get(id, f"{folder}/{item['id']}: source {id}")
                     for id in item["references"]}  # fmt: skip
    sources = [{"id": int(id)} for id in item["references"]]
    result: Result = {"sources": sources}
    result["seconds"] = _scored(sources, item["references"], estimates, opened)
    return result


def _add_scores(result: Result, item: Item, scratch: Path) -> None:
    if item.get("references"):
        by_id = {str(source["id"]): source for source in result["sources"]}
        scored = [by_id[id] for id in item["references"] if id in by_id]
        if len(scored) != len(item["references"]):
            expected = f"ids of targets: {', '.join(by_id)}"
            raise Error(f"references are of {', '.join(item['references'])}, expected {expected}")
        files = {str(source["id"]): str(scratch / source["file"]) for source in scored}
        _scored(scored, item["references"], files)


def _scored(
    sources: list[dict[str, Any]],
    references: Mapping[str, str],
    estimates: Mapping[str, str],
    opened: Callable[[float], None] = lambda seconds: None,
) -> float:
    """Add scores to the sources; return the seconds of sound."""
    wanted, rates = zip(*(_samples(references[str(source["id"])]) for source in sources))
    opened(len(wanted[0]) / rates[0])
    found, found_rates = zip(*(_samples(estimates[str(source["id"])]) for source in sources))
    if set(rates) != set(found_rates) or len(set(rates)) != 1:
        raise Error(f"references are at {rates[0]} Hz, expected {found_rates[0]} Hz, as estimates")
    length = min(map(len, (*wanted, *found)))
    scores = score([x[:length] for x in wanted], [x[:length] for x in found])
    for number, source in enumerate(sources):
        for name in ("sdr", "sir", "sar"):
            source[name] = float(getattr(scores, name)[number])
    return length / float(rates[0])


# ---- what items are made from


def _recording(item: Item) -> Recording:
    files = item["recording"]
    channels = channel_list(item.get("channels"))
    if isinstance(files, str):
        return Recording([(files, channels)])
    if channels is not None and len(files) != 1:
        raise Error("channels is given, expected a recording of one file")
    return Recording([(file, channels) for file in files])


def channel_list(channels: Any) -> list[int] | None:
    """Return channels from 1, as a list or in words such as "1-4,7"; None means all."""
    if channels is None:
        return None
    try:
        if not isinstance(channels, str):
            return [int(channel) for channel in channels]
        result: list[int] = []
        for part in channels.split(","):
            first, _, last = part.partition("-")
            result += range(int(first), int(last or first) + 1)
        if result:
            return result
    except (TypeError, ValueError):
        pass
    raise Error(f'channels is "{channels}", expected such as 1-4,7')


def _samples(path: str) -> tuple[NDArray[np.float32], int]:
    recording = Recording([(path, None)])
    if recording.microphones != 1:
        raise Error(f"{path}: has {recording.microphones} channels, expected 1")
    return recording.read(0, recording.samples)[:, 0], recording.rate


def _mono(path: str, rate: int) -> NDArray[np.float32]:
    samples, found = _samples(path)
    if found != rate:
        raise Error(f"{path}: is sampled at {found} Hz, expected {rate} Hz, as the database")
    return samples


def _scene(item: Item) -> Scene:
    scene, rttm = item.get("scene"), item.get("rttm")
    if isinstance(scene, dict):
        return Scene.from_dict(scene)
    if isinstance(scene, str):
        return _with_local(scene, Scene.read)
    if not isinstance(rttm, str):
        raise Error("scene is missing, expected a scene, or rttm and speakers")
    speakers = {
        name: Source(**place)
        for name, place in places_of(read_speakers(item.get("speakers")), item["id"]).items()
    }
    return _with_local(rttm, lambda path: Scene.from_rttm(path, speakers, item["id"]))


def _with_local(url: str, read: Callable[[str], _T]) -> _T:
    """Read a file by its path, fetched first if it is elsewhere."""
    if is_local(url):
        return read(str(local_path(url)))
    with tempfile.TemporaryDirectory(prefix="zelksss-") as folder:
        path = joined(folder, url.rpartition("/")[2])
        Path(path).write_bytes(read_bytes(url))
        return read(path)


# Of a run's items that have the same array one reads it.
@lru_cache(maxsize=4)
def _database(url: str, run: str) -> Database:
    return _with_local(url, Database.read)


@lru_cache(maxsize=2)
def _responses(url: str, rate: int, run: str) -> Responses:
    return _with_local(url, lambda path: Responses.read(path, rate))


_OPERATIONS = {"separate": _separate, "join": _join, "mix": _mix, "score": _score}
