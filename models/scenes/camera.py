# SPDX-License-Identifier: Apache-2.0
"""What light and a camera do to a picture."""
import cv2
import numpy as np

from models.sources.drawn.paint import stroke


def degrade(rng, picture, strength=1.0):
    """Light from one side, exposure, white balance, blur, sensor noise, JPEG; returns another picture.

    strength  0 leaves nearly everything as it is, 1 reaches what a cheap camera does in a dim room
    """
    height, width = picture.shape[:2]
    picture = cv2.LUT(picture, _exposure(rng, strength))
    if rng.random() < 0.7:
        picture = _side_light(rng, picture, strength)
    if rng.random() < 0.4 * strength:
        picture = cv2.GaussianBlur(picture, (0, 0), rng.uniform(0.3, 0.3 + 0.9 * strength * max(1, height / 360)))
    if rng.random() < 0.15 * strength:
        picture = _motion_blur(rng, picture, int(rng.integers(2, 4 + int(3 * strength))))
    if rng.random() < 0.7:
        sigma = rng.uniform(0, 10) * strength
        grain = np.empty((height, width, 3), np.int16)
        cv2.setRNGSeed(int(rng.integers(1 << 30)))
        cv2.randn(grain, 0, max(0.3, sigma))
        picture = cv2.add(picture, grain, dtype=cv2.CV_8U)
    if rng.random() < 0.4:
        quality = int(rng.uniform(100 - 65 * strength, 100))
        picture = cv2.imdecode(cv2.imencode(".jpg", picture, [cv2.IMWRITE_JPEG_QUALITY, quality])[1], cv2.IMREAD_COLOR)
    return picture


def _exposure(rng, strength):
    """A lookup table for each channel: gamma, gain, white balance."""
    gamma = np.exp(rng.normal(0, 0.25 * strength))
    gain = np.exp(rng.normal(-0.05, 0.15 * strength)) * np.exp(rng.normal(0, 0.07 * strength, 3))
    table = 255 * (np.arange(256) / 255)[:, None] ** gamma * gain
    return np.clip(table, 0, 255).astype(np.uint8).reshape(1, 256, 3)


def _side_light(rng, picture, strength):
    """Darker towards one side, by a gain that is linear in x and y."""
    height, width = picture.shape[:2]
    corners = np.float32(1 + rng.uniform(-0.4, 0.15, (2, 2)) * strength)
    gain = cv2.resize(corners, (width, height), interpolation=cv2.INTER_LINEAR)
    return cv2.multiply(picture, cv2.merge([gain, gain, gain]), dtype=cv2.CV_8U)


def _motion_blur(rng, picture, length):
    kernel = np.zeros((2 * length + 1, 2 * length + 1), np.float32)
    angle = rng.uniform(0, np.pi)
    reach = np.array([np.cos(angle), np.sin(angle)]) * length / 2
    stroke(kernel, [length - reach, length + reach], 1.0, 1)
    return cv2.filter2D(picture, -1, kernel / kernel.sum())
