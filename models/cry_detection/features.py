# SPDX-License-Identifier: Apache-2.0
"""What the cry detector's network sees, computed by libkelnn itself.

The library is the file that KELNN_LIBRARY names, or the newest libkelnn.so in build/.
"""
import ctypes
import glob
import os
import sys

import numpy

ROWS, CHANNELS = 297, 64
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


class _Context(ctypes.Structure):
    """The first fields of kel_nn_mfcc_t."""
    _fields_ = [("feature_u8", ctypes.POINTER(ctypes.c_uint8)), ("has_voice", ctypes.c_int32)]


def _load():
    found = [os.environ["KELNN_LIBRARY"]] if "KELNN_LIBRARY" in os.environ else sorted(
        glob.glob(os.path.join(ROOT, "build", "**", "libkelnn.so"), recursive=True), key=os.path.getmtime)
    if not found:
        sys.exit("libkelnn.so is not there: build the library, or set KELNN_LIBRARY")
    library = ctypes.CDLL(found[-1])
    context = ctypes.POINTER(_Context)
    library.kel_nn_mfcc_create.argtypes = [ctypes.POINTER(context), ctypes.c_uint32, ctypes.c_float]
    library.kel_nn_mfcc_process.argtypes = [context, ctypes.c_void_p]
    return library


class FilterBank:
    def __init__(self):
        self.library = _load()
        self.context = ctypes.POINTER(_Context)()
        if self.library.kel_nn_mfcc_create(ctypes.byref(self.context), 16000, 0) != 0:
            sys.exit("kel_nn_mfcc_create() failed")

    def features(self, pcm):
        """48000 samples (int16) to 297 x 64 bytes; None below the loudness gate."""
        pcm = numpy.ascontiguousarray(pcm, numpy.int16)
        assert len(pcm) == 48000
        if self.library.kel_nn_mfcc_process(self.context, pcm.ctypes.data) != 0:
            sys.exit("kel_nn_mfcc_process() failed")
        if not self.context.contents.has_voice:
            return None
        return numpy.ctypeslib.as_array(self.context.contents.feature_u8, (ROWS, CHANNELS)).copy()
