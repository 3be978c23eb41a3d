/* SPDX-License-Identifier: Apache-2.0 */
/* What the examples in C take for granted. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel_nn.h"
#include "kel_nn_kit.h"

static kel_nn_handle_t handle;
static uint8_t luma[640 * 360], pixels[640 * 360 * 3], data[1920 * 1080 * 3 / 2];
static uint8_t given_image[416 * 256 * 3], *image = given_image;
static int16_t pcm[48000];
static kel_nn_kit_scratch_t scratch;
static kel_nn_kit_frame_t frame = {data, 1920, 1080, 0, KEL_NN_KIT_NV12, NULL};
static kel_nn_box_t given_box = {900, 500, 200, 400, 0.9f, 0};
static kel_nn_det_result_t people = {&given_box, 1};
/* How often each result came, and what a camera and a microphone still have. */
static int remembered, used, plotted, drawn, woken, frames_left = 2, chunks_left = 3;

static int next_frame(kel_nn_kit_frame_t* taken) { return taken == &frame && frames_left-- > 0; }
static int record(int16_t* samples, int n) {
  for (int i = 0; i < n; ++i) samples[i] = (int16_t)(8000 - 16000 * (i % 40 / 20));
  return chunks_left-- > 0;
}
static void remember(const float* values, uint32_t n) { remembered += values && n == 256; }
static void draw(const kel_nn_box_t* boxes, int count) { drawn += boxes && count >= 0; }
static void use(const float* values) { used += values != NULL; }
static void plot(const uint8_t* rows, int n) { plotted += rows && n == 297; }
static void wake_up(void) { ++woken; }
static void alarm_all(void) {}
#define alarm alarm_all

static void given_start(void) {
  kel_nn_set_model_root_dir("models/");
  handle = kel_nn_handle_create();
  if (kel_nn_facedet_init(handle, 640, 360) || kel_nn_persondet_init(handle, 640, 360) ||
      kel_nn_crydet_init(handle, 16000, 0) || kel_nn_pir_filter_init(handle, 640, 360)) {
    exit(1);
  }
  record(pcm, 48000);
  chunks_left = 3;
}

static int given_end(void) {
  kel_nn_facedet_deinit(handle);
  kel_nn_persondet_deinit(handle);
  kel_nn_crydet_deinit(handle);
  kel_nn_pir_filter_deinit(handle);
  kel_nn_handle_destroy(handle);
  if (!remembered || !used || !plotted || drawn < 3 || woken || frames_left > 0 ||
      chunks_left > 0) {
    fprintf(stderr, "an example in C did not come to its end: %d %d %d %d\n", remembered, used,
            plotted, drawn);
    return 1;
  }
  return 0;
}
