# SPDX-License-Identifier: Apache-2.0
"""Trains the sample network of person detection: train.py [--quick] [--out FOLDER] [--steps N]"""
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
import grid_training  # noqa: E402

if __name__ == "__main__":
    grid_training.main(grid_training.PERSONS, HERE, seed=11)
