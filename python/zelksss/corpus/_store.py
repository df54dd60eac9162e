"""The folder that the results of a run are put into, each item whole or not at all."""

from __future__ import annotations

import json
import os
import shutil
import tempfile
import uuid
from pathlib import Path
from typing import Any

from ._errors import StaleRunError
from ._files import is_local, local_path, split

RECORD = "item.json"
_RUN = "run.json"
_UNFINISHED = ".unfinished"


class Store:
    """Folders of items: `ID/item.json` and the files that it names.

    On a file system an item's folder is made elsewhere and renamed. An object store has no such
    thing: there the record comes last, and what has no record does not count.

    What another run has begun since is not touched: on a file system the folder that a run works
    in is removed by the next run, so that nothing can be renamed from it; an object store is asked
    which run is the last one.
    """

    def __init__(self, url: str) -> None:
        self.url = url.rstrip("/")
        self.local = local_path(self.url) if is_local(url) else None
        if self.local is None:
            self._fs, self._base = split(self.url)

    def begin(self, run: str, settings: dict[str, Any]) -> None:
        """Begin a run: what others have begun here and not finished goes."""
        if self.local is not None:
            shutil.rmtree(self.local / _UNFINISHED, ignore_errors=True)
            (self.local / _UNFINISHED / run).mkdir(parents=True)
        self.write(_RUN, json.dumps({**settings, "run": run}, indent=2, sort_keys=True) + "\n")

    def end(self) -> None:
        """Remove what was not finished."""
        if self.local is not None:
            shutil.rmtree(self.local / _UNFINISHED, ignore_errors=True)

    def settings(self) -> dict[str, Any] | None:
        """Return the settings of the last run here, None without one."""
        return self._json(_RUN)

    def record(self, folder: str) -> dict[str, Any] | None:
        """Return an item's record, None if it is not complete."""
        return self._json(f"{folder}/{RECORD}")

    def _json(self, name: str) -> dict[str, Any] | None:
        try:
            document: dict[str, Any] = json.loads(self.read(name))
            return document
        except (FileNotFoundError, NotADirectoryError):
            return None

    def read(self, name: str) -> bytes:
        """Return what a file here holds."""
        if self.local is not None:
            return (self.local / name).read_bytes()
        self._fs.invalidate_cache()
        content: bytes = self._fs.cat_file(f"{self._base}/{name}")
        return content

    def folders(self) -> set[str]:
        """Return the names of what stands here."""
        if self.local is not None:
            return set(os.listdir(self.local))
        self._fs.invalidate_cache()
        return {name.rpartition("/")[2] for name in self._fs.ls(self._base, detail=False)}

    def scratch(self, run: str) -> Path:
        """Make a folder of this machine for an item's files."""
        if self.local is None:
            return Path(tempfile.mkdtemp(prefix="zelksss-"))
        folder = self.local / _UNFINISHED / run / uuid.uuid4().hex
        try:
            folder.mkdir()
        except FileNotFoundError:
            raise StaleRunError from None
        return folder

    def commit(self, scratch: Path, run: str, folder: str, record: dict[str, Any]) -> None:
        """Let an item appear: the scratch folder's files, and its record. Replaces another one."""
        text = json.dumps(record, indent=1, sort_keys=True) + "\n"
        if self.local is None:
            self._upload(scratch, run, folder, text)
            return
        _write_synced(scratch / RECORD, text)
        target = self.local / folder
        if "/" in folder:
            target.parent.mkdir(parents=True, exist_ok=True)
        while True:
            try:
                scratch.rename(target)
                return
            except FileNotFoundError:
                raise StaleRunError from None
            except OSError:
                if not target.is_dir():
                    raise
            if (self.record(folder) or {}).get("key") == record["key"]:
                return  # an attempt that was thought lost has come first
            try:
                target.rename(scratch.with_name(uuid.uuid4().hex))
            except FileNotFoundError:
                if not scratch.exists():
                    raise StaleRunError from None  # else another attempt has taken it away

    def _upload(self, scratch: Path, run: str, folder: str, text: str) -> None:
        if (self.settings() or {}).get("run") != run:
            raise StaleRunError
        target = f"{self._base}/{folder}"
        if self._fs.exists(f"{target}/{RECORD}"):
            self._fs.rm_file(f"{target}/{RECORD}")
        for file in sorted(scratch.iterdir()):
            self._fs.put_file(str(file), f"{target}/{file.name}")
        self._fs.pipe_file(f"{target}/{RECORD}", text.encode())

    def remove(self, folder: str) -> None:
        """Remove an item."""
        if self.local is not None:
            shutil.rmtree(self.local / folder, ignore_errors=True)
        elif self._fs.exists(f"{self._base}/{folder}"):
            self._fs.rm(f"{self._base}/{folder}", recursive=True)

    def write(self, name: str, content: str | bytes) -> None:
        """Write a file at once."""
        if self.local is None:
            data = content.encode() if isinstance(content, str) else content
            self._fs.pipe_file(f"{self._base}/{name}", data)
            return
        unfinished = self.local / f".{name}-{uuid.uuid4().hex}"
        try:
            _write_synced(unfinished, content)
            unfinished.replace(self.local / name)
        finally:
            unfinished.unlink(missing_ok=True)


def _write_synced(path: Path, content: str | bytes) -> None:
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
        file.flush()
        os.fsync(file.fileno())
