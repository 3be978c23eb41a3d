# SPDX-License-Identifier: Apache-2.0
"""The files that a body is made of: meshes, targets that change them, clothes fitted to them, skeletons, poses.

Units are tenths of a metre; x to the person's left, y up, z to where the person looks.
"""
import dataclasses
import functools
import json
from pathlib import Path
from typing import Any, Dict, List, Tuple

import numpy as np
import scipy.sparse
from scipy.spatial.transform import Rotation

from models.labels.table import Invalid

SAME_NAMES = 0.5  # the share of a pose's joints that have to be bones of the skeleton
UPRIGHT = np.array([[1.0, 0, 0], [0, 0, 1], [0, -1, 0]])  # poses have z up


def _reader(read: Any) -> Any:
    """What goes wrong while reading is told with the file's name."""
    @functools.wraps(read)
    def checked(path: Any, *arguments: Any) -> Any:
        try:
            return read(Path(path), *arguments)
        except OSError as error:
            raise Invalid(f"{path}: {error.strerror}") from error
        except (ValueError, IndexError, KeyError, TypeError) as error:
            raise Invalid(f"{path}: not as it has to be: {error}") from error
    return checked


@dataclasses.dataclass
class Mesh:
    places: Any  # [n, 3]
    faces: Any  # [m, 4]; triangles have their last vertex twice
    groups: Any  # [m], numbers of names
    names: List[str]

    def of(self, wanted: Any) -> Any:
        """The faces of those groups of which `wanted` says so."""
        return self.faces[np.isin(self.groups, [n for n, name in enumerate(self.names) if wanted(name)])]


@_reader
def read_mesh(path: Path) -> Mesh:
    places, faces, groups, names = [], [], [], [""]
    for line in path.read_text(encoding="utf-8").splitlines():
        kind, *values = line.split() or [""]
        if kind == "v":
            places.append([float(value) for value in values[:3]])
        elif kind == "g":
            names.append(values[0])
        elif kind == "f":
            corners = [int(value.split("/")[0]) - 1 for value in values]
            faces.append((corners + corners[-1:])[:4])
            groups.append(len(names) - 1)
    mesh = Mesh(np.array(places), np.array(faces).reshape(-1, 4), np.array(groups), names)
    if not len(places) or not len(faces) or mesh.faces.min() < 0 or mesh.faces.max() >= len(places):
        raise ValueError("no vertices, no faces, or faces of vertices that are not there")
    return mesh


@_reader
def read_target(path: Path, count: int) -> Tuple[Any, Any]:
    """Vertices, and where each one goes at a weight of 1. Those of the very average have no lines."""
    rows = [line.split() for line in path.read_text(encoding="utf-8").splitlines() if line and line[0] != "#"]
    vertices = np.array([row[0] for row in rows], int)
    moves = np.array([row[1:4] for row in rows], float).reshape(-1, 3)
    if len(vertices) and not 0 <= vertices.min() <= vertices.max() < count:
        raise ValueError(f"a vertex that the mesh does not have, of {count}")
    return vertices, moves


def morph(places: Any, targets: Any) -> Any:
    """`targets`: pairs of a weight and what read_target gives."""
    moved = places.copy()
    for weight, (vertices, moves) in targets:
        moved[vertices] += weight * moves
    return moved


@dataclasses.dataclass
class Clothes:
    """Each vertex hangs on three of the body's."""
    mesh: Mesh
    on: Any  # sparse [n, of the body]
    offsets: Any  # [n, 3]
    scales: Any  # for each axis two vertices of the body and the distance for which the offsets are
    hidden: Any  # vertices of the body that nobody sees below

    def fitted(self, body: Any) -> Any:
        scale = [abs(body[int(a), axis] - body[int(b), axis]) / length for axis, (a, b, length) in enumerate(self.scales)]
        return self.on @ body + self.offsets * scale


@_reader
def read_clothes(path: Path, count: int) -> Clothes:
    name, scales, rows, hidden, part = "", {}, [], [], ""
    for line in path.read_text(encoding="utf-8").splitlines():
        words = line.split("#")[0].split()
        if not words:
            continue
        if words[0] == "verts":
            part = "verts"
        elif words[0] == "delete_verts":
            part = "delete"
        elif part == "delete":
            hidden += words
        elif words[0] in ("x_scale", "y_scale", "z_scale"):
            scales[words[0][0]] = [float(word) for word in words[1:4]]
        elif words[0] == "obj_file":
            name = words[1]
        elif part == "verts" and (words[0].isdecimal()):
            numbers = [float(word) for word in words]
            rows.append(numbers if len(numbers) == 9 else [numbers[0]] * 3 + [1, 0, 0, 0, 0, 0])
        else:
            part = part if part != "verts" or not rows else ""
    table = np.array(rows, float).reshape(-1, 9)
    mesh = read_mesh(path.parent / name)
    if len(table) != len(mesh.places):
        raise ValueError(f"{len(table)} vertices are tied, {name} has {len(mesh.places)}")
    on = scipy.sparse.csr_matrix((table[:, 3:6].ravel(), (np.repeat(range(len(table)), 3), table[:, :3].ravel().astype(int))),
                                 shape=(len(table), count))
    return Clothes(mesh, on, table[:, 6:], [scales[axis] for axis in "xyz"], _ranges(hidden))


def _ranges(words: List[str]) -> Any:
    """3 - 5 9: 3, 4, 5, 9."""
    found: List[int] = []
    is_range = False
    for word in words:
        if word == "-":
            is_range = True
        else:
            found += range(found[-1] + 1, int(word) + 1) if is_range else [int(word)]
            is_range = False
    return np.array(found, int)


@dataclasses.dataclass
class Skeleton:
    names: List[str]  # parents come first
    parents: List[int]  # -1 for the root
    heads: Any  # sparse [bones, vertices]: the mean of a joint's vertices
    weights: Any  # sparse [vertices, bones], rows that add up to 1

    def matrices(self, body: Any, turns: Dict[str, Any]) -> Any:
        """[bones, 3, 4]: where each bone carries a place, when bones turn (3 x 3) about their heads."""
        heads = self.heads @ body
        whole = np.zeros((len(self.names), 4, 4))
        for bone, (name, parent) in enumerate(zip(self.names, self.parents)):
            turn = np.eye(4)
            turn[:3, :3] = turns.get(name, np.eye(3))
            turn[:3, 3] = heads[bone] - turn[:3, :3] @ heads[bone]
            whole[bone] = turn if parent < 0 else whole[parent] @ turn
        return whole[:, :3]


def skin(places: Any, weights: Any, matrices: Any) -> Any:
    """Each place where its bones carry it."""
    blended = (weights @ matrices.reshape(-1, 12)).reshape(-1, 3, 4)
    return np.einsum("nij,nj->ni", blended[:, :, :3], places) + blended[:, :, 3]


def normalised(weights: Any) -> Any:
    total = np.asarray(weights.sum(axis=1)).ravel()
    return scipy.sparse.diags(1 / np.where(total > 0, total, 1)) @ weights


@_reader
def read_skeleton(path: Path, count: int) -> Skeleton:
    """The bones' weights are in the file that it names."""
    content = json.loads(path.read_text(encoding="utf-8"))
    bones, names = content["bones"], []  # type: Dict[str, Any], List[str]
    waiting = list(bones)
    while waiting:
        ready = [name for name in waiting if bones[name]["parent"] in (None, *names)]
        if not ready:
            raise ValueError(f"no parent of {waiting[0]}")
        names += ready
        waiting = [name for name in waiting if name not in ready]
    of_bones = [content["joints"][bones[name]["head"]] for name in names]
    rows = np.repeat(range(len(names)), [len(vertices) for vertices in of_bones])
    heads = scipy.sparse.csr_matrix((np.ones(len(rows)), (rows, np.concatenate(of_bones))), shape=(len(names), count))
    weights_path = path.parent / content["weights_file"]
    given = json.loads(weights_path.read_text(encoding="utf-8"))["weights"]
    tied = [(int(vertex), bone, weight) for bone, name in enumerate(names) for vertex, weight in given.get(name, ())]
    vertex, bone, weight = zip(*tied)
    weights = scipy.sparse.csr_matrix((weight, (vertex, bone)), shape=(count, len(names)))
    return Skeleton(names, [names.index(bones[name]["parent"]) if bones[name]["parent"] else -1 for name in names],
                    normalised(heads), normalised(weights))


@_reader
def read_poses(path: Path, bones: List[str]) -> List[Dict[str, Any]]:
    """For each frame how each joint is turned; joints that are no bones are left out."""
    lines = path.read_text(encoding="utf-8").splitlines()
    channels: List[Tuple[str, List[str]]] = []
    name, frames = "", []
    for line in lines:
        words = line.split() or [""]
        if words[0] in ("ROOT", "JOINT"):
            name = words[1]
        elif words[0] == "CHANNELS":
            channels.append((name, words[2:]))
        elif words[0].lstrip("-").replace(".", "", 1).isdecimal():
            frames.append([float(word) for word in words])
    if sum(name in bones for name, _ in channels) < SAME_NAMES * len(channels) or not frames:
        raise ValueError("joints that are no bones of the skeleton, or no frame")
    return [_turns(channels, values, bones) for values in frames]


def _turns(channels: Any, values: List[float], bones: List[str]) -> Dict[str, Any]:
    found, at = {}, 0
    for name, kinds in channels:
        of_joint = dict(zip(kinds, values[at:at + len(kinds)]))
        at += len(kinds)
        axes = [kind for kind in kinds if kind.endswith("rotation")]
        if name in bones and axes:
            turn = Rotation.from_euler("".join(axis[0] for axis in axes), [of_joint[axis] for axis in axes], degrees=True)
            found[name] = UPRIGHT @ turn.as_matrix() @ UPRIGHT.T
    if at != len(values):
        raise ValueError(f"{len(values)} values for {at} channels")
    return found
