# SPDX-License-Identifier: Apache-2.0
"""Annotates an archive on many processors or machines: what `kelnn faces`, `persons`, `objects` or `cry` tells of each
picture, or of each 3 seconds of each sound, below a directory.

    annotate_archive.py persons PICTURES OUT                                 # here, a process for each processor
    annotate_archive.py cry SOUNDS OUT --scheduler tcp://HOST:8786           # on the workers of that scheduler

OUT/results.sqlite has a row, and OUT/results.jsonl a line, for each picture and each window of sound: what `kelnn` prints of
it with --json, or an "error" that says why there is nothing to tell. The same command, given again after whatever ended it,
goes on where it stopped; when all is done, it does what is new or changed.
"""
import argparse
import contextlib
import ctypes
import fcntl
import functools
import hashlib
import io
import itertools
import json
import os
import signal
import socket
import sqlite3
import sys
import threading
import time
from concurrent.futures import CancelledError
from pathlib import Path
from types import FrameType
from typing import Any, Callable, Dict, Iterable, Iterator, List, NamedTuple, Optional, Tuple

import dask
import distributed
import kelnn
import numpy as np
import soundfile  # type: ignore[import]
from numpy.typing import NDArray
from PIL import Image, ImageOps, UnidentifiedImageError  # type: ignore[import]

PICTURES = (".bmp", ".gif", ".jpe", ".jpeg", ".jpg", ".pbm", ".pgm", ".png", ".pnm", ".ppm", ".tif", ".tiff", ".webp")
SOUNDS = (".aif", ".aiff", ".au", ".caf", ".flac", ".mp3", ".oga", ".ogg", ".opus", ".w64", ".wav")
AHEAD = 1000  # chunks that are given out and not done: some for each of several hundred workers
EXIF_ORIENTATION = 0x0112
UNKNOWN_LENGTH = 2**63 - 1


class Task(NamedTuple):
    open: Callable[[kelnn.Library], Any]
    suffixes: Tuple[str, ...]
    name_of: str  # a thing, by its class's number
    chunk: int  # items that are worth a trip to a worker: a second or less
    models: Tuple[str, ...]  # what `kelnn models` calls the files that it opens


TASKS = {
    "faces": Task(kelnn.FaceDetector, PICTURES, "face", 32, ("EVPwGdE421zuqAOqhFFORdPijmJe4ztqqLciSD.bin",)),
    "persons": Task(lambda library: kelnn.PersonDetector(library, (16, 9)), PICTURES, "person", 32, (
        "FaN2sHdQKTn6L3Z1zBV8bHP9lfFRrvCuZjWqIElGvJdrh6XoDbvcIDWJPsHidFREJsTGzkUrNWCyEP.bin",
        "9WyVYM3yAIK6Af61MaQy6E75Ez3TGa5mNM8DP5TbfXm0FsAxV5C2tQ3arcxuqsjCa7.bin",
        "6bBkDjMEgUbm2gKtl1Vd1pXkfRzfaFLTGuGtizrl62pC8PgGX0tJtH7gkVuaxVfaKp.bin")),
    "objects": Task(lambda library: kelnn.ObjectDetector(library, (16, 9)), PICTURES, "class {}", 32, (
        "OeHcpHvOgsF4QOq8GRjGrPi48Cp69mYXD8Q3qID8tQyIZeY1Hxwq9XUc72EJG0EQsA9YSyz2E29.bin",
        "7w1JCoDJrDyF8cxqtHBmlc25tAgJqpQGArjwFfVzK0rks6Sb6Qz3tzQdkKuvXT6WCgHj649M41l.bin",
        "O6AKSDGejHSVTkg4xJ1qZHaAxa5oiNnuDl1TLLtt4Wb7IwF1Lem2kI2wno9PicpmQ9RR6d8JLko.bin")),
    "cry": Task(kelnn.CryDetector, SOUNDS, "", 200, ("C8649fbD3ZJ4uQmKPMeL7Z1VMGBZdIrKeiAcIa4eaD0TIZALrtblMV.bin",)),
}


class File(NamedTuple):
    path: str  # below the archive
    size: int
    mtime_ns: int


class Span(NamedTuple):
    """Items of a file that are next to each other. A picture is item 0 of its file; windows of a sound have their numbers."""
    file: File
    first: int
    end: int  # one after the last
    is_cut: bool  # into parts, if need be


Chunk = List[Span]


class Job(NamedTuple):
    """What a worker has to know beside its chunk."""
    task: str
    archive: str
    models: str
    digests: Tuple[Tuple[str, str], ...]  # of the models that are meant, as digests() gives them


def tell(text: str) -> None:
    print(f"annotate_archive: {text}", file=sys.stderr)


class Failure(Exception):
    """What ends the program: its text is told."""


class Stopped(BaseException):
    """By a signal, whose number it has. Nobody on the way takes it for something that went wrong."""


def digests(task: str, models: str) -> Tuple[Tuple[str, str], ...]:
    """Each model file of a task, and its SHA-256."""
    try:
        return tuple((name, hashlib.sha256((Path(models) / name).read_bytes()).hexdigest()) for name in TASKS[task].models)
    except OSError as error:
        raise Failure(f"{socket.gethostname()}: no model for {task} in {models}: {error.strerror}")


# ----- On a worker

_lock = threading.Lock()
_kept: Optional[Tuple[Job, Any]] = None  # the detector, and what it was opened for


def annotate(job: Job, chunk: Chunk) -> List[str]:
    """A line of JSON for each item of a chunk. What is wrong with a file is its result; what is wrong here is raised."""
    if not os.path.isdir(job.archive):
        raise Failure(f"{socket.gethostname()}: no directory {job.archive}")
    find = of_sounds if job.task == "cry" else of_pictures
    return [as_line(result) for result in find(job, opened(job), chunk)]


def as_line(result: Dict[str, Any]) -> str:
    return json.dumps(result, ensure_ascii=False, separators=(",", ":"))


def opened(job: Job) -> Any:
    """The detector, of which a process has one."""
    global _kept
    with _lock:
        if not _kept or _kept[0] != job:
            if digests(job.task, job.models) != job.digests:
                raise Failure(f"{socket.gethostname()}: other models in {job.models} than where the work comes from")
            if _kept:
                _kept[1].close()
            _kept = None
            _kept = job, TASKS[job.task].open(kelnn.Library(job.models))
        return _kept[1]


def reason(error: Exception) -> str:
    """Why a file is none, the same words wherever it lies."""
    if isinstance(error, UnidentifiedImageError):
        return "not a picture that can be read"
    if isinstance(error, soundfile.LibsndfileError):
        return str(error.error_string)
    return str(getattr(error, "strerror", None) or error or type(error).__name__)


def shortest(value: float) -> float:
    """With the fewest digits that stand for the 32-bit float."""
    return float(str(np.float32(value)))


def of_pictures(job: Job, detector: Any, chunk: Chunk) -> List[Dict[str, Any]]:
    results: List[Dict[str, Any]] = [{"input": span.file.path} for span in chunk]
    pictures = []
    for place, span in enumerate(chunk):
        try:
            image = Image.open(io.BytesIO((Path(job.archive) / span.file.path).read_bytes()))
            turned = image.format in ("JPEG", "MPO") and image.getexif().get(EXIF_ORIENTATION, 1) > 4
            pictures.append((kelnn.detector_input(image.size[::-1] if turned else image.size), place, image))
        except Exception as error:  # decoders raise anything
            results[place]["error"] = reason(error)
    # By orientation: each has a model of its own, whose loading takes longer than a picture.
    for _, place, image in sorted(pictures, key=lambda picture: picture[:2]):
        try:
            frame = pixels(image)
            found = detector.detect(frame)
        except Exception as error:
            if isinstance(error, kelnn.Error) and not isinstance(error, kelnn.FrameError):
                raise
            results[place]["error"] = reason(error)
        else:
            results[place].update(
                {"frame": 0, "time": 0.0, "width": frame.shape[1], "height": frame.shape[0], "boxes": [
                    {**dict(zip("xywh", one.box)), "score": shortest(one.score), "class": one.class_id,
                     "name": TASKS[job.task].name_of.format(one.class_id)} for one in found]})
    return results


def pixels(image: Image.Image) -> NDArray[np.uint8]:
    """Upright, 8 bits a channel: (height, width, 3), or (height, width) of 16 bits of grey."""
    image = ImageOps.exif_transpose(image)
    if image.mode.startswith("I"):
        return (np.asarray(image) >> 8).astype(np.uint8)
    return np.asarray(image.convert("RGB"))


def of_sounds(job: Job, detector: Any, chunk: Chunk) -> Iterator[Dict[str, Any]]:
    for (path, _, _), first, end, _ in chunk:
        window = first
        try:
            with soundfile.SoundFile(os.path.join(job.archive, path)) as sound:
                for samples in windows(sound, first, end):
                    yield of_window(detector, path, window, samples)
                    window += 1
        except kelnn.Error:
            raise
        except Exception as error:
            yield from ({"input": path, "window": broken, "error": reason(error)} for broken in range(window, end))


def windows(sound: soundfile.SoundFile, first: int, end: int) -> Iterator[NDArray[np.int16]]:
    """As `kelnn` hears them, the last of a sound shorter than the others."""
    if sound.frames == UNKNOWN_LENGTH:
        raise ValueError("does not say how long it is, as FLAC from a pipe")
    with contextlib.ExitStack() as stack:
        read: Callable[[int], NDArray[np.float32]] = functools.partial(read_mono, sound)
        if sound.samplerate == kelnn.SAMPLE_RATE:
            sound.seek(first * kelnn.WINDOW_SAMPLES)
        else:
            read = stack.enter_context(contextlib.closing(Resampler(sound))).read  # such a sound is not cut: first is 0
        for _ in range(first, end):
            samples = np.nan_to_num(read(kelnn.WINDOW_SAMPLES) * np.float32(32768))
            yield np.rint(samples.clip(-32768, 32767)).astype(np.int16)


def read_mono(sound: soundfile.SoundFile, count: int) -> NDArray[np.float32]:
    """The mean of the channels, added up in their order."""
    frames = sound.read(count, dtype="float32", always_2d=True)
    total = np.zeros(len(frames), np.float32)
    for channel in frames.T:
        total += channel
    return total / np.float32(sound.channels)


class Resampler:
    """A sound at 16000 Hz, by libsamplerate, which is fed as `kelnn` feeds it: blocks of other sizes give other roundings."""

    BLOCK = 4096
    MEDIUM_QUALITY = 1
    Callback = ctypes.CFUNCTYPE(ctypes.c_long, ctypes.c_void_p, ctypes.POINTER(ctypes.POINTER(ctypes.c_float)))

    def __init__(self, sound: soundfile.SoundFile) -> None:
        self._sound, self._ratio = sound, kelnn.SAMPLE_RATE / sound.samplerate
        self._taken = self._given = 0
        self._is_end = False
        self._last = np.float32(0)
        self._problem: Optional[Exception] = None
        self._library = ctypes.CDLL("libsamplerate.so.0")
        self._library.src_callback_new.restype = ctypes.c_void_p
        self._library.src_callback_read.restype = ctypes.c_long
        self._callback = self.Callback(self._next_block)  # the library does not keep it
        error = ctypes.c_int()
        self._state = ctypes.c_void_p(
            self._library.src_callback_new(self._callback, self.MEDIUM_QUALITY, 1, ctypes.byref(error), None))
        if not self._state:
            raise ValueError(f"a sampling rate of {sound.samplerate} Hz")

    def _next_block(self, _: None, block: Any) -> int:
        try:
            self._block = read_mono(self._sound, self.BLOCK)
        except Exception as problem:  # nothing is raised through C
            self._problem = problem
            return 0
        self._is_end = len(self._block) < self.BLOCK
        self._taken += len(self._block)
        block[0] = self._block.ctypes.data_as(ctypes.POINTER(ctypes.c_float))
        return len(self._block)

    def read(self, count: int) -> NDArray[np.float32]:
        samples = np.zeros(count, np.float32)
        made = self._library.src_callback_read(self._state, ctypes.c_double(self._ratio), ctypes.c_long(count),
                                               samples.ctypes.data_as(ctypes.POINTER(ctypes.c_float)))
        if self._problem:
            raise self._problem
        if self._library.src_error(self._state):
            raise ValueError(f"a sampling rate of {self._sound.samplerate} Hz")
        if made > 0:
            self._last = samples[made - 1]
        if self._is_end:  # roundings may leave a sample too few or too many
            samples[made:] = self._last
            made = min(count, max(0, resampled(self._taken, self._sound.samplerate) - self._given))
        self._given += made
        return samples[:made]

    def close(self) -> None:
        self._library.src_delete(self._state)


def resampled(frames: int, rate: int) -> int:
    """How many samples they are at 16000 Hz."""
    return int(frames * (kelnn.SAMPLE_RATE / rate) + 0.5)


def of_window(detector: Any, path: str, window: int, samples: NDArray[np.int16]) -> Dict[str, Any]:
    if len(samples) == 0:
        raise ValueError("ends before it should")
    if len(samples) < kelnn.WINDOW_SAMPLES:
        return {"input": path, "left_over": len(samples) / kelnn.SAMPLE_RATE}
    (probability,) = detector.add(samples)
    loudness = kelnn.loudness(samples)
    return {"input": path, "window": window, "start": 3.0 * window, "end": 3.0 * window + 3, "loudness": shortest(loudness),
            "gate_passed": loudness >= kelnn.LOWEST_GATE, "probability": shortest(probability)}


# ----- What there is to do

def files(archive: str, suffixes: Tuple[str, ...], complain: Callable[[str], None]) -> Iterator[File]:
    """Those with a usual name, in order; hidden ones and links to directories are left out, as `kelnn` does."""
    for directory, directories, names in os.walk(archive, onerror=lambda error: complain(str(error))):
        directories[:] = sorted(name for name in directories if not name.startswith("."))
        for name in sorted(names):
            if name.startswith(".") or not name.lower().endswith(suffixes):
                continue
            path = os.path.join(directory, name)
            try:
                path.encode()
                status = os.stat(path)
                yield File(os.path.relpath(path, archive), status.st_size, status.st_mtime_ns)
            except OSError as error:
                complain(str(error))
            except UnicodeEncodeError:
                complain(f"{path!a}: left out, since its name is not UTF-8")


def whole(archive: str, file: File, is_sound: bool) -> Span:
    """All items of a file: of a sound its windows, and what is left over at the end. What is resampled, or compressed with a
    loss, sounds a little different after a seek, so it is not cut. What cannot be read is one item: the worker says why.
    """
    if not is_sound:
        return Span(file, 0, 1, True)
    try:
        sound = soundfile.info(os.path.join(archive, file.path))
    except soundfile.LibsndfileError:
        return Span(file, 0, 1, True)
    if sound.frames == UNKNOWN_LENGTH:
        return Span(file, 0, 1, True)
    is_lossless = sound.subtype.startswith("PCM") or sound.subtype in ("FLOAT", "DOUBLE")
    samples = resampled(sound.frames, sound.samplerate)
    return Span(file, 0, max(1, -(-samples // kelnn.WINDOW_SAMPLES)), is_lossless and sound.samplerate == kelnn.SAMPLE_RATE)


def parts(span: Span, items: List[int]) -> Iterator[Span]:
    """Of a span, those of the items that are next to each other; all of it, where it is not cut."""
    if not span.is_cut and items:
        yield span
        return
    for _, group in itertools.groupby(enumerate(items), lambda pair: pair[1] - pair[0]):
        run = [item for _, item in group]
        yield span._replace(first=run[0], end=run[-1] + 1)


def chunks(spans: Iterable[Span], size: int) -> Iterator[Chunk]:
    """Chunks of so many items; a span that is not cut may make one longer."""
    chunk: Chunk = []
    room = size
    for span in spans:
        while span.first < span.end:
            end = min(span.end, span.first + room) if span.is_cut else span.end
            chunk.append(span._replace(end=end))
            room -= end - span.first
            span = span._replace(first=end)
            if room <= 0:
                yield chunk
                chunk, room = [], size
    if chunk:
        yield chunk


def count(chunk: Iterable[Span]) -> int:
    return sum(span.end - span.first for span in chunk)


# ----- What is done

@contextlib.contextmanager
def claimed(out: Path) -> Iterator[None]:
    """For this process alone; a lock goes with the process that has it."""
    out.mkdir(parents=True, exist_ok=True)
    directory = os.open(out, os.O_RDONLY)
    try:
        try:
            fcntl.flock(directory, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Failure(f"{out}: another process is at it")
        yield
    finally:
        os.close(directory)


class Store:
    """OUT/results.sqlite: the one place that says what is done. A chunk's rows are there together or not at all."""

    SCHEMA = """
        CREATE TABLE model (task TEXT NOT NULL, file TEXT NOT NULL, sha256 TEXT NOT NULL);
        CREATE TABLE result (
            path TEXT NOT NULL,         -- of the file, below the archive
            item INTEGER NOT NULL,      -- 0; of a sound, the window
            size INTEGER NOT NULL,      -- bytes of the file
            mtime_ns INTEGER NOT NULL,  -- when it was changed
            line TEXT NOT NULL,         -- JSON
            error TEXT AS (json_extract(line, '$.error')),
            PRIMARY KEY (path, item)) WITHOUT ROWID;
        CREATE VIEW box AS
            SELECT path, json_extract(value, '$.name') AS name, json_extract(value, '$.score') AS score,
                   json_extract(value, '$.x') AS x, json_extract(value, '$.y') AS y,
                   json_extract(value, '$.w') AS w, json_extract(value, '$.h') AS h
            FROM result, json_each(line, '$.boxes');
        """

    def __init__(self, out: Path, task: str, models: Tuple[Tuple[str, str], ...]) -> None:
        self._out = out
        self._database = sqlite3.connect(out / "results.sqlite", isolation_level=None)
        self._database.execute("PRAGMA journal_mode = WAL")  # who wants to read meanwhile can
        rows = sorted((task, file, sha256) for file, sha256 in models)
        with self.transaction():
            if not self._database.execute("SELECT 1 FROM sqlite_schema").fetchone():
                for statement in self.SCHEMA.split(";\n"):
                    self._database.execute(statement)
                self._database.executemany("INSERT INTO model VALUES (?, ?, ?)", rows)
        if sorted(self._database.execute("SELECT task, file, sha256 FROM model")) != rows:
            raise Failure(f"{out}: has results of another task or of other models; a new directory is needed")

    @contextlib.contextmanager
    def transaction(self) -> Iterator[None]:
        """All or nothing."""
        self._database.execute("BEGIN IMMEDIATE")
        try:
            yield
            self._database.execute("COMMIT")
        except BaseException:
            self._database.execute("ROLLBACK")
            raise

    def forget_errors(self) -> None:
        self._database.execute("DELETE FROM result WHERE error IS NOT NULL")

    def missing(self, span: Span) -> List[int]:
        """Items without a result. Results of what the file was before it changed are dropped."""
        of_file = (*span.file, span.end)
        self._database.execute(
            "DELETE FROM result WHERE path = ? AND NOT (size = ? AND mtime_ns = ? AND item < ?)", of_file)
        done = {item for item, in self._database.execute("SELECT item FROM result WHERE path = ?", (span.file.path,))}
        return [item for item in range(span.first, span.end) if item not in done]

    def keep(self, chunk: Chunk, lines: List[str]) -> None:
        items = [(*span.file, item) for span in chunk for item in range(span.first, span.end)]
        if len(items) != len(lines):
            raise Failure(f"{len(lines)} results for {len(items)} items")
        with self.transaction():
            self._database.executemany("INSERT OR REPLACE INTO result (path, size, mtime_ns, item, line) VALUES (?, ?, ?, ?, ?)",
                                       [(*item, line) for item, line in zip(items, lines)])

    def counts(self) -> Tuple[int, int]:
        """Results, and how many of them are errors."""
        results, errors = self._database.execute("SELECT count(*), count(error) FROM result").fetchone()
        return results, errors

    def export(self) -> None:
        """OUT/results.jsonl anew, whole or not at all: the same bytes for the same results, in whatever order they came."""
        part = self._out / "results.jsonl.part"
        with open(part, "w", encoding="utf-8") as lines:
            for line, in self._database.execute("SELECT line FROM result ORDER BY path, item"):
                lines.write(line + "\n")
            lines.flush()
            os.fsync(lines.fileno())
        os.replace(part, self._out / "results.jsonl")

    def close(self) -> None:
        self._database.close()


# ----- From one to the other

class Progress:
    """How far it is, on standard error: in place at a terminal, and at the end what has been done."""

    def __init__(self, total: int, unit: str) -> None:
        self._total, self._unit, self._done = total, unit, 0
        self._start = self._shown = time.monotonic()

    def add(self, done: int) -> None:
        self._done += done
        now = time.monotonic()
        if sys.stderr.isatty() and now - self._shown > 0.2:
            self._shown = now
            left = (self._total - self._done) * (now - self._start) / self._done
            print(f"\r\033[K{self._done} of {self._total} {self._unit}, {self._done / (now - self._start):.1f}/s, "
                  f"{left / 60:.1f} min left", end="", file=sys.stderr, flush=True)

    def __enter__(self) -> "Progress":
        return self

    def __exit__(self, *_: Any) -> None:
        seconds = time.monotonic() - self._start
        print("\r\033[K" if sys.stderr.isatty() else "", end="", file=sys.stderr)
        tell(f"{self._done} of {self._total} {self._unit} done in {seconds:.1f} s, {self._done / seconds:.1f}/s")


class OneOfSeveral(distributed.WorkerPlugin):  # type: ignore[misc]
    """How a worker here gets on with the others."""

    def setup(self, worker: distributed.Worker) -> None:
        # Ctrl-C reaches all processes of a terminal; it is meant for the one that then ends the others.
        for number in (signal.SIGINT, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        # One processor: the runtime starts a thread for each that it sees, which wait for those of the other workers.
        processors = sorted(os.sched_getaffinity(0))
        os.sched_setaffinity(0, {processors[int(worker.name) % len(processors)]})


# What glibc keeps of freed memory. Dask has it keep little, so that each picture's pages are asked for anew, a third of the time.
MEMORY = {"MALLOC_TRIM_THRESHOLD_": 2**28, "MALLOC_MMAP_THRESHOLD_": 2**25}


def work(client: distributed.Client, job: Job, todo: Iterator[Chunk], store: Store, progress: Progress) -> None:
    """Has all chunks done, some in advance, and keeps what comes back in whatever order."""
    sent: Dict[distributed.Future, Chunk] = {}
    done = distributed.as_completed()

    def send(chunk: Chunk) -> None:
        future = client.submit(annotate, job, chunk, pure=False)
        sent[future] = chunk
        done.add(future)

    for chunk in itertools.islice(todo, AHEAD):
        send(chunk)
    for future in done:
        chunk = sent.pop(future)
        try:
            lines = future.result()
        except distributed.KilledWorker:
            # Something in it, or bad luck. One by one it shows; what has done so alone is not tried again.
            items = [part for span in chunk for item in range(span.first, span.end if span.is_cut else span.first + 1)
                     for part in parts(span, [item])]
            if len(items) > 1:
                for item in items:
                    send([item])
                continue
            ((file, first, end, _),) = items
            lines = [as_line({"input": file.path, **({"window": item} if job.task == "cry" else {}),
                              "error": "ends the worker that reads it"}) for item in range(first, end)]
        store.keep(chunk, lines)
        progress.add(count(chunk))
        for following in itertools.islice(todo, 1):
            send(following)


def options(arguments: Optional[List[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="exit status: 0 all is done, be it that some files have an error for a result; 1 not all, standard error\n"
               "says why; 2 a wrong call; 130, 143 stopped by Ctrl-C, SIGTERM: what was done is kept")
    parser.add_argument("task", choices=TASKS)
    parser.add_argument("archive", metavar="ARCHIVE", help="the directory of pictures or sounds; by the same name on workers")
    parser.add_argument("out", metavar="OUT", type=Path, help="the directory of results, on a disk of this machine")
    parser.add_argument("--models", default=kelnn.find_models(), help="the directory of models; by the same name on workers "
                        "(default: %(default)s)")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a running cluster; without: one is started here")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), help="processes of a cluster here (default: %(default)s)")
    parser.add_argument("--chunk", type=int, help="pictures, or windows of sound, that a worker is given at once "
                        f"(default: {TASKS['persons'].chunk}, {TASKS['cry'].chunk})")
    parser.add_argument("--retry-errors", action="store_true", help="try files again whose result is an error")
    chosen = parser.parse_args(arguments)
    for name in ("workers", "chunk"):
        if getattr(chosen, name) is not None and getattr(chosen, name) < 1:
            parser.error(f"--{name} {getattr(chosen, name)}: at least 1")
    if chosen.scheduler is None and chosen.workers is None:
        parser.error("--workers is needed here")
    if not os.path.isdir(chosen.archive):
        parser.error(f"no directory {chosen.archive}")
    return chosen


@contextlib.contextmanager
def cluster(workers: int) -> Iterator[distributed.Client]:
    """Processes here. One that dies is started again by its nanny; one that the scheduler gives up, nanny and all, by adapt()."""
    settings = {"distributed.scheduler.allowed-failures": 1, "distributed.nanny.pre-spawn-environ": MEMORY}
    with dask.config.set(settings), distributed.LocalCluster(
            n_workers=workers, threads_per_worker=1, dashboard_address="127.0.0.1:0") as local:
        local.adapt(minimum=workers, maximum=workers)
        with distributed.Client(local) as client:
            client.register_worker_plugin(OneOfSeveral())
            yield client


@contextlib.contextmanager
def cluster_at(address: str) -> Iterator[distributed.Client]:
    with distributed.Client(address) as client:
        client.upload_file(__file__)
        yield client


def run(chosen: argparse.Namespace) -> bool:
    """Whether all is done."""
    problems = []

    def complain(text: str) -> None:
        problems.append(text)
        tell(text)

    task, models = TASKS[chosen.task], os.path.abspath(chosen.models)
    job = Job(chosen.task, os.path.abspath(chosen.archive), models, digests(chosen.task, models))
    with claimed(chosen.out), contextlib.closing(Store(chosen.out, job.task, job.digests)) as store:
        try:
            todo: List[Span] = []
            total = 0
            with store.transaction():
                if chosen.retry_errors:
                    store.forget_errors()
                for file in files(job.archive, task.suffixes, complain):
                    span = whole(job.archive, file, task.suffixes == SOUNDS)
                    todo += parts(span, store.missing(span))
                    total += span.end - span.first
            unit = "windows" if task.suffixes == SOUNDS else "pictures"
            if todo:
                workers = cluster_at(chosen.scheduler) if chosen.scheduler else cluster(chosen.workers)
                with workers as client, Progress(count(todo), unit) as progress:
                    work(client, job, chunks(todo, chosen.chunk or task.chunk), store, progress)
        finally:
            store.export()
        results, errors = store.counts()
        gone = f", {results - total} of files that are not there now" if results > total else ""
        tell(f"{results} {unit}, {errors} of them an error{gone}")
    return not problems


def stop(number: int, _: Optional[FrameType]) -> None:
    signal.signal(number, signal.SIG_DFL)  # the second time at once
    raise Stopped(number)


def stopped_by(error: Optional[BaseException]) -> int:
    """The signal; 0: none. What goes wrong while a cluster is ended because of one hides it."""
    while error and not isinstance(error, Stopped):
        error = error.__context__
    return int(error.args[0]) if error else 0


def main(arguments: Optional[List[str]] = None) -> int:
    chosen = options(arguments)
    before = {number: signal.signal(number, stop) for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)}
    try:
        return 0 if run(chosen) else 1
    except BaseException as error:
        number = stopped_by(error)
        if number:
            tell("stopped; the same command goes on from here")
            return 128 + number
        if isinstance(error, CancelledError):
            tell("the scheduler has given the work up")
        elif isinstance(error, (Failure, kelnn.Error, sqlite3.Error, OSError)):
            tell(str(error))
        else:
            raise
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
    return 1


if __name__ == "__main__":
    import annotate_archive  # by the name that workers know it by

    sys.exit(annotate_archive.main())
