"""A run: items go to workers, results into the index."""

from __future__ import annotations

import asyncio
import concurrent.futures
import fcntl
import hashlib
import json
import os
import queue
import socket
import time
import uuid
from collections import deque
from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import contextmanager, suppress
from dataclasses import asdict, dataclass, field
from typing import TYPE_CHECKING, Any

from .. import __version__
from .._error import Error
from ._errors import InterruptedRunError
from ._files import absolute
from ._items import Result, Task
from ._manifest import Item, stamps
from ._process import item_processes, work_batch
from ._store import Store

if TYPE_CHECKING:
    from distributed import Client, Future

INDEX = "index.jsonl"
FAILURES = "failures.jsonl"
PIECES = ".pieces"  # of long recordings

_WINDOW = 128  # batches that the scheduler has at once, at least
_LARGEST_BATCH = 1000
_TELL_EVERY = 0.5  # seconds
_LOOK_EVERY = 2.0


@dataclass
class Failure:
    """An item that was not done.

    Attributes
    ----------
    id : str
        Of the item.
    reason : str
        What is wrong with it, or what became of its process.
    attempts : int
        How often it was tried.
    """

    id: str
    reason: str
    attempts: int


@dataclass
class Report:
    """How a run went.

    Attributes
    ----------
    items : int
        Items of the manifest.
    done : int
        Those that were worked on in this run.
    found : int
        Those that were done before it.
    failures : list of Failure
        Those that were not done.
    sound_seconds, seconds : float
        Seconds of sound of those that were worked on, and of the run.
    workers : int
        Threads of the workers that there are.
    """

    items: int = 0
    done: int = 0
    found: int = 0
    failures: list[Failure] = field(default_factory=list)
    sound_seconds: float = 0.0
    seconds: float = 0.0
    workers: int = 0


Progress = Callable[[Report], None]


@dataclass
class Options:
    """How a run is done, which makes no difference to what comes out."""

    client: str | Client | None
    jobs: int | None
    batch: int | None
    retries: int
    limit: float | None
    memory: int | None
    force: bool
    parquet: bool
    progress: Progress | None


def run(
    operation: str,
    items: Sequence[Item],
    output: str,
    settings: dict[str, Any],
    options: Options,
) -> Report:
    """Do all items that are not done yet."""
    store = Store(absolute(output))
    with _only_one(store):
        return _Run(operation, items, store, settings, options).go()


@contextmanager
def _only_one(store: Store) -> Iterator[None]:
    if store.local is None:
        yield
        return
    store.local.mkdir(parents=True, exist_ok=True)
    with open(store.local / ".lock", "a+") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            lock.seek(0)
            raise Error(
                f"{store.url}: another run works here ({lock.read().strip()}), expected its end"
            ) from None
        lock.truncate(0)
        lock.write(f"process {os.getpid()} on {socket.gethostname()}\n")
        lock.flush()
        yield


@contextmanager
def _client(options: Options) -> Iterator[Client]:
    import dask
    from distributed import Client, LocalCluster

    if isinstance(options.client, Client):
        yield options.client
    elif options.client is not None:
        try:
            client = Client(options.client, set_as_default=False)
        except (OSError, ValueError) as error:
            raise Error(f"{options.client}: no scheduler answers ({error})") from None
        with client:
            yield client
    else:
        # Threads do: each waits for the process that does its items. Nobody looks at their profile.
        quiet = {
            "distributed.worker.profile.enabled": False,
            "distributed.admin.system-monitor.interval": "10s",
        }
        with (
            dask.config.set(quiet),
            LocalCluster(
                n_workers=1,
                threads_per_worker=options.jobs or len(os.sched_getaffinity(0)),
                processes=False,
                memory_limit=0,  # a worker holds nothing; items have `memory`
                dashboard_address=":0",
            ) as cluster,
            Client(cluster, set_as_default=False) as client,
            item_processes(),
        ):
            yield client


class _Run:
    def __init__(
        self,
        operation: str,
        items: Sequence[Item],
        store: Store,
        settings: dict[str, Any],
        options: Options,
    ) -> None:
        self.operation, self.items, self.store = operation, items, store
        self.settings, self.options = settings, options
        self.id = uuid.uuid4().hex
        self.report = Report(items=len(items))
        self.keys = {item["id"]: self._key(item) for item in items}
        self.rows: dict[str, str] = {}  # lines of the index
        self.waiting: deque[Task] = deque()
        self.first: deque[Task] = deque()  # before these, each alone
        self.attempts: dict[str, int] = {}  # by folder
        self.pieces: dict[str, set[str]] = {}  # folders of a recording that are not done yet
        self.joins: dict[str, Task] = {}
        self.running: dict[Future[Any], list[Task]] = {}
        self.failed: set[str] = set()
        self.begun = self.told = time.monotonic()
        self.looked = -_LOOK_EVERY
        self.window = _WINDOW
        self.work_seconds, self.worked = 0.0, 0

    def _key(self, item: Item) -> str:
        """Return what tells an item's result from another one."""
        document = [self.operation, self.settings, item, stamps(item)]
        text = json.dumps(document, sort_keys=True, default=str)
        return hashlib.sha256(text.encode()).hexdigest()

    def go(self) -> Report:
        self._require_same_settings()
        self.store.begin(self.id, self._described())
        self._read_index()
        self._submit_items()
        try:
            if self.waiting:
                with self._journal() as journal, _client(self.options) as self.client:
                    self._work(journal)
        except KeyboardInterrupt:
            raise InterruptedRunError(self._stopped("it was interrupted")) from None
        finally:
            with suppress(OSError):  # a full disk is what ended the run, and the journal is there
                self._write_index()
        self.store.end()
        if not self.report.failures:
            self.store.remove(PIECES)
        return self.report

    # ---- what was done before

    def _described(self) -> dict[str, Any]:
        return {"operation": self.operation, "settings": self.settings, "version": __version__}

    def _require_same_settings(self) -> None:
        before = self.store.settings()
        now = json.loads(json.dumps(self._described(), default=str))
        if before is None or self.options.force:
            return
        for name, old, new in _differences(before, now):
            raise Error(
                f"{self.store.url}: was made with {name} = {json.dumps(old)}, expected"
                f" {json.dumps(new)} as now, another folder, or force to make it anew"
            )

    def _read_index(self) -> None:
        there = self.store.folders()
        wanted = self.keys
        with suppress(FileNotFoundError):
            for line in self.store.read(INDEX).splitlines():
                try:
                    row = json.loads(line)
                    there_still = row["id"] in there
                    same = wanted.get(row["id"], row["key"]) == row["key"] and there_still
                except (ValueError, KeyError, TypeError):
                    continue  # the last line of a run that was ended in it
                if same:
                    self.rows[row["id"]] = json.dumps(row, sort_keys=True)

    @contextmanager
    def _journal(self) -> Iterator[Callable[[str], None]]:
        """Append lines to the index. An object store knows no such thing: it gets it at the end."""
        if self.store.local is None:
            yield lambda text: None
            return
        path = self.store.local / INDEX
        with open(path, "ab", buffering=0) as file:
            if file.tell() > 0:
                file.write(b"\n")  # ends a line that was cut off
            yield lambda text: _write_all(file, text.encode())

    # ---- what is to be done

    def _submit_items(self) -> None:
        tasks = []
        for item in self.items:
            if item["id"] in self.rows:
                self.report.found += 1
            elif "unusable" in item:
                self._fail(item["id"], item["unusable"], 0)
            else:
                tasks.append(self._task(self.operation, item, item["id"], self.keys[item["id"]]))
        self.waiting.extend(tasks)

    def _task(self, operation: str, item: Item, folder: str, key: str, **more: Any) -> Task:
        return {
            "operation": operation, "item": item, "settings": self.settings, "run": self.id,
            "output": self.store.url, "folder": folder, "key": key,
            "options": {"limit": self.options.limit, "memory": self.options.memory}, **more,
        }  # fmt: skip

    def _work(self, journal: Callable[[str], None]) -> None:
        finished: queue.SimpleQueue[Future[Any]] = queue.SimpleQueue()
        while self.waiting or self.first or self.running:
            self._look_at_workers()
            while (self.waiting or self.first) and len(self.running) < self.window:
                tasks = self._next_batch()
                # Pieces of a recording that was begun go before others.
                urgent = int("pieces" in tasks[0] or "stretch" in tasks[0])
                future = self.client.submit(work_batch, tasks, pure=False, priority=urgent)
                self.running[future] = tasks
                future.add_done_callback(finished.put)
            with suppress(queue.Empty):
                future = finished.get(timeout=_TELL_EVERY)
                self._take(future, self.running.pop(future), journal)
            self._tell()
        self._tell(at_once=True)

    def _look_at_workers(self) -> None:
        """Let enough wait at the scheduler that no worker does, and that clusters which grow do."""
        if time.monotonic() - self.looked < _LOOK_EVERY:
            return
        self.looked = time.monotonic()
        with suppress(OSError):  # a scheduler that is gone is told of by the batches
            self.report.workers = sum(self.client.nthreads().values())
        self.window = max(_WINDOW, 4 * self.report.workers)

    def _next_batch(self) -> list[Task]:
        if self.first:
            return [self.first.popleft()]
        count = self.options.batch or 1
        if self.options.batch is None and self.worked > 0:
            # So long that the scheduler has a hundred batches a second at most.
            seconds = max(1.0, self.report.workers / 100)
            count = int(seconds * self.worked / max(self.work_seconds, 1e-9))
        count = max(1, min(count, _LARGEST_BATCH, len(self.waiting)))
        return [self.waiting.popleft() for _ in range(count)]

    def _tell(self, at_once: bool = False) -> None:
        now = time.monotonic()
        self.report.seconds = now - self.begun
        if self.options.progress and (at_once or now - self.told > _TELL_EVERY):
            self.told = now
            self.options.progress(self.report)

    # ---- what has come back

    def _take(self, future: Future[Any], tasks: list[Task], journal: Callable[[str], None]) -> None:
        """Note what became of a batch."""
        try:
            results = None if future.status == "error" else future.result()
        except (asyncio.CancelledError, concurrent.futures.CancelledError, OSError):
            raise InterruptedRunError(self._stopped("the scheduler is gone")) from None
        if results is None:
            error = future.exception()
            if type(error).__name__ != "KilledWorker":  # the package is missing there, for example
                raise InterruptedRunError(self._stopped(f"a worker cannot work: {error}"))
            for task in tasks:
                self._try_again(task, "its workers were ended again and again")
            return
        for task, result in zip(tasks, results):
            self._take_result(task, result, journal)

    def _take_result(self, task: Task, result: Result, journal: Callable[[str], None]) -> None:
        id = task["item"]["id"]
        if "full" in result:
            raise InterruptedRunError(self._stopped(result["full"]))
        if "stale" in result:
            raise InterruptedRunError(self._stopped("another run has begun there"))
        if "retry" in result:
            self._try_again(task, result["retry"])
        elif "error" in result:
            self._fail(id, result["error"], self.attempts.get(task["folder"], 0) + 1)
        elif "cut" in result:
            self._cut(task, result["cut"])
        elif "stretch" in task:
            self._take_piece(task)
        else:
            self._take_record(result, journal)

    def _take_record(self, result: Result, journal: Callable[[str], None]) -> None:
        record = result["record"]
        self.rows[record["id"]] = json.dumps(record, sort_keys=True)
        journal(self.rows[record["id"]] + "\n")
        self.work_seconds += record["work"]["seconds"]
        self.worked += 1
        if "found" in result:
            self.report.found += 1
        else:
            self.report.done += 1
            self.report.sound_seconds += record["seconds"]

    def _try_again(self, task: Task, reason: str) -> None:
        folder = task["folder"]
        self.attempts[folder] = self.attempts.get(folder, 0) + 1
        if self.attempts[folder] > self.options.retries:
            self._fail(task["item"]["id"], reason, self.attempts[folder])
        else:
            self.first.append(task)

    def _fail(self, id: str, reason: str, attempts: int) -> None:
        if id in self.failed:
            return  # another piece of it
        self.failed.add(id)
        self.report.failures.append(Failure(id, reason, attempts))

    # ---- long recordings

    def _cut(self, task: Task, stretches: list[tuple[int, int]]) -> None:
        """Put a recording's pieces in the line, each of which is an item like others."""
        item, key = task["item"], task["key"]
        folders = [f"{PIECES}/{key[:32]}/{number}" for number in range(len(stretches))]
        for folder, stretch in zip(reversed(folders), reversed(stretches)):
            piece = self._task(self.operation, item, folder, f"{key} {stretch}", stretch=stretch)
            self.first.appendleft(piece)
        self.pieces[key] = set(folders)
        self.joins[key] = self._task("join", item, item["id"], key, pieces=folders)

    def _take_piece(self, task: Task) -> None:
        key = task["key"].partition(" ")[0]
        self.pieces[key].discard(task["folder"])
        if not self.pieces[key]:
            self.first.appendleft(self.joins.pop(key))

    # ---- what stays

    def _write_index(self) -> None:
        """Write the index anew, in the manifest's order, and what failed."""
        rows = [self.rows[item["id"]] for item in self.items if item["id"] in self.rows]
        rows += [row for id, row in self.rows.items() if id not in self.keys]  # other manifests'
        self.store.write(INDEX, "".join(row + "\n" for row in rows))
        places = {item["id"]: n for n, item in enumerate(self.items)}
        self.report.failures.sort(key=lambda failure: places[failure.id])
        failures = [json.dumps(asdict(failure)) + "\n" for failure in self.report.failures]
        self.store.write(FAILURES, "".join(failures))
        if self.options.parquet and rows:
            import pyarrow
            import pyarrow.parquet

            sink = pyarrow.BufferOutputStream()
            pyarrow.parquet.write_table(pyarrow.Table.from_pylist([*map(json.loads, rows)]), sink)
            self.store.write("index.parquet", sink.getvalue().to_pybytes())

    def _count(self) -> int:
        return sum(item["id"] in self.rows for item in self.items)

    def _stopped(self, reason: str) -> str:
        return (
            f"{self.store.url}: {reason}; {self._count()} of {len(self.items)} items are there;"
            " the same again goes on from them"
        )


def _differences(
    before: Mapping[str, Any], now: Mapping[str, Any], prefix: str = ""
) -> Iterator[tuple[str, Any, Any]]:
    """Yield what differs: its name, what it was and is."""
    for name in sorted({*before, *now} - {"run"}):
        old, new = before.get(name), now.get(name)
        if isinstance(old, dict) and isinstance(new, dict):
            yield from _differences(old, new, f"{prefix}{name}.")
        elif old != new:
            yield f"{prefix}{name}", old, new


def _write_all(file: Any, data: bytes) -> None:
    while data:
        data = data[file.write(data) :]
