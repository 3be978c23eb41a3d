# SPDX-License-Identifier: Apache-2.0
"""Frames with drawn faces, for face detection: everywhere, of every size, with shoulders, beside things that are round too."""
import cv2
import numpy

from models.sources.drawn import drawing
from models.sources.drawn import faces

COVERS = ["none"] * 14 + ["cap", "cap", "hand", "mask", "scarf", "sunglasses"]


class Heads:
    """Sprites of faces: drawing one takes longer than using it, so each is used several times."""

    def __init__(self, seed, count):
        self.sprites = []
        for number in range(count):
            rng = numpy.random.default_rng([seed, number])
            self.sprites.append(faces.render(faces.random_identity(rng), faces.random_view(rng, covers=COVERS))[:2])

    def one(self, rng):
        return self.sprites[rng.integers(len(self.sprites))]


def scene(rng, heads, width, height, family, least=14, most=None):
    """(picture, boxes): boxes x, y, w, h in pixels, of what can be seen of a face."""
    picture = drawing.background(rng, width, height, family)
    for _ in range(rng.integers(0, 4)):
        _round_thing(rng, picture)
    boxes = []
    count = 0 if rng.random() < 0.12 else int(rng.integers(1, 6))
    most = most or 0.75 * min(width, height)
    # The farthest first: near ones stand in front of them.
    largest = numpy.log(most / (1 + 0.25 * max(0, count - 1)))
    for face_height in numpy.sort(numpy.exp(rng.uniform(numpy.log(least), largest, count))):
        sprite, box = heads.one(rng)
        box = _paste(rng, picture, sprite, box, face_height, boxes)
        if box is not None:
            boxes.append(box)
    return drawing.degrade(rng, picture, 0.9), boxes


def _paste(rng, picture, sprite, box, face_height, others):
    height, width = picture.shape[:2]
    scale = face_height / box[3]
    size = max(4, int(round(faces.CANVAS * scale)))
    scale = size / faces.CANVAS
    small = cv2.resize(sprite, (size, size), interpolation=cv2.INTER_AREA if scale < 1 else cv2.INTER_LINEAR)
    if rng.random() < 0.5:
        small = small[:, ::-1]
        box = numpy.array([faces.CANVAS - box[0] - box[2], box[1], box[2], box[3]])
    x, y, w, h = box * scale
    for _ in range(20):
        left = int(rng.uniform(-0.15 * w, width - 0.85 * w) - x)
        top = int(rng.uniform(-0.1 * h, height - 0.9 * h) - y)
        place = numpy.array([left + x, top + y, w, h])
        body = numpy.array([left - 0.1 * size, top, 1.2 * size, 2.6 * size])
        if all(_overlap(place, other) < 0.1 and _overlap(body, other) < 0.3 for other in others):
            break
    else:
        return None
    _body(rng, picture, left, top, size)
    alpha = small[..., 3:].astype(numpy.float32) / 255
    x0, y0, x1, y1 = max(0, left), max(0, top), min(width, left + size), min(height, top + size)
    part = (slice(y0 - top, y1 - top), slice(x0 - left, x1 - left))
    target = picture[y0:y1, x0:x1]
    target[:] = (small[part][..., :3] * alpha[part] + target * (1 - alpha[part])).astype(numpy.uint8)
    seen = numpy.array([max(0, place[0]), max(0, place[1]), min(width, place[0] + w), min(height, place[1] + h)])
    return numpy.array([seen[0], seen[1], seen[2] - seen[0], seen[3] - seen[1]])


def _body(rng, picture, left, top, size):
    def at(x, y):
        return left + x * size, top + y * size

    long = rng.uniform(1.3, 2.6)
    points = [at(-0.08, 0.98), at(0.16, 0.88), at(0.37, 0.83), at(0.63, 0.83), at(0.84, 0.88), at(1.08, 0.98),
              at(1.12, long), at(-0.12, long)]
    drawing.fill_polygon(picture, points, drawing.random_color(rng))


def _round_thing(rng, picture):
    """A ball, clock, lamp or plate: round, skin-coloured now and then, and no face."""
    height, width = picture.shape[:2]
    r = float(numpy.exp(rng.uniform(numpy.log(6), numpy.log(45))))
    center = (rng.uniform(0, width), rng.uniform(0, height))
    color = drawing.random_color(rng) if rng.random() < 0.6 else tuple(int(c) for c in faces.SKINS[rng.integers(len(faces.SKINS))])
    drawing.fill_ellipse(picture, center, (r * rng.uniform(0.7, 1), r), color)
    for _ in range(rng.integers(0, 4)):
        offset = rng.uniform(-0.5, 0.5, 2) * r
        drawing.fill_ellipse(picture, (center[0] + offset[0], center[1] + offset[1]), (r * rng.uniform(0.05, 0.3), r * rng.uniform(0.05, 0.3)),
                             drawing.random_color(rng))


def _overlap(a, b):
    """The share of b that a covers, or the other way round: the larger."""
    w = min(a[0] + a[2], b[0] + b[2]) - max(a[0], b[0])
    h = min(a[1] + a[3], b[1] + b[3]) - max(a[1], b[1])
    return max(0, w) * max(0, h) / min(a[2] * a[3], b[2] * b[3])
