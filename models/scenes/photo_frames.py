# SPDX-License-Identifier: Apache-2.0
"""Labelled frames from photographs as they are: cut, or four of them side by side."""
import cv2
import numpy as np

from models.labels import boxes, table

LEAST = 0.05  # of the frame's height or width: what is smaller in both is ignored


class PhotoFrames:
    """Every second one shows something of the classes, the others mostly nothing: what is taken for it there is unlearnt."""

    def __init__(self, photographs, classes):
        self.classes = classes
        rows = [(photograph, photograph.labels(classes)) for photograph in photographs]
        self.shows = [row for row in rows if any(kind != table.IGNORE for kind, *_ in row[1])]
        self.all = rows

    def example(self, rng, width, height):
        if rng.random() < 0.6:
            return self._one(rng, width, height)
        middle = (rng.uniform(0.35, 0.65, 2) * (width, height)).astype(int)
        frame, labels = np.zeros((height, width, 3), np.uint8), []
        for left, right in ((0, middle[0]), (middle[0], width)):
            for top, bottom in ((0, middle[1]), (middle[1], height)):
                frame[top:bottom, left:right], found = self._one(rng, right - left, bottom - top)
                labels += [(kind, x + left, y + top, w, h) for kind, x, y, w, h in found]
        return frame, [(kind if max(w / width, h / height) >= LEAST else table.IGNORE, x, y, w, h)
                       for kind, x, y, w, h in labels]

    def _one(self, rng, width, height):
        """A part of a photograph of this shape, scaled to this size; what is seen of it in part is ignored."""
        rows = self.shows if rng.random() < 0.5 else self.all
        photograph, labels = rows[rng.integers(len(rows))]
        picture = photograph.pixels()
        scale = min(picture.shape[1] / width, picture.shape[0] / height) * rng.uniform(0.45, 1)
        size = np.array((width, height)) * scale
        left, top = rng.uniform(0, 1, 2) * (picture.shape[1::-1] - size)
        matrix = np.array([[1 / scale, 0, -left / scale], [0, 1 / scale, -top / scale]])
        if scale > 1:
            picture = cv2.blur(picture, (round(scale), round(scale)))
        cut = cv2.warpAffine(picture, matrix, (width, height), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
        kept = []
        for kind, *box in labels:
            whole = (np.array(boxes.corners(box)) - (left, top, left, top)) / scale
            seen = np.clip(whole, 0, (width, height) * 2)
            share = boxes.area(seen) / boxes.area(whole)
            if share > 0:
                kept.append((kind if share > 0.5 else table.IGNORE, *seen[:2], *(seen[2:] - seen[:2])))
        return cut, kept


class EmptyFrames:
    """A source's backgrounds, on which nothing is to be found."""

    def __init__(self, source):
        self.source = source

    def example(self, rng, width, height):
        return self.source.background(rng, width, height), []
