"""What docs/scale.md has: how fast many recordings go, and what each costs beside its sound.

    scale.py throughput [METHOD] [RECORDINGS] [SECONDS]   against the plain command, per core
    scale.py tiny [ITEMS]                                 items of 0.1 s
    scale.py scheduler [ITEMS]                            scheduler and client alone, by batch
    scale.py pieces [METHOD …]                            what pieces change for methods that learn

Run in the environment of scripts/python-env.sh with the built package on PYTHONPATH and the command
on the PATH. Times of the processor are of all processes that take part, so that they mean something
on a busy machine.
"""

from __future__ import annotations

import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import psutil
import soundfile

import zelksss
from zelksss import corpus
from zelksss.corpus import _run

MICS = [[0.05, 0, 0], [0, 0.05, 0], [-0.05, 0, 0], [0, -0.05, 0]]
RATE = 16000


def spent() -> tuple[float, float]:
    """Seconds of the processor of this process and its ended children, and of the clock."""
    t = os.times()
    return t.user + t.system + t.children_user + t.children_system, time.monotonic()


def timed(name: str, sound: float, call) -> None:
    before = spent()
    call()
    processor, clock = (b - a for a, b in zip(before, spent()))
    speed = f"{sound / processor:8.0f} s of sound per second of a core" if sound else ""
    print(f"{name:26} processor {processor:8.2f} s, clock {clock:8.2f} s {speed}", flush=True)


def make(folder: Path, recordings: int, seconds: float) -> Path:
    """Two talkers (noises) before four microphones."""
    zelksss.Database.free_field(MICS).write(folder / "array.sofa")
    active = [[0.1 * seconds, 0.9 * seconds]]
    sources = [{"id": 0, "azimuth": 30, "distance": 1.5},
               {"id": 1, "azimuth": -60, "distance": 1.5, "active": active}]  # fmt: skip
    (folder / "scene.json").write_text(json.dumps({"sources": sources}))
    rng = np.random.default_rng(1)
    lines = []
    for n in range(recordings):
        x = 0.1 * rng.standard_normal((round(seconds * RATE), 4))
        soundfile.write(folder / f"r{n:05}.wav", x, RATE)
        line = {"recording": f"r{n:05}.wav", "scene": "scene.json", "database": "array.sofa"}
        lines.append(json.dumps(line) + "\n")
    manifest = folder / "manifest.jsonl"
    manifest.write_text("".join(lines))
    return manifest


def throughput(folder: Path, method="GICA", recordings="20", seconds="120") -> None:
    manifest = make(folder, int(recordings), float(seconds))
    sound = int(recordings) * float(seconds)
    files = [str(path) for path in sorted(folder.glob("r*.wav"))]
    given = ["--tf", str(folder / "array.sofa"), "--sources", str(folder / "scene.json")]
    for attempt in range(3):
        plain = ["zelk-sss", "separate", *files, *given, "--method", method, "--quiet", "--jobs"]
        for jobs in ("1", "2"):
            name = str(folder / f"{attempt}-{jobs}")
            run = subprocess.run
            call = [*plain, jobs, "-o", name + "-plain"]
            quiet = {"check": True, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
            timed(f"command, {jobs} at once", sound, lambda: run(call, **quiet))  # noqa: B023
            call = ["zelk-sss", "corpus", "separate", str(manifest), "-o", name, "--jobs", jobs]
            call += ["--method", method]
            timed(f"corpus, {jobs} workers", sound, lambda: run(call, **quiet))  # noqa: B023


def tiny(folder: Path, items="2000") -> None:
    manifest = make(folder, 1, 0.1)
    line = {k: str(folder / v) for k, v in json.loads(manifest.read_text()).items()}
    many = [{**line, "id": f"i{n:06}"} for n in range(int(items))]
    for batch in (1, 10, 100, None):
        name = f"batch {batch or 'of a second'}"
        timed(name, 0, lambda: corpus.separate(many, folder / name, batch=batch, jobs=2))  # noqa: B023


def done_at_once(tasks):
    """Stands for workers that need no time."""
    work = {"seconds": 0.001, "real_time_factor": 0.01, "host": "none"}
    sources = [{"id": n, "file": f"source_{n}.wav", "peak": 0.5, "clipped": 0} for n in (0, 1)]
    return [
        {"record": {"id": task["item"]["id"], "key": task["key"], "method": "NULL", "rate": RATE,
                    "samples": 1600, "seconds": 0.1, "sources": sources, "work": work}}
        for task in tasks
    ]  # fmt: skip


def scheduler(folder: Path, items="100000") -> None:
    """A scheduler and a worker, each in a process of its own."""
    file = folder / "scheduler.json"
    options = ["--scheduler-file", str(file), "--no-dashboard"]
    dask = [sys.executable, "-m", "dask"]
    # Both import `done_at_once`.
    path = f"{Path(__file__).resolve().parent}:{os.environ['PYTHONPATH']}"
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    processes = [
        subprocess.Popen(
            [*dask, *command, *options], **quiet, env={**os.environ, "PYTHONPATH": path}
        )
        for command in (
            ["scheduler", "--port", "0", "--host", "127.0.0.1"],
            ["worker", "--no-nanny", "--nthreads", "2"],
        )
    ]
    line = {"recording": "/r.wav", "scene": "/scene.json", "database": "/array.sofa"}
    many = [{**line, "id": f"i{n:06}"} for n in range(int(items))]
    import scale  # which the worker can import, too

    _run.work_batch = scale.done_at_once
    try:
        while not file.exists() or not file.read_text().endswith("}"):
            time.sleep(0.1)
        address = json.loads(file.read_text())["address"]
        of_scheduler = psutil.Process(processes[0].pid)
        for batch in (1, 10, 100):
            number = many[: len(many) * batch**2 // 10000 or 1]
            before = sum(of_scheduler.cpu_times()[:2]), *spent()
            corpus.separate(number, folder / f"b{batch}", batch=batch, client=address)
            after = sum(of_scheduler.cpu_times()[:2]), *spent()
            parts = [(b - a) / len(number) * 1e6 for a, b in zip(before, after)]
            text = "batch {}: {} items, us each: scheduler {:.0f}, client {:.0f}, clock {:.0f}"
            print(text.format(batch, len(number), *parts), flush=True)
    finally:
        for process in processes:
            process.kill()


def pieces(folder: Path, *methods) -> None:
    """Two noises in a room, separated whole and in pieces: scores, and how far they differ."""
    seconds = 120
    db = zelksss.Database.free_field(MICS)
    air = zelksss.Database.free_field(MICS, reference_mic=None)
    db.write(folder / "array.sofa")
    rng = np.random.default_rng(1)
    sources = [
        {"id": 0, "azimuth": 30, "distance": 1.5},
        {"id": 1, "azimuth": -60, "distance": 1.5},
    ]
    scene = {"sources": sources}
    # Noise whose level changes as that of speech does.
    dry = {}
    for id in (0, 1):
        level = np.repeat(rng.uniform(0.0, 1.0, seconds * 4) ** 2, RATE // 4)
        dry[id] = (0.1 * level * np.cumsum(rng.standard_normal(level.size)) * 0.05).astype(
            np.float32
        )
        dry[id] -= np.convolve(dry[id], np.ones(64) / 64, "same").astype(np.float32)
    room = zelksss.Room((6, 5, 3), t60=0.25)
    heard = zelksss.mix(zelksss.Scene.from_dict(scene), dry, air, room=room, noise_level=-70)
    soundfile.write(folder / "r.wav", heard.mixture, RATE, subtype="FLOAT")
    for id in (0, 1):
        soundfile.write(folder / f"ref{id}.wav", heard.images[id][:, 0], RATE, subtype="FLOAT")
    item = {
        "recording": str(folder / "r.wav"),
        "scene": scene,
        "database": str(folder / "array.sofa"),
        "references": {str(id): str(folder / f"ref{id}.wav") for id in (0, 1)},
    }
    for method in methods or ("NULL", "LCMV", "GJ", "GICA", "MSNR"):
        results = {}
        for piece, overlap in ((1000.0, 0.0), (20.0, 0.0), (20.0, 2.0), (20.0, 10.0), (40.0, 10.0)):
            output = folder / f"{method}-{piece}-{overlap}"
            corpus.separate(
                [item], output, method=method, samples="FLOAT", piece=piece, overlap=overlap
            )
            row = json.loads((output / "index.jsonl").read_text())
            sound = [
                soundfile.read(output / "r" / s["file"], dtype="float64")[0] for s in row["sources"]
            ]
            results[piece, overlap] = sound
            whole = results[1000.0, 0.0]
            apart = sum(((a - b) ** 2).sum() for a, b in zip(sound, whole)) / sum(
                (b**2).sum() for b in whole
            )
            sdr = np.mean([s["sdr"] for s in row["sources"]])
            far = f"{10 * np.log10(apart):6.1f} dB" if apart else "equal"
            text = f"{method:5} piece {piece:6.0f} overlap {overlap:4.0f}: SI-SDR {sdr:6.2f} dB"
            print(f"{text}, difference {far}", flush=True)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as name:
        globals()[sys.argv[1]](Path(name), *sys.argv[2:])
