# SPDX-License-Identifier: Apache-2.0
"""Five by five rendered persons before drawn backgrounds, with the boxes and points that they are labelled with."""
import argparse
from pathlib import Path
from typing import Optional, Sequence

import cv2
import numpy as np

from models.labels.making import TRAINING, save
from models.scenes import camera
from models.sources.bodies.cut_outs import BUST, Rendered
from models.sources.drawn.paint import paste
from models.sources.drawn.source import Drawn

SIDE, COUNT = 160, 5


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("rendered", metavar="DIR", type=Path, help="what models.sources.bodies.cut_outs made")
    parser.add_argument("out", metavar="FILE", type=Path)
    parser.add_argument("--seed", type=int, default=0)
    options = parser.parse_args(arguments)
    rng = np.random.default_rng(options.seed)
    source, drawn = Rendered(options.rendered), Drawn(TRAINING)
    tiles = [tile(rng, source, drawn, number % 2 == 0) for number in range(COUNT * COUNT)]
    save(options.out, np.vstack([np.hstack(tiles[n:n + COUNT]) for n in range(0, COUNT * COUNT, COUNT)]), quality=85)


def tile(rng, source, drawn, is_bust):
    while True:
        name, kind, values = source.rows[rng.integers(len(source.rows))]
        if (kind == BUST) == is_bust:
            break
    picture = source.picture(name)
    scale = 2 * SIDE / max(picture.shape[:2]) * (1 if is_bust else 0.95)
    picture = cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_LINEAR)
    ground = drawn.background(rng, 2 * SIDE, 2 * SIDE).astype(np.float32)
    left, top = SIDE - picture.shape[1] // 2, 2 * SIDE - picture.shape[0]
    paste(ground, picture, left, top)
    shown = cv2.resize(camera.degrade(rng, ground.astype(np.uint8), 0.6), (SIDE, SIDE), interpolation=cv2.INTER_AREA)
    if source.shows_face(values):
        at = (values[1:15] * scale / 2).reshape(-1, 2)
        at[[0, *range(2, 7)]] += (left / 2, top / 2)
        corner, size, points = at[0], at[1], at[2:]
        cv2.rectangle(shown, corner.astype(int).tolist(), (corner + size).astype(int).tolist(), (80, 255, 80), 1, cv2.LINE_AA)
        for point in points if is_bust else ():
            cv2.circle(shown, point.round().astype(int).tolist(), 1, (60, 60, 255), -1, cv2.LINE_AA)
    return shown


if __name__ == "__main__":
    main()
