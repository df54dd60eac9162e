"""Many recordings: what comes out is the same whatever fails on the way."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

import fsspec
import numpy as np
import psutil
import pytest
import soundfile
from conftest import TALKERS

import zelksss
from zelksss import corpus

COMMAND = [sys.executable, "-m", "zelksss", "corpus"]


def tree(folder, work=False):
    """What a run has made, but for how long it took."""
    result = {}
    for path in sorted(Path(folder).rglob("*")):
        name = str(path.relative_to(folder))
        if path.is_dir() or name in (".lock", "run.json"):
            continue
        content = path.read_bytes()
        if path.suffix in (".json", ".jsonl") and not work:
            lines = [content] if path.suffix == ".json" else content.splitlines()
            content = [{k: v for k, v in json.loads(x).items() if k != "work"} for x in lines]
        result[name] = content
    return result


def json_lines(path):
    return [json.loads(line) for line in Path(path).read_text().splitlines()]


def index(folder):
    return json_lines(folder / "index.jsonl")


@pytest.fixture(scope="module")
def many(tmp_path_factory, db, heard):
    """A manifest of 40 recordings, one of them no sound file, one cut off, one not there."""
    folder = tmp_path_factory.mktemp("many")
    db.write(folder / "array.sofa")
    (folder / "scene.json").write_text(json.dumps(TALKERS))
    lines = []
    for n in range(40):
        name = f"r{n:02}.wav"
        soundfile.write(folder / name, np.roll(heard.mixture, 300 * n, 0), 16000, subtype="FLOAT")
        lines.append({"recording": name, "scene": "scene.json", "database": "array.sofa"})
    (folder / "r05.wav").write_text("no sound")
    os.truncate(folder / "r06.wav", 200000)
    (folder / "r07.wav").unlink()
    manifest = folder / "manifest.jsonl"
    manifest.write_text("".join(json.dumps(line) + "\n" for line in lines))
    return manifest


@pytest.fixture(scope="module")
def clean(many):
    """What a run without faults makes of it."""
    output = many.parent / "clean"
    report = corpus.separate(many, output, jobs=2, flac=True)
    assert (report.items, report.done, report.found) == (40, 38, 0)
    assert {failure.id for failure in report.failures} == {"r05", "r07"}
    return output


def test_items_are_as_the_package_separates_them(many, clean, db, scene):
    reasons = {f["id"]: f["reason"] for f in json_lines(clean / "failures.jsonl")}
    for id, words in {"r05": "expected a sound file", "r07": "No such"}.items():
        assert f"{many.parent}/{id}.wav: " in reasons[id] and words in reasons[id]
    rows = index(clean)
    assert [row["id"] for row in rows] == sorted(row["id"] for row in rows) and len(rows) == 38
    assert ["warnings" in row for row in rows].index(True) == 5  # r06, which is cut off
    x, _ = soundfile.read(many.parent / "r11.wav", dtype="float32")
    expected = zelksss.separate(x, db, scene)
    for source in rows[9]["sources"]:
        found, rate = soundfile.read(clean / "r11" / source["file"], dtype="int16")
        whole = np.clip(np.rint(expected[source["id"]] * 32768.0), -32768, 32767)
        np.testing.assert_array_equal(found, whole)
        assert rate == 16000 and source["peak"] == np.abs(expected[source["id"]]).max()


def test_goes_on_and_notices_changes(many, clean):
    before = tree(clean, work=True)
    report = corpus.separate(many, clean, jobs=2, flac=True)
    assert (report.found, report.done, len(report.failures)) == (38, 0, 2)
    assert tree(clean, work=True) == before
    with pytest.raises(zelksss.Error, match=r'method = "NULL", expected "DS"'):
        corpus.separate(many, clean, method="DS", flac=True)
    # An item whose line or file has changed is made anew; one that was removed, too.
    changed = clean.with_name("changed")
    shutil.copytree(clean, changed)
    touched = many.parent / "r01.wav"
    times = touched.stat().st_atime_ns, touched.stat().st_mtime_ns
    os.utime(touched)
    shutil.rmtree(changed / "r02")
    with open(changed / "index.jsonl", "a") as file:
        file.write('{"id": "r03", "ke')
    report = corpus.separate(many, changed, jobs=1, flac=True)
    os.utime(touched, ns=times)
    assert (report.found, report.done) == (36, 2)
    sounds = [{k: v for k, v in tree(f).items() if "flac" in k} for f in (clean, changed)]
    assert sounds[0] == sounds[1]
    report = corpus.separate(many, changed, jobs=2, method="DS", force=True)
    assert report.done == 38 and not list(changed.glob("*/*.flac"))


def test_pieces_of_long_recordings(tmp_path, db, heard):
    """Where the method does not learn they make no difference, to the bit."""
    soundfile.write(tmp_path / "long.wav", np.tile(heard.mixture, (4, 1)), 16000, subtype="FLOAT")
    db.write(tmp_path / "array.sofa")
    turns = {"sources": [{**s, "active": [[0.5, 3], [5, 7.2]]} for s in TALKERS["sources"]]}
    items = [{"recording": f"{tmp_path}/long.wav", "scene": turns}]
    options = {"database": tmp_path / "array.sofa", "samples": "PCM_24", "jobs": 2}
    for name, piece in (("cut", 1.0), ("whole", 600.0)):
        corpus.separate(items, tmp_path / name, piece=piece, overlap=0.05, **options)
    cut, whole = ({k: v for k, v in tree(tmp_path / f).items() if "wav" in k}
                  for f in ("cut", "whole"))  # fmt: skip
    assert cut == whole and len(cut) == 2
    assert index(tmp_path / "cut")[0]["pieces"] == 8
    assert not (tmp_path / "cut/.pieces").exists() and not (tmp_path / "cut/.unfinished").exists()


def test_mix_separate_score(tmp_path, db):
    air = zelksss.Database.free_field(db.microphones, reference_mic=None)
    air.write(tmp_path / "air.sofa")
    db.write(tmp_path / "array.sofa")
    noise = np.random.default_rng(1).standard_normal((2, 16000)) * 0.1
    for n in (0, 1):
        soundfile.write(tmp_path / f"dry{n}.wav", noise[n], 16000, subtype="FLOAT")
    items = [
        {"id": str(n), "scene": TALKERS, "dry": ["dry0.wav", "dry1.wav"], "seed": n}
        | {"noise_level": -60, **({"room": {"size": [6, 5, 3], "t60": 0.2}} if n else {})}
        for n in (0, 1)
    ]
    (tmp_path / "mixes.jsonl").write_text("".join(json.dumps(item) + "\n" for item in items))
    made = corpus.mix(tmp_path / "mixes.jsonl", tmp_path / "mixes", database=f"{tmp_path}/air.sofa")
    assert made.done == 2 and not made.failures
    manifest = tmp_path / "mixes/manifest.jsonl"
    corpus.separate(manifest, tmp_path / "out", database=tmp_path / "array.sofa", parquet=True)
    import pyarrow.parquet

    table = pyarrow.parquet.read_table(tmp_path / "out/index.parquet").to_pylist()
    assert table == index(tmp_path / "out")
    open_air, room = ([s["sir"] for s in row["sources"]] for row in table)
    assert min(open_air) > 20 and max(room) < min(open_air)
    targets = [{"id": x["id"], "references": x["references"]}
               for x in map(json.loads, manifest.read_text().splitlines())]  # fmt: skip
    for item in targets:
        item["references"] = {k: str(manifest.parent / v) for k, v in item["references"].items()}
    corpus.score(targets, tmp_path / "scores", estimates=tmp_path / "out")
    for scored, row in zip(index(tmp_path / "scores"), table):
        by_id = {source["id"]: source for source in row["sources"]}
        assert [{k: by_id[a["id"]][k] for k in a} for a in scored["sources"]] == scored["sources"]


def test_lhotse_and_rttm(tmp_path, db, heard):
    """Turns of a Lhotse manifest, of RTTM and of a scene give the same."""
    for n in (0, 1):
        soundfile.write(tmp_path / f"{n}.wav", heard.mixture[:, 2 * n : 2 * n + 2], 16000)
    soundfile.write(tmp_path / "all.wav", heard.mixture, 16000)
    db.write(tmp_path / "array.sofa")
    sources = [{"type": "file", "channels": [2 * n, 2 * n + 1], "source": f"{n}.wav"}
               for n in (1, 0)]  # fmt: skip
    recording = {"id": "m", "sources": sources, "sampling_rate": 16000, "num_samples": 32000}
    (tmp_path / "recordings.jsonl").write_text(json.dumps({**recording, "duration": 2.0}) + "\n")
    turns = [("a", 0.0, 1.0), ("a", 0.9, 0.6), ("b", 0.5, 1.0)]
    with open(tmp_path / "s.jsonl", "w") as lines, open(tmp_path / "m.rttm", "w") as rttm:
        for n, (who, begin, length) in enumerate(turns):
            line = {"id": n, "recording_id": "m", "channel": [0, 1], "speaker": who}
            lines.write(json.dumps({**line, "start": begin, "duration": length}) + "\n")
            rttm.write(f"SPEAKER m 1 {begin} {length} <NA> <NA> {who} <NA> <NA>\n")
    places = {"a": {"azimuth": 30, "distance": 1.5}, "b": {"azimuth": -60, "distance": 1.5}}
    common = {"database": tmp_path / "array.sofa", "speakers": places, "jobs": 1}
    supervisions = tmp_path / "s.jsonl"
    corpus.separate(
        tmp_path / "recordings.jsonl", tmp_path / "l", supervisions=supervisions, **common
    )
    by_rttm = {"id": "m", "recording": f"{tmp_path}/all.wav", "rttm": f"{tmp_path}/m.rttm"}
    corpus.separate([by_rttm], tmp_path / "r", **common)
    active = [[[0.0, 1.5]], [[0.5, 1.5]]]
    scene = {"sources": [{"id": n, **places["ab"[n]], "active": active[n]} for n in (0, 1)]}
    by_scene = {"id": "m", "recording": f"{tmp_path}/all.wav", "scene": scene}
    corpus.separate([by_scene], tmp_path / "s", **common)
    sounds = [{k: v for k, v in tree(tmp_path / f).items() if "wav" in k} for f in "lrs"]
    assert sounds[0] == sounds[1] == sounds[2] and len(sounds[0]) == 2
    del places["b"]
    report = corpus.separate(
        tmp_path / "recordings.jsonl", tmp_path / "none", supervisions=supervisions, **common
    )
    assert 'speaker "b" has no place' in report.failures[0].reason


@pytest.mark.parametrize(
    ("line", "words"),
    [
        ('{"recording": "a.wav"', "expected a JSON object"),
        ("[1]", "expected a JSON object"),
        ('{"recording": "a.wav", "scen": 1}', 'key "scen", expected one of channels'),
        ("{}", 'key "recording" is missing'),
        ('{"recording": "b/r.wav"}', 'id is "r", as in line 1'),
        ('{"recording": "a.wav", "id": "../a"}', 'id is "../a", expected what a folder'),
    ],
)
def test_manifests_that_cannot_be_used(line, words, tmp_path):
    (tmp_path / "m.jsonl").write_text(f'{{"recording": "r.wav"}}\n{line}\n')
    with pytest.raises(zelksss.Error, match="m.jsonl:2: ") as caught:
        corpus.separate(tmp_path / "m.jsonl", tmp_path / "out")
    assert words in str(caught.value) and not (tmp_path / "out").exists()


def test_items_that_hang_or_need_too_much(tmp_path):
    os.mkfifo(tmp_path / "hangs.wav")
    soundfile.write(tmp_path / "huge.flac", np.zeros(1 << 25, np.int16), 16000)
    soundfile.write(tmp_path / "small.wav", np.ones(2000), 16000)
    items = [
        {"id": path.stem, "references": {"0": str(path)}, "estimates": {"0": str(path)}}
        for path in tmp_path.iterdir()
    ]
    hanging = [item for item in items if item["id"] == "hangs"]
    report = corpus.score(hanging, tmp_path / "a", jobs=1, limit=1, retries=1)
    assert report.failures == [corpus.Failure("hangs", "takes longer than 1 s", 2)]
    others = [item for item in items if item not in hanging]
    report = corpus.score(others, tmp_path / "b", jobs=2, retries=0, memory=400 << 20)
    assert [row["id"] for row in index(tmp_path / "b")] == ["small"]
    assert report.failures == [corpus.Failure("huge", "needs more memory than 400 MiB", 1)]


# ---- a cluster


def start(*arguments):
    return subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def until(condition, seconds=30):
    end = time.monotonic() + seconds
    while not (result := condition()):
        assert time.monotonic() < end
        time.sleep(0.01)
    return result


class Cluster:
    """A scheduler and two workers, each a process of its own."""

    def __init__(self, folder):
        file = folder / f"scheduler-{time.monotonic_ns()}.json"
        dask = [sys.executable, "-m", "dask"]
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        options = ["--scheduler-file", str(file), "--no-dashboard"]
        self.scheduler = subprocess.Popen(
            [*dask, "scheduler", "--port", "0", "--host", "127.0.0.1", *options], **quiet
        )
        self.workers = [
            subprocess.Popen([*dask, "worker", "--no-nanny", "--nthreads", "1", *options], **quiet)
            for _ in range(2)
        ]
        until(lambda: file.exists() and file.read_text().endswith("}"))
        self.address = json.loads(file.read_text())["address"]

    def end(self):
        for process in (*self.workers, self.scheduler):
            process.kill()
            process.wait()


def lines_of(output):
    path = output / "index.jsonl"
    return path.read_bytes().count(b"\n") if path.exists() else 0


def test_killed_processes_make_no_difference(tmp_path, many, clean):
    cluster = Cluster(tmp_path)
    output = tmp_path / "out"
    run = [*COMMAND, "separate", str(many), "-o", str(output), "--flac"]
    there = [*run, "--scheduler", cluster.address, "--batch", "2"]
    try:
        client = start(*there)
        until(lambda: lines_of(output) >= 3)
        client.kill()
        client.wait()
        for row in json_lines(output / "index.jsonl"):
            assert all((output / row["id"] / s["file"]).exists() for s in row["sources"])

        before = lines_of(output)
        client = start(*there)
        until(lambda: lines_of(output) >= before + 4)
        worker = psutil.Process(cluster.workers[0].pid)
        for child in worker.children():
            child.kill()
        until(lambda: lines_of(output) >= before + 7)
        worker.kill()
        until(lambda: lines_of(output) >= before + 10)
        cluster.scheduler.kill()
        said, _ = client.communicate(timeout=30)
        assert client.returncode == 1 and f"{output}: the scheduler is gone; " in said
    finally:
        cluster.end()
    assert not [p for p in psutil.process_iter() if is_left_over(p)]
    client = start(*run, "--jobs", "2")
    said, _ = client.communicate(timeout=30)
    assert client.returncode == 1 and "38 of 40 items are there" in said and "2 failed" in said
    assert tree(output) == tree(clean)


def is_left_over(process):
    try:
        return "zelksss.corpus._child" in process.cmdline() and process.ppid() == 1
    except psutil.Error:
        return False


def test_object_store(tmp_path, many, clean, monkeypatch):
    """Everything by URL; a run that another one has taken over ends."""
    moto = pytest.importorskip("moto.server", reason="scripts/python-env.sh cluster brings it")
    server = moto.ThreadedMotoServer(port=0, verbose=False)
    server.start()
    host, port = server.get_host_and_port()
    monkeypatch.setenv("AWS_ENDPOINT_URL", f"http://{host}:{port}")
    for name in ("AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY"):
        monkeypatch.setenv(name, "testing")
    store = fsspec.filesystem("s3")
    store.mkdir("corpus")
    store.put([str(file) for file in many.parent.glob("*.*")], "corpus/in/")

    def run(**options):
        manifest, output = "s3://corpus/in/manifest.jsonl", "s3://corpus/out"
        return corpus.separate(manifest, output, flac=True, jobs=2, **options)

    def take_over(report):
        settings = json.loads(store.cat_file("corpus/out/run.json"))
        store.pipe_file("corpus/out/run.json", json.dumps({**settings, "run": "x"}).encode())

    try:
        with pytest.raises(corpus.InterruptedRunError, match="another run has begun"):
            run(progress=take_over)
        report = run()
        assert report.done + report.found == 38 and len(report.failures) == 2
        store.get("corpus/out", str(tmp_path / "out"), recursive=True)
    finally:
        server.stop()
    sounds = [{k: v for k, v in tree(f).items() if "flac" in k} for f in (clean, tmp_path / "out")]
    assert sounds[0] == sounds[1] and len(index(tmp_path / "out")) == 38


def test_full_disk(tmp_path, many, clean):
    disk = tmp_path / "disk"
    disk.mkdir()
    mount = ["mount", "-t", "tmpfs", "-o", "size=600k", "tmpfs", str(disk)]
    if os.geteuid() != 0 or subprocess.run(mount, stderr=subprocess.DEVNULL).returncode != 0:
        pytest.skip("no file system can be mounted here")
    try:
        with pytest.raises(corpus.InterruptedRunError, match="No space left.*goes on from them"):
            corpus.separate(many, disk / "out", jobs=2, flac=True)
        done = lines_of(disk / "out")
        assert 1 <= done < 37
        subprocess.run(["mount", "-o", "remount,size=20M", str(disk)], check=True)
        report = corpus.separate(many, disk / "out", jobs=2, flac=True)
        assert report.found >= done - 1 and tree(disk / "out") == tree(clean)
    finally:
        subprocess.run(["umount", "-l", str(disk)], check=True)
