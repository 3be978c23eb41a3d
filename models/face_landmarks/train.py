# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face landmarks: five points as parts of the crop's sides, yaw, pitch and roll in radians."""
import os
import sys

import cv2
import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
from models.training import crops as crop_training
from models.scenes import face_crops
from models.training import layers
from models.training import training


MIRRORED = [1, 0, 2, 4, 3]  # where each of the five points is in a mirror


def moved(rng, pixels, points, pose):
    """The same crops, cut a little elsewhere, turned, some mirrored: pixels, points, pose in radians."""
    pixels, points, pose = pixels.copy(), points.copy(), numpy.radians(pose)
    for i in range(len(pixels)):
        turn, scale = rng.normal(0, 0.07), numpy.exp(rng.normal(0, 0.06))
        size, middle = face_crops.SIZE, face_crops.SIZE / 2
        matrix = cv2.getRotationMatrix2D((middle, middle), -numpy.degrees(turn), scale)
        matrix[:, 2] += rng.normal(0, 0.035 * size, 2)
        pixels[i] = cv2.warpAffine(pixels[i], matrix, (size, size), borderMode=cv2.BORDER_REPLICATE)
        points[i] = (points[i] * size @ matrix[:, :2].T + matrix[:, 2]) / size
        pose[i, 2] += turn
        if rng.random() < 0.5:
            pixels[i] = pixels[i, :, ::-1]
            points[i] = points[i, MIRRORED] * (-1, 1) + (1, 0)
            pose[i] *= (-1, 1, -1)
    return pixels, points, pose


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((12, 16, 24, 32, 32, 48, 48))
        self.places = layers.convolution(48, 20, size=1)
        self.mix = torch.nn.Sequential(torch.nn.Flatten(), torch.nn.Linear(20 * 7 * 7, 40), torch.nn.ReLU())
        self.points = torch.nn.Linear(40, 10)
        self.pose = torch.nn.Linear(40, 3)
        torch.nn.init.constant_(self.points.bias, 0.5)

    def forward(self, image):
        mixed = self.mix(self.places(self.trunk(image)))
        return self.points(mixed), self.pose(mixed)


def main():
    options = crop_training.arguments(HERE)
    training.seed_all(1)
    pool = crop_training.training_pool("crops_all", options.quick, seed=1, identities=1400, views=6, covers=face_crops.ALL_COVERS)
    module, rng = crop_training.Scaled(Network()), numpy.random.default_rng(9)

    def loss_of(pick):
        pixels, points, pose = moved(rng, pool["pixels"][pick], pool["points"][pick], pool["pose"][pick])
        found_points, found_pose = module(crop_training.augmented(rng, pixels))
        wanted_points = torch.from_numpy(points.reshape(-1, 10).astype(numpy.float32))
        wanted_pose = torch.from_numpy(pose.astype(numpy.float32))
        return (found_points - wanted_points).abs().mean() * 10 + (found_pose - wanted_pose).abs().mean() * 0.5

    crop_training.fit(module, loss_of, pool, epochs=1 if options.quick else 30)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["points", "pose"])


if __name__ == "__main__":
    main()
