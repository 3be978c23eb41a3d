# SPDX-License-Identifier: Apache-2.0
"""Makes frames labelled with faces (class 0), of several sizes and shapes: data.py DIR [--seed N] [--count N] [--training]"""
import os
import sys

import cv2
import numpy

from models.scenes import face_frames as face_scenes
from models.labels import table as labelled

FRAMES = ((640, 360), (640, 480), (320, 240), (480, 480), (360, 640))

options = labelled.arguments(__doc__, seed=104, count=300)
heads = face_scenes.Heads(options.seed, 300)
rows = []
for n in range(options.count):
    width, height = FRAMES[n % len(FRAMES)]
    least = 14 * max(width / 320, height / 240)  # 14 pixels of the network's input
    picture, boxes = face_scenes.scene(numpy.random.default_rng([options.seed, 1, n]), heads, width, height, options.family, least)
    name = f"frame_{n:04}.jpg"
    cv2.imwrite(os.path.join(options.directory, name), picture, [cv2.IMWRITE_JPEG_QUALITY, 92])
    rows += [[name, 0] + [f"{v:.1f}" for v in box] for box in boxes] or [[name, "", "", "", "", ""]]
labelled.save(options, ["file", "class", "x", "y", "w", "h"], rows)
