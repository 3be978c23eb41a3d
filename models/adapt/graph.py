# SPDX-License-Identifier: Apache-2.0
"""A network that is being changed: nodes are added to it as calls."""
from typing import Any, Callable, Dict, List, Sequence

import numpy as np
import onnx
from onnx import helper, numpy_helper, shape_inference


WITH_POSITIONS = ("Slice", "Reshape", "Pad")  # operators whose whole constants stay so


class Refused(Exception):
    """Why a network cannot be adapted."""


class Network:
    def __init__(self, model: Any) -> None:
        """The model is changed with it. Its shapes have to be fixed."""
        self.model, self.graph = model, model.graph
        self.constants: Dict[str, Any] = {weight.name: numpy_helper.to_array(weight) for weight in self.graph.initializer}
        for node in [node for node in self.graph.node if node.op_type == "Constant"]:
            [value] = node.attribute
            found = helper.get_attribute_value(value)
            tensor = numpy_helper.to_array(found) if value.name == "value" else np.array(
                found, np.float32 if "float" in value.name else np.int64)
            self.constants[node.output[0]] = tensor
            self.graph.node.remove(node)
        inputs = [one for one in self.graph.input if one.name not in self.constants]
        del self.graph.input[:]
        self.graph.input.extend(inputs)
        self._count = 0

    @property
    def nodes(self) -> Sequence[Any]:
        return self.graph.node

    def __getitem__(self, name: str) -> Any:
        """The node that makes a value."""
        return next(node for node in self.graph.node if name in node.output)

    def shapes(self) -> Dict[str, List[int]]:
        """Of all values whose shape can be told."""
        self._store()
        graph = shape_inference.infer_shapes(self.model, data_prop=True).graph
        shapes = {one.name: [axis.dim_value for axis in one.type.tensor_type.shape.dim]
                  for one in (*graph.input, *graph.value_info, *graph.output)}
        shapes.update((name, list(value.shape)) for name, value in self.constants.items())
        return shapes

    def add(self, operator: str, *inputs: Any, **attributes: Any) -> str:
        """A node; inputs are names of values, or constants. The name of what it gives."""
        names = [one if isinstance(one, str) else self.constant(one, operator in WITH_POSITIONS) for one in inputs]
        self._count += 1
        name = f"adapted_{self._count}"
        self.graph.node.append(helper.make_node(operator, names, [name], name, **attributes))
        return name

    def constant(self, value: Any, may_be_whole: bool = False) -> str:
        self._count += 1
        name = f"adapted_{self._count}"
        value = np.asarray(value)
        self.constants[name] = value if may_be_whole and value.dtype == np.int64 else value.astype(np.float32)
        return name

    def rewrite(self, change: Callable[[Any], Any]) -> None:
        """Each node gives way to what change(node) adds and then names, or stays where that is none."""
        nodes = list(self.graph.node)
        del self.graph.node[:]
        renamed: Dict[str, str] = {}
        for node in nodes:
            for n, name in enumerate(node.input):
                node.input[n] = renamed.get(name, name)
            instead = change(node)
            if instead is None:
                self.graph.node.append(node)
            else:
                renamed[node.output[0]] = instead
        for output in self.graph.output:  # an output keeps its name
            if output.name in renamed:
                self.rename(renamed[output.name], output.name)

    def rename(self, old: str, new: str) -> None:
        for node in self.graph.node:
            for names in (node.input, node.output):
                for n, name in enumerate(names):
                    names[n] = new if name == old else name

    def set_outputs(self, names: Dict[str, str]) -> None:
        """The values that become the outputs, with the outputs' names; what leads to no output goes."""
        del self.graph.output[:]
        for value, name in names.items():
            self.rename(value, name)
            self.graph.output.append(helper.make_tensor_value_info(name, onnx.TensorProto.FLOAT, None))
        wanted, kept = set(names.values()), []
        for node in reversed(self.graph.node):
            if wanted.intersection(node.output):
                kept.append(node)
                wanted.update(node.input)
        del self.graph.node[:]
        self.graph.node.extend(reversed(kept))
        shapes = self.shapes()
        for output in self.graph.output:
            output.CopyFrom(helper.make_tensor_value_info(output.name, onnx.TensorProto.FLOAT, shapes[output.name]))

    def finished(self) -> Any:
        """A copy of the model, checked."""
        self._store()
        del self.graph.value_info[:]
        onnx.checker.check_model(self.model)
        copy = onnx.ModelProto()
        copy.CopyFrom(self.model)
        return copy

    def _store(self) -> None:
        used = {name for node in self.graph.node for name in node.input}
        del self.graph.initializer[:]
        self.graph.initializer.extend(numpy_helper.from_array(np.ascontiguousarray(value), name)
                                      for name, value in self.constants.items() if name in used)
