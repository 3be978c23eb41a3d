# SPDX-License-Identifier: Apache-2.0
"""Makes labelled pictures of persons (class 0): 0 to 5 in a frame."""
import functools

from models.labels import making, table
from models.scenes import compose, frames

EXAMPLES = functools.partial(frames.examples, compose.person_things)

if __name__ == "__main__":
    making.make(__doc__, table.BOXES, EXAMPLES, seed=1000, count=400)
