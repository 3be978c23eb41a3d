# SPDX-License-Identifier: Apache-2.0
"""Crops of faces, 112 x 112 grey, as a face detector's boxes would cut them, or aligned: for landmarks, features and classes."""
import dataclasses
from typing import Any

import cv2
import numpy as np

from models.scenes import camera
from models.sources.drawn.paint import fill_polygon, paste, any_colour
from models.sources.drawn.source import Drawn

SIZE = 112
OPEN, MOUTH_COVERED, SUNGLASSES = range(3)  # the classes of face_classes
CLASS_OF_COVER = {"none": OPEN, "cap": OPEN, "hand": OPEN, "mask": MOUTH_COVERED, "scarf": MOUTH_COVERED,
                  "sunglasses": SUNGLASSES}
# With their frequencies: nearly as many of each class.
ALL_COVERS = ["none"] * 8 + ["cap"] * 2 + ["hand"] * 2 + ["mask"] * 5 + ["scarf"] * 4 + ["sunglasses"] * 8
SOME_COVERS = ["none"] * 14 + ["cap"] * 2 + ["hand"] * 3 + ["mask"] * 2 + ["scarf"] + ["sunglasses"] * 3
OPEN_COVERS = ["none"] * 8 + ["cap"] + ["hand"]
ALIGNED = np.array([(38.4, 51.6), (73.6, 51.6), (56.0, 71.7), (41.4, 92.3), (70.6, 92.3)])  # kel_nn_kit_align_face's places
POINTS_OFF = 0.025  # of the face's size: how far from the truth landmarks are found, the deviation along each axis


@dataclasses.dataclass
class Crop:
    pixels: Any  # SIZE x SIZE, grey
    points: Any  # five, in parts of the crop's sides
    pose: Any  # yaw, pitch, roll in degrees
    face_class: int
    whole: Any  # the picture that it was cut from, blue first


def crops(seed, identities, views, family, covers):
    """`views` crops of each of `identities` persons, with the person's number; the same seed gives the same crops."""
    source = Drawn(family)
    for person in range(identities):
        rng = np.random.default_rng([seed, person])
        identity = source.identity(rng)
        for _ in range(views):
            yield person, crop_of(rng, source, identity, covers)


def crop_of(rng, source, identity, covers, aligned=0.0):
    """`aligned`: the share of crops that are cut by their points instead of their box."""
    head, box, points, pose, cover = source.portrait(rng, identity, covers)
    size = len(head)
    picture = source.background(rng, size, size)
    add_shoulders(picture, any_colour(rng), 215 + rng.uniform(-8, 8))
    paste(picture, head)
    return _crop(rng, picture, box, points, pose, cover, aligned)


def crop_of_figure(rng, source, figure=None, aligned=0.0):
    """Of a source's figure with its points before a background; the way it looks is known of it too."""
    figure, box, points, pose = figure or source.figure_with_points(rng)
    picture = source.background(rng, figure.shape[1], figure.shape[0]).astype(np.float32)
    paste(picture, figure)
    return _crop(rng, picture.clip(0, 255).astype(np.uint8), box, points, pose, "none", aligned, box[3])


def _crop(rng, picture, box, points, pose, cover, aligned, figure_size=None):
    if rng.random() < 0.4:
        picture = _far_away(rng, picture, figure_size)
    picture = camera.degrade(rng, picture, 0.9)
    if aligned and rng.random() < aligned:
        matrix = alignment(points + rng.normal(0, POINTS_OFF * max(box[2:]), (5, 2)))
    else:
        left, top, right, bottom = _cut(rng, box)
        matrix = np.array([[SIZE / (right - left), 0, -left * SIZE / (right - left)],
                           [0, SIZE / (bottom - top), -top * SIZE / (bottom - top)]], np.float32)
    cut = cv2.warpAffine(picture, matrix, (SIZE, SIZE), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
    parts = (points @ matrix[:, :2].T + matrix[:, 2]) / SIZE
    return Crop(cv2.cvtColor(cut, cv2.COLOR_BGR2GRAY), parts.astype(np.float32), np.float32(pose),
                CLASS_OF_COVER[cover], picture)


def alignment(points):
    """[2, 3]: turns, scales and moves five points nearest to where an aligned face has them, as kel_nn_kit_align_face does."""
    here, there = (places - places.mean(axis=0) for places in (points, ALIGNED))
    a = (here * there).sum() / (here ** 2).sum()
    b = (here[:, 0] * there[:, 1] - here[:, 1] * there[:, 0]).sum() / (here ** 2).sum()
    turn = np.array([[a, -b], [b, a]])
    return np.column_stack([turn, ALIGNED.mean(axis=0) - turn @ points.mean(axis=0)])


def add_shoulders(picture, colour, y):
    fill_polygon(picture, [(-20, 256), (40, y + 12), (95, y), (161, y), (216, y + 12), (276, 256)], colour)


def _far_away(rng, picture, figure_size):
    """As few pixels as a face in the distance has."""
    size = int(rng.integers(60, 200))  # of the whole canvas, of which a drawn face is two thirds
    if figure_size:
        size = min(round(size * 2 / 3 / figure_size * len(picture)), len(picture))
    small = cv2.resize(picture, (size, size), interpolation=cv2.INTER_AREA)
    return cv2.resize(small, picture.shape[1::-1], interpolation=cv2.INTER_LINEAR)


def _cut(rng, box):
    """A detector's box is off by some of its size, on each side for itself; a square cut by hand is wider."""
    x, y, w, h = box
    if rng.random() < 0.5:
        left, top, right, bottom = rng.uniform(-0.07, 0.13, 4)
        return x - left * w, y - top * h, x + w + right * w, y + h + bottom * h
    side = max(w, h) * rng.uniform(1.0, 1.35)
    cx, cy = x + w / 2 + rng.uniform(-0.05, 0.05) * side, y + h / 2 + rng.uniform(-0.05, 0.05) * side
    return cx - side / 2, cy - side / 2, cx + side / 2, cy + side / 2
