"""Trains the sample network of face features: faces of one drawn person in one direction, of others in others."""
import os
import sys

import cv2
import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
import crop_training  # noqa: E402
import face_crops  # noqa: E402
import training  # noqa: E402

LENGTH = 256
MARGIN, SCALE = 0.15, 20.0  # of the cosine softmax: persons have to be told apart with room between them


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((12, 20, 24, 32, 32, 40, 40))
        self.places = crop_training.convolution(40, 14, size=1)
        self.mix = torch.nn.Sequential(torch.nn.Conv2d(14, 44, 7, bias=False), torch.nn.BatchNorm2d(44), torch.nn.Flatten())
        self.feature = torch.nn.Linear(44, LENGTH, bias=False)

    def forward(self, image):
        return self.feature(self.mix(self.places(self.trunk(image))))


def moved(rng, pixels):
    """The same crops, cut a little elsewhere, some mirrored."""
    pixels, size = pixels.copy(), face_crops.SIZE
    for i in range(len(pixels)):
        matrix = cv2.getRotationMatrix2D((size / 2, size / 2), rng.normal(0, 3), numpy.exp(rng.normal(0, 0.04)))
        matrix[:, 2] += rng.normal(0, 0.03 * size, 2)
        pixels[i] = cv2.warpAffine(pixels[i], matrix, (size, size), borderMode=cv2.BORDER_REPLICATE)
        if rng.random() < 0.5:
            pixels[i] = pixels[i, :, ::-1]
    return pixels


class Persons(torch.nn.Module):
    """A direction for each person of the training set; thrown away afterwards."""

    def __init__(self, count):
        super().__init__()
        self.directions = torch.nn.Parameter(torch.randn(count, LENGTH))

    def forward(self, features, persons):
        cosines = torch.nn.functional.linear(torch.nn.functional.normalize(features),
                                             torch.nn.functional.normalize(self.directions))
        margin = MARGIN * torch.nn.functional.one_hot(persons, cosines.shape[1])
        return torch.nn.functional.cross_entropy(SCALE * (cosines - margin), persons)


def main():
    options = crop_training.arguments(HERE)
    training.seed_all(3)
    pool = crop_training.training_pool("crops_features", options.quick, seed=2, identities=1900, views=9, covers=face_crops.OPEN_COVERS)
    persons = torch.from_numpy(pool["person"])
    module = crop_training.Scaled(Network())
    head = Persons(int(persons.max()) + 1)
    both, rng = torch.nn.ModuleList([module, head]), numpy.random.default_rng(9)

    def loss_of(pick):
        return head(module(crop_training.augmented(rng, moved(rng, pool["pixels"][pick]))), persons[pick])

    crop_training.fit(both, loss_of, pool, epochs=1 if options.quick else 24)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["feature"])


if __name__ == "__main__":
    main()
