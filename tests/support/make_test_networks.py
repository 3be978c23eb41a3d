# SPDX-License-Identifier: Apache-2.0
"""Writes the small ONNX networks of the runtime's tests and benchmarks: make_test_networks.py DIRECTORY

Each network shows one thing, and its outputs can be worked out in the head: x is the image.
"""
import os
import sys

import numpy as np
from onnx import TensorProto, helper, numpy_helper

node = helper.make_node


def save(name, nodes, inputs, outputs, weights={}, kind=TensorProto.FLOAT, weights_as_inputs=False):
    tensors = [value if isinstance(value, TensorProto) else numpy_helper.from_array(np.asarray(value), key)
               for key, value in weights.items()]
    infos = [helper.make_tensor_value_info(key, kind, shape) for key, shape in inputs]
    if weights_as_inputs:
        infos += [helper.make_tensor_value_info(t.name, t.data_type, t.dims) for t in tensors]
    results = [helper.make_tensor_value_info(key, kind, shape) for key, shape in outputs]
    graph = helper.make_graph(nodes, name, infos, results, tensors)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11), helper.make_opsetid("elsewhere", 1)])
    model.ir_version = 6
    with open(os.path.join(sys.argv[1], name + ".onnx"), "wb") as file:
        file.write(model.SerializeToString())


def constant(value):
    return np.array([value], np.float32)


os.makedirs(sys.argv[1], exist_ok=True)
SHAPE = [1, 3, 2, 5]  # 5 wide, 2 high, 3 channels
X = [("x", SHAPE)]

# What loads.
identity = np.eye(3, dtype=np.float32).reshape(3, 3, 1, 1)
save("identity", [node("Conv", ["x", "w"], ["y"], kernel_shape=[1, 1])], X, [("y", SHAPE)], {"w": identity})
save("weights_as_inputs", [node("Add", ["x", "one"], ["y"])], X, [("y", SHAPE)], {"one": constant(1)},
     weights_as_inputs=True)
# Outputs in the opposite order of the nodes, one of which bears the other's name.
save("reversed_outputs", [node("Add", ["x", "one"], ["first"], name="second"),
                          node("Mul", ["x", "two"], ["second"], name="first")],
     X, [("second", SHAPE), ("first", SHAPE)], {"one": constant(1), "two": constant(2)})
# "inner" feeds the other outputs, of which Relu could be computed in its place, or fused with its node.
save("inner_output", [node("Conv", ["x", "w"], ["inner"], kernel_shape=[1, 1]), node("Relu", ["inner"], ["relu"]),
                      node("Identity", ["inner"], ["same"]), node("Add", ["inner", "one"], ["plus"])],
     X, [("relu", SHAPE), ("plus", SHAPE), ("inner", SHAPE), ("same", SHAPE)], {"w": identity, "one": constant(1)})
save("18_outputs", [node("Add", ["x", f"k{i}"], [f"y{i}"]) for i in range(18)], [("x", [1, 1, 1, 2])],
     [(f"y{i}", [1, 1, 1, 2]) for i in range(18)], {f"k{i}": constant(i) for i in range(18)})
reshapes = {"rank3": [1, 6, 5], "rank1": [30], "wide_rank3": [6, 1, 5], "rows_rank2": [6, 5]}
save("ranks", [node("Flatten", ["x"], ["rank2"], axis=1), node("GlobalAveragePool", ["x"], ["means"])] +
     [node("Reshape", ["x", "to_" + key], [key]) for key in reshapes],
     X, [("rank2", [1, 30]), ("rank3", reshapes["rank3"]), ("means", [1, 3, 1, 1]), ("rank1", [30]),
         ("wide_rank3", reshapes["wide_rank3"]), ("rows_rank2", reshapes["rows_rank2"])],
     {"to_" + key: np.array(shape, np.int64) for key, shape in reshapes.items()})
# Enough arithmetic for threads and vector units to get into each other's way.
random = np.random.RandomState(7)
layers, weights, channels = [], {}, 3
for i, width in enumerate([16, 24, 8]):
    weights[f"w{i}"] = random.randn(width, channels, 3, 3).astype(np.float32) / 50
    source = "x" if i == 0 else f"r{i - 1}"
    layers += [node("Conv", [source, f"w{i}"], [f"c{i}"], kernel_shape=[3, 3], pads=[1, 1, 1, 1]),
               node("Relu", [f"c{i}"], [f"r{i}"])]
    channels = width
save("convolutions", layers, [("x", [1, 3, 48, 64])], [("r2", [1, 8, 48, 64])], weights)

# Cry detection's shape. No cry: 0; cry: how much the upper half of the channels ever exceeds its means, less the lower
# half, in bytes.
halves = np.zeros((64, 2), np.float32)
halves[:32, 1], halves[32:, 1] = -1 / 32, 1 / 32
save("high_or_low", [node("MaxPool", ["x"], ["loudest"], kernel_shape=[297, 1]),
                     node("Flatten", ["loudest"], ["channels"], axis=1), node("MatMul", ["channels", "halves"], ["y"])],
     [("x", [1, 1, 297, 64])], [("y", [1, 2])], {"halves": halves})

# What is refused.
relu = [node("Relu", ["x"], ["y"])]
save("dynamic_height", relu, [("x", [1, 3, "H", 5])], [("y", [1, 3, "H", 5])])
save("no_shape", relu, [("x", None)], [("y", None)])
save("rank3_input", relu, [("x", [3, 2, 5])], [("y", [3, 2, 5])])
save("batch_of_2", relu, [("x", [2, 3, 2, 5])], [("y", [2, 3, 2, 5])])
save("byte_input", relu, X, [("y", SHAPE)], kind=TensorProto.INT8)
save("huge_input", relu, [("x", [1, 2**31, 2**31, 4])], [("y", [1, 2**31, 2**31, 4])])
save("two_inputs", [node("Add", ["x", "z"], ["y"])], X + [("z", SHAPE)], [("y", SHAPE)])
save("no_input", [node("Relu", ["w"], ["y"])], [], [("y", [1])], {"w": constant(1)})
save("unknown_operator", [node("Nonsense", ["x"], ["y"], name="nose", domain="elsewhere")], X, [("y", SHAPE)])
save("endless_name", [node("Nonsense", ["x"], ["y"], name=" in function '" + 300000 * "e", domain="elsewhere")], X,
     [("y", SHAPE)])
save("misspelt_operator", [node("Rleu", ["x"], ["y"])], X, [("y", SHAPE)])
save("missing_value", [node("Add", ["x", "nobody"], ["y"])], X, [("y", SHAPE)])
save("constant_output", relu, X, [("y", SHAPE), ("one", [1])], {"one": constant(1)})
save("rank5_output", [node("Reshape", ["x", "to"], ["y"])], X, [("y", [1, 3, 2, 5, 1])],
     {"to": np.array([1, 3, 2, 5, 1], np.int64)})
short = numpy_helper.from_array(identity, "w")
short.raw_data = short.raw_data[:-1]
empty = numpy_helper.from_array(identity[:, :, :, :0], "w")
for name, weight in [("short_weights", short), ("empty_weights", empty)]:
    save(name, [node("Conv", ["x", "w"], ["y"], kernel_shape=[1, 1])], X, [("y", SHAPE)], {"w": weight})

# As little work as a network can do, for what the engine adds to it.
for channels, height, width in [(1, 112, 112), (3, 256, 416)]:
    save(f"mean_{width}x{height}x{channels}", [node("GlobalAveragePool", ["x"], ["y"])],
         [("x", [1, channels, height, width])], [("y", [1, channels, 1, 1])])

# Detectors that see patches of pure red, green or blue. What is brighter than 228 counts, so that neither letterbox
# padding nor grey does; averaged over a cell, a patch of 255 that fills it gives 27 in its channel.
RED, GREEN, BLUE = range(3)


def seen(cell_rows, cell_columns, name):
    """Nodes: x to [1, 3, rows, columns] of brightness, 0 to 27."""
    return [node("Sub", ["x", "dark"], [name + "_lit"]), node("Relu", [name + "_lit"], [name + "_bright"]),
            node("AveragePool", [name + "_bright"], [name], kernel_shape=[cell_rows, cell_columns],
                 strides=[cell_rows, cell_columns])]


def head(source, output, values):
    """Node and weights of an output, one row a channel: its factors of red, green and blue, and a constant."""
    rows = np.array(values, np.float32)
    return (node("Conv", [source, output + "_w", output + "_b"], [output], kernel_shape=[1, 1]),
            {output + "_w": rows[:, :3].reshape(-1, 3, 1, 1).copy(), output + "_b": rows[:, 3].copy()})


NEVER = [0, 0, 0, -20]


def sees(*colours):
    """A logit: 7 when a cell is filled with one of these colours, below the thresholds at three quarters of it."""
    return [int(colour in colours) for colour in range(3)] + [-20]


def size(factor, wanted, anchor):
    return [0, 0, 0, factor * np.log(wanted / anchor)]


def grid_detector(name, width, height, anchors, last_values):
    """Red and green patches of 32 x 64 around a cell of stride 32, blue ones of 16 x 32 around one of stride 16."""
    nodes, weights, outputs = [], {"dark": constant(100)}, []
    for stride, (firing, anchor_width, anchor_height), colours in [(32, anchors[0], (RED, GREEN)),
                                                                   (16, anchors[1], (BLUE,))]:
        values = []
        for anchor in range(3):
            values += [[0, 0, 0, 0]] * 2 + [size(1, stride, anchor_width), size(1, 2 * stride, anchor_height),
                                            sees(*colours) if anchor == firing else NEVER] + last_values
        output = f"stride_{stride}"
        conv, own_weights = head(f"seen_{stride}", output, values)
        nodes += seen(stride, stride, f"seen_{stride}") + [conv]
        weights.update(own_weights)
        outputs.append((output, [1, len(values), height // stride, width // stride]))
    save(name, nodes, [("x", [1, 3, height, width])], outputs, weights)


for orientation, width, height in [("landscape", 416, 256), ("square", 320, 320), ("portrait", 256, 416)]:
    # One value that is never read; and four classes of which red is 1, blue 2 and green 3.
    grid_detector("persons_" + orientation, width, height, [(1, 123, 211), (2, 45, 99)], [[0, 0, 0, 99]])
    grid_detector("objects_" + orientation, width, height, [(2, 140, 155), (0, 24, 18)],
                  [[0, 0, 0, 0.5], [1, 0, 0, 0], [0, 0, 1, 0], [0, 1, 0, 0]])

# Maps of one scale, 4 rows of 6 cells of 16 pixels, that see a cell of red (class 0) or green (class 1): the box of the
# first is 32 x 16 pixels, those of the second reach 1 cell to the left, top and right of the centre and 2 down.
for name, values in [
        ("yolov3_map", [[0, 0, 0, 0]] * 2 + [size(1, 32, 16), size(1, 16, 16), sees(RED, GREEN), [1, 0, 0, 0], [0, 1, 0, 0]]),
        ("centernet_map", [sees(RED), sees(GREEN)] + [[0, 0, 0, 20 * (bin == reach)] for reach in (1, 1, 1, 2)
                                                      for bin in range(4)])]:
    conv, weights = head("seen_16", "map", values)
    save(name, seen(16, 16, "seen_16") + [conv], [("x", [1, 3, 64, 96])], [("map", [1, len(values), 4, 6])],
         {"dark": constant(100), **weights})

# The persons' shapes with the values of a cell outside, where a row belongs: a network exported in another order.
save("persons_values_outside",
     [node("AveragePool", ["x"], [f"pooled_{n}"], kernel_shape=[n, n], strides=[n, n]) for n in (32, 16)] +
     [node("Conv", [f"pooled_{n}", "w"], [f"cells_{n}"], kernel_shape=[1, 1]) for n in (32, 16)] +
     [node("Transpose", [f"cells_{n}"], [f"y_{n}"], perm=[0, 2, 3, 1]) for n in (32, 16)],
     [("x", [1, 3, 256, 416])], [("y_32", [1, 8, 13, 18]), ("y_16", [1, 16, 26, 18])],
     {"w": np.ones([18, 3, 1, 1], np.float32)})

# Faces: red patches of 32 x 24 around a cell of level 1, blue ones of 64 x 60 around one of level 3. The cells of
# levels 2 and 3 are rounded up to 8 and 4 rows, of 30 and 60 pixels.
nodes, weights, outputs = [], {"dark": constant(100)}, []
for level, (rows, columns, cell, anchor_sizes) in enumerate([
        (30, 40, (8, 8), (10, 16, 24)), (15, 20, (16, 16), (32, 48)),
        (8, 10, (30, 32), (64, 96)), (4, 5, (60, 64), (128, 192, 256))]):
    firing, logit, (face_width, face_height) = {1: (1, sees(RED), (32, 24)), 3: (0, sees(BLUE), (64, 60))}.get(
        level, (0, NEVER, (1, 1)))
    scores, regressions = [], []
    for anchor, anchor_size in enumerate(anchor_sizes):
        scores += [[0, 0, 0, 0], logit if anchor == firing else NEVER]  # background, face
        regressions += [[0, 0, 0, 0]] * 2 + [size(5, face_width, anchor_size), size(5, face_height, anchor_size)]
    nodes += seen(*cell, f"seen_{level}")
    for kind, values in [("scores", scores), ("regressions", regressions)]:
        conv, own_weights = head(f"seen_{level}", f"{kind}_{level}", values)
        nodes.append(conv)
        weights.update(own_weights)
        outputs.append((f"{kind}_{level}", [1, len(values), rows, columns]))
save("faces", nodes, [("x", [1, 3, 240, 320])], outputs, weights)


def brightness_reader(name, channels, outputs):
    """Outputs that are linear in the mean of each channel, which is its brightness less 128."""
    nodes, weights = [node("GlobalAveragePool", ["x"], ["means"])], {}
    for output, values in outputs.items():
        rows = np.array(values, np.float32)
        nodes.append(node("Conv", ["means", output + "_w", output + "_b"], [output], kernel_shape=[1, 1]))
        weights[output + "_w"] = rows[:, :channels].reshape(-1, channels, 1, 1).copy()
        weights[output + "_b"] = rows[:, channels].copy()
    save(name, nodes, [("x", [1, channels, 112, 112])],
         [(output, [1, len(values), 1, 1]) for output, values in outputs.items()], weights)


# Five points on a diagonal that moves right by a thousandth a grey level; the pose is the brightness, its half, 7.
brightness_reader("landmarks", 1, {"points": [[0.001 * (i % 2 == 0), 0.1 + i // 2 * 0.2] for i in range(10)],
                                   "pose": [[1, 0], [0.5, 0], [0, 7]]})
# Dark is class 0, bright class 2, and what is within 20 levels of the middle class 1.
brightness_reader("face_classes", 1, {"scores": [[-0.1, 0], [0, 2], [0.1, 0]]})
# Class 0 is red, class 1 blue.
brightness_reader("person_classes", 3, {"scores": [[0.05, 0, 0, 0], [0, 0, 0.05, 0]]})
