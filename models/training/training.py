# SPDX-License-Identifier: Apache-2.0
"""Shared by the training scripts: seeds, progress with the time left, cost of a network, ONNX export.

A script in models/<network>/ imports it after

    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
"""
import functools
import os
import random
import sys
import time

import cv2
import numpy
import onnx
import torch

MAX_BYTES = 400 * 1000  # of a network.onnx


def seed_all(seed):
    """Same seed, same training; one thread, because several small networks train at a time."""
    random.seed(seed)
    numpy.random.seed(seed)
    torch.manual_seed(seed)
    torch.set_num_threads(1)


@functools.lru_cache()
def multiplies_bfloat16():
    """Whether the processor has instructions for it, which make a step take little more than half as long."""
    with open("/proc/cpuinfo") as information:
        return "amx_bf16" in information.read()


def fast(network):
    """The network, in the layout that run_fast() wants."""
    return network.to(memory_format=torch.channels_last) if multiplies_bfloat16() else network


def run_fast(network, images):
    """What the network says, in bfloat16 where the processor has it, except where the network forbids."""
    if not multiplies_bfloat16():
        return network(images)
    with torch.autocast("cpu", torch.bfloat16):
        return network(images.contiguous(memory_format=torch.channels_last))


class Progress:
    """Prints a line every few seconds: `progress.step("loss %.3f" % loss)` once for each of `total` steps."""

    def __init__(self, total, seconds_between_lines=10):
        self.total = total
        self.done = 0
        self.start = self.last_line = time.time()
        self.between = seconds_between_lines

    def step(self, text=""):
        self.done += 1
        now = time.time()
        if now - self.last_line < self.between and self.done < self.total:
            return
        self.last_line = now
        left = (now - self.start) / self.done * (self.total - self.done)
        print("%6d/%d  %s  %s  left %s" % (self.done, self.total, text, _clock(now - self.start), _clock(left)),
              flush=True)


def _clock(seconds):
    return "%d:%02d" % divmod(int(seconds), 60)


def weight_count(module):
    """Weights of the module as it is exported: BatchNorm goes into the convolution before it."""
    convolutions = [m for m in module.modules() if isinstance(m, (torch.nn.Conv2d, torch.nn.Linear))]
    return sum(m.weight.numel() + m.out_channels if isinstance(m, torch.nn.Conv2d)
               else m.weight.numel() + m.out_features for m in convolutions)


def multiply_adds(module, input_shape):
    """Multiply-adds of one run, counted over convolutions and fully connected layers."""
    total = 0

    def count(layer, _, output):
        nonlocal total
        total += output.shape[2] * output.shape[3] * layer.weight.numel() if output.dim() == 4 \
            else layer.weight.numel()

    layers = [m for m in module.modules() if isinstance(m, (torch.nn.Conv2d, torch.nn.Linear))]
    hooks = [layer.register_forward_hook(count) for layer in layers]
    was_training = module.training
    module.eval()
    with torch.no_grad():
        module(torch.zeros(input_shape))
    module.train(was_training)
    for hook in hooks:
        hook.remove()
    return total


def export_onnx(module, path, input_shape, output_names, input_name="image"):
    """Writes `path`, small and loadable by OpenCV's DNN with the values that torch computes, or exits.

    input_shape   [1, C, H, W], fixed
    output_names  in the order of the module's outputs, which is the order that the task reads
    """
    module.eval()
    sample = torch.rand(input_shape) * 255 - 128
    torch.onnx.export(module, sample, path, opset_version=11, input_names=[input_name],
                      output_names=list(output_names), do_constant_folding=True)
    model = onnx.load(path)
    model.ir_version = 6
    for node in model.graph.node:
        node.doc_string = ""
    _copy_shared_weights(model.graph)
    onnx.checker.check_model(model)
    onnx.save(model, path)
    if any(node.op_type == "BatchNormalization" for node in model.graph.node):
        sys.exit(path + ": BatchNorm is not folded: it has to follow its convolution at once")
    _check_size(path)
    _check_values(module, path, sample, output_names)
    print("%s: %d bytes, %d weights, %.1f million multiply-adds" % (
        path, os.path.getsize(path), weight_count(module), multiply_adds(module, input_shape) / 1e6))


def _copy_shared_weights(graph):
    """Weights that happen to be equal are exported once, with Identity nodes, which OpenCV does not import."""
    weights = {weight.name: weight for weight in graph.initializer}
    for node in [node for node in graph.node if node.op_type == "Identity" and node.input[0] in weights]:
        copied = graph.initializer.add()
        copied.CopyFrom(weights[node.input[0]])
        copied.name = node.output[0]
        graph.node.remove(node)


def _check_size(path):
    size = os.path.getsize(path)
    if size > MAX_BYTES:
        sys.exit("%s has %d bytes, more than %d" % (path, size, MAX_BYTES))


def _check_values(module, path, sample, output_names):
    with torch.no_grad():
        expected = module(sample)
    if isinstance(expected, torch.Tensor):
        expected = [expected]
    network = cv2.dnn.readNetFromONNX(path)
    network.setInput(sample.numpy())
    for name, ours, theirs in zip(output_names, expected, network.forward(list(output_names))):
        ours = ours.numpy()
        error = numpy.abs(ours - theirs.reshape(ours.shape)).max()
        if not error <= 1e-3 * (1 + numpy.abs(ours).max()):
            sys.exit("%s: output %s differs by %g between OpenCV and torch" % (path, name, error))
