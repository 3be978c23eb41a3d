# SPDX-License-Identifier: Apache-2.0
"""Labelled frames of persons or of things: backgrounds with cut-outs before them, seen by a camera."""
import numpy as np

from models.scenes import camera, compose
from models.sources.drawn.source import Drawn

DEGRADATION = 0.7  # light and camera: 1 is a cheap one in a dim room
FRAMES = ((640, 360), (640, 360), (480, 480), (360, 640))  # width, height


def frame(rng, source, layout, width, height):
    """(picture, labels); layout: a function of compose.py."""
    return compose.compose(source.background(rng, width, height), layout(rng, source, width, height), rng)


def examples(layout, seed, count, family):
    """For labels.making."""
    rng, source = np.random.default_rng(seed), Drawn(family)
    for number in range(count):
        picture, labels = frame(rng, source, layout, *FRAMES[number % len(FRAMES)])
        yield f"{number:04}.jpg", camera.degrade(rng, picture, DEGRADATION), labels
