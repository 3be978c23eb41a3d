"""Makes the sample network of the face features task: make_sample.py [--check]

Untrained: every weight follows from the formulas below and one seed. It sees where edges of which
direction are, so a picture resembles its own copy in another light more than another picture. What
it does not know is which differences matter in a face; README.md has the measured values.

--check writes nothing and fails when sample.onnx is not what this script makes.
"""
import os
import sys

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

SEED = 1
SIZE = 112
DIRECTIONS = 8
GRID = 6  # edges are counted in GRID x GRID places
LENGTH = 256
PATH = os.path.join(os.path.dirname(os.path.abspath(__file__)), "sample.onnx")


def blur():
    """Binomial, of gain 1: less noise, and every second pixel is enough."""
    row = numpy.array([1, 4, 6, 4, 1]) / 16
    return numpy.outer(row, row).reshape(1, 1, 5, 5)


def edges():
    """A filter for each direction: the slope along it, of any brightness alike."""
    slope_x = numpy.array([[-1, 0, 1], [-2, 0, 2], [-1, 0, 1]]) / 8
    angles = 2 * numpy.pi * numpy.arange(DIRECTIONS) / DIRECTIONS
    filters = [numpy.cos(a) * slope_x + numpy.sin(a) * slope_x.T for a in angles]
    return numpy.round(numpy.array(filters) * 4096).reshape(DIRECTIONS, 1, 3, 3) / 4096


def projection():
    """Random signs, after each direction has lost its mean over the places and each place its mean
    over the directions: what all pictures have in common would make all of them alike."""
    places = GRID * GRID
    signs = numpy.random.RandomState(SEED).randint(0, 2, (LENGTH, DIRECTIONS, places)) * 2.0 - 1
    signs -= signs.mean(axis=2, keepdims=True)
    signs -= signs.mean(axis=1, keepdims=True)
    return signs.reshape(LENGTH, -1) / 16


def make_model():
    weights = {"blur": blur(), "edges": edges(), "projection": projection()}
    node = helper.make_node
    # No padding: it would draw a frame around the picture, and the stronger the darker the picture.
    nodes = [
        node("Conv", ["image", "blur"], ["smooth"], kernel_shape=[5, 5], strides=[2, 2]),  # 54 x 54
        node("Conv", ["smooth", "edges"], ["slopes"], kernel_shape=[3, 3]),  # 52 x 52
        node("Relu", ["slopes"], ["edge_strengths"]),
        node("AveragePool", ["edge_strengths"], ["places"], kernel_shape=[12, 12], strides=[8, 8]),
        node("Flatten", ["places"], ["flat"], axis=1),
        node("Gemm", ["flat", "projection"], ["feature"], transB=1),
    ]
    graph = helper.make_graph(
        nodes, "face_features_sample",
        [helper.make_tensor_value_info("image", TensorProto.FLOAT, [1, 1, SIZE, SIZE])],
        [helper.make_tensor_value_info("feature", TensorProto.FLOAT, [1, LENGTH])],
        [numpy_helper.from_array(value.astype(numpy.float32), name) for name, value in weights.items()])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)])
    model.ir_version = 6
    onnx.checker.check_model(model)
    return model


if __name__ == "__main__":
    made = make_model()
    if "--check" in sys.argv[1:]:
        if onnx.load(PATH) != made:
            sys.exit(PATH + " is not what this script makes")
    else:
        onnx.save(made, PATH)
