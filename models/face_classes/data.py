# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face classes."""
from models.labels import making, table
from models.scenes import face_crops


def examples(seed, count, family):
    for n, crop in face_crops.crops(seed, count, 1, family, face_crops.ALL_COVERS):
        yield f"face_{n:04}.png", crop.pixels, [[crop.face_class]]


if __name__ == "__main__":
    making.make(__doc__, table.CLASSES, examples, seed=102, count=900)
