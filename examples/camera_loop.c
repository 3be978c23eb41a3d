/* SPDX-License-Identifier: Apache-2.0 */
/* A camera's loop: motion, then persons, then faces, and how like the first face each one is.
 *
 *     camera_loop MODELS WIDTH HEIGHT [FRAMES.nv12]
 *
 * Frames are NV12 as video is stored, one behind the other, from the file or from standard input. Each
 * step runs only where the one before found something. Prints what is seen in the last frame of each
 * period, and at the end how long each step took, the kit's part included. All memory is taken before
 * the first frame, the kit's scratch too. What the library prints goes to standard error.
 *
 * Build: make build/camera_loop   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kel_nn_kit.h"
#include "program.h"

enum { kFramesAPeriod = 10, kMaxInput = 416 * 256 * 3, kScratch = kMaxInput, kFeatureLength = 256 };
static const float kMovedPerCent = 1.0f;

/* ----- Time -------------------------------------------------------------------------------------- */

enum step { kMotion, kPersons, kFaces, kLandmarks, kAlign, kFeatures, kStepCount };
static const char* const step_names[] = {"motion",    "persons", "faces",
                                         "landmarks", "align",   "features"};
static struct {
  int count;
  double sum, most; /* milliseconds */
} times[kStepCount];

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec * 1e3 + (double)time.tv_nsec / 1e6;
}

static void count_time(enum step step, double start) {
  const double took = now() - start;
  times[step].count += 1;
  times[step].sum += took;
  if (took > times[step].most) times[step].most = took;
}

static void print_times(FILE* out) {
  fprintf(out, "step       calls   mean ms   most ms\n");
  for (int i = 0; i < kStepCount; ++i) {
    if (times[i].count == 0) continue;
    fprintf(out, "%-9s %6d %9.2f %9.2f\n", step_names[i], times[i].count,
            times[i].sum / times[i].count, times[i].most);
  }
}

/* ----- Steps ------------------------------------------------------------------------------------- */

/* Everything that lives as long as the program; one image serves all tasks, one after the other. */
typedef struct camera {
  kel_nn_handle_t handle;
  kel_nn_kit_frame_t frame;
  uint8_t input[kMaxInput];
  kel_nn_kit_scratch_t scratch;
  int is_awake;
  int has_first_face;
  float first_face[kFeatureLength];
} camera_t;

typedef struct seen {
  int motion, persons, faces;
  float similarity; /* of the best face to the first one */
} seen_t;

static kel_nn_kit_image_t image_of(camera_t* camera, int width, int height,
                                   kel_nn_kit_format_t format) {
  const kel_nn_kit_image_t image = {camera->input, width, height, format, &camera->scratch};
  return image;
}

/* Decides once a period, and holds until the next one. */
static int look_for_motion(camera_t* camera) {
  const double start = now();
  int32_t moved = -1;
  const int result =
      kel_nn_pir_filter_process(camera->handle, camera->frame.data, camera->frame.width,
                                camera->frame.height, kMovedPerCent, kFramesAPeriod, &moved);
  if (moved >= 0) camera->is_awake = moved;
  count_time(kMotion, start);
  return result;
}

static int look_for_persons(camera_t* camera, int* count) {
  const double start = now();
  const kel_nn_size_t frame_size = {camera->frame.width, camera->frame.height};
  const kel_nn_size_t size = kel_nn_kit_detector_input(frame_size.w, frame_size.h);
  const kel_nn_kit_image_t image = image_of(camera, size.w, size.h, KEL_NN_KIT_RGB);
  kel_nn_det_result_t persons = {NULL, 0};
  int result = kel_nn_kit_letterbox(&camera->frame, &image);
  if (result == 0) {
    result = kel_nn_persondet_process(camera->handle, image.data, &persons, &frame_size, &size);
  }
  *count = persons.count;
  count_time(kPersons, start);
  return result;
}

/* The boxes are the library's, and stay until it looks for faces again. */
static int look_for_faces(camera_t* camera, kel_nn_facedet_result_t* faces) {
  const double start = now();
  const kel_nn_kit_image_t image = image_of(camera, 320, 240, KEL_NN_KIT_RGB);
  int result = kel_nn_kit_scale(&camera->frame, &image);
  if (result == 0) result = kel_nn_facedet_process(camera->handle, image.data, faces);
  count_time(kFaces, start);
  return result;
}

/* The part of a box that lies in the frame: what kel_nn_kit_crop() cuts out. */
static kel_nn_kit_rect_t rect_in_frame(const camera_t* camera, const kel_nn_box_t* box) {
  kel_nn_kit_rect_t rect = kel_nn_kit_rect_of_box(box);
  const int right = rect.x + rect.w < camera->frame.width ? rect.x + rect.w : camera->frame.width;
  const int bottom =
      rect.y + rect.h < camera->frame.height ? rect.y + rect.h : camera->frame.height;
  if (rect.x < 0) rect.x = 0;
  if (rect.y < 0) rect.y = 0;
  rect.w = right - rect.x;
  rect.h = bottom - rect.y;
  return rect;
}

/* Crop, landmarks, alignment, features. The first face is the one that others are compared with. What
 * lies outside the frame, or has points that do not lie like a face's, is passed over.
 */
static int recognise(camera_t* camera, const kel_nn_box_t* box, float* similarity) {
  const kel_nn_kit_rect_t rect = rect_in_frame(camera, box);
  const kel_nn_kit_image_t image = image_of(camera, 112, 112, KEL_NN_KIT_GREY);
  const kel_nn_feature_t first = {camera->first_face, kFeatureLength};
  kel_nn_feature_t feature;
  float points[10];
  double start = now();
  int result = kel_nn_kit_crop(&camera->frame, rect, &image);
  if (result == KEL_NN_KIT_OUTSIDE) return 0;
  if (result == 0) result = kel_nn_facelm_process(camera->handle, image.data, points, NULL);
  count_time(kLandmarks, start);
  if (result != 0) return result;

  for (int i = 0; i < 10; i += 2) { /* the sample network gives parts of the crop */
    points[i] = (float)rect.x + points[i] * (float)rect.w;
    points[i + 1] = (float)rect.y + points[i + 1] * (float)rect.h;
  }
  start = now();
  result = kel_nn_kit_align_face(&camera->frame, points, &image);
  count_time(kAlign, start);
  if (result == KEL_NN_KIT_NO_FACE) return 0;
  if (result != 0) return result;

  start = now();
  result = kel_nn_face_feature_extract(camera->handle, image.data, &feature);
  count_time(kFeatures, start);
  if (result != 0) return result;
  if (!camera->has_first_face) { /* copied: the next face overwrites the library's */
    memcpy(camera->first_face, feature.data, sizeof(camera->first_face));
    camera->has_first_face = 1;
  }
  const float likeness = kel_nn_face_feature_similarity_calcul(&first, &feature);
  if (likeness > *similarity) *similarity = likeness;
  return 0;
}

static int look(camera_t* camera, seen_t* seen) {
  const seen_t nothing = {0, 0, 0, 0.0f};
  kel_nn_facedet_result_t faces;
  *seen = nothing;
  if (look_for_motion(camera) != 0) return -1;
  seen->motion = camera->is_awake;
  if (!seen->motion) return 0;
  if (look_for_persons(camera, &seen->persons) != 0) return -1;
  if (seen->persons == 0) return 0;
  if (look_for_faces(camera, &faces) != 0) return -1;
  seen->faces = faces.count;
  for (int i = 0; i < faces.count; ++i) {
    if (recognise(camera, &faces.boxes[i], &seen->similarity) != 0) return -1;
  }
  return 0;
}

/* ----- Program ----------------------------------------------------------------------------------- */

static int load(kel_nn_handle_t handle, int width, int height) {
  const int result = kel_nn_pir_filter_init(handle, width, height) == 0 &&
                     kel_nn_persondet_init(handle, width, height) == 0 &&
                     kel_nn_facedet_init(handle, width, height) == 0 &&
                     kel_nn_facelm_init(handle) == 0 && kel_nn_facercg_init(handle) == 0;
  return result ? 0 : -1;
}

/* Also what was never loaded. */
static void unload(kel_nn_handle_t handle) {
  kel_nn_pir_filter_deinit(handle);
  kel_nn_persondet_deinit(handle);
  kel_nn_facedet_deinit(handle);
  kel_nn_facelm_deinit(handle);
  kel_nn_facercg_deinit(handle);
  kel_nn_handle_destroy(handle);
}

static void print_seen(FILE* out, int number, const seen_t* seen) {
  fprintf(out, "frame %3d: %s", number, seen->motion ? "motion" : "still");
  if (seen->persons > 0) fprintf(out, ", persons");
  if (seen->faces > 0) fprintf(out, ", faces, like the first by %.2f", seen->similarity);
  fprintf(out, "\n");
}

static int run(camera_t* camera, FILE* frames, uint8_t* pixels, size_t size, FILE* out) {
  seen_t seen;
  size_t part;
  int count = 0;
  while ((part = fread(pixels, 1, size, frames)) == size) {
    count += 1;
    if (look(camera, &seen) != 0) {
      fprintf(stderr, "frame %d: a step failed; the library's lines above say why\n", count);
      return -1;
    }
    if (count % kFramesAPeriod == 0) print_seen(out, count, &seen);
  }
  if (part > 0) fprintf(stderr, "the last frame has %zu of %zu bytes: left out\n", part, size);
  if (count == 0) {
    fprintf(stderr, "no frame; expected %zu bytes of each\n", size);
    return -1;
  }
  print_times(out);
  return 0;
}

int main(int argc, char** argv) {
  static camera_t camera;
  const int width = argc >= 4 ? atoi(argv[2]) : 0, height = argc >= 4 ? atoi(argv[3]) : 0;
  int result = -1;
  if (argc > 5 || width < 2 || height < 2 || width > 4096 || height > 4096 ||
      (width | height) & 1) {
    fprintf(stderr, "usage: %s MODELS WIDTH HEIGHT [FRAMES.nv12]   (even sides of 2 to 4096)\n",
            argv[0]);
    return 2;
  }
  const size_t size = (size_t)width * (size_t)height * 3 / 2;
  FILE* out = own_output();
  FILE* frames = argc == 5 ? fopen(argv[4], "rb") : stdin;
  uint8_t* pixels = malloc(size);
  camera.scratch.data = malloc(kScratch); /* what the largest image needs, so that it never grows */
  camera.scratch.size = kScratch;
  camera.handle = kel_nn_handle_create();
  const kel_nn_kit_frame_t frame = {pixels, width, height, 0, KEL_NN_KIT_NV12, NULL};
  camera.frame = frame;
  if (!frames) {
    fprintf(stderr, "%s: cannot be read\n", argv[4]);
  } else if (!out || !pixels || !camera.scratch.data || !camera.handle) {
    fprintf(stderr, "memory is short\n");
  } else if (set_model_directory(argv[1]) != 0 || load(camera.handle, width, height) != 0) {
    fprintf(
        stderr,
        "%s: expected a directory with models; the line above names the one that is not there\n",
        argv[1]);
  } else {
    result = run(&camera, frames, pixels, size, out);
  }
  if (camera.handle) unload(camera.handle);
  kel_nn_kit_scratch_free(&camera.scratch);
  free(pixels);
  if (frames && frames != stdin) fclose(frames);
  if (out && fclose(out) != 0) result = -1;
  return result == 0 ? 0 : 1;
}
