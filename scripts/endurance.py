#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Works for a long time and looks whether anything grows: scripts/endurance.py [--build build/gcc] [--short] [--plot FILE.svg]

All tasks a million frames, loaded and released between them; a day of sound in chunks of odd lengths; kelnn watch over a day of
looped video as fast as it goes; on the networks of the tests. Memory, descriptors and threads are sampled: none may be more in
the second half than in the first. What each pass found must be what the first one found. --short takes seconds.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
from collections.abc import Iterable
from pathlib import Path
from typing import IO, NamedTuple

WIDTH, HEIGHT, LOOP = 104, 64, 2400  # pixels, a quarter of the person network's, and frames of the video; whole periods of motion
NOISE = 1024  # KiB by which memory may differ


class Sample(NamedTuple):
    seconds: float
    memory: int  # KiB
    descriptors: int
    threads: int


class Run(NamedTuple):
    name: str
    samples: list[Sample]
    work: str


def sample(pid: int, since: float) -> Sample | None:
    try:
        pages = int(Path(f"/proc/{pid}/statm").read_text().split()[1])
        return Sample(time.monotonic() - since, pages * os.sysconf("SC_PAGE_SIZE") // 1024,
                      len(os.listdir(f"/proc/{pid}/fd")), len(os.listdir(f"/proc/{pid}/task")))
    except (OSError, IndexError):
        return None


def loop_video(pipe: IO[bytes], loops: int) -> None:
    """NV12: a still scene of noise through which something green goes, which the networks of the tests take for a person."""
    noise = bytes(60 + (i * i >> 7) % 10 for i in range(WIDTH))
    frames = []
    for number in range(LOOP):
        row, colours = bytearray(noise), bytearray(b"\x80" * WIDTH)
        if 300 <= number < 340:
            left = 2 * (number - 300) + 6
            row[left:left + 12] = b"\x91" * 12
            colours[left:left + 12] = b"\x36\x22" * 6
        frames.append(noise * 18 + bytes(row) * 20 + noise * (HEIGHT - 38) +
                      (b"\x80" * WIDTH * 9 + bytes(colours) * 10 + b"\x80" * WIDTH * (HEIGHT // 2 - 19)))
    loop = b"".join(frames)
    with pipe:
        for _ in range(loops):
            pipe.write(loop)


def passes_of_watch(text: IO[bytes]) -> Iterable[str]:
    """What was said of each loop, in words that do not depend on which it was."""
    said: list[str] = []
    loop = 0
    for line in text:
        result = json.loads(line)
        if result["frame"] // LOOP != loop:
            loop = result["frame"] // LOOP
            yield "".join(said)
            said = []
        result["frame"] %= LOOP
        del result["time"]
        for thing in (result, *result.get("boxes", ())):  # which go on counting
            thing.pop("track", None)
            thing.pop("dwell", None)
            thing.pop("clip", None)
        said.append(json.dumps(result))
    yield "".join(said)


def watched_run(name: str, command: list[str], work: str, loops: int = 0) -> Run:
    """Runs it, and ends the program if a pass differs from the first or anything has grown."""
    with tempfile.TemporaryFile() as said:
        process = subprocess.Popen(command, stdin=subprocess.PIPE if loops else subprocess.DEVNULL,
                                   stdout=subprocess.PIPE if loops else subprocess.DEVNULL,
                                   stderr=said if loops else subprocess.PIPE)
        if loops:
            threading.Thread(target=loop_video, args=(process.stdin, loops), daemon=True).start()
        samples: list[Sample] = []
        since = time.monotonic()

        def look() -> None:
            while found := sample(process.pid, since):
                samples.append(found)
                if len(samples) >= 4000:  # twice as seldom
                    del samples[::2]
                time.sleep(max(0.02, (time.monotonic() - since) / 2000))

        watcher = threading.Thread(target=look, daemon=True)
        watcher.start()
        passes = passes_of_watch(process.stdout) if loops else (line.split(maxsplit=1)[1].decode() for line in process.stderr)
        first = None
        count = 0
        for found in passes:
            count += 1
            first = first or found
            if found != first:
                sys.exit(f"{name}: pass {count} found something else than the first:\n{found}\n{first}")
        if process.wait() != 0 or not first:
            said.seek(0)
            sys.exit(f"{name} ended with {process.returncode} after {count} passes: {said.read().decode()}")
    samples = [s for s in samples if s.memory > 0]
    warm = samples[len(samples) // 10:]
    early, late = warm[:len(warm) // 2], warm[len(warm) // 2:]
    # A model that is just being read has a descriptor, an event that is given to a command has two.
    for what, measure, allowed in (("memory", max, NOISE), ("descriptors", min, 0), ("threads", min, 0)):
        before, after = (measure(getattr(s, what) for s in half) for half in (early, late))
        if after > before + allowed:
            sys.exit(f"{name}: {what} grew from {before} to {after}")
    top = max(samples, key=lambda s: s.memory)
    print(f"{name}: {work}, {count} passes alike, {samples[-1].seconds:.0f} s; at most {top.memory / 1024:.1f} MiB, "
          f"{max(s.descriptors for s in warm)} descriptors, {max(s.threads for s in warm)} threads", flush=True)
    return Run(name, samples, work)


def plot(runs: list[Run], path: Path) -> None:
    """A panel for each run: memory over the time that it took."""
    panels = []
    for number, run in enumerate(runs):
        end, most = run.samples[-1].seconds, 1.25 * max(s.memory for s in run.samples)
        step = max(1, len(run.samples) // 300)
        points = " ".join(f"{300 * s.seconds / end:.1f},{120 - 100 * s.memory / most:.1f}" for s in run.samples[::step])
        last = run.samples[-len(run.samples) // 10:][0]
        panels.append(
            f'<g transform="translate({20 + 320 * number},30)"><text y="-8" font-weight="bold">{run.name}: {run.work}</text>'
            f'<path d="M0,0V120H300" fill="none" stroke="#888"/><polyline points="{points}" fill="none" stroke="#06c"/>'
            f'<text x="4" y="12">{most / 1024:.0f} MiB</text>'
            f'<text x="296" y="114" text-anchor="end">{last.descriptors} descriptors, {last.threads} threads</text>'
            f'<text x="296" y="134" text-anchor="end">{end / 60:.0f} min</text></g>')
    path.write_text(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {20 + 320 * len(runs)} 180" font-family="sans-serif" '
                    f'font-size="11"><rect width="100%" height="100%" fill="#fff"/>{"".join(panels)}</svg>\n')


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=Path("build/gcc"))
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--plot", type=Path, help="where to draw memory over time")
    arguments = parser.parse_args()
    # Frames shown to each of seven tasks in a pass, and an eighth of that to the network of face features.
    shown, passes, hours, loops = (40, 12, 2, 42) if arguments.short else (400, 351, 24, 360)
    program, models = arguments.build / "tests" / "kelnn_endurance", arguments.build / "tests" / "models"
    frames = passes * (7 * shown + shown // 8)
    plot_of = [
        watched_run("Tasks", [str(program), str(models), "frames", str(passes), str(shown)], f"{frames:,} frames"),
        watched_run("Cry detection", [str(program), str(models), "sound", str(hours)], f"{hours} hours of sound"),
    ]
    with tempfile.TemporaryDirectory() as clips:
        watch = [str(arguments.build / "tools" / "kelnn"), "watch", "--raw", f"nv12:{WIDTH}x{HEIGHT}@10", "-", "--json", "--root", str(models),
                 "--clips", clips, "--clips-limit", "1", "--on-event", "cat >&2"]
        plot_of.append(watched_run("kelnn watch", watch, f"{loops * LOOP:,} frames", loops))
    if arguments.plot:
        plot(plot_of, arguments.plot)


if __name__ == "__main__":
    main()
