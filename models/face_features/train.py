"""Trains the sample network of face features: faces of one drawn person in one direction, of others in others."""
import os
import sys

import torch

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
import crop_training  # noqa: E402
import face_crops  # noqa: E402
import training  # noqa: E402

LENGTH = 256
MARGIN, SCALE = 0.2, 24.0  # of the cosine softmax: persons have to be told apart with room between them


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((12, 20, 24, 32, 32, 48, 48))
        self.places = crop_training.convolution(48, 12, size=1)
        self.mix = torch.nn.Sequential(torch.nn.Flatten(), torch.nn.Linear(12 * 7 * 7, 64))
        self.feature = torch.nn.Linear(64, LENGTH, bias=False)

    def forward(self, image):
        return self.feature(self.mix(self.places(self.trunk(image))))


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
    pool = crop_training.training_pool("crops_open", options.quick, seed=2, identities=900, views=10, covers=face_crops.OPEN_COVERS)
    persons = torch.from_numpy(pool["person"])
    module = crop_training.Scaled(Network())
    head = Persons(int(persons.max()) + 1)
    both = torch.nn.ModuleList([module, head])
    crop_training.fit(both, lambda images, pick: head(module(images), persons[pick]), pool, epochs=1 if options.quick else 30)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["feature"])


if __name__ == "__main__":
    main()
