# SPDX-License-Identifier: Apache-2.0
"""labels.csv of a labelled directory, as kelnn eval reads it: read, checked, written. docs/evaluation.md has the format."""
import csv
import dataclasses
import math
from pathlib import Path
from typing import Any, Iterable, List, Sequence, Tuple

IGNORE = -1  # the class of a box around what is neither to be found nor to be taken for background
Example = Tuple[Path, List[Tuple[Any, ...]]]  # a file, and the values of its lines


class Invalid(Exception):
    """What is wrong with labels, with file and line."""


@dataclasses.dataclass(frozen=True)
class Layout:
    """The columns behind `file`."""
    columns: Tuple[str, ...]
    optional: Tuple[str, ...] = ()  # all of them or none
    words: Tuple[str, ...] = ()  # the columns that hold no number
    is_boxes: bool = False  # several lines a file; empty fields: none there


BOXES = Layout(("class", "x", "y", "w", "h"), is_boxes=True)
POINTS = Layout(tuple(axis + str(n) for n in range(1, 6) for axis in "xy"), optional=("yaw", "pitch", "roll"))
PERSONS = Layout(("person",), words=("person",))
CLASSES = Layout(("class",))
SOUNDS = Layout(("cry", "kind"), words=("kind",))


def read(directory: Any, layout: Layout, classes: Sequence[str]) -> List[Example]:
    """The files in their order; `classes` are the names of class 0, 1, ..., which labels may use instead of numbers."""
    path = Path(directory) / "labels.csv"
    found: dict = {}
    try:
        with open(path, newline="", encoding="utf-8") as file:
            lines = csv.reader(file, strict=True)
            head = tuple(next(lines, []))
            if head not in (("file", *layout.columns), ("file", *layout.columns, *layout.optional)):
                raise Invalid(f"{path}:1: the columns have to be {','.join(('file',) + layout.columns)}")
            for fields in filter(None, lines):
                where = f"{path}:{lines.line_num}"
                if len(fields) != len(head):
                    raise Invalid(f"{where}: {len(fields)} fields instead of {len(head)}")
                if not (path.parent / fields[0]).is_file():
                    raise Invalid(f"{where}: no file {fields[0]}")
                if fields[0] in found and not layout.is_boxes:
                    raise Invalid(f"{where}: {fields[0]} is labelled twice")
                rows = found.setdefault(fields[0], [])
                if not layout.is_boxes or any(fields[1:]):
                    rows.append(tuple(_value(where, column, text, layout, classes)
                                      for column, text in zip(head[1:], fields[1:])))
    except (OSError, UnicodeDecodeError, csv.Error) as error:
        raise Invalid(f"{path}: {error}") from error
    return [(path.parent / name, rows) for name, rows in found.items()]


def _value(where: str, column: str, text: str, layout: Layout, classes: Sequence[str]) -> Any:
    if column in layout.words:
        return text
    if column in ("class", "cry"):
        if layout.is_boxes and text == "ignore":
            return IGNORE
        if text in classes:
            return list(classes).index(text)
        if not text.isdecimal() or int(text) >= len(classes):
            raise Invalid(f"{where}: no class {text!r}; there are {', '.join(classes)}")
        return int(text)
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not math.isfinite(value) or (column in ("w", "h") and value <= 0):
        raise Invalid(f"{where}: {column} is {text!r}")
    return value


def write(directory: Any, layout: Layout, rows: Iterable[Sequence[Any]]) -> None:
    """`rows`: the file, then a value for each column; the file alone where a picture has no box."""
    rows = [[*row, *[""] * (1 + len(layout.columns) - len(row))] for row in rows]
    width = max([len(row) for row in rows], default=0)
    columns = layout.columns + (layout.optional if width > 1 + len(layout.columns) else ())
    with open(Path(directory) / "labels.csv", "w", newline="", encoding="utf-8") as file:
        csv.writer(file, lineterminator="\n").writerows([("file", *columns), *rows])
