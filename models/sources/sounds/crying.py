# SPDX-License-Identifier: Apache-2.0
"""Crying, built from what is known of it.

Bursts of 0.3 to 1.8 s between breaths, a fundamental of 300 to 700 Hz that rises and falls, strong harmonics under the
resonances of a short vocal tract, vibrato, and rough phases (subharmonics, jitter, noise).
"""
import numpy as np

from models.sources.sounds.signal import (RATE, chance, length_of, curve, noise, slope, band, resonances, tones,
                                          fade, add, rms)


class Baby:
    """One voice and one mood."""

    def __init__(self, rng):
        self.pitch = rng.uniform(340, 520)  # Hz, where a burst starts; it rises above
        self.rise = rng.uniform(0.08, 0.35)  # of the pitch
        self.burst = rng.uniform(0.5, 1.3)  # seconds
        self.pause = rng.uniform(0.12, 0.45)
        self.tract = rng.uniform(0.85, 1.15)  # resonances, relative to a tract of 8 cm
        self.tilt = rng.uniform(-5, 1)  # decibels an octave
        self.vibrato_hz, self.vibrato = rng.uniform(4, 9), rng.uniform(0, 0.025)
        self.jitter = rng.uniform(0.002, 0.012)
        self.breath = rng.uniform(0.01, 0.12)
        self.hoarse = rng.uniform(0, 0.7)  # share of bursts that have a rough phase
        self.sob = rng.uniform(0, 0.35)  # share of bursts that tremble


def cry(rng, seconds):
    """Crying from one baby, and where it can be heard."""
    baby = Baby(rng)
    track = np.zeros(length_of(seconds))
    is_crying = np.zeros(len(track), bool)
    at = length_of(rng.uniform(0, 0.5))
    while at < len(track):
        burst = cry_burst(rng, baby) * rng.uniform(0.45, 1)
        add(track, at, burst)
        is_crying[at:at + len(burst)] = True
        at += len(burst)
        breath = inhalation(rng, baby)
        add(track, at + length_of(0.03), breath)
        at += len(breath) + length_of(baby.pause * rng.uniform(0.3, 1.3))
        if chance(rng, 0.04):
            at += length_of(rng.uniform(0.5, 2))
    return track, is_crying


def melody(rng, baby, samples):
    """The pitch of one burst, in Hz."""
    at = np.linspace(0, 1, samples)
    peak = rng.uniform(0.1, 0.7)
    arch = np.where(at < peak, at / peak, (1 - at) / (1 - peak))
    if chance(rng, 0.2):  # a second arch
        arch = np.maximum(arch * 0.8, 0.8 - np.abs(at - rng.uniform(0.5, 0.9)) * 4)
    arch = np.sin(np.pi / 2 * arch)
    fall = rng.uniform(0, 0.25) * at ** 3
    pitch = baby.pitch * rng.uniform(0.92, 1.1) * (1 + baby.rise * rng.uniform(0.5, 1.4) * arch - fall)
    seconds = np.arange(samples) / RATE
    pitch *= 1 + baby.vibrato * np.sin(2 * np.pi * (baby.vibrato_hz * seconds + rng.random()))
    return pitch * (1 + baby.jitter * noise(rng, samples, band(1, 40)))


def rough_phase(rng, samples):
    """0 to 1: where in a burst the voice breaks."""
    centre, width = rng.uniform(0.1, 0.9), rng.uniform(0.15, 0.6)
    return (1.5 - np.abs(np.linspace(0, 1, samples) - centre) / width * 2).clip(0, 1)


def cry_burst(rng, baby):
    samples = length_of((baby.burst * rng.uniform(0.65, 1.35)))
    pitch = melody(rng, baby, samples)
    rough = rough_phase(rng, samples) if chance(rng, baby.hoarse) else np.zeros(samples)
    is_chaotic = chance(rng, 0.5)
    if is_chaotic:
        pitch = pitch * (1 + 0.05 * rough * noise(rng, samples, band(20, 300)))
    open_mouth = curve(rng, samples, 0.3, 0.9, 1.1) * baby.tract
    tract = resonances([(1100 * open_mouth, 280), (3000 * open_mouth, 500), (5000 * baby.tract, 900)], 0.08)
    tilt = slope(baby.tilt)
    sound = tones(pitch, lambda hz: tract(hz) * tilt(hz))
    if not is_chaotic:  # every second or third period is stronger
        period = rng.choice([2, 3])
        sound *= 1 + 0.8 * rough * np.cos(2 * np.pi * np.cumsum(pitch) / RATE / period)
    still = resonances([(1100 * baby.tract, 300), (3000 * baby.tract, 600), (5000 * baby.tract, 1200)], 0.1)
    sound = sound / rms(sound) + (baby.breath + 0.4 * rough) * noise(rng, samples, still)
    envelope = fade(samples, rng.uniform(0.02, 0.12), rng.uniform(0.05, 0.25))
    envelope *= curve(rng, samples, 0.15, 0.7, 1)
    if chance(rng, baby.sob):
        seconds = np.arange(samples) / RATE
        depth, hz = rng.uniform(0.3, 0.8), rng.uniform(6, 11)
        envelope *= 1 - depth * (0.5 + 0.5 * np.sin(2 * np.pi * hz * seconds))
    return sound * envelope


def inhalation(rng, baby):
    samples = length_of(rng.uniform(0.1, 0.3))
    sound = noise(rng, samples, resonances([(1500 * baby.tract, 500), (3500 * baby.tract, 900)], 0.1))
    if chance(rng, 0.25):  # voiced
        pitch = np.linspace(1.2, 1.7, samples) * baby.pitch
        sound = 0.5 * sound + tones(pitch, resonances([(1200 * baby.tract, 400)]), 8)
    return sound * rng.uniform(0.03, 0.2) * fade(samples, 0.05, 0.05)
