# SPDX-License-Identifier: Apache-2.0
"""A random person of the body's files: shape, face, expression, hair, clothes, colours, pose; as triangles to render."""
import dataclasses
import functools
from pathlib import Path
from typing import Any, Dict, List

import numpy as np
from scipy.spatial.transform import Rotation

from models.labels.table import Invalid
from models.sources.bodies import files, render

FACE, OTHER = 1, 2  # parts
SKINS = np.array([(0.80, 0.55, 0.44), (0.72, 0.47, 0.36), (0.62, 0.38, 0.27), (0.48, 0.28, 0.18), (0.33, 0.18, 0.11),
                  (0.20, 0.11, 0.07), (0.11, 0.06, 0.04), (0.75, 0.52, 0.38), (0.66, 0.44, 0.30)])
HAIRS = np.array([(0.02, 0.015, 0.012), (0.04, 0.025, 0.018), (0.10, 0.05, 0.03), (0.20, 0.11, 0.05), (0.45, 0.30, 0.14),
                  (0.30, 0.10, 0.04), (0.35, 0.34, 0.33), (0.65, 0.64, 0.62)])
IRISES = np.array([(0.06, 0.03, 0.015), (0.10, 0.06, 0.03), (0.10, 0.14, 0.20), (0.08, 0.13, 0.07)])
TEETH = (0.6, 0.56, 0.48)
AGES = ("baby", "child", "young", "old")
# In the unchanged mesh, tenths of a metre.
CHIN, FOREHEAD, CHEEK, TEMPLE = 6.12, 7.85, 0.72, 0.55  # y, y, x, z: what of the head is the face
NOSE_TIP, MOUTH_LEFT, MOUTH_RIGHT = (0, 6.91, 1.68), (-0.27, 6.61, 1.41), (0.27, 6.61, 1.41)  # as a picture shows left and right
WAIST = 0.6
FACE_ROOMS = ("head", "nose", "eyes", "mouth", "chin", "cheek", "forehead", "eyebrows", "neck", "ears")


def is_face(rest: Any) -> Any:
    x, y, z = np.abs(rest[:, 0]), rest[:, 1], rest[:, 2]
    return (y > CHIN) & (y < FOREHEAD) & (x < CHEEK) & (z > TEMPLE)


@dataclasses.dataclass
class Person:
    vertices: Any  # [n, of render.FIELDS]
    triangles: Any
    face: Any  # [m, 3]: places around the face
    points: Any  # [5, 3]: eyes, nose, corners of the mouth, left ones first as they are seen from before
    head: Any  # 3 x 3: how the head is turned


class Bodies:
    """What is in a directory with body/ and wear/; files are read when somebody needs them."""

    def __init__(self, directory: Any):
        self.directory = Path(directory)
        self.mesh = files.read_mesh(self.directory / "body/3dobjs/base.obj")
        self.rest = self.mesh.places
        self.count = len(self.rest)
        self.skeleton = files.read_skeleton(self.directory / "body/rigs/default.mhskel", self.count)
        self.poses = {path.stem: files.read_poses(path, self.skeleton.names)[0] for path in self._paths("wear/poses/*.bvh")}
        self.target = functools.lru_cache(None)(lambda name: files.read_target(self._target_path(name), self.count))
        self.clothes = functools.lru_cache(None)(self._clothes)
        self.face_targets = [str(path.relative_to(self.directory / "body/targets")) for room in FACE_ROOMS
                             for path in self._paths(f"body/targets/{room}/*.target")]
        self.skin_faces = self.mesh.of(lambda name: name == "body")
        self.eye_faces = self.mesh.of(lambda name: name in ("helper-l-eye", "helper-r-eye"))
        self.teeth_faces = self.mesh.of(lambda name: name.endswith("teeth"))
        lids = [np.unique(self.mesh.of(lambda name, side=side: name == f"helper-{side}-eye")) for side in "rl"]
        self.pupils = [of_eye[self.rest[of_eye, 2] > 1.33] for of_eye in lids]
        self.marks = [int(np.linalg.norm(self.rest[:13380] - mark, axis=1).argmin())
                      for mark in (NOSE_TIP, MOUTH_LEFT, MOUTH_RIGHT)]
        used = np.unique(self.skin_faces)
        self.face = used[is_face(self.rest[used])]

    def _paths(self, pattern: str) -> List[Path]:
        found = sorted(self.directory.glob(pattern))
        if not found:
            raise Invalid(f"{self.directory / pattern}: no such file")
        return found

    def _target_path(self, name: str) -> Path:
        return self.directory / "body/targets" / name

    def _clothes(self, path: Path) -> Any:
        """What is worn, on which bones it hangs, how far from the border of a sheet its vertices are."""
        worn = files.read_clothes(path, self.count)
        weights = files.normalised(worn.on.maximum(0) @ self.skeleton.weights)
        return worn, weights, inside(worn.mesh.faces, len(worn.mesh.places))

    def shape(self, rng: Any, view: Any, sex: float, age: str, race: str) -> Any:
        """The body at rest, with an expression that is the view's."""
        def between(names: Any) -> Any:  # weights of two neighbours of three
            value = np.clip(rng.normal(0, 0.45), -1, 1)
            return {names[1]: 1 - abs(value), names[2] if value > 0 else names[0]: abs(value)}

        targets = []
        muscles, weights = (between([f"{size}{what}" for size in ("min", "average", "max")]) for what in ("muscle", "weight"))
        height, tall = rng.choice(["min", "max"]), rng.uniform(0, 0.5)
        for name, share in (("female", 1 - sex), ("male", sex)):
            if share < 0.02:
                continue
            targets.append((share, f"macrodetails/{race}-{name}-{age}.target"))
            for muscle, a in muscles.items():
                for weight, b in weights.items():
                    targets.append((share * a * b, f"macrodetails/universal-{name}-{age}-{muscle}-{weight}.target"))
                    whose = f"{name}-{age}-{muscle}-{weight}"
                    targets.append((share * a * b * tall, f"macrodetails/height/{whose}-{height}height.target"))
        for name in rng.choice(self.face_targets, 24, replace=False):
            amount = abs(rng.normal(0, 0.3))
            targets += [(min(amount, 0.8), side) for side in both_sides(name)]
        targets += self._expression(view)
        return files.morph(self.rest, [(weight, self.target(name)) for weight, name in targets
                                       if weight > 0.01 and self._target_path(name).exists()])

    def _expression(self, rng: Any) -> Any:
        units = "expression/units/caucasian/"
        chosen = []
        if rng.random() < 0.5:
            chosen.append(("mouth-corner-puller", rng.uniform(0.2, 1)))
        if rng.random() < 0.35:
            chosen.append(("mouth-open", rng.uniform(0.1, 0.7)))
        if rng.random() < 0.3:
            chosen.append(("eye-left-closure", rng.uniform(0.1, 0.6) if rng.random() < 0.8 else 1))
        if rng.random() < 0.4:
            chosen.append((f"eyebrows-left-{rng.choice(['up', 'down', 'inner-up'])}", rng.uniform(0, 0.8)))
        if rng.random() < 0.2:
            chosen.append((f"mouth-{rng.choice(['pursing', 'depression', 'compression', 'protusion'])}", rng.uniform(0, 0.6)))
        return [(weight, side) for name, weight in chosen for side in both_sides(f"{units}{name}.target")]

    def turns(self, rng: Any, is_bust: bool) -> Dict[str, Any]:
        """One of the poses or a walk, each joint a little otherwise, and the head turned."""
        names = ["walk", "walk"] + [name for name in self.poses if name.startswith("stand")] * (1 if is_bust else 2)
        names += [] if is_bust else [name for name in self.poses if name.startswith(("sit", "run", "fight01", "fight02"))]
        name = str(rng.choice(names))
        turns = walk(rng) if name == "walk" else dict(self.poses[name])
        for bone in ("upperarm01", "lowerarm01", "upperleg01", "lowerleg01", "spine03", "shoulder01"):
            for side in (".L", ".R") if bone != "spine03" else ("",):
                turn = Rotation.from_rotvec(rng.normal(0, 0.09, 3)).as_matrix()
                turns[bone + side] = turn @ turns.get(bone + side, np.eye(3))
        head = Rotation.from_euler("yxz", rng.normal(0, (22, 9, 6)), degrees=True)
        half = Rotation.from_rotvec(head.as_rotvec() / 2).as_matrix()
        for bone in ("neck02", "head"):
            turns[bone] = half
        return turns

    def person(self, rng: Any, is_bust: bool = False, view: Any = None) -> Person:
        """Somebody of rng's, in a pose, with an expression and in clothes of view's (default: of rng's too)."""
        view = view or rng
        sex = float(rng.random() < 0.5) if rng.random() < 0.9 else rng.uniform(0, 1)
        age = str(rng.choice(AGES, p=(0.04, 0.16, 0.6, 0.2)))
        race = str(rng.choice(["african", "asian", "caucasian"]))
        body = self.shape(rng, view, sex, age, race)
        matrices = self.skeleton.matrices(body, self.turns(view, is_bust))
        skinned = files.skin(body, self.skeleton.weights, matrices)
        parts: list = []
        hidden = np.zeros(self.count, bool)
        for path, kind in self._wear(rng, view, sex, age):
            worn, weights, within = self.clothes(path)
            hidden[worn.hidden] = True
            fitted = worn.fitted(body)
            rest = worn.on @ self.rest
            material = {"hair": render.HAIR, "brow": render.HAIR, "cloth": render.CLOTH, "plain": render.PLAIN}[kind]
            colour = self._cloth_colour(view, rest) if kind == "cloth" else dull(view) if kind == "plain" else None
            parts.append((files.skin(fitted, weights, matrices), worn.mesh.faces, rest, colour, material,
                          within if material == render.HAIR else np.ones(len(rest)), kind))
        skin_colour, hair_colour = SKINS[rng.integers(len(SKINS))] * rng.uniform(0.85, 1.15), HAIRS[rng.integers(len(HAIRS))]
        colours = self._skin_colours(rng, skin_colour)
        seen = self.skin_faces[~hidden[self.skin_faces].all(axis=1)]
        iris = IRISES[rng.integers(len(IRISES))]
        everything: list = [(skinned, faces, self.rest, colour, material, np.ones(self.count), kind)
                            for faces, colour, material, kind in ((seen, colours, render.SKIN, "skin"),
                                                                  (self.eye_faces, iris, render.EYE, "eye"),
                                                                  (self.teeth_faces, TEETH, render.PLAIN, "skin"))]
        everything += [(*part[:3], hair_colour if part[3] is None else part[3], *part[4:]) for part in parts]
        return self._joined(everything, skinned, matrices)

    def _joined(self, parts: Any, skinned: Any, matrices: Any) -> Person:
        vertices, triangles, base = [], [], 0
        for places, faces, rest, colour, material, within, kind in parts:
            rows = np.empty((len(places), sum(render.WIDTHS)))
            rows[:, 0:3], rows[:, 3:6], rows[:, 6:9], rows[:, 9:12] = places, normals(places, faces), rest, colour
            rows[:, 12], rows[:, 14] = material, within
            rows[:, 13] = np.where(is_face(rest), FACE, OTHER) if kind in ("skin", "eye", "brow") else OTHER
            vertices.append(rows)
            triangles += [base + faces[:, :3], base + faces[faces[:, 2] != faces[:, 3]][:, (0, 2, 3)]]
            base += len(places)
        points = [skinned[pupil].mean(axis=0) for pupil in self.pupils] + [skinned[mark] for mark in self.marks]
        return Person(np.concatenate(vertices), np.concatenate(triangles), skinned[self.face], np.array(points),
                      matrices[self.skeleton.names.index("head"), :, :3])

    def _skin_colours(self, rng: Any, skin: Any) -> Any:
        rest = self.rest
        colours = np.tile(skin, (self.count, 1))
        x, y, z = rest.T
        lips = np.clip(1.6 - 1.6 * ((x / 0.30) ** 2 + ((y - 6.61) / 0.125) ** 2), 0, 1) * (z > 1.3)
        red = skin * (0.85, 0.5, 0.5) if rng.random() < 0.75 else np.array((0.45, 0.03, 0.05))
        colours += lips[:, None] * rng.uniform(0.4, 1) * (red - skin)
        cheeks = np.exp(-((np.abs(x) - 0.5) ** 2 + (y - 6.95) ** 2) / 0.05) * (z > 0.7) * rng.uniform(0, 0.3)
        colours += cheeks[:, None] * (skin * (1.0, 0.6, 0.6) - skin)
        sockets = np.exp(-((np.abs(x) - 0.31) ** 2 / 0.03 + (y - 7.25) ** 2 / 0.012)) * (z > 1) * rng.uniform(0.05, 0.4)
        colours *= 1 - sockets[:, None]
        if rng.random() < 0.25:  # a beard's shadow
            up = 6.9 + 0.25 * np.clip((0.9 - z) / 0.5, 0, 1)  # higher towards the ears
            beard = np.clip((up - y) / 0.12, 0, 1) * np.clip((y - 5.9) / 0.2, 0, 1) * (z > 0.3) * (1 - lips)
            colours *= 1 - beard[:, None] * rng.uniform(0.2, 0.75)
        cavity = (np.abs(x) < 0.3) & (y > 6.38) & (y < 6.9) & (z < 1.33) & (z > 0.3)
        colours[cavity] = (0.06, 0.015, 0.015)
        return colours

    def _wear(self, rng: Any, view: Any, sex: float, age: str) -> Any:
        who = "male" if sex > 0.5 else "female"

        def one(pattern: str, chance: Any) -> Path:
            paths = self._paths(pattern)
            return paths[chance.integers(len(paths))]

        worn = [(one(f"wear/clothes/{who}_*/*.mhclo", view), "cloth"), (one("wear/clothes/shoes*/*.mhclo", view), "plain"),
                (one("wear/eyebrows/*/*.mhclo", rng), "brow")]
        if rng.random() < (0.85 if age != "baby" else 0.3):
            is_short = who == "male" and rng.random() < 0.85
            worn.append((one(f"wear/hair/{'short' if is_short else ''}*/*.mhclo", rng), "hair"))
        if view.random() < 0.08:
            worn.append((one("wear/clothes/fedora*/*.mhclo", view), "plain"))
        return worn

    def _cloth_colour(self, rng: Any, rest: Any) -> Any:
        """Another above the waist than below."""
        return np.where(rest[:, 1:2] > WAIST + rng.normal(0, 0.15), dull(rng), dull(rng))


def dull(rng: Any) -> Any:
    """A cloth's colour: seldom a loud one."""
    grey = rng.uniform(0.02, 0.8) ** 1.5
    return np.clip(grey + rng.normal(0, 0.25 if rng.random() < 0.4 else 0.04, 3) * (0.3 + grey), 0.01, 0.9)


def walk(rng: Any) -> Dict[str, Any]:
    """From the rest pose: arms down, legs apart as in a stride, seldom much."""
    stride = rng.normal(0, 0.3)
    turns = {}
    for side, sign in ((".L", 1), (".R", -1)):
        swing = sign * stride
        turns["upperleg01" + side] = Rotation.from_euler("x", -swing).as_matrix()
        bent = max(0.0, rng.uniform(0, 1.2) * abs(swing) - 0.5 * swing)
        turns["lowerleg01" + side] = Rotation.from_euler("x", bent).as_matrix()
        turns["upperarm01" + side] = Rotation.from_euler("zx", (-sign * rng.uniform(0.35, 0.75), swing * 0.7)).as_matrix()
        turns["lowerarm01" + side] = Rotation.from_euler("x", rng.uniform(-1.0, 0.3) if rng.random() < 0.3 else 0.1).as_matrix()
    return turns


def both_sides(name: str) -> List[str]:
    """A target of one side goes with that of the other."""
    for left, right in (("/l-", "/r-"), ("-left-", "-right-")):
        for one, other in ((left, right), (right, left)):
            if one in name:
                return [name, name.replace(one, other)]
    return [name]


def normals(places: Any, faces: Any) -> Any:
    """Of vertices, the mean of their faces'."""
    across = np.cross(places[faces[:, 2]] - places[faces[:, 0]], places[faces[:, 3]] - places[faces[:, 1]])
    flat = (faces[:, 2] == faces[:, 3])
    across[flat] = np.cross(places[faces[flat, 1]] - places[faces[flat, 0]], places[faces[flat, 2]] - places[faces[flat, 0]])
    total = np.stack([sum(np.bincount(faces[:, corner], across[:, axis], len(places)) for corner in range(4))
                      for axis in range(3)], 1)
    return total / np.maximum(np.linalg.norm(total, axis=1, keepdims=True), 1e-9)


def inside(faces: Any, count: int) -> Any:
    """0 at the border of a sheet, 0.5 next to it, 1 further in."""
    edges = np.sort(np.concatenate([faces[:, (a, b)] for a, b in ((0, 1), (1, 2), (2, 3), (3, 0))]), axis=1)
    edges = edges[edges[:, 0] != edges[:, 1]]
    single, times = np.unique(edges, axis=0, return_counts=True)
    depth = np.ones(count)
    border = np.unique(single[times == 1])
    near = np.unique(single[np.isin(single, border).any(axis=1)])
    depth[near], depth[border] = 0.6, 0.0
    return depth
