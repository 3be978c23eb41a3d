/* SPDX-License-Identifier: Apache-2.0 */
/* How alike are two faces?  compare_faces MODELS/ A.pgm B.pgm   (binary PGM, 112 x 112 grey) */
#include <kel_nn.h>
#include <stdio.h>
#include <string.h>

/* Copies the features: the library's own are overwritten by the next extraction. */
static int extract(kel_nn_handle_t handle, const char* path, float* values) {
  unsigned char face[15 + 112 * 112]; /* "P5\n112 112\n255\n", then the pixels */
  kel_nn_feature_t feature;
  FILE* file = fopen(path, "rb");
  int ok = file && fread(face, sizeof(face), 1, file) == 1 && memcmp(face, "P5\n112 112", 10) == 0;
  if (file) fclose(file);
  ok = ok && kel_nn_face_feature_extract(handle, face + 15, &feature) == 0;
  if (ok) memcpy(values, feature.data, feature.len * sizeof(float));
  return ok;
}

int main(int argc, char** argv) {
  float values[2][256];
  const kel_nn_feature_t a = {values[0], 256}, b = {values[1], 256};
  kel_nn_handle_t handle = kel_nn_handle_create();
  int ok = argc == 4 && kel_nn_set_model_root_dir(argv[1]) == 0 && kel_nn_facercg_init(handle) == 0;
  ok = ok && extract(handle, argv[2], values[0]) && extract(handle, argv[3], values[1]);
  if (ok) printf("similarity %.6f\n", kel_nn_face_feature_similarity_calcul(&a, &b));
  if (!ok) fprintf(stderr, "failed; usage: compare_faces MODELS/ A.pgm B.pgm\n");
  kel_nn_facercg_deinit(handle);
  kel_nn_handle_destroy(handle);
  return ok ? 0 : 1;
}
