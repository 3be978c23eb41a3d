# SPDX-License-Identifier: Apache-2.0
"""What the makers of labelled data have in common: their arguments, and labels.csv as kelnn eval reads it."""
import argparse
import csv
import os

from models.sources.drawn import drawing


def arguments(doc, seed, count):
    """directory (made), seed, count, family: other textures than for training unless --training is given."""
    parser = argparse.ArgumentParser(description=doc)
    parser.add_argument("directory", metavar="DIR")
    parser.add_argument("--seed", type=int, default=seed)
    parser.add_argument("--count", type=int, default=count)
    parser.add_argument("--training", action="store_true", help="in the textures that the networks are trained on")
    options = parser.parse_args()
    options.family = drawing.TRAINING if options.training else drawing.HELD_OUT
    os.makedirs(options.directory, exist_ok=True)
    return options


def save(options, head, rows):
    with open(os.path.join(options.directory, "labels.csv"), "w", newline="") as file:
        csv.writer(file, lineterminator="\n").writerows([head] + rows)
    print(f"{options.directory}: {len(rows)} rows")
