# SPDX-License-Identifier: Apache-2.0
"""Areas of boxes [..., 4]: left, top, right, bottom; arrays of numpy and tensors of torch alike."""
import sys


def corners(box):
    """Of one box x, y, width, height."""
    x, y, w, h = box
    return x, y, x + w, y + h


def area(boxes):
    return (boxes[..., 2:] - boxes[..., :2]).prod(-1)


def shared(a, b):
    """The area that both cover."""
    library = sys.modules[type(a).__module__.split(".")[0]]  # numpy or torch
    return (library.minimum(a[..., 2:], b[..., 2:]) - library.maximum(a[..., :2], b[..., :2])).clip(min=0).prod(-1)


def iou(a, b):
    """Intersection over union."""
    both = shared(a, b)
    return both / (area(a) + area(b) - both + 1e-9)
