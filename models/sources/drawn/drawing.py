# SPDX-License-Identifier: Apache-2.0
"""Shared by the makers of drawn data: backgrounds, distractors, light, pasting, and what a camera does to a picture.

Pictures are numpy arrays height x width x 3 of bytes in OpenCV's order, blue first. `rng` is a
numpy.random.Generator. Backgrounds come in two families that share no texture and no kind of scene: TRAINING, and
HELD_OUT for the figures in the cards.

    rng = numpy.random.default_rng(seed)
    picture = background(rng, 416, 256, TRAINING)
    paste(picture, sprite, alpha, x, y)
    picture = degrade(rng, picture)
"""
import cv2
import numpy

TRAINING = "training"
HELD_OUT = "held_out"

SHIFT = 4  # fractional bits of OpenCV's drawing functions
ONE = 1 << SHIFT


# Colours

def random_color(rng, saturation=(0.0, 0.8), value=(0.1, 1.0)):
    """Blue, green, red; any hue."""
    return color_of(rng.uniform(0, 6), rng.uniform(*saturation), rng.uniform(*value))


def color_of(hue, saturation, value):
    """hue 0..6 (red, yellow, green, cyan, blue, magenta), the others 0..1."""
    def channel(n):
        k = (n + hue) % 6
        return 255 * value * (1 - saturation * max(0, min(k, 4 - k, 1)))

    return channel(1), channel(3), channel(5)


def vary_color(rng, color, amount=20):
    return shade(numpy.array(color) + rng.normal(0, amount, 3), 1)


def shade(color, factor):
    return tuple(float(c) for c in numpy.clip(numpy.array(color, float) * factor, 0, 255))


# Anti-aliased drawing with fractions of a pixel

def fixed(points):
    return numpy.round(numpy.asarray(points, float) * ONE).astype(numpy.int32)


def fill_polygon(picture, points, color):
    cv2.fillPoly(picture, [fixed(points)], color, cv2.LINE_AA, SHIFT)


def stroke(picture, points, color, width, closed=False):
    cv2.polylines(picture, [fixed(points)], closed, color, max(1, int(round(width))), cv2.LINE_AA, SHIFT)


def fill_ellipse(picture, center, axes, color, angle=0.0):
    """axes: half the width and half the height."""
    _ellipse(picture, center, axes, angle, color, -1)


def stroke_ellipse(picture, center, axes, color, width, angle=0.0):
    _ellipse(picture, center, axes, angle, color, max(1, int(round(width))))


def _ellipse(picture, center, axes, angle, color, thickness):
    x, y = fixed(center)
    a, b = numpy.maximum(fixed(axes), 1)
    cv2.ellipse(picture, (int(x), int(y)), (int(a), int(b)), float(angle), 0, 360, color, thickness, cv2.LINE_AA,
                SHIFT)


def rectangle(x, y, width, height):
    return [(x, y), (x + width, y), (x + width, y + height), (x, y + height)]


def smooth_curve(points, count=40, closed=False):
    """A curve through the points (Catmull-Rom)."""
    p = numpy.asarray(points, float)
    p = numpy.concatenate([p[-1:], p, p[:2]]) if closed else numpy.concatenate([p[:1], p, p[-1:]])
    segments = len(p) - 3
    t = numpy.linspace(0, segments, count, endpoint=not closed)
    i = numpy.minimum(t.astype(int), segments - 1)
    t = (t - i)[:, None]
    a, b, c, d = p[i], p[i + 1], p[i + 2], p[i + 3]
    return 0.5 * (2 * b + (c - a) * t + (2 * a - 5 * b + 4 * c - d) * t ** 2 + (3 * b - a - 3 * c + d) * t ** 3)


# Pasting

def paste(picture, sprite, alpha, x, y, shadow=0.0, shadow_offset=(0.04, 0.03)):
    """Blends a sprite into the picture, in place; what lies outside the picture is cut off.

    alpha          height x width, bytes or 0..1
    x, y           the sprite's top left corner in whole pixels
    shadow         0..1: how much the sprite darkens what is behind it, shadow_offset (in sprite sizes) away
    """
    alpha = as_fraction(alpha)
    if shadow > 0:
        height, width = alpha.shape
        blur = max(3, int(0.06 * max(height, width)) | 1)
        soft = cv2.blur(cv2.blur(numpy.pad(alpha, blur), (blur, blur)), (blur, blur))
        _blend(picture, 0.0, shadow * soft, x - blur + int(shadow_offset[0] * width),
               y - blur + int(shadow_offset[1] * height))
    _blend(picture, sprite, alpha, x, y)


def as_fraction(alpha):
    return alpha.astype(numpy.float32) / 255 if alpha.dtype == numpy.uint8 else alpha.astype(numpy.float32)


def _blend(picture, sprite, alpha, x, y):
    height, width = picture.shape[:2]
    left, top = max(0, -x), max(0, -y)
    right, bottom = min(alpha.shape[1], width - x), min(alpha.shape[0], height - y)
    if left >= right or top >= bottom:
        return
    part = picture[y + top:y + bottom, x + left:x + right]
    a = alpha[top:bottom, left:right, None]
    front = sprite if numpy.isscalar(sprite) else sprite[top:bottom, left:right].astype(numpy.float32)
    part[:] = part + a * (front - part.astype(numpy.float32)) + 0.5


# Textures: functions (rng, width, height) -> picture of floats 0..255

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


# Scenes: functions (rng, width, height, family) -> picture of bytes

def plain_scene(rng, width, height, family):
    return texture(rng, width, height, family)


def room(rng, width, height, family):
    """A wall, a floor, and furniture: shelves with books for training, a wardrobe and pictures for the other."""
    picture = texture(rng, width, height, family, smooth=rng.random() < 0.6)
    wall = numpy.array(random_color(rng, (0, 0.35), (0.4, 1)))
    cv2.addWeighted(picture, rng.uniform(0.1, 0.6), numpy.full_like(picture, wall.astype(numpy.uint8)), 0.5, 0, picture)
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
    color = random_color(rng, (0.1, 0.6), (0.2, 0.9))
    fill_polygon(picture, rectangle(x, y, w, h), shade(color, 0.6))
    rows = rng.integers(2, 5)
    for row in range(rows):
        bottom = y + h * (row + 1) / rows
        at = x + 3
        while at < x + w - 6:
            thick, tall = rng.uniform(3, 0.06 * w + 4), rng.uniform(0.5, 0.85) * h / rows
            if rng.random() < 0.85:
                fill_polygon(picture, rectangle(at, bottom - tall, thick, tall), random_color(rng))
            at += thick + 0.5
        fill_polygon(picture, rectangle(x, bottom - 2, w, 4), color)
    stroke(picture, rectangle(x, y, w, h), color, 3, closed=True)


def _window(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.15, 0.35) * width, rng.uniform(0.3, 0.6) * horizon
    x, y = rng.uniform(0, 0.8) * width, rng.uniform(0.05, 0.3) * horizon
    fill_polygon(picture, rectangle(x, y, w, h), color_of(rng.uniform(2.8, 3.8), rng.uniform(0, 0.4), 1))
    fill_polygon(picture, rectangle(x, y + h * 0.6, w, h * 0.4), random_color(rng, (0.1, 0.5), (0.5, 0.9)))
    frame = random_color(rng, (0, 0.3), (0.5, 1))
    stroke(picture, rectangle(x, y, w, h), frame, 0.012 * width + 1, closed=True)
    stroke(picture, [(x + w / 2, y), (x + w / 2, y + h)], frame, 0.008 * width + 1)
    stroke(picture, [(x, y + h / 2), (x + w, y + h / 2)], frame, 0.008 * width + 1)


def _sofa(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.3, 0.6) * width, rng.uniform(0.2, 0.35) * height
    x, y = rng.uniform(-0.1, 0.7) * width, horizon - h * 0.75
    color = random_color(rng, (0.1, 0.7), (0.2, 0.8))
    fill_polygon(picture, rectangle(x, y, w, h * 0.7), color)
    fill_polygon(picture, rectangle(x - 0.06 * w, y + 0.5 * h, 1.12 * w, h * 0.4), shade(color, 0.85))
    for side in (x - 0.08 * w, x + 0.96 * w):
        fill_polygon(picture, rectangle(side, y + 0.3 * h, 0.12 * w, h * 0.65), shade(color, 1.12))


def _wardrobe(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.15, 0.35) * width, rng.uniform(0.5, 0.95) * horizon
    x, y = rng.uniform(-0.1, 0.9) * width, horizon - h + 0.02 * height
    color = random_color(rng, (0.05, 0.6), (0.3, 0.9))
    fill_polygon(picture, rectangle(x, y, w, h), color)
    doors = rng.integers(2, 4)
    for door in range(doors):
        inner = rectangle(x + w * (door + 0.1) / doors, y + 0.04 * h, 0.8 * w / doors, 0.9 * h)
        stroke(picture, inner, shade(color, 0.7), 2, closed=True)
        fill_ellipse(picture, (x + w * (door + 0.85) / doors, y + h / 2), (2, 4), shade(color, 0.4))


def _framed_picture(rng, picture, horizon):
    height, width = picture.shape[:2]
    w, h = rng.uniform(0.08, 0.25) * width, rng.uniform(0.15, 0.4) * height
    x, y = rng.uniform(0, 0.9) * width, rng.uniform(0.05, 0.4) * horizon
    fill_polygon(picture, rectangle(x, y, w, h), random_color(rng, (0, 0.5), (0.1, 0.6)))
    fill_polygon(picture, rectangle(x + 3, y + 3, w - 6, h - 6), random_color(rng, (0, 0.3), (0.7, 1)))
    for _ in range(rng.integers(2, 6)):
        points = numpy.array([x, y]) + numpy.array([w, h]) * rng.uniform(0.2, 0.8, (3, 2))
        fill_polygon(picture, points, random_color(rng))


def _plant(rng, picture, horizon):
    height, width = picture.shape[:2]
    size = rng.uniform(0.15, 0.4) * height
    x, y = rng.uniform(0, 1) * width, horizon + rng.uniform(-0.02, 0.1) * height
    green = color_of(rng.uniform(1.5, 2.4), rng.uniform(0.4, 0.8), rng.uniform(0.3, 0.7))
    for _ in range(rng.integers(8, 18)):
        angle, length = rng.normal(-numpy.pi / 2, 0.8), size * rng.uniform(0.5, 1)
        tip = (x + length * numpy.cos(angle), y - 0.3 * size + length * numpy.sin(angle))
        middle = ((x + tip[0]) / 2, (y - 0.3 * size + tip[1]) / 2)
        fill_ellipse(picture, middle, (length / 2, length * 0.09), vary_color(rng, green), numpy.degrees(angle))
    pot = [(x - 0.15 * size, y - 0.35 * size), (x + 0.15 * size, y - 0.35 * size), (x + 0.1 * size, y), (x - 0.1 * size, y)]
    fill_polygon(picture, pot, random_color(rng, (0.2, 0.7), (0.4, 0.9)))


def outdoors(rng, width, height, family):
    """Sky, horizon and ground: a street of houses for training, a park with trees and a fence for the other."""
    sky = color_of(rng.uniform(3, 3.9), rng.uniform(0, 0.5), rng.uniform(0.5, 1))
    horizon = int(height * rng.uniform(0.35, 0.7))
    ramp = numpy.linspace(1, 0, height)[:, None] * numpy.ones((1, width))
    picture = mix(ramp, shade(sky, 1.15), sky).astype(numpy.uint8)
    (_houses if family == TRAINING else _trees)(rng, picture, horizon)
    ground = texture(rng, width, height - horizon, family)
    tone = numpy.full_like(ground, numpy.array(random_color(rng, (0, 0.3), (0.25, 0.7))).astype(numpy.uint8))
    picture[horizon:] = cv2.addWeighted(ground, 0.3, tone, 0.7, 0)
    return picture


def _houses(rng, picture, horizon):
    height, width = picture.shape[:2]
    x = -rng.uniform(0, 0.2) * width
    while x < width:
        w, top = rng.uniform(0.1, 0.3) * width, rng.uniform(-0.1, 0.75) * horizon
        color = random_color(rng, (0, 0.5), (0.3, 0.95))
        fill_polygon(picture, rectangle(x, top, w, horizon - top + 1), color)
        rows, columns = rng.integers(2, 6), rng.integers(2, 5)
        glass = shade(color, rng.choice([0.45, 1.4]))
        for row in range(rows):
            for column in range(columns):
                fill_polygon(picture, rectangle(x + w * (column + 0.25) / columns, top + (horizon - top) * (row + 0.25) / rows,
                                                0.5 * w / columns, 0.5 * (horizon - top) / rows), glass)
        x += w * rng.uniform(0.9, 1.3)


def _trees(rng, picture, horizon):
    height, width = picture.shape[:2]
    green = color_of(rng.uniform(1.2, 2.3), rng.uniform(0.3, 0.7), rng.uniform(0.25, 0.6))
    for _ in range(rng.integers(2, 7)):
        x, size = rng.uniform(0, width), rng.uniform(0.15, 0.45) * height
        top = horizon - size * rng.uniform(0.9, 1.3)
        fill_polygon(picture, rectangle(x - 0.05 * size, top, 0.1 * size, horizon - top), color_of(0.4, 0.5, 0.3))
        for _ in range(9):
            at = (x + rng.normal(0, 0.22) * size, top + rng.normal(0, 0.2) * size)
            fill_ellipse(picture, at, (0.25 * size, 0.22 * size), vary_color(rng, green, 10))
    fence = random_color(rng, (0, 0.4), (0.4, 0.95))
    step, tall = rng.uniform(5, 16), rng.uniform(0.08, 0.2) * height
    if rng.random() < 0.6:
        for x in numpy.arange(0, width, step):
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
        size = min(width, height) * numpy.exp(rng.uniform(numpy.log(0.03), numpy.log(0.3)))
        center = rng.uniform(0, 1, 2) * (width, height)
        (_training_shape if family == TRAINING else _held_out_shape)(rng, picture, center, size)


def _training_shape(rng, picture, center, size):
    color, other = random_color(rng), random_color(rng)
    kind = rng.integers(4)
    angle = rng.uniform(0, 180)
    if kind == 0:  # a disc: a ball, a plate, a clock
        fill_ellipse(picture, center, (size / 2, size / 2), color)
        stroke_ellipse(picture, center, (size / 2, size / 2), other, size * 0.08)
        for _ in range(rng.integers(0, 5)):
            fill_ellipse(picture, center + rng.normal(0, 0.15 * size, 2), (0.07 * size, 0.07 * size), other)
        if rng.random() < 0.4:
            stroke(picture, [center, center + rng.normal(0, 0.2 * size, 2)], other, 0.05 * size)
            stroke(picture, [center, center + rng.normal(0, 0.2 * size, 2)], other, 0.05 * size)
    elif kind == 1:  # a box with a band
        box = cv2.boxPoints(((float(center[0]), float(center[1])), (size, size * rng.uniform(0.4, 1.8)), angle))
        fill_polygon(picture, box, color)
        stroke(picture, [(box[0] + box[1]) / 2, (box[2] + box[3]) / 2], other, size * 0.15)
    elif kind == 2:  # a leaf
        fill_ellipse(picture, center, (size / 2, size * rng.uniform(0.1, 0.35)), color, angle)
    else:
        fill_polygon(picture, center + rng.normal(0, 0.4 * size, (rng.integers(3, 6), 2)), color)


def _held_out_shape(rng, picture, center, size):
    color, other = random_color(rng), random_color(rng)
    kind = rng.integers(4)
    if kind == 0:
        stroke_ellipse(picture, center, (size / 2, size / 2 * rng.uniform(0.5, 1)), color, size * rng.uniform(0.05, 0.25))
    elif kind == 1:  # a star
        count = int(rng.integers(4, 9))
        angles = numpy.arange(2 * count) * numpy.pi / count + rng.uniform(0, 3)
        radii = size / 2 * numpy.where(numpy.arange(2 * count) % 2, rng.uniform(0.3, 0.7), 1)
        fill_polygon(picture, center + numpy.stack([radii * numpy.cos(angles), radii * numpy.sin(angles)], 1), color)
        fill_ellipse(picture, center, (0.12 * size, 0.12 * size), other)
    elif kind == 2:  # a loop
        stroke(picture, smooth_curve(center + rng.normal(0, 0.4 * size, (5, 2)), 40, closed=True), color, size * 0.08)
    else:  # a blob with spots: a ladybird, a bowling ball, a lamp
        blob = center + size / 2 * numpy.array([[1, 0], [0.5, 0.9], [-0.6, 0.8], [-1, 0], [-0.4, -0.9], [0.5, -0.8]])
        fill_polygon(picture, smooth_curve(blob + rng.normal(0, 0.05 * size, (6, 2)), 40, closed=True), color)
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


# What light and the camera do

def degrade(rng, picture, strength=1.0):
    """Light from one side, exposure, white balance, blur, sensor noise, JPEG; returns another picture.

    strength  0 leaves nearly everything as it is, 1 reaches what a cheap camera does in a dim room
    """
    height, width = picture.shape[:2]
    picture = cv2.LUT(picture, _exposure(rng, strength))
    if rng.random() < 0.7:
        picture = _side_light(rng, picture, strength)
    if rng.random() < 0.4 * strength:
        picture = cv2.GaussianBlur(picture, (0, 0), rng.uniform(0.3, 0.3 + 0.9 * strength * max(1, height / 360)))
    if rng.random() < 0.15 * strength:
        picture = _motion_blur(rng, picture, int(rng.integers(2, 4 + int(3 * strength))))
    if rng.random() < 0.7:
        sigma = rng.uniform(0, 10) * strength
        grain = numpy.empty((height, width, 3), numpy.int16)
        cv2.setRNGSeed(int(rng.integers(1 << 30)))
        cv2.randn(grain, 0, max(0.3, sigma))
        picture = cv2.add(picture, grain, dtype=cv2.CV_8U)
    if rng.random() < 0.4:
        quality = int(rng.uniform(100 - 65 * strength, 100))
        picture = cv2.imdecode(cv2.imencode(".jpg", picture, [cv2.IMWRITE_JPEG_QUALITY, quality])[1], cv2.IMREAD_COLOR)
    return picture


def _exposure(rng, strength):
    """A lookup table for each channel: gamma, gain, white balance."""
    gamma = numpy.exp(rng.normal(0, 0.25 * strength))
    gain = numpy.exp(rng.normal(-0.05, 0.15 * strength)) * numpy.exp(rng.normal(0, 0.07 * strength, 3))
    table = 255 * (numpy.arange(256) / 255)[:, None] ** gamma * gain
    return numpy.clip(table, 0, 255).astype(numpy.uint8).reshape(1, 256, 3)


def _side_light(rng, picture, strength):
    """Darker towards one side, by a gain that is linear in x and y."""
    height, width = picture.shape[:2]
    corners = numpy.float32(1 + rng.uniform(-0.4, 0.15, (2, 2)) * strength)
    gain = cv2.resize(corners, (width, height), interpolation=cv2.INTER_LINEAR)
    return cv2.multiply(picture, cv2.merge([gain, gain, gain]), dtype=cv2.CV_8U)


def _motion_blur(rng, picture, length):
    kernel = numpy.zeros((2 * length + 1, 2 * length + 1), numpy.float32)
    angle = rng.uniform(0, numpy.pi)
    reach = numpy.array([numpy.cos(angle), numpy.sin(angle)]) * length / 2
    stroke(kernel, [length - reach, length + reach], 1.0, 1)
    return cv2.filter2D(picture, -1, kernel / kernel.sum())
