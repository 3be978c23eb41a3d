# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of cry detection: from 297 x 64 bytes, as libkelnn computes them, to two scores."""
import numpy
from torch import nn
from torch.nn import functional

from models.cry_detection import features
from models.labels.making import TRAINING
from models.sources.sounds import windows
from models.sources.sounds.synthetic import Synthetic
from models.training.layers import MeanAndMaximum, trunk
from models.training.run import Phase, Recipe, run


def network():
    return nn.Sequential(trunk(1, (12, 16, 24, 32, 40, 48), (2, 2, 2, 1, 2, 1)), MeanAndMaximum(), nn.Linear(96, 2))


class Windows:
    """Features of windows that pass the loudness gate."""

    def __init__(self, source):
        self.source = source

    def example(self, rng, width, height):
        while True:
            pcm, kind = windows.window(rng, self.source)
            matrix = features.features(pcm)
            if matrix is not None:
                return matrix, int(kind == "cry")


def sources(options):
    return Windows(Synthetic(TRAINING))


def vary(rng, matrix, is_cry, width, height):
    """Moved in time, a little in frequency, in other levels."""
    image = numpy.roll(matrix, rng.integers(height), axis=0).astype(numpy.float32) - 128
    image = image * rng.uniform(0.85, 1.15) + rng.normal(0, 4) + rng.normal(0, 3) * numpy.linspace(-1, 1, width)
    return numpy.clip(image, -128, 127).astype(numpy.float32)[None], is_cry


def loss_of(module, image, is_cry):
    return functional.cross_entropy(module(image), is_cry, label_smoothing=0.02)


RECIPE = Recipe("cry_detection", network, ["scores"], sources, vary, [Phase(loss_of, 3000, 3e-3)], seed=6, batch=32,
                shapes={"network": (1, features.FRAMES, features.CHANNELS)}, stock=4800, fresh=0.02)

if __name__ == "__main__":
    run(RECIPE)
