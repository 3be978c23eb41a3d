# SPDX-License-Identifier: Apache-2.0
"""Sound as numpy arrays of floats, 16 kHz, mono: what all sounds are made of, and the way to the microphone.

`rng` is a np.random.Generator.
"""
import numpy as np
import scipy.fft
import scipy.ndimage
import scipy.signal

RATE = 16000


def chance(rng, probability):
    return rng.random() < probability


def length_of(seconds):
    return int(round(seconds * RATE))


def curve(rng, samples, seconds_between, low, high):
    """A smooth random curve through a new value every so many seconds."""
    knots = rng.uniform(low, high, max(2, int(samples / RATE / seconds_between) + 2))
    return scipy.ndimage.map_coordinates(knots, [np.linspace(0, len(knots) - 1, samples)], order=1)


def filtered(sound, gain):
    """`gain` is a function of the frequency in Hz."""
    size = scipy.fft.next_fast_len(len(sound), real=True)
    spectrum = scipy.fft.rfft(sound, size) * gain(scipy.fft.rfftfreq(size, 1 / RATE))
    return scipy.fft.irfft(spectrum, size)[:len(sound)]


def noise(rng, samples, gain=None):
    """Of standard deviation 1."""
    sound = rng.standard_normal(samples)
    if gain is None:
        return sound
    sound = filtered(sound, gain)
    return sound / (sound.std() + 1e-9)


def slope(decibels_per_octave):
    return lambda hz: (np.maximum(hz, 30) / 1000) ** (decibels_per_octave / 6.02)


def band(low, high):
    return lambda hz: 1 / np.sqrt(1 + (low / np.maximum(hz, 1)) ** 4) / np.sqrt(1 + (hz / high) ** 4)


def resonances(formants, floor=0.03):
    """Gain of a vocal tract; `formants` are centres and widths in Hz, which may be curves."""
    return lambda hz: floor + sum(1 / (1 + ((hz - centre) / width) ** 2) for centre, width in formants)


def tones(pitch, gain, count=60):
    """A sum of harmonics; `pitch` in Hz for each sample, `gain` of the frequency."""
    first = np.exp(2j * np.pi * np.cumsum(pitch) / RATE)
    turn, sound = first.copy(), np.zeros(len(pitch))
    for harmonic in range(1, count + 1):
        hz = pitch * harmonic
        if hz.min() > 7800:
            break
        sound += turn.imag * gain(hz) * (hz < 7800)
        turn *= first
    return sound


def fade(samples, attack, release):
    """An envelope with rounded ends, in seconds."""
    at = np.arange(samples) / RATE
    end = samples / RATE - at
    return np.sin(np.pi / 2 * np.minimum(1, np.minimum(at / attack, end / release)).clip(0)) ** 2


def add(track, at, sound):
    """Adds what fits; `at` in samples."""
    sound = sound[:max(0, len(track) - at)]
    track[at:at + len(sound)] += sound


def repeat(rng, seconds, make, gap):
    """Sounds of `make()` one after the other, `gap` (low, high) seconds between them."""
    track, at = np.zeros(length_of(seconds)), length_of(rng.uniform(0, 0.5))
    while at < len(track):
        sound = make()
        add(track, at, sound)
        at += len(sound) + length_of(rng.uniform(*gap))
    return track


def rms(sound):
    return np.sqrt(np.mean(np.square(sound)) + 1e-12)


def room(rng, sound):
    """Echo of a small or large room."""
    if chance(rng, 0.25):
        return sound
    samples = length_of(rng.uniform(0.1, 0.5))
    decay = np.exp(-np.linspace(0, 6.9, samples))
    echo = noise(rng, samples, band(100, rng.uniform(2000, 7000))) * decay
    echo *= rng.uniform(0.1, 0.8) / np.sqrt(np.sum(echo ** 2))
    echo[0] = 1
    return scipy.signal.fftconvolve(sound, echo)[:len(sound)]


def record(rng, sound, decibels):
    """16-bit samples of that root mean square, in decibels below full scale; a microphone colours them."""
    knots = rng.uniform(-6, 6, 8)
    octaves = np.linspace(6, 13, 8)
    low, high = rng.uniform(40, 250), rng.uniform(4500, 9000)

    def gain(hz):
        decibels_at = np.interp(np.log2(np.maximum(hz, 1)), octaves, knots)
        return 10 ** (decibels_at / 20) * band(low, high)(hz)
    sound = filtered(sound, gain)
    scaled = sound / rms(sound) * 32768 * 10 ** (decibels / 20)
    return np.round(scaled + rng.normal(0, 2, len(scaled))).clip(-32768, 32767).astype(np.int16)
