# SPDX-License-Identifier: Apache-2.0
"""Training on crops of faces: the trunk of the three networks, and the loop."""
import argparse
import os

import numpy
import torch

from models.sources.drawn import drawing
from models.scenes import face_crops
from models.training import training
from models.training.layers import convolution

HERE = os.path.dirname(os.path.abspath(__file__))
POOLS = os.path.join(HERE, "..", "build", "pools")


def trunk(widths, inputs=1):
    """From 112 x 112 to 7 x 7 cells in seven convolutions."""
    strides = (2, 2, 1, 2, 1, 2, 1)
    layers, last = [], inputs
    for width, stride in zip(widths, strides):
        layers.append(convolution(last, width, stride))
        last = width
    return torch.nn.Sequential(*layers)


class Scaled(torch.nn.Module):
    """Takes bytes less 128, as the engine gives them, to about -2 to 2 by the weights of the first layer alone."""

    def __init__(self, network):
        super().__init__()
        self.network = network
        with torch.no_grad():
            first = next(m for m in network.modules() if isinstance(m, torch.nn.Conv2d))
            first.weight /= 64

    def forward(self, image):
        return self.network(image)


def arguments(directory):
    parser = argparse.ArgumentParser(description="Trains on drawn faces; takes minutes, tells how many are left.")
    parser.add_argument("--out", default=os.path.join(directory, "network.onnx"), help="where the network goes")
    parser.add_argument("--quick", action="store_true", help="a minute, to see that everything works; the result is no good")
    return parser.parse_args()


def training_pool(name, quick, seed, identities, views, covers):
    """Crops in the textures for training; `quick`: few of them."""
    if quick:
        name, identities = "quick_" + name, 40
    return face_crops.pool(os.path.join(POOLS, name + ".npz"), seed=seed, identities=identities, views=views,
                           family=drawing.TRAINING, covers=covers)


def augmented(rng, pixels):
    """Bytes less 128 in other light, with noise, as floats [n, 1, 112, 112]."""
    n = len(pixels)
    images = pixels.astype(numpy.float32) - 128
    gain, offset = rng.uniform(0.7, 1.25, (n, 1, 1)), rng.normal(0, 14, (n, 1, 1))
    images = images * gain + offset + rng.normal(0, 1, images.shape) * rng.uniform(0, 5, (n, 1, 1))
    return torch.from_numpy(numpy.clip(images, -128, 127).astype(numpy.float32)).unsqueeze(1)


def fit(module, loss_of, pool, epochs, batch=64, rate=2e-3, seed=7):
    """`loss_of(pick)`: the loss of a batch; `pick` are its indices in the pool."""
    count = len(pool["pixels"])
    steps = epochs * (count // batch)
    optimizer = torch.optim.AdamW(module.parameters(), lr=rate, weight_decay=1e-4)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, rate, total_steps=steps, pct_start=0.1)
    progress, rng = training.Progress(steps), numpy.random.default_rng(seed)
    module.train()
    mean = None
    for _ in range(epochs):
        order = rng.permutation(count)
        for at in range(0, count - batch + 1, batch):
            pick = order[at:at + batch]
            loss = loss_of(pick)
            optimizer.zero_grad()
            loss.backward()
            optimizer.step()
            schedule.step()
            mean = loss.item() if mean is None else 0.98 * mean + 0.02 * loss.item()
            progress.step("loss %.4f" % mean)
