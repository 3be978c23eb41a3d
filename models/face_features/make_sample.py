#!/usr/bin/python3
"""Makes the sample network for face features: make_sample.py [OUT.onnx]   (default: sample.onnx beside this script)

Not trained: edges in random directions, how many of them lie where, and a random projection of that to 256 numbers.
It tells a picture's distorted copy from another picture; it knows nothing of faces. The seed is fixed.
"""
import os
import sys

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

SEED = 2
FILTERS = 6
SIZE = 11           # of a filter, in pixels
GRID = 7            # places in each direction where edges are counted
FEATURES = 256


def make_network():
    random = numpy.random.RandomState(SEED)  # its stream is the same in every version of numpy

    # Smooth random filters without a mean: an even area, whatever its brightness, gives 0.
    axis = numpy.arange(SIZE) - SIZE // 2
    window = numpy.exp(-(axis[:, None] ** 2 + axis[None, :] ** 2) / 12.0)
    filters = random.randn(FILTERS // 2, SIZE, SIZE) * window
    filters -= filters.mean(axis=(1, 2), keepdims=True)
    filters /= numpy.abs(filters).sum(axis=(1, 2), keepdims=True)
    filters = numpy.concatenate([filters, -filters])  # both signs survive the rectifier

    # A projection of what is left after each map's own mean is taken off: only where edges are counts.
    cells = GRID * GRID
    centring = numpy.kron(numpy.eye(FILTERS), numpy.eye(cells) - 1.0 / cells)
    projection = random.randn(FEATURES, FILTERS * cells) / numpy.sqrt(FEATURES) @ centring

    def weight(name, values):
        return numpy_helper.from_array(values.astype(numpy.float32), name)

    nodes = [
        helper.make_node("Conv", ["image", "filters"], ["edges"], kernel_shape=[SIZE, SIZE], strides=[2, 2],
                         pads=[SIZE // 2] * 4),
        helper.make_node("Relu", ["edges"], ["strengths"]),
        helper.make_node("AveragePool", ["strengths"], ["counts"], kernel_shape=[8, 8], strides=[8, 8]),
        helper.make_node("Flatten", ["counts"], ["flat"], axis=1),
        helper.make_node("Gemm", ["flat", "projection"], ["features"], transB=1),
    ]
    graph = helper.make_graph(
        nodes, "face features, untrained sample",
        [helper.make_tensor_value_info("image", TensorProto.FLOAT, [1, 1, 112, 112])],
        [helper.make_tensor_value_info("features", TensorProto.FLOAT, [1, FEATURES])],
        [weight("filters", filters[:, None]), weight("projection", projection)])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)], ir_version=6)
    onnx.checker.check_model(model)
    return model


if __name__ == "__main__":
    default = os.path.join(os.path.dirname(os.path.abspath(__file__)), "sample.onnx")
    path = sys.argv[1] if len(sys.argv) > 1 else default
    onnx.save(make_network(), path)
    print(f"{path}: {os.path.getsize(path)} bytes")
