# SPDX-License-Identifier: Apache-2.0
"""Backgrounds without faces, persons or animals: functions (rng, width, height, family) of pictures of bytes.

The two families share no texture, no furniture and no kind of clutter.
"""
import cv2
import numpy as np

from models.labels.making import TRAINING
from models.sources.drawn.paint import (colour_of, fill_ellipse, fill_polygon, any_colour, rectangle, shade, smooth_curve,
                                        stroke, stroke_ellipse, vary_colour)
from models.sources.drawn.textures import mix, texture


def plain_scene(rng, width, height, family):
    return texture(rng, width, height, family)


def room(rng, width, height, family):
    """A wall, a floor, and furniture: shelves with books for training, a wardrobe and pictures for the other."""
    picture = texture(rng, width, height, family, smooth=rng.random() < 0.6)
    wall = np.array(any_colour(rng, (0, 0.35), (0.4, 1)))
    cv2.addWeighted(picture, rng.uniform(0.1, 0.6), np.full_like(picture, wall.astype(np.uint8)), 0.5, 0, picture)
    horizon = int(height * rng.uniform(0.55, 0.9))
    picture[horizon:] = texture(rng, width, height - horizon, family)
    skirting = shade(wall, rng.uniform(0.5, 1.2))
    fill_polygon(picture, rectangle(0, horizon - 0.03 * height, width, 0.03 * height), skirting)
    furniture = [_shelf, _window, _sofa] if family == TRAINING else [_wardrobe, _framed_picture, _plant]
    for _ in range(rng.integers(1, 4)):
        rng.choice(furniture)(rng, picture, horizon)
    return picture


def _shelf(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.15, 0.4) * width, rng.uniform(0.3, 0.8) * horizon
    x, y = rng.uniform(-0.1, 0.9) * width, rng.uniform(0, 1) * (horizon - h)
    colour = any_colour(rng, (0.1, 0.6), (0.2, 0.9))
    fill_polygon(picture, rectangle(x, y, w, h), shade(colour, 0.6))
    rows = rng.integers(2, 5)
    for row in range(rows):
        bottom = y + h * (row + 1) / rows
        at = x + 3
        while at < x + w - 6:
            thick, tall = rng.uniform(3, 0.06 * w + 4), rng.uniform(0.5, 0.85) * h / rows
            if rng.random() < 0.85:
                fill_polygon(picture, rectangle(at, bottom - tall, thick, tall), any_colour(rng))
            at += thick + 0.5
        fill_polygon(picture, rectangle(x, bottom - 2, w, 4), colour)
    stroke(picture, rectangle(x, y, w, h), colour, 3, closed=True)


def _window(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.15, 0.35) * width, rng.uniform(0.3, 0.6) * horizon
    x, y = rng.uniform(0, 0.8) * width, rng.uniform(0.05, 0.3) * horizon
    fill_polygon(picture, rectangle(x, y, w, h), colour_of(rng.uniform(2.8, 3.8), rng.uniform(0, 0.4), 1))
    fill_polygon(picture, rectangle(x, y + h * 0.6, w, h * 0.4), any_colour(rng, (0.1, 0.5), (0.5, 0.9)))
    frame = any_colour(rng, (0, 0.3), (0.5, 1))
    stroke(picture, rectangle(x, y, w, h), frame, 0.012 * width + 1, closed=True)
    stroke(picture, [(x + w / 2, y), (x + w / 2, y + h)], frame, 0.008 * width + 1)
    stroke(picture, [(x, y + h / 2), (x + w, y + h / 2)], frame, 0.008 * width + 1)


def _sofa(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.3, 0.6) * width, rng.uniform(0.2, 0.35) * height
    x, y = rng.uniform(-0.1, 0.7) * width, horizon - h * 0.75
    colour = any_colour(rng, (0.1, 0.7), (0.2, 0.8))
    fill_polygon(picture, rectangle(x, y, w, h * 0.7), colour)
    fill_polygon(picture, rectangle(x - 0.06 * w, y + 0.5 * h, 1.12 * w, h * 0.4), shade(colour, 0.85))
    for side in (x - 0.08 * w, x + 0.96 * w):
        fill_polygon(picture, rectangle(side, y + 0.3 * h, 0.12 * w, h * 0.65), shade(colour, 1.12))


def _wardrobe(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.15, 0.35) * width, rng.uniform(0.5, 0.95) * horizon
    x, y = rng.uniform(-0.1, 0.9) * width, horizon - h + 0.02 * height
    colour = any_colour(rng, (0.05, 0.6), (0.3, 0.9))
    fill_polygon(picture, rectangle(x, y, w, h), colour)
    doors = rng.integers(2, 4)
    for door in range(doors):
        inner = rectangle(x + w * (door + 0.1) / doors, y + 0.04 * h, 0.8 * w / doors, 0.9 * h)
        stroke(picture, inner, shade(colour, 0.7), 2, closed=True)
        fill_ellipse(picture, (x + w * (door + 0.85) / doors, y + h / 2), (2, 4), shade(colour, 0.4))


def _framed_picture(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.08, 0.25) * width, rng.uniform(0.15, 0.4) * height
    x, y = rng.uniform(0, 0.9) * width, rng.uniform(0.05, 0.4) * horizon
    fill_polygon(picture, rectangle(x, y, w, h), any_colour(rng, (0, 0.5), (0.1, 0.6)))
    fill_polygon(picture, rectangle(x + 3, y + 3, w - 6, h - 6), any_colour(rng, (0, 0.3), (0.7, 1)))
    for _ in range(rng.integers(2, 6)):
        points = np.array([x, y]) + np.array([w, h]) * rng.uniform(0.2, 0.8, (3, 2))
        fill_polygon(picture, points, any_colour(rng))


def _plant(rng, picture, horizon):
    height, width = picture.shape[:2]
    size = rng.uniform(0.15, 0.4) * height
    x, y = rng.uniform(0, 1) * width, horizon + rng.uniform(-0.02, 0.1) * height
    green = colour_of(rng.uniform(1.5, 2.4), rng.uniform(0.4, 0.8), rng.uniform(0.3, 0.7))
    for _ in range(rng.integers(8, 18)):
        angle, length = rng.normal(-np.pi / 2, 0.8), size * rng.uniform(0.5, 1)
        tip = (x + length * np.cos(angle), y - 0.3 * size + length * np.sin(angle))
        middle = ((x + tip[0]) / 2, (y - 0.3 * size + tip[1]) / 2)
        fill_ellipse(picture, middle, (length / 2, length * 0.09), vary_colour(rng, green), np.degrees(angle))
    pot = [(x - 0.15 * size, y - 0.35 * size), (x + 0.15 * size, y - 0.35 * size), (x + 0.1 * size, y), (x - 0.1 * size, y)]
    fill_polygon(picture, pot, any_colour(rng, (0.2, 0.7), (0.4, 0.9)))


def outdoors(rng, width, height, family):
    """Sky, horizon and ground: a street of houses for training, a park with trees and a fence for the other."""
    sky = colour_of(rng.uniform(3, 3.9), rng.uniform(0, 0.5), rng.uniform(0.5, 1))
    horizon = int(height * rng.uniform(0.35, 0.7))
    ramp = np.linspace(1, 0, height)[:, None] * np.ones((1, width))
    picture = mix(ramp, shade(sky, 1.15), sky).astype(np.uint8)
    (_houses if family == TRAINING else _trees)(rng, picture, horizon)
    ground = texture(rng, width, height - horizon, family)
    tone = np.full_like(ground, np.array(any_colour(rng, (0, 0.3), (0.25, 0.7))).astype(np.uint8))
    picture[horizon:] = cv2.addWeighted(ground, 0.3, tone, 0.7, 0)
    return picture


def _houses(rng, picture, horizon):
    height, width = picture.shape[:2]
    x = -rng.uniform(0, 0.2) * width
    while x < width:
        w, top = rng.uniform(0.1, 0.3) * width, rng.uniform(-0.1, 0.75) * horizon
        colour = any_colour(rng, (0, 0.5), (0.3, 0.95))
        fill_polygon(picture, rectangle(x, top, w, horizon - top + 1), colour)
        rows, columns = rng.integers(2, 6), rng.integers(2, 5)
        glass = shade(colour, rng.choice([0.45, 1.4]))
        for row in range(rows):
            for column in range(columns):
                fill_polygon(picture, rectangle(x + w * (column + 0.25) / columns, top + (horizon - top) * (row + 0.25) / rows,
                                                0.5 * w / columns, 0.5 * (horizon - top) / rows), glass)
        x += w * rng.uniform(0.9, 1.3)


def _trees(rng, picture, horizon):
    height, width = picture.shape[:2]
    green = colour_of(rng.uniform(1.2, 2.3), rng.uniform(0.3, 0.7), rng.uniform(0.25, 0.6))
    for _ in range(rng.integers(2, 7)):
        x, size = rng.uniform(0, width), rng.uniform(0.15, 0.45) * height
        top = horizon - size * rng.uniform(0.9, 1.3)
        fill_polygon(picture, rectangle(x - 0.05 * size, top, 0.1 * size, horizon - top), colour_of(0.4, 0.5, 0.3))
        for _ in range(9):
            at = (x + rng.normal(0, 0.22) * size, top + rng.normal(0, 0.2) * size)
            fill_ellipse(picture, at, (0.25 * size, 0.22 * size), vary_colour(rng, green, 10))
    fence = any_colour(rng, (0, 0.4), (0.4, 0.95))
    step, tall = rng.uniform(5, 16), rng.uniform(0.08, 0.2) * height
    if rng.random() < 0.6:
        for x in np.arange(0, width, step):
            fill_polygon(picture, rectangle(x, horizon - tall, 0.4 * step, tall + 2), fence)
        fill_polygon(picture, rectangle(0, horizon - 0.7 * tall, width, 2), fence)


def patches(rng, width, height, family):
    """Rectangles of different textures."""
    picture = texture(rng, width, height, family)
    for _ in range(rng.integers(2, 5)):
        w, h = int(rng.uniform(0.15, 0.7) * width), int(rng.uniform(0.15, 0.7) * height)
        x, y = int(rng.integers(0, width - w)), int(rng.integers(0, height - h))
        picture[y:y + h, x:x + w] = texture(rng, w, h, family)
    return picture


def add_clutter(rng, picture, family, count=None):
    """Distractors: discs, boxes and leaves with an inner pattern for training; rings, stars and loops for the other."""
    height, width = picture.shape[:2]
    for _ in range(rng.integers(0, 9) if count is None else count):
        size = min(width, height) * np.exp(rng.uniform(np.log(0.03), np.log(0.3)))
        center = rng.uniform(0, 1, 2) * (width, height)
        (_training_shape if family == TRAINING else _held_out_shape)(rng, picture, center, size)


def _training_shape(rng, picture, center, size):
    colour, other = any_colour(rng), any_colour(rng)
    kind = rng.integers(4)
    angle = rng.uniform(0, 180)
    if kind == 0:  # a disc: a ball, a plate, a clock
        fill_ellipse(picture, center, (size / 2, size / 2), colour)
        stroke_ellipse(picture, center, (size / 2, size / 2), other, size * 0.08)
        for _ in range(rng.integers(0, 5)):
            fill_ellipse(picture, center + rng.normal(0, 0.15 * size, 2), (0.07 * size, 0.07 * size), other)
        if rng.random() < 0.4:
            stroke(picture, [center, center + rng.normal(0, 0.2 * size, 2)], other, 0.05 * size)
            stroke(picture, [center, center + rng.normal(0, 0.2 * size, 2)], other, 0.05 * size)
    elif kind == 1:  # a box with a band
        box = cv2.boxPoints(((float(center[0]), float(center[1])), (size, size * rng.uniform(0.4, 1.8)), angle))
        fill_polygon(picture, box, colour)
        stroke(picture, [(box[0] + box[1]) / 2, (box[2] + box[3]) / 2], other, size * 0.15)
    elif kind == 2:  # a leaf
        fill_ellipse(picture, center, (size / 2, size * rng.uniform(0.1, 0.35)), colour, angle)
    else:
        fill_polygon(picture, center + rng.normal(0, 0.4 * size, (rng.integers(3, 6), 2)), colour)


def _held_out_shape(rng, picture, center, size):
    colour, other = any_colour(rng), any_colour(rng)
    kind = rng.integers(4)
    if kind == 0:
        stroke_ellipse(picture, center, (size / 2, size / 2 * rng.uniform(0.5, 1)), colour, size * rng.uniform(0.05, 0.25))
    elif kind == 1:  # a star
        count = int(rng.integers(4, 9))
        angles = np.arange(2 * count) * np.pi / count + rng.uniform(0, 3)
        radii = size / 2 * np.where(np.arange(2 * count) % 2, rng.uniform(0.3, 0.7), 1)
        fill_polygon(picture, center + np.stack([radii * np.cos(angles), radii * np.sin(angles)], 1), colour)
        fill_ellipse(picture, center, (0.12 * size, 0.12 * size), other)
    elif kind == 2:  # a loop
        stroke(picture, smooth_curve(center + rng.normal(0, 0.4 * size, (5, 2)), 40, closed=True), colour, size * 0.08)
    else:  # a blob with spots: a ladybird, a bowling ball, a lamp
        blob = center + size / 2 * np.array([[1, 0], [0.5, 0.9], [-0.6, 0.8], [-1, 0], [-0.4, -0.9], [0.5, -0.8]])
        fill_polygon(picture, smooth_curve(blob + rng.normal(0, 0.05 * size, (6, 2)), 40, closed=True), colour)
        for _ in range(rng.integers(1, 6)):
            fill_ellipse(picture, center + rng.normal(0, 0.17 * size, 2), (0.08 * size, 0.05 * size), other)


SCENES = [plain_scene, room, room, outdoors, outdoors, patches]


def background(rng, width, height, family, clutter=True):
    """A scene without faces, persons or animals."""
    picture = SCENES[rng.integers(len(SCENES))](rng, width, height, family)
    if clutter and rng.random() < 0.7:
        add_clutter(rng, picture, family)
    if rng.random() < 0.3:
        picture = cv2.GaussianBlur(picture, (0, 0), rng.uniform(0.6, 3))  # out of focus
    return picture
