# SPDX-License-Identifier: Apache-2.0
"""The byte matrix that libkelnn's cry detection network sees, computed with numpy alone.

For training: feed a network with features(window) and it meets the same bytes on the camera. The arithmetic
is the library's, operation by operation in the same precision, with the frames of a window side by side.

    pcm = np.frombuffer(..., dtype=np.int16)     # 48000 samples: 3 s, 16 kHz, mono
    matrix = features.features(pcm)        # uint8, 297 x 64; None for a window that is too quiet
"""
import math

import numpy as np

SAMPLES = 48000
FRAME = 512  # samples: 32 ms
SHIFT = 160  # samples: 10 ms
FRAMES = (SAMPLES - FRAME) // SHIFT + 1  # 297
CHANNELS = 64
LOWEST_THRESHOLD = 86046.0

_f32 = np.float32
_POINTS = FRAME // 2  # of the complex transform


def _rotation(theta, count):
    """`count` twiddle factors by the library's recurrence, as two arrays of double."""
    t = math.sin(0.5 * theta)
    wpr, wpi = -2.0 * t * t, math.sin(theta)
    wr, wi, factors = 1.0, 0.0, []
    for _ in range(count):
        factors.append((wr, wi))
        wr, wi = wr * wpr - wi * wpi + wr, wi * wpr + wr * wpi + wi
    return np.array(factors).T


def _bit_reversal(count):
    bits = count.bit_length() - 1
    return np.array([int(format(i, f"0{bits}b")[::-1], 2) for i in range(count)])


def _hamming():
    angle = np.arange(FRAME, dtype=_f32) * _f32(6.28318530717959 / (FRAME - 1))
    return np.array([0.54 - math.cos(float(a)) * 0.46 for a in angle]).astype(_f32)


def _mel(bin_number):
    fres = _f32(1e7 / (float(FRAME * 625) * 700.0))
    ratio = _f32(bin_number - 1) * fres + _f32(1.0)
    return _f32(1127.0 * math.log(float(ratio)))


def _filter_bank():
    """For the bins 2 to 256: the lower one of the two channels that a bin feeds, and its share."""
    edges = np.arange(CHANNELS + 2, dtype=_f32) / _f32(CHANNELS + 1) * _mel(_POINTS + 1)
    mels = np.array([_mel(k) for k in range(2, _POINTS + 1)], dtype=_f32)
    lower = np.searchsorted(edges[1:], mels, side="left")  # how many points lie below the bin
    share = (edges[lower + 1] - mels) / (edges[lower + 1] - edges[lower])
    return lower, share


_REVERSED = _bit_reversal(_POINTS)
_STAGES = [(d, *_rotation(6.28318530717959 / (2 * d), d)) for d in (2**i for i in range(8))]
_SPLIT = _rotation(3.14159265358979 / _POINTS, _POINTS // 2)[:, 1:]
_HAMMING = _hamming()
_LOWER, _SHARE = _filter_bank()


def _transform(re, im):
    """The complex transform of every row, stages in double, stored in single precision."""
    re, im = re[:, _REVERSED], im[:, _REVERSED]
    for distance, wr, wi in _STAGES:
        re, im = (x.reshape(len(x), -1, 2, distance) for x in (re, im))
        ar, ai = (x[:, :, 0].astype(np.float64) for x in (re, im))
        br, bi = (x[:, :, 1].astype(np.float64) for x in (re, im))
        tr, ti = wr * br - wi * bi, wr * bi + wi * br
        re = np.stack((ar + tr, ar - tr), axis=2).astype(_f32).reshape(len(re), -1)
        im = np.stack((ai + ti, ai - ti), axis=2).astype(_f32).reshape(len(im), -1)
    return re, im


def _powers(frames):
    """The power of bins 2 to 256 of every row of samples."""
    re, im = _transform(frames[:, 0::2], frames[:, 1::2])
    low, high = slice(1, _POINTS // 2), slice(_POINTS - 1, _POINTS // 2, -1)
    wr, wi = _SPLIT
    half = _f32(0.5)
    h1r = ((re[:, low] + re[:, high]) * half).astype(np.float64)
    h1i = ((im[:, low] - im[:, high]) * half).astype(np.float64)
    h2r = ((im[:, low] + im[:, high]) * half).astype(np.float64)
    h2i = ((re[:, high] - re[:, low]) * half).astype(np.float64)
    re[:, low], re[:, high] = h1r + wr * h2r - wi * h2i, h1r - wr * h2r + wi * h2i
    im[:, low], im[:, high] = h1i + wr * h2i + wi * h2r, -h1i + wr * h2i + wi * h2r
    return re[:, 1:] * re[:, 1:] + im[:, 1:] * im[:, 1:]


def is_loud_enough(pcm, gate_threshold=0.0):
    """Whether the library would look at the window: a sum in single precision, sample after sample."""
    sizes = np.abs(np.asarray(pcm, dtype=np.int32)[::10]).astype(_f32)
    return bool(np.add.accumulate(sizes)[-1] >= max(_f32(gate_threshold), _f32(LOWEST_THRESHOLD)))


def log_energies(pcm):
    """float32, 297 x 64: the logarithm of the energy in every frame and channel."""
    pcm = np.asarray(pcm, dtype=np.int16)
    if pcm.shape != (SAMPLES,):
        raise ValueError(f"a window is {SAMPLES} samples, not {pcm.shape}")
    frames = np.lib.stride_tricks.sliding_window_view(pcm, FRAME)[::SHIFT].astype(_f32)
    # Sums of 512 samples are exact in any order.
    frames -= frames.sum(axis=1, dtype=np.float64).astype(_f32)[:, None] / _f32(FRAME)
    emphasised = frames.copy()
    emphasised[:, 1:] -= frames[:, :-1] * _f32(0.97)
    emphasised[:, 0] = frames[:, 0].astype(np.float64) * (1.0 - float(_f32(0.97)))
    powers = _powers(emphasised * _HAMMING)
    shares = powers * _SHARE
    rests = powers - shares
    energies = np.zeros((FRAMES, CHANNELS + 2), dtype=_f32)
    for i, channel in enumerate(_LOWER):  # from the lowest bin to the highest
        energies[:, channel] += shares[:, i]
        energies[:, channel + 1] += rests[:, i]
    return np.log(np.maximum(energies[:, 1:-1], _f32(1.0)).astype(np.float64)).astype(_f32)


def features(pcm, gate_threshold=0.0):
    """uint8, 297 x 64, from 48000 samples of int16; None for a window that is too quiet."""
    if not is_loud_enough(pcm, gate_threshold):
        return None
    logs = log_energies(pcm)
    logs -= np.add.accumulate(logs, axis=0)[-1] / _f32(FRAMES)  # sums from the first row to the last
    clipped = np.clip(logs, _f32(-28.0), _f32(28.0)).astype(np.float64)
    return (clipped * 4.5714 + 128.0).astype(np.uint8)
