# SPDX-License-Identifier: Apache-2.0
"""Makes the example sounds, 16 kHz mono, from the synthetic sounds of models/sounds.py.

    examples/sounds/make_sound.py [DIR]

evening.flac  33 s: a quiet room, talk, a cry from about 12 to 21 s, somebody who comforts, a telephone, music
cry.flac      6 s of crying
speech.flac   6 s of talk
"""
import os
import sys

import numpy
import scipy.signal
import soundfile

HERE = os.path.dirname(os.path.abspath(__file__))
from models.sources.sounds import sounds

RATE = sounds.RATE


def say(rng, text, variant, pitch, speed=150):
    sound = sounds.spoken("en-us", variant, pitch, speed, text)
    sound = scipy.signal.resample(sound, len(sound) * RATE // 22050)
    return sounds.room(rng, sound / sounds.rms(sound))


def crying(seed, seconds):
    """From the first burst to the end of the last one before `seconds` are over."""
    rng = numpy.random.default_rng(seed)
    sound, is_crying = sounds.cry(rng, seconds + 2)
    first = numpy.argmax(is_crying)
    pauses = numpy.flatnonzero(~is_crying[first:first + int(seconds * RATE)])
    sound = sound[first:first + pauses[-1]]
    return sounds.room(rng, sound / sounds.rms(sound))


def evening():
    rng = numpy.random.default_rng(33)
    parts = [  # second, sound, relative to the loudest, in decibels
        (3.3, say(rng, "What a long day. Did you call your sister?", "f3", 45), -9),
        (6.6, say(rng, "Not yet, I will do it after dinner.", "m4", 40), -9),
        (9.4, say(rng, "Wait. Listen.", "f3", 45, 130), -14),
        (12.2, crying(20, 8.3), 0),
        (21.3, say(rng, "Hush now, everything is all right.", "f3", 50, 130), -8),
        (24.3, sounds.ring(rng, 2.6, (950, 1000), (24, 26), (1.0, 1.1), (0.5, 0.6)), -12),
        (27.1, sounds.music(numpy.random.default_rng(8), 5.8, sounds.HELD_OUT), -10),
    ]
    track = 10 ** (-42 / 20) * sounds.hum(rng, 33.0, sounds.TRAINING)
    for second, sound, decibels in parts:
        sounds.add(track, int(second * RATE), 10 ** (decibels / 20) * sound / sounds.rms(sound))
    return sounds.record(rng, track, -24)


def main():
    directory = sys.argv[1] if len(sys.argv) > 1 else HERE
    rng = numpy.random.default_rng(7)
    quiet = 10 ** (-40 / 20) * sounds.hum(rng, 6.0, sounds.TRAINING)
    lines = say(rng, "Good evening. Shall we go for a walk, or is it too cold outside?", "f4", 50)
    for name, pcm in [
            ("evening", evening()),
            ("cry", sounds.record(rng, quiet + sounds.room(rng, sounds.cry(rng, 6.0)[0]), -22)),
            ("speech", sounds.record(rng, quiet + numpy.pad(lines, (RATE // 4, 6 * RATE))[:6 * RATE], -24))]:
        soundfile.write(os.path.join(directory, name + ".flac"), pcm, RATE)


if __name__ == "__main__":
    main()
