# SPDX-License-Identifier: Apache-2.0
"""Pictures, read, or said to be none."""
import cv2

from models.labels import table


def read_picture(path, flags=cv2.IMREAD_COLOR):
    picture = cv2.imread(str(path), flags)
    if picture is None:
        raise table.Invalid(f"{path} is no picture")
    return picture
