# SPDX-License-Identifier: Apache-2.0
"""Windows of 3 s for the cry detector, as a microphone in a home hears them.

A window is a cry when crying is heard in it for at least half a second and nothing else in it is louder on average; it
is none when there is no crying at all. Windows in between are not made.
"""
import numpy as np

from models.sources.sounds.signal import RATE, chance, filtered, noise, record, rms, room, slope

WINDOW = 3 * RATE
LEAST_CRYING = RATE // 2  # samples
QUIETEST = 0.05  # of what is not crying, root mean square
SHARES = {"cry": 0.42, "speech": 0.21, "singing": 0.06, "music": 0.08, "alarm": 0.07, "barks": 0.04,
          "meows": 0.03, "household": 0.07, "hum": 0.02}
KINDS = list(SHARES)


def audible(rng, is_cry, cut, *kind):
    """A cut of root mean square 1 while there is sound; of crying, enough, which now and then begins or ends in it."""
    while True:
        sound, is_crying = cut(rng, *kind, WINDOW)
        if not is_cry:
            if rms(sound) > QUIETEST:
                return sound / rms(sound)
        elif is_crying.sum() >= LEAST_CRYING:
            if chance(rng, 0.3):
                heard = np.cumsum(is_crying)
                if chance(rng, 0.5):
                    heard = heard[-1] - heard
                kept = heard <= rng.integers(LEAST_CRYING, heard.max() + 1)
                sound, is_crying = sound * kept, is_crying & kept
            return sound / rms(sound[is_crying])


def window(rng, source):
    """One recording: samples, kind."""
    kind = str(rng.choice(KINDS, p=list(SHARES.values())))
    sound = room(rng, audible(rng, kind == "cry", source.cut, kind))
    for _ in range(rng.integers(0, 3)):
        other = str(rng.choice(KINDS[1:]))
        # Next to a cry nothing is louder; otherwise anything may be.
        decibels = rng.uniform(-35, 0) if kind == "cry" else rng.uniform(-30, 6)
        sound = sound + 10 ** (decibels / 20) * room(rng, audible(rng, False, source.cut, other))
    quietest = -60 if kind == "hum" else -48 if kind != "cry" else -42
    floor = noise(rng, WINDOW, slope(rng.uniform(-6, 1))) * 10 ** (rng.uniform(-60, -15) / 20)
    return record(rng, sound + floor, rng.uniform(quietest, -10)), kind


def training_window(rng, source):
    """A recording of a source's cry() and other(): samples, and whether it is a cry.

    A third are one sound alone; the others are harder: other sounds may be as loud as the crying. Everything whispers or
    is clipped, and half of it ends at 4 kHz, as telephones and many recorders do.
    """
    is_cry, is_alone = chance(rng, 0.4), chance(rng, 1 / 3)
    sound = audible(rng, is_cry, source.cry if is_cry else source.other)
    sound = sound if is_alone else room(rng, sound)
    for _ in range(0 if is_alone else rng.integers(0, 3)):
        decibels = rng.uniform(-35, 0) if is_cry else rng.uniform(-30, 6)
        sound = sound + 10 ** (decibels / 20) * room(rng, audible(rng, False, source.other))
    floor = noise(rng, WINDOW, slope(rng.uniform(-6, 1))) * 10 ** (rng.uniform(-60, -15) / 20)
    pcm = record(rng, sound + floor, rng.uniform(-52, -4))
    if chance(rng, 0.5):
        end = rng.uniform(3400, 4000)
        pcm = np.round(filtered(pcm.astype(float), lambda hz: hz < end)).clip(-32768, 32767).astype(np.int16)
    return pcm, is_cry
