/* SPDX-License-Identifier: Apache-2.0 */
/* Prints what every task is given and finds, as digests, to compare a camera with a PC:
 * digests [MODELS [FRAME.nv12 WIDTH HEIGHT [SOUND.s16]]]
 *
 * Equal digests are equal bytes. An "input" line is what a task is shown, and needs no model. A
 * "result" line, of motion and of each task whose model is there, has some of the numbers too, for
 * networks that are not quite the same on both. The frame is full-range NV12, the sound 3 seconds of
 * 16 kHz samples, low byte first; without them both are made here. What the library prints goes to
 * standard error.
 *
 * Build: make build/digests   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include <stdlib.h>
#include <string.h>

#include "kel_nn_kit.h"
#include "program.h"

enum { kSamples = 48000, kLargestInput = 416 * 256 * 3 };

static FILE* out;
static kel_nn_size_t frame_size = {640, 360};
static uint8_t* frame_bytes;
static int16_t sound[kSamples];

/* FNV-1a. */
static unsigned long digest(const void* data, size_t size) {
  const uint8_t* bytes = data;
  uint32_t hash = 2166136261u;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 16777619u;
  return hash;
}

static void print_input(const char* task, const void* input, size_t size) {
  fprintf(out, "input  %-20s %08lx  %lu bytes\n", task, digest(input, size), (unsigned long)size);
}

/* What a task found. Results point into the library, and hold until its next call. */
typedef struct found {
  const void* data;
  size_t size;
  int count;
  const char* unit;
  const float* numbers; /* some to look at */
  int number_count;
} found_t;

static int found_boxes(const kel_nn_box_t* boxes, int count, found_t* found) {
  const found_t all = {
      boxes, (size_t)count * sizeof(*boxes), count, "boxes", &boxes->cx, count > 0 ? 5 : 0};
  *found = all;
  return 0;
}

static int found_values(const float* values, int count, found_t* found) {
  const found_t all = {
      values, (size_t)count * sizeof(*values), count, "values", values, count < 5 ? count : 5};
  *found = all;
  return 0;
}

/* ----- The tasks: load, run and release, in one shape for all ------------------------------------ */

static int load_faces(kel_nn_handle_t handle) {
  return kel_nn_facedet_init(handle, frame_size.w, frame_size.h);
}
static int run_faces(kel_nn_handle_t handle, const void* input, found_t* found) {
  kel_nn_facedet_result_t faces;
  if (kel_nn_facedet_process(handle, input, &faces) != 0) return -1;
  return found_boxes(faces.boxes, faces.count, found);
}

static int load_persons(kel_nn_handle_t handle) {
  return kel_nn_persondet_init(handle, frame_size.w, frame_size.h);
}
static int run_persons(kel_nn_handle_t handle, const void* input, found_t* found) {
  const kel_nn_size_t input_size = kel_nn_kit_detector_input(frame_size.w, frame_size.h);
  kel_nn_det_result_t people;
  if (kel_nn_persondet_process(handle, input, &people, &frame_size, &input_size) != 0) return -1;
  return found_boxes(people.boxes, people.count, found);
}

static int load_objects(kel_nn_handle_t handle) {
  return kel_nn_4clsdet_init(handle, frame_size.w, frame_size.h);
}
static int run_objects(kel_nn_handle_t handle, const void* input, found_t* found) {
  const kel_nn_size_t input_size = kel_nn_kit_detector_input(frame_size.w, frame_size.h);
  kel_nn_det_result_t objects;
  if (kel_nn_4clsdet_process(handle, input, &objects, &frame_size, &input_size) != 0) return -1;
  return found_boxes(objects.boxes, objects.count, found);
}

static int run_landmarks(kel_nn_handle_t handle, const void* input, found_t* found) {
  static float values[13];
  if (kel_nn_facelm_process(handle, input, values, values + 10) != 0) return -1;
  return found_values(values, 13, found);
}

static int run_features(kel_nn_handle_t handle, const void* input, found_t* found) {
  kel_nn_feature_t face;
  if (kel_nn_face_feature_extract(handle, input, &face) != 0) return -1;
  return found_values(face.data, (int)face.len, found);
}

static int run_face_class(kel_nn_handle_t handle, const void* input, found_t* found) {
  static float values[2];
  int class_id;
  if (kel_nn_face_classify_process(handle, input, &class_id, &values[1]) != 0) return -1;
  values[0] = (float)class_id;
  return found_values(values, 2, found);
}

static int run_person_class(kel_nn_handle_t handle, const void* input, found_t* found) {
  static float score;
  if (kel_nn_person_classify_process(handle, input, &score) != 0) return -1;
  return found_values(&score, 1, found);
}

/* Its input is the sound; the features that it computes of it are printed as input beside. */
static int load_cry(kel_nn_handle_t handle) { return kel_nn_crydet_init(handle, 16000, 0); }
static int run_cry(kel_nn_handle_t handle, const void* input, found_t* found) {
  static float score;
  if (kel_nn_crydet_process(handle, input, kSamples, &score) != 0) return -1;
  return found_values(&score, 1, found);
}

typedef struct task {
  const char* name;
  enum { kWholeFrame, kLetterbox, kCentre, kSound } shown;
  int side, channels; /* of kCentre */
  int (*load)(kel_nn_handle_t);
  int (*run)(kel_nn_handle_t, const void*, found_t*);
  int (*release)(kel_nn_handle_t);
} task_t;

static const task_t tasks[] = {
    {"face-detection", kWholeFrame, 0, 3, load_faces, run_faces, kel_nn_facedet_deinit},
    {"face-landmarks", kCentre, 112, 1, kel_nn_facelm_init, run_landmarks, kel_nn_facelm_deinit},
    {"face-features", kCentre, 112, 1, kel_nn_facercg_init, run_features, kel_nn_facercg_deinit},
    {"face-classes", kCentre, 112, 1, kel_nn_face_classify_init, run_face_class,
     kel_nn_face_classify_deinit},
    {"person-detection", kLetterbox, 0, 3, load_persons, run_persons, kel_nn_persondet_deinit},
    {"person-classes", kCentre, 112, 3, kel_nn_person_classify_init, run_person_class,
     kel_nn_person_classify_deinit},
    {"four-class-detection", kLetterbox, 0, 3, load_objects, run_objects, kel_nn_4clsdet_deinit},
    {"cry-detection", kSound, 0, 0, load_cry, run_cry, kel_nn_crydet_deinit},
};

/* The task's input, made from the frame; NULL when the kit cannot. */
static const void* make_input(const task_t* task, size_t* size) {
  static uint8_t pixels[kLargestInput];
  const kel_nn_kit_frame_t frame = {frame_bytes, frame_size.w,         frame_size.h,
                                    0,           KEL_NN_KIT_NV12_FULL, NULL};
  const kel_nn_kit_rect_t whole = {0, 0, frame_size.w, frame_size.h};
  kel_nn_kit_image_t image = {pixels, 320, 240, KEL_NN_KIT_RGB, NULL};
  int result = -1;
  switch (task->shown) {
    case kWholeFrame:
      result = kel_nn_kit_scale(&frame, &image);
      break;
    case kLetterbox:
      image.width = kel_nn_kit_detector_input(frame_size.w, frame_size.h).w;
      image.height = kel_nn_kit_detector_input(frame_size.w, frame_size.h).h;
      result = kel_nn_kit_letterbox(&frame, &image);
      break;
    case kCentre:
      image.width = image.height = task->side;
      if (task->channels == 1) image.format = KEL_NN_KIT_GREY;
      result = kel_nn_kit_crop(&frame, kel_nn_kit_centre_square(whole), &image);
      break;
    case kSound:
      *size = sizeof(sound);
      return sound;
  }
  *size = (size_t)image.width * (size_t)image.height * (size_t)task->channels;
  return result == 0 ? pixels : NULL;
}

static void print_found(const char* task, const found_t* found) {
  fprintf(out, "result %-20s %08lx  %d %s", task, digest(found->data, found->size), found->count,
          found->unit);
  for (int i = 0; i < found->number_count; ++i) fprintf(out, " %g", found->numbers[i]);
  fprintf(out, "\n");
}

/* A task that does not load has said why. */
static int show_task(kel_nn_handle_t handle, const task_t* task, int has_models) {
  size_t size;
  found_t found;
  const void* input = make_input(task, &size);
  int result = input ? 0 : -1;
  if (input) print_input(task->name, input, size);
  if (input && has_models && task->load(handle) == 0) {
    result = task->run(handle, input, &found);
    if (result == 0) print_found(task->name, &found);
  }
  if (has_models) task->release(handle); /* also what did not load */
  return result;
}

/* ----- Tasks without a network ------------------------------------------------------------------- */

static int show_sound_features(void) {
  kel_nn_mfcc_t* context = NULL;
  int result = kel_nn_mfcc_create(&context, 16000, 0);
  if (result == 0) result = kel_nn_mfcc_process(context, sound);
  if (result == 0) print_input("sound features", context->feature_u8, 297 * 64);
  if (context) kel_nn_mfcc_destory(&context);
  return result;
}

/* Three periods of four frames: still, something bright on the move, still. */
static int show_motion(kel_nn_handle_t handle) {
  const size_t row = (size_t)frame_size.w, luma_size = row * (size_t)frame_size.h;
  uint8_t* luma = malloc(luma_size);
  float decisions[3];
  found_t found;
  int count = 0, result = luma ? kel_nn_pir_filter_init(handle, frame_size.w, frame_size.h) : -1;
  for (int i = 0; result == 0 && i < 12; ++i) {
    int32_t moved = -1;
    memcpy(luma, frame_bytes, luma_size);
    if (i >= 4 && i < 8) memset(luma + row * (size_t)(i * frame_size.h / 12), 255, luma_size / 12);
    result = kel_nn_pir_filter_process(handle, luma, frame_size.w, frame_size.h, 1, 4, &moved);
    if (moved >= 0 && count < 3) decisions[count++] = (float)moved;
  }
  if (result == 0 && found_values(decisions, count, &found) == 0) print_found("motion", &found);
  kel_nn_pir_filter_deinit(handle);
  free(luma);
  return result;
}

/* ----- Frame and sound --------------------------------------------------------------------------- */

static int read_bytes(const char* path, void* bytes, size_t size) {
  FILE* file = fopen(path, "rb");
  const int is_read = file && fread(bytes, 1, size, file) == size;
  if (file) fclose(file);
  if (!is_read) fprintf(stderr, "%s: no %lu bytes\n", path, (unsigned long)size);
  return is_read ? 0 : -1;
}

/* Slopes, edges and noise. */
static void draw_frame(void) {
  const int w = frame_size.w, h = frame_size.h;
  uint32_t noise = 1;
  for (int i = 0; i < w * h * 3 / 2; ++i) {
    noise = noise * 1664525u + 1013904223u;
    frame_bytes[i] = (uint8_t)((i % w / 4 + i / w / 3 + (i / w & 64) + (int)(noise >> 28)) & 255);
  }
}

/* A tone that rises, in noise. */
static void make_sound(void) {
  uint32_t noise = 1;
  int32_t phase = 0;
  for (int i = 0; i < kSamples; ++i) {
    noise = noise * 1664525u + 1013904223u;
    phase = (phase + 1200 + i / 16) % 65536;
    const int32_t triangle = phase < 32768 ? phase - 16384 : 49152 - phase;
    sound[i] = (int16_t)(triangle / 4 + (int32_t)(noise >> 22));
  }
}

int main(int argc, char** argv) {
  const int has_frame = argc >= 5, has_models = argc >= 2;
  int result = 0;
  if (has_frame) {
    frame_size.w = atoi(argv[3]);
    frame_size.h = atoi(argv[4]);
  }
  if (argc == 3 || argc == 4 || argc > 6 || frame_size.w < 2 || frame_size.h < 2 ||
      frame_size.w > 4096 || frame_size.h > 4096 || (frame_size.w | frame_size.h) & 1) {
    fprintf(stderr, "usage: %s [MODELS [FRAME.nv12 WIDTH HEIGHT [SOUND.s16]]]\n", argv[0]);
    return 2;
  }
  out = own_output();
  if (!out) return 1;

  const size_t size = (size_t)frame_size.w * (size_t)frame_size.h * 3 / 2;
  frame_bytes = malloc(size);
  if (!frame_bytes) return 1;
  draw_frame();
  make_sound();
  if (has_frame) result = read_bytes(argv[2], frame_bytes, size);
  if (result == 0 && argc == 6) result = read_bytes(argv[5], sound, sizeof(sound));

  kel_nn_handle_t handle = kel_nn_handle_create();
  if (!handle) result = -1;
  if (has_models) set_model_directory(argv[1]);
  for (size_t i = 0; result == 0 && i < sizeof(tasks) / sizeof(tasks[0]); ++i) {
    result = show_task(handle, &tasks[i], has_models);
  }
  if (result == 0) result = show_sound_features();
  if (result == 0) result = show_motion(handle);
  if (handle) kel_nn_handle_destroy(handle);
  free(frame_bytes);
  if (fclose(out) != 0) result = -1;
  return result == 0 ? 0 : 1;
}
