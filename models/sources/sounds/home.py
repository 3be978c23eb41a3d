# SPDX-License-Identifier: Apache-2.0
"""Alarms and what is heard in a home, in two families."""
import numpy as np

from models.labels.making import HELD_OUT, TRAINING
from models.sources.sounds.music import bell
from models.sources.sounds.signal import (RATE, length_of, curve, noise, slope, band, resonances, tones, fade, add,
                                          repeat, rms)


def beeps(rng, seconds, hz, on, off, count=1, rest=0.0):
    """Groups of `count` beeps, `rest` seconds between the groups."""
    pitch = rng.uniform(*hz)
    on, off = rng.uniform(*on), rng.uniform(*off)
    weight = rng.uniform(-24, -3)

    def group():
        beep = tones(np.full(length_of(on), pitch), slope(weight), 8)
        beep = beep / rms(beep) * fade(len(beep), 0.005, 0.01)
        return np.concatenate([beep, np.zeros(length_of(off))] * count)
    return repeat(rng, seconds, group, (rest, rest + 0.01))


def sweep(rng, seconds, hz, turns_a_second, shape):
    low, high = sorted(rng.uniform(*hz, 2))
    at = np.arange(length_of(seconds)) / RATE * rng.uniform(*turns_a_second) + rng.random()
    position = {"wail": 0.5 - 0.5 * np.cos(2 * np.pi * at), "two tones": 1.0 * (at % 1 < 0.5),
                "saw": at % 1}[shape]
    weight = rng.uniform(-15, -3)
    return tones(low + (1.3 * high - low) * position, slope(weight), 12)


def ring(rng, seconds, hz, turns_a_second, on, off):
    """A telephone: two tones in turn, or at once and fluttering."""
    pitch = rng.uniform(*hz)
    turns, factor, rings = rng.uniform(*turns_a_second), rng.uniform(1.05, 1.35), rng.uniform(*on)

    def make():
        at = np.arange(length_of(rings)) / RATE
        sound = tones(pitch * np.where(at * turns % 1 < 0.5, 1, factor), slope(-6), 6)
        return sound * fade(len(sound), 0.01, 0.02)
    return repeat(rng, seconds, make, off)


def doorbell(rng, seconds):
    pitch = rng.uniform(400, 800)

    def make():
        return np.concatenate([bell(rng, p, length_of(0.7)) for p in (pitch, pitch * 0.8)])
    return repeat(rng, seconds, make, (0.5, 2))


ALARMS = {
    TRAINING: [
        lambda rng, s: beeps(rng, s, (2600, 3500), (0.2, 0.6), (0.2, 0.6)),
        lambda rng, s: beeps(rng, s, (1500, 2500), (0.05, 0.12), (0.05, 0.1), 4, 0.4),
        lambda rng, s: beeps(rng, s, (400, 1000), (0.3, 1.0), (0.2, 0.8)),
        lambda rng, s: sweep(rng, s, (400, 1100), (0.15, 1.0), "wail"),
        lambda rng, s: sweep(rng, s, (400, 1000), (0.4, 1.2), "two tones"),
        lambda rng, s: ring(rng, s, (600, 1500), (12, 22), (0.8, 1.5), (0.5, 2)),
        lambda rng, s: ring(rng, s, (500, 1700), (8, 24), (0.25, 0.9), (0.2, 1.0))],
    HELD_OUT: [
        lambda rng, s: beeps(rng, s, (1000, 1400), (0.4, 0.7), (0.4, 0.7)),
        lambda rng, s: beeps(rng, s, (2400, 4000), (0.1, 0.3), (0.1, 0.2), 3, 1.0),
        lambda rng, s: sweep(rng, s, (500, 1300), (2.5, 5), "saw"),
        lambda rng, s: sweep(rng, s, (450, 1200), (1.5, 3.5), "wail"),
        lambda rng, s: ring(rng, s, (900, 2200), (24, 35), (0.3, 0.7), (0.2, 0.6)),
        lambda rng, s: doorbell(rng, s)],
}


def alarm(rng, seconds, family):
    sound = ALARMS[family][rng.integers(len(ALARMS[family]))](rng, seconds)
    return sound / rms(sound)


def motor(rng, seconds, hz, colour):
    """Vacuum cleaner, hair dryer: air, and a whine with overtones."""
    samples = length_of(seconds)
    pitch = curve(rng, samples, 1.5, 0.95, 1.05) * rng.uniform(*hz)
    whine = tones(pitch, slope(rng.uniform(-9, -2)), 25)
    return noise(rng, samples, slope(colour)) + rng.uniform(0.05, 0.6) * whine / rms(whine)


def water(rng, seconds, colour, drops):
    samples = length_of(seconds)
    track = noise(rng, samples, lambda hz: slope(colour)(hz) * band(300, 6000)(hz))
    track *= curve(rng, samples, 0.1, 0.6, 1)
    for at in rng.integers(0, samples, int(drops * seconds)):
        n = length_of(0.03)
        bubble = tones(np.linspace(1, 1.4, n) * rng.uniform(500, 2500), slope(-12), 2)
        add(track, at, 0.8 * rng.random() * bubble * np.exp(-np.linspace(0, 5, n)))
    return track


def struck(rng, low, high, decay, modes):
    """One knock on something with a few resonances."""
    n = length_of(6 / decay)
    at = np.arange(n) / RATE
    sound = np.zeros(n)
    for _ in range(modes):
        wave = rng.uniform(0.2, 1) * np.sin(2 * np.pi * rng.uniform(low, high) * at + rng.uniform(0, 6))
        sound += wave * np.exp(-at * decay * rng.uniform(0.6, 1.6))
    return sound + 0.5 * noise(rng, n) * np.exp(-at * decay * 5)


def knocks(rng, seconds, low, high, decay, modes, gap):
    return repeat(rng, seconds, lambda: rng.uniform(0.2, 1) * struck(rng, low, high, decay, modes), gap)


def creak(rng, seconds):
    """A door: a rough tone that glides."""
    def make():
        n = length_of(rng.uniform(0.4, 1.5))
        pitch = curve(rng, n, 0.2, 0.6, 1.2) * rng.uniform(90, 250)
        pitch *= 1 + 0.03 * noise(rng, n, band(5, 100))
        return tones(pitch, resonances([(900, 300), (2100, 300)])) * fade(n, 0.1, 0.1)
    return repeat(rng, seconds, make, (0.4, 2))


def rustle(rng, seconds):
    samples = length_of(seconds)
    return noise(rng, samples, band(1500, 7000)) * curve(rng, samples, 0.04, -1, 1).clip(0) ** 2


def washing(rng, seconds):
    samples = length_of(seconds)
    swing = 1 + 0.8 * np.sin(2 * np.pi * rng.uniform(0.6, 2.5) * np.arange(samples) / RATE)
    return noise(rng, samples, slope(-6)) * swing + 0.4 * motor(rng, seconds, (40, 90), -3)


HOUSEHOLD = {
    TRAINING: [
        lambda rng, s: motor(rng, s, (90, 320), rng.uniform(-5, 0)),
        lambda rng, s: water(rng, s, rng.uniform(-4, 2), rng.uniform(0, 20)),
        lambda rng, s: knocks(rng, s, 800, 6000, rng.uniform(10, 40), 8, (0.01, 0.4)),  # dishes
        lambda rng, s: knocks(rng, s, 80, 400, rng.uniform(25, 60), 4, (0.1, 0.6)),
        lambda rng, s: noise(rng, length_of(s), slope(rng.uniform(-9, 0)))],
    HELD_OUT: [
        lambda rng, s: motor(rng, s, (330, 600), rng.uniform(-3, 2)),
        lambda rng, s: water(rng, s, rng.uniform(2, 4), rng.uniform(20, 60)),  # frying
        lambda rng, s: knocks(rng, s, 2500, 7500, rng.uniform(20, 60), 5, (0.0, 0.2)),  # keys
        lambda rng, s: knocks(rng, s, 50, 250, rng.uniform(15, 30), 3, (0.25, 0.5)),  # steps
        lambda rng, s: creak(rng, s), lambda rng, s: rustle(rng, s), lambda rng, s: washing(rng, s)],
}


def household(rng, seconds, family):
    sound = HOUSEHOLD[family][rng.integers(len(HOUSEHOLD[family]))](rng, seconds)
    return sound / rms(sound)


def hum(rng, seconds, family):
    """Hardly anything: mains hum and a microphone's own noise."""
    mains = 50 if family == TRAINING else 60
    samples = length_of(seconds)
    track = noise(rng, samples, slope(rng.uniform(-6, 1)))
    return track + rng.uniform(0, 2) * tones(np.full(samples, mains * 1.0), slope(rng.uniform(-6, 0)), 12)
