# SPDX-License-Identifier: Apache-2.0
"""The input as the library gives it, bytes less 128 with red first, to a network that was trained with another."""
import dataclasses
from typing import Any, Sequence, Tuple

import numpy as np
from onnx import helper

from models.adapt.graph import Network, Refused

MIDDLE = 128  # what the library takes off each byte
MOST_PADDING = 63  # rows or columns: a network's sides are multiples of 64 at most


@dataclasses.dataclass
class Preparation:
    """What a network was trained with: (byte - mean) / deviation, for each channel in its own order."""
    mean: Sequence[float] = (MIDDLE,)
    deviation: Sequence[float] = (1,)
    blue_first: bool = False

    def of(self, pictures: Any) -> Any:
        """[1, channels, height, width] of bytes less 128."""
        pictures = pictures[:, ::-1] if self.blue_first else pictures
        return (pictures + MIDDLE - column(self.mean)) / column(self.deviation)


def column(values: Sequence[float]) -> Any:
    return np.array(values, np.float32).reshape(-1, 1, 1)


def fix_shape(network: Network, size: Tuple[int, int]) -> Tuple[int, int]:
    """The width and height of the network's input; where it leaves them open they become `size`."""
    if len(network.graph.input) != 1:
        raise Refused(f"the network has {len(network.graph.input)} inputs instead of one")
    shape = network.graph.input[0].type.tensor_type.shape.dim
    if len(shape) != 4:
        raise Refused("the input is not [1, channels, height, width]")
    for axis, value in zip(shape, (1, 0, size[1], size[0])):
        if not axis.dim_value and value:
            axis.dim_value = value
    if shape[0].dim_value != 1:
        raise Refused(f"the input is of {shape[0].dim_value} pictures at a time; export the network with a batch of one")
    return shape[3].dim_value, shape[2].dim_value


def pad(network: Network, size: Tuple[int, int]) -> None:
    """A network of a larger input sees grey at the right and at the bottom."""
    name, shape = network.graph.input[0].name, network.graph.input[0].type.tensor_type.shape.dim
    more = shape[3].dim_value - size[0], shape[2].dim_value - size[1]
    if not all(0 <= one <= MOST_PADDING for one in more):
        raise Refused(f"the input is {shape[3].dim_value} wide and {shape[2].dim_value} high instead of {size[0]} and {size[1]}; "
                      "export the network with that size")
    if any(more):
        shape[3].dim_value, shape[2].dim_value = size
        _in_front(network, name, "Pad", np.array([0, 0, 0, 0, 0, 0, more[1], more[0]]), np.float32(0))


def fold(network: Network, preparation: Preparation) -> None:
    """Into the first convolution. Where it pads with another zero than the library's, the padding is done before; where the
    channels' zeros differ, or no convolution is first, a convolution of one pixel comes before."""
    mean, deviation = column(preparation.mean), column(preparation.deviation)
    scale, shift = 1 / deviation, (MIDDLE - mean) / deviation
    name = network.graph.input[0].name
    padding = [node for node in network.nodes if node.op_type == "Pad" and node.input[0] == name and "adapted" in node.name]
    name = padding[0].output[0] if padding else name
    if (scale == 1).all() and (shift == 0).all() and not preparation.blue_first:
        return
    channels = network.graph.input[0].type.tensor_type.shape.dim[1].dim_value
    if not {len(preparation.mean), len(preparation.deviation)} <= {1, channels}:
        raise Refused(f"the network has {channels} channels; give one mean and deviation, or as many")
    scale, shift = (np.broadcast_to(one, (channels, 1, 1)) for one in (scale, shift))
    zeros = set((column(preparation.mean) - MIDDLE).reshape(-1).tolist())
    readers = [node for node in network.nodes if name in node.input]
    if all(_can_take(network, node, len(zeros) == 1) for node in readers):
        for node in readers:
            _fold_into(network, node, scale, shift, preparation.blue_first)
        for value in [node.output[0] for node in readers]:
            if any(_attribute(network[value], "pads", [])) and zeros != {0.0}:
                _pad_before(network, network[value], min(zeros))
        return
    weights = np.eye(channels) * scale[:, 0]
    weights = weights[:, ::-1] if preparation.blue_first else weights
    _in_front(network, name, "Conv", weights[..., None, None], shift.reshape(-1), kernel_shape=[1, 1])


def _attribute(node: Any, name: str, otherwise: Any) -> Any:
    return next((helper.get_attribute_value(one) for one in node.attribute if one.name == name), otherwise)


def _can_take(network: Network, node: Any, has_one_zero: bool) -> bool:
    return (node.op_type == "Conv" and node.input[1] in network.constants and _attribute(node, "group", 1) == 1
            and not _attribute(node, "auto_pad", b"").startswith(b"SAME")
            and (has_one_zero or not any(_attribute(node, "pads", []))))


def _pad_before(network: Network, node: Any, zero: float) -> None:
    pads = _attribute(node, "pads", [])
    kept = [one for one in node.attribute if one.name != "pads"]
    del node.attribute[:]
    node.attribute.extend(kept)
    around = np.array([0, 0, *pads[:2], 0, 0, *pads[2:]])
    _in_front(network, node.input[0], "Pad", around, np.float32(zero), readers=[node])


def _fold_into(network: Network, node: Any, scale: Any, shift: Any, blue_first: bool) -> None:
    weights = network.constants[node.input[1]].astype(np.float64)
    bias = network.constants[node.input[2]].astype(np.float64) if len(node.input) > 2 else 0
    bias = bias + (weights * shift).sum((1, 2, 3))
    weights = weights * scale
    node.input[1:] = [network.constant(weights[:, ::-1] if blue_first else weights), network.constant(bias)]


def _in_front(network: Network, name: str, operator: str, *constants: Any, readers: Sequence[Any] = (),
              **attributes: Any) -> None:
    """A node between a value and what reads it."""
    readers = readers or [node for node in network.nodes if name in node.input]
    added = network.add(operator, name, *constants, **attributes)
    for node in readers:
        for n, one in enumerate(node.input):
            node.input[n] = added if one == name else one
    nodes = list(network.nodes)
    nodes.insert(min(map(nodes.index, readers)), nodes.pop())
    del network.graph.node[:]
    network.graph.node.extend(nodes)
