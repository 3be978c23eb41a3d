# SPDX-License-Identifier: Apache-2.0
"""Rendered persons: made once, as cut-outs with what is known of their faces, and then a source of scenes.

As a program: renders --count persons from each of --views places, into OUT. Several may fill one OUT with different seeds.
With --busts everybody's head and shoulders, each time in another pose, with another expression, in other clothes: to tell
persons apart.
"""
import argparse
import csv
from pathlib import Path
from typing import Any, Optional, Sequence, Tuple

import cv2
import numpy as np

from models.labels.making import save
from models.labels.pictures import read_picture
from models.labels.table import Invalid
from models.sources.bodies import person, render, worn

BUST, WHOLE = "bust", "whole"
SIZES = {BUST: (256, 256), WHOLE: (224, 320)}  # width, height of the picture
COLUMNS = ("file", "person", "kind", "seen", "x", "y", "w", "h", *(axis + str(n) for n in range(1, 6) for axis in "xy"),
           "yaw", "pitch", "roll")
LEAST_SEEN = 0.7  # of a face, so that it can be found as one
LEAST_FACE = 24  # pixels high
MOST_TURNED = 65  # degrees


def camera(rng: Any, whoever: person.Person, kind: str) -> render.Camera:
    """From a doorbell's height to a ceiling's, near and far; mostly from the front."""
    middle = whoever.points.mean(axis=0)
    azimuth = rng.normal(0, 0.5) if kind == BUST or rng.random() < 0.5 else rng.uniform(-np.pi, np.pi)
    height = rng.normal(0.08, 0.2) if kind == BUST or rng.random() < 0.5 else rng.uniform(-0.1, 0.8)
    away = np.array([np.sin(azimuth) * np.cos(height), np.sin(height), np.cos(azimuth) * np.cos(height)])
    width, rows = SIZES[kind]
    if kind == BUST:
        share, high = rng.uniform(0.25, 0.5), np.ptp(whoever.face[:, 1])  # of the picture's rows; of the face
        below = rng.uniform(0.2, 1) * (0.5 / share - 0.8) * high  # so much that nothing of the head is cut off
        target = middle + (rng.normal(0, 0.3), -below, 0)
        distance = np.exp(rng.uniform(np.log(6), np.log(40)))
        scale = rows * share * distance / high
        return render.Camera(target + away * distance, target, scale, rng.normal(0, 0.06))
    places = whoever.vertices[:, :3]
    target = (places.min(axis=0) + places.max(axis=0)) / 2
    distance = rng.uniform(20, 90)
    seen = render.Camera(target + away * distance, target, 1.0, rng.normal(0, 0.04))
    reach = np.abs(seen.project(places, (0, 0))).max(axis=0)
    seen.scale = float(min(width / 2 / reach[0], rows / 2 / reach[1])) * 0.98
    return seen


def light(rng: Any, towards: Any) -> render.Light:
    """Sun, lamps, a window, a dull day; at night infrared from the camera."""
    seed, pattern, gloss = rng.uniform(0, 9), int(rng.choice([0, 0, 0, 1, 2, 3])), rng.uniform(0.01, 0.12)
    if rng.random() < 0.08:
        sun, sky, ground = (np.full(3, level) for level in (rng.uniform(0.6, 1.2), 0.1, 0.05))
        return render.Light(towards, sun, sky, ground, gloss, seed, pattern)
    direction = towards / np.linalg.norm(towards) + rng.normal(0, 0.8, 3) * (1, 0.5, 1) + (0, 0.6, 0)
    sun = rng.uniform(0.1, 1.1) * np.exp(rng.normal(0, 0.12) * np.array([1, 0, -1]))
    sky = rng.uniform(0.25, 0.7) * np.exp(rng.normal(0, 0.1) * np.array([-1, 0, 1]))
    return render.Light(direction, sun, sky, sky * rng.uniform(0.4, 0.9), gloss, seed, pattern)


def angles(head: Any, seen: render.Camera) -> Tuple[float, ...]:
    """Yaw (positive: to the picture's right), pitch (down), roll (clockwise) in degrees, as the camera sees the head."""
    turned = seen.axes() @ head
    yaw, pitch = np.arctan2(turned[0, 2], turned[2, 2]), np.arctan2(-turned[1, 2], np.hypot(turned[0, 2], turned[2, 2]))
    level = np.array([np.cos(yaw), 0, -np.sin(yaw)])  # where the head's left would be without a roll
    roll = np.arctan2(-turned[1, 0], turned[:, 0] @ level)
    return tuple(np.degrees((yaw, pitch, roll)))


def view(rng: Any, renderer: render.Renderer, whoever: person.Person, kind: str) -> Tuple[Any, list]:
    """A tight cut-out; of its face the share that is seen, box, points, angles."""
    seen, size = camera(rng, whoever, kind), SIZES[kind]
    picture, parts = renderer.render(whoever.vertices, whoever.triangles, seen, light(rng, seen.eye - seen.target), size)
    x, y, w, h = cv2.boundingRect((picture[..., 3] > 127).astype(np.uint8))
    if kind == WHOLE:
        x, y, w, h = max(x - 1, 0), max(y - 1, 0), w + 2, h + 2
    else:
        x, y, w, h = 0, y, size[0], size[1] - y
    outline = seen.project(whoever.face, size)
    left, top = outline.min(axis=0)
    right, bottom = outline.max(axis=0)
    yaw, pitch, roll = angles(whoever.head, seen)
    # What would be seen of it if nothing hid it: nearly all of its box, from before.
    n = render.SAMPLES
    inside = parts[max(int(top * n), 0):max(int(bottom * n), 0), max(int(left * n), 0):max(int(right * n), 0)]
    share = (inside == person.FACE).mean() / 0.75 if inside.size and abs(yaw) < 90 else 0.0
    points = seen.project(whoever.points, size) - (x, y)
    box = left - x, top - y, right - left, bottom - top
    return picture[y:y + h, x:x + w], [min(share, 1.0), *box, *points.ravel(), yaw, pitch, roll]


class Rendered:
    """What the program made."""

    def __init__(self, directory: Any):
        self.directory, self.rows, self.faces = Path(directory), [], []  # type: Path, list, list
        self.persons: dict = {}  # of the pictures' names
        for path in sorted(self.directory.glob("*.csv")):
            with open(path, newline="", encoding="utf-8") as file:
                lines = csv.reader(file)
                if tuple(next(lines, ())) != COLUMNS:
                    raise Invalid(f"{path}:1: the columns have to be {','.join(COLUMNS)}")
                for name, person_number, kind, *texts in lines:
                    try:
                        values = np.array(texts, float)
                    except ValueError as error:
                        raise Invalid(f"{path}:{lines.line_num}: {error}") from error
                    self.rows.append((name, kind, values))
                    self.persons[name] = f"{path.stem}_{person_number}"
        self.faces = [row for row in self.rows if self.shows_face(row[2])]
        if not self.faces:
            raise Invalid(f"{directory}: no rendered persons")

    @staticmethod
    def shows_face(values: Any) -> bool:
        return bool(values[0] >= LEAST_SEEN and values[4] >= LEAST_FACE and np.abs(values[15:17]).max() < MOST_TURNED)

    def picture(self, name: str) -> Any:
        return read_picture(self.directory / name, cv2.IMREAD_UNCHANGED)

    def person(self, rng: Any) -> Any:
        return self.picture(self.rows[rng.integers(len(self.rows))][0])

    def figure(self, rng: Any) -> Tuple[Any, Any]:
        picture, box, _, _ = self.with_points(rng, self.faces[rng.integers(len(self.faces))])
        return picture, box

    def figure_with_points(self, rng: Any) -> Tuple[Any, Any, Any, Any]:
        """A bust, the box of its face, five points, yaw, pitch and roll."""
        while True:
            row = self.faces[rng.integers(len(self.faces))]
            if row[1] == BUST:
                return self.with_points(rng, row)

    def with_points(self, rng: Any, row: Any) -> Tuple[Any, Any, Any, Any]:
        name, _, values = row
        box, points = values[1:5], values[5:15].reshape(5, 2)
        return worn.put_on(rng, self.picture(name), box, points), box, points, values[15:]

    def views(self) -> list:
        """For everybody who is seen from several sides or in several poses: the rows of the faces."""
        rows: dict = {}
        for row in self.faces:
            if row[1] == BUST:
                rows.setdefault(self.persons[row[0]], []).append(row)
        return [views for views in rows.values() if len(views) > 1]


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("bodies", metavar="BODIES", type=Path, help="with body/ and wear/")
    parser.add_argument("out", metavar="OUT", type=Path)
    parser.add_argument("--count", type=int, default=1000)
    parser.add_argument("--views", type=int, default=3)
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--busts", action="store_true", help="head and shoulders, everybody in --views poses")
    options = parser.parse_args(arguments)
    bodies, renderer = person.Bodies(options.bodies), render.Renderer()
    options.out.mkdir(parents=True, exist_ok=True)
    with open(options.out / f"{options.seed}.csv", "w", newline="", encoding="utf-8") as file:
        lines = csv.writer(file, lineterminator="\n")
        lines.writerow(COLUMNS)
        for number in range(options.count):
            rng = np.random.default_rng([options.seed, number])
            kind = BUST if number % 2 or options.busts else WHOLE
            for n in range(options.views):
                if options.busts:
                    rng = np.random.default_rng([options.seed, number, n])
                    whoever = bodies.person(np.random.default_rng([options.seed, number]), True, rng)
                elif n == 0:
                    whoever = bodies.person(rng, kind == BUST)
                picture, values = view(rng, renderer, whoever, kind)
                name = f"{options.seed}_{number:05}_{n}.png"
                save(options.out / name, picture)
                lines.writerow([name, number, kind, *(f"{value:.2f}" for value in values)])
            file.flush()


if __name__ == "__main__":
    main()
