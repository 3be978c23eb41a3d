# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of four-class detection."""
import torch

from models.scenes import compose
from models.sources.drawn.source import KINDS
from models.tasks import FOUR_CLASS_ANCHORS
from models.training import grid
from models.training.run import run

ANCHORS = torch.tensor(FOUR_CLASS_ANCHORS, dtype=torch.float32)
RECIPE = grid.recipe("four_class_detection", grid.Task(ANCHORS, 9, KINDS, compose.object_things, margin=0.6), seed=12)

if __name__ == "__main__":
    run(RECIPE)
