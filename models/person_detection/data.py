# SPDX-License-Identifier: Apache-2.0
"""Makes labelled pictures of persons (class 0): data.py DIR [--seed N] [--count N] [--training]"""
import os
import sys

from models.scenes import frames as grid_data
from models.scenes import compose as scenes

if __name__ == "__main__":
    grid_data.main(scenes.person_things, "Frames with 0 to 5 drawn persons each.")
