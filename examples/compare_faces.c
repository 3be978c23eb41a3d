/* Compares two faces with the library alone: compare_faces MODEL-DIR/ A.pgm B.pgm  (112 x 112, binary PGM) */
#include <kel_nn.h>
#include <stdio.h>
#include <string.h>

static int read_face(const char* path, unsigned char* pixels) {
  FILE* file = fopen(path, "rb");
  int ok = file && fscanf(file, "P5 112 112 255") == 0 && fgetc(file) == '\n' &&
           fread(pixels, 1, 112 * 112, file) == 112 * 112;
  if (file) fclose(file);
  return ok;
}

int main(int argc, char** argv) {
  static unsigned char a[112 * 112], b[112 * 112];
  float first_values[256];
  kel_nn_feature_t first, second;
  kel_nn_handle_t handle;
  int failed = argc != 4 || !read_face(argv[2], a) || !read_face(argv[3], b);
  if (failed) return fprintf(stderr, "usage: compare_faces MODEL-DIR/ A.pgm B.pgm\n"), 2;
  kel_nn_set_model_root_dir(argv[1]);
  handle = kel_nn_handle_create();
  failed = kel_nn_facercg_init(handle) || kel_nn_face_feature_extract(handle, a, &first);
  if (!failed) { /* the second extraction overwrites the values of the first: copy them */
    first.data = memcpy(first_values, first.data, sizeof(first_values));
    failed = kel_nn_face_feature_extract(handle, b, &second);
  }
  if (!failed) printf("similarity %.6f\n", kel_nn_face_feature_similarity_calcul(&first, &second));
  kel_nn_facercg_deinit(handle);
  kel_nn_handle_destroy(handle);
  return failed ? 1 : 0;
}
