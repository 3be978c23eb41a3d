# SPDX-License-Identifier: Apache-2.0
"""Layers that several of the networks are made of."""
import torch
from torch import nn


def convolution(inputs, outputs, stride=1, dilation=1, size=3):
    return nn.Sequential(nn.Conv2d(inputs, outputs, size, stride, dilation * (size // 2), dilation, bias=False),
                         nn.BatchNorm2d(outputs), nn.ReLU(inplace=True))


def trunk(inputs, widths, strides):
    channels = [inputs, *widths]
    return nn.Sequential(*map(convolution, channels, widths, strides))


def face_trunk(widths):
    """From 112 x 112 to 7 x 7 cells in seven convolutions."""
    return trunk(1, widths, (2, 2, 1, 2, 1, 2, 1))


class GlobalPooling(nn.Module):
    """Global average and global maximum pooling, side by side."""

    def forward(self, cells):
        return torch.flatten(torch.cat([nn.functional.adaptive_avg_pool2d(cells, 1),
                                        nn.functional.adaptive_max_pool2d(cells, 1)], 1), 1)


class DepthwiseContext(nn.Module):
    """A depthwise context block: 5 x 5 depthwise and 1 x 1, added to what comes in."""

    def __init__(self, channels):
        super().__init__()
        self.look = nn.Conv2d(channels, channels, 5, padding=2, groups=channels, bias=False)
        self.judge = convolution(channels, channels, size=1)

    def forward(self, cells):
        return cells + self.judge(self.look(cells))
