# SPDX-License-Identifier: Apache-2.0
"""What the module refuses, what it prints, and many threads at once."""
import logging
import os
import re
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Any, Callable, Dict, List

import numpy as np
import pytest
from conftest import scene
from numpy.typing import NDArray

import kelnn
from kelnn import __main__ as command_line

grey = np.arange(112 * 112, dtype=np.uint8).reshape(112, 112)
colour = np.stack([grey] * 3, axis=2)


def test_frames_of_every_kind_are_looked_at_where_they_lie() -> None:
    wide = np.random.default_rng(5).integers(0, 256, (90, 200, 3), np.uint8)
    part = wide[10:70, 20:140]  # padded rows
    whole = np.ascontiguousarray(part)
    size = (64, 48)
    assert np.array_equal(kelnn.scale(part, size), kelnn.scale(whole, size))
    assert np.array_equal(kelnn.scale(kelnn.Frame.bgr(part), size)[:, :, ::-1], kelnn.scale(part, size))
    assert np.array_equal(kelnn.scale(kelnn.Frame.rgb(part), size, kelnn.Format.BGR)[:, :, ::-1],
                          kelnn.scale(part, size))
    assert np.array_equal(kelnn.scale(wide[:, :, 0].copy(), size, kelnn.Format.GREY),
                          kelnn.resize(wide[:, :, 0].copy(), size))
    assert np.array_equal(kelnn.crop(wide, (20, 10, 120, 60), (120, 60)), whole)
    points = np.array([[38.4, 51.6], [73.6, 51.6], [56.0, 71.7], [41.4, 92.3], [70.6, 92.3]], np.float32)
    assert np.array_equal(kelnn.align(grey, points), grey)  # they lie where they are wanted
    assert np.array_equal(kelnn.align(colour, points + np.array([5, 0], np.float32), format=kelnn.Format.RGB)[:, :-5],
                          colour[:, 5:])
    # Odd sides share the colour of the pair beside them: 41 rows of luma have 20 of chroma.
    nv12 = np.random.default_rng(6).integers(0, 256, (41 + 20, 61), np.uint8)
    apart = kelnn.Frame.nv12(nv12[:41], chroma_view(nv12, 41))
    assert kelnn.Frame.nv12(nv12).size == apart.size == (61, 41)
    assert np.array_equal(kelnn.scale(kelnn.Frame.nv12(nv12), size), kelnn.scale(apart, size))
    assert not np.array_equal(kelnn.scale(kelnn.Frame.nv12(nv12, full_range=True), size), kelnn.scale(apart, size))


def chroma_view(nv12: NDArray[np.uint8], rows: int) -> NDArray[np.uint8]:
    """The second plane, in place: (rows // 2, width // 2, 2)."""
    pairs = nv12.shape[1] // 2
    view: NDArray[np.uint8] = np.ndarray(
        (rows // 2, pairs, 2), np.uint8, nv12, rows * nv12.strides[0], (nv12.strides[0], 2, 1))
    return view


def test_a_frame_keeps_its_pixels_alive() -> None:
    frame = kelnn.Frame.rgb(np.full((50, 60, 3), 7, np.uint8))
    rubbish = [np.full((50, 60, 3), i, np.uint8) for i in range(20)]
    assert np.all(kelnn.scale(frame, (10, 10)) == 7) and rubbish


WRONG_ARRAYS: Dict[str, Callable[[], Any]] = {
    "uint8 array of shape (height, width) or (height, width, 3)": lambda: kelnn.scale(colour.astype(float), (8, 8)),
    "this is: list": lambda: kelnn.scale([[1, 2], [3, 4]], (8, 8)),  # type: ignore[arg-type]
    "this is: uint8 array of shape (112, 112, 2)": lambda: kelnn.scale(colour[:, :, :2].copy(), (8, 8)),
    "with strides (-336, 3, 1)": lambda: kelnn.scale(colour[::-1], (8, 8)),
    "with strides (336, 6, 1)": lambda: kelnn.scale(colour[:, ::2], (8, 8)),
    "with strides (0, 3, 1)": lambda: kelnn.scale(np.broadcast_to(colour[:1], (5, 112, 3)), (8, 8)),
    "with strides (1, 112)": lambda: kelnn.Frame.grey(grey.T),
    "uint8 array of shape (height, width, 3)": lambda: kelnn.Frame.bgr(grey),
    "uint8 array of shape (height + height // 2, width)": lambda: kelnn.Frame.nv12(grey[:110]),
    "uint8 array of shape (height // 2, width // 2, 2)": lambda: kelnn.Frame.nv12(grey, grey),
    "as far apart as the luma's": lambda: kelnn.Frame.nv12(grey, np.zeros((56, 56, 2), np.uint8)[:, :28]),
    "(height, width, 1 to 4)": lambda: kelnn.resize(np.zeros((4, 4, 5), np.uint8), (8, 8)),
    "float32 array of shape (5, 2)": lambda: kelnn.align(grey, np.zeros((5, 2))),  # type: ignore[arg-type]
    "int16 array of shape (n,)": lambda: kelnn.loudness(np.zeros(9)),  # type: ignore[arg-type]
    "int16 array of shape (48000,)": lambda: kelnn.SoundFeatures().of(np.zeros(47999, np.int16)),
    "float32 array of shape (n,)": lambda: kelnn.l2norm(np.zeros((2, 2), np.float32)),
    "float32 array of shape (256,)": lambda: kelnn.similarity(np.zeros(256, np.float32), np.zeros(255, np.float32)),
    "this is: float32 array of shape (4,)": lambda: kelnn.inner(np.zeros(5, np.float32), np.zeros(4, np.float32)),
    "data must be writeable": lambda: kelnn.softmax(np.broadcast_to(np.float32(1), 1)),
    "float32 array of shape (n,) in C order; this is: float32 array of shape (3,)":  # but between addresses
        lambda: kelnn.softmax(np.frombuffer(b"?" * 13, np.float32, 3, 1)),
    "kelnn.BOX array of shape (n,)": lambda: kelnn.nms(np.zeros(3, np.float32), 0.5),
    "(input height / stride, input width / stride, values of a cell)":
        lambda: kelnn.centernet(np.zeros((3, 4, 8), np.float32), 8, image_size=(9, 9), input_size=(32, 32), reg_max=0,
                                classes=4, score_threshold=0),
}


@pytest.mark.parametrize("words", WRONG_ARRAYS)
def test_wrong_arrays(words: str) -> None:
    with pytest.raises(TypeError, match=re.escape(words)):
        WRONG_ARRAYS[words]()


@pytest.mark.parametrize("misuse", [
    lambda: kelnn.resize(grey, (0, 5)),
    lambda: kelnn.resize(grey[:1], (5, 5)),
    lambda: kelnn.resize_nv12(grey[:2], (5, 5)),
    lambda: kelnn.fft(np.zeros(3, np.complex64)),
    lambda: kelnn.real_fft(np.zeros(0, np.float32)),
    lambda: kelnn.yolov3(np.zeros((1, 1, 6), np.float32), 0, image_size=(8, 8), input_size=(8, 8), classes=1,
                         anchors=np.zeros((1, 2), np.int32), score_threshold=0),
    lambda: kelnn.scale(grey, (0, 5)),
    lambda: kelnn.letterbox(grey, (5, 16385)),
    lambda: kelnn.crop(grey, (112, 0, 5, 5)),
    lambda: kelnn.align(grey, np.zeros((5, 2), np.float32)),
    lambda: kelnn.Frame.rgb(np.zeros((0, 5, 3), np.uint8)),
    lambda: kelnn.Frame.nv12(np.zeros((1, 1), np.uint8)),
    lambda: kelnn.letterbox_rects((0, 1), (1, 1)),
])
def test_wrong_values(misuse: Callable[[], Any]) -> None:
    with pytest.raises(ValueError):
        misuse()


def test_errors_have_the_librarys_words(library: kelnn.Library, tmp_path: Path) -> None:
    with pytest.raises(kelnn.ModelError, match="face-features: .*Decode model fail") as missing:
        kelnn.FaceFeatures(kelnn.Library(tmp_path))
    assert missing.value.task == "face-features" and missing.value.line == "Decode model fail."
    with kelnn.FaceFeatures(library) as features:
        with pytest.raises(kelnn.InUseError, match="face-features: .*already been initialized"):
            kelnn.FaceFeatures(library)
        with pytest.raises(kelnn.FrameError, match="outside the frame"):
            features.of(colour, (500, 0, 9, 9))
    with pytest.raises(ValueError, match="face features is closed"):
        features.of(grey)
    with pytest.raises(kelnn.ModelError, match="none.onnx does not load: .*Can not load model"):
        kelnn.Graph(tmp_path / "none.onnx")
    assert issubclass(kelnn.OutOfMemoryError, MemoryError) and issubclass(kelnn.FrameError, ValueError)
    with pytest.raises(ValueError, match="the library is closed"):
        with library:
            pass
        kelnn.FaceFeatures(library)


def test_messages_go_to_logging(library: kelnn.Library, caplog: pytest.LogCaptureFixture,
                                capfd: pytest.CaptureFixture[str], tmp_path: Path) -> None:
    with caplog.at_level(logging.INFO, "kelnn.messages"):
        kelnn.Library().close()
        assert any("KELNN v" + kelnn.__version__ in record.message for record in caplog.records)
        caplog.clear()
        with kelnn.FaceDetector(library) as faces:
            assert {record.levelname for record in caplog.records} == {"INFO"}
            caplog.clear()
            # Frames of another size are no error of anybody's.
            faces.detect(scene("faces_1")), faces.detect(scene("persons_portrait"))
            assert caplog.records == []
            with pytest.raises(kelnn.InUseError):
                kelnn.FaceDetector(library)
        (record,) = caplog.records
        assert record.levelname == "ERROR" and record.name == "kelnn.messages"
        assert re.match(r"Graph has already been initialized\. \(.*kel_nne_graph_init\(.*\), .*kel_nn_engine.cpp:\d+\)",
                        record.message)
    assert capfd.readouterr().out == ""


def test_threads_take_turns(library: kelnn.Library) -> None:
    frame, expected = scene("persons_landscape"), {}
    window = np.random.default_rng(8).integers(-9000, 9000, 48000).astype(np.int16)
    with kelnn.PersonDetector(library, (640, 360)) as persons, kelnn.FaceLandmarks(library) as landmarks, \
            kelnn.CryDetector(library) as cries:
        work: Dict[str, Callable[[], str]] = {
            "persons": lambda: str(persons.detect(frame)),
            "landmarks": lambda: str(landmarks.of(frame, (5, 5, 99, 99)).points),
            "cries": lambda: str(cries.add(window)),
            "messages": lambda: str(kelnn.nms(np.zeros(2, kelnn.BOX), 0.5)) + kelnn.Library("x").directory,
        }
        expected = {name: one() for name, one in work.items()}
        found: List[bool] = []

        def run(name: str) -> None:
            found.extend(work[name]() == expected[name] for _ in range(15))

        threads = [threading.Thread(target=run, args=(name,)) for name in list(work) * 2]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(60)
    assert found == [True] * (15 * 8)


def test_python_runs_on_while_the_library_works(library: kelnn.Library) -> None:
    """A waiting thread gets in within a call, where nobody else would let it in."""
    gate, is_in = threading.Lock(), []
    gate.acquire()

    def wait() -> None:
        with gate:
            is_in.append(True)

    thread = threading.Thread(target=wait)
    thread.start()
    interval = sys.getswitchinterval()
    with kelnn.PersonDetector(library, (640, 360)) as persons:
        frame = scene("persons_landscape")
        sys.setswitchinterval(1000)  # seconds: who has the interpreter's lock keeps it until a call gives it away
        try:
            gate.release()
            for _ in range(100):
                persons.detect(frame)
                if is_in:
                    break
            assert is_in
        finally:
            sys.setswitchinterval(interval)
            thread.join(60)


def test_closing_while_others_call(library: kelnn.Library) -> None:
    """A call ends, or says that the task is closed; nothing crashes."""
    for _ in range(5):
        features = kelnn.FaceFeatures(library)
        ends: List[str] = []

        def run() -> None:
            try:
                while True:
                    features.of(grey)
            except ValueError as error:
                ends.append(str(error))

        threads = [threading.Thread(target=run) for _ in range(3)]
        for thread in threads:
            thread.start()
        time.sleep(0.01)
        features.close()
        for thread in threads:
            thread.join(60)
        assert ends == ["face features is closed"] * 3


def test_a_child_of_a_busy_process_can_call(library: kelnn.Library) -> None:
    """fork() while another thread is the one caller leaves the child a lock that is free."""
    is_over = threading.Event()
    with kelnn.FaceFeatures(library) as features:

        def run() -> None:
            while not is_over.is_set():
                features.of(grey)

        thread = threading.Thread(target=run)
        thread.start()
        try:
            for _ in range(10):
                child = os.fork()
                if child == 0:
                    os._exit(0 if kelnn.nms(np.zeros(1, kelnn.BOX), 0.5).size == 1 else 1)
                assert os.waitpid(child, 0)[1] == 0
        finally:
            is_over.set()
            thread.join()


def test_models_are_found_where_the_command_line_finds_them(models: str, tmp_path: Path,
                                                            monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delenv("KELNN_MODELS", raising=False)
    monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path))
    own = tmp_path / "kelnn" / "models"
    own.mkdir(parents=True)
    assert os.path.samefile(kelnn.find_models(), models)  # the build's; one's own directory is empty
    (own / "some.bin").touch()
    assert kelnn.find_models() == str(own)
    monkeypatch.setenv("KELNN_MODELS", "elsewhere")
    assert kelnn.find_models() == "elsewhere"


def test_doctor(models: str, tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    assert command_line.main(["doctor", "--root", models]) == 0
    assert "12 ok, 0 failed" in capsys.readouterr().out
    done = subprocess.run([sys.executable, "-m", "kelnn", "doctor", "--root", str(tmp_path)], capture_output=True,
                          text=True)
    assert done.returncode == 1 and "0 ok, 12 failed" in done.stdout
    assert "FAILS    face-features: the model does not load: Decode model fail." in done.stdout and done.stderr == ""
