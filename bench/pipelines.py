#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Whole pipelines, start-up included: kelnn beside bench/plain_pipelines.py, in turn, on one sitting's machine.

    bench/pipelines.py [--kelnn build/gcc/tools/kelnn] [--runs 9] [persons motion cry]

A Markdown table of medians: seconds by the clock, seconds of processor time (user and system, all threads), and the ratios
pair by pair. Below 1: kelnn is faster. On a machine with other work the processor's are worth more. Exit status 1 where the
two do not find the same.
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import soundfile

ROOT = Path(__file__).resolve().parents[1]
PLAIN = ["/usr/bin/python3", str(ROOT / "bench/plain_pipelines.py")]
SECONDS = 3600  # of sound
# What both print, as numbers, and how far they may be apart: pixels, and scores of other roundings.
NUMBERS = {"x": 1, "y": 1, "w": 1, "h": 1, "score": 1e-3, "probability": 1e-3, "changed": 1e-9, "changed_max": 1e-9,
           "motion": 0, "frame": 0, "window": 0}


def measured(command: list[str]) -> tuple[float, float, str]:
    """Seconds by the clock and of processor time, and what it printed."""
    with tempfile.TemporaryFile("w+") as out:
        begin = time.monotonic()
        process = subprocess.Popen(command, stdout=out)
        _, status, usage = os.wait4(process.pid, 0)
        clock = time.monotonic() - begin
        if status:
            sys.exit(f"failed: {' '.join(command)}")
        out.seek(0)
        return clock, usage.ru_utime + usage.ru_stime, out.read()


def difference(ours: object, theirs: object, name: str = "") -> str:
    """Where they differ by more than they may; nothing: nowhere."""
    if isinstance(theirs, dict) and isinstance(ours, dict):
        return next(filter(None, (difference(ours.get(key), value, key) for key, value in theirs.items())), "")
    if isinstance(theirs, list) and isinstance(ours, list):
        if len(ours) != len(theirs):
            return f"{name or 'lines'}: {len(ours)} and {len(theirs)}"
        return next(filter(None, (difference(*pair, name) for pair in zip(ours, theirs))), "")
    is_near = isinstance(ours, (int, float)) and isinstance(theirs, (int, float)) and abs(ours - theirs) <= NUMBERS[name]
    return "" if is_near else f"{name}: {ours} and {theirs}"


def lines(text: str) -> list[dict]:
    return [json.loads(line) for line in text.splitlines()]


def write_sound(path: Path) -> None:
    parts = [soundfile.read(ROOT / f"examples/sounds/{name}.flac", dtype="int16")[0]
             for name in ("evening", "cry", "speech")]
    soundfile.write(path, np.resize(np.concatenate(parts), SECONDS * 16000), 16000)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("pipelines", nargs="*", default=["persons", "motion", "cry"], help="persons, motion, cry")
    parser.add_argument("--kelnn", default=str(ROOT / "build/gcc/tools/kelnn"))
    parser.add_argument("--runs", type=int, default=9, help="of each (default: 9), after one that does not count")
    options = parser.parse_args()
    video, ok = str(ROOT / "examples/videos/visitor.avi"), True
    print("| pipeline | kelnn | Python | of it | kelnn, processor | Python, processor | of it |")
    print("| --- | ---: | ---: | ---: | ---: | ---: | ---: |")
    with tempfile.TemporaryDirectory() as place:
        sound = str(Path(place) / "hour.wav")
        if "cry" in options.pipelines:
            write_sound(Path(sound))
        inputs = {"persons": [str(ROOT / "models/person_detection/landscape.onnx"), video], "motion": [video],
                  "cry": [str(ROOT / "models/cry_detection/network.onnx"), sound]}
        for name in options.pipelines:
            pairs = []
            for _ in range(options.runs + 1):
                ours = measured([options.kelnn, name, inputs[name][-1], "--json"])
                theirs = measured([*PLAIN, name, *inputs[name]])
                pairs.append((ours, theirs))
            if problem := difference(lines(ours[2]), lines(theirs[2])):
                print(f"{name}: the two do not find the same: {problem}", file=sys.stderr)
                ok = False
            cells = []
            for kind in (0, 1):
                columns = [[pair[who][kind] for pair in pairs[1:]] for who in (0, 1)]
                ratios = [a / b for a, b in zip(*columns)]
                cells += [f"{statistics.median(columns[0]):.3f} s", f"{statistics.median(columns[1]):.3f} s",
                          f"{statistics.median(ratios):.2f}"]
            print(f"| {name} | {' | '.join(cells)} |", flush=True)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
