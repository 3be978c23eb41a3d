# SPDX-License-Identifier: Apache-2.0
"""Makes the example sounds, 16 kHz mono, of synthetic ones: python3 -m examples.sounds.make_sound [DIRECTORY]

evening.flac  33 s: a quiet room, talk, a cry from about 12 to 21 s, somebody who comforts, a telephone, music
cry.flac      6 s of crying
speech.flac   6 s of talk
"""
import sys
from pathlib import Path

import numpy as np
import scipy.signal

from models.labels.making import HELD_OUT, TRAINING, save
from models.sources.sounds import crying, home, music, voices
from models.sources.sounds.signal import RATE, add, record, rms, room


def say(rng, text, variant, pitch, speed=150):
    sound = voices.spoken("en-us", variant, pitch, speed, text)
    sound = scipy.signal.resample(sound, len(sound) * RATE // 22050)
    return room(rng, sound / rms(sound))


def baby(seed, seconds):
    """From the first burst to the end of the last one before `seconds` are over."""
    rng = np.random.default_rng(seed)
    sound, is_crying = crying.cry(rng, seconds + 2)
    first = np.argmax(is_crying)
    pauses = np.flatnonzero(~is_crying[first:first + int(seconds * RATE)])
    sound = sound[first:first + pauses[-1]]
    return room(rng, sound / rms(sound))


def evening():
    rng = np.random.default_rng(33)
    parts = [  # second, sound, relative to the loudest, in decibels
        (3.3, say(rng, "What a long day. Did you call your sister?", "f3", 45), -9),
        (6.6, say(rng, "Not yet, I will do it after dinner.", "m4", 40), -9),
        (9.4, say(rng, "Wait. Listen.", "f3", 45, 130), -14),
        (12.2, baby(20, 8.3), 0),
        (21.3, say(rng, "Hush now, everything is all right.", "f3", 50, 130), -8),
        (24.3, home.ring(rng, 2.6, (950, 1000), (24, 26), (1.0, 1.1), (0.5, 0.6)), -12),
        (27.1, music.music(np.random.default_rng(8), 5.8, HELD_OUT), -10),
    ]
    track = 10 ** (-42 / 20) * home.hum(rng, 33.0, TRAINING)
    for second, sound, decibels in parts:
        add(track, int(second * RATE), 10 ** (decibels / 20) * sound / rms(sound))
    return record(rng, track, -24)


def main(directory):
    rng = np.random.default_rng(7)
    quiet = 10 ** (-40 / 20) * home.hum(rng, 6.0, TRAINING)
    lines = say(rng, "Good evening. Shall we go for a walk, or is it too cold outside?", "f4", 50)
    for name, pcm in [
            ("evening", evening()),
            ("cry", record(rng, quiet + room(rng, crying.cry(rng, 6.0)[0]), -22)),
            ("speech", record(rng, quiet + np.pad(lines, (RATE // 4, 6 * RATE))[:6 * RATE], -24))]:
        save(directory / (name + ".flac"), pcm)


if __name__ == "__main__":
    main(Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent)
