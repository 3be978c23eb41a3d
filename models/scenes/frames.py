# SPDX-License-Identifier: Apache-2.0
"""Makes labelled pictures for the two grid detectors: frames of three shapes with labels.csv beside them."""
import argparse
import os

import cv2
import numpy as np

from models.sources.drawn import drawing
from models.scenes import compose as scenes

DEGRADATION = 0.7  # light and camera: 1 is a cheap one in a dim room
FRAMES = ((640, 360), (640, 360), (480, 480), (360, 640))  # width, height


def options(description, count):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("directory", help="where to; it is made")
    parser.add_argument("--seed", type=int, default=1000)
    parser.add_argument("--count", type=int, default=count, help="number of pictures")
    parser.add_argument("--training", action="store_true", help="the textures of the training pictures, not other ones")
    arguments = parser.parse_args()
    os.makedirs(arguments.directory, exist_ok=True)
    arguments.family = drawing.TRAINING if arguments.training else drawing.HELD_OUT
    return arguments


def frame(rng, family, things, width, height):
    """(picture, labels); things: a function of scenes.py."""
    source = scenes.Fresh(rng, family)
    background = drawing.background(rng, width, height, family)
    picture, labels = scenes.compose(background, things(rng, source, width, height), rng)
    return drawing.degrade(rng, picture, DEGRADATION), labels


def main(things, description):
    arguments = options(description, 400)
    rng = np.random.default_rng(arguments.seed)
    with open(os.path.join(arguments.directory, "labels.csv"), "w") as table:
        table.write("file,class,x,y,w,h\n")
        for number in range(arguments.count):
            name = "%04d.jpg" % number
            picture, labels = frame(rng, arguments.family, things, *FRAMES[number % len(FRAMES)])
            cv2.imwrite(os.path.join(arguments.directory, name), picture, [cv2.IMWRITE_JPEG_QUALITY, 92])
            for label in labels:
                table.write("%s,%d,%d,%d,%d,%d\n" % (name, *label))
            if not labels:
                table.write(name + ",,,,,\n")
