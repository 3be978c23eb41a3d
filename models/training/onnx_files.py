# SPDX-License-Identifier: Apache-2.0
"""From a trained module to a network's file, and from the file back to a module to go on with.

As a program: what the networks named cost, or all of models/.
"""
import math
import os
import sys
import time
from pathlib import Path

import cv2
import numpy as np
import onnx
import torch
from onnx import numpy_helper
from torch import nn

MAX_BYTES = 1500 * 1000  # of a file
WITH_WEIGHTS = (nn.Conv2d, nn.Linear)


def export(module, path, input_shape, output_names):
    """Writes `path`, small and loadable by OpenCV's DNN with the values that torch computes, or exits.

    output_names  in the order of the module's outputs, which is the order that the task reads
    """
    module.eval()
    sample = torch.rand(1, *input_shape) * 255 - 128
    torch.onnx.export(module, sample, path, opset_version=11, input_names=["image"], output_names=list(output_names))
    model = onnx.load(path)
    model.ir_version = 6
    for node in model.graph.node:
        node.doc_string = ""
    _copy_shared_weights(model.graph)
    onnx.checker.check_model(model)
    onnx.save(model, path)
    if any(node.op_type == "BatchNormalization" for node in model.graph.node):
        sys.exit(f"{path}: BatchNorm is not folded: it has to follow its convolution at once")
    size = os.path.getsize(path)
    if size > MAX_BYTES:
        sys.exit(f"{path} has {size} bytes, more than {MAX_BYTES}")
    check_values(module, path, sample)
    print(f"{path}: {size} bytes, {cost(path)}")


def _copy_shared_weights(graph):
    """Weights that happen to be equal are exported once, with Identity nodes, which OpenCV does not import."""
    weights = {weight.name: weight for weight in graph.initializer}
    for node in [node for node in graph.node if node.op_type == "Identity" and node.input[0] in weights]:
        copied = graph.initializer.add()
        copied.CopyFrom(weights[node.input[0]])
        copied.name = node.output[0]
        graph.node.remove(node)


def check_values(module, path, sample):
    with torch.no_grad():
        expected = module(sample)
    network = cv2.dnn.readNetFromONNX(str(path))
    network.setInput(sample.numpy())
    names = [output.name for output in onnx.load(path).graph.output]
    for name, ours, theirs in zip(names, [expected] if torch.is_tensor(expected) else expected, network.forward(names)):
        ours = ours.numpy()
        error = np.abs(ours - theirs.reshape(ours.shape)).max()
        if not error <= 1e-3 * (1 + np.abs(ours).max()):
            sys.exit(f"{path}: output {name} differs by {error:g} between OpenCV and torch")


def weight_count(path):
    """What the file holds."""
    return sum(numpy_helper.to_array(weight).size for weight in onnx.load(path).graph.initializer
               if weight.data_type == onnx.TensorProto.FLOAT)


def multiply_adds(path):
    """Of one run, of convolutions and fully connected layers."""
    graph = onnx.shape_inference.infer_shapes(onnx.load(path)).graph
    shapes = {value.name: [size.dim_value for size in value.type.tensor_type.shape.dim]
              for value in (*graph.value_info, *graph.output)}
    weights = {weight.name: math.prod(weight.dims) for weight in graph.initializer}
    return sum(weights[node.input[1]] * math.prod(shapes[node.output[0]][2:])
               for node in graph.node if node.op_type in ("Conv", "Gemm", "MatMul"))


def cost(path):
    """As cards say it."""
    return f"{weight_count(path):,} weights, {multiply_adds(path) / 1e6:.1f} million multiply-adds"


def milliseconds(path, runs=50):
    """Of a run on one core of this machine: the median."""
    cv2.setNumThreads(1)
    network, times = cv2.dnn.readNetFromONNX(str(path)), []
    shape = [size.dim_value for size in onnx.load(path).graph.input[0].type.tensor_type.shape.dim]
    for _ in range(runs):
        network.setInput(np.zeros(shape, np.float32))
        start = time.perf_counter()
        network.forward(network.getUnconnectedOutLayersNames())
        times.append(time.perf_counter() - start)
    return 1e3 * np.median(times)


def _run(module, sample, kinds):
    """Its layers of some kinds as they run, each with what comes out."""
    seen = []
    hooks = [layer.register_forward_hook(lambda layer, _, output: seen.append((layer, output)))
             for layer in module.modules() if isinstance(layer, kinds)]
    with torch.no_grad():
        module.eval()(sample)
    for hook in hooks:
        hook.remove()
    return seen


def start_from(module, path, input_shape):
    """Takes over a file's weights, also of a network with fewer channels: what is new then begins at random, and nothing
    that was there looks at it yet. Normalisations were folded in the file: they become its biases and nothing else."""
    graph = onnx.load(path).graph
    tensors = {weight.name: torch.from_numpy(numpy_helper.to_array(weight).copy()) for weight in graph.initializer}
    nodes = [[tensors[name] for name in node.input[1:]] for node in graph.node if node.op_type in ("Conv", "Gemm", "MatMul")]
    sample = torch.rand(1, *input_shape) * 255 - 128
    layers = [layer for layer, _ in _run(module, sample, (*WITH_WEIGHTS, nn.BatchNorm2d))]
    if len(nodes) != sum(isinstance(layer, WITH_WEIGHTS) for layer in layers):
        sys.exit(f"{path} is not a network of this task's layers")
    with torch.no_grad():
        for layer, following in zip(layers, layers[1:] + [None]):
            if not isinstance(layer, WITH_WEIGHTS):
                continue
            weight, *bias = nodes.pop(0)
            weight = weight if isinstance(layer, nn.Conv2d) or weight.shape == layer.weight.shape else weight.T
            outputs, inputs = weight.shape[:2]
            if weight.shape[2:] != layer.weight.shape[2:] or any(a > b for a, b in zip(weight.shape, layer.weight.shape)):
                sys.exit(f"{path}: {tuple(weight.shape)} where the network has {tuple(layer.weight.shape)}")
            layer.weight[:outputs] = 0
            layer.weight[:outputs, :inputs] = weight
            if isinstance(following, nn.BatchNorm2d):
                following.running_mean.zero_()
                following.running_var.fill_(1 - following.eps)
                following.weight.fill_(1)
                layer = following
            if bias:
                layer.bias[:outputs] = bias[0]
    check_values(module, path, sample)


def renormalise(module, look):
    """Normalisations that were folded away normalise again, by what they see while look() runs; what comes out stays the same."""
    def take_over(layer, inputs):
        seen = inputs[0].detach().float()
        mean, variance = seen.mean((0, 2, 3)), seen.var((0, 2, 3), unbiased=False)
        layer.bias.add_((mean - layer.running_mean) * layer.weight / torch.sqrt(layer.running_var + layer.eps))
        layer.weight.mul_(torch.sqrt((variance + layer.eps) / (layer.running_var + layer.eps)))
        layer.running_mean.copy_(mean)
        layer.running_var.copy_(variance)

    hooks = [layer.register_forward_pre_hook(take_over) for layer in module.modules() if isinstance(layer, nn.BatchNorm2d)]
    module.eval()
    with torch.no_grad():
        look()
    for hook in hooks:
        hook.remove()


if __name__ == "__main__":
    for name in sys.argv[1:] or sorted(map(str, Path(__file__).parents[1].glob("*/*.onnx"))):
        print(f"{os.path.relpath(name)}: {os.path.getsize(name) / 1e3:.0f} kB, {cost(name)}, {milliseconds(name):.1f} ms")
