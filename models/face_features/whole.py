# SPDX-License-Identifier: Apache-2.0
"""Makes the whole pictures that the crops for face features are cut from, for kelnn eval face-features-whole."""
import functools

from models.face_features import data
from models.labels import making, table

if __name__ == "__main__":
    making.make(__doc__, table.PERSONS, functools.partial(data.examples, part="whole"), seed=103, count=60)
