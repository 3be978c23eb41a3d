# SPDX-License-Identifier: Apache-2.0
"""Each task gives, bit for bit, what a C program gets for the same pixels and samples."""
import ctypes as c
import gc
from typing import Any, Callable, Tuple

import numpy as np
import pytest
from c_library import FaceResult, Feature, Handle, Result, Size, as_detections, boxes, detected, pointer
from conftest import EXAMPLES, scene
from numpy.typing import NDArray

import kelnn


def test_faces(models: str, library: kelnn.Library) -> None:
    with kelnn.FaceDetector(library) as faces:
        found = {name: detected(faces.detect(scene(name))) for name in ("faces_1", "persons_portrait")}
    for name, ours in found.items():
        height, width = scene(name).shape[:2]
        image, result = kelnn.scale(scene(name), (320, 240)), FaceResult()
        with Handle(models, "facedet", width, height) as task:
            assert task("process", pointer(image), c.byref(result)) == 0
            assert ours == as_detections(boxes(result)) and ours


@pytest.mark.parametrize("columns", [640, 360, 180])  # landscape, square, portrait; the latter two with padded rows
@pytest.mark.parametrize("detector, task, name", [(kelnn.PersonDetector, "persondet", "persons_landscape"),
                                                  (kelnn.ObjectDetector, "4clsdet", "objects_1")])
def test_persons_and_objects(models: str, library: kelnn.Library, columns: int, detector: Callable[..., Any],
                             task: str, name: str) -> None:
    frame = scene(name)[:, :columns]
    size = frame.shape[1], frame.shape[0]
    with detector(library, size) as opened:
        ours = detected(opened.detect(frame))
    input_size = kelnn.detector_input(size)
    image, result = kelnn.letterbox(np.ascontiguousarray(frame), input_size), Result()
    with Handle(models, task, *size) as handle:
        assert handle("process", pointer(image), c.byref(result), Size(*size), Size(*input_size)) == 0
        assert ours == as_detections(boxes(result)) and ours


def test_a_detector_takes_frames_of_every_orientation(library: kelnn.Library) -> None:
    shapes = ["landscape", "portrait", "square"]
    with kelnn.PersonDetector(library, (16, 9)) as persons:
        one_after_the_other = [detected(persons.detect(scene("persons_" + shape))) for shape in shapes]
    for shape, found in zip(shapes, one_after_the_other):
        frame = scene("persons_" + shape)
        with kelnn.PersonDetector(library, (frame.shape[1], frame.shape[0])) as persons:
            assert detected(persons.detect(frame)) == found


def c_features(task: Handle, image: c.c_void_p) -> Tuple[float, ...]:
    feature = Feature()
    assert task("kel_nn_face_feature_extract", image, c.byref(feature)) == 0
    return tuple(feature.data[i] for i in range(feature.len))


def c_landmarks(task: Handle, image: c.c_void_p) -> Tuple[float, ...]:
    points, pose = np.zeros(10, np.float32), np.zeros(3, np.float32)
    assert task("process", image, pointer(points), pointer(pose)) == 0
    return (*points, *pose)


def c_face_class(task: Handle, image: c.c_void_p) -> Tuple[float, ...]:
    id_, score = c.c_int(), c.c_float()
    assert task("process", image, c.byref(id_), c.byref(score)) == 0
    return id_.value, score.value


def c_person_class(task: Handle, image: c.c_void_p) -> Tuple[float, ...]:
    score = c.c_float()
    assert task("process", image, c.byref(score)) == 0
    return (score.value,)


@pytest.mark.parametrize("kind, task, format_, c_values, values", [
    (kelnn.FaceFeatures, "facercg", kelnn.Format.GREY, c_features, tuple),
    (kelnn.FaceLandmarks, "facelm", kelnn.Format.GREY, c_landmarks, lambda found: (*found.points.flat, *found.pose)),
    (kelnn.FaceClassifier, "face_classify", kelnn.Format.GREY, c_face_class, lambda found: (found.id, found.score)),
    (kelnn.PersonClassifier, "person_classify", kelnn.Format.RGB, c_person_class, lambda found: (found,)),
])
def test_cut_outs(models: str, library: kelnn.Library, kind: Callable[..., Any], task: str, format_: kelnn.Format,
                  c_values: Callable[..., Any], values: Callable[..., Any]) -> None:
    frame, places = scene("faces_1"), [(100, 50, 90, 110), (-20, 200, 77, 300)]
    cut_outs = [kelnn.crop(frame, place, format=format_) for place in places]
    with kind(library) as opened:
        of_places = [opened.of(frame, place) for place in places]
        of_cut_outs = [opened.of(cut_out) for cut_out in cut_outs]
    # Only now, so that a result that is a part of the library shows.
    with Handle(models, task) as handle:
        expected = [c_values(handle, pointer(cut_out)) for cut_out in cut_outs]
    assert [values(found) for found in of_places] == expected
    assert [values(found) for found in of_cut_outs] == expected
    assert expected[0] != expected[1]


def test_similarity(library: kelnn.Library, faces: NDArray[np.uint8]) -> None:
    with kelnn.FaceFeatures(library) as features:
        a, b = features.of(faces[0]), features.of(faces[1])
    assert kelnn.similarity(a, b) == kelnn.inner(a, b) < kelnn.similarity(a, a) == pytest.approx(1)


def test_cries(models: str, library: kelnn.Library, sound: NDArray[np.int16]) -> None:
    long = np.tile(sound, 3)
    with kelnn.CryDetector(library) as cries:
        at_once = cries.add(long)
        in_parts = [probability for part in np.split(long, 12) for probability in cries.add(part)]
        assert cries.add(np.zeros(48000, np.int16)) == [pytest.approx(0.00001)]
    expected = []
    with Handle(models, "crydet", 16000, c.c_float(0)) as task:
        for part in np.split(long, 12):
            score = c.c_float()
            assert task("process", pointer(part), len(part), c.byref(score)) == 0
            expected += [score.value] if score.value >= 0 else []
    assert at_once == in_parts == expected and len(expected) == 4


def test_motion(models: str, library: kelnn.Library) -> None:
    noise = np.random.default_rng(3)
    frames = [noise.integers(0, 256 if i > 20 else 2, (48, 64), np.uint8) for i in range(40)]
    with kelnn.MotionFilter(library, ratio=2, period=10) as filter_:
        ours = [filter_.take(frame) for frame in frames]
    expected = []
    with Handle(models, "pir_filter", 64, 48) as task:
        for frame in frames:
            moved = c.c_int32(-1)
            assert task("process", pointer(frame), 64, 48, c.c_float(2), 10, c.byref(moved)) == 0
            expected.append(None if moved.value < 0 else bool(moved.value))
    assert ours == expected and {True, False, None} == set(ours)


def test_a_network_of_ones_own(library: kelnn.Library, faces: NDArray[np.uint8]) -> None:
    path = EXAMPLES.parent / "models" / "face_features" / "network.onnx"
    with kelnn.Graph(path) as graph, kelnn.FaceFeatures(library) as features:
        assert graph.input_shape == (112, 112, 1)
        (raw,) = graph.run(faces[0])
        assert np.array_equal(raw, graph.run(faces[0][:, :, None])[0])
        assert raw.shape == (1, 1, 256) and raw.dtype == np.float32
        values = raw.reshape(-1).copy()
        kelnn.l2norm(values)
        assert np.array_equal(values, features.of(faces[0]))


def test_what_was_found_outlives_everything(models: str, faces: NDArray[np.uint8]) -> None:
    library = kelnn.Library(models)
    features, landmarks = kelnn.FaceFeatures(library), kelnn.FaceLandmarks(library)
    library.close()  # tasks keep what they need of it
    feature, found = features.of(faces[0]), landmarks.of(faces[0])
    before = feature.copy(), found.points.copy()
    features.of(faces[1]), landmarks.of(faces[1])
    features.close()
    features.close()
    points = found.points
    del features, landmarks, library, found
    gc.collect()
    assert feature.flags.owndata and np.array_equal(feature, before[0]) and np.array_equal(points, before[1])
