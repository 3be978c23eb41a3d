# SPDX-License-Identifier: Apache-2.0
"""What a call from Python costs beyond the same call from C:

    PYTHONPATH=BUILD/python python3 bench/bench_python.py --library BUILD/libkelnn.so

Differences of the shortest times, in microseconds. C is timed through ctypes, less what ctypes takes for a call with as
many arguments that does nothing. Exit status 1 where a call costs more than --limit.
"""
import argparse
import ctypes as c
import sys
import timeit
from typing import Any, Callable, List, Tuple

import numpy as np
from numpy.typing import NDArray

import kelnn


def shortest(call: Callable[[], Any], number: int) -> float:
    """Microseconds of one call, the shortest mean of many short runs."""
    return min(timeit.repeat(call, number=number, repeat=150)) / number * 1e6


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", required=True, help="libkelnn.so")
    parser.add_argument("--limit", type=float, default=5, help="microseconds (default: 5)")
    options = parser.parse_args()
    C = c.CDLL(options.library)
    C.kel_nn_handle_create.restype = c.c_void_p
    handle = c.c_void_p(C.kel_nn_handle_create())

    noise = np.random.default_rng(1)
    frame, quiet = noise.integers(0, 256, (32, 32), np.uint8), np.zeros(48000, np.int16)
    vector, boxes = np.ones(256, np.float32), np.zeros(4, kelnn.BOX)
    arrays: List[NDArray[Any]] = [frame, quiet, vector, boxes]
    pixels, window, values, list_ = (c.c_void_p(array.ctypes.data) for array in arrays)
    moved, context, ratio, half = c.c_int32(), c.c_void_p(), c.c_float(1), c.c_float(0.5)
    pointer = c.byref(moved)
    C.kel_nn_mfcc_create(c.byref(context), 16000, c.c_float(0))
    with kelnn.MotionFilter(kelnn.Library()) as motion, kelnn.SoundFeatures() as sound:
        motion.take(frame)  # starts the process's one filter, which C shares
        # What; from Python; from C; what does nothing with as many arguments; calls in a run.
        cases: List[Tuple[str, Callable[[], Any], Callable[[], Any], Callable[[], Any], int]] = [
            ("l2norm of 256", lambda: kelnn.l2norm(vector), lambda: C.kel_nn_l2norm(values, 256),
             lambda: C.kel_nn_l2norm(None, 256), 500),
            ("nms of 4", lambda: kelnn.nms(boxes, 0.5), lambda: C.kel_nn_nms(list_, 4, half, 0),
             lambda: C.kel_nn_nms(None, 4, half, 0), 500),
            ("motion, 32 x 32", lambda: motion.take(frame),
             lambda: C.kel_nn_pir_filter_process(handle, pixels, 32, 32, ratio, 25, pointer),
             lambda: C.kel_nn_nms(None, 4, half, 0, ratio, 25, pointer), 500),
            ("sound, too quiet", lambda: sound.of(quiet), lambda: C.kel_nn_mfcc_process(context, window),
             lambda: C.kel_nn_l2norm(None, 4), 50),
        ]
        most = 0.0
        print(f"{'call':18}{'Python':>9}{'C':>9}{'more':>8}   microseconds")
        for name, ours, theirs, nothing, number in cases:
            times = [[shortest(call, number) for call in (ours, theirs, nothing)] for _ in range(3)]
            python, through_ctypes, empty = (min(column) for column in zip(*times))
            alone = through_ctypes - empty
            most = max(most, python - alone)
            print(f"{name:18}{python:9.2f}{alone:9.2f}{python - alone:8.2f}")
    C.kel_nn_mfcc_destory(c.byref(context))
    return 0 if most <= options.limit else 1


if __name__ == "__main__":
    sys.exit(main())
