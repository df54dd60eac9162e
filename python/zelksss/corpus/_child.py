"""What the process beside a worker runs."""

from __future__ import annotations

import os
import queue
import resource
import signal
import sys
import threading
from multiprocessing.connection import Connection
from typing import Any

from ._items import Task, work


def main() -> None:
    """Work on what comes through the connection, until it is closed."""
    connection: Any = Connection(int(sys.argv[1]))
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)  # a file at the limit is like a full disk
    tasks: queue.SimpleQueue[Task] = queue.SimpleQueue()

    def receive() -> None:
        try:
            while True:
                tasks.put(connection.recv())
        except (EOFError, OSError):
            os._exit(1)  # the worker is gone, whatever is being done here

    threading.Thread(target=receive, daemon=True).start()
    memory = int(sys.argv[2])
    if memory:
        resource.setrlimit(resource.RLIMIT_AS, (memory, memory))
    while True:
        connection.send(work(tasks.get(), connection.send))


if __name__ == "__main__":
    main()
