"""Manifests: what there is to do, an item a line."""

from __future__ import annotations

import gzip
import json
from collections.abc import Iterable, Iterator, Mapping, Sequence
from os import PathLike, fspath
from typing import Any, Union

from .._error import Error
from ._files import absolute, is_local, joined, local_path, read_bytes, stem

# An item as its line has it, with absolute paths; where it cannot be used, `unusable` says why.
Item = dict[str, Any]
Manifest = Union[str, "PathLike[str]", Iterable[Mapping[str, Any]]]

_KEYS = {
    "separate": (
        {"recording"},
        {"id", "channels", "scene", "rttm", "speakers", "database", "responses", "references"},
    ),
    "mix": (
        {"scene", "dry"},
        {"id", "database", "room", "noise_level", "diffuse_level", "reverb", "seed"}
        | {"direct_to_reverberant"},
    ),
    "score": ({"references"}, {"id", "estimates"}),
}
# Paths, or lists or objects of them.
_PATHS = ["recording", "scene", "rttm", "speakers", "database", "responses", "references"]
_PATHS += ["estimates", "dry"]
_PLACE = {"id", "azimuth", "elevation", "distance", "position"}


def read_items(operation: str, manifest: Manifest, defaults: Mapping[str, Any]) -> list[Item]:
    """Return the items of a manifest.

    Parameters
    ----------
    operation : str
        "separate", "mix" or "score", which need different keys.
    manifest : path, URL or iterable of mappings
        JSON lines, as they are or compressed by gzip, or what such lines hold. Paths are relative
        to the manifest's folder.
    defaults : mapping
        What counts where a line lacks a key. None: nothing does.
    """
    defaults = {key: value for key, value in defaults.items() if value is not None}
    name = fspath(manifest) if isinstance(manifest, (str, PathLike)) else "manifest"
    base = absolute(name).rpartition("/")[0]
    items: list[Item] = []
    ids: dict[str, int] = {}
    for number, line in enumerate(_lines(manifest, name), 1):
        where = f"{name}:{number}"
        if operation == "separate" and "sampling_rate" in line:
            item = _of_recording_manifest(line, where)
        else:
            item = _checked(operation, line, where)
        for key in _PATHS:
            if key in item:
                item[key] = _absolute(base, item[key], key == "scene")
        item = {**defaults, **item}
        item["id"] = str(item["id"]) if "id" in item else _default_id(item, where)
        _require_name(item["id"], where)
        first = ids.setdefault(item["id"], number)
        if first != number:
            raise Error(f'{where}: id is "{item["id"]}", as in line {first}, expected another one')
        items.append(item)
    if not items:
        raise Error(f"{name}: no line, expected an item a line")
    return items


def _lines(manifest: Manifest, name: str) -> Iterator[Mapping[str, Any]]:
    if not isinstance(manifest, (str, PathLike)):
        yield from manifest
        return
    yield from json_lines(name)


def json_lines(url: str) -> Iterator[Mapping[str, Any]]:
    """Yield the objects of a file of JSON lines, which may be compressed by gzip."""
    content = read_bytes(url)
    if content[:2] == b"\x1f\x8b":
        content = gzip.decompress(content)
    for number, text in enumerate(content.decode("utf-8", "replace").splitlines(), 1):
        if not text.strip():
            continue
        try:
            line = json.loads(text)
        except ValueError as error:
            raise Error(f"{url}:{number}: {error}, expected a JSON object") from None
        if not isinstance(line, dict):
            raise Error(f"{url}:{number}: {text[:40]}, expected a JSON object")
        yield line


def _checked(operation: str, line: Mapping[str, Any], where: str) -> Item:
    needed, others = _KEYS[operation]
    for key in line:
        if key not in needed | others:
            expected = ", ".join(sorted(needed | others))
            raise Error(f'{where}: key "{key}", expected one of {expected}')
    for key in sorted(needed - set(line)):
        raise Error(f'{where}: key "{key}" is missing')
    return dict(line)


def _absolute(base: str, value: Any, is_scene: bool) -> Any:
    if isinstance(value, str):
        return joined(base, value)
    if isinstance(value, list):
        return [_absolute(base, entry, is_scene) for entry in value]
    if isinstance(value, dict) and not is_scene:
        return {key: _absolute(base, entry, is_scene) for key, entry in value.items()}
    return value


def _default_id(item: Item, where: str) -> str:
    recording = item.get("recording")
    if isinstance(recording, list) and recording:
        recording = recording[0]
    if not isinstance(recording, str):
        raise Error(f'{where}: key "id" is missing')
    return stem(recording)


def _require_name(id: str, where: str) -> None:
    if not id or id.startswith(".") or "/" in id or not id.isprintable() or len(id.encode()) > 200:
        raise Error(f'{where}: id is "{id}", expected what a folder can be named, without "/"')


def _of_recording_manifest(line: Mapping[str, Any], where: str) -> Item:
    """Return a recording of a Lhotse manifest as an item."""
    try:
        sources = sorted(line["sources"], key=lambda source: min(source["channels"]))
        item: Item = {"id": line["id"], "recording": [source["source"] for source in sources]}
        kinds = {source["type"] for source in sources} - {"file", "url"}
    except (KeyError, TypeError, ValueError):
        expected = "id and sources with type, channels and source"
        raise Error(f"{where}: expected a recording with {expected}") from None
    if kinds:
        item["unusable"] = f"a source of type {kinds.pop()}, expected file or url"
    return item


def with_supervisions(
    items: Sequence[Item], supervisions: str, speakers: Mapping[str, Any]
) -> list[Item]:
    """Return the items with scenes made of a Lhotse supervision manifest.

    Parameters
    ----------
    supervisions : path or URL
        JSON lines with `recording_id`, `speaker`, `start` and `duration`.
    speakers : mapping
        The place of each speaker, as a scene has it; or such a mapping for each recording.
    """
    turns: dict[str, dict[str, list[tuple[float, float]]]] = {}
    for number, line in enumerate(json_lines(supervisions), 1):
        try:
            begin = float(line["start"])
            turn = (begin, begin + float(line["duration"]))
            of_recording = turns.setdefault(str(line["recording_id"]), {})
            of_recording.setdefault(str(line["speaker"]), []).append(turn)
        except (KeyError, TypeError, ValueError):
            expected = "recording_id, speaker, start and duration"
            raise Error(f"{supervisions}:{number}: expected {expected}") from None
    result = []
    for item in items:
        places = places_of(speakers, item["id"])
        try:
            scene = _scene_of_turns(turns.get(item["id"], {}), places, supervisions)
            result.append({**item, "scene": scene})
        except Error as error:
            result.append({**item, "unusable": str(error)})
    return result


def _scene_of_turns(
    turns: Mapping[str, list[tuple[float, float]]], places: Mapping[str, Any], name: str
) -> dict[str, Any]:
    if not turns:
        raise Error(f"{name}: no turn is of this recording")
    for speaker in turns:
        if speaker not in places:
            raise Error(f'{name}: speaker "{speaker}" has no place, expected one in speakers')
    return {
        "sources": [
            {**place, "active": _united(turns[speaker])}
            for speaker, place in places.items()
            if speaker in turns
        ]
    }


def _united(turns: list[tuple[float, float]]) -> list[list[float]]:
    """Return stretches in order, those that overlap or touch as one."""
    result: list[list[float]] = []
    for begin, end in sorted(turns):
        if result and begin <= result[-1][1]:
            result[-1][1] = max(result[-1][1], end)
        elif begin < end:
            result.append([begin, end])
    return result


def places_of(speakers: Mapping[str, Any], recording: str) -> dict[str, dict[str, Any]]:
    """Return the place of each speaker of a recording, with an id."""
    own = speakers.get(recording)
    if isinstance(own, Mapping) and not set(own) <= _PLACE:
        speakers = own
    places = {
        name: dict(place)
        for name, place in speakers.items()
        if isinstance(place, Mapping) and set(place) <= _PLACE
    }
    return {name: {"id": n, **place} for n, (name, place) in enumerate(places.items())}


def read_speakers(speakers: str | PathLike[str] | Mapping[str, Any] | None) -> dict[str, Any]:
    """Return places by the speakers' names, from a JSON file or as they are."""
    if speakers is None:
        return {}
    if isinstance(speakers, Mapping):
        return dict(speakers)
    name = fspath(speakers)
    try:
        content = json.loads(read_bytes(name))
    except ValueError as error:
        raise Error(f"{name}: {error}, expected a JSON object") from None
    if not isinstance(content, dict):
        raise Error(f"{name}: expected a JSON object, a place for each name")
    return content


def stamps(item: Item) -> list[tuple[str, int, int]]:
    """Return size and time of each file of this machine that an item is made from."""
    result = []
    for key in _PATHS:
        for path in _strings(item.get(key)) if key != "scene" else [item.get(key)]:
            if isinstance(path, str) and is_local(path):
                try:
                    status = local_path(path).stat()
                except OSError:
                    continue  # the item is going to say so
                result.append((path, status.st_size, status.st_mtime_ns))
    return result


def _strings(value: Any) -> Iterator[str]:
    if isinstance(value, str):
        yield value
    elif isinstance(value, (list, dict)):
        for entry in value.values() if isinstance(value, dict) else value:
            yield from _strings(entry)
