# SPDX-License-Identifier: Apache-2.0
"""Frames with drawn faces, for face detection: everywhere, of every size, with shoulders, beside things that are round too."""
import cv2
import numpy as np

from models.labels import boxes
from models.scenes import camera
from models.sources.drawn import faces
from models.sources.drawn.paint import fill_ellipse, fill_polygon, paste, any_colour


FIGURES = 0.8  # the share of persons who are whole already, where a source has any


def scene(rng, source, width, height, least=14, most=None):
    """(picture, boxes): boxes x, y, w, h in pixels, of what can be seen of a face."""
    picture = source.background(rng, width, height)
    for _ in range(rng.integers(0, 4)):
        _round_thing(rng, picture)
    seen: list = []
    count = 0 if rng.random() < 0.12 else int(rng.integers(1, 6))
    most = most or 0.75 * min(width, height)
    # The farthest first: near ones stand in front of them.
    largest = np.log(most / (1 + 0.25 * max(0, count - 1)))
    for face_height in np.sort(np.exp(rng.uniform(np.log(least), largest, count))):
        is_figure = hasattr(source, "figure") and rng.random() < FIGURES
        sprite, box = source.figure(rng) if is_figure else source.head(rng)
        box = place(rng, picture, sprite, box, face_height, seen, is_figure)
        if box is not None:
            seen.append(box)
    return camera.degrade(rng, picture, 0.9), seen


def place(rng, picture, sprite, box, face_height, others, is_figure):
    height, width = picture.shape[:2]
    rows, columns = sprite.shape[:2]
    size = max(4, round(rows * face_height / box[3]))
    scale = size / rows
    across = max(4, round(columns * scale))
    small = cv2.resize(sprite, (across, size), interpolation=cv2.INTER_AREA if scale < 1 else cv2.INTER_LINEAR)
    if rng.random() < 0.5:
        small = small[:, ::-1]
        box = np.array([columns - box[0] - box[2], box[1], box[2], box[3]])
    x, y, w, h = box * scale
    for _ in range(20):
        left = int(rng.uniform(-0.15 * w, width - 0.85 * w) - x)
        top = int(rng.uniform(-0.1 * h, height - 0.9 * h) - y)
        place = np.array([left + x, top + y, left + x + w, top + y + h])
        body = (np.array([left, top, left + across, top + size]) if is_figure else
                np.array([left - 0.1 * size, top, left + 1.1 * size, top + 2.6 * size]))
        if all(_covered(place, other) < 0.1 and _covered(body, other) < 0.3 for other in others):
            break
    else:
        return None
    if not is_figure:
        _body(rng, picture, left, top, size)
    paste(picture, small, left, top)
    x0, y0, x1, y1 = np.clip(place, 0, (width, height, width, height))
    return np.array([x0, y0, x1 - x0, y1 - y0])


def _body(rng, picture, left, top, size):
    def at(x, y):
        return left + x * size, top + y * size

    long = rng.uniform(1.3, 2.6)
    points = [at(-0.08, 0.98), at(0.16, 0.88), at(0.37, 0.83), at(0.63, 0.83), at(0.84, 0.88), at(1.08, 0.98),
              at(1.12, long), at(-0.12, long)]
    fill_polygon(picture, points, any_colour(rng))


def _round_thing(rng, picture):
    """A ball, clock, lamp or plate: round, skin-coloured now and then, and no face."""
    height, width = picture.shape[:2]
    r = float(np.exp(rng.uniform(np.log(6), np.log(45))))
    center = (rng.uniform(0, width), rng.uniform(0, height))
    colour = any_colour(rng) if rng.random() < 0.6 else tuple(int(c) for c in faces.SKINS[rng.integers(len(faces.SKINS))])
    fill_ellipse(picture, center, (r * rng.uniform(0.7, 1), r), colour)
    for _ in range(rng.integers(0, 4)):
        offset = rng.uniform(-0.5, 0.5, 2) * r
        fill_ellipse(picture, center + offset, rng.uniform(0.05, 0.3, 2) * r, any_colour(rng))


def _covered(a, box):
    """The share of the smaller one that the other covers."""
    b = np.array(boxes.corners(box))
    return boxes.shared(a, b) / min(boxes.area(a), boxes.area(b))
