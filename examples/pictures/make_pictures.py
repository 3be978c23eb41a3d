"""Draws the sample pictures: make_pictures.py [DIRECTORY]   (default: beside this script)

    face_a.png, face_b.png    two faces, 224 x 224
    face_a_distorted.png      face_a, brighter, flatter, blurred, shifted and noisy
    both_faces.png            a scene with face a at 10,30,144,144 and face b at 180,50,120,120
    *.pgm                     the single faces at 112 x 112 grey, for examples/compare_faces.c

Plain arithmetic and a fixed seed: the same pixels on every machine.
"""
import os
import struct
import sys
import zlib

import numpy

FACES = {
    "a": dict(skin=(224, 182, 150), hair=(60, 42, 30), eye=(52, 84, 122), background=(150, 176, 190),
              width=0.29, height=0.38, eye_gap=0.125, eye_y=0.45, brow=0.012, nose=0.055, mouth=0.105, smile=0.035,
              hair_line=0.30, beard=0.0),
    "b": dict(skin=(176, 128, 96), hair=(28, 26, 30), eye=(58, 40, 24), background=(206, 190, 160),
              width=0.25, height=0.40, eye_gap=0.105, eye_y=0.42, brow=0.022, nose=0.075, mouth=0.075, smile=-0.02,
              hair_line=0.20, beard=1.0),
}


def draw_face(look, size):
    """A face as size x size x 3 values from 0 to 255, drawn at four times the size."""
    n = size * 4
    y, x = (numpy.mgrid[0:n, 0:n] + 0.5) / n
    picture = numpy.empty((n, n, 3))
    picture[:] = look["background"]

    def paint(mask, colour):
        picture[mask] = colour

    def ellipse(cx, cy, rx, ry):
        return ((x - cx) / rx) ** 2 + ((y - cy) / ry) ** 2 < 1

    def shade(colour, factor):
        return tuple(factor * c for c in colour)

    skin, hair = look["skin"], look["hair"]
    w, h = look["width"], look["height"]
    paint(ellipse(0.5, 0.48, w * 1.18, h * 1.12), hair)
    paint((abs(x - 0.5) < w * 0.45) & (y > 0.7), shade(skin, 0.85))  # neck
    paint((y > 0.93) | ellipse(0.5, 1.0, 0.45, 0.11), shade(look["eye"], 0.8))  # shirt
    face = ellipse(0.5, 0.53, w, h)
    paint(face, skin)
    paint(face & (x > 0.5 + w * 0.55), shade(skin, 0.88))  # a cheek in the shadow
    if look["beard"]:
        paint(face & (y > 0.68) & ~ellipse(0.5, 0.66, w * 0.7, 0.11), hair)
    paint(ellipse(0.5, 0.53, w, h) & (y < look["hair_line"] + 0.6 * (x - 0.5) ** 2 / w), hair)
    for side in (-1, 1):
        cx, cy = 0.5 + side * look["eye_gap"], look["eye_y"]
        paint(ellipse(cx, cy, 0.055, 0.030), (245, 243, 238))
        paint(ellipse(cx, cy, 0.026, 0.028), look["eye"])
        paint(ellipse(cx, cy, 0.012, 0.013), (12, 12, 14))
        paint((abs(x - cx) < 0.065) & (abs(y - cy + 0.062 - 2.5 * (x - cx) ** 2) < look["brow"]), hair)
    nose = look["nose"]
    paint((abs(x - 0.5 - 0.012) < 0.014 + 0.25 * (y - 0.45)) & (abs(y - 0.54) < nose), shade(skin, 0.92))
    for side in (-1, 1):
        paint(ellipse(0.5 + side * 0.022, 0.54 + nose, 0.014, 0.009), shade(skin, 0.55))
    bend = look["smile"] * (1 - ((x - 0.5) / look["mouth"]) ** 2)
    paint((abs(x - 0.5) < look["mouth"]) & (abs(y - 0.70 - bend) < 0.016), (168, 70, 72))
    return shrink(picture, 4)


def shrink(picture, factor):
    height, width = picture.shape[0] // factor, picture.shape[1] // factor
    return picture.reshape(height, factor, width, factor, -1).mean(axis=(1, 3))


def blur(picture):
    for axis in (0, 1):
        picture = (numpy.roll(picture, 1, axis) + 2 * picture + numpy.roll(picture, -1, axis)) / 4
    return picture


def distort(picture):
    """Brighter, flatter, blurred, moved by five pixels to the right and four up, with noise."""
    noise = numpy.random.RandomState(5).randint(-1, 2, picture.shape[:2])
    moved = numpy.roll(blur(blur(picture)), (-4, 5), axis=(0, 1))
    return 0.7 * moved + 70 + 8 * noise[:, :, None]


def to_bytes(picture):
    return numpy.clip(numpy.floor(picture + 0.5), 0, 255).astype(numpy.uint8)


def to_grey(picture):
    return (picture * (0.299, 0.587, 0.114)).sum(axis=2)


def png(pixels):
    height, width = pixels.shape[:2]
    colour_type = 2 if pixels.ndim == 3 else 0
    rows = pixels.reshape(height, -1).astype(numpy.int16)
    step = 3 if pixels.ndim == 3 else 1
    # Filter 4 would be smaller, filter 2 (what is above) is one subtraction.
    above = numpy.vstack([numpy.zeros_like(rows[:1]), rows[:-1]])
    filtered = numpy.hstack([numpy.full((height, 1), 2), rows - above]).astype(numpy.uint8)

    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(filtered.tobytes(), 9)) + chunk(b"IEND", b""))


def pgm(pixels):
    return b"P5\n%d %d\n255\n" % pixels.shape[::-1] + pixels.tobytes()


def make_pictures():
    """All files, as name and bytes."""
    faces = {name: draw_face(look, 224) for name, look in FACES.items()}
    distorted = distort(faces["a"])
    scene = numpy.empty((200, 320, 3))
    scene[:] = (120, 140, 120)
    scene[30:174, 10:154] = draw_face(FACES["a"], 144)
    scene[50:170, 180:300] = draw_face(FACES["b"], 120)
    files = {
        "face_a.png": png(to_bytes(faces["a"])),
        "face_a_distorted.png": png(to_bytes(to_grey(distorted))),
        "face_b.png": png(to_bytes(faces["b"])),
        "both_faces.png": png(to_bytes(scene)),
    }
    for name, picture in [("face_a", faces["a"]), ("face_a_distorted", distorted), ("face_b", faces["b"])]:
        files[name + ".pgm"] = pgm(to_bytes(shrink(to_grey(picture)[:, :, None], 2)[:, :, 0]))
    return files


if __name__ == "__main__":
    directory = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    for name, data in make_pictures().items():
        with open(os.path.join(directory, name), "wb") as file:
            file.write(data)
