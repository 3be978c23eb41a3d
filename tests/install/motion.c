/* SPDX-License-Identifier: Apache-2.0 */
/* A program that only filters motion and needs no runtime: a bright square appears, and "moved 1" is printed. */
#include <kel_nn.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static unsigned char frame[64 * 48];
  kel_nn_handle_t handle = kel_nn_handle_create();
  int32_t motion = -1;
  int i;
  if (kel_nn_pir_filter_init(handle, 64, 48) != 0) return 1;
  for (i = 0; i < 4; ++i) {
    memset(frame, i % 2 ? 200 : 20, sizeof(frame));
    if (kel_nn_pir_filter_process(handle, frame, 64, 48, 1.0f, 4, &motion) != 0) return 1;
  }
  printf("moved %d\n", (int)motion);
  kel_nn_pir_filter_deinit(handle);
  kel_nn_handle_destroy(handle);
  return motion == 1 ? 0 : 1;
}
