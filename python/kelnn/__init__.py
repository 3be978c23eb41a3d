# SPDX-License-Identifier: Apache-2.0
"""libkelnn for Python: neural-network tasks for small cameras, on numpy arrays.

    import kelnn

    library = kelnn.Library(kelnn.find_models())
    with kelnn.PersonDetector(library, frame_size=(1920, 1080)) as persons:
        for frame in frames:                       # uint8, (1080, 1920, 3), red, green, blue
            for person in persons.detect(frame):
                draw(person.box, person.score)     # pixels of the frame

What holds everywhere

arrays   Those that are given are looked at where they lie: uint8 (int16 for sound, float32 for values) in C order.
         Rows of frames may be padded, as those of a part of a picture are. Anything else is a TypeError that says what
         is wanted. Those that come back own their memory and outlive everything.
sizes    Are (width, height), in pixels; shapes of arrays are (height, width, channels).
errors   Everything that fails raises an Error, in the library's words.
one      There is one of each task in the process; a second one is refused as long as the first is open. close() it, or
         use it in a `with` statement. SoundFeatures and Graph may be any number.
threads  Any thread may call anything. Calls release the interpreter's lock and take one of their own, since the library
         has one caller at a time: calls of two threads wait for each other, other Python code runs on. The kit and the
         functions on vectors, boxes and images wait for nobody (decoders and nms() do).
logging  What the library prints goes to the logger `kelnn.messages`: its errors, warnings, and the rest as information.
"""
from . import _errors, _kelnn
from ._errors import Error, FrameError, InUseError, ModelError, OutOfMemoryError, RunError
from ._kelnn import (
    BOX, LOWEST_GATE, SAMPLE_RATE, WINDOW_SAMPLES, CryDetector, Detection, FaceClass, FaceClassifier, FaceDetector,
    FaceFeatures, FaceLandmarks, Format, Frame, Graph, Landmarks, Library, MotionFilter, ObjectDetector,
    PersonClassifier, PersonDetector, Rect, SoundFeatures, __version__, align, centernet, centre_square, crop, detector_input,
    fft, inner, iou, l1norm, l2norm, letterbox, letterbox_rects, loudness, mel, nms, pre_emphasise, real_fft, rects,
    resize, resize_nv12, scale, sigmoid, similarity, softmax, warp_frequency, yolov3, zero_mean)
from ._messages import messages
from ._models import find_models

__all__ = [
    "BOX", "LOWEST_GATE", "SAMPLE_RATE", "WINDOW_SAMPLES", "CryDetector", "Detection", "Error", "FaceClass",
    "FaceClassifier", "FaceDetector", "FaceFeatures", "FaceLandmarks", "Format", "Frame", "FrameError", "Graph",
    "InUseError", "Landmarks", "Library", "ModelError", "MotionFilter", "ObjectDetector", "OutOfMemoryError",
    "PersonClassifier", "PersonDetector", "Rect", "RunError", "SoundFeatures", "__version__", "align", "centernet",
    "centre_square", "crop", "detector_input", "fft", "find_models", "inner", "iou", "l1norm", "l2norm", "letterbox",
    "letterbox_rects", "loudness", "mel", "messages", "nms", "pre_emphasise", "real_fft", "rects", "resize",
    "resize_nv12", "scale", "sigmoid", "similarity", "softmax", "warp_frequency", "yolov3", "zero_mean"]

# They are kelnn's, wherever they are written.
for _name in __all__:
    _value = globals()[_name]
    if getattr(_value, "__module__", None) in (_kelnn.__name__, _errors.__name__):
        try:
            _value.__module__ = __name__
        except AttributeError:  # of a function in C
            pass
del _name, _value
