# SPDX-License-Identifier: Apache-2.0
"""Holds models/cry_detection/features.py against the library: compare_audio_features.py PROGRAM

PROGRAM is audio_features, built from the library. Prints for each window how many bytes differ and by how
much at most, in steps of 1/256; fails for any difference. Speech comes from espeak-ng where it is installed.
"""
import shutil
import subprocess
import sys
import tempfile
import wave

import numpy as np

from models.cry_detection import features as audio

N = audio.SAMPLES
TIME = np.arange(N) / 16000.0
RANDOM = np.random.default_rng(1)


def int16(samples):
    return np.clip(np.round(samples), -32768, 32767).astype(np.int16)


def synthetic_speech():
    """A buzz with a melody through three moving resonances, in syllables: a speech-like spectrum."""
    pitch = 140 + 40 * np.sin(2 * np.pi * 0.7 * TIME) + 10 * np.sin(2 * np.pi * 5 * TIME)
    phase = 2 * np.pi * np.cumsum(pitch) / 16000
    sound = np.zeros(N)
    for harmonic in range(1, 40):
        frequency = harmonic * pitch
        gain = sum(
            np.exp(-(((frequency - centre - sway * np.sin(2 * np.pi * rate * TIME)) / width) ** 2))
            for centre, sway, rate, width in ((600, 200, 1.3, 120), (1500, 500, 0.9, 200), (2600, 300, 1.7, 250)))
        sound += gain * np.sin(harmonic * phase)
    syllables = np.maximum(0, np.sin(2 * np.pi * 2.1 * TIME)) ** 0.5
    return int16(6000 * sound * syllables + RANDOM.normal(0, 20, N))


def espeak_speech():
    program = shutil.which("espeak-ng")
    if not program:
        return None
    with tempfile.NamedTemporaryFile(suffix=".wav") as file:
        text = "The quick brown fox jumps over the lazy dog, and then it runs away from here."
        subprocess.run([program, "-w", file.name, text], check=True)
        with wave.open(file.name) as speech:
            rate = speech.getframerate()
            samples = np.frombuffer(speech.readframes(speech.getnframes()), dtype="<i2")
    return int16(np.interp(TIME, np.arange(len(samples)) / rate, samples, right=0.0))


def windows():
    yield "speech, synthetic", synthetic_speech()
    speech = espeak_speech()
    if speech is not None:
        yield "speech, espeak-ng", speech
    for frequency in (31.25, 440.0, 1000.0, 7900.0):
        yield f"tone of {frequency} Hz", int16(12000 * np.sin(2 * np.pi * frequency * TIME))
    yield "sliding tone", int16(20000 * np.sin(2 * np.pi * (50 * TIME + 1300 * TIME**2)))
    yield "noise at full scale", RANDOM.integers(-32768, 32768, N).astype(np.int16)
    yield "faint noise", int16(RANDOM.normal(0, 40, N))
    yield "square at both ends", np.where(np.arange(N) // 50 % 2, 32767, -32768).astype(np.int16)
    yield "clicks in silence", int16(30000.0 * (np.arange(N) % 800 == 0))
    yield "sound after silence", int16(np.where(TIME < 1.5, 0, RANDOM.normal(0, 5000, N)))
    yield "constant", np.full(N, 1000, dtype=np.int16)
    yield "silence", np.zeros(N, dtype=np.int16)
    yield "just too quiet", np.where(np.arange(N) % 10, 9, 17).astype(np.int16)
    exactly = np.zeros(N, dtype=np.int16)
    exactly[:30:10] = (30000, -30000, 26046)
    yield "exactly at the threshold", exactly


names, sounds = zip(*windows())
raw = subprocess.run([sys.argv[1]], input=np.stack(sounds).astype("<i2").tobytes(), stdout=subprocess.PIPE, check=True)
results = np.frombuffer(raw.stdout, dtype=np.uint8).reshape(len(names), 1 + audio.FRAMES * audio.CHANNELS)

failures = 0
for name, pcm, result in zip(names, sounds, results):
    matrix = audio.features(pcm)
    if matrix is None or not result[0]:
        agree = matrix is None and not result[0]
        print(f"{name}: {'both find it too quiet' if agree else 'ONE finds it too quiet'}")
    else:
        steps = np.abs(result[1:].astype(int) - matrix.ravel())
        agree = not steps.any()
        print(f"{name}: {np.count_nonzero(steps)} of {steps.size} bytes differ, by {steps.max()}/256 at most")
    failures += not agree
sys.exit(1 if failures else 0)
