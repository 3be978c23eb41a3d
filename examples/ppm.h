/* SPDX-License-Identifier: Apache-2.0 */
/* Reading a picture, for the examples: a binary PPM without comments, 3 bytes a pixel. */
#ifndef KEL_NN_EXAMPLES_PPM_H_
#define KEL_NN_EXAMPLES_PPM_H_

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

/* The pixels are the caller's to free; NULL if the file is none. */
static uint8_t* read_ppm(const char* path, int* width, int* height) {
  const int longest_side = 16384;
  uint8_t* pixels = NULL;
  FILE* file = fopen(path, "rb");
  if (file && fscanf(file, "P6 %d %d 255", width, height) == 2 && fgetc(file) != EOF &&
      *width > 0 && *height > 0 && *width <= longest_side && *height <= longest_side) {
    const size_t size = (size_t)*width * (size_t)*height * 3;
    pixels = (uint8_t*)malloc(size);
    if (pixels && fread(pixels, 1, size, file) != size) {
      free(pixels);
      pixels = NULL;
    }
  }
  if (file) fclose(file);
  if (!pixels) fprintf(stderr, "%s: expected a binary PPM\n", path);
  return pixels;
}

#endif /* KEL_NN_EXAMPLES_PPM_H_ */
