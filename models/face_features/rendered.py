# SPDX-License-Identifier: Apache-2.0
"""Makes labelled crops of rendered persons (models.sources.bodies.cut_outs --busts) for kelnn eval face-features: what is
measured has to be of other persons than what is trained on, so of another seed there."""
import argparse
from pathlib import Path
from typing import Optional, Sequence

import numpy as np

from models.labels import making, table
from models.scenes import face_crops
from models.sources.bodies.cut_outs import Rendered
from models.sources.drawn.source import Drawn


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("rendered", metavar="RENDERED", type=Path)
    parser.add_argument("out", metavar="OUT", type=Path)
    parser.add_argument("--aligned", action="store_true", help="cut by their points, a little off, instead of their boxes")
    parser.add_argument("--seed", type=int, default=103)
    options = parser.parse_args(arguments)
    rendered, backgrounds, rows = Rendered(options.rendered), Drawn(making.HELD_OUT), []
    for person, views in enumerate(rendered.views()):
        rng = np.random.default_rng([options.seed, person])
        for n, view in enumerate(views):
            crop = face_crops.crop_of_figure(rng, backgrounds, rendered.with_points(rng, view), float(options.aligned))
            rows.append((f"person_{person:03}_{n}.png", f"person_{person:03}"))
            making.save(options.out / rows[-1][0], crop.pixels)
    table.write(options.out, table.PERSONS, rows)
    print(f"{options.out}: {len(rows)} rows")


if __name__ == "__main__":
    main()
