"""Trains the sample network of person classification: train.py [--quick] [--out FILE] [--steps N]"""
import argparse
import os
import sys

import cv2
import numpy as np
import torch
from torch import nn

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
import data  # noqa: E402
import drawing  # noqa: E402
import scenes  # noqa: E402
import training  # noqa: E402

BATCH = 64
SEED = 13


def convolution(inputs, outputs, stride):
    return nn.Sequential(nn.Conv2d(inputs, outputs, 3, stride, 1, bias=False), nn.BatchNorm2d(outputs),
                         nn.ReLU(inplace=True))


class Network(nn.Module):
    """Six convolutions, down to 7 x 7 places; their mean decides."""

    def __init__(self):
        super().__init__()
        self.features = nn.Sequential(convolution(3, 12, 2), convolution(12, 20, 2), convolution(20, 32, 2),
                                      convolution(32, 40, 1), convolution(40, 48, 2), convolution(48, 64, 1))
        self.logits = nn.Linear(64, 2)

    def forward(self, image):
        return self.logits(self.features(image).mean((2, 3)))


class Batches(torch.utils.data.IterableDataset):
    """Images (red first) and classes: cut-outs of a stock of scenes, mirrored, moved and in another light each time."""

    def __init__(self, scene_count):
        self.scene_count = scene_count

    def __iter__(self):
        cv2.setNumThreads(1)
        rng = np.random.default_rng(SEED)
        pool = scenes.Pool(rng, drawing.TRAINING, self.scene_count // 3, self.scene_count // 20,
                           self.scene_count // 20)
        stock = []
        for _ in range(self.scene_count):
            stock += data.cut_outs(rng, drawing.TRAINING, pool)
        while True:
            batch = [stock[index] for index in rng.integers(len(stock), size=BATCH)]
            images = np.stack([changed(rng, picture)[..., ::-1] for picture, _ in batch]).transpose(0, 3, 1, 2)
            yield torch.from_numpy(np.ascontiguousarray(images)), torch.tensor([kind for _, kind in batch])


def changed(rng, picture):
    """Up to 8 % of each side cut off, mirrored at times, in another light."""
    left, top, right, bottom = rng.integers(0, data.SIZE * 8 // 100, 4)
    part = picture[top:data.SIZE - bottom, left:data.SIZE - right]
    if rng.random() < 0.5:
        part = part[:, ::-1]
    part = cv2.resize(np.ascontiguousarray(part), (data.SIZE, data.SIZE))
    return cv2.convertScaleAbs(part, alpha=rng.uniform(0.8, 1.25), beta=rng.uniform(0, 15))


def train(batches, steps):
    network = Network()
    optimiser = torch.optim.AdamW(network.parameters(), 4e-3, weight_decay=1e-3)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimiser, 4e-3, steps, pct_start=0.1)
    progress = training.Progress(steps)
    right = 0.5
    for _, (images, kinds) in zip(range(steps), torch.utils.data.DataLoader(batches, batch_size=None, num_workers=1)):
        logits = network(images.float() - 128)
        loss = nn.functional.cross_entropy(logits, kinds, label_smoothing=0.05)
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
    parser.add_argument("--steps", type=int, default=2000)
    arguments = parser.parse_args()
    training.seed_all(SEED)
    stock, number = (100, 60) if arguments.quick else (2400, arguments.steps)
    training.export_onnx(train(Batches(stock), number), arguments.out, [1, 3, 112, 112], ["logits"])
