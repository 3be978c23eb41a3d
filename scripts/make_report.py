# SPDX-License-Identifier: Apache-2.0
"""Runs every task on the sample pictures, video and sounds, by the Python module, and writes a page that shows the results:

    make_report.py --root MODELS/ --out REPORT.html [--kelnn PROGRAM]

Ends with an error when a task fails or a result is not what the samples show. With --kelnn the page shows what that
prints, too.
"""
import argparse
import contextlib
import io
import itertools
import os
import pathlib
import platform
import shlex
import subprocess
import sys
import time
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, TypeVar

import numpy as np
import soundfile
from numpy.typing import NDArray
from PIL import Image, ImageDraw

import kelnn
import report_page as page

SKIMAGE, OPENCV = (pathlib.Path(place) for place in ("/usr/lib/python3/dist-packages/skimage/data",
                                                     "/usr/share/doc/opencv-doc/examples/data"))
PHOTOGRAPHS = [SKIMAGE / "astronaut.png", SKIMAGE / "camera.png", OPENCV / "basketball1.png", OPENCV / "messi5.jpg",
               SKIMAGE / "chelsea.png", SKIMAGE / "coffee.png", OPENCV / "home.jpg", OPENCV / "board.jpg"]
EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"
FACE_CLASSES = ["open face", "covered mouth", "sunglasses"]
OBJECT_CLASSES = ["cat", "dog", "car", "parcel"]
SAME_PERSON = 0.65  # similarity from which on two faces are taken for one person's
FRAMES_A_SECOND, PERIOD = 10, 5
RATIOS = [0.125, 0.25, 0.5, 1, 2, 4, 8]  # of changed pixels, in per cent
TOGETHER = "persons, faces, each face's landmarks and features"
COLOURS = ["#2468b0", "#c2403a", "#2f8f4e", "#d8a021"]

Pixels = NDArray[np.uint8]
Path = pathlib.Path
Task = TypeVar("Task")
Result = TypeVar("Result")


class Run:
    """The samples, the library, and how long each task took."""

    def __init__(self, root: str, examples: Path):
        self.library = kelnn.Library(root)
        self.scenes, self.faces = examples / "pictures" / "scenes", examples / "pictures" / "faces"
        self.sound, self.video = examples / "sounds" / "evening.flac", examples / "videos" / "visitor.avi"
        self.loading: Dict[str, float] = {}
        self.calls: Dict[str, List[float]] = {}

    def load(self, task: str, make: Callable[[], Task]) -> Task:
        start = time.monotonic()
        made = make()
        self.loading[task] = self.loading.get(task, 0) + time.monotonic() - start
        return made

    def timed(self, task: str, call: Callable[[], Result]) -> Result:
        start = time.monotonic()
        result = call()
        self.calls.setdefault(task, []).append(time.monotonic() - start)
        return result

    def typed(self, *words: Any) -> str:
        """A command to paste where the tree's root is: kelnn WORDS."""
        return shlex.join(["kelnn", *(os.path.relpath(word) if isinstance(word, Path) else str(word) for word in words)])


def check(condition: bool, message: str) -> None:
    if not condition:
        sys.exit("make_report.py: " + message)


def colour(path: Any) -> Pixels:
    return np.asarray(Image.open(path).convert("RGB"))


def grey(path: Any) -> Pixels:
    return np.asarray(Image.open(path).convert("L"))


def whole(pixels: Pixels) -> kelnn.Rect:
    return kelnn.Rect(0, 0, pixels.shape[1], pixels.shape[0])


def with_boxes(pixels: Pixels, boxes: Sequence[Tuple[kelnn.Detection, str]], kind: str = "PNG") -> bytes:
    """The picture with boxes and their names, as a file."""
    image = Image.fromarray(pixels)
    draw = ImageDraw.Draw(image)
    for found, name in boxes:
        x, y, w, h = found.box
        draw.rectangle((x, y, x + w, y + h), outline=COLOURS[found.class_id], width=3)
        words = f"{name} {found.score:.2f}"
        draw.rectangle(draw.textbbox((x + 4, y + 3), words), fill=COLOURS[found.class_id])
        draw.text((x + 4, y + 3), words, fill="white")
    file = io.BytesIO()
    image.save(file, kind, quality=85)
    return file.getvalue()


def with_points(pixels: Pixels, points: NDArray[np.float32]) -> bytes:
    """The face three times as large, with its landmarks."""
    side = 3 * pixels.shape[0]
    image = Image.fromarray(pixels).convert("RGB").resize((side, side))
    draw = ImageDraw.Draw(image)
    for x, y in side * points.reshape(-1, 2):
        draw.ellipse((x - 5, y - 5, x + 5, y + 5), outline=COLOURS[1], width=3)
    file = io.BytesIO()
    image.save(file, "PNG")
    return file.getvalue()


def detected(run: Run, task: str, make: Any, pictures: Sequence[Path], names: Sequence[str]
             ) -> Tuple[List[List[kelnn.Detection]], List[str]]:
    """What is found in the pictures, and a figure of each with its boxes."""
    everything, figures = [], []
    for picture in pictures:
        pixels = colour(picture)
        with run.load(task, lambda: make((pixels.shape[1], pixels.shape[0]))) as detector:
            found = run.timed(task, lambda: detector.detect(pixels))
        found_names = [names[one.class_id] for one in found]
        caption = ", ".join(f"{found_names.count(n)} × {n}" for n in dict.fromkeys(found_names)) or "nothing found"
        figures.append(page.figure(with_boxes(pixels, list(zip(found, found_names))), f"{picture.name}: {caption}"))
        everything.append(found)
    check(sum(map(len, everything)) >= len(pictures), f"{task}: too little was found")
    return everything, figures


def faces(run: Run) -> str:
    pictures = sorted(run.scenes.glob("faces_*.jpg"))
    _, figures = detected(run, "face detection", lambda size: kelnn.FaceDetector(run.library), pictures, ["face"])
    return page.section("Faces", "Face detection: where are faces?", [run.typed("faces", pictures[0], "--draw", "faces.png")],
                        page.row(figures, 280))


def landmarks(run: Run) -> str:
    pictures = sorted(run.faces.glob("*.png"))[:8]
    images = [grey(picture) for picture in pictures]
    with run.load("face landmarks", lambda: kelnn.FaceLandmarks(run.library)) as task:
        found = [run.timed("face landmarks", lambda: task.of(image, whole(image))) for image in images]
    with run.load("face classes", lambda: kelnn.FaceClassifier(run.library)) as classifier:
        kinds = [run.timed("face classes", lambda: classifier.of(image, whole(image))) for image in images]
    figures = [page.figure(with_points(image, one.points), f"{FACE_CLASSES[kind.id]}, {kind.score:.2f}; turned "
                           f"{np.degrees(one.pose[0]):+.0f}°")
               for image, one, kind in zip(images, found, kinds)]
    return page.section("Landmarks and classes", "Face landmarks: eyes, nose and mouth. Face classification: which of three "
                        "kinds of face, with its score.",
                        [run.typed("landmarks", pictures[0], "--draw", "points.png"), run.typed("classify-face", pictures[0])],
                        page.row(figures, 160))


def features(run: Run) -> str:
    pictures = sorted(run.faces.glob("*.png"))
    with run.load("face features", lambda: kelnn.FaceFeatures(run.library)) as task:
        vectors = [run.timed("face features", lambda: task.of(image, whole(image))) for image in map(grey, pictures)]
    alike = [[kelnn.similarity(v, w) for w in vectors] for v in vectors]
    people = [picture.stem.split("_")[0] for picture in pictures]
    pairs = list(itertools.combinations(range(len(pictures)), 2))
    right = sum((alike[a][b] >= SAME_PERSON) == (people[a] == people[b]) for a, b in pairs)
    same = [alike[a][b] for a, b in pairs if people[a] == people[b]]
    other = [alike[a][b] for a, b in pairs if people[a] != people[b]]
    check(sum(same) / len(same) > sum(other) / len(other), "faces resemble others as much as themselves")
    words = (f"Face features: 256 numbers a face, and how alike two faces are. {len(set(people))} persons, several pictures "
             f"of each side by side. {right} of {len(pairs)} pairs are told right at {SAME_PERSON}.")
    return page.section("Who is it?", words, [run.typed("compare", "--aligned", *pictures[:2])], page.matrix(pictures, alike))


def persons_and_things(run: Run) -> str:
    pictures = [run.scenes / f"persons_{shape}.jpg" for shape in ("landscape", "square", "portrait")]
    persons, person_figures = detected(run, "person detection", lambda size: kelnn.PersonDetector(run.library, size), pictures,
                                       ["person"])
    object_pictures = sorted(run.scenes.glob("objects_*.jpg"))
    things, thing_figures = detected(run, "four-class detection", lambda size: kelnn.ObjectDetector(run.library, size),
                                     object_pictures, OBJECT_CLASSES)
    rows = []
    for picture, found, names in ((pictures[0], persons[0], ["person"]), (object_pictures[0], things[0], OBJECT_CLASSES)):
        pixels = colour(picture)
        with run.load("person classes", lambda: kelnn.PersonClassifier(run.library)) as classifier:
            for one in found[:3]:
                probability = run.timed("person classes", lambda: classifier.of(pixels, one.box))
                rows.append([page.text(picture.name), ",".join(map(str, one.box)), names[one.class_id], f"{probability:.3f}"])
    return page.section("Persons", "Person detection, one network for each orientation of frames. Below: person classification "
                        "of some boxes: how probable is a person in it?",
                        [run.typed("persons", pictures[0], "--draw", "persons.png"),
                         run.typed("classify-person", pictures[0], "--box", rows[0][1])],
                        page.row(person_figures, 280) + "<br>" +
                        page.table(["picture", "box", "found as", "person"], rows, numbers=[3])) + page.section(
        "Four kinds of things", "Four-class detection; what the classes are comes with the network.",
        [run.typed("objects", object_pictures[0], "--classes", ",".join(OBJECT_CLASSES), "--draw", "things.png")],
        page.row(thing_figures, 280))


def photographs(run: Run) -> str:
    """Of Debian's packages, where those are installed: whatever comes out."""
    figures = []
    pictures = [picture for picture in PHOTOGRAPHS if picture.exists()]
    for picture in pictures:
        pixels = colour(picture)
        size = pixels.shape[1], pixels.shape[0]
        with kelnn.FaceDetector(run.library) as faces, kelnn.PersonDetector(run.library, size) as persons, \
                kelnn.ObjectDetector(run.library, size) as things:
            found = [(one, name) for task, names in ((persons, ["person"]), (faces, ["face"]), (things, OBJECT_CLASSES))
                     for one in task.detect(pixels) for name in [names[one.class_id]]]
        caption = ", ".join(name for _, name in found) or "nothing found"
        figures.append(page.figure(with_boxes(pixels, found, "JPEG"), f"{picture.name}: {caption}"))
    if not figures:
        return ""
    return page.section("On real photographs", "Persons, faces and the four kinds of things in photographs that no training saw, of "
                        "Debian's packages opencv-doc and python3-skimage. Some people are missed and some things taken for "
                        "others: samples, not products.",
                        [run.typed("persons", str(pictures[0]), "--draw", "photograph.png")], page.row(figures, 280))


def cries(run: Run) -> str:
    samples, rate = soundfile.read(run.sound, dtype="int16")
    check(rate == kelnn.SAMPLE_RATE, f"{run.sound} has another rate")
    windows = [samples[at:at + kelnn.WINDOW_SAMPLES]
               for at in range(0, len(samples) - kelnn.WINDOW_SAMPLES + 1, kelnn.WINDOW_SAMPLES)]
    with run.load("cry detection", lambda: kelnn.CryDetector(run.library)) as detector:
        heard = [run.timed("cry detection", lambda: detector.add(window))[0] for window in windows]
    check(max(heard) > 0.5 > min(heard), "the cry in evening.flac was not told from the rest")
    at = int(np.argmax(heard))
    with kelnn.SoundFeatures() as sound:
        seen = sound.of(windows[at])
    assert seen is not None
    file = io.BytesIO()
    shown = np.interp(seen, (seen.min(), seen.max()), (0, 255)).astype(np.uint8)
    Image.fromarray(np.ascontiguousarray(shown.T[::-1])).resize((3 * seen.shape[0], 4 * seen.shape[1])).save(file, "PNG")
    content = page.bars(heard, 1, [f"{3 * i} s: {p:.3f}" for i, p in enumerate(heard)], [p > 0.5 for p in heard], line=0.5,
                        caption="probability of crying, 0 to 1, of every 3 seconds") + "<br>" + page.figure(
                            file.getvalue(), f"what the network sees of the seconds {3 * at} to {3 * at + 3}: 64 mel "
                            "channels, brighter where there is more energy than usual")
    return page.section("Is a baby crying?", f"Cry detection on {3 * len(heard)} seconds of sound: talk, a cry from 12 to 21 s, "
                        "a telephone from 24 s on, music.",
                        [run.typed("cry", run.sound)], content)


def decisions(run: Run, frames: Sequence[Pixels], ratio: float) -> List[bool]:
    """Of each period, whether there was motion."""
    with kelnn.MotionFilter(run.library, ratio=ratio, period=PERIOD) as motion_filter:
        taken = [run.timed("motion filter", lambda: motion_filter.take(frame)) for frame in frames]
    return [moved for moved in taken if moved is not None]


def motion(run: Run) -> str:
    frames = [grey(io.BytesIO(frame)) for frame in page.jpeg_frames(run.video)]
    moved = [decisions(run, frames, ratio) for ratio in RATIOS]
    usual = moved[RATIOS.index(0.5)]
    check(set(usual) == {True, False}, "the video was not told into motion and stillness")
    highest = [max((i + 1 for i, row in enumerate(moved) if row[period]), default=0) for period in range(len(usual))]
    labels = [f"{period * PERIOD / FRAMES_A_SECOND:.1f} s: motion up to a ratio of "
              f"{RATIOS[high - 1] if high else 0:g} %" for period, high in enumerate(highest)]
    content = page.bars(highest, len(RATIOS), labels, usual, line=RATIOS.index(0.5) + 1,
                        caption=f"up to which of the ratios {', '.join(f'{ratio:g}' for ratio in RATIOS)} % of changed pixels "
                        "each half second is motion; red: at 0.5 %")
    return page.section("Did something move?", "The motion filter needs no network: it counts pixels that changed twice and "
                        "lets the frames of a period vote.",
                        [run.typed("motion", run.video, "--sweep", "--ratios", ",".join(f"{r:g}" for r in RATIOS),
                                   "--periods", PERIOD)], content)


def watch(run: Run) -> str:
    """As `kelnn watch`: motion wakes the detectors until a period is still."""
    drawn: List[bytes] = []
    seen: Dict[str, List[float]] = {"a person": [], "a face, with landmarks and features": []}
    periods = 0
    is_awake = False
    frames = page.jpeg_frames(run.video)
    size = Image.open(io.BytesIO(frames[0])).size
    with contextlib.ExitStack() as stack:
        motion_filter = stack.enter_context(kelnn.MotionFilter(run.library, ratio=0.5, period=PERIOD))
        person_task = stack.enter_context(kelnn.PersonDetector(run.library, size))
        face_task = stack.enter_context(kelnn.FaceDetector(run.library))
        landmark_task = stack.enter_context(kelnn.FaceLandmarks(run.library))
        feature_task = stack.enter_context(kelnn.FaceFeatures(run.library))
        for number, frame in enumerate(frames):
            moved = motion_filter.take(grey(io.BytesIO(frame)))
            if moved is not None:
                is_awake = moved
                periods += moved
            pixels = colour(io.BytesIO(frame))

            def look() -> List[Tuple[kelnn.Detection, str]]:
                found = [(one, "person") for one in person_task.detect(pixels)]
                for face in face_task.detect(pixels):
                    found.append((face, "face"))
                    landmark_task.of(pixels, face.box)
                    check(abs(kelnn.l2norm(feature_task.of(pixels, face.box)) - 1) < 1e-3, "features are not of unit length")
                return found
            boxes = run.timed(TOGETHER, look) if is_awake else []
            for name, times in zip(("person", "face"), seen.values()):
                if any(one == name for _, one in boxes):
                    times.append(number / FRAMES_A_SECOND)
            drawn.append(with_boxes(pixels, boxes, "JPEG"))
    check(all(seen.values()), "nobody was seen in the video")
    rows: List[List[Any]] = [["motion decided", periods, "", ""]]
    rows += [[name, len(times), f"{min(times):.1f} s", f"{max(times):.1f} s"] for name, times in seen.items()]
    content = page.player(drawn, 1 / FRAMES_A_SECOND, "watch") + page.table(["seen", "frames", "first", "last"], rows,
                                                                            numbers=[1, 2, 3])
    return page.section("All of it, as a camera would", "Motion wakes the detectors; persons, then faces, then landmarks and "
                        "features of each face.",
                        [run.typed("watch", run.video, "--ratio", 0.5, "--period", PERIOD, "--draw", "seen.avi")], content)


def command_line(kelnn_program: str, run: Run, root: str) -> str:
    """One command as it is typed, and what it prints."""
    picture = os.path.relpath(run.scenes / "faces_1.jpg")
    done = subprocess.run([kelnn_program, "faces", picture, "--root", root], capture_output=True, text=True)
    check(done.returncode == 0 and bool(done.stdout), f"kelnn faces failed\n{done.stderr}")
    return page.section("At the command line", "What a command prints; with --json, an object a line.",
                        [f"kelnn faces {picture}"], f"<pre>{page.text(done.stdout)}</pre>")


def overview(run: Run) -> str:
    rows = [[page.text(task), f"{1e3 * run.loading[task]:.0f}" if task in run.loading else "", len(calls),
             f"{1e3 * sorted(calls)[len(calls) // 2]:.2f}", f"{1e3 * max(calls):.2f}"] for task, calls in run.calls.items()]
    return page.section("How long it took", "Milliseconds on this machine (" +
                        page.text(f"{platform.machine()}, {os.cpu_count()} processors") + "). A call takes one picture, face, 3 seconds "
                        "of sound or frame: scaling or cutting out, the network and what is made of its outputs; reading files and "
                        "drawing are not in it. Loading is that of all networks of the task.", [],
                        page.table(["task", "loading", "calls", "a call (median)", "the longest"], rows, numbers=[1, 2, 3, 4]))


INTRODUCTION = """<p>Every task of libkelnn, run on this machine through its Python module: the library as the camera has it,
over another runtime. The command line does the same; its commands can be pasted into a shell in the root of the source tree,
as they stand where kelnn is installed, else after this line:</p>
<pre>PATHS</pre>
<p class="note">The networks are samples, trained on drawings and a little that is real, so that every task shows a result. They
miss most real people and things: bring your own networks for those. The one for cries hears six in seven real babies.</p>"""


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--root", required=True, metavar="MODELS/")
    parser.add_argument("--out", required=True, metavar="REPORT.html")
    parser.add_argument("--kelnn", metavar="PROGRAM", help="show what this prints")
    parser.add_argument("--examples", type=Path, default=EXAMPLES, metavar="DIR", help="other samples of the same names")
    options = parser.parse_args(arguments)
    run = Run(options.root, options.examples)
    parts = []
    try:
        for make in (faces, landmarks, features, persons_and_things, photographs, cries, motion, watch):
            start = time.monotonic()
            parts.append(make(run))
            print(f"  {make.__name__:<18}{time.monotonic() - start:6.1f} s", flush=True)
    except kelnn.Error as error:
        sys.exit(f"make_report.py: {error}")
    if options.kelnn:
        parts.append(command_line(options.kelnn, run, options.root))
    parts.append(overview(run))
    program = Path(options.kelnn or "build/demo/tools/kelnn").resolve()
    line = f'export PATH="$PWD/{os.path.relpath(program.parent)}:$PATH"'
    written = page.page("libkelnn at work", INTRODUCTION.replace("PATHS", page.text(line)), parts)
    Path(options.out).write_text(written, encoding="utf-8")
    print(f"{options.out}: {len(written) / 1e6:.1f} MB")


if __name__ == "__main__":
    main()
