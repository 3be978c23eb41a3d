# SPDX-License-Identifier: Apache-2.0
"""Draws visitor.avi: python3 -m examples.videos.make_video [FILE]

A still room for two seconds; a person walks in from the left, comes near, looks into the camera and leaves to the
right; the room is empty again. 416 x 234, 10 frames a second, motion JPEG.
"""
import sys
from pathlib import Path

import cv2
import numpy as np

from models.labels.making import HELD_OUT
from models.scenes import compose
from models.sources.drawn import backgrounds, faces, people

WIDTH, HEIGHT, FRAMES_A_SECOND, FRAMES = 416, 234, 10, 84
ROOM_SEED, PERSON_SEED, FACE_SEED = 14, 6, 14
NOISE = 1.2  # standard deviation of the sensor's, in grey levels
DRAWN_PIXELS = 700  # the person's height as drawn, before it is scaled

# time in seconds, x of the person's middle (1: the frame's width), top of the head and height (1: the frame's
# height), yaw (0: towards the camera, pi / 2: to the right)
PATH = [(2.0, -0.15, 0.30, 0.58, 1.45), (3.4, 0.33, 0.27, 0.66, 1.25), (4.0, 0.47, 0.24, 0.80, 0.3),
        (5.2, 0.50, 0.10, 2.1, 0.0), (6.4, 0.50, 0.10, 2.15, 0.0), (6.8, 0.58, 0.12, 2.0, 1.0), (7.8, 1.45, 0.16, 1.8, 1.5)]
STANDS = (5.2, 6.5)
STEPS_A_SECOND = 1.7


def on_path(seconds):
    times = [point[0] for point in PATH]
    return [float(np.interp(seconds, times, values)) for values in list(zip(*PATH))[1:]]


def walk(seconds):
    """A function that puts the legs and arms of a pose where they are at this time of a walk."""
    swing = 0.0 if STANDS[0] < seconds < STANDS[1] else 0.45 * np.sin(np.pi * STEPS_A_SECOND * seconds)

    def change(pose):
        pose.thigh = np.array([swing, -swing])
        pose.knee = np.array([max(0.08, -1.1 * swing), max(0.08, 1.1 * swing)])
        pose.arm = np.array([-0.7 * swing, 0.7 * swing])
        pose.elbow = np.array([0.3, 0.3])
        pose.arm_spread = np.array([0.12, 0.12])
        pose.lean = 0.03
    return change


def head(seconds, yaw):
    """Looks half-way towards the camera, and smiles when standing before it."""
    identity = faces.random_identity(np.random.default_rng(FACE_SEED))
    smile = float(np.interp(seconds, (STANDS[0], STANDS[0] + 0.5, STANDS[1]), (0.0, 0.9, 0.5)))
    picture, box, _ = faces.render(identity, faces.View(yaw=np.degrees(0.5 * yaw), smile=smile))
    return picture, box, identity.skin


def visitor(seconds):
    x, top, height, yaw = on_path(seconds)
    rng = np.random.default_rng(PERSON_SEED)
    person = people.draw_person(rng, HELD_OUT, DRAWN_PIXELS, "stand", yaw, walk(seconds), head(seconds, yaw))
    factor = height * HEIGHT / DRAWN_PIXELS
    person = cv2.resize(person, None, fx=factor, fy=factor, interpolation=cv2.INTER_AREA)
    return compose.Thing(person, (x * WIDTH - person.shape[1] / 2, top * HEIGHT))


def frames():
    empty = backgrounds.room(np.random.default_rng(ROOM_SEED), WIDTH, HEIGHT, HELD_OUT)
    noise = np.random.default_rng(1)
    for number in range(FRAMES):
        seconds = number / FRAMES_A_SECOND
        there = [visitor(seconds)] if PATH[0][0] <= seconds <= PATH[-1][0] else []
        picture, _ = compose.compose(empty, there, np.random.default_rng(2))
        yield np.clip(picture + noise.normal(0, NOISE, picture.shape), 0, 255).astype(np.uint8)


if __name__ == "__main__":
    path = sys.argv[1] if len(sys.argv) > 1 else str(Path(__file__).parent / "visitor.avi")
    film = cv2.VideoWriter(path, cv2.CAP_FFMPEG, cv2.VideoWriter_fourcc(*"MJPG"), FRAMES_A_SECOND, (WIDTH, HEIGHT))
    for frame in frames():
        film.write(frame)
    film.release()
