# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face detection on drawn scenes: for each of 4420 anchors two scores and four regressions."""
import argparse
import multiprocessing
import os
import sys

import cv2
import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
from models.sources.drawn import drawing
from models.scenes import face_frames as face_scenes
from models.training import training

WIDTH, HEIGHT = 320, 240
LEVELS = ((40, 30, (10, 16, 24)), (20, 15, (32, 48)), (10, 8, (64, 96)), (5, 4, (128, 192, 256)))  # columns, rows, sizes
CENTRE_VARIANCE, SIZE_VARIANCE = 0.1, 0.2
# Shapes of frames: each is scaled to the input without keeping its aspect, and the faces with it.
FRAMES = ((320, 240), (384, 216), (280, 280), (240, 320), (216, 384))
MATCH, IGNORE = 0.45, 0.35  # overlap of an anchor with a face: from here on it is one; below, it is background


def anchors():
    """[4420, 4]: centre and size, relative to the input, in the library's order."""
    rows = []
    for columns, row_count, sizes in LEVELS:
        for row in range(row_count):
            for column in range(columns):
                rows += [((column + 0.5) / columns, (row + 0.5) / row_count, s / WIDTH, s / HEIGHT) for s in sizes]
    return numpy.clip(numpy.array(rows, numpy.float32), 0, 1)


ANCHORS = anchors()


def overlaps(boxes):
    """IoU of every anchor with every box (centre and size, relative)."""
    a, b = ANCHORS[:, None], boxes[None]
    low = numpy.maximum(a[..., :2] - a[..., 2:] / 2, b[..., :2] - b[..., 2:] / 2)
    high = numpy.minimum(a[..., :2] + a[..., 2:] / 2, b[..., :2] + b[..., 2:] / 2)
    shared = numpy.prod(numpy.maximum(0, high - low), axis=2)
    return shared / (numpy.prod(a[..., 2:], axis=2) + numpy.prod(b[..., 2:], axis=2) - shared)


def targets(boxes):
    """(labels, regressions): 1 a face, 0 background, -1 neither."""
    labels, regressions = numpy.zeros(len(ANCHORS), numpy.int64), numpy.zeros((len(ANCHORS), 4), numpy.float32)
    if len(boxes):
        b = numpy.array(boxes, numpy.float32) / (WIDTH, HEIGHT, WIDTH, HEIGHT)
        b[:, :2] += b[:, 2:] / 2
        iou = overlaps(b)
        best, score = iou.argmax(axis=1), iou.max(axis=1)
        labels[score >= IGNORE] = -1
        labels[score >= MATCH] = 1
        for face in range(len(b)):  # at least one anchor for each
            anchor = iou[:, face].argmax()
            labels[anchor], best[anchor] = 1, face
        b = b[best]
        regressions[:, :2] = (b[:, :2] - ANCHORS[:, :2]) / ANCHORS[:, 2:] / CENTRE_VARIANCE
        regressions[:, 2:] = numpy.log(b[:, 2:] / ANCHORS[:, 2:]) / SIZE_VARIANCE
    return labels, regressions


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()

        def layer(inputs, outputs, stride):
            return torch.nn.Sequential(torch.nn.Conv2d(inputs, outputs, 3, stride, 1, bias=False), torch.nn.BatchNorm2d(outputs),
                                       torch.nn.ReLU())

        self.levels = torch.nn.ModuleList([
            torch.nn.Sequential(layer(3, 12, 2), layer(12, 20, 2), layer(20, 28, 2), layer(28, 28, 1), layer(28, 28, 1)),
            torch.nn.Sequential(layer(28, 36, 2), layer(36, 36, 1)),
            torch.nn.Sequential(layer(36, 40, 2)),
            torch.nn.Sequential(layer(40, 40, 2))])
        widths = (28, 36, 40, 40)
        counts = [len(sizes) for _, _, sizes in LEVELS]
        self.scores = torch.nn.ModuleList([torch.nn.Conv2d(w, 2 * n, 1) for w, n in zip(widths, counts)])
        self.regressions = torch.nn.ModuleList([torch.nn.Conv2d(w, 4 * n, 1) for w, n in zip(widths, counts)])
        with torch.no_grad():
            self.levels[0][0][0].weight /= 64  # bytes less 128 come in

    def forward(self, image):
        """Maps of channels, scores and regressions in turn, a pair for each level: the runtime makes channels innermost."""
        outputs = []
        for level, scores, regressions in zip(self.levels, self.scores, self.regressions):
            image = level(image)
            outputs += [scores(image), regressions(image)]
        return tuple(outputs)


def flat(maps, values):
    return torch.cat([m.permute(0, 2, 3, 1).reshape(m.shape[0], -1, values) for m in maps], 1)


def loss_of(outputs, labels, wanted):
    scores, regressions = flat(outputs[0::2], 2), flat(outputs[1::2], 4)
    is_face = labels == 1
    face_count = is_face.sum().clamp(min=1)
    entropy = torch.nn.functional.cross_entropy(scores.reshape(-1, 2), labels.clamp(min=0).reshape(-1), reduction="none").reshape(labels.shape)
    # The hardest background, a few times as many as there are faces.
    background = torch.where(labels == 0, entropy, torch.zeros_like(entropy)).reshape(-1)
    hardest = background.topk(int(min(background.numel(), 4 * face_count + 60))).values.sum()
    places = torch.nn.functional.smooth_l1_loss(regressions[is_face], wanted[is_face], reduction="sum")
    return (entropy[is_face].sum() * 1.5 + hardest + places) / face_count


def draw(queue, seed, head_count):
    """A process that draws scenes for ever."""
    cv2.setNumThreads(1)
    heads = face_scenes.Heads(seed, head_count)
    number = 0
    while True:
        rng = numpy.random.default_rng([seed, 1, number])
        number += 1
        width, height = FRAMES[number % len(FRAMES)]
        least = 14 * max(width / WIDTH, height / HEIGHT)
        picture, boxes = face_scenes.scene(rng, heads, width, height, drawing.TRAINING, least)
        picture = cv2.resize(picture, (WIDTH, HEIGHT), interpolation=cv2.INTER_AREA)
        boxes = [box * numpy.tile((WIDTH / width, HEIGHT / height), 2) for box in boxes]
        queue.put((cv2.cvtColor(picture, cv2.COLOR_BGR2RGB), *targets(boxes)))


class Pool:
    """Scenes, each used several times, mirrored at random; the oldest go as new ones come."""

    def __init__(self, queue, size):
        self.queue, self.size, self.scenes, self.next = queue, size, [], 0

    def batch(self, rng, count):
        while len(self.scenes) < min(self.size, 4 * count):
            self.scenes.append(self.queue.get())
        while not self.queue.empty():
            if len(self.scenes) < self.size:
                self.scenes.append(self.queue.get())
            else:
                self.scenes[self.next] = self.queue.get()
                self.next = (self.next + 1) % self.size
        picked = [self.scenes[i] for i in rng.integers(len(self.scenes), size=count)]
        images = numpy.stack([p[0] for p in picked]).astype(numpy.float32)
        images = (images - 128) * rng.uniform(0.75, 1.2, (count, 1, 1, 1)) + rng.normal(0, 12, (count, 1, 1, 3))
        images = torch.from_numpy(numpy.clip(images, -128, 127).astype(numpy.float32)).permute(0, 3, 1, 2).contiguous()
        return images, torch.from_numpy(numpy.stack([p[1] for p in picked])), torch.from_numpy(numpy.stack([p[2] for p in picked]))


def main():
    parser = argparse.ArgumentParser(description="Trains on drawn scenes; takes about half an hour, tells how much is left.")
    parser.add_argument("--out", default=os.path.join(HERE, "network.onnx"), help="where the network goes")
    parser.add_argument("--quick", action="store_true", help="a minute, to see that everything works; the result is no good")
    parser.add_argument("--steps", type=int, default=1800)
    options = parser.parse_args()
    steps, batch, rate = (40 if options.quick else options.steps), 16, 4e-3
    training.seed_all(4)
    queue = multiprocessing.Queue(64)
    multiprocessing.Process(target=draw, args=(queue, 11, 60 if options.quick else 500), daemon=True).start()
    pool, rng = Pool(queue, 2500), numpy.random.default_rng(5)
    module = Network()
    optimizer = torch.optim.AdamW(module.parameters(), lr=rate, weight_decay=1e-4)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, rate, total_steps=steps, pct_start=0.1)
    progress, mean = training.Progress(steps), None
    for step in range(steps):
        images, labels, wanted = pool.batch(rng, batch)
        loss = loss_of(module(images), labels, wanted)
        optimizer.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(module.parameters(), 20)
        optimizer.step()
        schedule.step()
        mean = loss.item() if mean is None else 0.98 * mean + 0.02 * loss.item()
        progress.step("loss %.3f" % mean)
        if step % 500 == 499:
            torch.save(module.state_dict(), options.out + ".part")
    names = [f"{kind}_{level}" for level in range(4) for kind in ("scores", "regressions")]
    training.export_onnx(module, options.out, [1, 3, HEIGHT, WIDTH], names)
    if os.path.exists(options.out + ".part"):
        os.remove(options.out + ".part")


if __name__ == "__main__":
    main()
