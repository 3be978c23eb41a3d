# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of faces for face features: --count persons, five crops each."""
from models.labels import making, table
from models.scenes import face_crops

VIEWS = 5


def examples(seed, count, family, part="pixels"):
    for n, (person, crop) in enumerate(face_crops.crops(seed, count, VIEWS, family, face_crops.OPEN_COVERS)):
        yield f"person_{person:03}_{n % VIEWS}.png", getattr(crop, part), [[f"person_{person:03}"]]


if __name__ == "__main__":
    making.make(__doc__, table.PERSONS, examples, seed=103, count=100)
