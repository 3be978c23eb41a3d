# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of person detection: train.py [--quick] [--out FOLDER] [--steps N]"""
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
from models.training import grid as grid_training

if __name__ == "__main__":
    grid_training.main(grid_training.PERSONS, HERE, seed=11)
