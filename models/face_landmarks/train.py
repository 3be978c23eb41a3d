# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face landmarks: five points as parts of the crop's sides, yaw, pitch and roll in radians."""
import functools

import numpy as np
import torch
from torch import nn

from models.labels import table
from models.labels.making import TRAINING
from models.scenes import face_crops
from models.sources.bodies.cut_outs import Rendered
from models.sources.drawn import source
from models.sources.mixed import Mixed
from models.sources.photos.photographs import Empty
from models.training import examples
from models.training.layers import convolution, face_trunk
from models.training.run import Phase, Recipe, run

MIRRORED = [1, 0, 2, 4, 3]  # where each of the five points is in a mirror


class Network(nn.Module):
    def __init__(self):
        super().__init__()
        self.mix = nn.Sequential(face_trunk((16, 24, 40, 56, 56, 80, 80)), convolution(80, 24, size=1), nn.Flatten(),
                                 nn.Linear(24 * 7 * 7, 64), nn.ReLU())
        self.points = nn.Linear(64, 10)
        self.pose = nn.Linear(64, 3)
        nn.init.constant_(self.points.bias, 0.5)

    def forward(self, image):
        mixed = self.mix(image)
        return self.points(mixed), self.pose(mixed)


class Labelled(examples.LabelledCrops):
    def example(self, rng, width, height):
        picture, values, (left, top, side) = self.crop(self.rows[rng.integers(len(self.rows))], width)
        points = (np.array(values[:10]).reshape(5, 2) - (left, top)) / side
        return picture, points, np.array(values[10:] or [np.nan] * 3)


class Drawn(source.Drawn):
    def example(self, rng, width, height):
        crop = face_crops.crop_of(rng, self, self.identity(rng), face_crops.ALL_COVERS)
        return crop.pixels, crop.points, crop.pose


class Figures:
    def __init__(self, source):
        self.source = source

    def example(self, rng, width, height):
        crop = face_crops.crop_of_figure(rng, self.source)
        return crop.pixels, crop.points, crop.pose


def sources(options):
    """Drawn heads; rendered ones, before drawn backgrounds and photographs without faces."""
    drawn = Drawn(TRAINING)
    made: list = [(0.4, drawn)]
    if options.rendered:
        parts = [Rendered(options.rendered), drawn] + ([Empty(options.empty)] if options.empty else [])
        made.append((0.6, Figures(Mixed([(1, part) for part in parts]))))
    return examples.drawn_and_labelled(options, Mixed(made), functools.partial(Labelled, layout=table.POINTS))


def vary(rng, picture, points, pose, width, height):
    """Cut a little elsewhere, turned, some mirrored, some partly hidden: an input, ten numbers, the pose in radians."""
    turn = 4.0 if rng.random() < 0.6 else 14.0
    picture, points, degrees, is_mirrored = examples.moved(rng, examples.partly_hidden(rng, picture), points * width, turn)
    pose = pose + (0, 0, degrees)
    if is_mirrored:
        points, pose = points[MIRRORED], pose * (-1, 1, -1)
    return (examples.relit(rng, examples.as_input(picture)), (points / width).ravel().astype(np.float32),
            np.radians(pose).astype(np.float32))


def loss_of(module, image, points, pose):
    found_points, found_pose = module(image)
    turned = torch.nan_to_num(found_pose - pose, 0.0)  # what is not labelled does not count
    return (found_points - points).abs().mean() * 10 + turned.abs().mean() * 0.5


RECIPE = Recipe("face_landmarks", Network, ["points", "pose"], sources, vary, [Phase(loss_of, 4000, 3e-3)], seed=1, batch=64,
                shapes=examples.FACE_CROP, stock=6000, fresh=0.02, is_halved=True,
                takes=("rendered", "empty"))

if __name__ == "__main__":
    run(RECIPE)
