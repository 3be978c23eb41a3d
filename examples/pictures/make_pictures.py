# SPDX-License-Identifier: Apache-2.0
"""Draws the sample pictures of faces: python3 -m examples.pictures.make_pictures [DIRECTORY]   (default: beside this script)

    faces/person1_a.png ...   five persons, three views each, 160 x 160; none of them in a training set
    face_a.png, face_b.png    two of them, 224 x 224
    face_a_distorted.png      face_a, brighter, flatter, blurred, shifted and noisy, grey
    both_faces.png            a scene with face a at 10,30,144,144 and face b at 180,50,120,120
    scenes/faces_1.jpg ...    frames with several persons
    *.pgm                     the single faces at 112 x 112 grey, for examples/compare_faces.c
"""
import sys
from pathlib import Path

import cv2
import numpy as np

from models.labels.making import HELD_OUT, save
from models.scenes import face_crops, face_frames
from models.sources.drawn import backgrounds, faces
from models.sources.drawn.paint import paste, random_color
from models.sources.drawn.source import Drawn

SEED = 2026
PERSONS = (6, 10, 13, 22, 1)  # of those that the seed gives: five that differ at a glance
VIEWS = {"a": faces.View(smile=0.6, light=2.5), "b": faces.View(yaw=20, pitch=4, smile=0.1, mouth_open=0.5, light=0.5, shade=0.5),
         "c": faces.View(yaw=-16, pitch=-5, roll=6, smile=-0.3, brows=0.8, light=-2, shade=0.4)}
SCENES = (3, 7)  # likewise
MARGIN = 0.18  # of the face box, around it


def person(number):
    return faces.random_identity(np.random.default_rng([SEED, number]))


def picture_of(number, view, size, background_seed):
    """The face fills the middle of a square."""
    head, (x, y, w, h), _ = faces.render(person(number), view)
    rng = np.random.default_rng([SEED, number, background_seed])
    picture = backgrounds.background(rng, faces.CANVAS, faces.CANVAS, HELD_OUT, clutter=False)
    face_crops.add_shoulders(picture, random_color(rng), 216)
    paste(picture, head)
    side = max(w, h) * (1 + 2 * MARGIN)
    center = np.array([x + w / 2, y + h / 2])
    scale = size / side
    matrix = np.float32([[scale, 0, size / 2 - center[0] * scale], [0, scale, size / 2 - center[1] * scale]])
    return cv2.warpAffine(picture, matrix, (size, size), flags=cv2.INTER_AREA, borderMode=cv2.BORDER_REPLICATE)


def distort(picture):
    """Brighter, flatter, blurred, moved by five pixels to the right and four up, with noise."""
    grey = cv2.GaussianBlur(cv2.cvtColor(picture, cv2.COLOR_BGR2GRAY), (0, 0), 1.2)
    moved = np.roll(grey, (-4, 5), axis=(0, 1)).astype(float)
    noise = np.random.default_rng(SEED).integers(-8, 9, grey.shape)
    return np.clip(0.7 * moved + 60 + noise, 0, 255).astype(np.uint8)


def make_pictures():
    """All files, by name."""
    files = {f"faces/person{n + 1}_{name}.png": picture_of(number, view, 160, ord(name))
             for n, number in enumerate(PERSONS) for name, view in VIEWS.items()}
    face_a, face_b = (picture_of(PERSONS[n], VIEWS["a"], 224, 1) for n in (0, 1))
    distorted = distort(face_a)
    scene = np.full((200, 320, 3), (120, 140, 120), np.uint8)
    scene[30:174, 10:154] = cv2.resize(face_a, (144, 144), interpolation=cv2.INTER_AREA)
    scene[50:170, 180:300] = cv2.resize(face_b, (120, 120), interpolation=cv2.INTER_AREA)
    files.update({"face_a.png": face_a, "face_a_distorted.png": distorted, "face_b.png": face_b, "both_faces.png": scene})
    source = Drawn(HELD_OUT, seed=SEED, head_count=30)
    for n, number in enumerate(SCENES):
        rng = np.random.default_rng([SEED, 7, number])
        files[f"scenes/faces_{n + 1}.jpg"] = face_frames.scene(rng, source, 640, 360, least=30)[0]
    for name in ("face_a", "face_a_distorted", "face_b"):
        picture = files[name + ".png"]
        grey = picture if picture.ndim == 2 else cv2.cvtColor(picture, cv2.COLOR_BGR2GRAY)
        files[name + ".pgm"] = cv2.resize(grey, (112, 112), interpolation=cv2.INTER_AREA)
    return files


if __name__ == "__main__":
    directory = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent
    for name, picture in make_pictures().items():
        save(directory / name, picture, quality=95)
