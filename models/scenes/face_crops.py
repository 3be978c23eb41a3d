# SPDX-License-Identifier: Apache-2.0
"""Crops of drawn faces, 112 x 112 grey, as a face detector's boxes would cut them: for landmarks, features and classes.

    for crop in crops(seed=1, identities=10, views=4, family=drawing.TRAINING, covers=ALL_COVERS): ...
"""
import dataclasses
import multiprocessing
import os

import cv2
import numpy

from models.sources.drawn import drawing
from models.sources.drawn import faces

SIZE = 112
OPEN, MOUTH_COVERED, SUNGLASSES = range(3)  # the classes of face_classes
CLASS_OF_COVER = {"none": OPEN, "cap": OPEN, "hand": OPEN, "mask": MOUTH_COVERED, "scarf": MOUTH_COVERED,
                  "sunglasses": SUNGLASSES}
# With their frequencies: nearly as many of each class.
ALL_COVERS = ["none"] * 8 + ["cap"] * 2 + ["hand"] * 2 + ["mask"] * 5 + ["scarf"] * 4 + ["sunglasses"] * 8
SOME_COVERS = ["none"] * 14 + ["cap"] * 2 + ["hand"] * 3 + ["mask"] * 2 + ["scarf"] + ["sunglasses"] * 3
OPEN_COVERS = ["none"] * 8 + ["cap"] + ["hand"]


@dataclasses.dataclass
class Crop:
    pixels: numpy.ndarray  # SIZE x SIZE, grey
    points: numpy.ndarray  # five, in parts of the crop's sides
    pose: numpy.ndarray    # yaw, pitch, roll in degrees
    person: int
    face_class: int


def crops(seed, identities, views, family, covers):
    """`views` crops of each of `identities` persons; the same seed gives the same crops."""
    return crops_of(range(identities), seed, views, family, covers)


def crops_of(persons, seed, views, family, covers):
    for person in persons:
        rng = numpy.random.default_rng([seed, person])
        identity = faces.random_identity(rng)
        for _ in range(views):
            yield crop_of(rng, person, identity, family, covers)


def crop_of(rng, person, identity, family, covers):
    view = faces.random_view(rng, covers=covers)
    head, box, points = faces.render(identity, view)
    picture = drawing.background(rng, faces.CANVAS, faces.CANVAS, family)
    _shoulders(rng, picture)
    alpha = head[..., 3:].astype(numpy.float32) / 255
    picture = (head[..., :3] * alpha + picture * (1 - alpha)).astype(numpy.uint8)
    if rng.random() < 0.4:
        picture = _far_away(rng, picture)
    picture = drawing.degrade(rng, picture, 0.9)
    left, top, right, bottom = _cut(rng, box)
    matrix = numpy.float32([[SIZE / (right - left), 0, -left * SIZE / (right - left)],
                            [0, SIZE / (bottom - top), -top * SIZE / (bottom - top)]])
    cut = cv2.warpAffine(picture, matrix, (SIZE, SIZE), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
    parts = (points - (left, top)) / (right - left, bottom - top)
    return Crop(cv2.cvtColor(cut, cv2.COLOR_BGR2GRAY), parts.astype(numpy.float32),
                numpy.float32([view.yaw, view.pitch, view.roll]), person, CLASS_OF_COVER[view.cover])


def pool(path, seed, identities, views, family, covers):
    """The crops as arrays (pixels, points, pose, person, face_class), kept in a file: drawing takes longer than training."""
    if not os.path.exists(path):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        parts = [(range(first, min(first + 50, identities)), seed, views, family, covers) for first in range(0, identities, 50)]
        made = []
        with multiprocessing.Pool(os.cpu_count()) as workers:
            for part in workers.imap(_list_of_crops, parts):
                made += part
                print(f"drawn {len(made)}/{identities * views}", flush=True)
        arrays = {field.name: numpy.array([getattr(c, field.name) for c in made]) for field in dataclasses.fields(Crop)}
        numpy.savez(path + ".part.npz", **arrays)
        os.replace(path + ".part.npz", path)
    with numpy.load(path) as arrays:
        return {name: arrays[name] for name in arrays.files}


def _list_of_crops(arguments):
    cv2.setNumThreads(1)
    return list(crops_of(*arguments))


def save_picture(directory, name, crop):
    cv2.imwrite(os.path.join(directory, name), crop.pixels)
    return name


def _shoulders(rng, picture):
    color, y = drawing.random_color(rng), 215 + rng.uniform(-8, 8)
    drawing.fill_polygon(picture, [(-20, 256), (40, y + 12), (95, y), (161, y), (216, y + 12), (276, 256)], color)


def _far_away(rng, picture):
    """As few pixels as a face in the distance has."""
    size = int(rng.integers(60, 200))  # of the whole canvas, of which a face is two thirds
    small = cv2.resize(picture, (size, size), interpolation=cv2.INTER_AREA)
    return cv2.resize(small, (faces.CANVAS, faces.CANVAS), interpolation=cv2.INTER_LINEAR)


def _cut(rng, box):
    """A detector's box is off by some of its size, on each side for itself; a square cut by hand is wider."""
    x, y, w, h = box
    if rng.random() < 0.5:
        left, top, right, bottom = rng.uniform(-0.07, 0.13, 4)
        return x - left * w, y - top * h, x + w + right * w, y + h + bottom * h
    side = max(w, h) * rng.uniform(1.0, 1.35)
    cx, cy = x + w / 2 + rng.uniform(-0.05, 0.05) * side, y + h / 2 + rng.uniform(-0.05, 0.05) * side
    return cx - side / 2, cy - side / 2, cx + side / 2, cy + side / 2
