# SPDX-License-Identifier: Apache-2.0
"""Makes frames labelled with faces (class 0), of several sizes and shapes."""
import numpy as np

from models.labels import making, table
from models.scenes import face_frames
from models.sources.drawn.source import Drawn

FRAMES = ((640, 360), (640, 480), (320, 240), (480, 480), (360, 640))
LEAST = 14  # pixels of the network's input


def examples(seed, count, family):
    source = Drawn(family, seed=seed)
    for n in range(count):
        width, height = FRAMES[n % len(FRAMES)]
        picture, boxes = face_frames.scene(np.random.default_rng([seed, 1, n]), source, width, height,
                                           LEAST * max(width / 320, height / 240))
        yield f"frame_{n:04}.jpg", picture, [[0] + [f"{v:.1f}" for v in box] for box in boxes]


if __name__ == "__main__":
    making.make(__doc__, table.BOXES, examples, seed=104, count=300)
