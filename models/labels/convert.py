# SPDX-License-Identifier: Apache-2.0
"""Labels in the formats that people have. Each reader gives (where it says so, picture, class's name, box or None).

A box is left, top, width, height in pixels of the picture; the class "ignore" is for what counts neither way. A picture
without boxes comes with the name None.
"""
import json
import re
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List, Optional, Sequence, Tuple
from xml.parsers import expat

import cv2

from models.labels import table

Label = Tuple[str, Path, Optional[str], Optional[Sequence[float]]]
PICTURES = {".jpg", ".jpeg", ".png", ".bmp", ".webp", ".pgm", ".ppm"}
IGNORE = "ignore"


def coco(path: Path, pictures: Optional[Path]) -> Iterator[Label]:
    """A JSON file; crowds are ignored."""
    content = json.loads(path.read_text(encoding="utf-8"))
    names = {one["id"]: one["name"] for one in content["categories"]}
    files = {one["id"]: (pictures or path.parent) / one["file_name"] for one in content["images"]}
    empty = dict(files)
    for n, one in enumerate(content["annotations"]):
        where = f"{path}: annotations[{n}]"
        if one["image_id"] not in files or one["category_id"] not in names:
            raise table.Invalid(f"{where}: of an image or a category that is not there")
        empty.pop(one["image_id"], None)
        yield where, files[one["image_id"]], IGNORE if one.get("iscrowd") else names[one["category_id"]], one["bbox"]
    yield from ((str(path), file, None, None) for file in empty.values())


def yolo(path: Path, pictures: Optional[Path]) -> Iterator[Label]:
    """A directory with a text beside each picture, or in labels/ where that is in images/; names in classes.txt or *.names."""
    lists = sorted([*path.rglob("classes.txt"), *path.rglob("*.names")])
    if not lists:
        raise table.Invalid(f"{path}: no classes.txt and no *.names says what the classes are")
    names = lists[0].read_text(encoding="utf-8").split("\n")
    for file in pictures_in(pictures or path):
        beside = file.with_suffix(".txt")
        text = beside if beside.exists() else Path(re.sub(r"(.*)/images/", r"\1/labels/", str(beside)))
        lines = text.read_text(encoding="utf-8").split("\n") if text.exists() else []
        size = size_of(file) if any(lines) else (0, 0)
        for n, line in enumerate(lines, 1):
            if line.strip():
                where = f"{text}:{n}"
                number, x, y, w, h = numbers(where, line.split(), 5)
                if not (0 <= number < len(names) and names[int(number)]):
                    raise table.Invalid(f"{where}: no class {number:g} in {lists[0]}")
                yield where, file, names[int(number)].strip(), [
                    (x - w / 2) * size[0], (y - h / 2) * size[1], w * size[0], h * size[1]]
        if not any(lines):
            yield str(text), file, None, None


def voc(path: Path, pictures: Optional[Path]) -> Iterator[Label]:
    """A directory of XML files, the pictures beside them or in JPEGImages/; the difficult are ignored."""
    for file in sorted(path.rglob("*.xml")):
        nodes = leaves_of(file)
        name = next((text for _, keys, text in nodes if keys == ("annotation", "filename")), file.stem + ".jpg")
        places = [folder / name for folder in (pictures or file.parent, file.parent.parent / "JPEGImages")]
        picture = next((place for place in places if place.exists()), places[0])
        objects: List[Dict[str, str]] = []
        for line, keys, text in nodes:
            if keys == ("annotation", "object"):
                objects.append({"line": line})
            elif keys[:2] == ("annotation", "object") and "part" not in keys:
                objects[-1][keys[-1]] = text
        for one in objects:
            where = f"{file}:{one['line']}"
            x0, y0, x1, y1 = numbers(where, [one.get(key, "") for key in ("xmin", "ymin", "xmax", "ymax")], 4)
            # Counted from 1, and both ends are inside.
            yield where, picture, IGNORE if one.get("difficult") == "1" else one.get("name", ""), [
                x0 - 1, y0 - 1, x1 - x0 + 1, y1 - y0 + 1]
        if not objects:
            yield str(file), picture, None, None


def leaves_of(file: Path) -> List[Tuple[str, Tuple[str, ...], str]]:
    """The elements of an XML file as they begin: line, names from the outermost on, text."""
    found: List[list] = []
    path: List[str] = []
    parser = expat.ParserCreate()

    def start(name: str, _: Any) -> None:
        path.append(name)
        found.append([str(parser.CurrentLineNumber), tuple(path), ""])

    def text(data: str) -> None:
        if found and found[-1][1] == tuple(path):
            found[-1][2] += data.strip()

    parser.StartElementHandler, parser.CharacterDataHandler = start, text
    parser.EndElementHandler = lambda _: path.pop()
    try:
        parser.Parse(file.read_bytes(), True)
    except expat.ExpatError as error:
        raise table.Invalid(f"{file}:{error.lineno}: {error}") from error
    return [(line, keys, content) for line, keys, content in found]


def wider(path: Path, pictures: Optional[Path]) -> Iterator[Label]:
    """A text file: a picture's name, how many faces there are, a line for each; the invalid are ignored."""
    lines = path.read_text(encoding="utf-8").split("\n")
    n = 0
    while n < len(lines) and lines[n].strip():
        picture, where = (pictures or path.parent) / lines[n].strip(), f"{path}:{n + 2}"
        [count] = numbers(where, lines[n + 1:n + 2], 1)
        if not count:
            yield where, picture, None, None
        for k in range(n + 2, n + 2 + int(count)):
            x, y, w, h, *rest = numbers(f"{path}:{k + 1}", "".join(lines[k:k + 1]).split(), 10)
            yield f"{path}:{k + 1}", picture, IGNORE if rest[3] else "face", [x, y, w, h]
        n += 2 + max(int(count), 1)  # without faces there is a line of zeros


def folders(path: Path, pictures: Optional[Path]) -> Iterator[Label]:
    """A folder for each class or person."""
    for file in pictures_in(path):
        yield str(file), file, file.relative_to(path).parts[0], None


FORMATS: Dict[str, Callable[[Path, Optional[Path]], Iterator[Label]]] = {
    "coco": coco, "yolo": yolo, "voc": voc, "wider": wider, "folders": folders}


def pictures_in(path: Path) -> List[Path]:
    return sorted(file for file in path.rglob("*") if file.suffix.lower() in PICTURES)


def size_of(picture: Path) -> Tuple[int, int]:
    found = cv2.imread(str(picture), cv2.IMREAD_COLOR)
    if found is None:
        raise table.Invalid(f"{picture}: no picture that can be read")
    return found.shape[1], found.shape[0]


def numbers(where: str, fields: Sequence[str], count: int) -> List[float]:
    try:
        found = [float(field) for field in fields]
    except ValueError:
        found = []
    if len(found) < count:
        raise table.Invalid(f"{where}: {count} numbers are expected, there is {' '.join(fields)!r}")
    return found[:count]


def problem_with(box: Sequence[float], size: Tuple[int, int]) -> str:
    """What is wrong with a box of a picture, or nothing. Ends may be a pixel outside, where tools have rounded."""
    x, y, w, h = box
    if not (w > 0 and h > 0):
        return f"a box of {w:g} x {h:g}"
    if x < -1 or y < -1 or x + w > size[0] + 1 or y + h > size[1] + 1:
        return f"the box {x:g},{y:g},{w:g},{h:g} reaches outside the picture, which is {size[0]} x {size[1]}"
    return ""
