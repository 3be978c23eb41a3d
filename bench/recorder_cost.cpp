// SPDX-License-Identifier: Apache-2.0
// Calls of a detector, to count their instructions with the recorder in front and without: recorder_cost.sh.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kel_nn.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const bool is_faces = std::strcmp(argv[1], "faces") == 0;
  const int calls = std::atoi(argv[2]);
  kel_nn_set_model_root_dir(argv[3]);
  const kel_nn_handle_t handle = kel_nn_handle_create();
  const kel_nn_size_t frame = {640, 360}, input = {416, 256};
  std::vector<uint8_t> image(416 * 256 * 3);
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(i * i >> 7);
  int failures = is_faces ? kel_nn_facedet_init(handle, frame.w, frame.h)
                          : kel_nn_persondet_init(handle, frame.w, frame.h);
  for (int i = 0; i < calls; ++i) {
    kel_nn_facedet_result_t faces;
    kel_nn_det_result_t persons;
    failures += is_faces ? kel_nn_facedet_process(handle, image.data(), &faces)
                         : kel_nn_persondet_process(handle, image.data(), &persons, &frame, &input);
  }
  is_faces ? kel_nn_facedet_deinit(handle) : kel_nn_persondet_deinit(handle);
  kel_nn_handle_destroy(handle);
  return failures == 0 ? 0 : 1;
}
