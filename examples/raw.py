# SPDX-License-Identifier: Apache-2.0
"""Raw pixels and samples, as the programs in C read them: raw.py FILE >RAW

A picture becomes a binary PPM, a film of motion JPEG its frames as NV12 as video is stored, a sound its 16-bit samples.
Films and sounds of any other kind: `ffmpeg -i FILE -pix_fmt nv12 -f rawvideo RAW`, `ffmpeg -i FILE -ac 1 -ar 16000 -f s16le RAW`.
"""
import argparse
import io
import struct
import sys
from pathlib import Path
from typing import Iterator

import numpy as np


def jpegs(film: bytes) -> Iterator[bytes]:
    """The frames in an AVI's chunks named 00dc."""
    at = film.index(b"movi") + 4
    while film[at:at + 4] == b"00dc":
        size = struct.unpack_from("<I", film, at + 4)[0]
        yield film[at + 8:at + 8 + size]
        at += 8 + size + size % 2


def nv12(jpeg: bytes) -> bytes:
    """Luma 16 to 235, then U and V of each 2 x 2 pixels, 16 to 240."""
    from PIL import Image

    y, u, v = Image.open(io.BytesIO(jpeg)).convert("YCbCr").split()
    half = (y.width // 2, y.height // 2)
    chroma = np.dstack([np.asarray(plane.resize(half, Image.BOX)) for plane in (u, v)])
    planes = [(np.asarray(y), 16.0, 219.0), (chroma, 16.0, 224.0)]
    return b"".join((low + plane * (span / 255.0) + 0.5).astype(np.uint8).tobytes() for plane, low, span in planes)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("file", type=Path)
    path, out = parser.parse_args().file, sys.stdout.buffer
    if path.suffix == ".avi":
        for jpeg in jpegs(path.read_bytes()):
            out.write(nv12(jpeg))
    elif path.suffix in (".flac", ".wav"):
        import soundfile

        samples, rate = soundfile.read(path, dtype="int16", always_2d=True)
        if rate != 16000 or samples.shape[1] != 1:
            sys.exit(f"{path}: {samples.shape[1]} channels at {rate} Hz; expected one at 16000 Hz")
        out.write(samples.astype("<i2").tobytes())
    else:
        from PIL import Image

        Image.open(path).convert("RGB").save(out, "PPM")


if __name__ == "__main__":
    main()
