# SPDX-License-Identifier: Apache-2.0
"""The Python package that makes labelled data and trains the sample networks, each from its command on.

KEL_NN_TEST_TOOL is kelnn, KEL_NN_TEST_MODELS the packed sample networks, "" where no kelnn was built.
"""
import importlib
import itertools
import json
import os
import re
import runpy
import subprocess
import sys
from pathlib import Path

import cv2
import numpy as np
import onnx
import pytest
import torch

from models.labels import split, table
from models.sources.mixed import Mixed, Stock
from models.sources.sounds import windows
from models.training import grid, run
from models.training.examples import Batches, LabelledFrames

ROOT = Path(__file__).resolve().parents[2]
NETWORKS = {"face_detection": "labelled", "face_landmarks": "pictures", "face_features": "pictures",
            "face_classes": "pictures", "person_detection": "labelled", "four_class_detection": "labelled",
            "person_classes": "pictures", "cry_detection": "windows"}  # and what kelnn eval counts


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    """Three examples for each network, made by its data.py."""
    def directory(name):
        path = tmp_path_factory.getbasetemp() / name
        if not path.exists():
            sys.argv = ["data", str(path), "--count", "3", "--seed", "5"]
            runpy.run_module(f"models.{name}.data", run_name="__main__")
        return path
    return directory


def network_of(name):
    return next((ROOT / "models" / name).glob("[nl]*.onnx"))


@pytest.mark.parametrize("name", NETWORKS)
def test_what_is_made_is_what_eval_reads(name, made):
    lines = len((made(name) / "labels.csv").read_text().splitlines()) - 1
    command = [os.environ["KEL_NN_TEST_TOOL"], "eval", name.replace("_", "-"), "--root", os.environ["KEL_NN_TEST_MODELS"] + "/",
               "--data", made(name), "--json"]
    figures = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)
    empty = len(re.findall(r",,,,,$", (made(name) / "labels.csv").read_text(), re.MULTILINE))
    assert figures[NETWORKS[name]] == lines - empty > 0


def test_whole_pictures_of_faces_are_compared_as_kelnn_compare_does(monkeypatch, tmp_path):
    monkeypatch.setattr(sys, "argv", ["whole", str(tmp_path), "--count", "1"])
    runpy.run_module("models.face_features.whole", run_name="__main__")

    def said(*words):
        command = [os.environ["KEL_NN_TEST_TOOL"], *words, "--root", os.environ["KEL_NN_TEST_MODELS"] + "/", "--json"]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return json.loads(done.stdout) if done.returncode == 0 else None
    cv2.imwrite(str(tmp_path / "grey.png"), np.full((200, 200, 3), 90, np.uint8))
    (tmp_path / "labels.csv").open("a").write("grey.png,nobody\n")
    figures = said("eval", "face-features-whole", "--data", str(tmp_path))
    alike = [said("compare", *map(str, pair))["similarity"] for pair in itertools.combinations(sorted(tmp_path.glob("p*.png")), 2)]
    assert figures["without_face"] == 1 and figures["same_pairs"] == len(alike) == 10
    assert np.isclose(figures["mean_same_similarity"], np.mean(alike), atol=1e-5)


@pytest.mark.parametrize("name", NETWORKS)
def test_two_steps_from_the_committed_network_on_labelled_data(name, made, tmp_path):
    """A file is taken over only if torch and OpenCV compute the same with it, before the steps and after."""
    recipe = importlib.import_module(f"models.{name}.train").RECIPE
    run.run(recipe, ["--start", str(network_of(name)), "--data", str(made(name)), "--steps", "2", "--batch", "2",
                     "--workers", "0", "--threads", "1", "--out", str(tmp_path)])
    assert sorted(path.name for path in tmp_path.iterdir()) == sorted(f"{shape}.onnx" for shape in recipe.shapes)
    for path in tmp_path.iterdir():
        old, new = (onnx.load(file).graph for file in (ROOT / "models" / name / path.name, path))
        assert [output.name for output in new.output] == [output.name for output in old.output]
        assert [list(w.dims) for w in new.initializer] == [list(w.dims) for w in old.initializer]
        assert new.initializer[0].raw_data != old.initializer[0].raw_data


@pytest.mark.parametrize("name", NETWORKS)
def test_cards_say_what_networks_cost(name):
    """And it is what a camera has room and time for."""
    card = (ROOT / "models" / name / "README.md").read_text()
    for path in (ROOT / "models" / name).glob("*.onnx"):
        assert path.stat().st_size <= run.onnx_files.MAX_BYTES and run.onnx_files.multiply_adds(path) < 300e6
    for words in run.onnx_files.cost(network_of(name)).split(", "):
        assert words in card


def test_what_is_kept_of_the_network_to_start_from(made, tmp_path):
    """All of it: the same weights; half of it: half as far away as none of it."""
    recipe, start = importlib.import_module("models.face_classes.train").RECIPE, network_of("face_classes")
    away = []
    for share in ("0", "0.5", "1"):
        run.run(recipe, ["--start", str(start), "--keep", share, "--steps", "2", "--batch", "2", "--workers", "0", "--threads", "1",
                         "--out", str(tmp_path)])
        old, new = (onnx.load(file).graph.initializer for file in (start, tmp_path / start.name))
        away.append(np.concatenate([np.ravel(onnx.numpy_helper.to_array(b) - onnx.numpy_helper.to_array(a))
                                    for a, b in zip(old, new)]).astype(float))
    assert np.allclose(away[2], 0, atol=1e-6) and np.allclose(away[1], away[0] / 2, atol=1e-5) and np.abs(away[0]).max() > 1e-4


def test_the_script_that_trains_goes_on_from_what_it_made_and_ends_in_the_network():
    command = [ROOT / "scripts" / "train_models.sh", "--list", "--material", "/tmp"]
    lines = subprocess.run(command, check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout.splitlines()
    made, last = set(), {}
    for _, _, module, *arguments in map(str.split, (line for line in lines if ".train " in line)):
        options = run.parse(importlib.import_module(module).RECIPE, arguments)
        assert {Path(file).parent for file in (options.start, options.keep_of) if file} <= made
        made.add(options.out)
        last[module.split(".")[1]] = options.out
    assert last == {name: Path("models") / name for name in NETWORKS}


def test_a_network_that_normalises_again_computes_the_same():
    recipe = importlib.import_module("models.person_detection.train").RECIPE
    module, images = recipe.network(), torch.randn(4, 3, 128, 128, generator=torch.Generator().manual_seed(1)) * 50
    run.onnx_files.start_from(module, str(network_of("person_detection")), recipe.shapes["square"])
    with torch.no_grad():
        expected = module.eval()(images)
        run.onnx_files.renormalise(module, lambda: module(images))
        for found in (module.eval()(images), module.train()(images)):  # by what was seen, by what is seen
            assert all(torch.allclose(a, b, rtol=1e-3, atol=1e-3) for a, b in zip(expected, found))
        assert torch.allclose(expected[0], module(images / 2)[0], atol=0.1)  # in another light too, since it normalises


def test_the_same_seed_gives_the_same_batches_and_another_one_others(made):
    recipe = importlib.import_module("models.face_landmarks.train").RECIPE

    def first(*seed):
        options = run.parse(recipe, ["--batch", "2", "--workers", "0", "--data", str(made("face_landmarks")), *seed])
        return [value.numpy() for value in next(iter(Batches(recipe, options)))]

    one, again, other = first(), first(), first("--seed", "77")
    assert all(np.array_equal(a, b, equal_nan=True) for a, b in zip(one, again))
    assert not np.array_equal(one[0], other[0])


def test_labels_there_and_back(tmp_path):
    for name in ("a.png", "b, c.png"):
        (tmp_path / name).touch()
    table.write(tmp_path, table.BOXES, [["a.png", 1, 0.5, 2, 3, 4], ["a.png", "ignore", 1, 1, 9, 9], ["b, c.png"],
                                        ["b, c.png", "cat", 5, 6, 7, 8]])
    assert table.read(tmp_path, table.BOXES, ("cat", "dog")) == [
        (tmp_path / "a.png", [(1, 0.5, 2, 3, 4), (table.IGNORE, 1, 1, 9, 9)]), (tmp_path / "b, c.png", [(0, 5, 6, 7, 8)])]
    points = [*range(10), 1, 2, 3]
    table.write(tmp_path, table.POINTS, [["a.png", *points]])
    assert table.read(tmp_path, table.POINTS, ()) == [(tmp_path / "a.png", [tuple(points)])]


def test_labels_split_by_recording(tmp_path):
    """Of ten babies and five dogs with three recordings each, two and one are held back, whole, and eval finds the files."""
    rows = [[f"{kind}{n}-{take}.wav", int(kind == "baby"), kind] for kind, count in (("baby", 10), ("dog", 5))
            for n in range(count) for take in "abc"]
    for row in rows:
        (tmp_path / row[0]).touch()
    table.write(tmp_path, table.SOUNDS, rows)
    split.main([str(tmp_path), str(tmp_path / "out"), "--group", "[a-z]+[0-9]+"])
    parts = {name: table.read(tmp_path / "out" / name, table.SOUNDS, ("other", "cry")) for name in ("training", "held_back")}
    assert sorted(path.resolve() for part in parts.values() for path, _ in part) == \
        sorted(tmp_path.resolve() / row[0] for row in rows)
    groups = {name: {path.name.split("-")[0] for path, _ in part} for name, part in parts.items()}
    assert not groups["training"] & groups["held_back"]
    assert sorted(group[:3] for group in groups["held_back"]) == ["bab", "bab", "dog"]
    assert all(is_cry == (kind == "baby") for part in parts.values() for _, [(is_cry, kind)] in part)


@pytest.mark.parametrize("text, complaint", [
    ("file,x\n", "labels.csv:1: the columns have to be file,class,x,y,w,h"),
    ("file,class,x,y,w,h\na.png,0,1,2,3\n", "labels.csv:2: 5 fields instead of 6"),
    ("file,class,x,y,w,h\nb.png,,,,,\n", "labels.csv:2: no file b.png"),
    ("file,class,x,y,w,h\n\na.png,2,1,2,3,4\n", "labels.csv:3: no class '2'; there are cat, dog"),
    ("file,class,x,y,w,h\na.png,cow,1,2,3,4\n", "labels.csv:2: no class 'cow'"),
    ("file,class,x,y,w,h\na.png,dog,1,2,0,4\n", "labels.csv:2: w is '0'"),
    ("file,class,x,y,w,h\na.png,dog,1,nan,3,4\n", "labels.csv:2: y is 'nan'")])
def test_wrong_labels_are_told_with_their_place(tmp_path, text, complaint):
    (tmp_path / "a.png").touch()
    (tmp_path / "labels.csv").write_text(text)
    with pytest.raises(table.Invalid, match=re.escape(complaint)):
        table.read(tmp_path, table.BOXES, ("cat", "dog"))


def boxes_loss(name, rows, said=0.0):
    """What a detector's training makes of a frame where the network says the same everywhere."""
    recipe = importlib.import_module(f"models.{name}.train").RECIPE
    shape = recipe.shapes.get("square") or recipe.shapes["network"]
    image, *truth = recipe.vary(np.random.default_rng(1), np.zeros((*shape[1:], 3), np.uint8), rows, *shape[:0:-1])
    module = recipe.network()
    for weight in module.parameters():
        weight.data.fill_(said)
    batch = [torch.as_tensor(part)[None] for part in (image, *truth)]
    loss = recipe.phases[0].loss(module.eval(), *batch)
    loss.backward()
    assert all(torch.isfinite(weight.grad).all() for weight in module.parameters() if weight.grad is not None)
    return float(loss)


@pytest.mark.parametrize("name", ["face_detection", "person_detection", "four_class_detection"])
def test_any_number_of_boxes_in_a_frame_and_ignored_ones(name):
    everywhere = (table.IGNORE, -3000, -3000, 6000, 6000)
    assert boxes_loss(name, [(0, 40 * n % 280, 30 * n % 200, 30, 30) for n in range(30)]) > 0
    assert boxes_loss(name, []) > 0
    assert boxes_loss(name, [everywhere]) == 0
    assert boxes_loss(name, [everywhere, (0, 50, 50, 60, 60)]) > 0


def test_a_box_that_trains_the_grid_is_the_box_that_the_library_decodes():
    """The loss of a box is least where the decoder's formulas give that box."""
    anchors = torch.tensor([[(64, 187), (123, 211), (227, 264)], [(7, 17), (20, 50), (45, 99)]]).float()
    task = grid.Task(anchors, 6, ("person",), None)
    output = torch.zeros(1, 18, 20, 20)
    output.view(3, 6, 20, 20)[1, :4, 7, 5] = torch.tensor([0.0, -1.0, 0.5, -0.25])
    found, _ = grid.decode(task, output, 1)
    x, y, w, h = 16 * 5.5, 16 * (7 + 1 / (1 + np.e)), 20 * np.exp(0.5), 50 * np.exp(-0.25)
    assert np.allclose(found[0, 1, 7, 5], [x - w / 2, y - h / 2, x + w / 2, y + h / 2])
    assert grid.anchors_of(task, torch.tensor([[20.0, 50.0]]))[0].tolist() == [[False] * 3, [False, True, False]]
    assert torch.isclose(grid.generalised_iou(torch.tensor([0., 0, 2, 2]), torch.tensor([1., 1, 3, 3])),
                         torch.tensor(1 / 7 - 2 / 9))


def test_parts_of_labelled_frames_keep_boxes_on_what_they_are_around(tmp_path):
    """White boxes on black: wherever the part is cut, a whole box is white, and a box of which little is left is ignored."""
    picture = np.zeros((120, 160, 3), np.uint8)
    rows = [[0, 10, 20, 30, 40], [1, 100, 60, 50, 50]]
    for _, x, y, w, h in rows:
        picture[y:y + h, x:x + w] = 255
    cv2.imwrite(str(tmp_path / "a.png"), picture)
    table.write(tmp_path, table.BOXES, [["a.png", *row] for row in rows])
    frames, rng, kinds = LabelledFrames(tmp_path, ("cat", "dog")), np.random.default_rng(3), set()
    for _ in range(60):
        part, labels = frames.example(rng, 0, 0)
        white = 0
        for kind, x, y, w, h in np.array(labels).reshape(-1, 5).astype(int):
            assert (part[y:y + h, x:x + w] == 255).all()
            white += w * h
            kinds.add(kind)
        assert white * 3 == np.count_nonzero(part)
    assert kinds == {0, 1, table.IGNORE}


def test_windows_for_training_are_labelled_by_what_is_in_them():
    """A low tone for crying, a middle one for the rest: the low one is in every cry, not much fainter, and in nothing else."""
    seconds = np.arange(windows.WINDOW) / 16000

    class Tones:
        def cry(self, rng, length):
            return np.sin(2 * np.pi * 500 * seconds), np.ones(length, bool)

        def other(self, rng, length):
            return np.sin(2 * np.pi * 1700 * seconds), np.zeros(length, bool)

    rng, seen, ends = np.random.default_rng(1), [], []
    for _ in range(60):
        pcm, is_cry = windows.training_window(rng, Tones())
        power = np.abs(np.fft.rfft(pcm.astype(float))) ** 2  # a bin is a third of a hertz
        low, middle, top = power[1470:1530].sum(), power[5070:5130].sum(), power[12600:].mean()
        assert (low > 0.003 * middle) == is_cry, low / middle
        seen.append(is_cry)
        ends.append(top < 4e-2 * power[9000:9900].mean())
    assert 12 <= sum(seen) <= 36 and 15 <= sum(ends) <= 45  # two in five are cries, half end at 4 kHz


def test_mixed_sources_come_in_their_shares_and_only_where_they_can():
    class Photos:
        def person(self, rng):
            return "photo"

    class Drawn:
        def person(self, rng):
            return "drawn"

        def head(self, rng, size):
            return size

    rng, mixed = np.random.default_rng(1), Mixed([(3, Photos()), (1, Drawn())])
    persons = [mixed.person(rng) for _ in range(2000)]
    assert 0.72 < persons.count("photo") / 2000 < 0.78
    assert {mixed.head(rng, 7) for _ in range(20)} == {7}
    with pytest.raises(AttributeError, match="no source has thing"):
        mixed.thing(rng, ())
    stock, numbers = Stock(size=5, fresh=0.5), iter(range(1000))
    taken = [stock.take(rng, lambda _: next(numbers)) for _ in range(200)]
    assert taken[0] == 0 and len(stock.kept) == 5 and 60 < max(taken) < 150


def test_a_user_is_told_what_is_wrong(tmp_path):
    recipe = importlib.import_module("models.face_classes.train").RECIPE
    other = network_of("face_landmarks")
    (tmp_path / "labels.csv").write_text("file,class\nnone.png,0\n")
    for arguments, complaint in ((["--data", str(tmp_path)], "labels.csv:2: no file none.png"),
                                 (["--start", str(other)], "is not a network of this task's layers"),
                                 (["--start", str(tmp_path / "none.onnx")], "none.onnx")):
        with pytest.raises(SystemExit, match=re.escape(complaint)):
            run.run(recipe, [*arguments, "--out", str(tmp_path), "--workers", "0"])
