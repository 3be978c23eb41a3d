"""Trains the sample network of face landmarks: five points as parts of the crop's sides, yaw, pitch and roll in radians."""
import os
import sys

import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
import crop_training  # noqa: E402
import face_crops  # noqa: E402
import training  # noqa: E402


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((12, 16, 24, 32, 32, 48, 48))
        self.places = crop_training.convolution(48, 20, size=1)
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
    points = torch.from_numpy(pool["points"].reshape(-1, 10))
    pose = torch.from_numpy(numpy.radians(pool["pose"]).astype(numpy.float32))
    module = crop_training.Scaled(Network())

    def loss_of(images, pick):
        found_points, found_pose = module(images)
        return (found_points - points[pick]).abs().mean() * 10 + (found_pose - pose[pick]).abs().mean()

    crop_training.fit(module, loss_of, pool, epochs=1 if options.quick else 30)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["points", "pose"])


if __name__ == "__main__":
    main()
