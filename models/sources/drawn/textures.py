# SPDX-License-Identifier: Apache-2.0
"""Textures of walls, floors and cloth: functions (rng, width, height) of pictures of floats, 0 to 255.

They come in two families, TRAINING and HELD_OUT, that share none.
"""
import cv2
import numpy as np

from models.labels.making import HELD_OUT, TRAINING
from models.sources.drawn.paint import colour_of, any_colour


def noise(rng, width, height, octaves=4, cell=64.0, persistence=0.55):
    """Sum of octaves of smooth noise, height x width, about -1..1."""
    total = np.zeros((height, width), np.float32)
    weight, sum_of_weights = 1.0, 0.0
    for _ in range(octaves):
        grid = rng.uniform(-1, 1, (int(height / cell) + 2, int(width / cell) + 2)).astype(np.float32)
        total += weight * cv2.resize(grid, (width, height), interpolation=cv2.INTER_CUBIC)
        sum_of_weights += weight
        weight *= persistence
        cell = max(1.0, cell / 2)
    return total / sum_of_weights * 1.5


def mix(amount, first, second):
    """amount, height x width: 0 gives the first colour, 1 the second."""
    a = np.asarray(amount, np.float32)[..., None]
    return np.float32(first) * (1 - a) + np.float32(second) * a


def two_colors(rng, contrast=(10, 120)):
    first = np.array(any_colour(rng, (0, 0.7), (0.15, 0.95)))
    direction = rng.normal(0.3, 1, 3)
    return first, np.clip(first + direction / np.linalg.norm(direction) * rng.uniform(*contrast) *
                          rng.choice([-1, 1]), 0, 255)


def coordinates(rng, width, height, turned=True):
    """x and y of every pixel, turned by any angle."""
    y, x = np.mgrid[0:height, 0:width].astype(np.float32)
    angle = rng.uniform(0, np.pi) if turned else rng.normal(0, 0.03)
    return x * np.cos(angle) + y * np.sin(angle), y * np.cos(angle) - x * np.sin(angle)


def gradient(rng, width, height):
    u, _ = coordinates(rng, width, height)
    u = (u - u.min()) / (u.max() - u.min())
    return mix(u, *two_colors(rng, (10, 160))) + 6 * noise(rng, width, height, 3, 80)[..., None]


def clouds(rng, width, height):
    return mix(0.5 + 0.5 * noise(rng, width, height, 5, rng.uniform(30, 140)), *two_colors(rng))


def stripes(rng, width, height):
    u, _ = coordinates(rng, width, height)
    wave = np.sin(u * 2 * np.pi / rng.uniform(5, 60)) * rng.uniform(1, 8)
    return mix(np.clip(wave, -1, 1) * 0.5 + 0.5, *two_colors(rng))


def checks(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(8, 70)
    squares = (np.floor(u / period) + np.floor(v / period)) % 2
    return mix(squares, *two_colors(rng))


def brick(rng, width, height):
    u, v = coordinates(rng, width, height, turned=False)
    tall = rng.uniform(7, 22)
    wide = tall * rng.uniform(1.8, 3)
    row = np.floor(v / tall)
    u = u / wide + 0.5 * (row % 2)
    column = np.floor(u)
    joint = np.minimum((u - column) * wide, v - row * tall) < max(1.2, 0.1 * tall)
    tone = np.sin(row * 12.9 + column * 78.2) * 43758
    wall = mix(0.5 * joint + 0, *two_colors(rng, (40, 120)))
    return wall + (12 * (tone - np.floor(tone)) * ~joint + 8 * noise(rng, width, height, 3, 12))[..., None]


def wood(rng, width, height):
    u, v = coordinates(rng, width, height, turned=rng.random() < 0.3)
    plank = rng.uniform(18, 70)
    board = np.floor(v / plank)
    grain = np.sin((v + 5 * noise(rng, width, height, 2, 90) + 17 * board) * rng.uniform(0.4, 1.3) + 0.02 * u)
    gap = (v - board * plank) < 1.3
    brown = np.array(colour_of(rng.uniform(0.3, 0.7), rng.uniform(0.25, 0.7), rng.uniform(0.3, 0.85)))
    tone = 0.5 + 0.25 * grain + 0.2 * np.sin(board * 5.1)
    return mix(tone, brown * 0.75, brown * 1.1) * (1 - 0.5 * gap[..., None])


def grass(rng, width, height):
    blades = cv2.resize(rng.normal(0, 1, (height // 4 + 1, width)).astype(np.float32), (width, height))
    green = np.array(colour_of(rng.uniform(1.3, 2.3), rng.uniform(0.3, 0.7), rng.uniform(0.35, 0.7)))
    return mix(0.5 + 0.2 * blades + 0.4 * noise(rng, width, height, 3, 50), green * 0.6, green * 1.2)


def dots(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(10, 55)
    du, dv = u % period - period / 2, v % period - period / 2
    inside = np.clip(rng.uniform(0.15, 0.42) * period - np.sqrt(du * du + dv * dv), 0, 1)
    return mix(inside, *two_colors(rng))


def zigzag(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(10, 60)
    folded = np.abs(u % period - period / 2)
    wave = np.sin((v + folded) * 2 * np.pi / rng.uniform(8, 40))
    return mix(np.clip(wave * 3, -1, 1) * 0.5 + 0.5, *two_colors(rng))


def triangles(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(12, 60)
    cells = [np.floor((u * np.cos(a) + v * np.sin(a)) / period) for a in (0, np.pi / 3, 2 * np.pi / 3)]
    tone = np.sin(cells[0] * 3.1 + cells[1] * 7.7 + cells[2] * 1.9) * 0.5 + 0.5
    return mix(tone, *two_colors(rng))


def marble(rng, width, height):
    u, _ = coordinates(rng, width, height)
    warped = u / rng.uniform(6, 25) + rng.uniform(2, 7) * noise(rng, width, height, 4, rng.uniform(40, 110))
    return mix(np.abs(np.sin(warped)) ** rng.uniform(0.4, 1), *two_colors(rng))


def curtain(rng, width, height):
    u, v = coordinates(rng, width, height, turned=False)
    bend = 3 * noise(rng, width, height, 2, 120)
    folds = np.sin((u + bend + v * 0.03) * 2 * np.pi / rng.uniform(14, 50))
    folds = 0.5 + 0.35 * folds + 0.15 * np.sin(u * 0.9)
    colour = np.array(any_colour(rng, (0.1, 0.8), (0.4, 1)))
    return mix(folds, colour * 0.55, colour)


def plaid(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(18, 70)

    def bands(t):
        t = t % period / period
        return 0.6 * (t < 0.35) + 0.4 * (np.abs(t - 0.65) < 0.05)

    return mix(0.5 * bands(u) + 0.5 * bands(v), *two_colors(rng))


def gravel(rng, width, height):
    stones = noise(rng, width, height, 2, rng.uniform(4, 9), 0.5)
    return mix(0.5 + 0.6 * np.tanh(4 * stones), *two_colors(rng, (10, 90))) + \
        10 * noise(rng, width, height, 2, 60)[..., None]


TEXTURES = {
    TRAINING: [gradient, clouds, stripes, checks, brick, wood, grass],
    HELD_OUT: [dots, zigzag, triangles, marble, curtain, plaid, gravel],
}
SMOOTH = {TRAINING: [gradient, clouds], HELD_OUT: [marble, curtain]}


def texture(rng, width, height, family, smooth=False):
    """One texture filling width x height, made at half the size where it has no need of more."""
    maker = rng.choice((SMOOTH if smooth else TEXTURES)[family])
    half = (max(4, (width + 1) // 2), max(4, (height + 1) // 2))
    small = np.clip(maker(rng, *half), 0, 255).astype(np.uint8)
    return cv2.resize(small, (width, height), interpolation=cv2.INTER_LINEAR)
