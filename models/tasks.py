# SPDX-License-Identifier: Apache-2.0
"""What the library's detectors read from a network: the shapes of its input, anchors and grids, and what counts as found."""
import dataclasses
from typing import Any, Dict, List, Tuple

import numpy as np

Anchors = Tuple[Tuple[int, int], ...]

FACE_SIZE = (320, 240)
FACE_LEVELS = ((40, 30, (10, 16, 24)), (20, 15, (32, 48)), (10, 8, (64, 96)), (5, 4, (128, 192, 256)))  # columns, rows, sizes
CENTRE_VARIANCE, SIZE_VARIANCE = 0.1, 0.2


def face_anchors() -> Any:
    """[4420, 4]: centre and size, relative to the input, in the library's order."""
    rows = []
    for columns, row_count, sizes in FACE_LEVELS:
        for row in range(row_count):
            for column in range(columns):
                rows += [((column + 0.5) / columns, (row + 0.5) / row_count, s / FACE_SIZE[0], s / FACE_SIZE[1]) for s in sizes]
    return np.clip(np.array(rows, np.float32), 0, 1)


STRIDES = (32, 16)  # of a grid detector's outputs
GRID_SIZES = {"landscape": (416, 256), "square": (320, 320), "portrait": (256, 416)}  # width, height
PERSON_ANCHORS: Tuple[Anchors, ...] = (((64, 187), (123, 211), (227, 264)), ((7, 17), (20, 50), (45, 99)))  # width, height
FOUR_CLASS_ANCHORS: Tuple[Anchors, ...] = (((68, 52), (74, 118), (140, 155)), ((24, 18), (37, 36), (41, 76)))


@dataclasses.dataclass(frozen=True)
class Detector:
    classes: int
    threshold: float  # of the score
    overlap: float  # of two boxes, from which on the better one stays
    limit: int  # of boxes before that
    sizes: Dict[str, Tuple[int, int]]  # of the input: width and height, for each ending of the task's name
    anchors: Tuple[Anchors, ...] = ()  # of a grid detector's outputs


DETECTORS = {"face-detection": Detector(1, 0.8, 0.3, 100, {"": FACE_SIZE}),
             "person-detection": Detector(1, 0.3, 0.4, 100, GRID_SIZES, PERSON_ANCHORS),
             "four-class-detection": Detector(4, 0.3, 0.4, 500, GRID_SIZES, FOUR_CLASS_ANCHORS)}


def grids(size: Tuple[int, int]) -> List[Tuple[int, int]]:
    """Columns and rows of a grid detector's outputs."""
    return [(-(-size[0] // stride), -(-size[1] // stride)) for stride in STRIDES]
