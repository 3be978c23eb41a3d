# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of face detection: for each of 4420 anchors two scores and four regressions."""
import functools

import cv2
import numpy as np
import torch
from torch import nn
from torch.nn import functional

from models.labels import boxes, table
from models.labels.making import TRAINING
from models.scenes import face_frames
from models.scenes.photo_frames import EmptyFrames
from models.sources.bodies.cut_outs import Rendered
from models.sources.drawn.source import Drawn
from models.sources.mixed import Mixed
from models.sources.photos.photographs import Empty, Photographs
from models.tasks import CENTRE_VARIANCE, FACE_LEVELS, FACE_SIZE, SIZE_VARIANCE, face_anchors
from models.training import examples
from models.training.layers import trunk
from models.training.run import Phase, Recipe, run

WIDTH, HEIGHT = FACE_SIZE
# Shapes of frames: each is scaled to the input without keeping its aspect, and the faces with it.
FRAMES = ((320, 240), (384, 216), (280, 280), (240, 320), (216, 384))
RAISED = 0.5  # so much higher is the score of a face than the logarithm of its odds: calibrated for the library's 0.8
MATCH, IGNORE = 0.45, 0.35  # overlap of an anchor with a face: from here on it is one; below, it is background
ANCHORS = face_anchors()
CORNERS = np.concatenate([ANCHORS[:, :2] - ANCHORS[:, 2:] / 2, ANCHORS[:, :2] + ANCHORS[:, 2:] / 2], 1)


def targets(truths):
    """Of rows of class, left, top, right, bottom, relative to the input. (labels, regressions): 1 a face, 0 background,
    -1 neither."""
    labels, regressions = np.zeros(len(ANCHORS), np.int64), np.zeros((len(ANCHORS), 4), np.float32)
    for row in truths[truths[:, 0] == table.IGNORE]:
        labels[boxes.shared(CORNERS, row[1:]) > 0.5 * boxes.area(CORNERS)] = -1
    b = truths[truths[:, 0] != table.IGNORE, 1:]
    if len(b):
        iou = boxes.iou(CORNERS[:, None], b[None])
        best, score = iou.argmax(axis=1), iou.max(axis=1)
        labels[score >= IGNORE] = -1
        labels[score >= MATCH] = 1
        for face, anchor in enumerate(iou.argmax(axis=0)):  # at least one anchor for each
            labels[anchor], best[anchor] = 1, face
        b = b[best]
        regressions[:, :2] = ((b[:, :2] + b[:, 2:]) / 2 - ANCHORS[:, :2]) / ANCHORS[:, 2:] / CENTRE_VARIANCE
        regressions[:, 2:] = np.log((b[:, 2:] - b[:, :2]) / ANCHORS[:, 2:]) / SIZE_VARIANCE
    return labels, regressions


class Network(nn.Module):
    def __init__(self):
        super().__init__()
        self.levels = nn.ModuleList([trunk(3, (12, 20, 28, 28, 28), (2, 2, 2, 1, 1)), trunk(28, (36, 36), (2, 1)),
                                     trunk(36, (40,), (2,)), trunk(40, (40,), (2,))])
        widths, counts = (28, 36, 40, 40), [len(sizes) for _, _, sizes in FACE_LEVELS]
        self.scores = nn.ModuleList([nn.Conv2d(w, 2 * n, 1) for w, n in zip(widths, counts)])
        self.regressions = nn.ModuleList([nn.Conv2d(w, 4 * n, 1) for w, n in zip(widths, counts)])

    def forward(self, image):
        """Maps of channels, scores and regressions in turn, a pair for each level: the runtime makes channels innermost."""
        outputs = []
        for level, scores, regressions in zip(self.levels, self.scores, self.regressions):
            image = level(image)
            with torch.autocast(image.device.type, enabled=False):  # boxes need more than eight bits
                outputs += [scores(image.float()), regressions(image.float())]
        return tuple(outputs)


def flat(maps, values):
    return torch.cat([m.permute(0, 2, 3, 1).reshape(m.shape[0], -1, values) for m in maps], 1)


def loss_of(module, image, labels, wanted):
    outputs = module(image)
    scores, regressions = flat(outputs[0::2], 2), flat(outputs[1::2], 4)
    scores = torch.stack([scores[..., 0], scores[..., 1] - RAISED], -1)
    is_face = labels == 1
    face_count = is_face.sum().clamp(min=1)
    entropy = functional.cross_entropy(scores.permute(0, 2, 1), labels.clamp(min=0), reduction="none")
    # The hardest background, a few times as many as there are faces.
    background = (entropy * (labels == 0)).flatten()
    hardest = background.topk(int(min(background.numel(), 4 * face_count + 60))).values.sum()
    places = functional.smooth_l1_loss(regressions[is_face], wanted[is_face], reduction="sum")
    return (entropy[is_face].sum() * 1.5 + hardest + places) / face_count


class Frames:
    def __init__(self, source):
        self.source = source

    def example(self, rng, width, height):
        shape = FRAMES[rng.integers(len(FRAMES))]
        picture, seen = face_frames.scene(rng, self.source, *shape, least=14 * max(shape[0] / width, shape[1] / height))
        return picture, [(0, *box) for box in seen]


def frame_sources(options):
    """Drawn heads before drawn backgrounds; beside rendered persons, before photographs too; photographs of nobody."""
    drawn = Drawn(TRAINING, seed=options.seed, head_count=500)
    shares: list = [(0.15, Frames(drawn))]
    empty: list = []
    if options.photos:
        empty.append((0.7, Photographs(options.photos, ())))
    if options.empty:
        empty.append((0.3, Empty(options.empty)))
    people: list = [(0.2, drawn), *empty]
    if options.rendered:
        people.append((0.5, Rendered(options.rendered)))
    if len(people) > 1:
        shares.append((0.65, Frames(Mixed(people))))
    if empty:
        shares.append((0.2, EmptyFrames(Mixed(empty))))
    return Mixed(shares)


def sources(options):
    return examples.drawn_and_labelled(options, frame_sources(options),
                                       functools.partial(examples.LabelledFrames, classes=("face",)))


def vary(rng, picture, labels, width, height):
    """Mirrored at times, scaled without keeping the aspect, in another light."""
    picture, labels = examples.mirrored_at_times(rng, picture, labels)
    truths = np.array([(kind, *boxes.corners(box)) for kind, *box in labels], np.float32).reshape(-1, 5)
    truths[:, 1:] /= np.tile(picture.shape[1::-1], 2)
    image = examples.as_input(cv2.resize(picture, (width, height), interpolation=cv2.INTER_AREA))
    return examples.relit(rng, image), *targets(truths)


NAMES = [f"{kind}_{level}" for level in range(4) for kind in ("scores", "regressions")]
RECIPE = Recipe("face_detection", Network, NAMES, sources, vary, [Phase(loss_of, 1800, 4e-3)], seed=4, batch=16,
                shapes={"network": (3, HEIGHT, WIDTH)}, stock=1500, fresh=0.15, is_halved=True,
                takes=("photos", "empty", "rendered"))

if __name__ == "__main__":
    run(RECIPE)
