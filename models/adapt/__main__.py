# SPDX-License-Identifier: Apache-2.0
"""Adapts an ONNX network of another origin, so that kelnn pack takes it: input, outputs, and nodes that OpenCV cannot read.

Layouts of a detector's outputs (n boxes, in pixels of the network's input):
"""
import argparse
import sys
from pathlib import Path
from typing import Any, Callable, List, Optional, Sequence, Tuple

import cv2
import numpy as np
import onnx

from models.adapt import check, found, input as network_input, layouts, runtime
from models.adapt.graph import Network, Refused
from models.tasks import DETECTORS, face_anchors

CHECKED_PICTURES = 6
OPSETS = range(11, 18)


def parse(arguments: Optional[Sequence[str]]) -> argparse.Namespace:
    lines = "\n".join(f"  {name:10} {layout.outputs}" for name, layout in layouts.LAYOUTS.items())
    parser = argparse.ArgumentParser(prog="python3 -m models.adapt", description=__doc__ + lines,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("network", metavar="NETWORK.onnx", type=Path)
    parser.add_argument("-o", "--out", metavar="FILE", type=Path, help="default: NETWORK_TASK.onnx")
    parser.add_argument("--to", metavar="TASK", choices=DETECTORS, help="the detector that it is to be: " + ", ".join(DETECTORS))
    parser.add_argument("--layout", metavar="NAME", choices=layouts.LAYOUTS, help="of its outputs; without one they stay")
    parser.add_argument("--outputs", metavar="NAMES", help="which outputs they are, with commas (default: the first)")
    parser.add_argument("--classes", metavar="LIST", help="which of the network's classes, from 0 on, are the task's: 0, or "
                        "15,16,2+5+7,24, where + makes several one (default: all)")
    parser.add_argument("--scores", choices=("as-they-are", "sigmoid", "softmax"), default="as-they-are",
                        help="what is still to be done to the scores (default: nothing)")
    parser.add_argument("--mean", metavar="NUMBERS", type=numbers, default=[network_input.MIDDLE],
                        help="the network takes (byte - mean) / deviation: one number or one a channel (default: 128)")
    parser.add_argument("--deviation", metavar="NUMBERS", type=numbers, default=[1.0],
                        help="default: 1; for an input from 0 to 1: --mean 0 --deviation 255")
    parser.add_argument("--blue-first", action="store_true", help="the network takes blue, green, red")
    parser.add_argument("--anchors", metavar="FILE", help="of the layout anchors: a line each of centre and size, relative to "
                        "the input; or the word task: face detection's own")
    parser.add_argument("--variances", metavar="NUMBERS", type=numbers, default=[0.1, 0.2],
                        help="of anchors' centres and sizes (default: 0.1,0.2)")
    parser.add_argument("--pictures", metavar="FILE", nargs="+", default=[], help="to check it on, beside random ones")
    options = parser.parse_args(arguments)
    if bool(options.layout) != bool(options.to):
        parser.error("--layout and --to go together")
    if 0 in options.deviation or len(options.variances) != 2:
        parser.error("a deviation is not 0, and there are two variances")
    return options


def numbers(text: str) -> List[float]:
    return [float(one) for one in text.split(",")]


def load(path: Path) -> Network:
    try:
        model = onnx.load(str(path))
        onnx.checker.check_model(model)
    except OSError as error:
        raise Refused(str(error)) from error
    except Exception as error:  # of protobuf or of the checker, whose types are no business of ours
        raise Refused(f"no ONNX network: {error}") from error
    opset = max((one.version for one in model.opset_import if one.domain in ("", "ai.onnx")), default=0)
    if opset not in OPSETS:
        raise Refused(f"the network has opset {opset}; export it with one from {OPSETS[0]} to {OPSETS[-1]}")
    return Network(model)


def read_anchors(given: Optional[str]) -> Any:
    if given is None or given == "task":
        return face_anchors() if given else None
    try:
        return np.loadtxt(Path(given).read_text(encoding="utf-8").replace(",", " ").splitlines(), np.float32, ndmin=2)
    except (OSError, ValueError) as error:
        raise Refused(f"{given}: {error}") from error


def classes_of(text: Optional[str], there: int, wanted: int) -> List[List[int]]:
    """For each of the task's classes those of the network."""
    if text is None:
        if there != wanted:
            raise Refused(f"the network has {there} classes and the task {wanted}; --classes says which they are")
        return [[n] for n in range(there)]
    try:
        classes = [[int(n) for n in one.split("+")] for one in text.split(",")]
    except ValueError:
        classes = []
    if len(classes) != wanted or not all(0 <= n < there for one in classes for n in one):
        raise Refused(f"--classes has to name {wanted} of the network's classes, which are 0 to {there - 1}")
    return classes


def pictures(options: argparse.Namespace, channels: int, size: Tuple[int, int]) -> List[Any]:
    some = list(check.random_pictures(np.random.default_rng(1), channels, size, CHECKED_PICTURES))
    for path in options.pictures:
        picture = cv2.imread(path, cv2.IMREAD_COLOR if channels == 3 else cv2.IMREAD_GRAYSCALE)
        if picture is None:
            raise Refused(f"{path} is no picture")
        some.append(np.atleast_3d(cv2.resize(picture, size))[..., ::-1].transpose(2, 0, 1))
    return some


def adapt_detector(network: Network, options: argparse.Namespace) -> Tuple[Any, str, Callable[..., Any]]:
    """The network whose outputs are as they were, the task that it fits, and what finds boxes with both."""
    detector, layout = DETECTORS[options.to], layouts.LAYOUTS[options.layout]
    shape = [axis.dim_value for axis in network.graph.input[0].type.tensor_type.shape.dim]
    ending, size = min(detector.sizes.items(), key=lambda one: abs(one[1][0] - shape[3]) + abs(one[1][1] - shape[2]))
    whole = network_input.fix_shape(network, size)
    runtime.rewrite(network)
    shapes = network.shapes()
    names = options.outputs.split(",") if options.outputs else [one.name for one in network.graph.output][:layout.count]
    if len(names) != layout.count or any(name not in shapes for name in names):
        raise Refused(f"{layout.count} outputs are needed, {layout.outputs}; there are " + ", ".join(
            f"{one.name} {shapes.get(one.name)}" for one in network.graph.output))
    decoding = layouts.Options(whole, options.scores, read_anchors(options.anchors), options.variances)
    try:
        count, class_count = layout.shapes_of([shapes[name] for name in names], decoding)
    except Refused as error:
        raise Refused("outputs " + ", ".join(f"{name} {shapes[name]}" for name in names) + f": {error}") from error
    classes = classes_of(options.classes, class_count, detector.classes)
    network.set_outputs({name: name for name in names})
    before = network.finished()

    boxes, scores = layout.nodes(network, names, [shapes[name] for name in names], decoding)
    boxes, score, chosen = found.in_picture(network, boxes, scores, size, classes, class_count)
    if detector.anchors:
        values = found.to_grids(network, boxes, score, chosen, count, size, detector)
        network.set_outputs(dict(zip(values, ("grid_32", "grid_16"))))
    else:
        values = found.to_face_anchors(network, boxes, score, count, size)
        network.set_outputs({value: f"{('scores', 'regressions')[n % 2]}_{n // 2}" for n, value in enumerate(values)})

    def compare(run_before: Any, run_after: Any, preparation: network_input.Preparation, picture: Any) -> int:
        image = picture[None].astype(np.float32) - network_input.MIDDLE
        larger = np.zeros((1, len(picture), whole[1], whole[0]), np.float32)
        larger[..., :size[1], :size[0]] = image
        wanted = found.cut_off(*layout.decode(run_before(preparation.of(larger)), decoding), size, classes)
        outputs = run_after(image)
        said = found.read_grids(outputs, size, detector) if detector.anchors else found.read_faces(outputs)
        return check.compare(wanted, said, detector.threshold, detector.overlap)

    network_input.pad(network, size)
    return before, options.to + (f"-{ending}" if ending else ""), compare


def keep_outputs(network: Network, preparation: network_input.Preparation) -> Tuple[Any, Callable[..., Any]]:
    """The network as it was but for what OpenCV cannot read, and what holds the values of both against each other."""
    network_input.fix_shape(network, (0, 0))
    runtime.rewrite(network)
    before = network.finished()

    def compare(run_before: Any, run_after: Any, preparation: network_input.Preparation, picture: Any) -> int:
        image = picture[None].astype(np.float32) - network_input.MIDDLE
        for old, new in zip(run_before(preparation.of(image)), run_after(image)):
            if not abs(old - new).max() <= 1e-3 * (1 + abs(old).max()):
                raise Refused(f"the adapted network's values differ by {abs(old - new).max():g}")
        return 0
    return before, compare


def adapt(options: argparse.Namespace) -> str:
    """What was done, in words."""
    network = load(options.network)
    preparation = network_input.Preparation(options.mean, options.deviation, options.blue_first)
    if options.to:
        before, task, compare = adapt_detector(network, options)
    else:
        task = ""
        before, compare = keep_outputs(network, preparation)
    network_input.fold(network, preparation)
    after = network.finished()
    run_before, run_after = check.runner(before), check.runner(after)
    _, channels, height, width = (axis.dim_value for axis in after.graph.input[0].type.tensor_type.shape.dim)
    some = pictures(options, channels, (width, height))
    count = sum(compare(run_before, run_after, preparation, picture) for picture in some)
    out = options.out or options.network.with_name(f"{options.network.stem}_{task or 'adapted'}.onnx")
    onnx.save(after, str(out))
    text = f"{out}: checked on {len(some)} pictures"
    if task:
        text += f", {count} boxes found as before\nkelnn pack {task} {out}"
        if not count:
            text += "\nNothing was found in random pictures: try --pictures with some of your own."
    return text


def main(arguments: Optional[Sequence[str]] = None) -> None:
    options = parse(arguments)
    try:
        print(adapt(options))
    except Refused as error:
        sys.exit(f"{options.network}: {error}")


if __name__ == "__main__":
    main()
