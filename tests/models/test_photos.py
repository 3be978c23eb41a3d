# SPDX-License-Identifier: Apache-2.0
"""Photographs with boxes and outlines as material to train on."""
import re

import cv2
import numpy as np
import pytest

from models.labels import table
from models.scenes import compose, photo_frames
from models.sources.photos import photographs

COLORS = {"person": (0, 0, 255), "car": (0, 255, 0), "truck": (255, 0, 0)}  # on black


@pytest.fixture
def directory(tmp_path):
    """Six photographs with one of COLORS each, three with nothing; outlines count classes in their own way."""
    for room in ("images", "boxes", "outlines"):
        (tmp_path / room).mkdir()
    (tmp_path / "classes.txt").write_text("person\ncar\ntruck\n")
    for n in range(12):
        picture = np.zeros((120, 160, 3), np.uint8)
        boxes = outlines = ""
        if n < 9:
            picture[20:80, 40:100] = COLORS[list(COLORS)[n % 3]]
            boxes, outlines = f"{n % 3} 0.4375 0.41667 0.375 0.5\n", "77 0.25 0.1667 0.625 0.1667 0.625 0.6667 0.25 0.6667\n"
        cv2.imwrite(str(tmp_path / "images" / f"{n}.png"), picture)
        (tmp_path / "boxes" / f"{n}.txt").write_text(boxes)
        (tmp_path / "outlines" / f"{n}.txt").write_text(outlines)
    (tmp_path / "boxes" / "0.txt").unlink()  # what nobody labelled is left out
    return tmp_path


def test_cut_outs_and_backgrounds_come_of_photographs_that_are_not_held_back(directory):
    held_back = [name for name in map(str, range(12)) if photographs.is_held_back(name)]
    source, rng = photographs.Photographs(directory, ["car"]), np.random.default_rng(1)
    used = {photograph.path.stem for photograph in source.all}
    assert held_back and used == set(map(str, range(1, 12))) - set(held_back)
    for picture, name in ((source.person(rng), "person"), (source.thing(rng, ["cat", "car"])[1], "car")):
        assert abs(picture.shape[0] - 60) <= 2 and abs(picture.shape[1] - 60) <= 2
        inside = picture[8:-8, 8:-8]
        assert (inside[..., 3] == 255).all() and (inside[..., :3] == COLORS[name]).all()
    for _ in range(20):
        background = source.background(rng, 64, 64)
        assert background.shape == (64, 64, 3) and not background.any()  # trucks are near to cars

    out = directory / "held"
    photographs.main([str(directory), str(out), "--classes", "person,car"])
    assert [path.stem for path, _ in table.read(out, table.BOXES, ("person", "car"))] == sorted(set(held_back) - {"0"})


def test_frames_of_photographs_have_their_boxes_where_things_are(directory, monkeypatch):
    """Those of the photograph and of a person put before it, who may hide a fifth of what is labelled."""
    monkeypatch.setattr(photo_frames, "recoloured", lambda rng, picture: picture)
    monkeypatch.setattr(compose, "_cast_shadow", lambda *_: None)
    person, kinds = np.full((20, 12, 4), (0, 0, 255, 255), np.uint8), set()

    def layout(rng, source, width, height):
        return [compose.Thing(person, rng.uniform(0, 1, 2) * (width - 12, height - 20), 0)]
    frames, rng = photo_frames.PhotoFrames(photographs.read(directory), ("person", "car"), layout, None), np.random.default_rng(2)
    for _ in range(60):
        picture, labels = frames.example(rng, 96, 64)
        rest = picture.copy()
        for kind, x, y, w, h in labels:
            left, top, right, bottom = np.round([x, y, x + w, y + h]).astype(int)
            if kind != table.IGNORE:
                part = picture[top + 3:bottom - 3, left + 3:right - 3]
                assert (part.reshape(-1, 3).argmax(axis=1) == (2, 1)[kind]).mean() > 0.75 and (part.max(axis=2) > 250).all()
            rest[max(top - 4, 0):bottom + 4, max(left - 4, 0):right + 4] = 0
            kinds.add(kind)
        assert rest.max() < 64  # what is blurred across an edge
    assert kinds == {table.IGNORE, 0, 1}


@pytest.mark.parametrize("file, text, complaint", [
    ("boxes/5.txt", "0 0.5 0.5 0.1\n", "5.txt:1: not a class"), ("boxes/5.txt", "0 0.5 0.5 0.1 0.1\n9 0 0 1 1\n", "5.txt:2: not a class"),
    ("outlines/5.txt", "0 0.5 0.5 nan 0.1 0.2 0.2\n", "5.txt:1: not a class"), ("classes.txt", None, "classes.txt: No such file")])
def test_wrong_files_are_named(directory, file, text, complaint):
    (directory / file).unlink()
    if text is not None:
        (directory / file).write_text(text)
    with pytest.raises(table.Invalid, match=re.escape(complaint)):
        photographs.read(directory)
