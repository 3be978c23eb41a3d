# SPDX-License-Identifier: Apache-2.0
"""Colours, strokes with fractions of a pixel, and one picture over another. Colours are blue, green, red, 0 to 255."""
import colorsys

import cv2
import numpy as np

SHIFT = 4  # fractional bits of OpenCV's drawing functions


def any_colour(rng, saturation=(0.0, 0.8), value=(0.1, 1.0)):
    """Any hue."""
    return colour_of(rng.uniform(0, 6), rng.uniform(*saturation), rng.uniform(*value))


def colour_of(hue, saturation, value):
    """hue 0..6 (red, yellow, green, cyan, blue, magenta), the others 0..1."""
    def channel(n):
        k = (n + hue) % 6
        return 255 * value * (1 - saturation * max(0, min(k, 4 - k, 1)))

    return channel(1), channel(3), channel(5)


def from_hsv(hue, saturation, value):
    """The same as an array, hue 0..1."""
    red, green, blue = colorsys.hsv_to_rgb(hue % 1, np.clip(saturation, 0, 1), np.clip(value, 0, 1))
    return np.array([blue, green, red], np.float32) * 255


def random_colour(rng):
    """As things are coloured: greys, muted and dark colours more often than bright ones."""
    kind = rng.random()
    if kind < 0.25:
        return from_hsv(rng.random(), rng.uniform(0, 0.1), rng.uniform(0.1, 0.95))
    if kind < 0.5:
        return from_hsv(rng.uniform(0.52, 0.7), rng.uniform(0.3, 0.8), rng.uniform(0.15, 0.7))
    return from_hsv(rng.random(), rng.uniform(0.2, 0.9), rng.uniform(0.25, 0.95))


def vary_colour(rng, colour, amount=20):
    return shade(np.array(colour) + rng.normal(0, amount, 3), 1)


def shade(colour, factor):
    return tuple(float(c) for c in np.clip(np.array(colour, float) * factor, 0, 255))


def fixed(points, shift=SHIFT):
    return np.round(np.asarray(points) * (1 << shift)).astype(np.int32)


def fill_polygon(picture, points, colour, shift=SHIFT):
    cv2.fillPoly(picture, [fixed(points, shift)], colour, cv2.LINE_AA, shift)


def stroke(picture, points, colour, width, closed=False, shift=SHIFT):
    cv2.polylines(picture, [fixed(points, shift)], closed, colour, max(1, round(width)), cv2.LINE_AA, shift)


def fill_ellipse(picture, center, axes, colour, angle=0.0, thickness=-1):
    """axes: half the width and half the height."""
    a, b = np.maximum(fixed(axes), 1).tolist()
    cv2.ellipse(picture, fixed(center).tolist(), (a, b), float(angle), 0, 360, colour, thickness, cv2.LINE_AA, SHIFT)


def stroke_ellipse(picture, center, axes, colour, width, angle=0.0):
    fill_ellipse(picture, center, axes, colour, angle, max(1, round(width)))


def rectangle(x, y, width, height):
    return [(x, y), (x + width, y), (x + width, y + height), (x, y + height)]


def smooth_curve(points, count=40, closed=False):
    """A curve through the points (Catmull-Rom)."""
    p = np.asarray(points, float)
    p = np.concatenate([p[-1:], p, p[:2]]) if closed else np.concatenate([p[:1], p, p[-1:]])
    segments = len(p) - 3
    t = np.linspace(0, segments, count, endpoint=not closed)
    i = np.minimum(t.astype(int), segments - 1)
    t = (t - i)[:, None]
    a, b, c, d = p[i], p[i + 1], p[i + 2], p[i + 3]
    return 0.5 * (2 * b + (c - a) * t + (2 * a - 5 * b + 4 * c - d) * t ** 2 + (3 * b - a - 3 * c + d) * t ** 3)


def blend(under, over, opacity):
    """Paints `over` a part of a picture, in place; opacity is 0 to 1, height x width."""
    part = under.astype(np.float32, copy=False)
    under[:] = part + (over - part) * opacity[..., None]


def inside(picture, cut_out, left, top):
    """Where they meet: (slices of the picture, slices of the cut-out), or None."""
    height, width = picture.shape[:2]
    rows, columns = cut_out.shape[:2]
    x0, y0, x1, y1 = max(left, 0), max(top, 0), min(left + columns, width), min(top + rows, height)
    return (np.s_[y0:y1, x0:x1], np.s_[y0 - top:y1 - top, x0 - left:x1 - left]) if x0 < x1 and y0 < y1 else None


def paste(picture, cut_out, left=0, top=0):
    """Puts a cut-out (BGRA) into the picture, in place; what lies outside is cut off."""
    places = inside(picture, cut_out, left, top)
    if places:
        own = cut_out[places[1]]
        blend(picture[places[0]], own[..., :3], own[..., 3].astype(np.float32) / 255)
