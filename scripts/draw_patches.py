"""Draws a frame with two red patches, for the demonstration: draw_patches.py OUT.ppm"""
import sys

import numpy

frame = numpy.full((360, 640, 3), 70, numpy.uint8)
frame[:, :, 1] += (numpy.arange(360)[:, None] // 4).astype(numpy.uint8)
for x, y in [(196, 111), (448, 160)]:
    frame[y:y + 98, x:x + 49] = (255, 0, 0)
with open(sys.argv[1], "wb") as file:
    file.write(b"P6 640 360 255\n" + frame.tobytes())
