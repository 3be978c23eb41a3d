#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Three of kelnn's commands as one would first write them in Python over OpenCV: the same networks, the same arithmetic
in numpy, and results as JSON lines with the names that kelnn gives them. bench/pipelines.py sets both beside each other.

    bench/plain_pipelines.py persons models/person_detection/landscape.onnx VIDEO
    bench/plain_pipelines.py motion VIDEO
    bench/plain_pipelines.py cry models/cry_detection/network.onnx SOUND
"""
import json
import sys

import cv2
import numpy as np

GRIDS = [(32, [(64, 187), (123, 211), (227, 264)]), (16, [(7, 17), (20, 50), (45, 99)])]  # strides, anchors


def sigmoid(x):
    return 1 / (1 + np.exp(-x))


def decoded(outputs, width, height):
    """Rows of centre, size and score, in pixels of the network's input."""
    rows = []
    for (stride, anchors), output in zip(GRIDS, outputs):
        across, down = -(-width // stride), -(-height // stride)
        values = output.reshape(3, 6, down, across)
        scores = sigmoid(values[:, 4])
        for anchor, row, column in zip(*np.nonzero(scores >= 0.3)):
            x, y, w, h = values[anchor, :4, row, column]
            rows.append(((sigmoid(x) + column) * width / across, (sigmoid(y) + row) * height / down,
                         np.exp(w) * anchors[anchor][0], np.exp(h) * anchors[anchor][1], scores[anchor, row, column]))
    return np.array(rows).reshape(-1, 5)


def suppressed(rows):
    rows = rows[np.argsort(-rows[:, 4])]
    low, high, kept = rows[:, :2] - rows[:, 2:4] / 2, rows[:, :2] + rows[:, 2:4] / 2, []
    left = np.arange(len(rows))
    while len(left):
        best, left = left[0], left[1:]
        kept.append(best)
        overlap = np.clip(np.minimum(high[best], high[left]) - np.maximum(low[best], low[left]), 0, None).prod(axis=1)
        union = rows[best, 2:4].prod() + rows[left, 2:4].prod(axis=1) - overlap
        left = left[overlap / union <= 0.4]
    return rows[kept]


def persons(network, video):
    net = cv2.dnn.readNetFromONNX(network)
    names = ("grid_32", "grid_16")
    capture = cv2.VideoCapture(video)
    width, height = 416, 256
    for index in range(sys.maxsize):
        there, frame = capture.read()
        if not there:
            break
        scale = max(width, height) / max(frame.shape[:2])
        scaled = cv2.resize(frame, (round(frame.shape[1] * scale), round(frame.shape[0] * scale)))
        above, before = (height - scaled.shape[0]) // 2, (width - scaled.shape[1]) // 2
        image = cv2.copyMakeBorder(scaled, above, height - scaled.shape[0] - above, before,
                                   width - scaled.shape[1] - before, cv2.BORDER_CONSTANT, value=(128, 128, 128))
        net.setInput(cv2.dnn.blobFromImage(image, mean=(128, 128, 128), swapRB=True))
        boxes = []
        for cx, cy, w, h, score in suppressed(decoded(net.forward(names), width, height)):
            w, h = min(int(w / scale), frame.shape[1]), min(int(h / scale), frame.shape[0])
            cx, cy = max(int((cx - before) / scale), 0), max(int((cy - above) / scale), 0)
            x, y = max(int(cx - w / 2), 1), max(int(cy - h / 2), 1)
            right, bottom = min(int(cx + w / 2), frame.shape[1] - 1), min(int(cy + h / 2), frame.shape[0] - 1)
            boxes.append({"x": x, "y": y, "w": right - x, "h": bottom - y, "score": float(score)})
        print(json.dumps({"frame": index, "boxes": boxes}))


def motion(video, ratio=0.3, period=25):
    capture = cv2.VideoCapture(video)
    kernel = np.array([1, 2, 1], np.float32)
    last = changed = None
    shares, votes = [], 0
    for index in range(sys.maxsize):
        there, frame = capture.read()
        if not there:
            break
        grey = cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
        half = grey[:grey.shape[0] // 2 * 2:2, 1::2].copy()
        smooth = half.copy()
        smooth[1:-1, 1:-1] = (cv2.sepFilter2D(half, cv2.CV_16S, kernel, kernel) >> 4)[1:-1, 1:-1]
        before, last = last, smooth
        if before is None:
            continue
        now = cv2.compare(cv2.absdiff(smooth, before), 20, cv2.CMP_GT)
        if changed is not None:
            count = cv2.countNonZero(now & changed)
            votes += 1 if count >= int(half.size * ratio * 0.01) else -1
            shares.append(100 * count / half.size)
        changed = now
        if (index + 1) % period == 0:
            shares.sort()
            print(json.dumps({"frame": index, "motion": votes > 0, "changed": shares[(len(shares) - 1) // 2],
                              "changed_max": shares[-1]}))
            shares, votes = [], 0


def filter_bank():
    """What each of the 257 bins of a transform of 512 samples gives to 64 channels."""
    mels = 1127 * np.log(1 + np.arange(257) * 31.25 / 700)
    edges = np.arange(66) / 65 * mels[-1]
    rise = (mels[:, None] - edges[:-2]) / (edges[1:-1] - edges[:-2])
    fall = (edges[2:] - mels[:, None]) / (edges[2:] - edges[1:-1])
    bank = np.clip(np.minimum(rise, fall), 0, None)
    bank[0] = 0
    return bank


def cry(network, sound):
    import soundfile
    samples, _ = soundfile.read(sound, dtype="int16")
    net = cv2.dnn.readNetFromONNX(network)
    bank, window = filter_bank(), 0.54 - 0.46 * np.cos(2 * np.pi * np.arange(512) / 511)
    for index, part in enumerate(samples[:len(samples) // 48000 * 48000].reshape(-1, 48000)):
        probability = 0.00001
        if np.abs(part[::10].astype(np.int32)).sum() >= 86046:
            frames = np.lib.stride_tricks.sliding_window_view(part, 512)[::160].astype(np.float32)
            frames -= frames.mean(axis=1, keepdims=True)
            frames[:, 1:] -= 0.97 * frames[:, :-1]
            frames[:, 0] *= 0.03
            powers = np.abs(np.fft.rfft(frames * window)) ** 2
            logs = np.log(np.maximum(powers @ bank, 1))
            logs -= logs.mean(axis=0)
            image = (np.clip(logs, -28, 28) * 4.5714 + 128).astype(np.uint8)
            net.setInput((image.astype(np.float32) - 128)[None, None])
            scores = np.exp(net.forward().ravel())
            probability = scores[1] / scores.sum()
        print(json.dumps({"window": index, "probability": float(probability)}))


if __name__ == "__main__":
    {"persons": persons, "motion": motion, "cry": cry}[sys.argv[1]](*sys.argv[2:])
