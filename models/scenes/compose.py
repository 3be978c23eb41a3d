# SPDX-License-Identifier: Apache-2.0
"""Puts cut-outs in front of a background and says which box of each one is still seen.

The box of a thing is tight around the pixels that nothing nearer hides. Things of which less than MIN_VISIBLE is
seen, or whose boxes overlap one another so much that a detector has to take them for one, are left out.
"""
import cv2
import numpy as np

from models.labels import boxes, table
from models.sources.drawn.paint import inside, paste
from models.sources.drawn.source import DISTRACTORS, KINDS

MIN_VISIBLE = 0.5  # of the thing's pixels
MAX_IOU = 0.3  # the library takes boxes above 0.4 for the same thing


class Thing:
    """A cut-out (BGRA) at a place: left, top; class_id is None for what is not to be found."""

    def __init__(self, cut_out, place, class_id=None):
        self.cut_out = cut_out
        self.left, self.top = map(int, place)
        self.class_id = class_id

    @property
    def bottom(self):
        return self.top + self.cut_out.shape[0]


def scaled(cut_out, target, rng, by_height=True):
    """The cut-out with a height (or longest side) of `target` pixels, mirrored at times, in a light of its own."""
    size = cut_out.shape[0] if by_height else max(cut_out.shape[:2])
    factor = target / size
    shape = (max(2, round(cut_out.shape[1] * factor)), max(2, round(cut_out.shape[0] * factor)))
    smooth = factor < 1 and rng.random() < 0.5  # at times with steps, as the bilinear letterbox leaves them
    picture = cv2.resize(cut_out, shape, interpolation=cv2.INTER_AREA if smooth else cv2.INTER_LINEAR)
    if rng.random() < 0.5:
        picture = picture[:, ::-1]
    picture = picture.copy()
    gain = rng.uniform(0.75, 1.15)
    picture[..., :3] = np.clip(picture[..., :3] * np.float32(gain) + np.float32(rng.uniform(-8, 18)), 0, 255)
    return picture


def visible_boxes(things, picture):
    """For each thing, far ones first: (x, y, w, h) of what is seen of it, or None if that is too little."""
    owner = np.full(picture.shape[:2], -1, np.int16)
    places = [inside(picture, thing.cut_out, thing.left, thing.top) for thing in things]
    for index, (thing, place) in enumerate(zip(things, places)):
        if place:
            owner[place[0]][thing.cut_out[place[1]][..., 3] > 127] = index
    seen = [(owner == index).astype(np.uint8) for index in range(len(things))]
    return [cv2.boundingRect(mask) if mask.any() and mask.sum() >= MIN_VISIBLE * (thing.cut_out[..., 3] > 127).sum() else None
            for thing, mask in zip(things, seen)]


def compose(background, things, rng):
    """The picture, and [(class_id, x, y, w, h)] of the labelled things in it."""
    things = sorted(things, key=lambda thing: thing.bottom)
    while True:
        seen = visible_boxes(things, background)
        wrong = _first_wrong(things, seen)
        if wrong is None:
            break
        del things[wrong]
    picture = background.astype(np.float32)
    for thing in things:
        if inside(picture, thing.cut_out, thing.left, thing.top):
            _cast_shadow(picture, thing, rng)
            paste(picture, thing.cut_out, thing.left, thing.top)
    labels = [(thing.class_id, *box) for thing, box in zip(things, seen) if thing.class_id is not None]
    return np.clip(picture, 0, 255).astype(np.uint8), labels


def compose_over(picture, labels, things, rng):
    """The same before a picture with labels of its own: what of those things hide by a fifth is ignored."""
    hidden = np.zeros(picture.shape[:2], np.float32)
    for thing in things:
        place = inside(picture, thing.cut_out, thing.left, thing.top)
        if place:
            hidden[place[0]] = np.maximum(hidden[place[0]], thing.cut_out[place[1]][..., 3] > 127)
    composed, added = compose(picture, things, rng)
    kept = []
    for kind, x, y, w, h in labels:
        over = hidden[int(y):int(np.ceil(y + h)), int(x):int(np.ceil(x + w))]
        kept.append((table.IGNORE if over.size and over.mean() > 0.2 else kind, x, y, w, h))
    return composed, kept + added


def _first_wrong(things, seen):
    """The first of the labelled things that is too little seen, or too much in one place with a nearer one."""
    for i, thing in enumerate(things):
        nearer = [np.array(boxes.corners(box)) for other, box in zip(things[i + 1:], seen[i + 1:])
                  if other.class_id is not None and box]
        if thing.class_id is not None and (seen[i] is None or any(
                boxes.iou(np.array(boxes.corners(seen[i])), box) > MAX_IOU for box in nearer)):
            return i
    return None


def _cast_shadow(picture, thing, rng):
    """A soft dark patch on the ground below."""
    height, width = picture.shape[:2]
    columns = thing.cut_out.shape[1]
    half_width, half_height = columns * rng.uniform(0.45, 0.7), max(2.0, columns * rng.uniform(0.06, 0.14))
    centre_x, centre_y = thing.left + columns / 2, thing.bottom - half_height * 0.5
    left, right = int(max(centre_x - half_width, 0)), int(min(centre_x + half_width + 1, width))
    top, bottom = int(max(centre_y - half_height, 0)), int(min(centre_y + half_height + 1, height))
    if right <= left or bottom <= top:
        return
    x = (np.arange(left, right, dtype=np.float32) - centre_x) / half_width
    y = (np.arange(top, bottom, dtype=np.float32) - centre_y) / half_height
    shadow = np.maximum(1 - x[None, :] ** 2 - y[:, None] ** 2, 0) * rng.uniform(0.2, 0.7)
    picture[top:bottom, left:right] *= 1 - shadow[..., None]


def person_height(rng, height):
    """From 17 % of the frame to more than fits into it."""
    if rng.random() < 0.12:
        return rng.uniform(1.0, 1.7) * height
    return np.exp(rng.uniform(np.log(0.17), np.log(0.97))) * height


def stand(rng, cut_out, width, height):
    """Left and top of a thing that stands somewhere in the lower half, at times cut off at a side or at the bottom."""
    rows, columns = cut_out.shape[:2]
    outside = 0.3 * columns if rng.random() < 0.3 else 0
    left = -outside + rng.random() * (width - columns + 2 * outside)
    if rows > 0.97 * height:
        return left, rng.uniform(0, 0.25 * height)
    bottom = rng.uniform(max(rows, 0.45 * height), height * (1.0 if rng.random() < 0.75 else 1.15))
    return left, bottom - rows


def person_things(rng, source, width, height):
    """0 to 5 persons among 0 to 3 things that are no persons. source.person(rng) and source.thing(kinds) draw them."""
    things = []
    for _ in range(rng.choice([0, 1, 2, 3, 4, 5], p=[0.1, 0.33, 0.27, 0.16, 0.09, 0.05])):
        cut_out = scaled(source.person(rng), person_height(rng, height), rng)
        things.append(Thing(cut_out, stand(rng, cut_out, width, height), 0))
    for _ in range(rng.integers(0, 4)):
        _, thing = source.thing(rng, DISTRACTORS + KINDS)
        cut_out = scaled(thing, np.exp(rng.uniform(np.log(0.12), np.log(0.85))) * height, rng)
        things.append(Thing(cut_out, stand(rng, cut_out, width, height)))
    return things


def object_things(rng, source, width, height):
    """0 to 5 things of the four kinds, labelled, among 0 to 2 persons and other things."""
    things = []
    longest = max(width, height)
    for _ in range(rng.choice([0, 1, 2, 3, 4, 5], p=[0.06, 0.28, 0.3, 0.2, 0.11, 0.05])):
        kind, thing = source.thing(rng, KINDS)
        cut_out = scaled(thing, np.exp(rng.uniform(np.log(0.15), np.log(0.55))) * longest, rng, by_height=False)
        things.append(Thing(cut_out, stand(rng, cut_out, width, height), KINDS.index(kind)))
    for _ in range(rng.integers(0, 3)):
        thing = source.person(rng) if rng.random() < 0.4 else source.thing(rng, DISTRACTORS)[1]
        cut_out = scaled(thing, np.exp(rng.uniform(np.log(0.15), np.log(0.9))) * height, rng)
        things.append(Thing(cut_out, stand(rng, cut_out, width, height)))
    return things
