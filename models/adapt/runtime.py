# SPDX-License-Identifier: Apache-2.0
"""Writes in other words what the runtime on a PC, OpenCV 4.6, refuses or computes wrongly."""
import math
from typing import Any, Optional

import numpy as np
from onnx import helper

from models.adapt.graph import Network

BROADCAST = ("Add", "Sub", "Mul", "Div")


def rewrite(network: Network) -> None:
    shapes = network.shapes()

    def number(name: str, otherwise: float) -> Optional[float]:
        """A constant that bounds; none: it is computed."""
        if not name:
            return otherwise
        return float(network.constants[name].reshape(-1)[0]) if name in network.constants else None

    def clipped(value: str, low: float, high: float) -> str:
        if math.isfinite(low) and math.isfinite(high):
            part = network.add("HardSigmoid", value, alpha=1 / (high - low), beta=-low / (high - low))
            value = network.add("Mul", part, high - low)
            return network.add("Add", value, low) if low else value
        if math.isfinite(low):
            above = network.add("Relu", network.add("Sub", value, low) if low else value)
            return network.add("Add", above, low) if low else above
        return network.add("Sub", high, network.add("Relu", network.add("Sub", high, value)))

    def clip(node: Any) -> Optional[str]:
        names = [*node.input, "", ""]
        low, high = number(names[1], -math.inf), number(names[2], math.inf)
        if len(node.input) == 1 or low is None or high is None or not low < high or not math.isfinite(min(high, -low)):
            return None
        return clipped(node.input[0], low, high)

    def extreme(node: Any) -> Optional[str]:
        """Of a value and a constant with one number."""
        constants = [name for name in node.input if name in network.constants]
        if len(node.input) != 2 or len(constants) != 1 or network.constants[constants[0]].size != 1:
            return None
        [value], limit = [name for name in node.input if name not in constants], number(constants[0], 0.0) or 0.0
        return clipped(value, limit, math.inf) if node.op_type == "Max" else clipped(value, -math.inf, limit)

    def fully_connected(node: Any) -> Optional[str]:
        """The weights as they are read, transposed; factors are read over."""
        given = {one.name: helper.get_attribute_value(one) for one in node.attribute}
        if given.get("transA") or node.input[1] not in network.constants or any(
                name not in network.constants for name in node.input[2:]):
            return None
        weights = network.constants[node.input[1]] * given.get("alpha", 1.0)
        weights = weights if given.get("transB") else weights.T
        bias = [np.broadcast_to(network.constants[name] * given.get("beta", 1.0), (1, len(weights))).reshape(-1)
                for name in node.input[2:]]
        return network.add("Gemm", node.input[0], weights, *bias, transB=1)

    def broadcast(node: Any) -> Optional[str]:
        """A constant of as many numbers as the result; one number, or one for each channel of a map, is read as it is."""
        constants = [name for name in node.input if name in network.constants]
        known = [shapes[name] for name in node.input if shapes.get(name) and name not in constants]
        if len(node.input) != 2 or len(constants) != 1 or not known or not all(known[0]):
            return None
        constant = network.constants[constants[0]]
        shape = list(np.broadcast_shapes(known[0], constant.shape))
        of_channels = [1, shape[1], 1, 1] if len(shape) == 4 else None
        if constant.size == 1 or [1] * (4 - constant.ndim) + list(constant.shape) == of_channels or (
                list(constant.shape) == shape and shape[0] == 1):
            return None
        inputs = [np.broadcast_to(constant, shape) if name in constants else name for name in node.input]
        if shape[0] == 1:
            return network.add(node.op_type, *inputs)
        one = np.array([1, *shape])  # a first axis that is none of pictures
        inputs = [network.add("Reshape", name, one) if isinstance(name, str) else name[None] for name in inputs]
        return network.add("Reshape", network.add(node.op_type, *inputs), one[1:])

    def square(node: Any) -> Optional[str]:
        """A factor behind a power is taken into it, unsquared."""
        power = network.constants.get(node.input[1])
        return network.add("Mul", node.input[0], node.input[0]) if power is not None and (power == 2).all() else None

    changes = {"Clip": clip, "Max": extreme, "Min": extreme, "Gemm": fully_connected, "Pow": square,
               **dict.fromkeys(BROADCAST, broadcast)}
    network.rewrite(lambda node: changes[node.op_type](node) if node.op_type in changes else None)
