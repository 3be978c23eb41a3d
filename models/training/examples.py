# SPDX-License-Identifier: Apache-2.0
"""Batches for training, made in processes of their own: of drawn examples, of users' labelled ones, or of both.

A source of examples has example(rng, width, height); what it gives may be used several times, varied each time.
"""
import cv2
import numpy as np
import torch

from models.labels import boxes, table
from models.labels.pictures import read_picture
from models.sources.mixed import Mixed, Stock


FACE_CROP = {"network": (1, 112, 112)}  # the shape of the input


class Batches(torch.utils.data.IterableDataset):
    """Endless; each batch of one of the network's shapes of input. The same seed and number of processes: the same batches."""

    def __init__(self, recipe, options):
        self.recipe, self.options, self.source = recipe, options, recipe.examples(options)

    def __iter__(self):
        cv2.setNumThreads(1)
        recipe, options, process = self.recipe, self.options, torch.utils.data.get_worker_info()
        rng = np.random.default_rng([options.seed, process.id if process else 0])
        stocks = {shape: Stock(recipe.stock // max(1, options.workers), recipe.fresh) for shape in recipe.shapes.values()}
        while True:
            shape = recipe.shapes[rng.choice(list(recipe.shapes))]
            size = shape[:0:-1]  # width, height
            taken = [stocks[shape].take(rng, self.source.example, *size) for _ in range(options.batch)]
            yield collate([recipe.vary(rng, *example, *size) for example in taken])


def collate(examples):
    """Fields of one shape side by side, others in a list."""
    fields = [[torch.as_tensor(np.asarray(value)) for value in field] for field in zip(*examples)]
    return [torch.stack(field) if len({value.shape for value in field}) == 1 else field for field in fields]


def drawn_and_labelled(options, drawn, labelled):
    """`labelled` makes a source of each directory of --data."""
    if not options.data:
        return drawn
    share = options.share / len(options.data)
    return Mixed([(1 - options.share, drawn), *((share, labelled(directory)) for directory in options.data)])


class LabelledFrames:
    """Pictures with boxes: parts of them, since there are few."""

    def __init__(self, directory, classes):
        self.rows = table.read(directory, table.BOXES, classes)

    def example(self, rng, width, height):
        path, labels = self.rows[rng.integers(len(self.rows))]
        picture = read_picture(path)
        part = np.array(picture.shape[:2]) * rng.uniform(0.6, 1, 2) // 1
        top, left = (rng.uniform(0, 1, 2) * (picture.shape[:2] - part) // 1).astype(int)
        bottom, right = (top, left) + part.astype(int)
        kept = []
        for kind, *box in labels:
            whole = np.array(boxes.corners(box)) - (left, top, left, top)
            seen = np.clip(whole, 0, (right - left, bottom - top) * 2)
            share = boxes.area(seen) / boxes.area(whole)
            if share > 0:
                kept.append((kind if share > 0.5 else table.IGNORE, *seen[:2], *(seen[2:] - seen[:2])))
        return picture[top:bottom, left:right], kept


class LabelledCrops:
    """Pictures with one line each, of which kelnn eval takes the middle square."""

    def __init__(self, directory, layout, classes=(), flags=cv2.IMREAD_GRAYSCALE):
        self.rows, self.flags = table.read(directory, layout, classes), flags

    def example(self, rng, width, height):
        """The picture, and its class."""
        picture, values, _ = self.crop(self.rows[rng.integers(len(self.rows))], width)
        return picture, values[0]

    def crop(self, row, size):
        """The picture, its values, and the left, top and side of the square."""
        picture = read_picture(row[0], self.flags)
        rows, columns = picture.shape[:2]
        side = min(rows, columns)
        left, top = (columns - side) // 2, (rows - side) // 2
        square = picture[top:top + side, left:left + side]
        return cv2.resize(square, (size, size), interpolation=cv2.INTER_LINEAR), row[1][0], (left, top, side)


def moved(rng, picture, points=np.zeros((0, 2)), turn=4.0, scale=0.06, shift=0.035):
    """The same crop cut a little elsewhere, turned (degrees), mirrored at times: picture, points in it, degrees, mirrored."""
    size = picture.shape[0]
    degrees = rng.normal(0, turn)
    matrix = cv2.getRotationMatrix2D((size / 2, size / 2), -degrees, np.exp(rng.normal(0, scale)))
    matrix[:, 2] += rng.normal(0, shift * size, 2)
    picture = cv2.warpAffine(picture, matrix, (size, size), borderMode=cv2.BORDER_REPLICATE)
    points = points @ matrix[:, :2].T + matrix[:, 2]
    mirrored = rng.random() < 0.5
    return (picture[:, ::-1], (size, 0) + points * (-1, 1), degrees, True) if mirrored else (picture, points, degrees, False)


def partly_hidden(rng, picture, chance=0.25):
    """At times with a bar or a patch of one grey before it, as hands, glasses, hair and masks hide parts of a face."""
    if rng.random() >= chance:
        return picture
    size = picture.shape[0]
    w, h = (rng.uniform(0.1, 0.45, 2) * size).astype(int)
    x, y = rng.integers(-w // 2, size - w // 2), rng.integers(-h // 2, size - h // 2)
    picture = picture.copy()
    picture[max(y, 0):y + h, max(x, 0):x + w] = rng.integers(0, 256)
    return picture


def mirrored_at_times(rng, picture, labels):
    if rng.random() < 0.5:
        return picture, labels
    width = picture.shape[1]
    return np.ascontiguousarray(picture[:, ::-1]), [(kind, width - x - w, y, w, h) for kind, x, y, w, h in labels]


def as_input(picture):
    """What the runtime shows the network: channels, height, width, red first, each byte less 128."""
    picture = picture[..., None] if picture.ndim == 2 else picture
    return np.ascontiguousarray(picture[..., ::-1].transpose(2, 0, 1), np.float32) - 128


def relit(rng, image):
    """An input in another light, with noise."""
    light = image * rng.uniform(0.7, 1.25) + rng.normal(0, 13, (len(image), 1, 1))
    return np.clip(light + rng.normal(0, rng.uniform(0.1, 5), image.shape), -128, 127).astype(np.float32)
