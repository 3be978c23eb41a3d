# SPDX-License-Identifier: Apache-2.0
"""Rendered persons: their files, their shape, what a camera sees of them."""
import re

import cv2
import numpy as np
import pytest
from scipy.spatial.transform import Rotation

from models.labels.table import Invalid
from models.scenes import face_crops, face_frames
from models.sources.bodies import cut_outs, files, person, render, worn

SIDES = [(0, 1, 3, 2), (4, 6, 7, 5), (0, 4, 5, 1), (2, 3, 7, 6), (0, 2, 6, 4), (1, 5, 7, 3)]
CUBE = np.array([(x, y, z) for x in (-1, 1) for y in (-1, 1) for z in (-1, 1)], float)
FRONT = render.Camera(eye=(0, 0, 11), target=(0, 0, 0), scale=100)


@pytest.fixture
def directory(tmp_path):
    """A cube of two groups with a target, a sheet before it, a skeleton of two bones."""
    lines = ["v %f %f %f" % tuple(place) for place in CUBE] + ["g skin"]
    lines += ["f " + " ".join(f"{n + 1}/{n + 1}" for n in side) for side in SIDES[:4]] + ["g eyes"]
    lines += ["f " + " ".join(str(n + 1) for n in side) for side in SIDES[4:]]
    (tmp_path / "cube.obj").write_text("\n".join(lines))
    (tmp_path / "wide.target").write_text("# wider\n7 2 0 .5\n0 -1 0 0\n")
    (tmp_path / "sheet.obj").write_text("v 0 0 0\nv 9 9 9\nf 1 2 2\n")
    (tmp_path / "sheet.mhclo").write_text("# a sheet\nobj_file sheet.obj\nx_scale 0 4 2.0\ny_scale 0 2 4.0\nz_scale 0 1 2.0\n"
                                          "verts 0\n7 5 3 0.5 0.5 0 1 1 0\n3\n\ndelete_verts\n1 - 3 6\n")
    (tmp_path / "bones.mhskel").write_text(
        '{"weights_file": "bones.mhw", "joints": {"low": [0, 1, 4, 5], "high": [2, 3, 6, 7]}, "bones": {'
        '"arm": {"parent": "trunk", "head": "high"}, "trunk": {"parent": null, "head": "low"}}}')
    (tmp_path / "bones.mhw").write_text('{"weights": {"trunk": [[0, 1], [1, 2], [4, 1], [5, 1], [2, 1]],'
                                        ' "arm": [[2, 1], [3, 1], [6, 1], [7, 5]], "lost": [[0, 9]]}}')
    (tmp_path / "bent.bvh").write_text("HIERARCHY\nROOT trunk\n{\nCHANNELS 6 Xposition Yposition Zposition Xrotation Yrotation "
                                       "Zrotation\nJOINT arm\n{\nCHANNELS 3 Zrotation Xrotation Yrotation\n}}\nMOTION\n"
                                       "Frames: 1\n1 2 3 0 0 0 90 0 0\n")
    return tmp_path


def test_files_of_a_body(directory):
    mesh = files.read_mesh(directory / "cube.obj")
    assert np.array_equal(mesh.places, CUBE) and len(mesh.faces) == 6
    assert mesh.of(lambda name: name == "eyes").tolist() == [list(side) for side in SIDES[4:]]

    target = files.read_target(directory / "wide.target", 8)
    for weight in (0, 1, 0.5):
        moved = files.morph(CUBE, [(weight, target)])
        assert np.array_equal(moved - CUBE, weight * np.array([(-1, 0, 0), *[(0, 0, 0)] * 6, (2, 0, .5)]))

    worn = files.read_clothes(directory / "sheet.mhclo", 8)
    assert worn.hidden.tolist() == [1, 2, 3, 6]
    # A body twice as wide: offsets in x are twice as long. In y the offset is for a body twice as high as this one.
    assert np.allclose(worn.fitted(CUBE * (2, 1, 1)), [(2 + 2, 0 + .5, 1), (-2, 1, 1)])


def test_a_skinned_joint(directory):
    """A bone that turns takes its vertices about its head, what hangs on two bones goes half of the way, children follow."""
    skeleton = files.read_skeleton(directory / "bones.mhskel", 8)
    assert skeleton.names == ["trunk", "arm"] and np.allclose(skeleton.heads @ CUBE, [(0, -1, 0), (0, 1, 0)])
    turns = files.read_poses(directory / "bent.bvh", skeleton.names)[0]  # about the file's z, which is up
    assert np.allclose(turns["trunk"], np.eye(3)) and np.allclose(turns["arm"] @ (1, 2, 0), (0, 2, -1))
    moved = files.skin(CUBE, skeleton.weights, skeleton.matrices(CUBE, turns))
    assert np.allclose(moved[[0, 1, 4, 5]], CUBE[[0, 1, 4, 5]])
    assert np.allclose(moved[7], (1, 1, -1)) and np.allclose(moved[2], ((-1, 1, 1) + CUBE[2]) / 2)
    lifted = skeleton.matrices(CUBE, {"trunk": Rotation.from_euler("x", 90, degrees=True).as_matrix()})
    assert np.allclose(files.skin(CUBE, skeleton.weights, lifted)[7], (1, -2, 2))


@pytest.mark.parametrize("read, name, text, complaint", [
    (files.read_mesh, "none.obj", None, "none.obj: No such file"), (files.read_mesh, "a.obj", "v 1 2 3\nf 1 2 3\n", "a.obj: not as"),
    (files.read_target, "a.target", "8 1 1 1\n", "a.target: not as"), (files.read_target, "a.target", "1 1 1\n", "a.target: not as"),
    (files.read_clothes, "a.mhclo", "obj_file gone.obj\n", "gone.obj: No such file"),
    (files.read_clothes, "a.mhclo", "obj_file sheet.obj\nverts 0\n1\n", "a.mhclo: not as it has to be: 1 vertices are tied"),
    (files.read_skeleton, "a.mhskel", "{}", "a.mhskel: not as"),
    (files.read_skeleton, "a.mhskel", '{"joints": {}, "bones": {"a": {"parent": "b", "head": ""}}}', "no parent of a"),
    (files.read_poses, "a.bvh", "ROOT x\nCHANNELS 1 Xrotation\n5\n", "a.bvh: not as")])
def test_what_is_wrong_is_told_with_the_file(directory, read, name, text, complaint):
    if text is not None:
        (directory / name).write_text(text)
    with pytest.raises(Invalid, match=re.escape(complaint)):
        read(directory / name, *([["trunk"]] if read is files.read_poses else [] if read is files.read_mesh else [8]))


def test_a_directory_without_bodies_is_told(tmp_path):
    with pytest.raises(Invalid, match="body/3dobjs/base.obj: No such file"):
        person.Bodies(tmp_path)


def test_where_a_point_is_seen_and_which_way_a_head_looks():
    """One unit aside at a distance of ten is ten of a hundred pixels; a camera at the side sees depth as width."""
    assert np.allclose(FRONT.project([(1, 2, 1), (0, 0, 0)], (200, 100)), [(110, 30), (100, 50)])
    aside = render.Camera(eye=(10, 0, 0), target=(0, 0, 0), scale=100)
    assert np.allclose(aside.project([(0, 1, 1)], (200, 100)), [(90, 40)])
    for camera in (FRONT, aside):
        clip = camera.matrix((200, 100)) @ (0.3, -0.2, 0.4, 1)
        assert np.allclose((clip[:2] / clip[3] * (1, -1) + 1) * (100, 50), camera.project((0.3, -0.2, 0.4), (200, 100)))
    for degrees in (0, 30):
        head = Rotation.from_euler("y", degrees, degrees=True).as_matrix()
        assert np.allclose(cut_outs.angles(head, FRONT), (degrees, 0, 0))
        assert np.allclose(cut_outs.angles(head, aside), (degrees - 90, 0, 0))
    assert np.allclose(cut_outs.angles(Rotation.from_euler("x", 20, degrees=True).as_matrix(), FRONT), (0, 20, 0))
    assert np.allclose(cut_outs.angles(Rotation.from_euler("z", -10, degrees=True).as_matrix(), FRONT), (0, 0, 10))


def test_the_box_of_a_cube_is_that_of_its_projection():
    """Also where another one hides a part of it."""
    faces = np.array(SIDES)
    rows = []
    for part, shift in ((1, (0, 0, 0)), (2, (1, 0, 1.5))):
        places = CUBE + shift
        rows.append(np.column_stack([places, person.normals(places, faces), CUBE, np.tile((0.5, 0.2, 0.1), (8, 1)),
                                     np.full(8, render.PLAIN), np.full(8, part), np.ones(8)]))
    triangles = np.concatenate([faces[:, :3], faces[:, (0, 2, 3)]])
    light = render.Light(np.array((0, 0.5, 1.0)), (1, 1, 1), np.full(3, 0.3), np.full(3, 0.2))
    renderer, size = render.Renderer(), (96, 64)

    def box(mask):
        y, x = np.nonzero(mask)
        return np.array([x.min(), y.min(), x.max() + 1, y.max() + 1])

    picture, parts = renderer.render(rows[0], triangles, FRONT, light, size)
    corners = FRONT.project(CUBE, size)
    wanted = [*corners.min(axis=0), *corners.max(axis=0)]
    assert np.abs(box(parts == 1) / render.SAMPLES - wanted).max() <= 0.5
    assert np.abs(box(picture[..., 3] > 127) - wanted).max() <= 1 and not picture[0, 0].any()
    assert picture[32, 48, 2] > picture[32, 48, 1] > picture[32, 48, 0] > 0  # blue first

    _, parts = renderer.render(np.concatenate(rows), np.concatenate([triangles, triangles + 8]), FRONT, light, size)
    near = FRONT.project(CUBE + (1, 0, 1.5), size)
    nearest = [*near.min(axis=0), *near.max(axis=0)]
    assert np.abs(box(parts == 2) / render.SAMPLES - nearest).max() <= 0.5
    face = FRONT.project((CUBE + (1, 0, 1.5))[CUBE[:, 2] > 0], size)[:, 0].min()
    assert np.abs(box(parts == 1)[[0, 2]] / render.SAMPLES - (wanted[0], min(face, nearest[0]))).max() <= 0.5


@pytest.mark.parametrize("kind, hidden, seen", [("GLASSES", (), (3, 4)), ("SUNGLASSES", (0, 1), (3, 4)), ("MASK", (2, 3, 4), (0, 1))])
def test_what_is_put_on_a_face_lies_on_it(monkeypatch, kind, hidden, seen):
    points, box = np.array([(40.0, 40), (64, 44), (51, 56), (42, 66), (60, 69)]), np.array([30.0, 20, 44, 60])
    picture = np.full((100, 100, 4), (0, 200, 0, 255), np.uint8)
    picture[:, 80:, 3] = 0
    for name in ("GLASSES", "SUNGLASSES", "MASK"):
        monkeypatch.setattr(worn, name, float(name == kind))
    for seed in range(20):
        other = worn.put_on(np.random.default_rng(seed), picture, box, points)
        changed = np.abs(other.astype(int) - picture).max(axis=2) > 20
        assert changed.any() and (other[..., 3] == picture[..., 3]).all() and not changed[:, 80:].any() and not changed[85:].any()
        rows, columns = np.round(points).astype(int).T[::-1]
        assert changed[rows, columns][list(hidden)].all() and not changed[rows, columns][list(seen)].any()


def test_points_are_aligned_as_the_library_aligns_them():
    turn = np.array([[0.4, -1.1], [1.1, 0.4]])
    matrix = face_crops.alignment(face_crops.ALIGNED @ turn.T + (30, -5))
    assert np.allclose(matrix[:, :2] @ turn, np.eye(2)) and np.allclose(matrix[:, :2] @ (30, -5) + matrix[:, 2], 0)


def test_faces_of_rendered_persons_are_labelled_where_they_are(tmp_path, monkeypatch):
    """Blue persons with red faces, one of whom looks away, on black: every box is around red, and no red is without a box."""
    picture = np.zeros((90, 60, 4), np.uint8)
    picture[...] = (255, 0, 0, 255)
    picture[10:50, 15:45] = (0, 0, 255, 255)
    cv2.imwrite(str(tmp_path / "a.png"), picture)
    cv2.imwrite(str(tmp_path / "b.png"), picture[:, ::-1] // 2)
    face = ["bust", 1, 15, 10, 30, 40, *range(10), 0, 0, 0]
    rows = [cut_outs.COLUMNS, ["a.png", 0, *face], ["b.png", 1, *face[:-3], 80, 0, 0]]
    (tmp_path / "0.csv").write_text("\n".join(",".join(map(str, row)) for row in rows))
    monkeypatch.setattr(worn, "put_on", lambda rng, picture, box, points: picture)
    source = cut_outs.Rendered(tmp_path)
    assert len(source.rows) == 2 and [row[0] for row in source.faces] == ["a.png"] and not source.views()
    twice = [cut_outs.COLUMNS, *([f"{name}.png", person, *face] for name, person in (("c", 7), ("d", 7), ("e", 8)))]
    (tmp_path / "1.csv").write_text("\n".join(",".join(map(str, row)) for row in twice))
    assert [[row[0] for row in views] for views in cut_outs.Rendered(tmp_path).views()] == [["c.png", "d.png"]]
    (tmp_path / "1.csv").unlink()

    class Black:
        def background(self, rng, width, height):
            return np.zeros((height, width, 3), np.uint8)

    rng, count = np.random.default_rng(1), 0
    for _ in range(15):
        seen = []
        frame = Black().background(rng, 200, 150)
        for _ in range(3):
            sprite, box = source.figure(rng)
            box = face_frames.place(rng, frame, sprite, box, 40, seen, is_figure=True)
            seen += [box] if box is not None else []
        for x, y, w, h in np.round(seen).astype(int):
            inside = frame[y + 2:y + h - 2, x + 2:x + w - 2]
            assert (inside[..., 2] > 200).mean() > 0.6  # nearer ones may hide a part
            frame[max(y - 2, 0):y + h + 2, max(x - 2, 0):x + w + 2] = 0
            count += 1
        assert (frame[..., 2] > 100).mean() < 0.01
    assert count > 20
    for text, complaint in (("file\n", "0.csv:1: the columns"), (",".join(cut_outs.COLUMNS) + "\na.png,0,bust,x\n", "0.csv:2: ")):
        (tmp_path / "0.csv").write_text(text)
        with pytest.raises(Invalid, match=complaint):
            cut_outs.Rendered(tmp_path)
