# SPDX-License-Identifier: Apache-2.0
"""What a call from Python costs beyond the same call from C:

    PYTHONPATH=BUILD/python python3 bench/bench_python.py --library BUILD/libkelnn.so --models DIRECTORY

Differences of the shortest times, in microseconds. C is timed through ctypes, less what ctypes takes for a call with as
many arguments that does nothing. Exit status 1 where a call costs more than --limit.
"""
import argparse
import ctypes as c
import sys
import timeit
from typing import Any, Callable, List, Tuple

import numpy as np

import kelnn


def shortest(call: Callable[[], Any], number: int) -> float:
    """Microseconds of one call, the shortest mean of many short runs."""
    return min(timeit.repeat(call, number=number, repeat=400)) / number * 1e6


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", required=True, help="libkelnn.so")
    parser.add_argument("--models", required=True, help="directory of the packed sample networks")
    parser.add_argument("--limit", type=float, default=5, help="microseconds (default: 5)")
    options = parser.parse_args()
    C = c.CDLL(options.library)
    C.kel_nn_handle_create.restype = c.c_void_p
    handle = c.c_void_p(C.kel_nn_handle_create())
    C.kel_nn_set_model_root_dir((options.models + "/").encode())

    noise = np.random.default_rng(1)
    frame, face = noise.integers(0, 256, (32, 32), np.uint8), noise.integers(0, 256, (112, 112), np.uint8)
    vector, boxes = np.ones(256, np.float32), np.zeros(4, kelnn.BOX)
    moved, found = c.c_int32(), c.create_string_buffer(16)
    at = {id(array): c.c_void_p(array.ctypes.data) for array in (frame, face, vector, boxes)}
    library = kelnn.Library(options.models)
    with kelnn.MotionFilter(library) as motion, kelnn.FaceFeatures(library) as features:
        motion.take(frame)
        ours: List[Tuple[str, Callable[[], Any], int]] = [
            ("l2norm of 256", lambda: kelnn.l2norm(vector), 500),
            ("nms of 4", lambda: kelnn.nms(boxes, 0.5), 500),
            ("motion, 32 x 32", lambda: motion.take(frame), 500),
            ("face features", lambda: features.of(face), 5),
        ]
        times = [shortest(call, number) for _, call, number in ours]
    C.kel_nn_pir_filter_init(handle, 32, 32)
    C.kel_nn_facercg_init(handle)
    ratio, half = c.c_float(1), c.c_float(0.5)
    pixels, image, values, list_ = at[id(frame)], at[id(face)], at[id(vector)], at[id(boxes)]
    pointer, result = c.byref(moved), c.byref(found)
    theirs: List[Callable[[], Any]] = [
        lambda: C.kel_nn_l2norm(values, 256),
        lambda: C.kel_nn_nms(list_, 4, half, 0),
        lambda: C.kel_nn_pir_filter_process(handle, pixels, 32, 32, ratio, 25, pointer),
        lambda: C.kel_nn_face_feature_extract(handle, image, result),
    ]
    nothing: List[Callable[[], Any]] = [
        lambda: C.kel_nn_l2norm(None, 256),
        lambda: C.kel_nn_nms(None, 4, half, 0),
        lambda: C.kel_nn_nms(None, 4, half, 0, ratio, 25, pointer),
        lambda: C.kel_nn_nms(None, 4, half),
    ]
    most = 0.0
    print(f"{'call':18}{'Python':>9}{'C':>9}{'more':>8}   microseconds")
    for (name, _, number), time, call, empty in zip(ours, times, theirs, nothing):
        alone = shortest(call, number) - shortest(empty, 500)
        most = max(most, time - alone)
        print(f"{name:18}{time:9.2f}{alone:9.2f}{time - alone:8.2f}")
    C.kel_nn_pir_filter_deinit(handle)
    C.kel_nn_facercg_deinit(handle)
    return 0 if most <= options.limit else 1


if __name__ == "__main__":
    sys.exit(main())
