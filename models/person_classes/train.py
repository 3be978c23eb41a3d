# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of person classification: train.py [--quick] [--out FILE] [--steps N]"""
import argparse
import os
import sys

import cv2
import numpy as np
import torch
from torch import nn
from torch.nn import functional

HERE = os.path.dirname(os.path.abspath(__file__))
from models.person_classes import data
from models.sources.drawn import drawing
from models.scenes import compose as scenes
from models.training import training
from models.training.layers import Surroundings, convolution

BATCH = 64
SEED = 13


class Network(nn.Module):
    """Down to 7 x 7 places; what is seen on average decides, and what is seen at all."""

    def __init__(self):
        super().__init__()
        self.features = nn.Sequential(convolution(3, 16, 2), convolution(16, 24, 2), convolution(24, 32, 2),
                                      convolution(32, 40), Surroundings(40), convolution(40, 48, 2),
                                      convolution(48, 64), Surroundings(64))
        self.logits = nn.Linear(128, 2)

    def forward(self, image):
        places = self.features(image)
        seen = torch.cat([functional.adaptive_avg_pool2d(places, 1), functional.adaptive_max_pool2d(places, 1)], 1)
        return self.logits(torch.flatten(seen, 1))


class Batches(torch.utils.data.IterableDataset):
    """Images (red first) and classes: cut-outs of a stock of scenes, mirrored, moved, in another light and blur each time."""

    def __init__(self, scene_count):
        self.scene_count = scene_count

    def __iter__(self):
        cv2.setNumThreads(1)
        cv2.setRNGSeed(SEED)
        rng = np.random.default_rng(SEED)
        print("drawing persons and things, about a minute", flush=True)
        pool = scenes.Pool(rng, drawing.TRAINING, self.scene_count // 3, self.scene_count // 16,
                           self.scene_count // 16)
        stock = []
        for number in range(self.scene_count):
            stock += data.cut_outs(rng, drawing.TRAINING, pool)
            if number % 400 == 399:
                print("scenes: %d/%d" % (number + 1, self.scene_count), flush=True)
        while True:
            batch = [stock[index] for index in rng.integers(len(stock), size=BATCH)]
            images = np.stack([changed(rng, picture)[..., ::-1] for picture, _ in batch]).transpose(0, 3, 1, 2)
            yield torch.from_numpy(np.ascontiguousarray(images)), torch.tensor([kind for _, kind in batch])


def changed(rng, picture):
    """Up to 8 % of each side cut off, mirrored at times, in another light, at times blurred or noisy."""
    left, top, right, bottom = rng.integers(0, data.SIZE * 8 // 100, 4)
    part = picture[top:data.SIZE - bottom, left:data.SIZE - right]
    if rng.random() < 0.5:
        part = part[:, ::-1]
    part = cv2.resize(np.ascontiguousarray(part), (data.SIZE, data.SIZE))
    tint = cv2.LUT(part, np.clip(np.arange(256)[:, None] * rng.uniform(0.75, 1.3) * rng.uniform(0.9, 1.1, 3)
                                 + rng.uniform(-15, 15), 0, 255).astype(np.uint8).reshape(1, 256, 3))
    if rng.random() < 0.2:
        tint = cv2.GaussianBlur(tint, (0, 0), rng.uniform(0.4, 2.0))
    if rng.random() < 0.3:
        grain = np.empty(tint.shape, np.int16)
        cv2.randn(grain, 0, rng.uniform(1, 10))
        tint = cv2.add(tint, grain, dtype=cv2.CV_8U)
    return tint


def train(batches, steps):
    network = training.fast(Network())
    optimiser = torch.optim.AdamW(network.parameters(), 4e-3, weight_decay=1e-3)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimiser, 4e-3, steps, pct_start=0.1)
    progress = training.Progress(steps)
    right = 0.5
    for _, (images, kinds) in zip(range(steps), torch.utils.data.DataLoader(batches, batch_size=None, num_workers=1)):
        logits = training.run_fast(network, images.float() - 128).float()
        loss = functional.cross_entropy(logits, kinds, label_smoothing=0.05)
        optimiser.zero_grad()
        loss.backward()
        optimiser.step()
        schedule.step()
        right = 0.95 * right + 0.05 * (logits.argmax(1) == kinds).float().mean().item()
        progress.step("right %.1f %%" % (100 * right))
    return network


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description="Trains the network and writes it.")
    parser.add_argument("--quick", action="store_true", help="about a minute, to see that it runs")
    parser.add_argument("--out", default=os.path.join(HERE, "network.onnx"))
    parser.add_argument("--steps", type=int, default=6000)
    arguments = parser.parse_args()
    training.seed_all(SEED)
    stock, number = (100, 60) if arguments.quick else (4800, arguments.steps)
    training.export_onnx(train(Batches(stock), number), arguments.out, [1, 3, 112, 112], ["logits"])
