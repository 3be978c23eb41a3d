/* SPDX-License-Identifier: Apache-2.0 */
/* Resizes a raw frame: resize_frame FORMAT WIDTH HEIGHT NEW_WIDTH NEW_HEIGHT <FRAME >RESIZED
 *
 * FORMAT is nv12, or the number of interleaved channels, 1 to 4.
 *
 * Build: make build/resize_frame   Run: README.md
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel_nn.h"

/* NV12 has a pair of bytes for each 2 x 2 pixels behind the luma; an odd row or column has none. */
static size_t frame_size(int channels, int width, int height) {
  const size_t pixels = (size_t)width * (size_t)height;
  return channels == 0 ? pixels + (size_t)width * (size_t)(height / 2) : pixels * (size_t)channels;
}

int main(int argc, char** argv) {
  int side[4], channels = 0, ok = argc == 6;
  if (ok && strcmp(argv[1], "nv12") != 0) ok = sscanf(argv[1], "%1d", &channels) == 1;
  for (int i = 0; ok && i < 4; ++i) {
    ok = sscanf(argv[2 + i], "%5d", &side[i]) == 1 && side[i] >= 2 && side[i] <= 16384;
  }
  if (!ok || channels < 0 || channels > 4 || (channels == 0 && strcmp(argv[1], "nv12") != 0)) {
    fprintf(stderr, "usage: %s nv12|1|2|3|4 WIDTH HEIGHT NEW_WIDTH NEW_HEIGHT\n", argv[0]);
    return 2;
  }
  const size_t old_size = frame_size(channels, side[0], side[1]);
  const size_t new_size = frame_size(channels, side[2], side[3]);
  uint8_t* frame = malloc(old_size);
  uint8_t* resized = calloc(new_size, 1);
  ok = frame && resized && fread(frame, 1, old_size, stdin) == old_size;
  if (!ok) {
    fprintf(stderr, "%s: the frame is shorter than %zu bytes\n", argv[0], old_size);
  } else if (channels == 0) {
    kel_nn_pixel_resize_bilinear_nv12(frame, side[0], side[1], resized, side[2], side[3]);
  } else { /* its -1 is no error */
    kel_nn_pixel_resize_bilinear(frame, side[0], side[1], resized, side[2], side[3], channels);
  }
  ok = ok && fwrite(resized, 1, new_size, stdout) == new_size && fflush(stdout) == 0;
  free(frame);
  free(resized);
  return ok ? 0 : 1;
}
