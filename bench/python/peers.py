"""The same separations without zelksss: numpy and scipy as one writes them, and other packages.

Every function takes a `Mixture` and gives float32 [talkers, samples]. Shapes: x [samples, M],
X [frames, K, M], A [K, M, N], W [K, N, M], for M microphones, N talkers and K bins.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
import pyroomacoustics as pra
import scipy.signal
from mixtures import ADVANCE, AZIMUTHS, DISTANCE, LENGTH, MICROPHONES, NOISE_ALONE, RATE, Mixture
from numpy.lib.stride_tricks import sliding_window_view
from numpy.typing import NDArray

Array = NDArray[np.generic]
Peer = Callable[[Mixture], Array]
STEPS = {"LCMV": 0.5, "GJ": 0.001, "GICA": 0.1}
SCALE = 0.1  # of the outputs inside GICA's tanh
EPS = 1e-10
WINDOW = scipy.signal.get_window("hann", LENGTH).astype(np.float32)


# ---- frames


def stft(x: Array) -> Array:
    """Spectra of frames that begin LENGTH - ADVANCE samples before the recording."""
    padded = np.pad(x, ((LENGTH - ADVANCE, LENGTH), (0, 0)))
    frames = sliding_window_view(padded, LENGTH, axis=0)[::ADVANCE]
    return np.fft.rfft(frames * WINDOW, axis=-1).transpose(0, 2, 1)


def istft(Y: Array, samples: int) -> Array:
    """Overlap-add of Y [frames, K, N]."""
    frames = np.fft.irfft(Y.transpose(2, 0, 1), axis=-1) * WINDOW
    N, T, _ = frames.shape
    y = np.zeros((N, (T - 1) * ADVANCE + LENGTH), np.float32)
    for t in range(T):
        y[:, t * ADVANCE : t * ADVANCE + LENGTH] += frames[:, t]
    y /= (WINDOW**2).sum() / ADVANCE
    return y[:, LENGTH - ADVANCE : LENGTH - ADVANCE + samples]


def apply(W: Array, X: Array) -> Array:
    """W · x in every bin of every frame."""
    return (W @ X.transpose(1, 2, 0)).transpose(2, 0, 1)


# ---- matrices


def steering(mixture: Mixture) -> Array:
    """The database's transfer functions at the talkers' directions."""
    places = np.array([s.position for s in mixture.talkers])
    distance = np.linalg.norm(mixture.db.positions[:, None] - places, axis=-1)
    return mixture.db.h[:, :, distance.argmin(axis=0)].astype(complex)


def hermitian(A: Array) -> Array:
    return A.conj().swapaxes(-1, -2)


def matrix_ds(A: Array) -> Array:
    return hermitian(A / np.abs(A)) / np.abs(A).sum(axis=1)[:, :, None]


def matrix_wds(A: Array) -> Array:
    return hermitian(A / (np.abs(A) ** 2).sum(axis=1, keepdims=True))


def matrix_ilse(A: Array) -> Array:
    rows = []
    for n in range(A.shape[2]):
        a = A[:, :, n : n + 1]
        B = hermitian(np.linalg.svd(a)[0][:, :, 1:])  # B · a = 0
        others = np.delete(A, n, axis=2)
        w = hermitian(a) / (np.abs(a) ** 2).sum(axis=1, keepdims=True)
        rows.append(w - w @ others @ np.linalg.pinv(B @ others) @ B)
    return np.concatenate(rows, axis=1)


def fixed(matrix: Callable[[Array], Array]) -> Peer:
    """A method whose matrices do not change, in numpy."""

    def separate(mixture: Mixture) -> Array:
        W = matrix(steering(mixture)).astype(np.complex64)
        return istft(apply(W, stft(mixture.x)), len(mixture.x))

    return separate


def null_scipy(mixture: Mixture) -> Array:
    """NULL over scipy's STFT."""
    transform = scipy.signal.ShortTimeFFT(WINDOW, ADVANCE, RATE)
    X = transform.stft(mixture.x, axis=0)  # [K, M, frames]
    W = np.linalg.pinv(steering(mixture)).astype(np.complex64)
    return transform.istft(W @ X, f_axis=0, t_axis=2, k1=len(mixture.x)).T


def null_pyroomacoustics(mixture: Mixture) -> Array:
    """NULL over pyroomacoustics' STFT."""
    padded = np.pad(mixture.x, ((0, LENGTH), (0, 0)))
    X = pra.transform.stft.analysis(padded, LENGTH, ADVANCE, win=WINDOW)
    W = np.linalg.pinv(steering(mixture)).astype(np.complex64)
    synthesis = pra.transform.stft.compute_synthesis_window(WINDOW, ADVANCE)
    y = pra.transform.stft.synthesis(apply(W, X), LENGTH, ADVANCE, win=synthesis)
    return y[LENGTH - ADVANCE :][: len(mixture.x)].T


def ml(mixture: Mixture) -> Array:
    """ML: minimum noise under unit gain, the noise measured where nobody talks."""
    X = stft(mixture.x)
    centres = np.arange(len(X)) * ADVANCE + ADVANCE - LENGTH / 2
    alone = X[(centres >= LENGTH / 2) & (centres <= NOISE_ALONE[0][1] * RATE - LENGTH / 2)]
    R = np.einsum("tki,tkj->kij", alone, alone.conj()) / len(alone)
    M = R.shape[1]
    R = R / np.trace(R, axis1=1, axis2=2)[:, None, None] * M + 1e-4 * np.eye(M)
    A = steering(mixture)
    A = A / np.linalg.norm(A, axis=1, keepdims=True)
    Q = np.linalg.solve(R, A)
    W = hermitian(Q) / np.einsum("kmn,kmn->kn", A.conj(), Q)[:, :, None]
    return istft(apply(W.astype(np.complex64), X), len(mixture.x))


# ---- methods that learn


def adaptive(start: Callable[[Array], Callable[[Array, Array, Array], Array]]) -> Peer:
    """A method that changes W after every frame: start(A) gives step(W, x, y)."""

    def separate(mixture: Mixture) -> Array:
        A = steering(mixture)
        X = stft(mixture.x)
        step = start(A)
        W = matrix_wds(A)
        Y = np.empty((*X.shape[:2], A.shape[2]), np.complex64)
        for t, frame in enumerate(X):
            x = frame[:, :, None]
            y = W @ x
            Y[t] = y[:, :, 0]
            W = step(W, x, y)
        return istft(Y, len(mixture.x))

    return separate


def power(v: Array) -> Array:
    return (np.abs(v) ** 2).sum(axis=(-2, -1), keepdims=True)


def start_lcmv(A: Array, mu: float = STEPS["LCMV"]) -> Callable[[Array, Array, Array], Array]:
    f = matrix_wds(A)
    aH = hermitian(A)[:, :, None]  # [K, N, 1, M]
    P = np.eye(A.shape[1]) - f[:, :, :, None].conj() @ aH

    def step(W: Array, x: Array, y: Array) -> Array:
        stepped = W - mu / (2 * power(x) + 1e-20) * (y @ hermitian(x))
        return (stepped[:, :, None] @ P)[:, :, 0] + f

    return step


def start_gj(A: Array, mu: float = STEPS["GJ"]) -> Callable[[Array, Array, Array], Array]:
    q = matrix_wds(A)
    B = hermitian(np.linalg.svd(A.transpose(0, 2, 1)[..., None])[0][..., 1:])  # [K, N, M - 1, M]
    wa = np.zeros((*B.shape[:2], 1, B.shape[2]), complex)

    def step(W: Array, x: Array, y: Array) -> Array:
        z = B @ x[:, None]
        wa[...] += mu / (2 * power(z) + 1e-20) * y[:, :, None] * hermitian(z)
        return q - (wa @ B)[:, :, 0]

    return step


def start_gica(A: Array, mu: float = STEPS["GICA"]) -> Callable[[Array, Array, Array], Array]:
    AH = hermitian(A)
    I = np.eye(A.shape[2])  # noqa: E741

    def step(W: Array, x: Array, y: Array) -> Array:
        E_lc = (W @ A - I) * I
        J_lc = E_lc @ AH
        r = np.abs(y) + EPS
        f = np.tanh(SCALE * r) * y / r
        E_ss = (f @ hermitian(y)) * (1 - I)
        J_ss = E_ss @ W
        Q = 2 * E_ss @ f @ hermitian(x)
        s = (J_ss.conj() * Q).real.sum(axis=(1, 2), keepdims=True)
        mu_ss = mu * power(E_ss) / 2 / np.where(s < EPS, s + EPS, s)
        mu_lc = mu * power(E_lc) / 2 / (power(J_lc) + 1e-20)
        return W - mu_ss * J_ss - mu_lc * J_lc

    return step


def msnr(mixture: Mixture, alpha: float = 0.99) -> Array:
    """MSNR by numpy's batched decompositions, its outputs projected onto microphone 1."""
    X = stft(mixture.x)
    T, K, M = X.shape
    ids = mixture.scene.ids
    R = np.tile(np.eye(M, dtype=complex), (2, len(ids), K, 1, 1))  # of noise, of the target
    v = np.full((len(ids), K, M), 1 / np.sqrt(M), complex)
    Y = np.empty((T, K, len(ids)), np.complex64)
    P = np.zeros((K, len(ids)), complex)
    Q = np.full((K, len(ids)), 1e-20)
    for t, x in enumerate(X):
        y = np.einsum("nkm,km->kn", v.conj(), x)
        P = 0.97 * P + x[:, :1] * y.conj()
        Q = 0.97 * Q + np.abs(y) ** 2
        Y[t] = P / Q * y
        talking = {s.id for s in mixture.scene.at(max(0.0, (t * ADVANCE - LENGTH / 4) / RATE))}
        outer = x[:, :, None] * x[:, None].conj()
        for n, id in enumerate(ids):
            R[int(id in talking), n] = alpha * R[int(id in talking), n] + (1 - alpha) * outer
        L = np.linalg.cholesky(R[0])
        half = np.linalg.solve(L, R[1])
        _, vectors = np.linalg.eigh(np.linalg.solve(L, hermitian(half)))
        v = np.linalg.solve(hermitian(L), vectors[..., -1:])[..., 0]
    return istft(Y, len(mixture.x))


# ---- other packages


def beamformer(weights: str) -> Peer:
    """One beamformer of pyroomacoustics per talker."""

    def separate(mixture: Mixture) -> Array:
        angles = np.radians(AZIMUTHS)
        places = DISTANCE * np.stack([np.cos(angles), np.sin(angles), 0 * angles], axis=1)
        talkers = [pra.SoundSource(place) for place in places]
        outputs = []
        for n, talker in enumerate(talkers):
            bf = pra.Beamformer(MICROPHONES.T, RATE, N=LENGTH, Lg=LENGTH, hop=ADVANCE)
            others = {} if weights == "delay_and_sum" else {"interferer": talkers[1 - n]}
            if weights == "max_sinr":
                others["R_n"] = 1e-3 * np.eye(len(MICROPHONES))
            getattr(bf, f"rake_{weights}_weights")(talker, **others)
            bf.record(mixture.x.T, RATE)
            outputs.append(bf.process(FD=False)[: len(mixture.x)])
        length = min(map(len, outputs))
        return np.stack([y[:length] for y in outputs])

    return separate


def auxiva(mixture: Mixture) -> Array:
    """AuxIVA of pyroomacoustics: blind, 20 iterations over the whole recording."""
    X = stft(mixture.x).astype(complex)
    Y = pra.bss.auxiva(X, n_src=2, n_iter=20, proj_back=True)
    return istft(Y, len(mixture.x)).astype(np.float32)


def torch_separated(mixture: Mixture, find_covariances: Callable[[Any], Any]) -> Array:
    """Torchaudio's MVDR; find_covariances gives [talkers, K, M, M] for spectra [M, K, frames]."""
    import torch
    import torchaudio

    layout = {"n_fft": LENGTH, "hop_length": ADVANCE, "window": torch.hann_window(LENGTH)}
    X = torch.stft(torch.from_numpy(mixture.x.T.copy()), **layout, return_complex=True)
    R = find_covariances(X)
    mvdr = torchaudio.transforms.SoudenMVDR()
    out = torch.stack([mvdr(X, R[n], R[1 - n], 0) for n in range(2)])
    return torch.istft(out, **layout, length=len(mixture.x)).numpy()


def torch_mvdr(mixture: Mixture) -> Array:
    """Refinement: of covariances that the power shares of NULL's outputs weigh."""
    import torch
    import torchaudio

    def weighted(X: Any) -> Any:
        W = torch.from_numpy(np.linalg.pinv(steering(mixture)).astype(np.complex64))
        masks = torch.einsum("knm,mkt->nkt", W, X).abs() ** 2
        masks /= masks.sum(dim=0) + 1e-20
        psd = torchaudio.transforms.PSD()
        return [psd(X, mask) for mask in masks]

    return torch_separated(mixture, weighted)


def torch_mvdr_in_room(mixture: Mixture) -> Array:
    """MVDR from responses: of covariances of two seconds of white noise through them."""
    import torch

    noise = np.random.default_rng(1).standard_normal(2 * RATE)
    R = []
    for ir in mixture.responses.ir:
        X = stft(scipy.signal.fftconvolve(noise[:, None], ir.T, axes=0)).transpose(1, 2, 0)
        R.append(torch.from_numpy((X @ hermitian(X)).astype(np.complex64)))
    return torch_separated(mixture, lambda _: R)
