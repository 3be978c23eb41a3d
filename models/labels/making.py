# SPDX-License-Identifier: Apache-2.0
"""The program that a network's data.py is: makes a labelled directory. Writes pictures and sounds, or says that it cannot."""
import argparse
from pathlib import Path
from typing import Any, Callable, Iterable, Optional, Sequence, Tuple

from models.labels import table

TRAINING, HELD_OUT = "training", "held_out"  # two families of everything that is made, which share nothing
Examples = Iterable[Tuple[str, Any, Sequence[Sequence[Any]]]]  # name, picture or samples, values of each of its lines


def save(path: Path, content: Any, quality: int = 92) -> None:
    """A picture (blue first; `quality` is a JPEG's), or samples of 16 kHz as FLAC."""
    path.parent.mkdir(parents=True, exist_ok=True)
    if path.suffix == ".flac":
        import soundfile
        soundfile.write(path, content, 16000)
    else:
        import cv2
        if not cv2.imwrite(str(path), content, [cv2.IMWRITE_JPEG_QUALITY, quality]):
            raise OSError(f"{path} cannot be written")


def make(doc: Optional[str], layout: table.Layout, examples: Callable[[int, int, str], Examples], seed: int, count: int,
         arguments: Optional[Sequence[str]] = None) -> None:
    """examples(seed, count, family)"""
    parser = argparse.ArgumentParser(description=doc)
    parser.add_argument("directory", metavar="DIR", type=Path, help="where to; it is made")
    parser.add_argument("--seed", type=int, default=seed)
    parser.add_argument("--count", type=int, default=count)
    parser.add_argument("--training", dest="family", action="store_const", const=TRAINING, default=HELD_OUT,
                        help="of the textures and voices that the networks are trained on")
    options = parser.parse_args(arguments)
    rows: list = []
    for name, content, labels in examples(options.seed, options.count, options.family):
        save(options.directory / name, content)
        rows += [[name, *values] for values in labels] or [[name]]
    table.write(options.directory, layout, rows)
    print(f"{options.directory}: {len(rows)} rows")
