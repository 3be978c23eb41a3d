# SPDX-License-Identifier: Apache-2.0
"""How well kelnn watch follows people: python3 -m models.person_detection.tracks [--kelnn KELNN] [--root MODELS] [--out DIR]

Draws videos of held-out persons who walk through rooms, two by two, and past each other, 15 frames a second of 640 x 360,
where it is known who is where; lets kelnn watch them; and prints MOTA and IDF1 (CLEAR MOT, 2008; Ristani et al., 2016) at
an IoU of 0.5. A person of whom less than half is seen counts neither way.
"""
import argparse
import json
import subprocess
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple

import cv2
import numpy as np
from scipy.optimize import linear_sum_assignment

from models.labels.making import HELD_OUT
from models.scenes import compose
from models.sources.drawn import backgrounds, people

WIDTH, HEIGHT, FRAMES_A_SECOND, FRAMES, PAIRS = 640, 360, 15, 330, 3
DRAWN_PIXELS, PHASES, STEPS_A_SECOND = 400, 16, 1.4
NOISE = 1.5  # standard deviation of the sensor's, in grey levels
LEAST_SEEN, LEAST_IOU = 0.5, 0.5


class Box(NamedTuple):
    id: int
    corners: tuple[float, float, float, float]
    counts: bool = True


class Walker:
    """Goes through the picture at a walking pace, at a distance of its own."""

    def __init__(self, seed: int, start: float, direction: int) -> None:
        rng = np.random.default_rng(seed)
        self.seed, self.start = seed, start
        self.height = HEIGHT * rng.uniform(0.4, 0.65)
        self.ground = HEIGHT * 0.55 + 0.55 * self.height  # the nearer the lower
        self.direction = direction
        self.speed = self.height * rng.uniform(0.5, 0.7)
        self.drawn: dict[int, np.ndarray] = {}

    def cut_out(self, seconds: float) -> np.ndarray:
        phase = int(seconds * STEPS_A_SECOND / 2 * PHASES) % PHASES
        if phase not in self.drawn:
            swing = 0.45 * np.sin(2 * np.pi * phase / PHASES)

            def change(pose: people.Pose) -> None:
                pose.thigh, pose.knee = np.array([swing, -swing]), np.array([max(0.08, -1.1 * swing), max(0.08, 1.1 * swing)])
                pose.arm, pose.elbow = np.array([-0.7 * swing, 0.7 * swing]), np.array([0.3, 0.3])

            rng = np.random.default_rng(self.seed)
            person = people.draw_person(rng, HELD_OUT, DRAWN_PIXELS, "stand", self.direction * 1.3, change)
            factor = self.height / DRAWN_PIXELS
            self.drawn[phase] = cv2.resize(person, None, fx=factor, fy=factor, interpolation=cv2.INTER_AREA)
        return self.drawn[phase]

    def thing(self, seconds: float) -> compose.Thing | None:
        gone = self.speed * (seconds - self.start) - 0.5 * self.height
        if gone < -0.5 * self.height or gone > WIDTH + 0.5 * self.height:
            return None
        picture = self.cut_out(seconds)
        x = gone if self.direction > 0 else WIDTH - gone
        return compose.Thing(picture, (x - picture.shape[1] / 2, self.ground - picture.shape[0]))


def draw(seed: int, path: Path) -> list[list[Box]]:
    """Writes the video; gives who is where in each frame."""
    room = backgrounds.room(np.random.default_rng(seed), WIDTH, HEIGHT, HELD_OUT)
    rng = np.random.default_rng(seed)
    walkers = [Walker(100 * seed + i, 0.5 + 7 * (i // 2) + rng.uniform(0, 1.5), (-1) ** i) for i in range(2 * PAIRS)]
    film = cv2.VideoWriter(str(path), cv2.CAP_FFMPEG, cv2.VideoWriter_fourcc(*"MJPG"), FRAMES_A_SECOND, (WIDTH, HEIGHT))
    truth = []
    for number in range(FRAMES):
        things = [(walker.thing(number / FRAMES_A_SECOND), i) for i, walker in enumerate(walkers)]
        there = sorted([(thing, i) for thing, i in things if thing is not None], key=lambda pair: pair[0].bottom)
        picture, _ = compose.compose(room, [thing for thing, _ in there], np.random.default_rng(2))
        film.write(np.clip(picture + rng.normal(0, NOISE, picture.shape), 0, 255).astype(np.uint8))
        owner = np.full((HEIGHT, WIDTH), -1)
        frame, whole = [], {}
        for thing, i in there:
            mask = thing.cut_out[..., 3] > 127
            rows, columns = np.nonzero(mask)
            rows, columns = rows + thing.top, columns + thing.left
            inside = (rows >= 0) & (rows < HEIGHT) & (columns >= 0) & (columns < WIDTH)
            whole[i] = mask.sum()
            if not inside.any():
                continue
            owner[rows[inside], columns[inside]] = i
            corners = (columns[inside].min(), rows[inside].min(), columns[inside].max() + 1, rows[inside].max() + 1)
            frame.append(Box(i, corners))
        truth.append([box._replace(counts=bool((owner == box.id).sum() >= LEAST_SEEN * whole[box.id])) for box in frame])
    film.release()
    return truth


def watched(kelnn: str, root: str, video: Path, *arguments: str) -> Iterator[tuple[int, list[Box]]]:
    """What is followed in each frame, by its number."""
    command = [kelnn, "watch", str(video), "--root", root, "--always", "--only", "person", "--json", *arguments]
    for line in subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines():
        result = json.loads(line)
        if "boxes" in result:
            boxes = [box for box in result["boxes"] if "track" in box]
            yield result["frame"], [Box(b["track"], (b["x"], b["y"], b["x"] + b["w"], b["y"] + b["h"])) for b in boxes]


def followed(program: str, truth: list[list[Box]], seed: int) -> list[list[Box]]:
    """The labels in the network's place: off by a twentieth of their size, one in thirty missing."""
    rng = np.random.default_rng(seed)
    lines: list[str] = []
    for number, frame in enumerate(truth):
        there = [np.array(box.corners, float) for box in frame if box.counts and rng.random() > 1 / 30]
        lines.append(f"{number} {number / FRAMES_A_SECOND} {len(there)}")
        for corners in there:
            size = corners[2:] - corners[:2]
            place = corners[:2] + rng.normal(0, 0.05, 2) * size
            lines.append(" ".join(str(round(value)) for value in (*place, *size * np.exp(rng.normal(0, 0.05, 2)))))
    found: list[list[Box]] = [[] for _ in truth]
    given = "\n".join(lines)
    done = subprocess.run([program, str(WIDTH), str(HEIGHT)], check=True, capture_output=True, text=True, input=given)
    for line in done.stdout.splitlines():
        number, track, x, y, w, h = map(int, line.split())
        found[number].append(Box(track, (x, y, x + w, y + h)))
    return found


def ious(one: list[Box], other: list[Box]) -> np.ndarray:
    a, b = (np.array([box.corners for box in boxes], float).reshape(-1, 4) for boxes in (one, other))
    sides = np.minimum(a[:, None, 2:], b[None, :, 2:]) - np.maximum(a[:, None, :2], b[None, :, :2])
    common = sides.clip(0).prod(2)
    areas = [(corners[:, 2:] - corners[:, :2]).prod(1) for corners in (a, b)]
    return common / (areas[0][:, None] + areas[1][None] - common)


class Count:
    """Adds up over frames, and over videos."""

    def __init__(self) -> None:
        self.truths = self.found = self.missed = self.false = self.switches = self.identity_matches = 0

    def add(self, truth: list[list[Box]], found: list[list[Box]]) -> None:
        last: dict[int, int] = {}
        together: dict[tuple[int, int], int] = {}
        for real, seen in zip(truth, found, strict=True):
            overlap = ious(real, seen)
            # Who was matched before stays so as long as it is near enough.
            worth = np.where(overlap >= LEAST_IOU, overlap, 0)
            for i, box in enumerate(real):
                for k, other in enumerate(seen):
                    worth[i, k] += 10 * (worth[i, k] > 0 and last.get(box.id) == other.id)
            pairs = [(i, k) for i, k in zip(*linear_sum_assignment(-worth)) if worth[i, k] > 0]
            ignored = {k for i, k in pairs if not real[i].counts}
            pairs = [(i, k) for i, k in pairs if real[i].counts]
            count = sum(box.counts for box in real)
            self.truths += count
            self.found += len(seen) - len(ignored)
            self.missed += count - len(pairs)
            self.false += len(seen) - len(ignored) - len(pairs)
            for i, k in pairs:
                self.switches += last.get(real[i].id, seen[k].id) != seen[k].id
                last[real[i].id] = seen[k].id
            for i, k in zip(*np.nonzero(overlap >= LEAST_IOU)):
                if real[i].counts:
                    together[real[i].id, seen[k].id] = together.get((real[i].id, seen[k].id), 0) + 1
        people_, tracks = (sorted({pair[side] for pair in together}) for side in (0, 1))
        shared = np.array([[together.get((one, other), 0) for other in tracks] for one in people_])
        shared = shared.reshape(len(people_), len(tracks))
        self.identity_matches += int(shared[linear_sum_assignment(-shared)].sum())

    def figures(self) -> str:
        mota = 1 - (self.missed + self.false + self.switches) / max(1, self.truths)
        idf1 = 2 * self.identity_matches / max(1, self.truths + self.found)
        return (f"MOTA {mota:.3f}, IDF1 {idf1:.3f}; {self.truths} boxes, {self.missed} missed, {self.false} false, "
                f"{self.switches} identity switches")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kelnn", default="build/demo/tools/kelnn")
    parser.add_argument("--root", default="build/demo/share/kelnn/models", help="directory of the models")
    parser.add_argument("--out", type=Path, default=Path("build/tracks"), help="where the videos go")
    parser.add_argument("--videos", type=int, default=4)
    parser.add_argument("--follow", help="the program follow_boxes of the tests: measures the tracker alone, too")
    arguments = parser.parse_args()
    arguments.out.mkdir(parents=True, exist_ok=True)
    total, alone = Count(), Count()
    for seed in range(1, arguments.videos + 1):
        video = arguments.out / f"walk_{seed}.avi"
        truth, count = draw(seed, video), Count()
        found: list[list[Box]] = [[] for _ in truth]
        for number, boxes in watched(arguments.kelnn, arguments.root, video):
            found[number] = boxes
        for each in (count, total):
            each.add(truth, found)
        if arguments.follow:
            alone.add(truth, followed(arguments.follow, truth, seed))
        print(f"{video}: {count.figures()}", flush=True)
    print(f"all: {total.figures()}")
    if arguments.follow:
        print(f"the tracker alone: {alone.figures()}")


if __name__ == "__main__":
    main()
