# SPDX-License-Identifier: Apache-2.0
"""Networks of other layouts, exported as training tools do, become models that kelnn packs and that find the same boxes.

KEL_NN_TEST_TOOL is kelnn.
"""
import json
import os
import re
import subprocess

import cv2
import numpy as np
import onnx
import pytest
import torch
from onnx import TensorProto, helper, numpy_helper
from torch import nn

from models.adapt import __main__ as adapt, check, found
from models.tasks import DETECTORS

torch.set_num_threads(1)


class Other(nn.Module):
    """A detector on bytes from 0 to 1, blue first, with maps of some strides; weights are random, what is rare is found."""

    def __init__(self, layout, size, classes, strides, seed):
        super().__init__()
        torch.manual_seed(seed)
        self.layout, self.size, self.classes, self.strides = layout, size, classes, strides
        values = {"4+classes": 4, "5+classes": 5, "anchors": 5, "heat-maps": 4}[layout] + classes
        self.look = nn.ModuleList([nn.Conv2d(3, 8, s + 2, s, padding=1) for s in strides])
        self.head = nn.ModuleList([nn.Conv2d(8, values, 1) for _ in strides])
        for look, head in zip(self.look, self.head):
            nn.init.normal_(look.weight, std=3 / look.kernel_size[0])
            nn.init.normal_(head.weight, std=0.5)
            head.weight.data[:2] *= 0.5  # boxes stay near their cells
            head.weight.data[2:4] *= 0.2  # and are neither tiny nor large
            head.weight.data[4:] *= 6  # nearly all scores are near 0 or near 1

    def maps(self, image):
        return [head(nn.functional.hardtanh(look(image), -1, 3)) for look, head in zip(self.look, self.head)]

    def calibrate(self, pictures, count):
        """So that so many cells of each map have a score of 0.9 or more."""
        first = 4 if self.layout in ("4+classes", "heat-maps") else 5
        with torch.no_grad():
            for n, head in enumerate(self.head):
                maps = [self.maps(one)[n] for one in pictures]
                against = slice(4, 5 if self.layout == "anchors" else 4)  # the background
                logits = torch.cat([(one[:, first:].amax(1) - one[:, against].sum(1)).reshape(-1) for one in maps])
                head.bias[first:] += 2.2 - logits.sort().values[-count]
                if self.layout == "5+classes":
                    head.bias[4] += 20  # there is something
        return self

    def forward(self, image):
        if self.layout == "heat-maps":
            [values] = self.maps(image)
            return values[:, 4:], 0.5 + 3 * values[:, 2:4].sigmoid(), values[:, :2].sigmoid()
        boxes, scores = [], []
        for values, stride in zip(self.maps(image), self.strides):
            rows, columns = values.shape[2:]
            y, x = torch.meshgrid(torch.arange(rows), torch.arange(columns), indexing="ij")
            values = values.reshape(1, values.shape[1], -1)
            centre = (values[:, :2].sigmoid() * 2 - 0.5 + torch.stack([x, y]).reshape(1, 2, -1)) * stride
            extent = (values[:, 2:4].sigmoid() * 2) ** 2 * (2.5 * stride)
            boxes.append(values[:, :4] if self.layout == "anchors" else torch.cat([centre, extent], 1))
            scores.append(values[:, 4:])
        boxes, scores = torch.cat(boxes, 2), torch.cat(scores, 2)
        if self.layout == "anchors":
            return scores.transpose(1, 2).softmax(2), boxes.transpose(1, 2)
        together = torch.cat([boxes, scores.sigmoid()], 1)
        return together if self.layout == "4+classes" else together.transpose(1, 2)

    def anchors(self):
        """Of each cell one, [n, 4]."""
        rows = [((x + 0.5) * s / self.size[0], (y + 0.5) * s / self.size[1], 3 * s / self.size[0], 3 * s / self.size[1])
                for s in self.strides for y in range(self.size[1] // s) for x in range(self.size[0] // s)]
        return np.array(rows)

    def boxes(self, outputs):
        """Centres and sizes in pixels, and scores: the layouts once more, from what they are said to be."""
        outputs = [one[0].numpy().astype(np.float64) for one in outputs]
        if self.layout == "4+classes":
            return outputs[0][:4].T, outputs[0][4:].T
        if self.layout == "5+classes":
            return outputs[0][:, :4], outputs[0][:, 5:] * outputs[0][:, 4:5]
        if self.layout == "anchors":
            a, (scores, steps) = self.anchors(), outputs
            boxes = np.hstack([a[:, :2] + steps[:, :2] * 0.1 * a[:, 2:], a[:, 2:] * np.exp(0.2 * steps[:, 2:])])
            return boxes * np.tile(self.size, 2), scores[:, 1:]
        heat, sizes, offsets = 1 / (1 + np.exp(-outputs[0])), outputs[1], outputs[2]
        boxes, scores = [], []
        for kind, y, x in np.ndindex(heat.shape):
            if heat[kind, y, x] == heat[kind, max(0, y - 1):y + 2, max(0, x - 1):x + 2].max():
                boxes.append((x + offsets[0, y, x], y + offsets[1, y, x], *sizes[:, y, x]))
                scores.append(np.eye(len(heat))[kind] * heat[kind, y, x])
        return np.array(boxes) * self.strides[0], np.array(scores)


def exported(module, path):
    torch.onnx.export(module.eval(), torch.zeros(1, 3, *module.size[::-1]), path, opset_version=12, input_names=["image"])
    return str(path)


def in_frame(task, corners, size):
    """Left, top, width, height as the library gives them in a frame of the input's size."""
    if task == "face-detection":
        return [*corners[:2], *(corners[2:] - corners[:2])]
    middle, extent = np.trunc((corners[:2] + corners[2:]) / 2), np.trunc(corners[2:] - corners[:2])
    first = np.maximum(np.trunc(middle - extent / 2), 1)
    last = np.minimum(np.trunc(middle + extent / 2), np.array(size) - 1)
    return [*first, *(last - first)]


COMMANDS = {"face-detection": "faces", "person-detection": "persons", "four-class-detection": "objects"}
INPUT = ["--mean", "0", "--deviation", "255", "--blue-first"]


@pytest.mark.parametrize("layout, task, size, classes, strides, seed, options", [
    ("4+classes", "person-detection", (416, 256), 3, (32, 16, 8), 3, ["--classes", "1"]),
    ("4+classes", "four-class-detection", (320, 320), 6, (32, 16), 3, ["--classes", "5,0+2,1,4"]),
    ("4+classes", "face-detection", (320, 256), 1, (32, 16, 8), 3, []),
    ("5+classes", "person-detection", (256, 416), 1, (32, 16), 6, []),
    ("5+classes", "four-class-detection", (416, 256), 4, (16,), 4, []),
    ("anchors", "face-detection", (320, 240), 1, (16,), 3, ["--anchors", "{0}/anchors.txt"]),
    ("anchors", "person-detection", (320, 320), 2, (32, 16), 6, ["--anchors", "{0}/anchors.txt", "--classes", "1"]),
    ("heat-maps", "person-detection", (416, 256), 1, (8,), 3, ["--scores", "sigmoid"]),
    ("heat-maps", "face-detection", (320, 240), 1, (8,), 3, ["--scores", "sigmoid"])])
def test_the_same_boxes_are_found_by_the_library(layout, task, size, classes, strides, seed, options, tmp_path, capsys):
    detector = DETECTORS[task]
    shown = detector.sizes[""] if task == "face-detection" else size
    pictures = list(check.random_pictures(np.random.default_rng(5), 3, shown, 4))
    larger = [np.full((3, size[1], size[0]), 128, np.uint8) for _ in pictures]
    for whole, picture in zip(larger, pictures):
        whole[:, :shown[1], :shown[0]] = picture
    inputs = [torch.from_numpy(one[None, ::-1].copy()).float() / 255 for one in larger]
    module = Other(layout, size, classes, strides, seed).calibrate(inputs, 20)
    np.savetxt(tmp_path / "anchors.txt", module.anchors())
    path = exported(module, tmp_path / "other.onnx")
    adapt.main([path, "--layout", layout, "--to", task, *INPUT, *(one.format(tmp_path) for one in options)])
    packing = capsys.readouterr().out.splitlines()[1].split()
    tool = os.environ["KEL_NN_TEST_TOOL"]
    subprocess.run([tool, *packing[1:], "--root", tmp_path / "models/"], check=True, stdout=subprocess.DEVNULL)
    chosen = adapt.classes_of(options[options.index("--classes") + 1] if "--classes" in options else None, classes,
                              detector.classes)
    for n, picture in enumerate(pictures):
        cv2.imwrite(str(tmp_path / f"{n}.png"), picture.transpose(1, 2, 0)[..., ::-1])
    names = [tmp_path / f"{n}.png" for n in range(len(pictures))]
    output = subprocess.run([tool, COMMANDS[task], *names, "--root", tmp_path / "models/", "--json"], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    total = 0
    for line, image in zip(output.splitlines(), inputs):
        with torch.no_grad():
            outputs = module(image)
        boxes, scores = module.boxes([outputs] if torch.is_tensor(outputs) else outputs)
        wanted = check.detections(found.cut_off(boxes, scores, shown, chosen), detector.threshold, detector.overlap)
        given = json.loads(line)["boxes"]
        assert len(given) == len(wanted)
        for one, (corners, score, kind) in zip(given, wanted):
            box = [one[name] for name in "xywh"]
            assert np.allclose(box, in_frame(task, corners, shown), atol=1.01), (box, corners)
            assert abs(one["score"] - score) < 1e-3 and one["class"] == kind
        total += len(wanted)
    assert total > 10


def small(path, nodes, constants, shape=(1, 3, 4, 6), opset=11):
    """A network of nodes, from "image" to "found"."""
    network = helper.make_graph(nodes, "small", [helper.make_tensor_value_info("image", TensorProto.FLOAT, shape)],
                                [helper.make_tensor_value_info("found", TensorProto.FLOAT, None)],
                                [numpy_helper.from_array(np.asarray(value), name) for name, value in constants.items()])
    model = onnx.shape_inference.infer_shapes(helper.make_model(network, opset_imports=[helper.make_opsetid("", opset)]))
    model.ir_version = 6
    onnx.save(model, str(path))
    return str(path)


def values(path, image):
    network = cv2.dnn.readNetFromONNX(str(path))
    network.setInput(image)
    return network.forward("found")


NUMBERS = np.random.default_rng(2).normal(size=(24, 5)).astype(np.float32)
NODE = helper.make_node
FLAT = NODE("Reshape", ["image", "shape"], ["flat"])


@pytest.mark.parametrize("nodes, constants, expected", [
    ([NODE("Clip", ["image", "low", "high"], ["found"])], {"low": np.float32(-0.5), "high": np.float32(0.75)},
     lambda x: x.clip(-0.5, 0.75)),
    ([NODE("Clip", ["image", "", "high"], ["found"])], {"high": np.float32(0.25)}, lambda x: x.clip(None, 0.25)),
    ([NODE("Max", ["low", "image"], ["found"])], {"low": np.float32(0.25)}, lambda x: x.clip(0.25)),
    ([FLAT, NODE("Gemm", ["flat", "w", "b"], ["found"])],
     {"shape": np.array([3, 24]), "w": NUMBERS, "b": NUMBERS[0]}, lambda x: x.reshape(3, 24) @ NUMBERS + NUMBERS[0]),
    ([FLAT, NODE("Gemm", ["flat", "w", "b"], ["found"], transB=1, alpha=0.5, beta=3.0)],
     {"shape": np.array([3, 24]), "w": NUMBERS.T.copy(), "b": NUMBERS[0]},
     lambda x: 0.5 * x.reshape(3, 24) @ NUMBERS + 3 * NUMBERS[0]),
    ([FLAT, NODE("Mul", ["flat", "k"], ["found"])], {"shape": np.array([3, 24]), "k": NUMBERS[:3, :1]},
     lambda x: x.reshape(3, 24) * NUMBERS[:3, :1]),
    ([FLAT, NODE("Sub", ["k", "flat"], ["found"])], {"shape": np.array([1, 3, 24]), "k": NUMBERS[:, 0].reshape(1, 24)},
     lambda x: NUMBERS[:, 0] - x.reshape(1, 3, 24)),
    ([NODE("Pow", ["image", "two"], ["square"]), NODE("Mul", ["square", "k"], ["found"])],
     {"two": np.float32(2), "k": np.float32(8)}, lambda x: 8 * x ** 2)])
def test_what_opencv_refuses_or_gets_wrong_is_rewritten(nodes, constants, expected, tmp_path):
    rng, path = np.random.default_rng(1), small(tmp_path / "a.onnx", nodes, constants, (1, 3, 4, 6))
    image = rng.normal(size=(1, 3, 4, 6)).astype(np.float32)
    wanted = expected(image)
    try:
        before = values(path, image)
    except cv2.error:
        before = None
    assert before is None or before.shape != wanted.shape or abs(before - wanted).max() > 0.1
    adapt.main([path, "-o", str(tmp_path / "b.onnx")])
    assert np.allclose(values(tmp_path / "b.onnx", image), wanted, atol=1e-5)


@pytest.mark.parametrize("padding, mean, deviation, options, operators", [
    (0, [123, 116, 103], [58, 57, 56], [], ["Conv"]),
    (1, [0], [255], ["--blue-first"], ["Conv", "Pad"]),  # its zeros are black
    (1, [128], [64], [], ["Conv"]),  # and these the library's
    (1, [123, 116, 103], [58, 57, 56], ["--blue-first"], ["Conv", "Conv"])])  # three zeros
def test_normalisation_goes_into_the_first_convolution(padding, mean, deviation, options, operators, tmp_path):
    torch.manual_seed(1)
    layer = nn.Conv2d(3, 4, 3, padding=padding).eval()
    torch.onnx.export(layer, torch.zeros(1, 3, 5, 7), tmp_path / "a.onnx", opset_version=11, output_names=["found"])
    adapt.main([str(tmp_path / "a.onnx"), "-o", str(tmp_path / "b.onnx"), "--mean", ",".join(map(str, mean)),
                "--deviation", ",".join(map(str, deviation)), *options])
    picture = np.random.default_rng(1).integers(0, 256, (1, 3, 5, 7)).astype(np.float32)
    given = picture[:, ::-1] if options else picture
    given = (given - np.reshape(mean, (-1, 1, 1))) / np.reshape(deviation, (-1, 1, 1))
    with torch.no_grad():
        wanted = layer(torch.from_numpy(given).float()).numpy()
    assert np.allclose(values(tmp_path / "b.onnx", picture - 128), wanted, atol=1e-4)
    assert sorted(node.op_type for node in onnx.load(tmp_path / "b.onnx").graph.node) == operators


def crossed(path):
    """An upright and a flat box in each picture, both in its middle and of one size."""
    rows = np.array([[[200, 100, 20, 80, 0.9], [200, 100, 80, 20, 0.8]]], np.float32)
    nodes = [NODE("GlobalAveragePool", ["image"], ["mean"]), NODE("Conv", ["mean", "none"], ["zeros"], kernel_shape=[1, 1]),
             NODE("Reshape", ["zeros", "shape"], ["flat"]), NODE("Add", ["flat", "rows"], ["found"])]
    return small(path, nodes, {"none": np.zeros((10, 3, 1, 1), np.float32), "shape": np.array([1, 5, 2]),
                               "rows": rows.transpose(0, 2, 1).copy()}, (1, 3, 256, 416))


@pytest.mark.parametrize("network, options, complaint", [
    (crossed, ["--layout", "4+classes", "--to", "person-detection"],
     "cannot be said to this task: class 0 with 0.800 at x 160.0, y 90.0, 80.0 x 20.0 is lost"),
    (crossed, ["--layout", "5+classes", "--to", "person-detection"], "outputs found [1, 5, 2]: it is not [1, n, 5 + classes]"),
    (crossed, ["--layout", "heat-maps", "--to", "person-detection"], "3 outputs are needed"),
    (crossed, ["--layout", "4+classes", "--to", "four-class-detection"], "the network has 1 classes and the task 4"),
    (crossed, ["--layout", "4+classes", "--to", "person-detection", "--classes", "1"], "classes, which are 0 to 0"),
    (crossed, ["--layout", "4+classes", "--to", "face-detection"], "the input is 416 wide and 256 high instead of 320 and 240"),
    (lambda path: exported(Other("heat-maps", (320, 240), 1, (4,), 1), path),
     ["--layout", "heat-maps", "--to", "face-detection"], "4800 boxes are more than the 4420"),
    (lambda path: exported(Other("anchors", (320, 240), 1, (16,), 1), path),
     ["--layout", "anchors", "--to", "face-detection", "--anchors", "task"], "300 anchors are needed, there are 4420"),
    (lambda path: small(path, [NODE("Relu", ["image"], ["found"])], {}, opset=9), [], "the network has opset 9"),
    (lambda path: small(path, [NODE("NonZero", ["image"], ["n"]), NODE("Cast", ["n"], ["found"], to=1)], {}), [],
     "OpenCV 4.6.0 cannot read the network")])
def test_what_cannot_be_adapted_is_refused_in_words(network, options, complaint, tmp_path):
    with pytest.raises(SystemExit, match=re.escape(complaint)):
        adapt.main([network(tmp_path / "a.onnx"), "-o", str(tmp_path / "b.onnx"), *options])
    assert not (tmp_path / "b.onnx").exists()


@pytest.mark.parametrize("task, shapes, layout", [
    ("person-detection-landscape", [(1, 5, 700)], "4+classes"), ("person-detection-landscape", [(1, 700, 6)], "5+classes"),
    ("four-class-detection-landscape", [(1, 700, 5), (1, 700, 4)], "anchors"),
    ("four-class-detection-landscape", [(1, 4, 8, 13), (1, 2, 8, 13), (1, 2, 8, 13)], "heat-maps"),
    ("person-detection-landscape", [(1, 5, 4)], None), ("person-classes", [(1, 5, 700)], None)])
def test_pack_tells_what_it_found_and_suggests_the_layout(task, shapes, layout, tmp_path):
    size = (112, 112) if task == "person-classes" else (256, 416)
    nodes, constants = [NODE("GlobalAveragePool", ["image"], ["mean"])], {}
    for n, shape in enumerate(shapes):
        constants.update({f"w{n}": np.zeros((int(np.prod(shape)), 3, 1, 1), np.float32), f"s{n}": np.array(shape)})
        nodes += [NODE("Conv", ["mean", f"w{n}"], [f"c{n}"], kernel_shape=[1, 1]),
                  NODE("Reshape", [f"c{n}", f"s{n}"], ["found" + str(n) * (n > 0)])]
    path = small(tmp_path / "a b.onnx", nodes, constants, (1, 3, *size))
    model = onnx.load(path)
    for n in range(1, len(shapes)):
        model.graph.output.append(helper.make_tensor_value_info(f"found{n}", TensorProto.FLOAT, shapes[n]))
    onnx.save(model, path)
    told = subprocess.run([os.environ["KEL_NN_TEST_TOOL"], "pack", task, path, "--root", tmp_path / "models/"],
                          stderr=subprocess.PIPE, text=True).stderr
    shown = [" x ".join(map(str, (*one[2:], one[1]) if len(one) == 4 else one)) for one in shapes]
    assert f"Its outputs: {', '.join(shown)}\n" in told + "\n"
    command = f"python3 -m models.adapt '{path}' --layout {layout} --to {task.replace('-landscape', '')}"
    assert command in told if layout else "models.adapt" not in told
