# SPDX-License-Identifier: Apache-2.0
"""Windows of made sounds, for a source of windows.py."""
import collections

import numpy as np

from models.sources.mixed import Stock
from models.sources.sounds import crying, home, music, voices

OTHERS = {"speech": voices.speech, "singing": voices.singing, "music": music.music, "alarm": home.alarm, "barks": voices.barks,
          "meows": voices.meows, "household": home.household, "hum": home.hum}
SHARES = (0.2, 0.17, 0.15, 0.14, 0.08, 0.1, 0.13, 0.03)  # for training
SECONDS = 15.0


class Synthetic:
    """Cuts windows out of a few long tracks of each kind, which wear out and are replaced."""

    def __init__(self, family, size=6, fresh=1 / 10):
        self.family = family
        self.tracks = collections.defaultdict(lambda: Stock(size, fresh))

    def cut(self, rng, kind, length):
        """Samples, and where in them there is crying."""
        sound, is_crying = self.tracks[kind].take(rng, self._make, kind)
        at = rng.integers(0, len(sound) - length)
        return sound[at:at + length], is_crying[at:at + length]

    def cry(self, rng, length):
        return self.cut(rng, "cry", length)

    def other(self, rng, length):
        return self.cut(rng, rng.choice(list(OTHERS), p=SHARES), length)

    def _make(self, rng, kind):
        if kind == "cry":
            return crying.cry(rng, SECONDS)
        sound = OTHERS[kind](rng, SECONDS, self.family)
        return sound, np.zeros(len(sound), bool)
