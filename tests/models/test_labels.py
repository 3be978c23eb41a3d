# SPDX-License-Identifier: Apache-2.0
"""kelnn-labels convert: the same two pictures in each of the formats, and what is told where one is wrong."""
import json
import re

import cv2
import numpy as np
import pytest

from models.labels.__main__ import main

VOC = """<annotation><filename>a.png</filename>
<size><width>100</width></size>
<object><name>cat</name><bndbox><xmin>11</xmin><ymin>21</ymin><xmax>40</xmax><ymax>60</ymax></bndbox>
<part><name>head</name><bndbox><xmin>1</xmin></bndbox></part></object>
<object><name>truck</name><difficult>0</difficult>
<bndbox><xmin>51</xmin><ymin>1</ymin><xmax>100</xmax><ymax>10</ymax></bndbox></object>
<object><name>cat</name><difficult>1</difficult>
<bndbox><xmin>1</xmin><ymin>61</ymin><xmax>20</xmax><ymax>80</ymax></bndbox></object>
<object><name>cow</name><bndbox><xmin>1</xmin><ymin>1</ymin><xmax>2</xmax><ymax>2</ymax></bndbox></object>
</annotation>"""
COCO = {"images": [{"id": 7, "file_name": "a.png"}, {"id": 8, "file_name": "b.png"}],
        "categories": [{"id": 1, "name": "cat"}, {"id": 4, "name": "truck"}, {"id": 5, "name": "cow"}],
        "annotations": [{"image_id": 7, "category_id": 1, "bbox": [10, 20, 30, 40]},
                        {"image_id": 7, "category_id": 4, "bbox": [50, 0, 50, 10], "iscrowd": 0},
                        {"image_id": 7, "category_id": 1, "bbox": [0, 60, 20, 20], "iscrowd": 1},
                        {"image_id": 7, "category_id": 5, "bbox": [0, 0, 2, 2]}]}
YOLO = "0 0.25 0.5 0.3 0.5\n1 0.75 0.0625 0.5 0.125\n2 .01 .01 .02 .02\n"
WIDER = "a.png\n2\n10 20 30 40 0 0 0 0 0 0 \n0 60 20 20 2 0 0 1 0 0 \nb.png\n0\n0 0 0 0 0 0 0 0 0 0 \n"
BOX, CAR, IGNORED, NONE = "a.png,0,10,20,30,40", "a.png,2,50,0,50,10", "a.png,ignore,0,60,20,20", "b.png,,,,,"


@pytest.fixture
def directory(tmp_path):
    """Two pictures of 100 x 80, and labels of them in every format."""
    for name in ("a.png", "b.png", "animals/cat/1.png", "animals/truck/2.png"):
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        cv2.imwrite(str(tmp_path / name), np.zeros((80, 100, 3), np.uint8))
    for name, text in (("coco.json", json.dumps(COCO)), ("xml/a.xml", VOC), ("xml/b.xml", "<annotation/>"),
                       ("yolo/images/classes.txt", "cat\ntruck\ncow\n"), ("yolo/labels/a.txt", YOLO), ("wider.txt", WIDER)):
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(text)
    for name in "ab":
        (tmp_path / f"yolo/images/{name}.png").write_bytes((tmp_path / f"{name}.png").read_bytes())
    return tmp_path


@pytest.mark.parametrize("arguments, expected", [
    ("coco {0}/coco.json", [BOX, CAR, IGNORED, NONE]),
    ("voc {0}/xml --pictures {0}", [BOX, CAR, IGNORED, "b.jpg,,,,,"]),
    ("yolo {0}/yolo", [BOX, CAR, NONE]),
    ("wider {0}/wider.txt --classes face", [BOX, IGNORED, NONE]),
    ("folders {0}/animals", ["1.png,0", "2.png,2"]),
    ("folders {0}/animals --person", ["1.png,cat", "2.png,truck"])])
def test_formats_say_the_same(directory, arguments, expected):
    (directory / "b.jpg").write_bytes((directory / "b.png").read_bytes())
    classes = [] if "--classes" in arguments else ["--classes", "cat,dog,car+truck,parcel"]
    main(["convert", *arguments.format(directory).split(), str(directory / "out"), *classes])
    lines = (directory / "out/labels.csv").read_text().splitlines()[1:]
    assert [re.sub(r"^[^,]*/", "", line) for line in lines] == expected
    assert all((directory / "out" / line.split(",")[0]).is_file() for line in lines)


@pytest.mark.parametrize("name, old, new, arguments, complaint", [
    ("coco.json", "[10, 20, 30, 40]", "[10, 20, 95, 40]", "coco {0}/coco.json",
     "coco.json: annotations[0]: the box 10,20,95,40 reaches outside the picture, which is 100 x 80"),
    ("coco.json", '"image_id": 7', '"image_id": 9', "coco {0}/coco.json", "annotations[0]: of an image or a category"),
    ("coco.json", '"images"', '"pictures"', "coco {0}/coco.json", "no 'images' there"),
    ("coco.json", '"images":', '"images"', "coco {0}/coco.json", "coco.json: Expecting ':' delimiter: line 1"),
    ("coco.json", "b.png", "c.png", "coco {0}/coco.json", "c.png: no picture that can be read"),
    ("xml/a.xml", "<xmax>40", "<xmax>x", "voc {0}/xml --pictures {0}", "a.xml:3: 4 numbers are expected"),
    ("xml/a.xml", "<xmax>100", "<xmax>51", "voc {0}/xml --pictures {0}", None),
    ("xml/a.xml", "<xmax>100", "<xmax>50", "voc {0}/xml --pictures {0}", "a.xml:5: a box of 0 x 10"),
    ("xml/a.xml", "</annotation>", "", "voc {0}/xml --pictures {0}", "a.xml:10: no element found"),
    ("yolo/labels/a.txt", "1 0.75", "9 0.75", "yolo {0}/yolo", "a.txt:2: no class 9"),
    ("yolo/labels/a.txt", "1 0.75", "1 1.75", "yolo {0}/yolo", "a.txt:2: the box 150,0,50,10 reaches outside"),
    ("wider.txt", "0 60 20 20 2", "0 60 20", "wider {0}/wider.txt --classes face", "wider.txt:4: 10 numbers are expected"),
    ("wider.txt", "b.png\n0", "b.png\nnone", "wider {0}/wider.txt --classes face", "wider.txt:6: 1 numbers are expected"),
    ("coco.json", "7", "7", "folders {0}/animals --classes cat", "no class is called truck")])
def test_what_is_wrong_is_told_with_its_place(directory, name, old, new, arguments, complaint):
    path, command = directory / name, ["convert", *arguments.format(directory).split(), str(directory / "out")]
    assert old in path.read_text()
    path.write_text(path.read_text().replace(old, new, 1))
    (directory / "b.jpg").write_bytes((directory / "b.png").read_bytes())
    if complaint is None:  # the very same without the fault
        return main([*command, "--classes", "cat,car+truck"])
    with pytest.raises(SystemExit, match=re.escape(complaint)):
        main(command if "--classes" in command else [*command, "--classes", "cat,car+truck"])
    assert not (directory / "out").exists()
