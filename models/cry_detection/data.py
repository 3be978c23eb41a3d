# SPDX-License-Identifier: Apache-2.0
"""Makes labelled windows of 3 s for the cry detector: FLAC files.

Without --training the held-out set: other seeds, other voices, languages and texts, other instruments, alarms and noises.
"""
import numpy as np

from models.labels import making, table
from models.sources.sounds import windows
from models.sources.sounds.synthetic import Synthetic


def examples(seed, count, family):
    rng, source = np.random.default_rng([seed, family == making.HELD_OUT]), Synthetic(family)
    for i in range(count):
        pcm, kind = windows.window(rng, source)
        yield f"{i:05}_{kind}.flac", pcm, [[int(kind == "cry"), kind]]


if __name__ == "__main__":
    making.make(__doc__, table.SOUNDS, examples, seed=1, count=2000)
