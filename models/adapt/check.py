# SPDX-License-Identifier: Apache-2.0
"""Holds an adapted network against the one that it was: run on pictures, decoded in numpy, the same boxes within a pixel."""
from typing import Any, Callable, Iterable, List, Sequence, Tuple

import cv2
import numpy as np

from models.adapt.graph import Refused

Found = Tuple[Any, Any, Any]  # corners, score and class of each box
ALIKE = 1.0  # pixels
SCORE_ALIKE = 1e-3


def runner(model: Any) -> Callable[[Any], List[Any]]:
    """The outputs of a network in their order, as the runtime on a PC computes them."""
    try:
        network = cv2.dnn.readNetFromONNX(model.SerializeToString())
    except cv2.error as error:
        raise Refused(f"OpenCV {cv2.__version__} cannot read the network: {error}") from error
    shapes = [[axis.dim_value for axis in one.type.tensor_type.shape.dim] for one in model.graph.output]
    names = [one.name for one in model.graph.output]

    def run(image: Any) -> List[Any]:
        network.setInput(np.ascontiguousarray(image, np.float32))
        try:
            return [found.reshape(shape) for found, shape in zip(network.forward(names), shapes)]
        except cv2.error as error:
            raise Refused(f"OpenCV {cv2.__version__} cannot run the network: {error}") from error
    return run


def random_pictures(rng: Any, channels: int, size: Tuple[int, int], count: int) -> Iterable[Any]:
    """[channels, height, width] of bytes: noise of all sizes, in which no two places are alike."""
    for _ in range(count):
        picture = np.zeros((size[1], size[0], 3))
        for grain in 2 ** np.arange(8):
            noise = rng.normal(size=(size[1] // grain + 2, size[0] // grain + 2, 3))
            picture += cv2.resize(noise, size, interpolation=cv2.INTER_CUBIC)
        yield np.clip(128 + 30 * picture, 0, 255).astype(np.uint8).transpose(2, 0, 1)[:channels]


def overlap(box: Any, others: Any) -> Any:
    inner = np.minimum(box[2:], others[:, 2:]) - np.maximum(box[:2], others[:, :2])
    shared = np.clip(inner, 0, None).prod(1)
    return shared / ((box[2:] - box[:2]).prod() + (others[:, 2:] - others[:, :2]).prod(1) - shared)


def detections(found: Found, threshold: float, most_overlap: float) -> List[Tuple[Any, float, int]]:
    """Above the threshold, the best of those that overlap."""
    order = [n for n in np.argsort(-found[1], kind="stable") if found[1][n] >= threshold]
    corners = found[0][order]
    kept: List[int] = []
    for n in range(len(order)):
        if not kept or overlap(corners[n], corners[kept]).max() <= most_overlap:
            kept.append(n)
    return [(corners[n], float(found[1][order[n]]), int(found[2][order[n]])) for n in kept]


def _lacking(some: Sequence[Tuple[Any, float, int]], others: Sequence[Tuple[Any, float, int]]) -> List[Tuple[Any, float, int]]:
    return [(box, score, kind) for box, score, kind in some if not any(
        kind == other_kind and abs(score - other_score) <= SCORE_ALIKE and abs(box - other).max() <= ALIKE
        for other, other_score, other_kind in others)]


def compare(before: Found, after: Found, threshold: float, most_overlap: float) -> int:
    """How many boxes were found in both; Refused where they differ."""
    said = after[1] > 10 * SCORE_ALIKE  # whatever the score: nothing that the network before did not say
    for corners, score, kind in zip(*(one[said] for one in after)):
        alike = (abs(before[0] - corners) <= ALIKE).all(1) & (abs(before[1] - score) <= SCORE_ALIKE) & (before[2] == kind)
        if not alike.any():
            raise Refused(f"the adapted network finds {_text((corners, score, kind))}, which the one before does not")
    wanted, found = (detections(one, threshold, most_overlap) for one in (before, after))
    lost, new = _lacking(wanted, found), _lacking(found, wanted)
    if lost or new:
        raise Refused("what the network finds cannot be said to this task: " + "; ".join(
            [f"{_text(one)} is lost" for one in lost[:3]] + [f"{_text(one)} is found instead" for one in new[:3]]))
    return len(wanted)


def _text(found: Tuple[Any, float, int]) -> str:
    x0, y0, x1, y1 = found[0]
    return f"class {found[2]} with {found[1]:.3f} at x {x0:.1f}, y {y0:.1f}, {x1 - x0:.1f} x {y1 - y0:.1f}"
