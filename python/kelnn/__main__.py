# SPDX-License-Identifier: Apache-2.0
"""python3 -m kelnn doctor: says what is installed, and loads every model of a directory as its task will."""
import argparse
import sys
from functools import partial
from typing import Callable, Dict, List, Optional, Union

import kelnn
from kelnn import _kelnn

Task = Union[kelnn.FaceDetector, kelnn.PersonDetector, kelnn.ObjectDetector, kelnn.FaceFeatures, kelnn.FaceLandmarks,
             kelnn.FaceClassifier, kelnn.PersonClassifier, kelnn.CryDetector]

SHAPES = {"landscape": (640, 360), "square": (320, 320), "portrait": (360, 640)}


def tasks(library: kelnn.Library) -> Dict[str, Callable[[], Task]]:
    """What loads the model of each task."""
    loaders: Dict[str, Callable[[], Task]] = {"face-detection": partial(kelnn.FaceDetector, library)}
    for shape, size in SHAPES.items():
        loaders["person-detection-" + shape] = partial(kelnn.PersonDetector, library, size)
        loaders["four-class-detection-" + shape] = partial(kelnn.ObjectDetector, library, size)
    loaders["face-features"] = partial(kelnn.FaceFeatures, library)
    loaders["face-landmarks"] = partial(kelnn.FaceLandmarks, library)
    loaders["face-classes"] = partial(kelnn.FaceClassifier, library)
    loaders["person-classes"] = partial(kelnn.PersonClassifier, library)
    loaders["cry-detection"] = partial(kelnn.CryDetector, library)
    return loaders


def doctor(root: str) -> bool:
    """Prints what there is; whether all models load."""
    print(f"kelnn {kelnn.__version__}, {_kelnn.__file__}")
    library = kelnn.Library(root)
    print(f"models in {library.directory or 'the working directory'}")
    failed = 0
    for name, load in tasks(library).items():
        try:
            load().close()
            print(f"ok       {name}")
        except kelnn.Error as error:
            failed += 1
            print(f"FAILS    {error}")
    print(f"\n{len(tasks(library)) - failed} ok, {failed} failed")
    if failed:
        print(f"to do: kelnn doctor --root {library.directory or './'} says which files are missing or broken, and how "
              "to make them")
    return failed == 0


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m kelnn", description=__doc__)
    commands = parser.add_subparsers(dest="command", required=True)
    command = commands.add_parser("doctor", help="load every model of a directory; exit status 1 where one fails")
    command.add_argument("--root", default=kelnn.find_models(), help="the directory of models (default: %(default)s)")
    options = parser.parse_args(arguments)
    return 0 if doctor(options.root) else 1


if __name__ == "__main__":
    sys.exit(main())
