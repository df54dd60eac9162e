"""What unusable arguments get: an Error that names the argument."""

from __future__ import annotations

import numpy as np
import pytest
from conftest import MICS

import zelksss
from zelksss import Database, Separator, Source, engine, score, separate

X = np.zeros((1000, 4), np.float32)
S = [Source(0, azimuth=30)]


def nan_at(row, column):
    x = X.copy()
    x[row, column] = np.nan
    return x


def other(array, **changes):
    return lambda db: separate(array, db, S, **changes)


CASES = {
    "transposed": (other(X.T), "x", "of shape (4, 1000)", "[samples, 4 microphones] (x.T has it)"),
    "mono": (other(X[:, 0]), "x", "of shape (1000,)", "[samples, 4 microphones]"),
    "integers": (other(X.astype(np.int16)), "x", "an array of int16", "float32 or float64"),
    "complex": (other(X.astype(complex)), "x", "an array of complex128", "float32 or float64"),
    "byte order": (other(X.astype(">f4")), "x", "an array of >f4", "float32 or float64"),
    "objects": (other([[object()] * 4]), "x", "an array of object", "float32 or float64"),
    "not finite": (other(nan_at(5, 2)), "x", "nan at [5, 2]", "finite values"),
    "method": (other(X, method="BEST"), "method", '"BEST"', "one of DS, WDS, NULL"),
    "rate": (other(X, rate=8000), "rate", "8000", "16000"),
    "other's": (other(X, lc_myu=1.0), "lc_myu", "given", "it has none"),
    "unknown": (other(X, method="GICA", mu=1.0), "mu", "given", "ss_method, ss_myu, ss_scal"),
    "word": (other(X, method="GJ", lc_method="no"), "lc_method", '"no"', "FIX, ADAPTIVE"),
    "number": (other(X, method="GJ", lc_myu=-1), "lc_myu", "-1.0", "0 or more"),
    "kind": (other(X, advance="many"), "advance", "'many'", "a whole number of samples"),
    "advance": (other(X, advance=513), "advance", "513", "1 to length = 512 samples"),
    "reference": (other(X, reference_mic=5), "reference_mic", "5", "1 to 4"),
    "refined twice": (other(X, refine=1, refine_live=True), "refine", "1", "0 beside refine_live"),
    "no responses": (other(X, method="MVDR"), "responses", "missing", "zelksss.Responses"),
    "noise times": (
        other(X, method="ML", noise_from=[(1, 0)]), "noise_from", "1 to 0", "0 <= begin < end",
    ),
    "sources": (lambda db: separate(X, db, 5), "sources", "5", "a Scene or a list of Source"),
    "source": (lambda db: separate(X, db, [5]), "sources[0]", "5", "a Source"),
    "twice": (lambda db: separate(X, db, S + S), "sources[1].id", "0", "no other source has"),
    "no database": (lambda db: separate(X, None, S, 16000), "db", "missing", "is MSNR"),
    "noise": (
        lambda db: Separator(db, method="ML", noise_matrices=np.ones((3, 4, 4), complex)),
        "noise_matrices", "3", "257, one for each bin",
    ),
    "points": (lambda db: Database.free_field([[1, 2]]), "mics", "of shape (1, 2)", "[points, 3]"),
    "length": (lambda db: Database.free_field(MICS, length=511), "length", "511", "an even number"),
    "step": (lambda db: Database.free_field(MICS, azimuth_step=0), "azimuth_step", "0.0", "above"),
    "responses": (
        lambda db: Database.from_responses(np.zeros((2, 4, 9)), [[1, 0, 0]], MICS, 16000),
        "ir", "of shape (2, 4, 9)", "[1 positions, 4 microphones, taps]",
    ),
    "far": (lambda db: Database.free_field(MICS, distance=99999), "distance", "99999 m", "above 0"),
    "room": (lambda db: zelksss.Room((0, 5, 3), t60=0.3), "size", "0,5,3", "sides above 0"),
    "decay": (lambda db: zelksss.Room((6, 5, 3), t60=-1), "t60", "-1", "above 0"),
    "place": (lambda db: Source(0, position=(0, np.inf, 0)), "position", "inf", "finite metres"),
    "engine first": (
        lambda db: engine.NULL(257, 16000).update_sources(S), "database", "missing", "a Database",
    ),
    "engine bins": (
        lambda db: setattr(engine.NULL(129, 16000), "database", db), "database", "for 257", "129",
    ),
    "engine threads": (
        lambda db: setattr(engine.NULL(257, 16000), "threads", 0), "threads", "0", "1 to 256",
    ),
    "lengths": (lambda db: score(X.T, X.T[:, 1:]), "estimates", "of shape (4, 999)", "(4, 1000)"),
    "taps": (lambda db: score(X.T, X.T, 0), "filter_taps", "0", "1 to 1024"),
}  # fmt: skip


@pytest.mark.parametrize("case", CASES)
def test_error_names_the_argument(case, db):
    call, field, actual, expected = CASES[case]
    with pytest.raises(zelksss.Error) as caught:
        call(db)
    error = caught.value
    assert error.field == field and actual in error.actual and expected in error.expected
    assert str(error).startswith(f"{field} is {error.actual}") and error.expected in str(error)


def test_files_are_named(tmp_path):
    bad = tmp_path / "bad.sofa"
    bad.write_bytes(b"no file of this kind")
    for read, path in ((Database.read, bad), (zelksss.Scene.read, tmp_path / "none.json")):
        with pytest.raises(zelksss.Error, match=path.name) as caught:
            read(path)
        assert isinstance(caught.value, ValueError) and caught.value.field is None


def test_ended_recordings_take_no_more(db):
    sep = Separator(db)
    sep.flush()
    with pytest.raises(RuntimeError, match="ended by flush"):
        sep.process(X, S)
