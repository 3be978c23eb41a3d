# SPDX-License-Identifier: Apache-2.0
"""Melodies in two families of instruments."""
import numpy as np

from models.labels.making import HELD_OUT, TRAINING
from models.sources.sounds.voices import SCALES
from models.sources.sounds.signal import RATE, chance, length_of, noise, slope, band, tones, fade, add, rms


def organ(rng, pitch, samples):
    weights = rng.uniform(0, 1, 8)
    at = np.arange(samples) / RATE
    sound = sum(w * np.sin(2 * np.pi * pitch * k * at)
                for k, w in enumerate(weights, 1) if k * pitch < 7800)
    return sound * fade(samples, 0.02, 0.06)


def plucked(rng, pitch, samples):
    at = np.arange(samples) / RATE
    decay = rng.uniform(2, 6)
    return sum(np.sin(2 * np.pi * pitch * k * at) * np.exp(-at * decay * (0.5 + 0.4 * k)) / k
               for k in range(1, 16) if k * pitch < 7800) * fade(samples, 0.004, 0.02)


def square_wave(rng, pitch, samples):
    sound = tones(np.full(samples, pitch), lambda hz: (np.round(hz / pitch) % 2) * pitch / hz, 30)
    return sound * fade(samples, 0.01, 0.03)


def strings(rng, pitch, samples):
    detuned = [tones(np.full(samples, pitch * d), lambda hz: (pitch / hz) ** 1.2, 20)
               for d in (0.996, 1.0, 1.005)]
    return sum(detuned) * fade(samples, 0.1, 0.1)


def bell(rng, pitch, samples):
    at = np.arange(samples) / RATE
    swing = np.sin(2 * np.pi * pitch * rng.choice([1.4, 2.0, 3.5]) * at)
    decay = rng.uniform(1.5, 5)
    return np.sin(2 * np.pi * pitch * at + 3 * np.exp(-at * 4) * swing) * np.exp(-at * decay)


def flute(rng, pitch, samples):
    vibrato = np.sin(2 * np.pi * 5 * np.arange(samples) / RATE)
    sound = tones(pitch * (1 + 0.006 * vibrato), slope(-12), 6)
    sound = sound / rms(sound) + 0.1 * noise(rng, samples, band(pitch, pitch * 4))
    return sound * fade(samples, 0.05, 0.06)


INSTRUMENTS = {TRAINING: [organ, plucked, square_wave], HELD_OUT: [strings, bell, flute]}


def music(rng, seconds, family):
    """A melody of one instrument, with chords and drums or without."""
    key = rng.uniform(110, 600)
    beat = rng.uniform(0.18, 0.5)  # seconds
    instrument = INSTRUMENTS[family][rng.integers(3)]
    has_chords, has_drums = chance(rng, 0.5), chance(rng, 0.4)
    track = np.zeros(length_of(seconds))
    at = 0
    while at < len(track):
        beats = rng.choice([1, 1, 1, 2, 2, 4])
        samples = length_of(beat * beats)
        step = rng.choice(SCALES[family])
        notes = [step] + ([step - 5, step - 8, step - 12] if has_chords else [])
        for note in notes:
            sound = instrument(rng, key * 2 ** (note / 12), samples)
            add(track, at, sound / rms(sound) / len(notes) ** 0.5)
        if has_drums:
            drum = noise(rng, length_of(0.12), band(*((2000, 7000) if chance(rng, 0.5) else (40, 200))))
            add(track, at, 2 * drum * np.exp(-np.linspace(0, 6, len(drum))))
        at += samples
    return track
