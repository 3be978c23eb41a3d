# SPDX-License-Identifier: Apache-2.0
"""Layouts of detectors' outputs: how each becomes boxes and scores, as nodes of the network and, to check them, in numpy.

Boxes are centre and size in pixels of the network's input; scores are one a class.
"""
import dataclasses
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple

import numpy as np

from models.adapt.graph import Network, Refused


@dataclasses.dataclass
class Options:
    size: Tuple[int, int]  # of the network's input: width, height
    scores: str = "as-they-are"  # or what is still to be done to them: sigmoid, softmax
    anchors: Optional[Any] = None  # [n, 4]: centre and size, relative to the input
    variances: Sequence[float] = (0.1, 0.2)  # of anchors' centres and sizes


@dataclasses.dataclass
class Layout:
    outputs: str  # what they are, in their order
    count: int  # of them
    shapes_of: Callable[[List[List[int]], Options], Tuple[int, int]]  # boxes and classes; Refused if they are others
    nodes: Callable[[Network, Sequence[str], List[List[int]], Options], Tuple[str, str]]  # [1, n, 4] and [1, n, classes]
    decode: Callable[[Sequence[Any], Options], Tuple[Any, Any]]  # [n, 4] and [n, classes]


def part(network: Network, value: str, start: int, end: int, axis: int = 2) -> str:
    return network.add("Slice", value, *(np.array([one]) for one in (start, end, axis)))


def side_by_side(network: Network, value: str, count: int) -> str:
    """[1, n, 1] as [1, n, count]."""
    return network.add("MatMul", value, np.ones((1, count)))


def is_at_least(network: Network, value: str, limit: float) -> str:
    """1 or 0; comparisons give no floats that OpenCV would reckon with."""
    return network.add("Floor", network.add("HardSigmoid", value, alpha=1.0, beta=1.0 - limit))


def finished(network: Network, scores: str, options: Options) -> str:
    if options.scores == "sigmoid":
        return network.add("Sigmoid", scores)
    return network.add("Softmax", scores, axis=2) if options.scores == "softmax" else scores


def finish(scores: Any, options: Options) -> Any:
    if options.scores == "sigmoid":
        return 1 / (1 + np.exp(-scores))
    if options.scores == "softmax":
        powers = np.exp(scores - scores.max(-1, keepdims=True))
        return powers / powers.sum(-1, keepdims=True)
    return scores


# ----- [1, 4 + classes, n]

def _columns_shape(shapes: List[List[int]], _: Options) -> Tuple[int, int]:
    if len(shapes[0]) != 3 or shapes[0][0] != 1 or shapes[0][1] < 5:
        raise Refused("it is not [1, 4 + classes, n]")
    return shapes[0][2], shapes[0][1] - 4


def _columns_nodes(network: Network, outputs: Sequence[str], shapes: List[List[int]], options: Options) -> Tuple[str, str]:
    rows = network.add("Transpose", outputs[0], perm=[0, 2, 1])
    return part(network, rows, 0, 4), finished(network, part(network, rows, 4, shapes[0][1]), options)


def _columns_decode(outputs: Sequence[Any], options: Options) -> Tuple[Any, Any]:
    return outputs[0][0, :4].T, finish(outputs[0][0, 4:].T, options)


# ----- [1, n, 5 + classes]

def _rows_shape(shapes: List[List[int]], _: Options) -> Tuple[int, int]:
    if len(shapes[0]) != 3 or shapes[0][0] != 1 or shapes[0][2] < 6:
        raise Refused("it is not [1, n, 5 + classes]")
    return shapes[0][1], shapes[0][2] - 5


def _rows_nodes(network: Network, outputs: Sequence[str], shapes: List[List[int]], options: Options) -> Tuple[str, str]:
    width = shapes[0][2]
    scores = finished(network, part(network, outputs[0], 4, width), options)
    there = side_by_side(network, part(network, scores, 0, 1), width - 5)
    return part(network, outputs[0], 0, 4), network.add("Mul", part(network, scores, 1, width - 4), there)


def _rows_decode(outputs: Sequence[Any], options: Options) -> Tuple[Any, Any]:
    scores = finish(outputs[0][0, :, 4:], options)
    return outputs[0][0, :, :4], scores[:, 1:] * scores[:, :1]


# ----- Scores, of which the first is the background's, and regressions of anchors

def _anchors_shape(shapes: List[List[int]], options: Options) -> Tuple[int, int]:
    scores, places = shapes
    if len(scores) != 3 or len(places) != 3 or scores[:2] != places[:2] or places[2] != 4 or scores[2] < 2:
        raise Refused("they are not [1, n, 1 + classes] and [1, n, 4]")
    if options.anchors is None or options.anchors.shape != (scores[1], 4):
        given = "none are given" if options.anchors is None else f"there are {len(options.anchors)}"
        raise Refused(f"{scores[1]} anchors are needed, {given}; see --anchors")
    return scores[1], scores[2] - 1


def _anchors_nodes(network: Network, outputs: Sequence[str], shapes: List[List[int]], options: Options) -> Tuple[str, str]:
    anchors, sides = np.asarray(options.anchors)[None], np.tile(options.size, 2)
    steps = network.add("Mul", part(network, outputs[1], 0, 2), anchors[..., 2:] * options.variances[0])
    centres = network.add("Add", steps, anchors[..., :2])
    growth = network.add("Exp", network.add("Mul", part(network, outputs[1], 2, 4), options.variances[1]))
    sizes = network.add("Mul", growth, anchors[..., 2:])
    boxes = network.add("Concat", centres, sizes, axis=2)
    scores = finished(network, outputs[0], options)
    return (network.add("Mul", boxes, np.broadcast_to(sides, (1, shapes[1][1], 4))),
            part(network, scores, 1, shapes[0][2]))


def _anchors_decode(outputs: Sequence[Any], options: Options) -> Tuple[Any, Any]:
    anchors, places = np.asarray(options.anchors), outputs[1][0]
    centres = anchors[:, :2] + places[:, :2] * options.variances[0] * anchors[:, 2:]
    sizes = anchors[:, 2:] * np.exp(places[:, 2:] * options.variances[1])
    return np.hstack([centres, sizes]) * np.tile(options.size, 2), finish(outputs[0][0], options)[:, 1:]


# ----- Heat maps: scores, whose peaks count, sizes and offsets, both in cells

def _maps_shape(shapes: List[List[int]], options: Options) -> Tuple[int, int]:
    if options.scores == "softmax":
        raise Refused("peaks are looked for in scores or in their sigmoid")
    if any(len(shape) != 4 or shape[2:] != shapes[0][2:] for shape in shapes) or [shape[1] for shape in shapes[1:]] != [2, 2]:
        raise Refused("they are not [1, classes, h, w], [1, 2, h, w] and [1, 2, h, w]")
    return shapes[0][2] * shapes[0][3], shapes[0][1]


def _maps_nodes(network: Network, outputs: Sequence[str], shapes: List[List[int]], options: Options) -> Tuple[str, str]:
    count, classes = _maps_shape(shapes, options)
    rows, columns = shapes[0][2:]

    def flat(value: str, channels: int) -> str:
        return network.add("Reshape", network.add("Transpose", value, perm=[0, 2, 3, 1]), np.array([1, count, channels]))

    heat = finished(network, outputs[0], options)
    around = network.add("MaxPool", heat, kernel_shape=[3, 3], pads=[1, 1, 1, 1])
    is_peak = is_at_least(network, network.add("Sub", heat, around), 0)
    cells = np.array([(n % columns, n // columns) for n in range(count)])[None]
    centres = network.add("Add", flat(outputs[2], 2), cells)
    boxes = network.add("Concat", centres, flat(outputs[1], 2), axis=2)
    pixels = np.tile((options.size[0] / columns, options.size[1] / rows), 2)
    return (network.add("Mul", boxes, np.broadcast_to(pixels, (1, count, 4))),
            flat(network.add("Mul", heat, is_peak), classes))


def _maps_decode(outputs: Sequence[Any], options: Options) -> Tuple[Any, Any]:
    heat, sizes, offsets = finish(outputs[0][0], options), outputs[1][0], outputs[2][0]
    _, rows, columns = heat.shape
    framed = np.pad(heat, ((0, 0), (1, 1), (1, 1)), constant_values=-np.inf)
    around = np.max([framed[:, y:y + rows, x:x + columns] for y in range(3) for x in range(3)], 0)
    y, x = np.mgrid[:rows, :columns]
    boxes = np.stack([x + offsets[0], y + offsets[1], sizes[0], sizes[1]], -1).reshape(-1, 4)
    pixels = np.tile((options.size[0] / columns, options.size[1] / rows), 2)
    return boxes * pixels, np.moveaxis(np.where(heat == around, heat, 0), 0, -1).reshape(len(boxes), -1)


LAYOUTS: Dict[str, Layout] = {
    "4+classes": Layout("[1, 4 + classes, n]: centre, size, a score for each class", 1,
                        _columns_shape, _columns_nodes, _columns_decode),
    "5+classes": Layout("[1, n, 5 + classes]: centre, size, objectness, a score for each class", 1,
                        _rows_shape, _rows_nodes, _rows_decode),
    "anchors": Layout("[1, n, 1 + classes] and [1, n, 4]: scores, the background's first, and regressions of anchors", 2,
                      _anchors_shape, _anchors_nodes, _anchors_decode),
    "heat-maps": Layout("[1, classes, h, w], [1, 2, h, w] and [1, 2, h, w]: scores, sizes and offsets, both in cells", 3,
                        _maps_shape, _maps_nodes, _maps_decode)}
