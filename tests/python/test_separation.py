"""Recordings, blocks, scenes and engines: the same sound by every way."""

from __future__ import annotations

import json
import socket
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pytest
import soundfile
from conftest import MICS, TALKERS

import zelksss
from zelksss import Database, Scene, Source

METHODS = ["DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA", "ML", "MSNR"]


@pytest.mark.parametrize("method", METHODS)
def test_blocks_make_no_difference(method, db, scene, heard):
    x = heard.mixture[:12000]
    whole = zelksss.separate(x, db, scene, method=method)
    assert set(whole) == {7, 3}
    assert all(v.dtype == np.float32 and v.shape == (12000,) for v in whole.values())
    sep = zelksss.Separator(db, method=method)
    pieces = [sep.process(x[i : i + 777], scene) for i in range(0, 12000, 777)] + [sep.flush()]
    parts = {id: np.zeros(12000, np.float32) for id in whole}
    assert [p.start for p in pieces] == list(np.cumsum([0] + [p.count for p in pieces[:-1]]))
    for piece in pieces:
        for id, samples in piece.items():
            parts[id][piece.start : piece.start + piece.count] = samples
    for id in whole:
        np.testing.assert_array_equal(parts[id], whole[id])
    assert not whole[3][:7000].any() and whole[3][9000:11000].any()  # silent before 0.5 s


def test_null_separates(db, scene, heard):
    out = zelksss.separate(heard.mixture, db, scene)
    references = [heard.images[id][:, 0] for id in (7, 3)]
    length = len(references[0])
    before = zelksss.score(references, [heard.mixture[:, 0]] * 2, filter_taps=32)
    after = zelksss.score(references, [out[7][:length], out[3][:length]], filter_taps=32)
    assert (after.sir - before.sir > 10).all()
    np.testing.assert_allclose(
        10 ** (-after.sdr / 10), 10 ** (-after.sir / 10) + 10 ** (-after.sar / 10), rtol=1e-9
    )


class Exchanged:
    """Has `__dlpack__` alone."""

    def __init__(self, array):
        self.array = array

    def __dlpack__(self, **kwargs):
        return self.array.__dlpack__(**kwargs)

    def __dlpack_device__(self):
        return self.array.__dlpack_device__()


class Converted:
    """Has `__array__` alone, as tensors have."""

    def __init__(self, array):
        self.array = array

    def __array__(self, dtype=None, copy=None):
        return self.array


def test_layouts_and_types_give_the_same(db, heard, tmp_path):
    x = heard.mixture[:4000].copy()
    sources = [Source(0, azimuth=30), Source(1, azimuth=-60, target=False)]
    expected = zelksss.separate(x, db, sources)
    assert set(expected) == {0}
    soundfile.write(tmp_path / "x.wav", x, 16000, subtype="FLOAT")
    views = [
        x.astype(np.float64),
        np.asfortranarray(x),
        np.repeat(x, 2, axis=0)[::2],
        x.tolist(),
        Exchanged(x),
        Converted(x),
        soundfile.read(tmp_path / "x.wav")[0],
        soundfile.read(tmp_path / "x.wav", dtype="float32")[0],
    ]
    for view in views:
        np.testing.assert_array_equal(zelksss.separate(view, db, sources)[0], expected[0])


def test_database_gives_its_own_memory(db, tmp_path):
    assert db.h.dtype == np.complex64 and db.h.shape == (257, 4, 72)
    assert not db.h.flags.owndata and not db.h.flags.writeable
    assert np.shares_memory(db.h, db.h)
    assert (db.rate, db.length, db.reference_mic) == (16000, 512, 1)
    db.write(tmp_path / "db.sofa")
    for copy in (
        Database.read(tmp_path / "db.sofa"),
        Database.from_arrays(db.h, db.positions, db.microphones, db.rate),
    ):
        np.testing.assert_array_equal(copy.h, db.h)
        np.testing.assert_allclose(copy.positions, db.positions, atol=1e-12)
    # Impulse responses of the same functions: the same but for a delay common to all.
    air = Database.free_field(MICS, reference_mic=None)
    ir = np.fft.irfft(air.h.T * np.exp(-2j * np.pi * np.arange(257) * 100 / 512))
    made = Database.from_responses(ir, db.positions, MICS, 16000, 512, reference_mic=None)
    np.testing.assert_allclose(
        (made.h[:, 1] / made.h[:, 0])[:160], (air.h[:, 1] / air.h[:, 0])[:160], atol=0.01
    )
    assert 0.99 < made.energy_in_frame <= 1
    assert Database.from_responses(ir, db.positions, MICS, 16000).length >= 512


@pytest.mark.parametrize("method", METHODS)
def test_engines(method, db):
    rng = np.random.default_rng(2)
    X = rng.standard_normal((4, 257)) + 1j * rng.standard_normal((4, 257))
    make = getattr(zelksss.engine, method)
    eng = make(257, 16000, 4) if method == "MSNR" else make(257, 16000)
    if method != "MSNR":
        eng.database = db
    if method == "ML":
        eng.set_noise(np.tile(np.eye(4, dtype=complex), (257, 1, 1)))
    eng.update_sources([Source(0, azimuth=30), Source(1, azimuth=-60)])
    W = eng.separation_matrices
    assert W.shape == (257, 2, 4)
    for _ in range(2):
        Y = eng.process(X)
        np.testing.assert_allclose(Y, np.einsum("kns,sk->nk", W, X), atol=1e-12)
        W = eng.separation_matrices
    if method in ("NULL", "ILSE"):
        np.testing.assert_allclose(
            (W @ eng.transfer_functions)[5:], np.tile(np.eye(2), (252, 1, 1)), atol=1e-6
        )


def test_threads_do_not_disturb_each_other(db, scene, heard):
    expected = zelksss.separate(heard.mixture, db, scene, method="GICA")
    with ThreadPoolExecutor(4) as pool:
        jobs = [
            pool.submit(zelksss.separate, heard.mixture, db, scene, method="GICA") for _ in range(8)
        ]
    for job in jobs:
        for id, signal in job.result().items():
            np.testing.assert_array_equal(signal, expected[id])


def test_scenes(scene, tmp_path):
    path = tmp_path / "turns.rttm"
    path.write_text(
        ";; a comment\n"
        "SPEAKER a 1 0.5 1.0 <NA> <NA> anna <NA> <NA>\n"
        "SPKR-INFO a 1 <NA> <NA> <NA> unknown anna <NA>\n"
        "SPEAKER a 1 1.2 2 <NA> <NA> bob <NA> <NA>\n"
        "SPEAKER a 1 1.4 1 <NA> <NA> anna <NA> <NA>\n"
        "SPEAKER b 1 9 1 <NA> <NA> eve <NA> <NA>\n"
    )
    speakers = {"anna": Source(4, azimuth=90, distance=2), "bob": Source(2), "none": Source(9)}
    turns = Scene.from_rttm(path, speakers, recording="a")
    assert turns.ids == (4, 2, 9)
    assert turns.active(4) == [(0.5, 2.4)] and turns.active(2) == [(1.2, 3.2)]
    assert turns.active(9) == [] and scene.active(7) is None
    assert [s.id for s in turns.at(1.3)] == [4, 2]
    np.testing.assert_allclose(turns.at(1.0)[0].position, (0, 2, 0), atol=1e-6)
    with pytest.raises(zelksss.Error, match='line 6: found the recording "b" after "a"'):
        Scene.from_rttm(path, speakers)
    with pytest.raises(
        zelksss.Error, match='line 4: found the speaker "bob", expected one of anna'
    ):
        Scene.from_rttm(path, {"anna": Source(0)}, "a")


def test_rooms_and_images_add_up(scene, heard):
    dry = [np.eye(1, 8000, dtype=np.float32)[0]] * 2
    air = Database.free_field(MICS, reference_mic=None)
    room = zelksss.Room((6, 5, 3), t60=0.3)
    made = zelksss.mix(scene, dry, air, room=room, noise_level=-80, diffuse_level=-70)
    np.testing.assert_allclose(made.mixture, sum(made.images.values()) + made.noise, atol=1e-6)
    plain = zelksss.mix(scene, dry, air)
    energy = lambda m: float((m.images[7] ** 2).sum())  # noqa: E731
    assert energy(made) > 1.2 * energy(plain)  # the echoes


@pytest.mark.parametrize(
    "method, keywords",
    [
        ("NULL", {"refine": 2, "post_mask": 0.3}),
        ("NULL", {"refine_live": True, "refine_memory": 0.5, "threads": 2}),
        ("GICA", {"passes": 2, "advance": 160}),
        ("GICA", {"latency": 128}),
        ("ML", {"noise_from": [(0.0, 0.3), (0.4, 0.5)]}),
        ("MSNR", {"level": False}),
        ("MVDR", {"loading": 1e-3, "frames": 2}),
    ],
)
def test_keywords_do_what_the_options_do(method, keywords, scene, heard, tmp_path):
    x = heard.mixture[:16000]
    soundfile.write(tmp_path / "x.wav", x, 16000, subtype="FLOAT")
    air = Database.free_field(MICS, azimuth_step=30, reference_mic=None)
    air.write(tmp_path / "air.sofa")
    (tmp_path / "scene.json").write_text(json.dumps(TALKERS))
    given = dict(keywords)
    args = []
    for name in {"loading", "frames"} & given.keys():
        args += ["--param", f"{name.upper()}={given.pop(name)}"]
    for name, value in given.items():
        args.append("--" + name.replace("_", "-"))
        if name == "noise_from":
            args.append(",".join(f"{begin}:{end}" for begin, end in value))
        elif value is not True:
            text = "off" if value is False else str(value)
            args.append(str(value / 16) if name == "latency" else text)  # samples, ms
    db, responses = air, None
    if method == "MVDR":
        read = zelksss.Responses.read(tmp_path / "air.sofa", 16000)
        db, responses = None, zelksss.Responses(read.ir, read.positions, read.rate)
    subprocess.run(
        [sys.executable, "-m", "zelksss", "separate", "x.wav", "--sources", "scene.json",
         "--responses" if responses else "--tf", "air.sofa", "--method", method, *args,
         "-o", "out", "--format", "FLOAT", "--quiet"],
        check=True, cwd=tmp_path,
    )  # fmt: skip
    out = zelksss.separate(x, db, scene, 16000, method, responses=responses, **keywords)
    for id, signal in out.items():
        theirs = soundfile.read(tmp_path / f"out/source_{id}.wav", dtype="float32")[0]
        np.testing.assert_allclose(signal, theirs, atol=1e-5 * np.abs(theirs).max())


def test_example_separates_what_a_socket_brings(db, scene, heard, tmp_path):
    db.write(tmp_path / "array.sofa")
    (tmp_path / "scene.json").write_text(json.dumps(TALKERS))
    example = Path("examples/socket_separator.py").resolve()
    with subprocess.Popen(
        [sys.executable, example, "array.sofa", "scene.json", "0", "out.wav", "8"],
        cwd=tmp_path, stdout=subprocess.PIPE, text=True,
    ) as run:  # fmt: skip
        port = int(run.stdout.readline().split()[1].rstrip(":"))
        x = heard.mixture[:12345].astype("<f4")
        with socket.create_connection(("localhost", port)) as client:
            client.sendall(x.tobytes() + b"cut")
        assert run.stdout.read() == "separated 0.77 s\n"
    assert run.returncode == 0
    written = soundfile.read(tmp_path / "out.wav", dtype="float32")[0]
    direct = zelksss.separate(x, Database.read(tmp_path / "array.sofa"), scene, latency=128)
    np.testing.assert_array_equal(written, np.stack([direct[id] for id in scene.ids], axis=1))


def test_command_is_the_command():
    run = subprocess.run(
        [sys.executable, "-m", "zelksss", "--version"], capture_output=True, text=True, check=True
    )
    assert zelksss.__version__ in run.stdout
    assert f"VERSION {zelksss.__version__}" in Path("CMakeLists.txt").read_text()
