# SPDX-License-Identifier: Apache-2.0
"""Layers that several of the networks are made of."""
from torch import nn


def convolution(inputs, outputs, stride=1, dilation=1, size=3):
    return nn.Sequential(nn.Conv2d(inputs, outputs, size, stride, dilation * (size // 2), dilation, bias=False),
                         nn.BatchNorm2d(outputs), nn.ReLU(inplace=True))


class Surroundings(nn.Module):
    """Adds what is seen two cells around, for few weights."""

    def __init__(self, channels):
        super().__init__()
        self.look = nn.Conv2d(channels, channels, 5, padding=2, groups=channels, bias=False)
        self.judge = convolution(channels, channels, size=1)

    def forward(self, cells):
        return cells + self.judge(self.look(cells))
