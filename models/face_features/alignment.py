# SPDX-License-Identifier: Apache-2.0
"""The equal error rate of a directory of models on whole pictures of drawn, held-out persons: of crops as they were drawn, of
the boxes that face detection finds there, and of faces aligned by the landmarks in those boxes. Needs the Python module kelnn."""
import argparse
import sys

import kelnn
import numpy as np

from models.labels.making import HELD_OUT
from models.scenes import face_crops

SIDE = face_crops.SIZE


def features(models, seed, count, views):
    """[name of the way][face], the person of each face, and how many pictures no face was found in."""
    library = kelnn.Library(models)
    detector, landmarks, features_of = kelnn.FaceDetector(library), kelnn.FaceLandmarks(library), kelnn.FaceFeatures(library)
    found: dict = {"as drawn": [], "box": [], "aligned": []}
    persons, without = [], 0
    for person, crop in face_crops.crops(seed, count, views, HELD_OUT, face_crops.OPEN_COVERS):
        picture = np.ascontiguousarray(crop.whole[..., ::-1])
        faces = detector.detect(picture)
        if not faces:
            without += 1
            continue
        box = faces[0].box
        corners = np.clip([[box.x, box.y], [box.x + box.w, box.y + box.h]], 0, picture.shape[1::-1])
        points = corners[0] + np.reshape(landmarks.of(picture, tuple(box)).points, (5, 2)) * (corners[1] - corners[0])
        aligned = kelnn.align(picture, points.astype(np.float32), (SIDE, SIDE), kelnn.Format.GREY)
        for name, feature in (("as drawn", features_of.of(np.ascontiguousarray(crop.pixels))),
                              ("box", features_of.of(picture, tuple(box))),
                              ("aligned", features_of.of(np.reshape(aligned, (SIDE, SIDE))))):
            found[name].append(feature.copy())
        persons.append(person)
    return found, np.array(persons), without


def equal_error_rate(same, different):
    same, different = np.sort(same), np.sort(different)
    thresholds = np.unique(np.concatenate([same, different]))
    rejected = np.searchsorted(same, thresholds, "right") / len(same)
    accepted = 1 - np.searchsorted(different, thresholds, "right") / len(different)
    n = abs(rejected - accepted).argmin()
    return (rejected[n] + accepted[n]) / 2


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("models", metavar="MODELS", help="directory of packed models")
    parser.add_argument("--seed", type=int, default=103)
    parser.add_argument("--count", type=int, default=60, help="persons, of each of whom there are five pictures (default: 60)")
    options = parser.parse_args()
    found, persons, without = features(options.models, options.seed, options.count, 5)
    if len(persons) < 2:
        sys.exit("no faces were found")
    first, second = np.triu_indices(len(persons), 1)
    same = persons[first] == persons[second]
    print(f"{len(persons)} faces, {without} pictures without one; {same.sum()} same pairs, {(~same).sum()} different ones")
    for name, all_features in found.items():
        values = np.array(all_features)
        alike = (values[first] * values[second]).sum(1)
        print(f"{name:9} equal error rate {equal_error_rate(alike[same], alike[~same]):.4f}")


if __name__ == "__main__":
    main()
