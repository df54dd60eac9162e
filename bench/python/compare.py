"""Prints how long separations take with zelksss and with others, and how well they separate.

    python bench/python/compare.py [RUNS]     usually by scripts/bench-python.sh

Processor seconds per second of sound on one thread, the least of RUNS interleaved runs, everything
counted from the samples to the separated samples.
"""

from __future__ import annotations

import importlib.util
import sys
import time
import warnings
from collections.abc import Callable
from typing import Any

import mixtures
import numpy as np
import peers
from mixtures import Mixture

import zelksss

# Slower than real time: once is enough.
SLOW = 0.5


def ours(method: str, **parameters: Any) -> peers.Peer:
    def separate(mixture: Mixture) -> peers.Array:
        db, responses = (None, mixture.responses) if method == "MVDR" else (mixture.db, None)
        # The peers have both talkers listed all the time, but for MSNR.
        sources = mixture.scene if method == "MSNR" else mixture.talkers
        out = zelksss.separate(
            mixture.x, db, sources, method=method, responses=responses, **parameters
        )
        return np.stack(list(out.values()))

    return separate


def rows() -> list[tuple[str, peers.Peer, list[tuple[str, peers.Peer]]]]:
    """Return our separation and its peers."""
    P = peers
    has_torch = importlib.util.find_spec("torchaudio") is not None
    torch_mvdr = [("torchaudio `SoudenMVDR`", P.torch_mvdr)] if has_torch else []
    torch_room = [("torchaudio `SoudenMVDR`", P.torch_mvdr_in_room)] if has_torch else []
    das = ("pyroomacoustics delay-and-sum", P.beamformer("delay_and_sum"))
    max_sinr = ("pyroomacoustics max-SINR beamformer", P.beamformer("max_sinr"))
    null_peers = [
        ("numpy", P.fixed(np.linalg.pinv)),
        ("scipy `ShortTimeFFT`", P.null_scipy),
        ("pyroomacoustics STFT", P.null_pyroomacoustics),
        max_sinr,
    ]
    auxiva = ("pyroomacoustics AuxIVA", P.auxiva)
    return [
        ("`DS`", ours("DS"), [("numpy", P.fixed(P.matrix_ds)), das]),
        ("`WDS`", ours("WDS"), [("numpy", P.fixed(P.matrix_wds))]),
        ("`NULL`", ours("NULL"), null_peers),
        ("`ILSE`", ours("ILSE"), [("numpy", P.fixed(P.matrix_ilse))]),
        ("`LCMV`", ours("LCMV", lc_myu=P.STEPS["LCMV"]), [("numpy", P.adaptive(P.start_lcmv))]),
        ("`GJ`", ours("GJ", lc_myu=P.STEPS["GJ"]), [("numpy", P.adaptive(P.start_gj))]),
        ("`GICA`", ours("GICA"), [("numpy", P.adaptive(P.start_gica)), auxiva]),
        ("`ML`", ours("ML", noise_from=mixtures.NOISE_ALONE), [("numpy", P.ml)]),
        ("`MSNR`", ours("MSNR"), [("numpy", P.msnr)]),
        ("`MVDR`", ours("MVDR"), torch_room),
        ("`NULL`, refined live", ours("NULL", refine_live=True), torch_mvdr),
        ("`NULL`, refined by 1 pass", ours("NULL", refine=1), [*torch_mvdr, auxiva]),
    ]


def seconds(separate: peers.Peer, mixture: Mixture) -> float:
    begin = time.process_time()
    separate(mixture)
    return (time.process_time() - begin) / mixture.seconds


def least(runs: int, candidates: list[peers.Peer], mixture: Mixture) -> list[float]:
    times = [seconds(c, mixture) for c in candidates]  # also warms up
    for _ in range(runs):
        for i, candidate in enumerate(candidates):
            if times[i] < SLOW:
                times[i] = min(times[i], seconds(candidate, mixture))
    return times


def main(runs: int) -> None:
    warnings.filterwarnings("ignore")
    if importlib.util.find_spec("torch") is not None:
        import torch

        torch.set_num_threads(1)
    outside = mixtures.make(None)
    room = mixtures.make(zelksss.Room((6, 4.5, 2.8), t60=0.3))
    sir: Callable[[peers.Peer, Mixture], str] = lambda separate, mixture: (  # noqa: E731
        f"{mixture.sir(separate(mixture)):.1f}"
    )
    print(
        f"Unseparated: {outside.sir(np.stack([outside.x[:, 0]] * 2)):.1f} dB in the open,", end=" "
    )
    print(f"{room.sir(np.stack([room.x[:, 0]] * 2)):.1f} dB in the room.\n")
    print("| | peer | ms per s, ours | peer's | ratio | SIR open, ours / peer | SIR room |")
    print("|---|---|---|---|---|---|---|")
    for name, mine, others in rows():
        mixture = room if name == "`MVDR`" else outside
        times = least(runs, [mine, *(peer for _, peer in others)], mixture)
        needs_room = name == "`MVDR`"
        for (peer_name, peer), time_of_peer in zip(others, times[1:]):
            open_air = "" if needs_room else f"{sir(mine, outside)} / {sir(peer, outside)}"
            print(
                f"| {name} | {peer_name} | {1e3 * times[0]:.2f} | {1e3 * time_of_peer:.1f} "
                f"| {times[0] / time_of_peer:.2f} | {open_air} "
                f"| {sir(mine, room)} / {sir(peer, room)} |",
                flush=True,
            )


if __name__ == "__main__":
    main(int(sys.argv[1]) if len(sys.argv) > 1 else 5)
