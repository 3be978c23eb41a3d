# SPDX-License-Identifier: Apache-2.0
"""Cut-out drawings: a canvas on which convex parts are painted with fabric and soft round shading.

For people.py and objects.py. Everything random comes from the generator that the caller gives.
"""
import cv2
import numpy as np

from models.labels.making import HELD_OUT, TRAINING
from models.sources.drawn.paint import blend, fill_polygon, random_colour

# Patterns of cloth and surfaces: no pattern but the plain one is in both families.
PATTERNS = {TRAINING: ("plain", "plain", "stripes", "checks", "blotches"),
            HELD_OUT: ("plain", "plain", "diamonds", "dots", "waves")}


class Canvas:
    """A picture with an alpha channel; `light` is the direction that the light comes from (x, y)."""

    def __init__(self, width, height, light=(-0.5, -0.6)):
        self.colour = np.zeros((height, width, 3), np.float32)
        self.alpha = np.zeros((height, width), np.float32)
        self.light = light

    def paint(self, points, fabric, roundness=0.4, opacity=1.0):
        """Paints the convex hull of `points` (N x 2) with a colour or with a picture as large as the canvas."""
        hull = cv2.convexHull(np.asarray(points, np.float32)).reshape(-1, 2)
        self.paint_polygon(hull, fabric, roundness, opacity)

    def paint_polygon(self, polygon, fabric, roundness=0.4, opacity=1.0):
        polygon = np.asarray(polygon, np.float32)
        height, width = self.alpha.shape
        left, top = np.maximum(np.floor(polygon.min(axis=0)).astype(int) - 1, 0)
        right, bottom = np.ceil(polygon.max(axis=0)).astype(int) + 2
        right, bottom = min(right, width), min(bottom, height)
        if right <= left or bottom <= top:
            return
        mask = np.zeros((bottom - top, right - left), np.uint8)
        fill_polygon(mask, polygon - (left, top), 255)
        self.cloth(mask, left, top, fabric, roundness, opacity)

    def cloth(self, mask, left, top, fabric, roundness, opacity=1.0):
        bottom, right = top + mask.shape[0], left + mask.shape[1]
        part = fabric[top:bottom, left:right] if isinstance(fabric, np.ndarray) and fabric.ndim == 3 \
            else np.asarray(fabric, np.float32)
        lit = part * self._shade(mask, roundness)[..., None]
        self.cover(np.s_[top:bottom, left:right], lit, mask.astype(np.float32) * (opacity / 255.0))

    def cover(self, place, colour, opacity):
        """A picture over one part of the canvas."""
        blend(self.colour[place], colour, opacity)
        np.maximum(self.alpha[place], opacity, out=self.alpha[place])

    def _shade(self, mask, roundness):
        """Darker towards the edge, as on a cylinder, and darker away from the light."""
        if roundness == 0:
            return np.ones(mask.shape, np.float32)
        distance = cv2.distanceTransform((mask > 127).astype(np.uint8), cv2.DIST_L2, 3)
        depth = np.minimum(distance / max(distance.max(), 1e-3), 1)
        rounded = 1 - roundness * (1 - np.sqrt(depth * (2 - depth)))
        height, width = mask.shape
        across = np.linspace(-1, 1, width, dtype=np.float32)[None, :] * self.light[0]
        along = np.linspace(-1, 1, height, dtype=np.float32)[:, None] * self.light[1]
        return rounded * (1 + 0.35 * roundness * (across + along))

    def cut_out(self):
        """The painted part as an 8-bit BGRA picture, tight around what is at least half opaque, or None."""
        rows = np.flatnonzero((self.alpha > 0.5).any(axis=1))
        columns = np.flatnonzero((self.alpha > 0.5).any(axis=0))
        if len(rows) == 0:
            return None
        box = np.s_[rows[0]:rows[-1] + 1, columns[0]:columns[-1] + 1]
        return np.dstack([np.clip(self.colour[box], 0, 255), self.alpha[box] * 255]).astype(np.uint8)


def smooth_noise(rng, height, width, cell, low=-1.0, high=1.0):
    """Noise that changes over about `cell` pixels."""
    grid = rng.uniform(low, high, (int(height / cell) + 3, int(width / cell) + 3)).astype(np.float32)
    grown = cv2.resize(grid, None, fx=cell, fy=cell, interpolation=cv2.INTER_CUBIC)
    return grown[:height, :width]


def fabric(rng, family, width, height, colour=None, other=None):
    """A cloth or a surface as large as the canvas: a pattern of two colours, with folds."""
    colour = random_colour(rng) if colour is None else colour
    pattern = rng.choice(PATTERNS[family])
    folds = 1 + 0.12 * smooth_noise(rng, height, width, max(12, height / 14))[..., None]
    if pattern == "plain":
        return colour * folds
    if other is None:
        other = random_colour(rng) if rng.random() < 0.6 else colour * rng.uniform(0.5, 1.5)
    return (colour + (other - colour) * _pattern(rng, pattern, width, height)[..., None]) * folds


def _pattern(rng, pattern, width, height):
    """0 to 1 for every pixel."""
    angle = rng.choice([0, np.pi / 2, rng.uniform(0, np.pi)])
    x = np.arange(width, dtype=np.float32)[None, :]
    y = np.arange(height, dtype=np.float32)[:, None]
    across = x * np.cos(angle) + y * np.sin(angle)
    along = y * np.cos(angle) - x * np.sin(angle)
    step = rng.uniform(0.015, 0.05) * height
    wave_across, wave_along = np.sin(across * (2 * np.pi / step)), np.sin(along * (2 * np.pi / step))
    if pattern == "stripes":
        return _soft_step(wave_across + rng.uniform(-0.5, 0.5))
    if pattern == "checks":
        return (_soft_step(wave_across) + _soft_step(wave_along)) / 2
    if pattern == "blotches":
        return _soft_step(smooth_noise(rng, height, width, step) * 1.5)
    if pattern == "dots":
        return _soft_step(wave_across * wave_along - 0.45)
    if pattern == "diamonds":
        return _soft_step(wave_across + wave_along)
    return _soft_step(np.sin((across + 0.3 * step * wave_along) * (2 * np.pi / step)))  # waves


def _soft_step(values):
    return np.clip(values * 4 + 0.5, 0, 1)
