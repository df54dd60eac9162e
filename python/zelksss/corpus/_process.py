"""The process beside a worker that works on items: it may crash, hang or need too much memory."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import threading
import time
import weakref
from collections.abc import Iterator
from contextlib import contextmanager
from multiprocessing.connection import Pipe
from typing import Any

from ._items import Result, Task

# Seconds that an item may take without a limit of the caller's: until its length is known, and for
# each second of sound from then on.
_TO_OPEN = 120.0
_PER_SECOND = 30.0


class ItemProcess:
    """A process for one item after another, begun anew after one that ended it."""

    def __init__(self) -> None:
        self._process: subprocess.Popen[bytes] | None = None
        self._connection: Any = None
        self._memory: int | None = None

    def work(self, task: Task) -> Result:
        """Do an item as `_items.work` does; "retry" says that it ended its process."""
        options = task["options"]
        if self._memory != options["memory"]:
            self.end()
        if self._process is None or self._process.poll() is not None:
            self._begin(options["memory"])
        limit = options["limit"] or _TO_OPEN
        deadline = time.monotonic() + limit
        try:
            self._connection.send(task)
            while self._connection.poll(max(0.0, deadline - time.monotonic())):
                answer: Result | float = self._connection.recv()
                if isinstance(answer, dict):
                    return answer
                if not options["limit"]:
                    limit = _TO_OPEN + _PER_SECOND * answer
                    deadline = time.monotonic() + limit
        except (EOFError, OSError):
            return {"retry": f"its process was ended by {self.end()}"}
        self.end()
        return {"retry": f"takes longer than {limit:.0f} s"}

    def _begin(self, memory: int | None) -> None:
        ours, theirs = Pipe()
        with theirs:
            arguments = [str(theirs.fileno()), str(memory or 0)]
            self._process = subprocess.Popen(
                [sys.executable, "-m", f"{__package__}._child", *arguments],
                pass_fds=[theirs.fileno()],
                stdin=subprocess.DEVNULL,
                start_new_session=True,  # a terminal's Ctrl-C is the caller's
                env={**os.environ, "OMP_NUM_THREADS": "1", "OPENBLAS_NUM_THREADS": "1"},
            )
        self._connection, self._memory = ours, memory

    def end(self) -> str:
        """End the process and say what it was ended by."""
        if self._process is None:
            return ""
        process, self._process = self._process, None
        self._connection.close()
        try:
            status = process.wait(0.5)  # what has crashed says how
        except subprocess.TimeoutExpired:
            process.kill()
            try:
                status = process.wait(5)
            except subprocess.TimeoutExpired:  # in a system call that does not return
                return "nothing yet"
        if status >= 0:
            return f"exit status {status}"
        return f"signal {-status}" + (" (out of memory?)" if status == -signal.SIGKILL else "")


_own = threading.local()
_all: weakref.WeakSet[ItemProcess] = weakref.WeakSet()
_ended = threading.Event()


def work_batch(tasks: list[Task]) -> list[Result]:
    """Do items one after another: what a worker is asked for."""
    if not hasattr(_own, "process"):
        _own.process = ItemProcess()
        _all.add(_own.process)
    return [{"stale": True} if _ended.is_set() else _own.process.work(task) for task in tasks]


@contextmanager
def item_processes() -> Iterator[None]:
    """At the end, end the processes of workers in this process, whatever they are doing."""
    _ended.clear()
    try:
        yield
    finally:
        _ended.set()
        for process in list(_all):
            process.end()
