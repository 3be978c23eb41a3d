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
    with annotate_archive.cluster(2) as client:
        yield lambda task, archive, out, *more: annotate_archive.main(
            [task, str(archive), str(out), "--models", models, "--scheduler", client.scheduler_info()["address"], *more])


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


def test_later_runs(annotate: Annotate, models: str, tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    archive, out = tmp_path / "archive", tmp_path / "out"
    names = many(archive, 1)
    broken, new, gone, changed = (archive / name for name in ("broken.jpg", "new.jpg", names[0], names[1]))
    good = SCENES[0].read_bytes()
    broken.write_bytes(good[:9000] + bytes(len(good) - 9000))
    status = broken.stat()
    assert annotate("persons", archive, out) == 0
    first = results(out)
    assert [name for name, _ in split(first)[True]] == ["broken.jpg"]

    # The same again; then what is new or changed, and no more: what cannot be seen from outside is not looked for.
    assert annotate("persons", archive, out) == 0 and results(out) == first
    broken.write_bytes(good)
    os.utime(broken, ns=(status.st_atime_ns, status.st_mtime_ns))
    shutil.copy(SCENES[4], new)
    gone.unlink()
    changed.unlink()
    shutil.copy(SCENES[5], changed)
    capsys.readouterr()
    assert annotate("persons", archive, out) == 0
    assert "2 of 2 pictures done" in (shown := capsys.readouterr().err) and "1 of files that are not there now" in shown
    assert [name for name, _ in split(results(out))[True]] == ["broken.jpg"]
    assert annotate("persons", archive, out, "--retry-errors") == 0
    assert [line for line in results(out) if json.loads(line)["input"] != gone.name] == told("persons", archive, models)

    # What cannot go on here.
    others = tmp_path / "models"
    shutil.copytree(models, others)
    (name, _), *_ = annotate_archive.digests("persons", models)
    with open(others / name, "ab") as model:
        model.write(b"?")
    for arguments, words in [(("persons", archive, out, "--models", str(others)), "of other models"),
                             (("faces", archive, out), "of another task"),
                             (("faces", archive, tmp_path / "none", "--models", str(archive)), "no model for faces")]:
        assert annotate(*arguments) == 1 and words in capsys.readouterr().err
    with annotate_archive.claimed(out):
        assert annotate("persons", archive, out) == 1 and "another process" in capsys.readouterr().err
    job = annotate_archive.Job("persons", str(archive), models, annotate_archive.digests("persons", str(others)))
    with pytest.raises(annotate_archive.Failure, match="other models"):
        annotate_archive.annotate(job, [])
    with pytest.raises(annotate_archive.Failure, match="no directory"):
        annotate_archive.annotate(job._replace(archive=str(tmp_path / "unmounted")), [])
    with pytest.raises(SystemExit) as wrong:
        annotate("persons", archive, out, "--chunk", "0")
    assert wrong.value.code == 2


def test_models_are_those_of_the_command_line(models: str) -> None:
    command = [os.environ["KEL_NN_TEST_TOOL"], "models", "--json"]
    listed = {one["task"]: one["file"] for one in json.loads(subprocess.run(command, capture_output=True).stdout)["tasks"]}
    keys = {"faces": "face-detection", "persons": "person-detection", "objects": "four-class-detection", "cry": "cry-detection"}
    for task, key in keys.items():
        assert set(annotate_archive.TASKS[task].models) == {file for name, file in listed.items() if name.startswith(key)}


def test_what_ends_its_worker(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    """It is told from what was in a chunk with it, and does not hold up the rest."""
    def annotate(_: annotate_archive.Job, chunk: annotate_archive.Chunk) -> List[str]:
        if any(span.file.path == "e" for span in chunk):
            raise ConnectionResetError  # stands for the scheduler's word, which needs a worker to be dead
        return [json.dumps({"input": span.file.path}) for span in chunk]

    monkeypatch.setattr(annotate_archive, "annotate", annotate)
    monkeypatch.setattr(distributed, "KilledWorker", ConnectionResetError)
    spans = [annotate_archive.Span(annotate_archive.File(name, 1, 2), 0, 1, True) for name in "abcdefgh"]
    job = annotate_archive.Job("faces", str(tmp_path), "", ())
    with contextlib.closing(annotate_archive.Store(tmp_path, "faces", ())) as store:
        with distributed.Client(processes=False, n_workers=1, threads_per_worker=1, dashboard_address="127.0.0.1:0") as client:
            annotate_archive.work(client, job, annotate_archive.chunks(spans, 3), store, annotate_archive.Progress(8, ""))
        store.export()
    found = split(results(tmp_path))
    assert len(found[False]) == 7 and found[True] == [("e", "ends the worker that reads it")]


def many(archive: Path, count: int) -> List[str]:
    archive.mkdir()
    names = [f"{number:03}-{path.name}" for number in range(count) for path in SCENES]
    for number, name in enumerate(names):
        (archive / name).symlink_to(SCENES[number % len(SCENES)])
    return sorted(names)


def test_whoever_is_killed(annotate: Annotate, models: str, tmp_path: Path, request: pytest.FixtureRequest) -> None:
    """A worker, then the program; the next is stopped by Ctrl-C, the last does what is left. One picture is a pipe for as long
    as none of them is to come to its end.
    """
    archive, out = tmp_path / "archive", tmp_path / "out"
    names = many(archive, 8)
    stuck = archive / names[len(names) // 2]
    stuck.unlink()
    os.mkfifo(stuck)
    command = [sys.executable, annotate_archive.__file__, "faces", str(archive), str(out), "--models", models,
               "--workers", "2", "--chunk", "1"]

    def start(**more: Any) -> "subprocess.Popen[str]":
        started = subprocess.Popen(command, text=True, **more)
        request.addfinalizer(started.kill)  # where the test fails
        return started

    def eventually(what: Callable[[], Any]) -> Any:
        while not (found := what()):
            assert program.poll() is None
            time.sleep(0.05)
        return found

    def done() -> int:
        with contextlib.closing(sqlite3.connect(f"file:{out}/results.sqlite?mode=ro", uri=True)) as database:
            return int(database.execute("SELECT count(*) FROM result").fetchone()[0])

    def reader(but: int = 0) -> Any:
        """The worker that is at the pipe."""
        for worker in psutil.Process(program.pid).children():
            with contextlib.suppress(OSError):
                if worker.pid != but and str(stuck) in (os.readlink(link) for link in Path(f"/proc/{worker.pid}/fd").iterdir()):
                    return worker
        return None

    def at_the_pipe() -> int:
        with contextlib.suppress(OSError):  # nobody reads yet
            return os.open(stuck, os.O_WRONLY | os.O_NONBLOCK)
        return 0

    program = start(stderr=subprocess.DEVNULL)
    pipe = eventually(at_the_pipe)
    first = eventually(reader)
    eventually(lambda: done() > 5)
    first.kill()
    eventually(lambda: reader(but=first.pid))  # its work has gone to another one
    workers = psutil.Process(program.pid).children()
    program.kill()
    program.wait()
    psutil.wait_procs(workers, timeout=60)
    os.close(pipe)
    before = done()
    assert 5 < before < len(names) and not (out / "results.jsonl").exists()

    program = start(stderr=subprocess.PIPE, start_new_session=True)
    pipe = eventually(at_the_pipe)
    os.killpg(program.pid, signal.SIGINT)
    _, errors = program.communicate()
    os.close(pipe)
    assert program.returncode == 130 and "Traceback" not in errors and "goes on from here" in errors, errors
    assert before <= len(results(out)) < len(names)

    stuck.unlink()
    stuck.symlink_to(SCENES[0])
    assert annotate("faces", archive, out) == 0
    lines = results(out)
    assert [json.loads(line)["input"] for line in lines] == names
    assert lines == told("faces", archive, models)
