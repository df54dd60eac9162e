"""Agreement with what others compute, types, and notebooks that run."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import fast_bss_eval
import mir_eval
import nbformat
import numpy as np
import pyroomacoustics as pra
import pytest
from conftest import MICS
from nbclient import NotebookClient

import zelksss

ROOT = Path(__file__).resolve().parents[2]


def test_scores_agree_with_bss_eval():
    """Others allow delays from 0 on, zelksss as many before as after: the estimates come later."""
    rng = np.random.default_rng(3)
    taps, pad = 64, 64
    references = np.pad(rng.standard_normal((2, 4000)), ((0, 0), (pad, pad)))
    mixing = np.array([[1.0, 0.2], [-0.1, 0.8]])
    estimates = mixing @ references + 0.05 * rng.standard_normal(references.shape)
    later = np.roll(estimates, (taps - 1) // 2, axis=1)
    theirs = fast_bss_eval.bss_eval_sources(
        references, later, filter_length=taps, use_cg_iter=30, compute_permutation=False
    )
    assert_agree(zelksss.score(references, estimates, filter_taps=taps), theirs)
    # mir_eval has 512 taps.
    padded = np.pad(references, ((0, 0), (0, 512)))
    later = np.pad(estimates, ((0, 0), (255, 257)))
    theirs = mir_eval.separation.bss_eval_sources(padded, later, compute_permutation=False)
    assert_agree(zelksss.score(references, estimates, filter_taps=512), theirs[:3])


def assert_agree(ours, theirs):
    """To 0.01 dB. BSS Eval compares artefacts with target and interference together."""
    sdr, sir, sar = theirs
    np.testing.assert_allclose(ours.sdr, sdr, atol=0.01)
    np.testing.assert_allclose(ours.sir, sir, atol=0.01)
    together = 10 * np.log10(1 + 10 ** (-ours.sir / 10))
    np.testing.assert_allclose(ours.sar + together, sar, atol=0.01)


def test_room_of_pyroomacoustics_becomes_a_database():
    room = pra.ShoeBox([6, 5, 3], fs=16000, max_order=0)
    centre = np.array([2.5, 2.2, 1.2])
    angles = np.radians(np.arange(0, 360, 30))
    places = 1.5 * np.stack([np.cos(angles), np.sin(angles), 0 * angles], axis=1)
    for place in places:
        room.add_source(centre + place)
    room.add_microphone_array((centre + MICS).T)
    room.compute_rir()
    taps = max(len(h) for row in room.rir for h in row)
    ir = np.array([[np.pad(h, (0, taps - len(h))) for h in s] for s in zip(*room.rir)])
    db = zelksss.Database.from_responses(ir, places, MICS, 16000, length=512, reference_mic=1)
    air = zelksss.Database.free_field(MICS, azimuth_step=30)
    band = slice(10, 200)
    np.testing.assert_allclose(db.h[band], air.h[band], atol=0.1)


def test_types_are_strict(tmp_path):
    example = tmp_path / "example.py"
    example.write_text(
        "import numpy as np\nimport zelksss\n"
        "db = zelksss.Database.free_field([[0.1, 0, 0], [-0.1, 0, 0]], length=1024)\n"
        "x = np.zeros((100, 2), np.float32)\n"
        "y = zelksss.separate(x, db, [zelksss.Source(0, azimuth=3)], method='GICA', lc_myu=0.1)\n"
        "total: float = float(y[0].sum())\n"
        "zelksss.separate(x, db, [], lc_myu='no')  # type: ignore[arg-type]\n"
    )
    run = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--warn-unused-ignores", str(example),
         str(ROOT / "python/zelksss")],
        capture_output=True, text=True, env={"MYPYPATH": str(ROOT / "python"), "PATH": "/usr/bin"},
    )  # fmt: skip
    assert run.returncode == 0, run.stdout
    run = subprocess.run(
        [sys.executable, "-m", "ruff", "check", str(ROOT / "python")],
        capture_output=True,
        text=True,
    )
    assert run.returncode == 0, run.stdout


@pytest.mark.parametrize(
    "name", sorted(p.name for p in (ROOT / "python/notebooks").glob("*.ipynb"))
)
def test_notebooks_run(name):
    notebook = nbformat.read(ROOT / "python/notebooks" / name, as_version=4)
    NotebookClient(notebook, timeout=60, resources={"metadata": {"path": str(ROOT)}}).execute()
