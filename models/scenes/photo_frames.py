# SPDX-License-Identifier: Apache-2.0
"""Labelled frames from photographs: cut, in other colours, four of them side by side, with more put before them."""
import cv2
import numpy as np

from models.labels import boxes, table
from models.scenes import compose

PASTED = 0.35  # the share of frames with more before them
STRETCH = 0.25  # up to so much wider or higher is a part: the logarithm
LEAST = 0.05  # of the frame's height or width: what is smaller in both is ignored


class PhotoFrames:
    """Every second one shows something of the classes, the others mostly nothing: what is taken for it there is unlearnt.
    Now and then things of `source`, as the layout puts them, stand before it."""

    def __init__(self, photographs, classes, layout, source):
        self.layout, self.source = layout, source
        rows = [(photograph, photograph.labels(classes, LEAST)) for photograph in photographs]
        self.shows = [row for row in rows if any(kind != table.IGNORE for kind, *_ in row[1])]
        self.all = rows

    def example(self, rng, width, height):
        frame, labels = self._one(rng, width, height) if rng.random() < 0.6 else self._four(rng, width, height)
        if rng.random() < PASTED:
            things = self.layout(rng, self.source, width, height)
            frame, labels = compose.compose_over(frame, labels, things[:rng.integers(1, 4)], rng)
        return frame, [(kind if max(w / width, h / height) >= LEAST else table.IGNORE, x, y, w, h)
                       for kind, x, y, w, h in labels]

    def _four(self, rng, width, height):
        middle = (rng.uniform(0.35, 0.65, 2) * (width, height)).astype(int)
        frame, labels = np.zeros((height, width, 3), np.uint8), []
        for left, right in ((0, middle[0]), (middle[0], width)):
            for top, bottom in ((0, middle[1]), (middle[1], height)):
                frame[top:bottom, left:right], found = self._one(rng, right - left, bottom - top)
                labels += [(kind, x + left, y + top, w, h) for kind, x, y, w, h in found]
        return frame, labels

    def _one(self, rng, width, height):
        """A part of a photograph of this shape, scaled to this size; what is seen of it in part is ignored."""
        rows = self.shows if rng.random() < 0.5 else self.all
        photograph, labels = rows[rng.integers(len(rows))]
        picture = photograph.pixels()
        scale = min(picture.shape[1] / width, picture.shape[0] / height) * rng.uniform(0.45, 1)
        scale *= np.exp(rng.uniform(-STRETCH, 0, 2))  # across and down
        size = np.array((width, height)) * scale
        left, top = rng.uniform(0, 1, 2) * (picture.shape[1::-1] - size)
        matrix = np.array([[1 / scale[0], 0, -left / scale[0]], [0, 1 / scale[1], -top / scale[1]]])
        if scale.max() > 1:
            picture = cv2.blur(picture, tuple(np.maximum(1, scale.round()).astype(int).tolist()))
        cut = cv2.warpAffine(picture, matrix, (width, height), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
        kept = []
        for kind, *box in labels:
            whole = (np.array(boxes.corners(box)) - (left, top, left, top)) / np.tile(scale, 2)
            seen = np.clip(whole, 0, (width, height) * 2)
            share = boxes.area(seen) / boxes.area(whole)
            if share > 0:
                kept.append((kind if share > 0.5 else table.IGNORE, *seen[:2], *(seen[2:] - seen[:2])))
        return recoloured(rng, cut), kept


def recoloured(rng, picture):
    """Half the time in other hues, paler or stronger, seldom without any colour."""
    if rng.random() < 0.5:
        return picture
    hue, saturation, value = cv2.split(cv2.cvtColor(picture, cv2.COLOR_BGR2HSV))
    hue = cv2.LUT(hue, ((np.arange(256) + rng.integers(-12, 13)) % 180).astype(np.uint8))
    saturation = cv2.convertScaleAbs(saturation, alpha=rng.uniform(0.3, 1.4) if rng.random() < 0.85 else 0)
    return cv2.cvtColor(cv2.merge([hue, saturation, value]), cv2.COLOR_HSV2BGR)


class EmptyFrames:
    """A source's backgrounds, on which nothing is to be found."""

    def __init__(self, source):
        self.source = source

    def example(self, rng, width, height):
        return self.source.background(rng, width, height), []
