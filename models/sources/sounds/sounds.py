# SPDX-License-Identifier: Apache-2.0
"""Synthetic sounds for the cry detector: 16 kHz, mono, numpy arrays of floats.

Crying is built from what is known of it: bursts of 0.3 to 1.8 s between breaths, a fundamental of 300 to 700
Hz that rises and falls, strong harmonics under the resonances of a short vocal tract, vibrato, and rough
phases (subharmonics, jitter, noise). Everything else that a camera in a home hears is made more simply;
speech comes from espeak-ng. `rng` is a numpy.random.Generator. Sounds that are not cries come in two families
that share neither voice, language nor text, neither kind of instrument nor of alarm or noise: TRAINING, and
HELD_OUT for the figures in the card.

    rng = numpy.random.default_rng(seed)
    sound, is_crying = cry(rng, 12.0)                    # is_crying: a bool for each sample
    sound = OTHERS["speech"](rng, 12.0, TRAINING)
    pcm = record(rng, room(rng, sound), decibels=-25)    # int16, as a cheap microphone hears it
"""
import subprocess

import numpy
import scipy.fft
import scipy.ndimage
import scipy.signal

RATE = 16000
TRAINING = "training"
HELD_OUT = "held_out"


# Building blocks

def chance(rng, probability):
    return rng.random() < probability


def length_of(seconds):
    return int(round(seconds * RATE))


def curve(rng, samples, seconds_between, low, high):
    """A smooth random curve through a new value every so many seconds."""
    knots = rng.uniform(low, high, max(2, int(samples / RATE / seconds_between) + 2))
    return scipy.ndimage.map_coordinates(knots, [numpy.linspace(0, len(knots) - 1, samples)], order=1)


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
    return lambda hz: (numpy.maximum(hz, 30) / 1000) ** (decibels_per_octave / 6.02)


def band(low, high):
    return lambda hz: 1 / numpy.sqrt(1 + (low / numpy.maximum(hz, 1)) ** 4) / numpy.sqrt(1 + (hz / high) ** 4)


def resonances(formants, floor=0.03):
    """Gain of a vocal tract; `formants` are centres and widths in Hz, which may be curves."""
    return lambda hz: floor + sum(1 / (1 + ((hz - centre) / width) ** 2) for centre, width in formants)


def tones(pitch, gain, count=60):
    """A sum of harmonics; `pitch` in Hz for each sample, `gain` of the frequency."""
    first = numpy.exp(2j * numpy.pi * numpy.cumsum(pitch) / RATE)
    turn, sound = first.copy(), numpy.zeros(len(pitch))
    for harmonic in range(1, count + 1):
        hz = pitch * harmonic
        if hz.min() > 7800:
            break
        sound += turn.imag * gain(hz) * (hz < 7800)
        turn *= first
    return sound


def fade(samples, attack, release):
    """An envelope with rounded ends, in seconds."""
    at = numpy.arange(samples) / RATE
    end = samples / RATE - at
    return numpy.sin(numpy.pi / 2 * numpy.minimum(1, numpy.minimum(at / attack, end / release)).clip(0)) ** 2


def add(track, at, sound):
    """Adds what fits; `at` in samples."""
    sound = sound[:max(0, len(track) - at)]
    track[at:at + len(sound)] += sound


def repeat(rng, seconds, make, gap):
    """Sounds of `make()` one after the other, `gap` (low, high) seconds between them."""
    track, at = numpy.zeros(length_of(seconds)), length_of(rng.uniform(0, 0.5))
    while at < len(track):
        sound = make()
        add(track, at, sound)
        at += len(sound) + length_of(rng.uniform(*gap))
    return track


def rms(sound):
    return numpy.sqrt(numpy.mean(numpy.square(sound)) + 1e-12)


# Crying

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
    track = numpy.zeros(length_of(seconds))
    is_crying = numpy.zeros(len(track), bool)
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
    at = numpy.linspace(0, 1, samples)
    peak = rng.uniform(0.1, 0.7)
    arch = numpy.where(at < peak, at / peak, (1 - at) / (1 - peak))
    if chance(rng, 0.2):  # a second arch
        arch = numpy.maximum(arch * 0.8, 0.8 - numpy.abs(at - rng.uniform(0.5, 0.9)) * 4)
    arch = numpy.sin(numpy.pi / 2 * arch)
    fall = rng.uniform(0, 0.25) * at ** 3
    pitch = baby.pitch * rng.uniform(0.92, 1.1) * (1 + baby.rise * rng.uniform(0.5, 1.4) * arch - fall)
    seconds = numpy.arange(samples) / RATE
    pitch *= 1 + baby.vibrato * numpy.sin(2 * numpy.pi * (baby.vibrato_hz * seconds + rng.random()))
    return pitch * (1 + baby.jitter * noise(rng, samples, band(1, 40)))


def rough_phase(rng, samples):
    """0 to 1: where in a burst the voice breaks."""
    centre, width = rng.uniform(0.1, 0.9), rng.uniform(0.15, 0.6)
    return (1.5 - numpy.abs(numpy.linspace(0, 1, samples) - centre) / width * 2).clip(0, 1)


def cry_burst(rng, baby):
    samples = length_of((baby.burst * rng.uniform(0.65, 1.35)))
    pitch = melody(rng, baby, samples)
    rough = rough_phase(rng, samples) if chance(rng, baby.hoarse) else numpy.zeros(samples)
    is_chaotic = chance(rng, 0.5)
    if is_chaotic:
        pitch = pitch * (1 + 0.05 * rough * noise(rng, samples, band(20, 300)))
    open_mouth = curve(rng, samples, 0.3, 0.9, 1.1) * baby.tract
    tract = resonances([(1100 * open_mouth, 280), (3000 * open_mouth, 500), (5000 * baby.tract, 900)], 0.08)
    tilt = slope(baby.tilt)
    sound = tones(pitch, lambda hz: tract(hz) * tilt(hz))
    if not is_chaotic:  # every second or third period is stronger
        period = rng.choice([2, 3])
        sound *= 1 + 0.8 * rough * numpy.cos(2 * numpy.pi * numpy.cumsum(pitch) / RATE / period)
    still = resonances([(1100 * baby.tract, 300), (3000 * baby.tract, 600), (5000 * baby.tract, 1200)], 0.1)
    sound = sound / rms(sound) + (baby.breath + 0.4 * rough) * noise(rng, samples, still)
    envelope = fade(samples, rng.uniform(0.02, 0.12), rng.uniform(0.05, 0.25))
    envelope *= curve(rng, samples, 0.15, 0.7, 1)
    if chance(rng, baby.sob):
        seconds = numpy.arange(samples) / RATE
        depth, hz = rng.uniform(0.3, 0.8), rng.uniform(6, 11)
        envelope *= 1 - depth * (0.5 + 0.5 * numpy.sin(2 * numpy.pi * hz * seconds))
    return sound * envelope


def inhalation(rng, baby):
    samples = length_of(rng.uniform(0.1, 0.3))
    sound = noise(rng, samples, resonances([(1500 * baby.tract, 500), (3500 * baby.tract, 900)], 0.1))
    if chance(rng, 0.25):  # voiced
        pitch = numpy.linspace(1.2, 1.7, samples) * baby.pitch
        sound = 0.5 * sound + tones(pitch, resonances([(1200 * baby.tract, 400)]), 8)
    return sound * rng.uniform(0.03, 0.2) * fade(samples, 0.05, 0.05)


# Voices

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
    return numpy.frombuffer(done.stdout[header:], numpy.int16) / 32768.0


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
    pitch, envelope = numpy.zeros(samples), numpy.zeros(samples)
    formants = numpy.zeros((3, samples))
    at = 0
    while at < samples:
        n = min(length_of(rng.choice([0.2, 0.3, 0.4, 0.6, 0.9]) * rng.uniform(0.95, 1.05)), samples - at)
        pitch[at:at + n] = key * 2 ** (rng.choice(SCALES[family]) / 12)
        formants[:, at:at + n] = numpy.array(VOWELS[family][rng.integers(3)])[:, None] * rng.uniform(1, 1.2)
        envelope[at:at + n] = 0 if chance(rng, 0.08) else rng.uniform(0.6, 1) * fade(n, 0.03, 0.05)
        at += n
    pitch = scipy.ndimage.uniform_filter1d(pitch, 640, mode="nearest")  # glides
    formants = scipy.ndimage.uniform_filter1d(formants, 1600, axis=1, mode="nearest")
    pitch *= 1 + vibrato * numpy.sin(2 * numpy.pi * vibrato_hz * numpy.arange(samples) / RATE)
    gain = resonances(list(zip(formants, (120, 150, 250))), 0.02)
    tilt = slope(rng.uniform(-9, -3))
    sound = tones(pitch, lambda hz: gain(hz) * tilt(hz), 40)
    return (sound / rms(sound) + rng.uniform(0, 0.05) * noise(rng, samples, slope(-3))) * envelope


def animal(low, high, glide, formants, duration, rough):
    """A maker of short calls: `glide` is the pitch over the call, a factor at equal steps of time."""
    def call(rng):
        samples = length_of(rng.uniform(*duration))
        at = numpy.linspace(0, len(glide) - 1, samples)
        pitch = rng.uniform(low, high) * numpy.interp(at, range(len(glide)), glide)
        pitch *= 1 + rough * 0.05 * noise(rng, samples, band(20, 200))
        bent = [(numpy.interp(at, numpy.linspace(0, len(glide) - 1, len(c)), c) * rng.uniform(0.9, 1.1), w)
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
        bark, pause = BARK[family](rng), numpy.zeros(length_of(rng.uniform(0.05, 0.3)))
        return numpy.concatenate([bark, pause] * rng.integers(1, 4))
    return repeat(rng, seconds, make, (0.2, 1.2))


def meows(rng, seconds, family):
    return repeat(rng, seconds, lambda: MEOW[family](rng), (0.7, 2.5))


# Music

def organ(rng, pitch, samples):
    weights = rng.uniform(0, 1, 8)
    at = numpy.arange(samples) / RATE
    sound = sum(w * numpy.sin(2 * numpy.pi * pitch * k * at)
                for k, w in enumerate(weights, 1) if k * pitch < 7800)
    return sound * fade(samples, 0.02, 0.06)


def plucked(rng, pitch, samples):
    at = numpy.arange(samples) / RATE
    decay = rng.uniform(2, 6)
    return sum(numpy.sin(2 * numpy.pi * pitch * k * at) * numpy.exp(-at * decay * (0.5 + 0.4 * k)) / k
               for k in range(1, 16) if k * pitch < 7800) * fade(samples, 0.004, 0.02)


def square_wave(rng, pitch, samples):
    sound = tones(numpy.full(samples, pitch), lambda hz: (numpy.round(hz / pitch) % 2) * pitch / hz, 30)
    return sound * fade(samples, 0.01, 0.03)


def strings(rng, pitch, samples):
    detuned = [tones(numpy.full(samples, pitch * d), lambda hz: (pitch / hz) ** 1.2, 20)
               for d in (0.996, 1.0, 1.005)]
    return sum(detuned) * fade(samples, 0.1, 0.1)


def bell(rng, pitch, samples):
    at = numpy.arange(samples) / RATE
    swing = numpy.sin(2 * numpy.pi * pitch * rng.choice([1.4, 2.0, 3.5]) * at)
    decay = rng.uniform(1.5, 5)
    return numpy.sin(2 * numpy.pi * pitch * at + 3 * numpy.exp(-at * 4) * swing) * numpy.exp(-at * decay)


def flute(rng, pitch, samples):
    vibrato = numpy.sin(2 * numpy.pi * 5 * numpy.arange(samples) / RATE)
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
    track = numpy.zeros(length_of(seconds))
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
            add(track, at, 2 * drum * numpy.exp(-numpy.linspace(0, 6, len(drum))))
        at += samples
    return track


# Alarms

def beeps(rng, seconds, hz, on, off, count=1, rest=0.0):
    """Groups of `count` beeps, `rest` seconds between the groups."""
    pitch = rng.uniform(*hz)
    on, off = rng.uniform(*on), rng.uniform(*off)
    weight = rng.uniform(-24, -3)

    def group():
        beep = tones(numpy.full(length_of(on), pitch), slope(weight), 8)
        beep = beep / rms(beep) * fade(len(beep), 0.005, 0.01)
        return numpy.concatenate([beep, numpy.zeros(length_of(off))] * count)
    return repeat(rng, seconds, group, (rest, rest + 0.01))


def sweep(rng, seconds, hz, turns_a_second, shape):
    low, high = sorted(rng.uniform(*hz, 2))
    at = numpy.arange(length_of(seconds)) / RATE * rng.uniform(*turns_a_second) + rng.random()
    position = {"wail": 0.5 - 0.5 * numpy.cos(2 * numpy.pi * at), "two tones": 1.0 * (at % 1 < 0.5),
                "saw": at % 1}[shape]
    weight = rng.uniform(-15, -3)
    return tones(low + (1.3 * high - low) * position, slope(weight), 12)


def ring(rng, seconds, hz, turns_a_second, on, off):
    """A telephone: two tones in turn, or at once and fluttering."""
    pitch = rng.uniform(*hz)
    turns, factor, rings = rng.uniform(*turns_a_second), rng.uniform(1.05, 1.35), rng.uniform(*on)

    def make():
        at = numpy.arange(length_of(rings)) / RATE
        sound = tones(pitch * numpy.where(at * turns % 1 < 0.5, 1, factor), slope(-6), 6)
        return sound * fade(len(sound), 0.01, 0.02)
    return repeat(rng, seconds, make, off)


def doorbell(rng, seconds):
    pitch = rng.uniform(400, 800)

    def make():
        return numpy.concatenate([bell(rng, p, length_of(0.7)) for p in (pitch, pitch * 0.8)])
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


# The home

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
        bubble = tones(numpy.linspace(1, 1.4, n) * rng.uniform(500, 2500), slope(-12), 2)
        add(track, at, 0.8 * rng.random() * bubble * numpy.exp(-numpy.linspace(0, 5, n)))
    return track


def struck(rng, low, high, decay, modes):
    """One knock on something with a few resonances."""
    n = length_of(6 / decay)
    at = numpy.arange(n) / RATE
    sound = numpy.zeros(n)
    for _ in range(modes):
        wave = rng.uniform(0.2, 1) * numpy.sin(2 * numpy.pi * rng.uniform(low, high) * at + rng.uniform(0, 6))
        sound += wave * numpy.exp(-at * decay * rng.uniform(0.6, 1.6))
    return sound + 0.5 * noise(rng, n) * numpy.exp(-at * decay * 5)


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
    swing = 1 + 0.8 * numpy.sin(2 * numpy.pi * rng.uniform(0.6, 2.5) * numpy.arange(samples) / RATE)
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
    return track + rng.uniform(0, 2) * tones(numpy.full(samples, mains * 1.0), slope(rng.uniform(-6, 0)), 12)


OTHERS = {"speech": speech, "singing": singing, "music": music, "alarm": alarm, "barks": barks,
          "meows": meows, "household": household, "hum": hum}


# From a source to the microphone

def room(rng, sound):
    """Echo of a small or large room."""
    if chance(rng, 0.25):
        return sound
    samples = length_of(rng.uniform(0.1, 0.5))
    decay = numpy.exp(-numpy.linspace(0, 6.9, samples))
    echo = noise(rng, samples, band(100, rng.uniform(2000, 7000))) * decay
    echo *= rng.uniform(0.1, 0.8) / numpy.sqrt(numpy.sum(echo ** 2))
    echo[0] = 1
    return scipy.signal.fftconvolve(sound, echo)[:len(sound)]


def record(rng, sound, decibels):
    """16-bit samples of that root mean square, in decibels below full scale; a microphone colours them."""
    knots = rng.uniform(-6, 6, 8)
    octaves = numpy.linspace(6, 13, 8)
    low, high = rng.uniform(40, 250), rng.uniform(4500, 9000)

    def gain(hz):
        decibels_at = numpy.interp(numpy.log2(numpy.maximum(hz, 1)), octaves, knots)
        return 10 ** (decibels_at / 20) * band(low, high)(hz)
    sound = filtered(sound, gain)
    scaled = sound / rms(sound) * 32768 * 10 ** (decibels / 20)
    return numpy.round(scaled + rng.normal(0, 2, len(scaled))).clip(-32768, 32767).astype(numpy.int16)
