# SPDX-License-Identifier: Apache-2.0
"""Makes labelled cut-outs, 112 x 112.

Class 0: a person, in a box as a detector finds it; class 1: another thing, or a part of the background.
"""
import cv2
import numpy as np

from models.labels import boxes, making, table
from models.scenes import camera, compose
from models.sources.drawn.source import DISTRACTORS, KINDS, Drawn

SIZE = 112
FRAME = (640, 360)
PERSON, OTHER = 0, 1


def things_in_frame(rng, source, width, height):
    """Persons and other things, both labelled, some of the things as high as a person."""
    things = []
    for _ in range(rng.integers(1, 5)):
        cut_out = compose.scaled(source.person(rng), compose.person_height(rng, height), rng)
        things.append(compose.Thing(cut_out, compose.stand(rng, cut_out, width, height), PERSON))
    for _ in range(rng.integers(1, 5)):
        cut_out = compose.scaled(source.thing(rng, DISTRACTORS + KINDS)[1],
                                 np.exp(rng.uniform(np.log(0.15), np.log(0.95))) * height, rng)
        things.append(compose.Thing(cut_out, compose.stand(rng, cut_out, width, height), OTHER))
    return things


def jittered(rng, box):
    """As a detector finds it: moved by up to 10 % of its size, up to 15 % larger or smaller; a square at times."""
    x, y, w, h = box
    centre_x, centre_y = x + w * (0.5 + rng.uniform(-0.1, 0.1)), y + h * (0.5 + rng.uniform(-0.1, 0.1))
    w, h = w * np.exp(rng.uniform(-0.15, 0.15)), h * np.exp(rng.uniform(-0.15, 0.15))
    if rng.random() < 0.3:
        w = h = max(w, h)
    return centre_x - w / 2, centre_y - h / 2, w, h


def cut(picture, box):
    """The box, cut off at the picture's edges and stretched to SIZE x SIZE, or None where little is left."""
    height, width = picture.shape[:2]
    left, top = max(int(box[0]), 0), max(int(box[1]), 0)
    right, bottom = min(int(box[0] + box[2]), width), min(int(box[1] + box[3]), height)
    if right - left < 12 or bottom - top < 24:
        return None
    part = picture[top:bottom, left:right]
    shrinks = part.shape[0] > SIZE or part.shape[1] > SIZE
    return cv2.resize(part, (SIZE, SIZE), interpolation=cv2.INTER_AREA if shrinks else cv2.INTER_LINEAR)


def background_box(rng):
    """A place as large as a person may be."""
    height = rng.uniform(0.15, 0.95) * FRAME[1]
    width = height * rng.uniform(0.25, 0.9)
    return rng.uniform(0, FRAME[0] - width), rng.uniform(0, FRAME[1] - height), width, height


def shows_person(box, labels):
    """Whether a person's box takes a tenth of this one, or a third of a person's is in it."""
    place = np.array(boxes.corners(box))
    persons = np.array([boxes.corners(label[1:]) for label in labels if label[0] == PERSON]).reshape(-1, 4)
    both = boxes.shared(place, persons)
    return bool(np.any((both > 0.1 * boxes.area(place)) | (both > 0.33 * boxes.area(persons))))


def cut_outs(rng, source):
    """[(picture, class)] of one scene: as many persons as others."""
    background = source.background(rng, *FRAME)
    picture, labels = compose.compose(background, things_in_frame(rng, source, *FRAME), rng)
    picture = camera.degrade(rng, picture)
    persons = [jittered(rng, label[1:]) for label in labels if label[0] == PERSON]
    others = [jittered(rng, label[1:]) for label in labels if label[0] == OTHER]
    others = [box for box in others + [background_box(rng) for _ in range(3)] if not shows_person(box, labels)]
    rng.shuffle(others)
    pictures = [(cut(picture, box), kind) for pair in zip(persons, others) for box, kind in zip(pair, (PERSON, OTHER))]
    return [(part, kind) for part, kind in pictures if part is not None]


def examples(seed, count, family):
    rng, source = np.random.default_rng(seed), Drawn(family)
    made = 0
    while made < count:
        for picture, kind in cut_outs(rng, source)[:count - made]:
            yield f"{made:05}.png", picture, [[kind]]
            made += 1


if __name__ == "__main__":
    making.make(__doc__, table.CLASSES, examples, seed=1000, count=1000)
