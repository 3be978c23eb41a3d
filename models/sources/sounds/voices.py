# SPDX-License-Identifier: Apache-2.0
"""Speech by espeak-ng, singing, barks and meows, in two families that share neither voice, language nor text."""
import subprocess

import numpy as np
import scipy.ndimage
import scipy.signal

from models.labels.making import HELD_OUT, TRAINING
from models.sources.sounds.signal import (RATE, chance, length_of, noise, slope, band, resonances, tones, fade,
                                          repeat, rms)


LANGUAGES = {
    TRAINING: (
        "en-us en-gb en-gb-x-rp de fr-fr es it pt-br nl sv pl ru tr fi hu id hi ro el bg hr lt ka ta "
        "sq eu en-029 fa kn mk").split(),
    HELD_OUT: (
        "en-gb-scotland en-us-nyc en-gb-x-gbclan fr-be es-419 da nb ca uk cs sk et sw lv af is pt bs "
        "gu te").split(),
}
VARIANTS = {
    TRAINING: (
        "f1 f2 f5 m1 m2 m3 m5 m7 Alex Andrea Annie Gene Hugo Jacky Lee Mike adam anika announcer "
        "belinda caleb david edward grandma iven john klatt klatt3 linda max norbert paul robert "
        "steph travis whisper").split(),
    HELD_OUT: (
        "f3 f4 m4 m6 m8 Alicia Andy Denis Gene2 Henrique Mario Michael antonio aunty benjamin boris "
        "edward2 grandpa gustave iven3 klatt2 klatt4 michel pablo quincy sandro steph2 victor "
        "whisperf zac").split(),
}
TEXTS = {
    TRAINING: [
        "Good morning, did you sleep well?", "I will put the kettle on in a minute.",
        "No! Come back here, please!", "The train leaves at seven thirty from platform two.",
        "Oh, look at that! It is wonderful.", "Have you seen my keys anywhere?",
        "Rain is expected in the west, with strong winds in the evening.",
        "Once upon a time there was a little bear who lived in the woods.", "Yes. Maybe. I do not know.",
        "One, two, three, four, five, six, seven.", "Mummy, mummy, can I have another one?",
        "Stop it! Stop it now!", "We should call them tomorrow and ask again.", "Hello? Who is there?",
        "La la la, na na na, oh oh oh.",
    ],
    HELD_OUT: [
        "What shall we have for dinner tonight?", "He opened the window and the cold air came in.",
        "Wow! Really?", "Please leave a message after the tone.", "Daddy, I want to go outside!",
        "Eight, nine, ten. Ready or not!", "The parliament votes on the new law on Thursday.",
        "Hush now, everything is all right.", "Who did that? You?",
        "My brother is buying a small house near the sea.", "Aaah! There is a spider over there!",
        "Turn left at the church and follow the river.",
    ],
}
SYLLABLES = {TRAINING: "ba ke mi to lu sha re no wi da fi go".split(),
             HELD_OUT: "pa ne li vo zu cha se ra bu ti yo ma".split()}


def spoken(language, variant, pitch, speed, text):
    """What espeak-ng says, at its own rate, 22050 Hz."""
    command = ["espeak-ng", "-v", "%s+%s" % (language, variant), "-p", str(pitch), "-s", str(speed)]
    done = subprocess.run(command + ["--stdout", text], stdout=subprocess.PIPE, check=True)
    header = 44  # says nothing that is not known, and not the length
    return np.frombuffer(done.stdout[header:], np.int16) / 32768.0


def sentence(rng, family):
    if chance(rng, 0.7):
        return str(rng.choice(TEXTS[family]))
    words = ["".join(rng.choice(SYLLABLES[family], rng.integers(1, 4))) for _ in range(rng.integers(2, 9))]
    return " ".join(words) + str(rng.choice([".", "?", "!"]))


def speech(rng, seconds, family):
    """One speaker, man, woman or child, or an answer from another one now and then."""
    def speaker():
        is_child = chance(rng, 0.3)
        pitch = rng.integers(60, 100) if is_child else rng.integers(0, 100)
        faster = rng.uniform(1.1, 1.5) if is_child else rng.uniform(0.92, 1.08)  # raises pitch and resonances
        language, variant = rng.choice(LANGUAGES[family]), rng.choice(VARIANTS[family])
        return (language, variant, pitch, rng.integers(110, 240)), faster

    def utterance():
        (language, variant, pitch, speed), faster = speakers[int(chance(rng, 0.2))]
        sound = spoken(language, variant, pitch, int(speed / faster), sentence(rng, family))
        sound = scipy.signal.resample(sound, int(len(sound) * RATE / 22050 / faster))
        return sound * rng.uniform(0.6, 1) / rms(sound)

    speakers = speaker(), speaker()
    return repeat(rng, seconds, utterance, (0.02, 0.5))


VOWELS = {TRAINING: [(750, 1200, 2600), (400, 2200, 2900), (450, 800, 2600)],
          HELD_OUT: [(300, 2500, 3100), (600, 1000, 2500), (550, 1800, 2600)]}
SCALES = {TRAINING: [0, 2, 4, 5, 7, 9, 11, 12], HELD_OUT: [0, 3, 5, 7, 10, 12, 15]}


def singing(rng, seconds, family):
    """A grown-up voice that goes from note to note of a scale, with steady vibrato."""
    key = rng.uniform(130, 420)
    vibrato_hz, vibrato = rng.uniform(4.5, 7), rng.uniform(0, 0.015)
    samples = length_of(seconds)
    pitch, envelope = np.zeros(samples), np.zeros(samples)
    formants = np.zeros((3, samples))
    at = 0
    while at < samples:
        n = min(length_of(rng.choice([0.2, 0.3, 0.4, 0.6, 0.9]) * rng.uniform(0.95, 1.05)), samples - at)
        pitch[at:at + n] = key * 2 ** (rng.choice(SCALES[family]) / 12)
        formants[:, at:at + n] = np.array(VOWELS[family][rng.integers(3)])[:, None] * rng.uniform(1, 1.2)
        envelope[at:at + n] = 0 if chance(rng, 0.08) else rng.uniform(0.6, 1) * fade(n, 0.03, 0.05)
        at += n
    pitch = scipy.ndimage.uniform_filter1d(pitch, 640, mode="nearest")  # glides
    formants = scipy.ndimage.uniform_filter1d(formants, 1600, axis=1, mode="nearest")
    pitch *= 1 + vibrato * np.sin(2 * np.pi * vibrato_hz * np.arange(samples) / RATE)
    gain = resonances(list(zip(formants, (120, 150, 250))), 0.02)
    tilt = slope(rng.uniform(-9, -3))
    sound = tones(pitch, lambda hz: gain(hz) * tilt(hz), 40)
    return (sound / rms(sound) + rng.uniform(0, 0.05) * noise(rng, samples, slope(-3))) * envelope


def animal(low, high, glide, formants, duration, rough):
    """A maker of short calls: `glide` is the pitch over the call, a factor at equal steps of time."""
    def call(rng):
        samples = length_of(rng.uniform(*duration))
        at = np.linspace(0, len(glide) - 1, samples)
        pitch = rng.uniform(low, high) * np.interp(at, range(len(glide)), glide)
        pitch *= 1 + rough * 0.05 * noise(rng, samples, band(20, 200))
        bent = [(np.interp(at, np.linspace(0, len(glide) - 1, len(c)), c) * rng.uniform(0.9, 1.1), w)
                for c, w in formants]
        sound = tones(pitch, resonances(bent))
        sound = sound / rms(sound) + rough * noise(rng, samples, resonances([(bent[0][0].mean(), 500)], 0.1))
        return sound * fade(samples, duration[0] * 0.15, duration[0] * 0.4)
    return call


BARK = {
    TRAINING: animal(250, 700, (0.8, 1.2, 0.9, 0.6), [((900, 1300, 700), 300), ((2200, 2600), 500)],
                     (0.1, 0.3), 0.5),
    HELD_OUT: animal(180, 550, (1.0, 1.1, 0.7), [((700, 1000, 600), 250), ((1800, 2000), 400)],
                     (0.14, 0.35), 0.7),
}
MEOW = {
    TRAINING: animal(420, 700, (0.7, 1, 1.05, 0.9, 0.7),
                     [((500, 1500, 1300, 600), 200), ((2500, 3400, 1800), 350)], (0.5, 1.0), 0.02),
    HELD_OUT: animal(450, 750, (0.8, 1.1, 1, 0.75),
                     [((600, 1600, 1200, 500), 220), ((2800, 3200, 2000), 300)], (0.4, 0.9), 0.03),
}


def barks(rng, seconds, family):
    def make():
        bark, pause = BARK[family](rng), np.zeros(length_of(rng.uniform(0.05, 0.3)))
        return np.concatenate([bark, pause] * rng.integers(1, 4))
    return repeat(rng, seconds, make, (0.2, 1.2))


def meows(rng, seconds, family):
    return repeat(rng, seconds, lambda: MEOW[family](rng), (0.7, 2.5))
