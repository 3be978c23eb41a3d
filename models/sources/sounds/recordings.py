# SPDX-License-Identifier: Apache-2.0
"""Recorded sounds of a labelled directory, as a source of windows for training."""
import math

import numpy as np
import scipy.ndimage
import scipy.signal
import soundfile

from models.labels import table
from models.sources.sounds.signal import RATE, rms

FRAME = RATE // 50  # samples
FAINTEST = 35  # decibels below the loudest parts: what is fainter is no crying


class Recordings:
    """Has cry() where there are cries, and other() where there are other sounds."""

    def __init__(self, directory):
        self.cries: list = []
        self.kinds: dict = {}
        for path, [(is_cry, kind)] in table.read(directory, table.SOUNDS, ("other", "cry")):
            sound = read(path)
            sound /= rms(sound)
            if is_cry:
                self.cries.append((sound, where_loud(sound)))
            else:
                self.kinds.setdefault(kind, []).append((sound, np.zeros(len(sound), bool)))
        if self.cries:
            self.cry = lambda rng, length: cut(rng, self.cries, length)
        if self.kinds:
            self.other = lambda rng, length: cut(rng, self.kinds[rng.choice(list(self.kinds))], length)


def read(path):
    """Mono, 16 kHz, floats of single precision."""
    try:
        sound, rate = soundfile.read(path, dtype="float32", always_2d=True)
    except (OSError, RuntimeError) as error:
        raise table.Invalid(f"{path}: {error}") from error
    common = math.gcd(rate, RATE)
    return scipy.signal.resample_poly(sound.mean(axis=1), RATE // common, rate // common)


def where_loud(sound):
    """For each sample, whether it belongs to the crying rather than to the pauses."""
    power = scipy.ndimage.uniform_filter1d(sound.astype(float) ** 2, FRAME)
    return power > np.percentile(power, 95) * 10 ** (-FAINTEST / 10)


def cut(rng, sounds, length):
    """A window of one of them, which is repeated if it is shorter."""
    sound, is_crying = sounds[rng.integers(len(sounds))]
    at = rng.integers(0, max(1, len(sound) - length))
    return np.resize(sound[at:], length), np.resize(is_crying[at:], length)
