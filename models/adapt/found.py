# SPDX-License-Identifier: Apache-2.0
"""From boxes and scores to what a task's detector reads, as nodes of the network; what that says again, in numpy.

Every box is cut off at the picture's edges; of one that is less than a pixel there the score becomes 0.
"""
from typing import Any, List, Sequence, Tuple

import numpy as np

from models.adapt.graph import Network, Refused
from models.adapt.layouts import is_at_least, part, side_by_side
from models.tasks import CENTRE_VARIANCE, SIZE_VARIANCE, STRIDES, Detector, face_anchors, FACE_LEVELS, grids

Size = Tuple[int, int]
Classes = Sequence[Sequence[int]]  # for each of the task's, those of the network that it is
CORNERS = np.array([[1, 0, 1, 0], [0, 1, 0, 1], [-0.5, 0, 0.5, 0], [0, -0.5, 0, 0.5]])  # from centre and size
CENTRE_AND_SIZE = np.linalg.inv(CORNERS)
LEAST_SIDE = 1.0  # pixels
LEAST_SCORE, LEAST_SHARE = 1e-7, 1e-6  # of what a logarithm is taken


def limited(network: Network, value: str, least: float) -> str:
    """From `least` to 1 - `least`, for a logarithm."""
    part_of = network.add("HardSigmoid", value, alpha=1 / (1 - 2 * least), beta=-least / (1 - 2 * least))
    return network.add("Add", network.add("Mul", part_of, 1 - 2 * least), least)


def logit(network: Network, value: str, least: float) -> str:
    value = limited(network, value, least)
    return network.add("Sub", network.add("Log", value), network.add("Log", network.add("Sub", 1.0, value)))


def in_picture(network: Network, boxes: str, scores: str, size: Size, classes: Classes, class_count: int) -> Tuple[str, str, str]:
    """Boxes cut off, the score of each, and [1, n, task's classes]: the scores of its classes."""
    sides = np.tile(size, 2)
    corners = network.add("HardSigmoid", network.add("MatMul", boxes, CORNERS / sides), alpha=1.0, beta=0.0)
    boxes = network.add("MatMul", corners, CENTRE_AND_SIZE * sides)
    columns = []
    for names in classes:
        same = [part(network, scores, n, n + 1) for n in names]
        columns.append(same[0] if len(same) == 1 else network.add(
            "ReduceMax", network.add("Concat", *same, axis=2), axes=[2], keepdims=1))
    chosen = columns[0] if len(columns) == 1 else network.add("Concat", *columns, axis=2)
    score = columns[0] if len(columns) == 1 else network.add("ReduceMax", chosen, axes=[2], keepdims=1)
    if sum(map(len, classes)) < class_count:  # a box is of the class with its best score, or of none
        best = network.add("ReduceMax", scores, axes=[2], keepdims=1)
        score = network.add("Mul", score, is_at_least(network, network.add("Sub", score, best), 0))
    for side in (2, 3):
        score = network.add("Mul", score, is_at_least(network, part(network, boxes, side, side + 1), LEAST_SIDE))
    return boxes, score, chosen


def to_face_anchors(network: Network, boxes: str, score: str, count: int, size: Size) -> List[str]:
    """Any anchor can say any box: they take them in turn."""
    anchors = face_anchors()
    if count > len(anchors):
        raise Refused(f"{count} boxes are more than the {len(anchors)} that face detection reads; a network with fewer anchors, "
                      "or with coarser maps, is needed")
    if count < len(anchors):
        padding = np.array([0, 0, 0, 0, len(anchors) - count, 0])
        boxes = network.add("Pad", boxes, padding, np.float32(1))
        score = network.add("Pad", score, padding, np.float32(0))
    boxes = network.add("Mul", boxes, np.broadcast_to(1 / np.tile(size, 2), (1, len(anchors), 4)))
    away = network.add("Sub", part(network, boxes, 0, 2), anchors[None, :, :2])
    steps = network.add("Div", away, anchors[None, :, 2:] * CENTRE_VARIANCE)
    sides = network.add("Add", part(network, boxes, 2, 4), LEAST_SHARE)
    growth = network.add("Mul", network.add("Sub", network.add("Log", sides), np.log(anchors[None, :, 2:])), 1 / SIZE_VARIANCE)
    score = limited(network, score, LEAST_SCORE)
    logarithms = network.add("Concat", network.add("Log", network.add("Sub", 1.0, score)), network.add("Log", score), axis=2)
    regressions, outputs, start = network.add("Concat", steps, growth, axis=2), [], 0
    for columns, rows, sizes in FACE_LEVELS:
        end = start + columns * rows * len(sizes)
        outputs += [part(network, one, start, end, axis=1) for one in (logarithms, regressions)]
        start = end
    return outputs


def to_grids(network: Network, boxes: str, score: str, chosen: str, count: int, size: Size, detector: Detector) -> List[str]:
    """A box goes to the cell of its centre and the anchor of the nearest size; of several for one place the best stays."""
    shapes, anchors = grids(size), np.array(detector.anchors, np.float64)
    counts = [columns * rows * 3 for columns, rows in shapes]
    areas = np.log(anchors.prod(-1))[::-1].reshape(-1)  # from the smallest on
    limits = (areas[1:] + areas[:-1]) / 2
    sizes = network.add("Log", network.add("Add", part(network, boxes, 2, 4), LEAST_SHARE))
    area = network.add("MatMul", sizes, np.ones((2, 1)))
    steps = [is_at_least(network, area, limit) for limit in limits]
    is_large = steps[2]
    anchor = network.add("MatMul", network.add("Concat", *steps, axis=2), np.ones((5, 1)))

    def either(large: str, small: str, columns: int) -> str:
        share = side_by_side(network, is_large, columns) if columns > 1 else is_large
        return network.add("Add", small, network.add("Mul", network.add("Sub", large, small), share))

    places, parts = [], []
    for (columns, _), stride, first, first_anchor in zip(shapes, STRIDES, (0, counts[0]), (3, 0)):
        cells = network.add("Mul", part(network, boxes, 0, 2), 1 / stride)
        whole = network.add("Floor", cells)
        parts.append(network.add("Sub", cells, whole))
        place = network.add("MatMul", whole, np.array([[3], [3 * columns]]))
        places.append(network.add("Add", network.add("Add", place, anchor), float(first - first_anchor)))
    shift = logit(network, either(parts[0], parts[1], 2), LEAST_SHARE)
    values = network.add("Concat", shift, sizes, chosen, axis=2)

    # [1, n, places]: the scores where a box may go; [1, places, n]: 1 where it is the first of the best.
    total = sum(counts)
    may_go = _equal(network, side_by_side(network, either(places[0], places[1], 1), total), np.arange(total))
    bids = network.add("Mul", side_by_side(network, score, total), may_go)
    highest = network.add("Transpose", network.add("ReduceMax", bids, axes=[1], keepdims=1), perm=[0, 2, 1])
    winner = network.add("Cast", network.add("ArgMax", bids, axis=1, keepdims=1), to=1)
    winner = side_by_side(network, network.add("Transpose", winner, perm=[0, 2, 1]), count)
    won = network.add("MatMul", _equal(network, winner, np.arange(count)), values)
    sides = np.concatenate([np.tile(np.log(anchors[n]), (counts[n] // 3, 1)) for n in (0, 1)])[None]
    growth = network.add("Sub", part(network, won, 2, 4), sides)
    classes = part(network, won, 4, 4 + detector.classes)
    said = network.add("Concat", part(network, won, 0, 2), growth, logit(network, highest, LEAST_SCORE), classes, axis=2)
    return [part(network, said, 0, counts[0], axis=1), part(network, said, counts[0], total, axis=1)]


def _equal(network: Network, values: str, numbers: Any) -> str:
    """1 where whole numbers are these, one for each of the last axis, else 0."""
    away = network.add("Abs", network.add("Add", values, -numbers.astype(np.float32)))
    return network.add("Relu", network.add("Sub", 1.0, away))


# ----- In numpy

def cut_off(boxes: Any, scores: Any, size: Size, classes: Classes) -> Tuple[Any, Any, Any]:
    """Of what a layout's decode gives: corners, score and class of the boxes that are the task's."""
    corners = np.clip(boxes @ CORNERS, 0, np.tile(size, 2))
    chosen = np.stack([scores[:, list(names)].max(1) for names in classes], 1)
    is_there = ((corners[:, 2:] - corners[:, :2]) > LEAST_SIDE).all(1) & (chosen.max(1) == scores.max(1))
    return corners[is_there], chosen.max(1)[is_there], chosen.argmax(1)[is_there]


def read_faces(outputs: Sequence[Any]) -> Tuple[Any, Any, Any]:
    """What the library reads from a network's outputs, before any threshold: corners, score and class."""
    anchors = face_anchors()
    scores = np.concatenate([one.reshape(-1, 2) for one in outputs[0::2]])
    steps = np.concatenate([one.reshape(-1, 4) for one in outputs[1::2]])
    powers = np.exp(scores)
    centres = np.clip(anchors[:, :2] + steps[:, :2] * CENTRE_VARIANCE * anchors[:, 2:], 0, 1)
    sizes = np.clip(np.exp(steps[:, 2:] * SIZE_VARIANCE) * anchors[:, 2:], 0, 1)
    corners = np.hstack([centres, sizes]) @ CORNERS * np.tile((320, 240), 2)
    return corners, powers[:, 1] / powers.sum(1), np.zeros(len(anchors), int)


def read_grids(outputs: Sequence[Any], size: Size, detector: Detector) -> Tuple[Any, Any, Any]:
    boxes, scores, classes = [], [], []
    for output, (columns, rows), anchors in zip(outputs, grids(size), detector.anchors):
        values = output.reshape(rows, columns, 3, -1)
        y, x = np.mgrid[:rows, :columns]
        centres = 1 / (1 + np.exp(-values[..., :2])) + np.stack([x, y], -1)[:, :, None]
        sizes = np.exp(values[..., 2:4]) * anchors
        boxes.append(np.concatenate([centres * size / (columns, rows), sizes], -1).reshape(-1, 4))
        scores.append(1 / (1 + np.exp(-values[..., 4].reshape(-1))))
        classes.append(values[..., 5:].argmax(-1).reshape(-1) if detector.classes > 1 else np.zeros(len(boxes[-1]), int))
    return np.concatenate(boxes) @ CORNERS, np.concatenate(scores), np.concatenate(classes)
