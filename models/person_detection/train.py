# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of person detection."""
import torch

from models.scenes import compose
from models.tasks import PERSON_ANCHORS
from models.training import grid
from models.training.run import run

ANCHORS = torch.tensor(PERSON_ANCHORS, dtype=torch.float32)
RECIPE = grid.recipe("person_detection", grid.Task(ANCHORS, 6, ("person",), compose.person_things, margin=0.5), seed=11)

if __name__ == "__main__":
    run(RECIPE)
