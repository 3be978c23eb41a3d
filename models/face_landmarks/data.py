# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face landmarks: data.py DIR [--seed N] [--count N] [--training]"""
import os
import sys

from models.scenes import face_crops
from models.labels import table as labelled

options = labelled.arguments(__doc__, seed=101, count=600)
rows = []
for n, crop in enumerate(face_crops.crops(options.seed, options.count, 1, options.family, face_crops.SOME_COVERS)):
    name = face_crops.save_picture(options.directory, f"face_{n:04}.png", crop)
    rows.append([name] + [f"{v * face_crops.SIZE:.2f}" for v in crop.points.ravel()] + [f"{v:.1f}" for v in crop.pose])
labelled.save(options, ["file"] + [axis + str(n) for n in range(1, 6) for axis in "xy"] + ["yaw", "pitch", "roll"], rows)
