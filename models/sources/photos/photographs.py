# SPDX-License-Identifier: Apache-2.0
"""Photographs with boxes and outlines of what is on them, as a source of scenes.

A directory of them has images/, boxes/NAME.txt (a line for each thing: class, then centre and size), outlines/NAME.txt
(a number, then x y x y ...), all in parts of the picture, and classes.txt with the names of class 0, 1, ... An outline's
number is not looked at, since collections count its classes in another way than the boxes': it is what its box is.

One photograph in five is held back to measure with and trains nothing. As a program: writes the labels of the photographs
held back, as kelnn eval reads them.
"""
import argparse
import functools
import os
import sys
import zlib
from pathlib import Path
from typing import Any, List, Optional, Sequence, Tuple

import cv2
import numpy as np

from models.labels import table
from models.labels.boxes import corners as box_corners, iou
from models.labels.pictures import read_picture

LEAST_SIDE = 48  # pixels of a cut-out
SMALL = 0.1  # of the picture's height or width: persons and things that are smaller in both are ignored
# What is near enough to a class to be neither found nor taken for background.
LOOKALIKES = {"truck": "car", "bus": "car", "suitcase": "parcel"}
Shape = Tuple[str, Any]  # the class's name; a box x, y, width, height or an outline [n, 2], in parts of the picture


def is_held_back(name: str) -> bool:
    return zlib.crc32(name.encode()) % 5 == 2


class Photograph:
    def __init__(self, path: Path, boxes: List[Shape], outlines: List[Shape]):
        self.path, self.boxes, self.outlines = path, boxes, outlines

    @property
    def names(self) -> set:
        return {name for name, _ in self.boxes}

    def pixels(self) -> Any:
        return _pixels(self.path)

    def labels(self, classes: Sequence[str], least: float = SMALL) -> List[Tuple[Any, ...]]:
        """(class or IGNORE, x, y, w, h) in pixels, of things of the classes and of what looks like them."""
        rows, columns = self.pixels().shape[:2]
        rules = [(name, box) for name, box in self.boxes if LOOKALIKES.get(name, name) in classes]
        return [(classes.index(name) if name in classes and max(box[2:]) >= least else table.IGNORE,
                 *(np.round(box * (columns, rows, columns, rows), 1))) for name, box in rules]


@functools.lru_cache(512)
def _pixels(path: Path) -> Any:
    return read_picture(path)


def read(directory: Any) -> List[Photograph]:
    """Those that have boxes, in the order of their names."""
    directory = Path(directory)
    try:
        classes = (directory / "classes.txt").read_text().splitlines()
        paths = sorted((directory / "images").iterdir())
    except OSError as error:
        raise table.Invalid(f"{error.filename}: {error.strerror}") from error
    found = []
    for path in paths:
        boxes = _lines(directory / "boxes" / f"{path.stem}.txt", len(classes), lambda n: n == 4)
        if boxes is None:
            continue
        things = [(classes[kind], np.array([*(box[:2] - box[2:] / 2), *box[2:]])) for kind, box in boxes]
        lines = _lines(directory / "outlines" / f"{path.stem}.txt", sys.maxsize, lambda n: n >= 6 and n % 2 == 0)
        found.append(Photograph(path, things, _named([line.reshape(-1, 2) for _, line in lines or []], things)))
    return found


def _lines(path: Path, class_count: int, is_right: Any) -> Optional[List[Tuple[int, Any]]]:
    if not path.exists():
        return None
    found = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        try:
            kind, *texts = line.split()
            values = np.array(texts, float)
            if not (0 <= int(kind) < class_count and is_right(len(values)) and np.isfinite(values).all()):
                raise ValueError
        except ValueError as error:
            raise table.Invalid(f"{path}:{number}: not a class and its place in numbers") from error
        found.append((int(kind), values))
    return found


def _named(outlines: List[Any], things: List[Shape]) -> List[Shape]:
    """Those that fill a thing's box."""
    places = np.array([box_corners(box) for _, box in things]).reshape(-1, 4)
    found = []
    for outline in outlines:
        shared = iou(places, np.array([*outline.min(axis=0), *outline.max(axis=0)]))
        if len(things) and shared.max() > 0.8:
            found.append((things[shared.argmax()][0], outline))
    return found


def part(rng: Any, picture: Any, width: int, height: int, least: float = 0.5) -> Any:
    """A part of the picture with this shape, at this size."""
    rows, columns = picture.shape[:2]
    scale = min(columns / width, rows / height) * rng.uniform(least, 1)
    w, h = max(1, int(width * scale)), max(1, int(height * scale))
    left, top = rng.integers(0, columns - w + 1), rng.integers(0, rows - h + 1)
    cut = cv2.resize(picture[top:top + h, left:left + w], (width, height),
                     interpolation=cv2.INTER_AREA if scale > 1 else cv2.INTER_LINEAR)
    return cut[:, ::-1].copy() if rng.random() < 0.5 else cut


class Empty:
    """A directory with photographs that show nobody and nothing to be found, in any depth: backgrounds."""

    def __init__(self, directory: Any):
        self.pictures = []
        for path in sorted(Path(directory).rglob("*")):
            if path.suffix.lower() in (".jpg", ".jpeg", ".png", ".webp"):
                picture = read_picture(path)
                scale = 800 / max(picture.shape[:2])
                self.pictures.append(cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA))
        if not self.pictures:
            raise table.Invalid(f"{directory}: no pictures")

    def background(self, rng: Any, width: int, height: int) -> Any:
        return part(rng, self.pictures[rng.integers(len(self.pictures))], width, height, 0.3)


class Photographs:
    """For training: backgrounds of those without persons and the kinds, and cut-outs along outlines."""

    def __init__(self, directory: Any, kinds: Sequence[str]):
        self.all = [photograph for photograph in read(directory) if not is_held_back(photograph.path.stem)]
        unwanted = {"person", *kinds, *LOOKALIKES}
        self.without = [photograph for photograph in self.all if not photograph.names & unwanted]
        self.cut_outs: dict = {}
        for photograph in self.all:
            for name, outline in photograph.outlines:
                picture = cut_out(photograph.pixels(), outline)
                if picture is not None:
                    self.cut_outs.setdefault(name, []).append(picture)
        self.others = [name for name in self.cut_outs if name not in unwanted]
        if not self.without or "person" not in self.cut_outs:
            raise table.Invalid(f"{directory}: there have to be photographs without persons, and outlines of persons")

    def background(self, rng: Any, width: int, height: int) -> Any:
        return part(rng, self.without[rng.integers(len(self.without))].pixels(), width, height)

    def person(self, rng: Any) -> Any:
        return self._one(rng, "person")

    def thing(self, rng: Any, kinds: Sequence[str]) -> Tuple[str, Any]:
        """Of the kinds that there are photographs of; where there are none, of anything else."""
        able = [kind for kind in kinds if kind in self.cut_outs] or self.others
        kind = able[rng.integers(len(able))]
        return kind, self._one(rng, kind)

    def _one(self, rng: Any, name: str) -> Any:
        return self.cut_outs[name][rng.integers(len(self.cut_outs[name]))]


def cut_out(picture: Any, outline: Any) -> Any:
    """BGRA, tight around what the outline holds, or None if that is small."""
    rows, columns = picture.shape[:2]
    points = np.round(outline * (columns, rows)).astype(np.int32)
    x, y, w, h = cv2.boundingRect(points)
    x, y = max(x, 0), max(y, 0)
    if max(w, h) < LEAST_SIDE or min(w, h) < LEAST_SIDE // 4:
        return None
    mask = np.zeros((rows, columns), np.uint8)
    cv2.fillPoly(mask, [points], 255)
    mask = cv2.GaussianBlur(mask, (0, 0), 0.8)
    return np.dstack([picture, mask])[y:y + h, x:x + w].copy()


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description="Writes the labels of held-back photographs, as kelnn eval reads them.")
    parser.add_argument("directory", metavar="DIR", type=Path, help="with images/, boxes/, outlines/ and classes.txt")
    parser.add_argument("out", metavar="OUT", type=Path)
    parser.add_argument("--classes", default="person", metavar="NAME,...", help="class 0, 1, ... (default: person)")
    options = parser.parse_args(arguments)
    options.out.mkdir(parents=True, exist_ok=True)
    rows: list = []
    for photograph in read(options.directory):
        if is_held_back(photograph.path.stem):
            name = os.path.relpath(photograph.path, options.out)
            labels = photograph.labels(options.classes.split(","))
            rows += [(name, "ignore" if kind == table.IGNORE else kind, *box) for kind, *box in labels] or [(name,)]
    table.write(options.out, table.BOXES, rows)
    print(f"{options.out}: {len(rows)} rows")


if __name__ == "__main__":
    main()
