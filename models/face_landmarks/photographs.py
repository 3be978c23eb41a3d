# SPDX-License-Identifier: Apache-2.0
"""Cuts the faces of photographs.csv, whose points were set by hand, out of photographs: squares 1.2 times as large as the face,
with the points as kelnn eval face-landmarks reads them. No training sees a face of these."""
import argparse
import csv
from pathlib import Path
from typing import Optional, Sequence

import cv2
import numpy as np

from models.labels import making, table
from models.labels.pictures import read_picture

SIDE = 224  # pixels of a crop


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("photographs", metavar="DIR", type=Path, help="with the files that photographs.csv names")
    parser.add_argument("out", metavar="OUT", type=Path)
    options = parser.parse_args(arguments)
    rows: list = []
    with open(Path(__file__).with_suffix(".csv"), newline="", encoding="utf-8") as file:
        for name, *values in list(csv.reader(file))[1:]:
            x, y, side, *points = map(float, values)
            to_crop = np.array([[SIDE / side, 0, -x * SIDE / side], [0, SIDE / side, -y * SIDE / side]])
            crop = cv2.warpAffine(read_picture(options.photographs / name), to_crop, (SIDE, SIDE), flags=cv2.INTER_CUBIC,
                                  borderMode=cv2.BORDER_REPLICATE)
            places = (np.reshape(points, (5, 2)) - (x, y)) * SIDE / side
            rows.append((f"{len(rows):02}.png", *(f"{place:.1f}" for place in places.ravel())))
            making.save(options.out / rows[-1][0], crop)
    table.write(options.out, table.POINTS, rows)
    print(f"{options.out}: {len(rows)} rows")


if __name__ == "__main__":
    main()
