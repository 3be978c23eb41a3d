# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of cry detection: from 297 x 64 bytes, as libkelnn computes them, to two scores.

    models/cry_detection/train.py [--quick] [--out FILE]
"""
import argparse
import multiprocessing
import os
import sys

import numpy
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
from models.cry_detection import data
from models.cry_detection import features
from models.sources.sounds import sounds
from models.training import training

PARTS = 4  # each with voices and tracks of its own
POOLS = os.path.join(HERE, "..", "..", "build", "pools")


def make_part(part, count):
    """Features of windows that pass the loudness gate, and whether they are cries."""
    seen, is_cry = [], []
    for number, (pcm, kind) in enumerate(data.windows(500 + part, count, sounds.TRAINING)):
        matrix = features.features(pcm)
        if matrix is not None:
            seen.append(matrix)
            is_cry.append(kind == "cry")
        if number % 100 == 99:
            print(f"sounds, part {part}: {number + 1}/{count}", flush=True)
    return numpy.array(seen), numpy.array(is_cry, numpy.int64)


def pool(count):
    """All parts, kept in a file: making them takes longer than training."""
    path = os.path.join(POOLS, f"cry_{count}.npz")
    if not os.path.exists(path):
        os.makedirs(POOLS, exist_ok=True)
        with multiprocessing.Pool(os.cpu_count()) as workers:
            parts = workers.starmap(make_part, [(part, count // PARTS) for part in range(PARTS)], chunksize=1)
        numpy.savez(path + ".part.npz", features=numpy.concatenate([p[0] for p in parts]),
                    is_cry=numpy.concatenate([p[1] for p in parts]))
        os.replace(path + ".part.npz", path)
    with numpy.load(path) as arrays:
        return arrays["features"], arrays["is_cry"]


class Network(torch.nn.Module):
    def __init__(self):
        super().__init__()
        layers, last = [], 1
        for width, stride in ((12, 2), (16, 2), (24, 2), (32, 1), (40, 2), (48, 1)):
            layers += [torch.nn.Conv2d(last, width, 3, stride, 1, bias=False), torch.nn.BatchNorm2d(width),
                       torch.nn.ReLU()]
            last = width
        self.layers = torch.nn.Sequential(*layers)
        self.scores = torch.nn.Linear(2 * last, 2)
        with torch.no_grad():
            self.layers[0].weight /= 32  # bytes less 128 come in

    def forward(self, image):
        cells = self.layers(image)
        # What is heard on average, and what is heard at all.
        heard = torch.cat([torch.nn.functional.adaptive_avg_pool2d(cells, 1),
                           torch.nn.functional.adaptive_max_pool2d(cells, 1)], 1)
        return self.scores(torch.flatten(heard, 1))


def batch_of(rng, seen, pick):
    """Moved in time, a little in frequency, in other levels, as floats."""
    images = []
    for i in pick:
        image = numpy.roll(seen[i], int(rng.integers(297)), axis=0).astype(numpy.float32) - 128
        tilt = rng.normal(0, 4) + rng.normal(0, 3) * numpy.linspace(-1, 1, 64)
        images.append(image * rng.uniform(0.85, 1.15) + tilt)
    return torch.from_numpy(numpy.clip(numpy.array(images), -128, 127).astype(numpy.float32)).unsqueeze(1)


def main():
    parser = argparse.ArgumentParser(description="Trains on synthetic sounds, a quarter of an hour.")
    parser.add_argument("--out", default=os.path.join(HERE, "network.onnx"), help="where the network goes")
    parser.add_argument("--quick", action="store_true",
                        help="a minute, to see that everything works; the result is no good")
    options = parser.parse_args()
    training.seed_all(6)
    seen, is_cry = pool(160 if options.quick else 4800)
    batch, epochs, rate = 32, 1 if options.quick else 20, 3e-3
    rng, wanted, module = numpy.random.default_rng(8), torch.from_numpy(is_cry), Network()
    steps = epochs * (len(seen) // batch)
    optimizer = torch.optim.AdamW(module.parameters(), lr=rate, weight_decay=1e-3)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, rate, total_steps=steps, pct_start=0.1)
    progress, mean = training.Progress(steps), None
    for _ in range(epochs):
        order = rng.permutation(len(seen))
        for at in range(0, len(seen) - batch + 1, batch):
            pick = order[at:at + batch]
            scores = module(batch_of(rng, seen, pick))
            loss = torch.nn.functional.cross_entropy(scores, wanted[pick], label_smoothing=0.02)
            optimizer.zero_grad()
            loss.backward()
            optimizer.step()
            schedule.step()
            mean = loss.item() if mean is None else 0.98 * mean + 0.02 * loss.item()
            progress.step("loss %.4f" % mean)
    training.export_onnx(module, options.out, [1, 1, features.FRAMES, features.CHANNELS], ["scores"])


if __name__ == "__main__":
    main()
