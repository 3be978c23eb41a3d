# SPDX-License-Identifier: Apache-2.0
"""Trains and exports the two detectors that share the library's anchor-grid decoder: persons and four classes.

The network is fully convolutional: one set of weights serves the three shapes of input. It has two outputs,
[1, 3 * V, rows, columns], the one of stride 32 first. An anchor's V values are tx, ty, tw, th, the logit of
"there is something", and one value a class (persons: one that nobody reads). The decoder computes
centre = (cell + sigmoid(t)) * stride, size = anchor * exp(t).
"""
import argparse
import copy
import math
import os
import time

import cv2
import numpy as np
import torch
from torch import nn
from torch.nn import functional

from models.sources.drawn import drawing
from models.scenes import frames as grid_data
from models.scenes import compose as scenes
from models.training import training
from models.training.layers import Surroundings, convolution

STRIDES = (32, 16)
INPUTS = {"landscape": (416, 256), "square": (320, 320), "portrait": (256, 416)}  # width, height
PADDING = 128  # what the letterbox puts above and below
MAX_LABELS = 8
PEAK_RATE = 4e-3


class Task:
    """What the two detectors differ in."""

    def __init__(self, anchors, values, class_count, things, stock):
        self.anchors = np.array(anchors, np.float32)  # output, anchor, (width, height) in input pixels
        self.values = values
        self.class_count = class_count
        self.things = things  # a function of scenes.py
        self.stock = stock  # cut-outs of persons, of each of the four kinds, of each kind of distractor


PERSONS = Task([[(64, 187), (123, 211), (227, 264)], [(7, 17), (20, 50), (45, 99)]], 6, 0, scenes.person_things,
               (1200, 60, 60))
FOUR_CLASSES = Task([[(68, 52), (74, 118), (140, 155)], [(24, 18), (37, 36), (41, 76)]], 9, 4, scenes.object_things,
                    (200, 500, 60))


# The network

class GridNetwork(nn.Module):
    """Plain 3 x 3 convolutions down to stride 32; what is seen there is given back to stride 16."""

    def __init__(self, task):
        super().__init__()
        self.to_8 = nn.Sequential(convolution(3, 12, 2), convolution(12, 20, 2), convolution(20, 32, 2))
        self.at_8 = convolution(32, 32)
        self.to_16 = convolution(32, 40, 2)
        self.at_16 = nn.Sequential(convolution(40, 40), Surroundings(40))
        self.to_32 = convolution(40, 48, 2)
        self.at_32 = nn.Sequential(convolution(48, 48, dilation=2), Surroundings(48))
        self.back = convolution(48, 24, size=1)
        self.joined = convolution(64, 40, size=1)
        outputs = 3 * task.values
        self.head_32 = nn.Conv2d(48, outputs, 1)
        self.head_16 = nn.Conv2d(40, outputs, 1)
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
        seen_from_afar = functional.interpolate(self.back(last), scale_factor=2, mode="nearest")
        near = self.joined(torch.cat([sixteenth, seen_from_afar], 1))
        with torch.autocast("cpu", enabled=False):  # boxes need more than eight bits
            return self.head_32(last.float()), self.head_16(near.float())


# Data

class Scenes:
    """Pictures of the inputs' shapes, letterboxed as a camera's frames are, with labels.

    Composing takes as long as training: every scene is used about five times, in another light, at times mirrored.
    """

    def __init__(self, rng, task, pool):
        self.rng, self.task, self.pool = rng, task, pool
        self.kept = {shape: [] for shape in INPUTS}

    def take(self, shape):
        kept = self.kept[shape]
        if len(kept) < 100 or self.rng.random() < 0.2:
            made = self._compose(*INPUTS[shape])
            if len(kept) < 500:
                kept.append(made)
            else:
                kept[self.rng.integers(len(kept))] = made
        else:
            made = kept[self.rng.integers(len(kept))]
        return self._letterboxed(*made, *INPUTS[shape])

    def _compose(self, width, height):
        free = 0 if width == height or self.rng.random() < 0.3 else int(self.rng.integers(0, 24))  # for padding
        width, height = (width, height - free) if height < width else (width - free, height)
        background = drawing.background(self.rng, width, height, drawing.TRAINING)
        return scenes.compose(background, self.task.things(self.rng, self.pool, width, height), self.rng)

    def _letterboxed(self, picture, labels, width, height):
        rows, columns = picture.shape[:2]
        if self.rng.random() < 0.5:
            picture = np.ascontiguousarray(picture[:, ::-1])
            labels = [(kind, columns - x - w, y, w, h) for kind, x, y, w, h in labels]
        picture = drawing.degrade(self.rng, picture, grid_data.DEGRADATION)
        left, top = (width - columns) // 2, (height - rows) // 2
        picture = cv2.copyMakeBorder(picture, top, height - rows - top, left, width - columns - left,
                                     cv2.BORDER_CONSTANT, value=(PADDING,) * 3)
        return picture, [(kind, x + left, y + top, w, h) for kind, x, y, w, h in labels]


class Batches(torch.utils.data.IterableDataset):
    """Batches of ready tensors, made in a process of their own: images, truths, and positives of each output."""

    def __init__(self, task, seed, batch_size, stock):
        self.task, self.seed, self.batch_size, self.stock = task, seed, batch_size, stock

    def __iter__(self):
        cv2.setNumThreads(1)
        rng = np.random.default_rng(self.seed)
        print("drawing persons and things, about a minute", flush=True)
        made = Scenes(rng, self.task, scenes.Pool(rng, drawing.TRAINING, *self.stock))
        while True:
            shape = ("landscape", "landscape", "square", "portrait")[rng.integers(4)]
            yield self.batch([made.take(shape) for _ in range(self.batch_size)])

    def batch(self, examples):
        images = np.stack([picture[..., ::-1] for picture, _ in examples]).transpose(0, 3, 1, 2)  # red first
        truths = np.zeros((len(examples), MAX_LABELS, 4), np.float32)  # x1, y1, x2, y2; empty where there is none
        positives = [[], []]  # rows of: image, anchor, row, column, class, x1, y1, x2, y2
        for index, (_, labels) in enumerate(examples):
            for number, (class_id, x, y, w, h) in enumerate(labels):
                truths[index, number] = x, y, x + w, y + h
                for output, anchor in self.anchors_of(w, h):
                    stride = STRIDES[output]
                    positives[output].append((index, anchor, int((y + h / 2) / stride), int((x + w / 2) / stride),
                                              class_id, x, y, x + w, y + h))
        return (torch.from_numpy(np.ascontiguousarray(images)), torch.from_numpy(truths),
                *[torch.tensor(rows, dtype=torch.float32).reshape(-1, 9) for rows in positives])

    def anchors_of(self, width, height):
        """The anchor whose shape fits best, and others that fit well: (output, anchor)."""
        anchors = self.task.anchors
        both = np.minimum(anchors[..., 0], width) * np.minimum(anchors[..., 1], height)
        fit = both / (anchors[..., 0] * anchors[..., 1] + width * height - both)
        return [(o, a) for o in range(2) for a in range(3) if fit[o, a] >= min(fit.max(), 0.5)]


# Loss

def decode(task, output, index):
    """Boxes [B, 3, rows, columns, 4] as corners, and the values [B, 3, rows, columns, V]."""
    count, _, rows, columns = output.shape
    values = output.view(count, 3, task.values, rows, columns).permute(0, 1, 3, 4, 2)
    column, row = torch.arange(columns).view(1, 1, 1, -1), torch.arange(rows).view(1, 1, -1, 1)
    anchors = torch.from_numpy(task.anchors[index])
    x = (values[..., 0].sigmoid() + column) * STRIDES[index]
    y = (values[..., 1].sigmoid() + row) * STRIDES[index]
    w = values[..., 2].clamp(-4, 4).exp() * anchors[:, 0].view(1, 3, 1, 1) / 2
    h = values[..., 3].clamp(-4, 4).exp() * anchors[:, 1].view(1, 3, 1, 1) / 2
    return torch.stack([x - w, y - h, x + w, y + h], -1), values


def box_overlap(a, b):
    """IoU and generalised IoU of corner boxes [..., 4]."""
    inner = (torch.minimum(a[..., 2:], b[..., 2:]) - torch.maximum(a[..., :2], b[..., :2])).clamp(min=0).prod(-1)
    union = (a[..., 2:] - a[..., :2]).prod(-1) + (b[..., 2:] - b[..., :2]).prod(-1) - inner
    outer = (torch.maximum(a[..., 2:], b[..., 2:]) - torch.minimum(a[..., :2], b[..., :2])).prod(-1)
    iou = inner / (union + 1e-6)
    return iou, iou - (outer - union) / (outer + 1e-6)


def loss_of(task, outputs, truths, positives):
    total = torch.zeros(())
    found = max(1, sum(len(rows) for rows in positives))
    for index, (output, rows) in enumerate(zip(outputs, positives)):
        boxes, values = decode(task, output, index)
        with torch.no_grad():  # an anchor that is nearly right all the same is neither right nor wrong
            count = boxes.shape[0]
            overlap, _ = box_overlap(boxes.reshape(count, -1, 1, 4), truths.unsqueeze(1))
            near = overlap.max(-1).values.view(values.shape[:-1]) > 0.5
        target, weight = torch.zeros(values.shape[:-1]), 1.0 - near.float()
        if len(rows):
            place = tuple(rows[:, :4].long().T)
            _, generalised = box_overlap(boxes[place], rows[:, 5:])
            chosen = values[place]
            size = (rows[:, 7:] - rows[:, 5:7]) / torch.from_numpy(task.anchors[index])[place[1]]
            total = total + 2 * (1 - generalised).sum() + 0.5 * (chosen[:, 2:4] - size.log()).abs().sum()
            if task.class_count:
                total = total + 1.5 * functional.cross_entropy(chosen[:, 5:], rows[:, 4].long(), reduction="sum")
            target[place] = 1.0
            weight[place] = 1.0
        surprise = (values[..., 4].sigmoid().detach() - target).abs() ** 1.5  # what is settled counts little
        cross_entropy = functional.binary_cross_entropy_with_logits(values[..., 4], target, reduction="none")
        total = total + 2 * (weight * surprise * cross_entropy).sum()
    return total / found


# Training

def rate_at(done, peak_rate):
    """Learning rate when `done` (0 to 1) of the training is over: up quickly, then down along a cosine."""
    if done < 0.08:
        return peak_rate * (0.05 + 0.95 * done / 0.08)
    return peak_rate * (0.501 + 0.499 * math.cos(math.pi * min(1, (done - 0.08) / 0.92)))


def train(task, batches, steps, minutes, checkpoint, start_weights=None):
    """Ends after so many steps or minutes, whichever comes first; the learning rate follows.

    checkpoint  file that the weights are written to every thousand steps
    """
    network, peak_rate = training.fast(GridNetwork(task)), PEAK_RATE
    if start_weights:
        network.load_state_dict(torch.load(start_weights))
        peak_rate /= 2
    average = copy.deepcopy(network)  # of the weights of the last steps: less noisy than any of them
    optimiser = torch.optim.AdamW(network.parameters(), peak_rate, weight_decay=1e-3)
    loader = iter(torch.utils.data.DataLoader(batches, batch_size=None, num_workers=1, prefetch_factor=4))
    batch = next(loader)  # the stock of cut-outs is ready now
    progress = training.Progress(steps)
    start, step, recent = time.time(), 0, None
    while True:
        done = max(step / steps, (time.time() - start) / (60 * minutes))
        if done >= 1:
            return average
        optimiser.param_groups[0]["lr"] = rate_at(done, peak_rate)
        images, truths, *positives = batch
        loss = loss_of(task, training.run_fast(network, images.float() - 128), truths, positives)
        optimiser.zero_grad()
        loss.backward()
        nn.utils.clip_grad_norm_(network.parameters(), 20)
        optimiser.step()
        update_average(average, network, min(0.995, step / (step + 10)))
        recent = loss.item() if recent is None else 0.98 * recent + 0.02 * loss.item()
        step += 1
        progress.step("loss %.3f, %.0f %% done" % (recent, 100 * done))
        if step % 1000 == 0:
            torch.save(average.state_dict(), checkpoint)
        batch = next(loader)


def update_average(average, network, keep):
    with torch.no_grad():
        for mean, value in zip(average.state_dict().values(), network.state_dict().values()):
            if mean.is_floating_point():
                mean.mul_(keep).add_(value, alpha=1 - keep)


def main(task, folder, seed):
    parser = argparse.ArgumentParser(description="Trains the network and writes landscape.onnx, square.onnx and portrait.onnx.")
    parser.add_argument("--quick", action="store_true", help="about a minute, to see that it runs")
    parser.add_argument("--out", default=folder, help="the folder to write to")
    parser.add_argument("--steps", type=int, default=16000)
    parser.add_argument("--start", help="weights.pt of an earlier run to go on from, with half the learning rate")
    parser.add_argument("--seed", type=int, default=seed)
    parser.add_argument("--minutes", type=float, default=math.inf, help="end after so long, with fewer steps")
    arguments = parser.parse_args()
    training.seed_all(arguments.seed)
    if arguments.quick:
        arguments.steps, arguments.minutes = 60, 1
    stock = (60, 6, 6) if arguments.quick else task.stock
    os.makedirs(arguments.out, exist_ok=True)
    weights = os.path.join(arguments.out, "weights.pt")
    network = train(task, Batches(task, arguments.seed, 16, stock), arguments.steps, arguments.minutes, weights,
                    arguments.start)
    torch.save(network.state_dict(), weights)
    for name, (width, height) in INPUTS.items():
        training.export_onnx(network, os.path.join(arguments.out, name + ".onnx"), [1, 3, height, width],
                             ["grid_32", "grid_16"])
