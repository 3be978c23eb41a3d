# SPDX-License-Identifier: Apache-2.0
"""Trains and exports the two detectors that share the library's anchor-grid decoder: persons and four classes.

The network is fully convolutional: one set of weights serves the three shapes of input. It has two outputs,
[1, 3 * V, rows, columns], the one of stride 32 first. An anchor's V values are tx, ty, tw, th, the logit of
"there is something", and one value a class (persons: one that nobody reads). The decoder computes
centre = (cell + sigmoid(t)) * stride, size = anchor * exp(t).
"""
import dataclasses
import functools
from typing import Callable

import cv2
import numpy as np
import torch
from torch import nn
from torch.nn import functional

from models.labels import boxes, table
from models.scenes import camera, frames
from models.scenes.photo_frames import EmptyFrames, PhotoFrames
from models.sources.bodies.cut_outs import Rendered
from models.sources.drawn.source import TrainingStock
from models.sources.mixed import Mixed
from models.sources.photos.photographs import Empty, Photographs
from models.tasks import GRID_SIZES, STRIDES
from models.training import examples
from models.training.layers import DepthwiseContext, convolution
from models.training.run import Phase, Recipe

SHAPES = {name: (3, height, width) for name, (width, height) in GRID_SIZES.items()}
PADDING = 128  # what the letterbox puts beside a picture


@dataclasses.dataclass
class Task:
    """What the two detectors differ in."""
    anchors: torch.Tensor  # output, anchor, (width, height) in input pixels
    values: int
    classes: tuple
    layout: Callable  # a function of compose.py
    margin: float = 0.0  # so much lower is the logit of "there is something" than its odds are: calibrated for the library's 0.3
    channels: tuple = (12, 20, 32, 40, 48, 24, 40)  # of the convolutions to stride 8, at 16, at 32, back from there, joined


class GridNetwork(nn.Module):
    """Plain 3 x 3 convolutions down to stride 32; what is seen there is upsampled to stride 16."""

    def __init__(self, task):
        super().__init__()
        at_2, at_4, at_8, at_16, at_32, back, joined = task.channels
        self.to_8 = nn.Sequential(convolution(3, at_2, 2), convolution(at_2, at_4, 2), convolution(at_4, at_8, 2))
        self.at_8 = convolution(at_8, at_8)
        self.to_16 = convolution(at_8, at_16, 2)
        self.at_16 = nn.Sequential(convolution(at_16, at_16), DepthwiseContext(at_16))
        self.to_32 = convolution(at_16, at_32, 2)
        self.at_32 = nn.Sequential(convolution(at_32, at_32, dilation=2), DepthwiseContext(at_32))
        self.back = convolution(at_32, back, size=1)
        self.joined = convolution(at_16 + back, joined, size=1)
        outputs = 3 * task.values
        self.head_32 = nn.Conv2d(at_32, outputs, 1)
        self.head_16 = nn.Conv2d(joined, outputs, 1)
        for head in (self.head_32, self.head_16):  # at first nothing is anywhere
            nn.init.normal_(head.weight, std=0.01)
            nn.init.zeros_(head.bias)
            head.bias.data.view(3, task.values)[:, 4] = -4

    def forward(self, image):
        eighth = self.to_8(image)
        sixteenth = self.to_16(eighth + self.at_8(eighth))
        sixteenth = sixteenth + self.at_16(sixteenth)
        last = self.to_32(sixteenth)
        last = last + self.at_32(last)
        upsampled = functional.interpolate(self.back(last), scale_factor=2, mode="nearest")
        near = self.joined(torch.cat([sixteenth, upsampled], 1))
        with torch.autocast(near.device.type, enabled=False):  # boxes need more than eight bits
            return self.head_32(last.float()), self.head_16(near.float())


class ComposedFrames:
    """As a camera's frames, with as many rows or columns fewer than the input as letterboxing pads."""

    def __init__(self, task, source):
        self.task, self.source = task, source

    def example(self, rng, width, height):
        free = 0 if width == height or rng.random() < 0.3 else int(rng.integers(0, 24))
        size = (width, height - free) if height < width else (width - free, height)
        return frames.frame(rng, self.source, self.task.layout, *size)


def vary(rng, picture, labels, width, height):
    """Mirrored at times, seen by a camera, letterboxed: an input, and rows of class, left, top, right, bottom."""
    picture, labels = examples.mirrored_at_times(rng, picture, labels)
    scale = min(width / picture.shape[1], height / picture.shape[0])
    columns, rows = max(1, round(picture.shape[1] * scale)), max(1, round(picture.shape[0] * scale))
    picture = camera.degrade(rng, cv2.resize(picture, (columns, rows), interpolation=cv2.INTER_LINEAR), frames.DEGRADATION)
    left, top = (width - columns) // 2, (height - rows) // 2
    picture = cv2.copyMakeBorder(picture, top, height - rows - top, left, width - columns - left,
                                 cv2.BORDER_CONSTANT, value=(PADDING,) * 3)
    truths = [(kind, *(np.array(boxes.corners(box)) * scale + (left, top, left, top))) for kind, *box in labels]
    return examples.as_input(picture), np.array(truths, np.float32).reshape(-1, 5)


def decode(task, output, index):
    """Boxes [B, 3, rows, columns, 4] as corners, and the values [B, 3, rows, columns, V]."""
    count, _, rows, columns = output.shape
    values = output.view(count, 3, task.values, rows, columns).permute(0, 1, 3, 4, 2)
    column = torch.arange(columns, device=output.device)
    row = torch.arange(rows, device=output.device)[:, None]
    anchors = task.anchors[index].to(output.device)
    x = (values[..., 0].sigmoid() + column) * STRIDES[index]
    y = (values[..., 1].sigmoid() + row) * STRIDES[index]
    w = values[..., 2].clamp(-4, 4).exp() * anchors[:, 0].view(1, 3, 1, 1) / 2
    h = values[..., 3].clamp(-4, 4).exp() * anchors[:, 1].view(1, 3, 1, 1) / 2
    return torch.stack([x - w, y - h, x + w, y + h], -1), values


def generalised_iou(a, b):
    union = boxes.area(a) + boxes.area(b) - boxes.shared(a, b) + 1e-6
    outer = (torch.maximum(a[..., 2:], b[..., 2:]) - torch.minimum(a[..., :2], b[..., :2])).prod(-1) + 1e-6
    return boxes.shared(a, b) / union - (outer - union) / outer


def anchors_of(task, sizes):
    """Which anchors are to find boxes of these sizes: the one whose shape fits best, and others that fit well."""
    def centred(size):
        return torch.cat([-size, size], -1) / 2

    fit = boxes.iou(centred(task.anchors.to(sizes.device)), centred(sizes)[:, None, None])
    return fit >= fit.amax((1, 2), keepdim=True).clamp(max=0.5)


def loss_of(task, module, image, truths):
    """`truths`: for each image, rows of class, left, top, right, bottom."""
    outputs = module(image)
    labelled = [rows[rows[:, 0] != table.IGNORE] for rows in truths]
    truth, owner = torch.cat(labelled), torch.cat([torch.full_like(rows[:, 0], n) for n, rows in enumerate(labelled)]).long()
    wanted = anchors_of(task, truth[:, 3:] - truth[:, 1:3])
    known = nn.utils.rnn.pad_sequence([functional.pad(rows, (0, 0, 0, 1)) for rows in truths], batch_first=True)
    total = image.new_zeros(())
    for index, output in enumerate(outputs):
        found, values = decode(task, output, index)
        with torch.no_grad():  # an anchor that is nearly right all the same, or in an ignored box, is neither right nor wrong
            place, there = found.flatten(1, 3)[:, :, None], known[:, None, :, 1:]
            near = torch.where(known[:, None, :, 0] == table.IGNORE, boxes.shared(place, there) / (boxes.area(place) + 1e-6),
                               boxes.iou(place, there)).amax(-1).view(values.shape[:-1]) > 0.5
        target, weight = torch.zeros_like(values[..., 4]), 1.0 - near.float()
        number, anchor = wanted[:, index].nonzero(as_tuple=True)
        box, middle = truth[number, 1:], (truth[number, 1:3] + truth[number, 3:]) / 2 / STRIDES[index]
        column, row = (middle[:, axis].long().clamp(0, values.shape[3 - axis] - 1) for axis in (0, 1))
        cell = owner[number], anchor, row, column
        chosen, size = values[cell], (box[:, 2:] - box[:, :2]) / task.anchors[index].to(box.device)[anchor]
        total = total + 2 * (1 - generalised_iou(found[cell], box)).sum() + 0.5 * (chosen[:, 2:4] - size.log()).abs().sum()
        if len(task.classes) > 1:
            total = total + 1.5 * functional.cross_entropy(chosen[:, 5:], truth[number, 0].long(), reduction="sum")
        target[cell], weight[cell] = 1.0, 1.0
        logit = values[..., 4] + task.margin
        focal_weight = (logit.sigmoid().detach() - target).abs() ** 1.5  # what is settled counts little
        cross_entropy = functional.binary_cross_entropy_with_logits(logit, target, reduction="none")
        total = total + 2 * (weight * focal_weight * cross_entropy).sum()
    return total / max(1, int(wanted.sum()))


def frame_sources(task, options):
    """Drawn ones; photographs as they are; persons and things of all sources before backgrounds of all."""
    drawn = TrainingStock(500, options.seed)
    shares: list = [(0.25, ComposedFrames(task, drawn))]
    parts: list = [(0.15, drawn)]
    if options.photos:
        photographs = Photographs(options.photos, task.classes)
        parts.append((0.5, photographs))
    if options.empty:
        empty = Empty(options.empty)
        shares.append((0.07, EmptyFrames(empty)))
        parts.append((0.25, empty))
    if getattr(options, "rendered", None):
        parts.append((0.6, Rendered(options.rendered)))
    if len(parts) > 1:
        shares.append((0.33, ComposedFrames(task, Mixed(parts))))
    if options.photos:
        shares.append((0.35, PhotoFrames(photographs.all, task.classes, task.layout, Mixed(parts))))
    return Mixed(shares)


def recipe(folder, task, seed):
    def sources(options):
        return examples.drawn_and_labelled(options, frame_sources(task, options),
                                           functools.partial(examples.LabelledFrames, classes=task.classes))

    return Recipe(folder, functools.partial(GridNetwork, task), ["grid_32", "grid_16"], sources, vary,
                  [Phase(functools.partial(loss_of, task), 16000, 4e-3)], seed, 16, SHAPES, stock=500, fresh=0.2, is_halved=True,
                  takes=("photos", "empty") + (("rendered",) if "person" in task.classes else ()))
