# SPDX-License-Identifier: Apache-2.0
"""Vectors, boxes, decoders, images and steps of the audio front end: what C programs get, bit for bit."""
import ctypes as c
from typing import Any, Tuple

import numpy as np
import pytest
from c_library import C, CenterNetParam, YoloParam, pointer
from numpy.typing import NDArray

import kelnn

noise = np.random.default_rng(7)


def make_boxes(count: int) -> Any:
    made = np.zeros(count, kelnn.BOX)
    for name in ("cx", "cy", "w", "h", "score"):
        made[name] = noise.uniform(1, 50, count)
    made["class_id"] = np.arange(count) % 4
    return made


@pytest.mark.parametrize("name", ["l1norm", "l2norm", "softmax"])
def test_vectors_in_place(name: str) -> None:
    ours = noise.normal(size=1000).astype(np.float32)
    theirs = ours.copy()
    result = getattr(kelnn, name)(ours)
    expected = getattr(C, "kel_nn_" + name)(pointer(theirs), 1000)
    assert np.array_equal(ours, theirs) and (name == "softmax" or result == expected)


def test_vectors() -> None:
    a, b = noise.normal(size=(2, 777)).astype(np.float32)
    assert kelnn.inner(a, b) == C.kel_nn_inner(pointer(a), pointer(b), 777)
    assert kelnn.sigmoid(0.3) == C.kel_nn_sigmoid(c.c_float(0.3))


def test_boxes() -> None:
    some, others = make_boxes(5), make_boxes(3)
    expected = [[C.nn_calcu_iou(pointer(some[i:]), pointer(others[j:])) for j in range(3)] for i in range(5)]
    assert kelnn.iou(some, others).tolist() == expected and np.any(expected)
    for is_weighted in False, True:
        many = make_boxes(300)
        given = many.copy()
        ours = kelnn.nms(many, 0.3, is_weighted)
        assert np.array_equal(many, given)  # those of the caller stay as they are
        count = C.kel_nn_nms(pointer(given), 300, c.c_float(0.3), int(is_weighted))
        assert 1 < count < 300 and ours.tobytes() == given[:count].tobytes()
    assert len(kelnn.nms(make_boxes(0), 0.5)) == 0


def test_decoders(caplog: pytest.LogCaptureFixture) -> None:
    anchors = np.array([[10, 20], [30, 15], [60, 60]], np.int32)
    raw = noise.normal(size=(13, 20, 3 * 9)).astype(np.float32)
    sizes = {"image_size": (640, 360), "input_size": (160, 104)}
    yolo = YoloParam(640, 360, 160, 104, 4, 3, anchors.ctypes.data, 0.5)
    bins = noise.normal(size=(13, 20, 4 + 4 * 8)).astype(np.float32)
    centernet = CenterNetParam(640, 360, 160, 104, 7, 4, 0.7)
    for limit in 5000, 20, 0:
        caplog.clear()
        ours = (kelnn.yolov3(raw, 8, **sizes, anchors=anchors, classes=4, score_threshold=0.5, limit=limit),
                kelnn.centernet(bins, 8, **sizes, reg_max=7, classes=4, score_threshold=0.7, limit=limit))
        assert [record.levelname for record in caplog.records] == ([] if limit == 5000 else ["WARNING"] * 2)
        for found, decoder, values, param in ((ours[0], C.kel_nn_yolov3_postprocess, raw, yolo),
                                              (ours[1], C.kel_nn_centernet_postprocess, bins, centernet)):
            expected = np.zeros(5000, kelnn.BOX)
            count = decoder(pointer(values), 8, c.byref(param), pointer(expected), limit)
            assert found.tobytes() == expected[:count].tobytes() and (limit == 0 or count > 19)


@pytest.mark.parametrize("channels", [1, 2, 3, 4])
def test_resizing(channels: int) -> None:
    whole = noise.integers(0, 256, (50, 70, channels), np.uint8)
    part, up = whole[5:45, 10:60], whole[::-1]
    for image, size in ((whole, (33, 91)), (part, (100, 7)), (up, (1, 1)), (whole, (70, 50))):
        expected = np.zeros((size[1], size[0], channels), np.uint8)
        getattr(C, f"resize_bilinear_c{channels}")(pointer(image), image.shape[1], image.shape[0], image.strides[0],
                                                   pointer(expected), *size, size[0] * channels)
        assert np.array_equal(kelnn.resize(image, size), expected)
        if channels == 1:
            assert np.array_equal(kelnn.resize(image[:, :, 0], size), expected[:, :, 0])


def test_resizing_nv12() -> None:
    for (height, width), (to_height, to_width) in (((40, 60), (20, 30)), ((41, 61), (33, 35)), ((3, 2), (9, 9))):
        image = noise.integers(0, 256, (height + height // 2, width), np.uint8)
        expected = np.zeros((to_height + to_height // 2, to_width), np.uint8)
        C.resize_bilinear_yuv420sp(pointer(image), width, height, pointer(expected), to_width, to_height)
        assert np.array_equal(kelnn.resize_nv12(image, (to_width, to_height)), expected)


def test_audio_steps() -> None:
    values = noise.normal(size=512).astype(np.float32)

    def counted(name: str, *arguments: Any) -> NDArray[np.float32]:
        vector = np.concatenate([[np.float32(512)], values])
        getattr(C, name)(pointer(vector), *arguments)
        return vector[1:]

    assert np.array_equal(kelnn.fft(values.view(np.complex64)).view(np.float32), counted("kel_nn_fft", 0))
    assert np.array_equal(kelnn.fft(values.view(np.complex64), True).view(np.float32), counted("kel_nn_fft", 1))
    assert np.array_equal(kelnn.real_fft(values).view(np.float32), counted("kel_nn_real_fft"))
    assert np.array_equal(kelnn.zero_mean(values), counted("kel_nn_zeromean_frame"))
    assert np.array_equal(kelnn.pre_emphasise(values, 0.9), counted("kel_nn_pre_emphasise", c.c_float(0.9)))
    assert kelnn.mel(17, 0.04) == C.kel_nn_mel_filter(17, c.c_float(0.04))
    warp = (100.0, 7000.0, 50.0, 0.0, 8000.0, 1.1)
    assert kelnn.warp_frequency(*warp) == C.kel_nn_warp_freq(*map(c.c_float, warp))


def test_sound_features(sound: NDArray[np.int16]) -> None:
    window = sound[:48000]
    with kelnn.SoundFeatures() as features:
        ours = features.of(window)
        assert features.of(window // 5000) is None
        assert features.channel_at(features.centre_hz(10)) == pytest.approx(10)
    context = c.c_void_p()
    assert C.kel_nn_mfcc_create(c.byref(context), 16000, c.c_float(0)) == 0
    assert C.kel_nn_mfcc_process(context, pointer(window)) == 0
    expected = (c.c_uint8 * (297 * 64)).from_address(c.c_void_p.from_address(context.value or 0).value or 0)
    assert ours is not None and ours.shape == (297, 64) and ours.tobytes() == bytes(expected)
    C.kel_nn_mfcc_destory(c.byref(context))
    assert kelnn.loudness(window) == np.abs(window[::10].astype(np.float32)).cumsum()[-1] > kelnn.LOWEST_GATE


def test_where_things_are_put() -> None:
    def rects(frame: Tuple[int, int], image: Tuple[int, int]) -> Tuple[Tuple[int, ...], ...]:
        return tuple(tuple(rect) for rect in kelnn.letterbox_rects(frame, image))

    assert rects((640, 360), (416, 256)) == ((0, 0, 640, 360), (0, 11, 416, 234))
    assert kelnn.detector_input((1080, 1920)) == (256, 416)
    assert kelnn.centre_square((10, 20, 30, 40)) == kelnn.Rect(10, 25, 30, 30) == kelnn.Rect((10, 25, 30, 30))
    assert len({kelnn.Rect(1, 2, 3, 4), kelnn.Rect(1, 2, 3, 4)}) == 1
