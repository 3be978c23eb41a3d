# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of four-class detection: train.py [--quick] [--out FOLDER] [--steps N]"""
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
from models.training import grid as grid_training

if __name__ == "__main__":
    grid_training.main(grid_training.FOUR_CLASSES, HERE, seed=12)
