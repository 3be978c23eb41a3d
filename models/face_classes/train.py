# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face classes: 0 an open face, 1 a covered mouth, 2 sunglasses.

Each class has a score of its own (a sigmoid each), because the library reports the sigmoid of the largest.
"""
import functools

from torch import nn
from torch.nn import functional

from models.labels import table
from models.labels.making import TRAINING
from models.scenes import face_crops
from models.sources.drawn import source
from models.training import examples
from models.training.layers import face_trunk
from models.training.run import Phase, Recipe, run

CLASSES = ("open", "covered", "sunglasses")


def network():
    return nn.Sequential(face_trunk((8, 12, 16, 24, 24, 32, 32)), nn.Flatten(), nn.Linear(32 * 7 * 7, len(CLASSES)))


class Drawn(source.Drawn):
    def example(self, rng, width, height):
        crop = face_crops.crop_of(rng, self, self.identity(rng), face_crops.ALL_COVERS)
        return crop.pixels, crop.face_class


def sources(options):
    return examples.drawn_and_labelled(options, Drawn(TRAINING),
                                       functools.partial(examples.LabelledCrops, layout=table.CLASSES, classes=CLASSES))


def vary(rng, picture, kind, width, height):
    return examples.relit(rng, examples.as_input(picture)), kind


def loss_of(module, image, kind):
    return functional.binary_cross_entropy_with_logits(module(image), functional.one_hot(kind, len(CLASSES)).float())


RECIPE = Recipe("face_classes", network, ["scores"], sources, vary, [Phase(loss_of, 1310, 2e-3)], seed=2, batch=64,
                shapes=examples.FACE_CROP, stock=8400, fresh=0.02)

if __name__ == "__main__":
    run(RECIPE)
