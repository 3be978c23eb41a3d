/* SPDX-License-Identifier: Apache-2.0 */
/* Prints the people in a picture: detect_persons MODELS PICTURE.ppm
 *
 * One line for each: score, left, top, width and height in pixels of the picture.
 *
 * Build: make build/detect_persons   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include "kel_nn_kit.h"
#include "ppm.h"
#include "program.h"

static int print_people(kel_nn_handle_t handle, const uint8_t* pixels, int width, int height,
                        FILE* out) {
  static uint8_t input[416 * 256 * 3]; /* the largest of the three inputs */
  const kel_nn_size_t frame_size = {width, height};
  const kel_nn_size_t input_size = kel_nn_kit_detector_input(width, height);
  const kel_nn_kit_frame_t frame = {pixels, width, height, 0, KEL_NN_KIT_RGB, NULL};
  const kel_nn_kit_image_t image = {input, input_size.w, input_size.h, KEL_NN_KIT_RGB, NULL};
  kel_nn_det_result_t people;
  if (kel_nn_kit_letterbox(&frame, &image) != 0) return -1;
  if (kel_nn_persondet_process(handle, input, &people, &frame_size, &input_size) != 0) return -1;
  for (int i = 0; i < people.count; ++i) {
    const kel_nn_kit_rect_t r = kel_nn_kit_rect_of_box(&people.boxes[i]);
    fprintf(out, "%.2f %d %d %d %d\n", people.boxes[i].score, r.x, r.y, r.w, r.h);
  }
  return 0;
}

int main(int argc, char** argv) {
  int width, height, result = -1;
  if (argc != 3) {
    fprintf(stderr, "usage: %s MODELS PICTURE.ppm\n", argv[0]);
    return 2;
  }
  uint8_t* pixels = read_ppm(argv[2], &width, &height);
  FILE* out = own_output();
  if (!pixels || !out) return 1;
  kel_nn_handle_t handle = kel_nn_handle_create();
  if (set_model_directory(argv[1]) != 0 || kel_nn_persondet_init(handle, width, height) != 0) {
    fprintf(stderr, "%s: expected a directory with a model for persons; see the line above\n",
            argv[1]);
  } else {
    result = print_people(handle, pixels, width, height, out);
  }
  if (handle) {
    kel_nn_persondet_deinit(handle);
    kel_nn_handle_destroy(handle);
  }
  free(pixels);
  return result == 0 ? 0 : 1;
}
