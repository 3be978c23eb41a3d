/* SPDX-License-Identifier: Apache-2.0 */
/* How alike are two faces?  compare_faces MODELS A.pgm B.pgm   (binary PGM, 112 x 112 grey)
 *
 * Build: make build/compare_faces   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include <string.h>

#include "program.h"

/* Copies the features: the library's own are overwritten by the next extraction. */
static int extract(kel_nn_handle_t handle, const char* path, float* values) {
  unsigned char face[15 + 112 * 112]; /* the header, then the pixels */
  kel_nn_feature_t feature;
  FILE* file = fopen(path, "rb");
  const int is_read = file && fread(face, sizeof(face), 1, file) == 1 &&
                      memcmp(face, "P5\n112 112\n255\n", 15) == 0;
  if (file) fclose(file);
  if (!is_read) {
    fprintf(stderr, "%s: expected a binary PGM of 112 x 112 pixels and 255 greys\n", path);
    return -1;
  }
  if (kel_nn_face_feature_extract(handle, face + 15, &feature) != 0) return -1;
  memcpy(values, feature.data, feature.len * sizeof(float));
  return 0;
}

int main(int argc, char** argv) {
  float values[2][256];
  const kel_nn_feature_t a = {values[0], 256}, b = {values[1], 256};
  int result = -1;
  if (argc != 4) {
    fprintf(stderr, "usage: %s MODELS A.pgm B.pgm\n", argv[0]);
    return 2;
  }
  FILE* out = own_output();
  if (!out) return 1;
  kel_nn_handle_t handle = kel_nn_handle_create();
  if (set_model_directory(argv[1]) != 0 || kel_nn_facercg_init(handle) != 0) {
    fprintf(stderr, "%s: expected a directory with a model for face features; see the line above\n",
            argv[1]);
  } else if (extract(handle, argv[2], values[0]) == 0 && extract(handle, argv[3], values[1]) == 0) {
    fprintf(out, "similarity %.6f\n", kel_nn_face_feature_similarity_calcul(&a, &b));
    result = 0;
  }
  if (handle) {
    kel_nn_facercg_deinit(handle);
    kel_nn_handle_destroy(handle);
  }
  return result == 0 ? 0 : 1;
}
