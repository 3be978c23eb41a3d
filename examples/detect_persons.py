# SPDX-License-Identifier: Apache-2.0
"""Finds people in a picture, in Python:

    python3 detect_persons.py MODELS PICTURE

Prints a line for each: left, top, width, height and score, in pixels of the picture.
"""
import sys

import kelnn
import numpy as np
from PIL import Image


def main() -> int:
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    frame = np.array(Image.open(sys.argv[2]).convert("RGB"))  # (height, width, 3)
    height, width, _ = frame.shape
    try:
        with kelnn.PersonDetector(kelnn.Library(sys.argv[1]), frame_size=(width, height)) as persons:
            for person in persons.detect(frame):
                print(*person.box, f"{person.score:.2f}")
    except kelnn.Error as error:
        print(error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
