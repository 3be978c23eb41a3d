# SPDX-License-Identifier: Apache-2.0
"""Textures of walls, floors and cloth: functions (rng, width, height) of pictures of floats, 0 to 255.

They come in two families, TRAINING and HELD_OUT, that share none.
"""
import cv2
import numpy

from models.labels.making import HELD_OUT, TRAINING
from models.sources.drawn.paint import color_of, random_color


def noise(rng, width, height, octaves=4, cell=64.0, persistence=0.55):
    """Sum of octaves of smooth noise, height x width, about -1..1."""
    total = numpy.zeros((height, width), numpy.float32)
    weight, sum_of_weights = 1.0, 0.0
    for _ in range(octaves):
        grid = rng.uniform(-1, 1, (int(height / cell) + 2, int(width / cell) + 2)).astype(numpy.float32)
        total += weight * cv2.resize(grid, (width, height), interpolation=cv2.INTER_CUBIC)
        sum_of_weights += weight
        weight *= persistence
        cell = max(1.0, cell / 2)
    return total / sum_of_weights * 1.5


def mix(amount, first, second):
    """amount, height x width: 0 gives the first colour, 1 the second."""
    a = numpy.asarray(amount, numpy.float32)[..., None]
    return numpy.float32(first) * (1 - a) + numpy.float32(second) * a


def two_colors(rng, contrast=(10, 120)):
    first = numpy.array(random_color(rng, (0, 0.7), (0.15, 0.95)))
    direction = rng.normal(0.3, 1, 3)
    return first, numpy.clip(first + direction / numpy.linalg.norm(direction) * rng.uniform(*contrast) *
                             rng.choice([-1, 1]), 0, 255)


def coordinates(rng, width, height, turned=True):
    """x and y of every pixel, turned by any angle."""
    y, x = numpy.mgrid[0:height, 0:width].astype(numpy.float32)
    angle = rng.uniform(0, numpy.pi) if turned else rng.normal(0, 0.03)
    return x * numpy.cos(angle) + y * numpy.sin(angle), y * numpy.cos(angle) - x * numpy.sin(angle)


def gradient(rng, width, height):
    u, _ = coordinates(rng, width, height)
    u = (u - u.min()) / (u.max() - u.min())
    return mix(u, *two_colors(rng, (10, 160))) + 6 * noise(rng, width, height, 3, 80)[..., None]


def clouds(rng, width, height):
    return mix(0.5 + 0.5 * noise(rng, width, height, 5, rng.uniform(30, 140)), *two_colors(rng))


def stripes(rng, width, height):
    u, _ = coordinates(rng, width, height)
    wave = numpy.sin(u * 2 * numpy.pi / rng.uniform(5, 60)) * rng.uniform(1, 8)
    return mix(numpy.clip(wave, -1, 1) * 0.5 + 0.5, *two_colors(rng))


def checks(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(8, 70)
    squares = (numpy.floor(u / period) + numpy.floor(v / period)) % 2
    return mix(squares, *two_colors(rng))


def brick(rng, width, height):
    u, v = coordinates(rng, width, height, turned=False)
    tall = rng.uniform(7, 22)
    wide = tall * rng.uniform(1.8, 3)
    row = numpy.floor(v / tall)
    u = u / wide + 0.5 * (row % 2)
    column = numpy.floor(u)
    joint = numpy.minimum((u - column) * wide, v - row * tall) < max(1.2, 0.1 * tall)
    tone = numpy.sin(row * 12.9 + column * 78.2) * 43758
    wall = mix(0.5 * joint + 0, *two_colors(rng, (40, 120)))
    return wall + (12 * (tone - numpy.floor(tone)) * ~joint + 8 * noise(rng, width, height, 3, 12))[..., None]


def wood(rng, width, height):
    u, v = coordinates(rng, width, height, turned=rng.random() < 0.3)
    plank = rng.uniform(18, 70)
    board = numpy.floor(v / plank)
    grain = numpy.sin((v + 5 * noise(rng, width, height, 2, 90) + 17 * board) * rng.uniform(0.4, 1.3) + 0.02 * u)
    gap = (v - board * plank) < 1.3
    brown = numpy.array(color_of(rng.uniform(0.3, 0.7), rng.uniform(0.25, 0.7), rng.uniform(0.3, 0.85)))
    tone = 0.5 + 0.25 * grain + 0.2 * numpy.sin(board * 5.1)
    return mix(tone, brown * 0.75, brown * 1.1) * (1 - 0.5 * gap[..., None])


def grass(rng, width, height):
    blades = cv2.resize(rng.normal(0, 1, (height // 4 + 1, width)).astype(numpy.float32), (width, height))
    green = numpy.array(color_of(rng.uniform(1.3, 2.3), rng.uniform(0.3, 0.7), rng.uniform(0.35, 0.7)))
    return mix(0.5 + 0.2 * blades + 0.4 * noise(rng, width, height, 3, 50), green * 0.6, green * 1.2)


def dots(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(10, 55)
    du, dv = u % period - period / 2, v % period - period / 2
    inside = numpy.clip(rng.uniform(0.15, 0.42) * period - numpy.sqrt(du * du + dv * dv), 0, 1)
    return mix(inside, *two_colors(rng))


def zigzag(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(10, 60)
    folded = numpy.abs(u % period - period / 2)
    wave = numpy.sin((v + folded) * 2 * numpy.pi / rng.uniform(8, 40))
    return mix(numpy.clip(wave * 3, -1, 1) * 0.5 + 0.5, *two_colors(rng))


def triangles(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(12, 60)
    cells = [numpy.floor((u * numpy.cos(a) + v * numpy.sin(a)) / period) for a in (0, numpy.pi / 3, 2 * numpy.pi / 3)]
    tone = numpy.sin(cells[0] * 3.1 + cells[1] * 7.7 + cells[2] * 1.9) * 0.5 + 0.5
    return mix(tone, *two_colors(rng))


def marble(rng, width, height):
    u, _ = coordinates(rng, width, height)
    warped = u / rng.uniform(6, 25) + rng.uniform(2, 7) * noise(rng, width, height, 4, rng.uniform(40, 110))
    return mix(numpy.abs(numpy.sin(warped)) ** rng.uniform(0.4, 1), *two_colors(rng))


def curtain(rng, width, height):
    u, v = coordinates(rng, width, height, turned=False)
    bend = 3 * noise(rng, width, height, 2, 120)
    folds = numpy.sin((u + bend + v * 0.03) * 2 * numpy.pi / rng.uniform(14, 50))
    folds = 0.5 + 0.35 * folds + 0.15 * numpy.sin(u * 0.9)
    color = numpy.array(random_color(rng, (0.1, 0.8), (0.4, 1)))
    return mix(folds, color * 0.55, color)


def plaid(rng, width, height):
    u, v = coordinates(rng, width, height)
    period = rng.uniform(18, 70)

    def bands(t):
        t = t % period / period
        return 0.6 * (t < 0.35) + 0.4 * (numpy.abs(t - 0.65) < 0.05)

    return mix(0.5 * bands(u) + 0.5 * bands(v), *two_colors(rng))


def gravel(rng, width, height):
    stones = noise(rng, width, height, 2, rng.uniform(4, 9), 0.5)
    return mix(0.5 + 0.6 * numpy.tanh(4 * stones), *two_colors(rng, (10, 90))) + \
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
    small = numpy.clip(maker(rng, *half), 0, 255).astype(numpy.uint8)
    return cv2.resize(small, (width, height), interpolation=cv2.INTER_LINEAR)
