# SPDX-License-Identifier: Apache-2.0
"""Labelled windows of 3 s for the cry detector: FLAC files and labels.csv.

    models/cry_detection/data.py DIR [--seed N] [--count N] [--training]

Without --training the held-out set: other seeds, other voices, languages and texts, other instruments, alarms
and noises. A window is a cry (1) when crying is heard in it for at least half a second and nothing else in it
is louder on average; it is none (0) when there is no crying at all. Windows in between are not made.
"""
import argparse
import csv
import os
import sys

import numpy
import soundfile

from models.sources.sounds import sounds

WINDOW = 3 * sounds.RATE
LEAST_CRYING = sounds.RATE // 2  # samples
SHARES = {"cry": 0.42, "speech": 0.21, "singing": 0.06, "music": 0.08, "alarm": 0.07, "barks": 0.04,
          "meows": 0.03, "household": 0.07, "hum": 0.02}
KINDS = list(SHARES)


class Sources:
    """Cuts windows out of a few long tracks of each kind, which wear out and are replaced."""
    TRACKS = 6
    SECONDS = 15.0
    CUTS = 10  # of a track, on average

    def __init__(self, rng, family):
        self.rng = rng
        self.family = family
        self.tracks = {kind: [] for kind in KINDS}

    def cut(self, kind):
        """Samples, and where in them there is crying."""
        tracks = self.tracks[kind]
        if len(tracks) < self.TRACKS:
            tracks.append(self.make(kind))
        elif sounds.chance(self.rng, 1 / self.CUTS):
            tracks[self.rng.integers(len(tracks))] = self.make(kind)
        sound, is_crying = tracks[self.rng.integers(len(tracks))]
        at = self.rng.integers(0, len(sound) - WINDOW)
        return sound[at:at + WINDOW], is_crying[at:at + WINDOW]

    def make(self, kind):
        if kind == "cry":
            return sounds.cry(self.rng, self.SECONDS)
        sound = sounds.OTHERS[kind](self.rng, self.SECONDS, self.family)
        return sound, numpy.zeros(len(sound), bool)

    def cut_audible(self, kind):
        """The same, of root mean square 1 while there is sound; of crying, enough."""
        while True:
            sound, is_crying = self.cut(kind)
            if kind == "cry":
                if is_crying.sum() >= LEAST_CRYING:
                    return self.shorten(sound, is_crying)
            elif sounds.rms(sound) > 0.05:
                return sound / sounds.rms(sound)

    def shorten(self, sound, is_crying):
        """Now and then the crying begins or ends in the window."""
        if sounds.chance(self.rng, 0.3):
            heard = numpy.cumsum(is_crying)
            if sounds.chance(self.rng, 0.5):
                heard = heard[-1] - heard
            edge = self.rng.integers(LEAST_CRYING, heard.max() + 1)
            kept = heard <= edge
            sound, is_crying = sound * kept, is_crying & kept
        return sound / sounds.rms(sound[is_crying])


def window(rng, sources):
    """One recording: samples, kind."""
    kind = str(rng.choice(KINDS, p=list(SHARES.values())))
    sound = sounds.room(rng, sources.cut_audible(kind))
    for _ in range(rng.integers(0, 3)):
        other = str(rng.choice(KINDS[1:]))
        # Next to a cry nothing is louder; otherwise anything may be.
        decibels = rng.uniform(-35, 0) if kind == "cry" else rng.uniform(-30, 6)
        sound = sound + 10 ** (decibels / 20) * sounds.room(rng, sources.cut_audible(other))
    quietest = -60 if kind == "hum" else -48 if kind != "cry" else -42
    floor = sounds.noise(rng, WINDOW, sounds.slope(rng.uniform(-6, 1))) * 10 ** (rng.uniform(-60, -15) / 20)
    return sounds.record(rng, sound + floor, rng.uniform(quietest, -10)), kind


def windows(seed, count, family):
    rng = numpy.random.default_rng([seed, family == sounds.HELD_OUT])
    sources = Sources(rng, family)
    for _ in range(count):
        yield window(rng, sources)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("directory")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=2000, help="of windows")
    parser.add_argument("--training", action="store_true", help="the training set's voices and families")
    options = parser.parse_args()
    os.makedirs(options.directory, exist_ok=True)
    family = sounds.TRAINING if options.training else sounds.HELD_OUT
    with open(os.path.join(options.directory, "labels.csv"), "w", newline="") as table:
        rows = csv.writer(table, lineterminator="\n")
        rows.writerow(["file", "cry", "kind"])
        for i, (pcm, kind) in enumerate(windows(options.seed, options.count, family)):
            name = "%05d_%s.flac" % (i, kind)
            soundfile.write(os.path.join(options.directory, name), pcm, sounds.RATE)
            rows.writerow([name, int(kind == "cry"), kind])


if __name__ == "__main__":
    main()
