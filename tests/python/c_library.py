# SPDX-License-Identifier: Apache-2.0
"""libkelnn.so as C programs call it, by ctypes: what the module's results are compared with."""
import ctypes as c
import os
from typing import Any, List, Tuple

import numpy as np

import kelnn

C = c.CDLL(os.environ["KEL_NN_TEST_LIBRARY"])
Size = c.c_int32 * 2


class Box(c.Structure):
    _fields_ = [(name, c.c_float) for name in ("cx", "cy", "w", "h", "score")] + [("class_id", c.c_int32)]


class FaceResult(c.Structure):
    _fields_ = [("boxes", c.POINTER(Box)), ("reserved", c.c_uint32), ("count", c.c_int32)]


class Result(c.Structure):
    _fields_ = [("boxes", c.POINTER(Box)), ("count", c.c_int32)]


class Feature(c.Structure):
    _fields_ = [("data", c.POINTER(c.c_float)), ("len", c.c_uint32)]


class YoloParam(c.Structure):
    _fields_ = [(name, c.c_int32) for name in ("img_w", "img_h", "input_w", "input_h", "class_num", "anchor_num")] + [
        ("anchors", c.c_void_p), ("score_threshold", c.c_float)]


class CenterNetParam(c.Structure):
    _fields_ = [(name, c.c_int32) for name in ("img_w", "img_h", "input_w", "input_h", "reg_max", "class_num")] + [
        ("score_threshold", c.c_float)]


for _name in ("kel_nn_sigmoid", "kel_nn_l1norm", "kel_nn_l2norm", "kel_nn_inner", "nn_calcu_iou", "kel_nn_mel_filter",
              "kel_nn_warp_freq", "kel_nn_face_feature_similarity_calcul"):
    getattr(C, _name).restype = c.c_float
C.kel_nn_handle_create.restype = c.c_void_p


def pointer(array: "np.ndarray[Any, Any]") -> c.c_void_p:
    return c.c_void_p(array.ctypes.data)


def boxes(result: Any) -> "np.ndarray[Any, Any]":
    """A copy of what the task found."""
    found = np.zeros(result.count, kelnn.BOX)
    c.memmove(found.ctypes.data, result.boxes, found.nbytes)
    return found


class Handle:
    """The library's handle, with one task started; in a `with` statement."""

    def __init__(self, directory: str, task: str, *arguments: Any) -> None:
        C.kel_nn_set_model_root_dir(directory.encode())
        self.task = task
        self.handle = c.c_void_p(C.kel_nn_handle_create())
        assert self("init", *arguments) == 0, task

    def __call__(self, call: str, *arguments: Any) -> int:
        name = call if call.startswith("kel_nn_") else f"kel_nn_{self.task}_{call}"
        return int(getattr(C, name)(self.handle, *arguments))

    def __enter__(self) -> "Handle":
        return self

    def __exit__(self, *_: object) -> None:
        self("deinit")
        C.kel_nn_handle_destroy(self.handle)


def detected(found: List[kelnn.Detection]) -> List[Tuple[Tuple[int, ...], float, int]]:
    """Detections as plain values."""
    return [(tuple(one.box), one.score, one.class_id) for one in found]


def as_detections(found: "np.ndarray[Any, Any]") -> List[Tuple[Tuple[int, ...], float, int]]:
    """C's boxes as the module gives them: as rectangles, without empty ones."""
    return [(tuple(rect), float(box["score"]), int(box["class_id"]))
            for rect, box in zip(kelnn.rects(found), found) if rect.w > 0 and rect.h > 0]
