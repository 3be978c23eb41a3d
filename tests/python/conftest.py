# SPDX-License-Identifier: Apache-2.0
"""Pictures and sounds to look at, and the sample networks: KEL_NN_TEST_MODELS is their directory."""
import os
from pathlib import Path
from typing import Iterator

import numpy as np
import pytest
from numpy.typing import NDArray
from PIL import Image  # type: ignore[import]

import kelnn

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"


def read(path: Path, mode: str) -> NDArray[np.uint8]:
    """A picture: (height, width, 3) for the mode "RGB", (height, width) for "L"."""
    return np.array(Image.open(path).convert(mode))


@pytest.fixture(scope="session")
def models() -> str:
    return os.environ["KEL_NN_TEST_MODELS"] + "/"


@pytest.fixture
def library(models: str) -> Iterator[kelnn.Library]:
    with kelnn.Library(models) as made:
        yield made


@pytest.fixture(scope="session")
def faces() -> NDArray[np.uint8]:
    """Two faces, grey, (112, 112) each: uint8 (2, 112, 112)."""
    return np.stack([read(EXAMPLES / "pictures" / name, "L") for name in ("face_a.pgm", "face_b.pgm")])


def scene(name: str) -> NDArray[np.uint8]:
    """One of the examples' scenes in colour: uint8 (height, width, 3)."""
    return read(EXAMPLES / "pictures" / "scenes" / (name + ".jpg"), "RGB")


@pytest.fixture(scope="session")
def sound() -> NDArray[np.int16]:
    """Four seconds, mono, 16 kHz: a voice's harmonics that swell and fade: int16 (64000,)."""
    time = np.arange(64000) / 16000
    voice = sum(np.sin(2 * np.pi * 440 * k * time) / k for k in range(1, 8))
    samples: NDArray[np.int16] = (9000 * voice * np.abs(np.sin(3 * time))).astype(np.int16)
    return samples
