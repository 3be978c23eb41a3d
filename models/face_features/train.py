# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face features.

A drawn person is a record of what it is drawn from: widths, distances, kind of hair, beard, glasses. The network learns to
read that record from a crop, every entry scaled to count alike. Then it learns to compare: an entry that is read badly, or
that many persons share, comes to count less. The feature is the record, turned into 256 values.
"""
import os
import sys

import cv2
import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
from models.training import crops as crop_training
from models.scenes import face_crops
from models.sources.drawn import faces
from models.training import layers
from models.training import training

LENGTH = 256
KINDS = {"hair": ("bald", "short", "parted", "long", "curly", "bun"), "beard": ("none", "stubble", "full", "moustache", "chin"),
         "glasses": ("none", "round", "square")}
COLOURS = ("skin", "hair_colour", "iris")
MEASURES = ("width", "jaw", "forehead", "eye_x", "eye_y", "eye_width", "eye_height", "eye_tilt", "brow_gap", "brow_thickness",
            "brow_tilt", "nose_y", "nose_width", "mouth_y", "mouth_width", "lip", "ear", "fringe", "cheeks")
ENTRIES = len(MEASURES) + len(COLOURS) + sum(len(kinds) for kinds in KINDS.values())


def record_of(identity):
    values = [getattr(identity, name) for name in MEASURES]
    values += [float(numpy.dot(getattr(identity, name), (0.114, 0.587, 0.299))) for name in COLOURS]  # as grey
    for name, kinds in KINDS.items():
        values += [float(getattr(identity, name) == kind) for kind in kinds]
    return values


def records(seed, persons):
    """Of every person of the pool, each entry with mean 0 and deviation 1."""
    made = numpy.array([record_of(faces.random_identity(numpy.random.default_rng([seed, person]))) for person in range(persons)])
    deviation = numpy.maximum(made.std(axis=0), 1e-6)  # 0 where few persons have all the same kind
    return torch.from_numpy(((made - made.mean(axis=0)) / deviation).astype(numpy.float32))


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.trunk = crop_training.trunk((12, 20, 24, 32, 32, 40, 40))
        self.places = layers.convolution(40, 16, size=1)
        self.record = torch.nn.Sequential(torch.nn.Conv2d(16, ENTRIES, 7), torch.nn.Flatten())
        self.feature = torch.nn.Linear(ENTRIES, LENGTH, bias=False)
        with torch.no_grad():  # orthogonal: angles between records stay as they are
            self.feature.weight.copy_(torch.linalg.qr(torch.randn(LENGTH, ENTRIES))[0])
        self.feature.weight.requires_grad = False

    def read(self, image):
        return self.record(self.places(self.trunk(image)))

    def forward(self, image):
        return self.feature(self.read(image))


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


def pair_loss(records_read, person, threshold, slope=12.0):
    """Of every two crops: the cosine above the threshold for one person, below it for two."""
    features = torch.nn.functional.normalize(records_read, dim=1)
    distance = slope * (features @ features.T - threshold)
    same = person[:, None] == person[None]
    pairs = same & ~torch.eye(len(person), dtype=torch.bool)
    return torch.nn.functional.softplus(-distance[pairs]).mean() + torch.nn.functional.softplus(distance[~same]).mean()


def learn_to_compare(module, pool, wanted, steps, rng, persons=24, views=4, rate=1e-3):
    """Batches of several crops of each of some persons; records stay near what they were."""
    number_of = torch.from_numpy(pool["person"])
    crops_of = [numpy.flatnonzero(pool["person"] == number) for number in numpy.unique(pool["person"])]
    threshold = torch.tensor(0.4, requires_grad=True)
    learned = [weight for weight in module.parameters() if weight.requires_grad] + [threshold]
    optimizer = torch.optim.AdamW(learned, lr=rate, weight_decay=1e-4)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, rate, total_steps=steps, pct_start=0.1)
    progress, mean = training.Progress(steps), None
    module.eval()  # the normalisations stay as they are
    for _ in range(steps):
        who = rng.choice(len(crops_of), persons, replace=False)
        pick = numpy.concatenate([rng.choice(crops_of[number], views, replace=False) for number in who])
        found = module.network.read(crop_training.augmented(rng, moved(rng, pool["pixels"][pick])))
        loss = pair_loss(found, number_of[pick], threshold) + 0.2 * torch.nn.functional.mse_loss(found, wanted[pick])
        optimizer.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(learned, 5)
        optimizer.step()
        schedule.step()
        mean = loss.item() if mean is None else 0.98 * mean + 0.02 * loss.item()
        progress.step("pairs %.4f, threshold %.2f" % (mean, threshold.item()))


def main():
    options = crop_training.arguments(HERE)
    training.seed_all(3)
    pool = crop_training.training_pool("crops_features", options.quick, seed=2, identities=1900, views=9, covers=face_crops.OPEN_COVERS)
    wanted = records(2, int(pool["person"].max()) + 1)[torch.from_numpy(pool["person"])]
    module, rng = crop_training.Scaled(Network()), numpy.random.default_rng(9)

    def loss_of(pick):
        images = crop_training.augmented(rng, moved(rng, pool["pixels"][pick]))
        return torch.nn.functional.mse_loss(module.network.read(images), wanted[pick])

    crop_training.fit(module, loss_of, pool, epochs=1 if options.quick else 9)
    learn_to_compare(module, pool, wanted, 20 if options.quick else 1200, rng)
    training.export_onnx(module, options.out, [1, 1, 112, 112], ["feature"])


if __name__ == "__main__":
    main()
