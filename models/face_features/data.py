# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face features, five a person: data.py DIR [--seed N] [--count PERSONS] [--training]"""
import os
import sys

from models.scenes import face_crops
from models.labels import table as labelled

VIEWS = 5

options = labelled.arguments(__doc__, seed=103, count=100)
rows = []
for n, crop in enumerate(face_crops.crops(options.seed, options.count, VIEWS, options.family, face_crops.OPEN_COVERS)):
    name = face_crops.save_picture(options.directory, f"person_{crop.person:03}_{n % VIEWS}.png", crop)
    rows.append([name, f"person_{crop.person:03}"])
labelled.save(options, ["file", "person"], rows)
