# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face features.

A drawn person is a record of what it is drawn from: widths, distances, kind of hair, beard, glasses. The network learns to
read that record from a crop, every entry scaled to count alike. Then it learns to compare: an entry that is read badly, or
that many persons share, comes to count less. Of rendered people and others who are no drawings it learns to compare alone, for
which it has as many entries again as it likes. The feature is all of them, turned into 256 values.
"""
import collections

import numpy as np
import torch
from torch import nn
from torch.nn import functional

from models.labels import table
from models.labels.making import TRAINING
from models.scenes import face_crops
from models.sources.bodies.cut_outs import Rendered
from models.sources.drawn import source
from models.sources.mixed import Mixed
from models.sources.photos.photographs import Empty, Photographs
from models.training import examples
from models.training.layers import convolution, face_trunk
from models.training.run import Phase, Recipe, run

LENGTH = 256
FREE = 60  # entries that are none of the record's
ALIGNED = 0.5  # the share of crops that are aligned; the others are cut by a box
VIEWS = 4  # of a person in a batch
KINDS = {"hair": ("bald", "short", "parted", "long", "curly", "bun"), "beard": ("none", "stubble", "full", "moustache", "chin"),
         "glasses": ("none", "round", "square")}
COLOURS = ("skin", "hair_colour", "iris")
MEASURES = ("width", "jaw", "forehead", "eye_x", "eye_y", "eye_width", "eye_height", "eye_tilt", "brow_gap", "brow_thickness",
            "brow_tilt", "nose_y", "nose_width", "mouth_y", "mouth_width", "lip", "ear", "fringe", "cheeks")
RECORD = len(MEASURES) + len(COLOURS) + sum(len(kinds) for kinds in KINDS.values())
NOBODYS = np.full(RECORD, np.nan)  # the record of who is no drawing


def record_of(identity):
    values = [getattr(identity, name) for name in MEASURES]
    values += [float(np.dot(getattr(identity, name), (0.114, 0.587, 0.299))) for name in COLOURS]  # as grey
    for name, kinds in KINDS.items():
        values += [float(getattr(identity, name) == kind) for kind in kinds]
    return np.array(values)


class Network(nn.Module):
    def __init__(self):
        super().__init__()
        self.read = nn.Sequential(face_trunk((16, 32, 48, 64, 64, 88, 88)), convolution(88, 20, size=1),
                                  nn.Conv2d(20, RECORD + FREE, 7), nn.Flatten())
        self.feature = nn.Linear(RECORD + FREE, LENGTH, bias=False)
        nn.init.orthogonal_(self.feature.weight)  # angles between records stay as they are
        self.feature.weight.requires_grad = False
        self.threshold = nn.Parameter(torch.tensor(0.4))  # of the cosine; learnt with the rest, not exported

    def forward(self, image):
        return self.feature(self.read(image))


class Labelled(examples.LabelledCrops):
    def __init__(self, directory):
        super().__init__(directory, table.PERSONS)
        self.of_person = collections.defaultdict(list)
        for row in self.rows:
            self.of_person[row[1][0][0]].append(row)

    def example(self, rng, width, height):
        person = rng.integers(len(self.of_person))
        rows = list(self.of_person.values())[person]
        views = [self.crop(rows[rng.integers(len(rows))], width)[0] for _ in range(VIEWS)]
        return views, NOBODYS, -1 - person


class People:
    """Rendered ones, everybody in several poses, before the backgrounds of a source."""

    def __init__(self, rendered, backgrounds):
        self.rendered, self.backgrounds, self.persons = rendered, backgrounds, rendered.views()
        if not self.persons:
            raise table.Invalid(f"{rendered.directory}: nobody is there twice; models.sources.bodies.cut_outs --busts makes them")

    def example(self, rng, width, height):
        person = int(rng.integers(len(self.persons)))
        rows = self.persons[person]
        views = [face_crops.crop_of_figure(rng, self.backgrounds, self.rendered.with_points(rng, rows[number]), ALIGNED).pixels
                 for number in rng.choice(len(rows), VIEWS, replace=len(rows) < VIEWS)]
        return views, NOBODYS, (1 << 40) + person


class Drawn(source.Drawn):
    def __init__(self, family):
        super().__init__(family)
        rng = np.random.default_rng(2)
        made = np.array([record_of(self.identity(rng)) for _ in range(2000)])
        self.mean, self.deviation = made.mean(axis=0), made.std(axis=0)

    def example(self, rng, width, height):
        identity = self.identity(rng)
        views = [face_crops.crop_of(rng, self, identity, face_crops.OPEN_COVERS, ALIGNED).pixels for _ in range(VIEWS)]
        return views, (record_of(identity) - self.mean) / self.deviation, rng.integers(1 << 40)


def sources(options):
    made: list = [(0.4, Drawn(TRAINING))]
    if options.rendered:
        backgrounds: list = [(0.2, made[0][1])]
        if options.photos:
            backgrounds.append((0.5, Photographs(options.photos, ())))
        if options.empty:
            backgrounds.append((0.3, Empty(options.empty)))
        made.append((0.6, People(Rendered(options.rendered), Mixed(backgrounds))))
    return examples.drawn_and_labelled(options, Mixed(made), Labelled)


def vary(rng, views, record, person, width, height):
    cut = [examples.moved(rng, examples.partly_hidden(rng, view, 0.1), turn=3.0, scale=0.04, shift=0.03)[0] for view in views]
    return (np.stack([examples.relit(rng, examples.as_input(view)) for view in cut]),
            np.tile(record.astype(np.float32), (VIEWS, 1)), np.full(VIEWS, person))


def reading_loss(module, image, record, person):
    wrong = torch.nan_to_num(module.read(image.flatten(0, 1))[:, :RECORD] - record.flatten(0, 1), 0.0)
    return wrong.square().mean()


def comparing_loss(module, image, record, person, slope=12.0):
    """Of every two crops: the cosine above the threshold for one person, below it for two, and higher for one person than for
    all others of the batch together; records stay near what they were."""
    person, read = person.flatten(), module.read(image.flatten(0, 1))
    features = functional.normalize(read.float(), dim=1)
    distance = slope * (features @ features.T - module.threshold)
    same = person[:, None] == person[None]
    pairs = same & ~torch.eye(len(person), dtype=torch.bool, device=same.device)
    wrong = torch.nan_to_num(read[:, :RECORD] - record.flatten(0, 1), 0.0)
    told_apart = functional.softplus(-distance[pairs]).mean() + functional.softplus(distance[~same]).mean()
    others = distance.masked_fill(same, -torch.inf).logsumexp(1, keepdim=True).expand_as(distance)
    return told_apart + 0.3 * functional.softplus(others - distance)[pairs].mean() + 0.2 * wrong.square().mean()


RECIPE = Recipe("face_features", Network, ["feature"], sources, vary,
                [Phase(reading_loss, 900, 3e-3), Phase(comparing_loss, 2000, 2e-3),
                 Phase(comparing_loss, 300, 5e-4, keeps_normalisations=True)],
                seed=3, batch=24, shapes=examples.FACE_CROP, stock=4000, fresh=0.02, is_halved=True,
                takes=("photos", "empty", "rendered"))

if __name__ == "__main__":
    run(RECIPE)
