# SPDX-License-Identifier: Apache-2.0
"""Runs every task on the sample pictures, video and sounds and writes a page that shows the results:

    make_report.py --kelnn PROGRAM --root MODELS/ --out REPORT.html

Ends with an error when a task fails or a result is not what the samples show.
"""
import argparse
import itertools
import json
import os
import pathlib
import platform
import subprocess
import sys
import tempfile
import time

import report_page as page

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"
OBJECT_CLASSES = "cat,dog,car,parcel"
FACE_CLASSES = ["open face", "covered mouth", "sunglasses"]
SAME_PERSON = 0.55  # similarity from which on two faces are taken for one person's


class Runner:
    """Runs kelnn, times it, says so on the terminal."""

    def __init__(self, program, root, examples, scratch):
        self.program, self.root, self.scratch = program, root, pathlib.Path(scratch)
        self.scenes, self.faces = examples / "pictures" / "scenes", examples / "pictures" / "faces"
        self.sound, self.video = examples / "sounds" / "evening.flac", examples / "videos" / "visitor.avi"
        self.steps = []

    def __call__(self, name, *arguments, needs_models=True):
        """The objects that `kelnn ARGUMENTS --json` prints."""
        arguments = [str(a) for a in arguments]
        command = [self.program, *arguments, "--json"] + (["--root", self.root] if needs_models else [])
        start = time.monotonic()
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        seconds = time.monotonic() - start
        if result.returncode != 0:
            sys.exit(f"make_report.py: failed: {' '.join(command)}\n{result.stderr}")
        self.steps.append([name, seconds])
        return list(objects(result.stdout))

    def seconds(self, name):
        return sum(seconds for step, seconds in self.steps if step == name)

    def drawing(self, name):
        return self.scratch / name

    def drawings(self, name):
        """A directory of its own."""
        path = self.scratch / name
        path.mkdir()
        return path


def objects(text):
    """JSON values one behind the other, on one line each or on several."""
    decoder, at = json.JSONDecoder(), 0
    while at < len(text.rstrip()):
        value, at = decoder.raw_decode(text, at)
        yield value
        while at < len(text) and text[at].isspace():
            at += 1


def check(condition, message):
    if not condition:
        sys.exit("make_report.py: " + message)


def relative(path):
    return os.path.relpath(path)


def detected(run, command, pictures, *options):
    """What is found in the pictures, a figure of each with its boxes, and how many boxes there are."""
    drawn = run.drawings(command)
    found = run(command, command, *pictures, "--draw", drawn, *options)
    figures, count = [], 0
    for picture, result in zip(pictures, found):
        names = [box["name"] for box in result["boxes"]]
        count += len(names)
        caption = ", ".join(f"{names.count(n)} × {n}" for n in dict.fromkeys(names)) or "nothing found"
        figures.append(page.figure(drawn / picture.name, f"{picture.name}: {caption}", height=280))
    check(count >= len(pictures), f"{command}: too little was found")
    return found, figures


def faces(run):
    pictures = sorted(run.scenes.glob("faces_*.jpg"))
    _, figures = detected(run, "faces", pictures)
    return page.section("Faces", "Face detection: where are faces?", "kelnn faces " + relative(pictures[0]) + " --draw out.png",
                        run.seconds("faces"), page.row(figures))


def landmarks(run):
    pictures = sorted(run.faces.glob("*.png"))[:8]
    drawn = run.drawings("points")
    points = run("landmarks", "landmarks", *pictures, "--draw", drawn)
    kinds = run("face classes", "classify-face", *pictures)
    figures = [page.figure(drawn / picture.name, f"{FACE_CLASSES[kind['class']]}, {kind['score']:.2f}; turned "
                           f"{found['pose'][0] * 57.3:+.0f}°", height=160)
               for picture, found, kind in zip(pictures, points, kinds)]
    return page.section("Landmarks and classes", "Face landmarks: eyes, nose and mouth. Face classification: which of three "
                        "kinds of face, with its score.", "kelnn landmarks FACE.png --draw out.png; kelnn classify-face FACE.png",
                        run.seconds("landmarks") + run.seconds("face classes"), page.row(figures))


def features(run):
    pictures = sorted(run.faces.glob("*.png"))
    vectors = [found["feature"] for found in run("face features", "feature", *pictures)]
    alike = [[sum(a * b for a, b in zip(v, w)) for w in vectors] for v in vectors]
    people = [picture.stem.split("_")[0] for picture in pictures]
    pairs = list(itertools.combinations(range(len(pictures)), 2))
    right = sum((alike[a][b] >= SAME_PERSON) == (people[a] == people[b]) for a, b in pairs)
    same = [alike[a][b] for a, b in pairs if people[a] == people[b]]
    other = [alike[a][b] for a, b in pairs if people[a] != people[b]]
    check(sum(same) / len(same) > sum(other) / len(other), "faces resemble others as much as themselves")
    words = (f"Face features: 256 numbers a face, and how alike two faces are. {len(set(people))} persons, several pictures "
             f"of each side by side. {right} of {len(pairs)} pairs are told right at {SAME_PERSON}.")
    return page.section("Who is it?", words, "kelnn compare A.png B.png", run.seconds("face features"),
                        page.matrix(pictures, alike))


def box_rows(run, picture, boxes):
    """Rows of a table: how probable a person is in each of the boxes."""
    places = [f"{box['x']},{box['y']},{box['w']},{box['h']}" for box in boxes]
    options = [word for place in places for word in ("--box", place)]
    found = run("person classes", "classify-person", picture, *options)
    return [[page.text(picture.name), f"<code>{place}</code>", page.text(box["name"]), f"{one['probability']:.3f}"]
            for place, box, one in zip(places, boxes, found)]


def persons_and_things(run):
    pictures = [run.scenes / f"persons_{shape}.jpg" for shape in ("landscape", "square", "portrait")]
    persons, person_figures = detected(run, "persons", pictures)
    object_pictures = sorted(run.scenes.glob("objects_*.jpg"))
    things, thing_figures = detected(run, "objects", object_pictures, "--classes", OBJECT_CLASSES)
    rows = box_rows(run, pictures[0], persons[0]["boxes"][:3]) + box_rows(run, object_pictures[0], things[0]["boxes"][:3])
    return page.section("Persons", "Person detection, one network for each orientation of frames. Below: person classification "
                        "of some boxes: how probable is a person in it?", "kelnn persons " + relative(pictures[0]) + " --draw out.png",
                        run.seconds("persons") + run.seconds("person classes"),
                        page.row(person_figures) + "<br>" +
                        page.table(["picture", "box", "found as", "person"], rows, numbers=[3])) + page.section(
        "Four kinds of things", "Four-class detection; what the classes are comes with the network.",
        f"kelnn objects {relative(object_pictures[0])} --classes {OBJECT_CLASSES} --draw out.png",
        run.seconds("objects"), page.row(thing_figures))


def cries(run):
    sound = run.sound
    windows = [w for w in run("cry", "cry", sound) if "probability" in w]
    check(any(w["probability"] > 0.5 for w in windows) and any(w["probability"] < 0.5 for w in windows),
          "the cry in evening.flac was not told from the rest")
    loudest = max(windows, key=lambda w: w["probability"])
    seen = run.drawing("features.png")
    run("cry", "features", sound, "--window", loudest["window"], "--png", seen, needs_models=False)
    content = page.bars([w["probability"] for w in windows], 1, [f"{w['start']} s: {w['probability']:.3f}" for w in windows],
                        [w["probability"] > 0.5 for w in windows], line=0.5,
                        caption="probability of crying, 0 to 1, of every 3 seconds") + "<br>" + page.figure(
                            seen, f"what the network sees of the seconds {loudest['start']} to {loudest['end']}: 64 mel "
                            "channels, brighter where there is more energy than usual")
    return page.section("Is a baby crying?", f"Cry detection on {windows[-1]['end']} seconds of sound: talk, a cry from 12 to 21 s, "
                        "a telephone from 24 s on, music.",
                        "kelnn cry " + relative(sound), run.seconds("cry"), content)


def motion(run):
    video = run.video
    settings = ["--ratio", "0.5", "--period", "5"]
    decisions = run("motion", "motion", video, *settings, needs_models=False)
    check({d["motion"] for d in decisions} == {True, False}, "the video was not told into motion and stillness")
    content = page.bars([d["changed_max"] for d in decisions], max(2.0, *(d["changed_max"] for d in decisions)),
                        [f"{d['time']:.1f} s: {d['changed_max']:.2f} %" for d in decisions], [d["motion"] for d in decisions],
                        line=0.5, caption="largest share of changed pixels in each half second; red: decided to be motion")
    return page.section("Did something move?", "The motion filter needs no network: it counts pixels that changed twice and "
                        "lets the frames of a period vote.", f"kelnn motion {relative(video)} --ratio 0.5 --period 5",
                        run.seconds("motion"), content)


def watch(run):
    video = run.video
    drawn = run.drawing("watch.avi")
    events = run("watch", "watch", video, "--ratio", "0.5", "--period", "5", "--draw", drawn)
    persons_seen = [e["time"] for e in events if e.get("persons")]
    faces_seen = [e["time"] for e in events if e.get("faces")]
    check(persons_seen and faces_seen, "nobody was seen in the video")
    rows = [["motion decided", sum(1 for e in events if e.get("motion")), "", ""]]
    for name, times in (("a person", persons_seen), ("a face, with landmarks and features", faces_seen)):
        rows.append([name, len(times), f"{min(times):.1f} s", f"{max(times):.1f} s"])
    content = page.player(page.jpeg_frames(drawn), 0.1, "watch") + page.table(
        ["seen", "frames", "first", "last"], rows, numbers=[1, 2, 3])
    return page.section("All of it, as a camera would", "Motion wakes the detectors; persons, then faces, then landmarks and "
                        "features of each face.", f"kelnn watch {relative(video)} --json --draw seen.avi", run.seconds("watch"), content)


def overview(run):
    total = {}
    for name, seconds in run.steps:
        runs, spent = total.get(name, (0, 0.0))
        total[name] = runs + 1, spent + seconds
    rows = [[page.text(name), runs, f"{spent:.2f}"] for name, (runs, spent) in total.items()]
    return page.section("How long it took", "Seconds of whole commands, loading the networks each time, on this machine: " +
                        page.text(f"{platform.machine()}, {os.cpu_count()} processors."), None, 0,
                        page.table(["task", "commands", "seconds"], rows, numbers=[1, 2]))


INTRODUCTION = """<p>Every task of libkelnn, run on this machine through the command line <code>kelnn</code>, which
is the library as the camera has it over another runtime.</p>
<p class="note">The networks are samples, trained on drawings and synthetic sounds alone, so that every task shows a result.
They do not know real people, things or babies: bring your own networks for those.</p>"""


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--kelnn", required=True, metavar="PROGRAM")
    parser.add_argument("--root", required=True, metavar="MODELS/")
    parser.add_argument("--out", required=True, metavar="REPORT.html")
    parser.add_argument("--examples", type=pathlib.Path, default=EXAMPLES, metavar="DIR", help="other samples of the same names")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as scratch:
        run = Runner(options.kelnn, options.root, options.examples, scratch)
        parts = []
        for make in (faces, landmarks, features, persons_and_things, cries, motion, watch):
            start = time.monotonic()
            parts.append(make(run))
            print(f"  {make.__name__:<18}{time.monotonic() - start:6.1f} s", flush=True)
        parts.append(overview(run))
    written = page.page("libkelnn at work", INTRODUCTION, parts)
    with open(options.out, "w", encoding="utf-8") as file:
        file.write(written)
    print(f"{options.out}: {len(written) / 1e6:.1f} MB")


if __name__ == "__main__":
    main()
