# SPDX-License-Identifier: Apache-2.0
"""examples/annotate_archive.py: tells what `kelnn` tells (KEL_NN_TEST_TOOL), each exactly once, whatever ends on the way."""
import contextlib
import json
import os
import shutil
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List

import annotate_archive
import distributed
import numpy as np
import psutil  # type: ignore[import]
import pytest
import soundfile  # type: ignore[import]
from conftest import EXAMPLES
from PIL import Image  # type: ignore[import]

SCENES = sorted((EXAMPLES / "pictures" / "scenes").glob("*.jpg"))
Annotate = Callable[..., int]


@pytest.fixture(scope="module")
def annotate(models: str) -> Iterator[Annotate]:
    """The program, with workers that stay."""
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster:
        yield lambda task, archive, out, *more: annotate_archive.main(
            [task, str(archive), str(out), "--models", models, "--scheduler", cluster.scheduler_address, *more])


def told(task: str, archive: Path, models: str) -> List[str]:
    """What the command line tells of all files."""
    names = sorted(str(path.relative_to(archive)) for path in archive.rglob("*.*"))
    command = [os.environ["KEL_NN_TEST_TOOL"], task, "--root", models, "--json", *names]
    return subprocess.run(command, cwd=archive, capture_output=True, text=True).stdout.splitlines()


def results(out: Path) -> List[str]:
    """Lines, which are the rows of the database."""
    lines = (out / "results.jsonl").read_text(encoding="utf-8").splitlines()
    with contextlib.closing(sqlite3.connect(out / "results.sqlite")) as database:
        assert [line for line, in database.execute("SELECT line FROM result ORDER BY path, item")] == lines
    return lines


def split(lines: List[str]) -> Dict[bool, List[Any]]:
    """Results, and the files with an error."""
    found = [json.loads(line) for line in lines]
    return {False: [line for line, one in zip(lines, found) if "error" not in one],
            True: [(one["input"], one["error"]) for one in found if "error" in one]}


@pytest.mark.parametrize("task", ["faces", "persons", "objects"])
def test_pictures(task: str, annotate: Annotate, models: str, tmp_path: Path) -> None:
    archive = tmp_path / "archive"
    (archive / "b" / "ü").mkdir(parents=True)
    for number, path in enumerate(SCENES):
        shutil.copy(path, archive / ("b/ü" if number % 2 else ".") / path.name)
    scene = Image.open(SCENES[4])
    turned = Image.Exif()
    turned[0x0112] = 6
    scene.rotate(90, expand=True).save(archive / "turned.jpg", exif=turned)
    scene.convert("L").save(archive / "grey.jpg")
    scene.convert("P").save(archive / "palette.png")
    scene.convert("RGBA").save(archive / "b" / "clear.PNG")
    Image.fromarray(np.asarray(scene.convert("L")).astype(np.uint16) * 257).save(archive / "b" / "16_bits.png")
    (archive / "cut_off.jpg").write_bytes(SCENES[0].read_bytes()[:9000])
    (archive / "none.png").write_text("nothing")
    (archive / ".hidden.jpg").write_text("nothing")
    Image.new("RGB", (5, 1)).save(archive / "small.png")

    assert annotate(task, archive, tmp_path / "out", "--chunk", "5") == 0
    ours = split(results(tmp_path / "out"))
    assert ours[False] == told(task, archive, models)
    assert len(ours[False]) >= len(SCENES) + 5
    assert ("none.png", "not a picture that can be read") in ours[True]
    assert {name for name, _ in ours[True]} >= {"cut_off.jpg", "none.png"}


def test_sounds(annotate: Annotate, models: str, tmp_path: Path) -> None:
    archive = tmp_path / "archive"
    archive.mkdir()
    samples, rate = soundfile.read(EXAMPLES / "sounds" / "evening.flac", dtype="int16")
    samples = np.append(samples, samples[:24000])  # and a half second left over
    three = np.stack([samples, samples[::-1], samples // 2], axis=1)
    for name, data, its_rate in [("whole.flac", samples, rate), ("three.wav", three, rate), ("fast.wav", three, 44100),
                                 ("slow.flac", samples[:200000], 8000)]:
        soundfile.write(archive / name, data, its_rate)
    with soundfile.SoundFile(archive / "lossy.ogg", "w", rate, 1) as lossy:
        for part in np.array_split(samples, 50):
            lossy.write(part)
    whole = bytearray((archive / "whole.flac").read_bytes())
    (archive / "cut_off.flac").write_bytes(whole[:len(whole) // 2])
    (archive / "none.wav").write_text("nothing")

    assert annotate("cry", archive, tmp_path / "out", "--chunk", "2") == 0
    ours = split(results(tmp_path / "out"))
    assert ours[False] == told("cry", archive, models) and len(ours[False]) > 4 * 11
    assert {name for name, _ in ours[True]} == {"cut_off.flac", "none.wav"}
    whole[21:26] = whole[21] & 0xf0, 0, 0, 0, 0  # of unknown length
    (archive / "cut_off.flac").write_bytes(whole)
    assert annotate("cry", archive, tmp_path / "out") == 0
    assert [name for name, error in split(results(tmp_path / "out"))[True] if "how long" in error] == ["cut_off.flac"]


def many(archive: Path, count: int) -> List[str]:
    archive.mkdir()
    names = [f"{number:03}-{path.name}" for number in range(count) for path in SCENES]
    for number, name in enumerate(names):
        (archive / name).symlink_to(SCENES[number % len(SCENES)])
    return sorted(names)


def test_whoever_is_killed(annotate: Annotate, models: str, tmp_path: Path) -> None:
    """A worker, then the program; the next is stopped by Ctrl-C, the last does what is left."""
    archive, out = tmp_path / "archive", tmp_path / "out"
    names = many(archive, 40)
    command = [sys.executable, annotate_archive.__file__, "faces", str(archive), str(out), "--models", models,
               "--workers", "2", "--chunk", "2"]

    def done() -> int:
        with contextlib.suppress(sqlite3.OperationalError):  # it is not there, or empty
            with contextlib.closing(sqlite3.connect(f"file:{out}/results.sqlite?mode=ro", uri=True)) as database:
                return int(database.execute("SELECT count(*) FROM result").fetchone()[0])
        return 0

    def wait_for(count: int) -> None:
        while done() < count:
            assert program.poll() is None
            time.sleep(0.02)

    program = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    wait_for(6)
    workers = [child for child in psutil.Process(program.pid).children() if "spawn_main" in " ".join(child.cmdline())]
    assert len(workers) == 2
    workers[0].suspend()  # with a chunk that it has begun or has before it, since there are more
    before = done()
    assert before < len(names) - 30
    workers[0].kill()
    wait_for(before + 30)
    program.kill()
    program.wait()
    psutil.wait_procs(workers, timeout=60)
    after_kill = done()
    assert before + 30 <= after_kill < len(names) and not (out / "results.jsonl").exists()

    program = subprocess.Popen(command, stderr=subprocess.PIPE, text=True, start_new_session=True)
    wait_for(after_kill + 30)
    os.killpg(program.pid, signal.SIGINT)
    _, errors = program.communicate()
    assert program.returncode == 130 and "Traceback" not in errors and "goes on from here" in errors
    assert after_kill + 30 <= len(results(out)) < len(names)

    assert annotate("faces", archive, out) == 0
    lines = results(out)
    assert [json.loads(line)["input"] for line in lines] == names
    assert lines == told("faces", archive, models)
