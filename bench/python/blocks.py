"""Prints what `Separator.process` costs beside the C++ separator, and what threads gain.

    python bench/python/blocks.py PROGRAM [RUNS]     usually by scripts/bench-python.sh

PROGRAM is zelk-bench-blocks: the same samples in the same blocks of 10 ms, the sources listed with
each. Processor seconds of the least of RUNS interleaved passes over two seconds of sound.
"""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np

import zelksss
from zelksss import Database, Separator, Source

RATE, BLOCK, SECONDS = 16000, 160, 2
AZIMUTHS = (30, -60)
TALKERS = [Source(id, azimuth=a, distance=1.5) for id, a in enumerate(AZIMUTHS)]
PASSES = 20  # of each in a run


def ring(microphones: int) -> Database:
    angles = 2 * np.pi * np.arange(microphones) / microphones
    return Database.free_field(
        0.05 * np.stack([np.cos(angles), np.sin(angles), 0 * angles], axis=1)
    )


def noise(microphones: int, seconds: int) -> np.ndarray:
    rng = np.random.default_rng(1)
    return 0.1 * rng.standard_normal((seconds * RATE, microphones)).astype(np.float32)


def seconds_in_python(db: Database, method: str, x: np.ndarray) -> float:
    sep = Separator(db, method=method)
    blocks = [x[i : i + BLOCK] for i in range(0, len(x), BLOCK)]
    sep.process(x[:0], TALKERS)
    begin = time.process_time()
    for block in blocks:
        sep.process(block, TALKERS)
    return time.process_time() - begin


def compare(program: str, microphones: int, method: str, runs: int) -> str:
    """Return a row: microseconds of a block without and with Python, and the ratio."""
    db, x = ring(microphones), noise(microphones, SECONDS)
    with tempfile.TemporaryDirectory() as folder:
        array, samples = Path(folder) / "array.sofa", Path(folder) / "samples.f32"
        db.write(array)
        x.tofile(samples)
        command = [program, method, array, samples, db.length // 4, BLOCK, PASSES, *AZIMUTHS]
        native, python = [], []
        for _ in range(runs):
            run = subprocess.run(list(map(str, command)), capture_output=True, check=True)
            native.append(float(run.stdout))
            python += [seconds_in_python(db, method, x) for _ in range(PASSES)]
    block = 1e-6 * len(x) / BLOCK
    a, b = min(native) / block, min(python) / block
    return f"| `{method}`, {microphones} | {a:.1f} | {b:.1f} | {100 * (b / a - 1):+.1f} % |"


def gain_of_threads(method: str, runs: int) -> tuple[float, float]:
    """Return the best ratio of the time one after the other to that on two threads, and the median.

    Both are walls' times of moments that are close together; other work on the machine lowers it.
    """
    db, x = ring(8), noise(8, 20)

    def job() -> None:
        zelksss.separate(x, db, TALKERS, method=method)

    ratios = []
    with ThreadPoolExecutor(2) as pool:
        for _ in range(runs):
            begin = time.perf_counter()
            job()
            job()
            middle = time.perf_counter()
            list(pool.map(lambda _: job(), range(2)))
            ratios.append((middle - begin) / (time.perf_counter() - middle))
    return max(ratios), float(np.median(ratios))


def main(program: str, runs: int) -> None:
    print("| method, microphones | C++, µs per block | Python | |\n|---|---|---|---|")
    for method, microphones in (("NULL", 4), ("NULL", 8), ("LCMV", 8), ("GICA", 8), ("NULL", 16)):
        print(compare(program, microphones, method, runs), flush=True)
    print(f"\nLoad of the machine: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores.")
    for method in ("NULL", "GICA"):
        best, median = gain_of_threads(method, 2 * runs)
        print(
            f"Two threads, {method}: {best:.2f} times as fast at best, {median:.2f} in the median."
        )


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 10)
