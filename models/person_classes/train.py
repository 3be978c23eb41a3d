# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of person classification."""
import functools

import cv2
import numpy as np
from torch import nn
from torch.nn import functional

from models.labels import table
from models.person_classes import data
from models.scenes import camera
from models.sources.drawn.source import TrainingStock
from models.training import examples
from models.training.layers import GlobalPooling, DepthwiseContext, convolution
from models.training.run import Phase, Recipe, run


def network():
    """Down to 7 x 7 places; what is seen on average decides, and what is seen at all."""
    return nn.Sequential(convolution(3, 16, 2), convolution(16, 24, 2), convolution(24, 32, 2), convolution(32, 40),
                         DepthwiseContext(40), convolution(40, 48, 2), convolution(48, 64), DepthwiseContext(64), GlobalPooling(),
                         nn.Linear(128, 2))


class Drawn:
    """Cut-outs of one scene after the other."""

    def __init__(self, seed):
        self.source, self.waiting = TrainingStock(1000, seed), []

    def example(self, rng, width, height):
        while not self.waiting:
            self.waiting = data.cut_outs(rng, self.source)
        return self.waiting.pop()


def sources(options):
    return examples.drawn_and_labelled(options, Drawn(options.seed), functools.partial(
        examples.LabelledCrops, layout=table.CLASSES, classes=("person", "other"), flags=cv2.IMREAD_COLOR))


def vary(rng, picture, kind, width, height):
    """Up to 8 % of each side cut off, mirrored at times, in another light."""
    left, top, right, bottom = rng.integers(0, data.SIZE * 8 // 100, 4)
    part = picture[top:data.SIZE - bottom, left:data.SIZE - right]
    part = cv2.resize(part[:, ::-1] if rng.random() < 0.5 else part, (data.SIZE, data.SIZE))
    return examples.as_input(camera.degrade(rng, np.ascontiguousarray(part), 0.6)), kind


def loss_of(module, image, kind):
    return functional.cross_entropy(module(image).float(), kind, label_smoothing=0.05)


RECIPE = Recipe("person_classes", network, ["logits"], sources, vary, [Phase(loss_of, 6000, 4e-3)], seed=13, batch=64,
                shapes={"network": (3, 112, 112)}, stock=20000, fresh=0.02, is_halved=True)

if __name__ == "__main__":
    run(RECIPE)
