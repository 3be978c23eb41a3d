"""Writes the small ONNX networks of the runtime's tests and benchmarks: make_test_networks.py DIRECTORY

Each network shows one thing, and its outputs can be worked out in the head: x is the image.
"""
import os
import sys

import numpy
from onnx import TensorProto, helper, numpy_helper

node = helper.make_node


def save(name, nodes, inputs, outputs, weights={}, kind=TensorProto.FLOAT, weights_as_inputs=False):
    tensors = [value if isinstance(value, TensorProto) else numpy_helper.from_array(numpy.asarray(value), key)
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
    return numpy.array([value], numpy.float32)


os.makedirs(sys.argv[1], exist_ok=True)
SHAPE = [1, 3, 2, 5]  # 5 wide, 2 high, 3 channels
X = [("x", SHAPE)]

# What loads.
identity = numpy.eye(3, dtype=numpy.float32).reshape(3, 3, 1, 1)
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
     {"to_" + key: numpy.array(shape, numpy.int64) for key, shape in reshapes.items()})
# Enough arithmetic for threads and vector units to get into each other's way.
random = numpy.random.RandomState(7)
layers, weights, channels = [], {}, 3
for i, width in enumerate([16, 24, 8]):
    weights[f"w{i}"] = random.randn(width, channels, 3, 3).astype(numpy.float32) / 50
    source = "x" if i == 0 else f"r{i - 1}"
    layers += [node("Conv", [source, f"w{i}"], [f"c{i}"], kernel_shape=[3, 3], pads=[1, 1, 1, 1]),
               node("Relu", [f"c{i}"], [f"r{i}"])]
    channels = width
save("convolutions", layers, [("x", [1, 3, 48, 64])], [("r2", [1, 8, 48, 64])], weights)

# Cry detection's shape. No cry: 0; cry: how much the upper half of the channels ever exceeds its means, less the lower
# half; a difference of 40 bytes gives 10.
halves = numpy.zeros((64, 2), numpy.float32)
halves[:32, 1], halves[32:, 1] = -10 / 40 / 32, 10 / 40 / 32
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
save("unknown_operator", [node("Nonsense", ["x"], ["y"], domain="elsewhere")], X, [("y", SHAPE)])
save("misspelt_operator", [node("Rleu", ["x"], ["y"])], X, [("y", SHAPE)])
save("missing_value", [node("Add", ["x", "nobody"], ["y"])], X, [("y", SHAPE)])
save("constant_output", relu, X, [("y", SHAPE), ("one", [1])], {"one": constant(1)})
save("rank5_output", [node("Reshape", ["x", "to"], ["y"])], X, [("y", [1, 3, 2, 5, 1])],
     {"to": numpy.array([1, 3, 2, 5, 1], numpy.int64)})
short = numpy_helper.from_array(identity, "w")
short.raw_data = short.raw_data[:-1]
empty = numpy_helper.from_array(identity[:, :, :, :0], "w")
for name, weight in [("short_weights", short), ("empty_weights", empty)]:
    save(name, [node("Conv", ["x", "w"], ["y"], kernel_shape=[1, 1])], X, [("y", SHAPE)], {"w": weight})

# As little work as a network can do, for what the engine adds to it.
for channels, height, width in [(1, 112, 112), (3, 256, 416)]:
    save(f"mean_{width}x{height}x{channels}", [node("GlobalAveragePool", ["x"], ["y"])],
         [("x", [1, channels, height, width])], [("y", [1, channels, 1, 1])])
