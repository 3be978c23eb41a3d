# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face classes: 0 an open face, 1 a covered mouth, 2 sunglasses. Each class has a score of its
own (a sigmoid each), because the library reports the sigmoid of the largest."""
import os
import sys

import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
from models.training import crops as crop_training
from models.scenes import face_crops
from models.training import training

CLASSES = 3


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((8, 12, 16, 24, 24, 32, 32))
        self.scores = torch.nn.Sequential(torch.nn.Flatten(), torch.nn.Linear(32 * 7 * 7, CLASSES))

    def forward(self, image):
        return self.scores(self.trunk(image))


def main():
    options = crop_training.arguments(HERE)
    training.seed_all(2)
    pool = crop_training.training_pool("crops_all", options.quick, seed=1, identities=1400, views=6, covers=face_crops.ALL_COVERS)
    wanted = torch.nn.functional.one_hot(torch.from_numpy(pool["face_class"]), CLASSES).float()
    module, rng = crop_training.Scaled(Network()), numpy.random.default_rng(9)

    def loss_of(pick):
        images = crop_training.augmented(rng, pool["pixels"][pick])
        return torch.nn.functional.binary_cross_entropy_with_logits(module(images), wanted[pick])

    crop_training.fit(module, loss_of, pool, epochs=1 if options.quick else 10)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["scores"])


if __name__ == "__main__":
    main()
