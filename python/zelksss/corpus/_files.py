"""Files of this machine and of object stores, by path or URL."""

from __future__ import annotations

import io
import os
import re
from collections.abc import Iterator
from contextlib import contextmanager
from functools import partial
from pathlib import Path, PurePosixPath
from typing import Any

import fsspec
import numpy as np
import soundfile
from numpy.typing import NDArray

from .._error import Error

# Samples of each channel that are read, worked on and written at once.
BLOCK = 1 << 16

# Trying again does not help against these.
_NOT_THERE = (FileNotFoundError, IsADirectoryError, NotADirectoryError, PermissionError)


def split(url: str) -> tuple[Any, str]:
    """Return the file system that a path or URL is of, and the path there."""
    try:
        fs, path = fsspec.core.url_to_fs(url)
    except (ImportError, ValueError) as error:
        raise Error(f"{url}: {error}") from None
    return fs, path


def is_local(url: str) -> bool:
    """Whether it is a file of this machine."""
    return "://" not in url or url.startswith(("file://", "local://"))


def local_path(url: str) -> Path:
    """Return the path of a file of this machine."""
    return Path(url.partition("://")[2] if "://" in url else url)


def absolute(url: str) -> str:
    """Return a path that holds in every process; URLs stay."""
    return os.path.abspath(local_path(url)) if is_local(url) else url


def joined(base: str, name: str) -> str:
    """Return a name relative to a folder, which stays as it is if it is absolute or a URL."""
    if "://" in name or name.startswith("/"):
        return name
    return f"{base.rstrip('/')}/{name}" if base else name


def stem(url: str) -> str:
    """Return a file's name without folders and ending."""
    return PurePosixPath(url.partition("://")[2] or url).stem


def read_bytes(url: str) -> bytes:
    """Return what a file holds."""
    try:
        if is_local(url):
            return local_path(url).read_bytes()
        fs, path = split(url)
        content: bytes = fs.cat_file(path)
        return content
    except _NOT_THERE as error:
        raise Error(f"{url}: {error.strerror or error}") from None


class _Checked(io.RawIOBase):
    """A file for libsndfile, through which exceptions do not pass: the first one is kept."""

    def __init__(self, file: Any) -> None:
        self.file = file
        self.error: BaseException | None = None

    def _kept(self, call: str, *arguments: Any) -> int:
        if self.error is not None:
            return 0
        try:
            return int(getattr(self.file, call)(*arguments) or 0)
        except BaseException as error:  # noqa: B036  # raised by `sound`
            self.error = error
            return 0

    def readinto(self, buffer: Any) -> int:
        return self._kept("readinto", buffer)

    def write(self, data: Any) -> int:
        done = 0
        while done < len(data) and self.error is None:  # a disk that is nearly full takes a part
            done += self._kept("write", data[done:])
        return done

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        return self._kept("seek", offset, whence)

    def tell(self) -> int:
        return self._kept("tell")


class _Sound:
    """A sound file whose calls raise what reading or writing the file below has raised."""

    def __init__(self, url: str, file: Any, **format: Any) -> None:
        self._url = url
        self._checked = None if isinstance(file, str) else _Checked(file)
        self._file: Any = self._call(soundfile.SoundFile, self._checked or file, **format)

    def _call(self, call: Any, *arguments: Any, **keywords: Any) -> Any:
        try:
            result = call(*arguments, **keywords)
        except (soundfile.LibsndfileError, AssertionError) as error:
            if self._checked is None or self._checked.error is None:
                text = getattr(error, "error_string", "") or "a sample cannot be written"
                raise Error(f"{self._url}: {text.rstrip('.')}, expected a sound file") from None
        else:
            if self._checked is None or self._checked.error is None:
                return result
        raise self._checked.error

    def __getattr__(self, name: str) -> Any:
        value = getattr(self._file, name)
        return partial(self._call, value) if callable(value) else value


class Recording:
    """Sound of one file, or of several whose channels stand side by side.

    Parameters
    ----------
    parts : list of (str, list of int or None)
        Files, and their channels from 1; None takes all.

    Attributes
    ----------
    rate, samples, microphones : int
        Hz; samples of each channel; channels.
    warnings : list of str
        What is odd about the files.
    """

    def __init__(self, parts: list[tuple[str, list[int] | None]]) -> None:
        self._parts = parts
        self.warnings: list[str] = []
        heads = [self._head(url, channels) for url, channels in parts]
        self.rate, self.samples, _ = heads[0]
        self.microphones = sum(head[2] for head in heads)
        for (url, _), (rate, samples, _) in zip(parts, heads):
            if (rate, samples) != (self.rate, self.samples):
                raise Error(
                    f"{url}: has {samples} samples at {rate} Hz, expected {self.samples} at"
                    f" {self.rate} Hz, as {parts[0][0]}"
                )

    def _head(self, url: str, channels: list[int] | None) -> tuple[int, int, int]:
        with _opened(url) as file:
            if re.search(r"^data : \d+ \(should be", file.extra_info, re.MULTILINE):
                holds = f"it holds {file.frames} samples, and its header announces more"
                self.warnings.append(f"{url}: the file is cut off: {holds}")
            if channels is None:
                return file.samplerate, file.frames, file.channels
            for channel in channels:
                if not 1 <= channel <= file.channels:
                    raise Error(f"{url}: channel {channel}, expected 1 to {file.channels}")
            return file.samplerate, file.frames, len(channels)

    def blocks(self, begin: int, end: int) -> Iterator[NDArray[np.float32]]:
        """Yield samples [samples, microphones] of a stretch, block by block."""
        streams = [self._stream(*part, begin, end) for part in self._parts]
        for blocks in zip(*streams):
            yield blocks[0] if len(blocks) == 1 else np.hstack(blocks)

    def _stream(
        self, url: str, channels: list[int] | None, begin: int, end: int
    ) -> Iterator[NDArray[np.float32]]:
        with _opened(url) as file:
            file.seek(begin)
            for at in range(begin, end, BLOCK):
                count = min(BLOCK, end - at)
                x = file.read(count, dtype="float32", always_2d=True)
                if len(x) != count:
                    raise Error(
                        f"{url}: the file ends after {at + len(x)} of the {file.frames} samples it"
                        " announces"
                    )
                yield x if channels is None else x[:, [c - 1 for c in channels]]

    def read(self, begin: int, end: int) -> NDArray[np.float32]:
        """Return samples [samples, microphones] of a stretch."""
        blocks = list(self.blocks(begin, end))
        return np.concatenate(blocks) if blocks else np.zeros((0, self.microphones), np.float32)


@contextmanager
def _opened(url: str) -> Iterator[_Sound]:
    try:
        if is_local(url):
            with open(local_path(url), "rb"):  # says why it cannot
                file: Any = str(local_path(url))
        else:
            fs, path = split(url)
            file = fs.open(path, "rb")
    except _NOT_THERE as error:
        raise Error(f"{url}: {error.strerror or error}") from None
    sound = _Sound(url, file)
    try:
        yield sound
    finally:
        sound.close()


_SCALES = {"PCM_16": np.float32(2.0**15), "PCM_24": np.float32(2.0**23)}


class SoundWriter:
    """A sound file, as the command writes it.

    Parameters
    ----------
    path : path
        A file of this machine, which is made.
    samples : str
        "PCM_16", "PCM_24" or "FLOAT".
    flac : bool
        FLAC instead of WAV.
    """

    def __init__(self, path: Path, rate: int, samples: str, flac: bool, channels: int = 1) -> None:
        self._scale = _SCALES.get(samples)
        self.clipped = 0
        self.peak = 0.0
        self._file = open(path, "w+b", buffering=0)  # noqa: SIM115  # closed by `close`
        self._sound = _Sound(
            str(path), self._file, mode="w", samplerate=rate, channels=channels,
            subtype=samples, format="FLAC" if flac else "WAV",
        )  # fmt: skip

    def write(self, signal: NDArray[np.float32]) -> None:
        """Add samples, [samples] or [samples, channels]."""
        if signal.size == 0:
            return
        peak = max(float(signal.max()), -float(signal.min()))  # NaN if there is one
        if not np.isfinite(peak):
            signal = np.nan_to_num(signal, nan=0.0, posinf=0.0, neginf=0.0)
            peak = float(np.abs(signal).max())
        self.peak = max(self.peak, peak)
        if self._scale is None:
            self._sound.write(signal)
            return
        # Single precision does: the scale is a power of two, and whole numbers stay such.
        whole = signal * self._scale
        np.rint(whole, out=whole)
        if peak * self._scale > self._scale - 1:
            limited = np.clip(whole, -self._scale, self._scale - 1)
            self.clipped += int((limited != whole).sum())
            whole = limited
        if self._scale == _SCALES["PCM_16"]:
            self._sound.write(whole.astype(np.int16))
        else:  # the library takes them left-aligned
            self._sound.write((whole * np.float32(2.0**31 / self._scale)).astype(np.int32))

    def close(self) -> None:
        """End the file, with all that was written on its disk."""
        with self._file:
            self._sound.close()
            os.fsync(self._file.fileno())
