# SPDX-License-Identifier: Apache-2.0
"""Drawn persons, things, faces and backgrounds as a source of scenes."""
import collections
import functools

import numpy as np

from models.labels.making import TRAINING
from models.sources.drawn import backgrounds, faces, objects, people
from models.sources.mixed import Stock

KINDS, DISTRACTORS = objects.KINDS, objects.DISTRACTORS
COVERS = ["none"] * 14 + ["cap", "cap", "hand", "mask", "scarf", "sunglasses"]


class Drawn:
    """Draws everything anew, but for heads, of which there are `head_count` of the seed's."""

    def __init__(self, family, pixels=360, seed=0, head_count=300):
        self.family, self.pixels, self.head_count = family, pixels, head_count
        self._head = functools.lru_cache(None)(functools.partial(draw_head, seed))

    def background(self, rng, width, height):
        return backgrounds.background(rng, width, height, self.family)

    def person(self, rng):
        return people.draw_person(rng, self.family, self.pixels)

    def thing(self, rng, kinds):
        kind = kinds[rng.integers(len(kinds))]
        return kind, objects.draw_object(rng, self.family, kind, self.pixels)

    def head(self, rng):
        return self._head(int(rng.integers(self.head_count)))

    def identity(self, rng):
        return faces.random_identity(rng)

    def portrait(self, rng, identity, covers):
        """A cut-out of the head, its box, five points, yaw, pitch and roll in degrees, what covers it."""
        view = faces.random_view(rng, covers=covers)
        return (*faces.render(identity, view), (view.yaw, view.pitch, view.roll), view.cover)


def draw_head(seed, number):
    rng = np.random.default_rng([seed, number])
    return faces.render(faces.random_identity(rng), faces.random_view(rng, covers=COVERS))[:2]


class TrainingStock(Drawn):
    """For training, in its textures: persons and things are used several times."""

    def __init__(self, size, seed):
        super().__init__(TRAINING, 260, seed, size)
        self.stocks = collections.defaultdict(lambda: Stock(size, 0.02))

    def person(self, rng):
        return self.stocks["person"].take(rng, super().person)

    def thing(self, rng, kinds):
        kind = kinds[rng.integers(len(kinds))]
        return self.stocks[kind].take(rng, super().thing, (kind,))
