# SPDX-License-Identifier: Apache-2.0
"""Draws the sample scenes with persons and with things: python3 -m examples.pictures.scenes.make_scenes [DIRECTORY]

Persons and things, backgrounds and patterns come from models/, of the family that no network was trained with.
"""
import sys
from pathlib import Path

import cv2
import numpy as np

from models.labels.making import HELD_OUT, save
from models.scenes import camera, compose
from models.sources.drawn import backgrounds, objects, people

PICTURES = {
    # name: width, height, background, seed, things: what, x of its centre, y of its feet and its height, all as
    # fractions of the picture; a person's pose and yaw
    "persons_landscape": (640, 360, backgrounds.outdoors, 21, [
        ("person", 0.2, 0.9, 0.62, "walk", 1.1), ("person", 0.46, 0.8, 0.45, "stand", 0.3),
        ("person", 0.56, 0.82, 0.46, "arms_up", -0.3), ("person", 0.82, 0.97, 0.78, "carry", -0.5),
        ("dog", 0.34, 0.93, 0.22), ("tree", 0.68, 0.74, 0.5)]),
    "persons_portrait": (360, 640, backgrounds.room, 5, [
        ("person", 0.36, 0.93, 0.62, "stand", 0.2), ("person", 0.76, 0.88, 0.48, "carry", -0.6),
        ("plant", 0.12, 0.86, 0.2)]),
    "persons_square": (480, 480, backgrounds.room, 33, [
        ("chair", 0.31, 0.9, 0.52), ("person", 0.3, 0.95, 0.58, "sit", 0.6), ("person", 0.7, 0.95, 0.74, "stand", -0.3),
        ("coat_stand", 0.93, 0.88, 0.7)]),
    "objects_1": (640, 360, backgrounds.outdoors, 8, [
        ("car", 0.3, 0.83, 0.26), ("car", 0.72, 0.68, 0.15), ("dog", 0.62, 0.93, 0.33), ("parcel", 0.86, 0.95, 0.26),
        ("tree", 0.05, 0.8, 0.6)]),
    "objects_2": (640, 360, backgrounds.room, 14, [
        ("cat", 0.13, 0.93, 0.36), ("parcel", 0.36, 0.92, 0.18), ("dog", 0.79, 0.96, 0.48), ("plant", 0.94, 0.84, 0.4),
        ("cat", 0.57, 0.87, 0.22)]),
}


def draw_thing(rng, what, x, feet, height, pose_and_yaw, picture_width, picture_height):
    pixels = int(height * picture_height * 1.5)
    cut_out = people.draw_person(rng, HELD_OUT, pixels, *pose_and_yaw) if what == "person" else \
        objects.draw_object(rng, HELD_OUT, what, pixels)
    factor = height * picture_height / cut_out.shape[0]
    cut_out = cv2.resize(cut_out, None, fx=factor, fy=factor, interpolation=cv2.INTER_AREA)
    return compose.Thing(cut_out, (x * picture_width - cut_out.shape[1] / 2, feet * picture_height - cut_out.shape[0]))


def draw(width, height, background, seed, things):
    rng = np.random.default_rng(seed)
    behind = background(rng, width, height, HELD_OUT)
    placed = [draw_thing(rng, *thing[:4], thing[4:], width, height) for thing in things]
    return camera.degrade(rng, compose.compose(behind, placed, rng)[0], 0.25)


if __name__ == "__main__":
    directory = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent
    for name, description in PICTURES.items():
        save(directory / (name + ".jpg"), draw(*description), quality=88)
