# SPDX-License-Identifier: Apache-2.0
"""How many pictures and windows of sound a second examples/annotate_archive.py does, by workers and by the size of a chunk:

    PYTHONPATH=BUILD/python python3 bench/bench_archive.py --models BUILD/share/kelnn/models [--plot FILE.svg]

The fastest of three runs each, in turns; without the start of the workers, of which there are as many as processors at most.
"""
import argparse
import contextlib
import io
import os
import re
import sys
import tempfile
import timeit
from pathlib import Path
from typing import Any, Dict, List, Tuple

import kelnn
import numpy as np
import soundfile  # type: ignore[import]
from PIL import Image  # type: ignore[import]

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "examples"))
import annotate_archive  # noqa: E402

SCENES = [ROOT / "examples/pictures/scenes" / (name + ".jpg") for name in
          ("faces_1", "faces_2", "objects_1", "objects_2", "persons_landscape")]  # 640 x 360
CHUNKS = (1, 2, 4, 8, 16, 32, 64, 128)
Case = Tuple[str, str, int]  # the task, the archive, the size of a chunk


def make_archives(top: Path) -> None:
    """640: pictures of 640 x 360; 1080: the same as 1920 x 1080; empty: files without a picture; sound: an hour of it."""
    for name, count in (("640", 640), ("1080", 160), ("empty", 1000), ("sound", 0)):
        (top / name).mkdir()
        for number in range(count):
            path, scene = top / name / f"{number:04}.jpg", SCENES[number % len(SCENES)]
            if name == "640":
                path.symlink_to(scene)
            elif name == "empty":
                path.touch()
            elif number < len(SCENES):
                Image.open(scene).resize((1920, 1080), Image.BICUBIC).save(path, quality=90)
            else:
                path.symlink_to(top / name / f"{number % len(SCENES):04}.jpg")
    evening, rate = soundfile.read(ROOT / "examples/sounds/evening.flac", dtype="int16")
    soundfile.write(top / "sound" / "hour.flac", np.resize(evening, 3600 * rate), rate)


def rate_of(case: Case, top: Path, models: str, scheduler: str) -> float:
    """Items a second."""
    task, archive, chunk = case
    with tempfile.TemporaryDirectory(dir=top) as out, contextlib.redirect_stderr(io.StringIO()) as told:
        status = annotate_archive.main([task, str(top / archive), out, "--models", models, "--chunk", str(chunk),
                                        "--scheduler", scheduler])
    found = re.search(r"([\d.]+)/s", told.getvalue())
    if status or not found:
        sys.exit(told.getvalue())
    return float(found[1])


def milliseconds(call: Any) -> float:
    return min(timeit.repeat(call, number=5, repeat=5)) / 5 * 1e3


def print_steps(top: Path, models: str) -> None:
    """What a picture and a window take in one process without all that, on one processor."""
    processors = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(processors)})
    pictures = {size: (top / size / "0004.jpg").read_bytes() for size in ("640", "1080")}
    library = kelnn.Library(models)
    with kelnn.PersonDetector(library, (16, 9)) as persons:
        for size, data in pictures.items():
            frame = annotate_archive.pixels(Image.open(io.BytesIO(data)))
            decoding = milliseconds(lambda: annotate_archive.pixels(Image.open(io.BytesIO(data))))
            print(f"persons, {size}: decoding {decoding:.2f} ms, finding {milliseconds(lambda: persons.detect(frame)):.2f} ms")
    with kelnn.CryDetector(library) as cries, soundfile.SoundFile(top / "sound" / "hour.flac") as sound:
        def read() -> Any:
            sound.seek(0)
            return next(annotate_archive.windows(sound, 0, 1))

        window = read()
        print(f"cry: decoding {milliseconds(read):.2f} ms, hearing {milliseconds(lambda: cries.add(window)):.2f} ms")
    os.sched_setaffinity(0, processors)


def plot(path: Path, by_chunk: Dict[int, List[float]]) -> None:
    import matplotlib  # type: ignore[import]

    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "kelnn", "svg.fonttype": "none", "font.size": 9})
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(6, 3))
    for workers, rates in by_chunk.items():
        axes.plot(CHUNKS, rates, marker="o", label=f"{workers} worker{'s' if workers > 1 else ''}")
    axes.set_xscale("log", base=2)
    axes.set_xticks(CHUNKS, [str(size) for size in CHUNKS])
    axes.set_ylim(bottom=0)
    axes.set(xlabel="pictures in a chunk", ylabel="pictures a second")
    axes.grid(color="#ddd")
    axes.legend()
    figure.savefig(path, bbox_inches="tight", metadata={"Date": None})


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--models", default=kelnn.find_models(), help="the directory of models (default: %(default)s)")
    parser.add_argument("--plot", metavar="FILE.svg", type=Path, help="draw pictures a second by the size of a chunk")
    parser.add_argument("--rounds", type=int, default=3, help="runs of each (default: %(default)s)")
    options = parser.parse_args()
    cases: List[Case] = [("persons", "640", size) for size in CHUNKS] + [
        ("persons", "1080", 32), ("cry", "sound", 200), ("persons", "empty", 1), ("persons", "empty", 32)]
    all_workers = [1, 2, 4, 8, 16, 32, 64]
    all_workers = [number for number in all_workers if number <= (os.cpu_count() or 1)]
    best: Dict[Tuple[Case, int], float] = {}
    with tempfile.TemporaryDirectory() as directory:
        top = Path(directory)
        make_archives(top)
        print_steps(top, options.models)
        for workers in all_workers:
            with annotate_archive.cluster(workers) as client:
                for _ in range(options.rounds):
                    for case in cases:
                        rate = rate_of(case, top, options.models, client.scheduler_info()["address"])
                        best[case, workers] = max(rate, best.get((case, workers), 0))
    print(f"{'items a second':34}" + "".join(f"{workers:9}" for workers in all_workers) + "   workers")
    for case in cases:
        print("{}, {}, chunks of {}".format(*case).ljust(34) + "".join(f"{best[case, one]:9.0f}" for one in all_workers))
    if options.plot:
        plot(options.plot, {workers: [best[case, workers] for case in cases[:len(CHUNKS)]] for workers in all_workers})


if __name__ == "__main__":
    main()
