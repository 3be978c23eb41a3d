/* SPDX-License-Identifier: Apache-2.0 */
/* Is a baby crying? Tells it of every three seconds of sound:
 *
 *     listen MODELS <SOUND.s16
 *
 * Sound is 16 kHz, mono, 16-bit samples in the machine's own byte order: what `arecord -t raw -f S16_LE
 * -r 16000` writes on a camera. What the library prints goes to standard error.
 *
 * Build: make build/listen   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include "program.h"

enum { kRate = 16000, kWindow = 3 * kRate, kChunk = 1600 }; /* chunks that fill a window exactly */
static const float kCrying = 0.5f, kTooQuiet = 0.00001f; /* the latter without asking the network */

static int listen_to(kel_nn_handle_t handle, FILE* sound, FILE* out) {
  int16_t samples[kChunk];
  long heard = 0; /* samples */
  float score;
  size_t count;
  while ((count = fread(samples, sizeof(samples[0]), kChunk, sound)) > 0) {
    if (kel_nn_crydet_process(handle, samples, (uint32_t)count, &score) != 0) return -1;
    heard += (long)count;
    if (score < 0) continue; /* the window is not full */
    fprintf(out, "%4ld s  %.2f  %s\n", heard / kRate, score,
            score <= kTooQuiet ? "quiet"
            : score > kCrying  ? "crying"
                               : "no cry");
    fflush(out);
  }
  if (heard % kWindow != 0) {
    fprintf(stderr, "the last %.1f s are less than a window of 3 s: not looked at\n",
            (double)(heard % kWindow) / kRate);
  }
  return 0;
}

int main(int argc, char** argv) {
  int result = -1;
  if (argc != 2) {
    fprintf(stderr, "usage: %s MODELS <SOUND.s16   (16 kHz, mono, 16 bits)\n", argv[0]);
    return 2;
  }
  FILE* out = own_output();
  kel_nn_handle_t handle = kel_nn_handle_create();
  if (!out || !handle) {
    fprintf(stderr, "memory is short\n");
  } else if (set_model_directory(argv[1]) != 0 || kel_nn_crydet_init(handle, kRate, 0) != 0) {
    fprintf(stderr, "%s: expected a directory with a model for cries; see the line above\n",
            argv[1]);
  } else {
    result = listen_to(handle, stdin, out);
  }
  if (handle) {
    kel_nn_crydet_deinit(handle);
    kel_nn_handle_destroy(handle);
  }
  if (out && fclose(out) != 0) result = -1;
  return result == 0 ? 0 : 1;
}
