# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face classes: data.py DIR [--seed N] [--count N] [--training]"""
import os
import sys

from models.scenes import face_crops
from models.labels import table as labelled

options = labelled.arguments(__doc__, seed=102, count=900)
rows = []
for n, crop in enumerate(face_crops.crops(options.seed, options.count, 1, options.family, face_crops.ALL_COVERS)):
    rows.append([face_crops.save_picture(options.directory, f"face_{n:04}.png", crop), crop.face_class])
labelled.save(options, ["file", "class"], rows)
