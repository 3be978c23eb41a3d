# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face landmarks."""
from models.labels import making, table
from models.scenes import face_crops


def examples(seed, count, family):
    for n, crop in face_crops.crops(seed, count, 1, family, face_crops.SOME_COVERS):
        values = [f"{v * face_crops.SIZE:.2f}" for v in crop.points.ravel()] + [f"{v:.1f}" for v in crop.pose]
        yield f"face_{n:04}.png", crop.pixels, [values]


if __name__ == "__main__":
    making.make(__doc__, table.POINTS, examples, seed=101, count=600)
