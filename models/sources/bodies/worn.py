# SPDX-License-Identifier: Apache-2.0
"""What is put before a rendered face afterwards, by its box and five points: glasses, sunglasses, a mask."""
from typing import Any

import cv2
import numpy as np

from models.sources.bodies.person import dull

GLASSES, SUNGLASSES, MASK = 0.1, 0.06, 0.04  # the shares of faces


def put_on(rng: Any, picture: Any, box: Any, points: Any) -> Any:
    """BGRA as it is, or another one with something worn: within the person's outline alone."""
    chosen = rng.random()
    if chosen >= GLASSES + SUNGLASSES + MASK:
        return picture
    over = np.ascontiguousarray(picture[..., :3])
    if chosen < MASK:
        _mask(rng, over, box, points)
    else:
        _glasses(rng, over, box, points, chosen < MASK + SUNGLASSES)
    return np.dstack([np.where(picture[..., 3:] > 0, over, picture[..., :3]), picture[..., 3]])


def _colour(rng: Any) -> Any:
    return tuple(255 * dull(rng) ** 0.45)


def _glasses(rng: Any, picture: Any, box: Any, points: Any, are_dark: bool) -> None:
    across = points[1] - points[0]
    span = float(np.linalg.norm(across))
    half = span * rng.uniform(0.33, 0.46) * np.array([1, rng.uniform(0.55, 1)])
    turn = np.column_stack([across, (-across[1], across[0])]) / max(span, 1e-6)
    squareness = rng.choice([2, 3, 6])  # of a superellipse: 2 is round
    angle = np.linspace(0, 2 * np.pi, 40, endpoint=False)
    rim = np.column_stack([np.sign(wave) * np.abs(wave) ** (2 / squareness) for wave in (np.cos(angle), np.sin(angle))]) * half
    lenses = [np.round(eye + rim @ turn.T).astype(np.int32) for eye in points[:2]]
    frame, thick = tuple(channel * rng.uniform(0.1, 1) for channel in _colour(rng)), max(1, round(span * rng.uniform(0.03, 0.1)))
    tinted = picture.copy()
    cv2.fillPoly(tinted, lenses, tuple(rng.uniform(0, 70, 3)) if are_dark else (255, 255, 255), cv2.LINE_AA)
    share = rng.uniform(0.7, 1) if are_dark else rng.uniform(0, 0.25)
    cv2.addWeighted(tinted, share, picture, 1 - share, 0, dst=picture)
    x, _, w, _ = box
    reach = half[0] * turn[:, 0]
    for eye, away, edge in ((points[0], -reach, x), (points[1], reach, x + w)):
        cv2.line(picture, _at(eye + away), _at((edge, eye[1])), frame, thick, cv2.LINE_AA)
    cv2.line(picture, _at(points[0] + reach), _at(points[1] - reach), frame, thick, cv2.LINE_AA)
    cv2.polylines(picture, lenses, True, frame, thick, cv2.LINE_AA)


def _mask(rng: Any, picture: Any, box: Any, points: Any) -> None:
    x, y, w, h = box
    mouth = (points[3] + points[4]) / 2
    down = (mouth - points[2]) / max(float(np.linalg.norm(mouth - points[2])), 1e-6)
    right = np.array([down[1], -down[0]])
    top = points[2] - down * h * rng.uniform(0.05, 0.2)
    left_edge, right_edge = (points[2] + right * w * side for side in (-0.55, 0.55))
    chin = mouth + down * h * 0.27
    outline = [left_edge, top - right * w * 0.1, top + right * w * 0.1, right_edge,
               chin + right * w * 0.25, chin - right * w * 0.25]
    cloth = np.full_like(picture, _colour(rng) if rng.random() < 0.6 else (235, 225, 215))
    for fold in range(int(rng.integers(0, 4))):
        at = points[2] + down * h * (0.12 + 0.12 * fold)
        cv2.line(cloth, _at(at - right * w), _at(at + right * w), tuple(0.8 * cloth[0, 0].astype(float)), max(1, round(h / 40)))
    shape = np.zeros(picture.shape[:2], np.uint8)
    cv2.fillPoly(shape, [np.round(outline).astype(np.int32)], 255, cv2.LINE_AA)
    light = cv2.GaussianBlur(picture, (0, 0), max(1.0, h / 8)).max(axis=2, keepdims=True) / 255.0  # as the face is lit
    picture[...] = np.where(shape[..., None] > 127, cloth * (0.35 + 0.65 * light), picture)


def _at(place: Any) -> Any:
    return tuple(np.round(place).astype(int).tolist())
