/* SPDX-License-Identifier: Apache-2.0 */
/* libkelnn: neural-network tasks for small cameras.
 *
 * One handle, a directory of model files, tasks. A program that compares two faces:
 *
 *     kel_nn_set_model_root_dir("models/");
 *     kel_nn_handle_t handle = kel_nn_handle_create();
 *     if (kel_nn_facercg_init(handle) == 0) {
 *       kel_nn_feature_t face;
 *       if (kel_nn_face_feature_extract(handle, image, &face) == 0) remember(face.data, face.len);
 *       kel_nn_facercg_deinit(handle);
 *     }
 *     kel_nn_handle_destroy(handle);
 *
 * Reading order: version and handle, model files, tasks, primitives, engine. docs/pitfalls.md has
 * what surprises callers.
 *
 * What holds everywhere
 *
 * returns  Calls that return int give 0 on success and a negative value on failure unless they say
 *          otherwise; calls that return a pointer give NULL, calls that return a size give 0.
 * errors   Every failure prints one coloured line on standard output: source file, function, line
 *          and text. Nothing goes to standard error, and there is no switch.
 * images   8 bits a channel, channels interleaved, rows top to bottom, no padding between rows
 *          unless a function takes strides. The library reads images and never changes or keeps
 *          them.
 * threads  One handle, one thread at a time: tasks keep their settings and results in the process,
 *          not in the handle. Only the primitives may be called from any thread, on distinct data.
 * memory   Results point into the library and hold until the same task's next call. Do not free
 *          them.
 */
#ifndef KEL_NN_H_
#define KEL_NN_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the library exports. */
#define KEL_NN_API __attribute__((visibility("default")))

/* -------------------------------------------------------------------------------------------------
 * Version and handle
 * ---------------------------------------------------------------------------------------------- */

/* What the banner shows. */
#define KEL_NN_VERSION_MAJOR 1         /**< changes break callers */
#define KEL_NN_VERSION_MINOR 3         /**< changes add to the interface */
#define KEL_NN_VERSION_PATCH 19        /**< changes mend */
#define KEL_NN_BUILD_DATE "2023/03/07" /**< year, month, day */

/** The one object of the library. It holds a graph for every task's model. */
typedef struct kel_nn_handle* kel_nn_handle_t;

/** Prints the framed version banner, three lines, on standard output.
 *
 *  returns  What the last character output returned: 10, the code of the newline, or EOF.
 */
KEL_NN_API int kel_nn_print_version(void);

/** Prints the version banner and creates a handle in which no task is initialised.
 *
 *  returns  The handle, to be released with kel_nn_handle_destroy(), or NULL when memory is short.
 */
KEL_NN_API kel_nn_handle_t kel_nn_handle_create(void);

/** Releases the handle, and only the handle: call the `_deinit` of every initialised task before.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_handle_destroy(kel_nn_handle_t handle);

/** 256 floats that no function reads or writes. Kept because the interface has always had the
 *  symbol.
 */
KEL_NN_API extern float feature[256];

/* -------------------------------------------------------------------------------------------------
 * Model files
 *
 * Every task has one file with a fixed, opaque name in the model root directory (the person and
 * four-class detectors have three). A file is `encode_size` bytes that mean nothing, then the
 * model, whose first `encode_size` bytes are scrambled with a key; tasks use 1000 bytes.
 * docs/models.md has the whole format.
 *
 * Scrambling pairs byte i with key byte i modulo the key's length and replaces it by the exclusive
 * or of both, except that a zero byte and a byte equal to its key byte (below 0x80) stay as they
 * are. It is its own inverse for a key of bytes below 0x80.
 * ---------------------------------------------------------------------------------------------- */

/** Sets the directory of the model files; later `_init` calls use it.
 *
 *  dir      Copied. Must end with "/": the file's name is appended as it is. Until it is set, model
 *           files are looked up in the working directory.
 *  returns  0, or -1 for NULL (nothing is printed and the old directory stays) or when memory is
 *           short.
 */
KEL_NN_API int kel_nn_set_model_root_dir(const char* dir);

/** The directory that was set, or NULL. The text holds until the next kel_nn_set_model_root_dir().
 */
KEL_NN_API const char* kel_nn_get_model_root_dir(void);

/** Descrambles a model file that is in memory.
 *
 *  encode_buf   The file's bytes, `buf_size` of them, at least 2 * `encode_size`.
 *  decode_buf   Where to put the new buffer; `*decode_buf` must be NULL. The caller frees it with
 *               free().
 *  encode_size  How many bytes in front are skipped, and how many after them are scrambled.
 *  key          The key, ended by a zero byte.
 *  returns      The length of the model, `buf_size` - `encode_size`; or 0 after an error, with
 *               `*decode_buf` unchanged.
 */
KEL_NN_API size_t kel_nn_model_xor_decode(const uint8_t* encode_buf, uint8_t** decode_buf,
                                          size_t buf_size, size_t encode_size, const char* key);

/** Reads and descrambles a model file.
 *
 *  The same as kel_nn_model_xor_decode(), except that the file must have at least 3 * `encode_size`
 *  bytes. Only regular files can be read; a directory or a pipe is an error.
 */
KEL_NN_API size_t kel_nn_model_xor_decode_from_file(const char* path, uint8_t** decode_buf,
                                                    size_t encode_size, const char* key);

/* -------------------------------------------------------------------------------------------------
 * Tasks
 *
 * Each task has an `_init` that loads its model, a `_process` (or the like) and a `_deinit` that
 * releases the model. Unless a function says otherwise:
 *
 * _init     returns 0, or -1 for a null handle, a task that is initialised already or a model that
 *           does not load.
 * _deinit   returns 0, or -1 for a null handle. It may be called on any handle, also when the task
 *           was never initialised.
 * _process  returns 0, or -1 for a null argument, a failed run or a model whose outputs are too
 *           small; what it would have written is then unchanged.
 * ---------------------------------------------------------------------------------------------- */

/* What the detectors share --------------------------------------------------------------------- */

/** One detection. */
typedef struct kel_nn_box {
  float cx, cy;     /**< the centre */
  float w, h;       /**< the size, in the same pixels as the centre */
  float score;      /**< 0 to 1, the higher the surer */
  int32_t class_id; /**< 0 in detectors of one class */
} kel_nn_box_t;

/** A width and a height in pixels. */
typedef struct kel_nn_size {
  int32_t w, h; /**< width and height */
} kel_nn_size_t;

/* Face detection: where are faces? ------------------------------------------------------------- */

/** The faces of one image. */
typedef struct kel_nn_facedet_result {
  kel_nn_box_t* boxes; /**< `count` boxes, best score first */
  uint32_t reserved;   /**< never written */
  int32_t count;       /**< 0 to 100 */
} kel_nn_facedet_result_t;

/** Loads the face detection model.
 *
 *  width, height  Of the frames that the images are made from; results are scaled to them. They are
 *                 taken over also when the call fails for anything but a null handle.
 */
KEL_NN_API int kel_nn_facedet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the face detection model. The frame size stays. */
KEL_NN_API int kel_nn_facedet_deinit(kel_nn_handle_t handle);

/** Finds the faces in one image.
 *
 *  image    320 * 240 * 3 bytes: the whole frame, scaled to that size without keeping its aspect.
 *  result   `boxes` points into the task's own storage, also when there is no face. Pixels are those
 *           of the frame size that kel_nn_facedet_init() was given. Boxes score above 0.8 and
 *           overlap with an IoU of at most 0.3. Of more than 100 candidates, those of the smaller
 *           anchors are considered.
 *
 *      kel_nn_facedet_result_t faces;
 *      if (kel_nn_facedet_process(handle, image, &faces) == 0) draw(faces.boxes, faces.count);
 */
KEL_NN_API int kel_nn_facedet_process(kel_nn_handle_t handle, const uint8_t* image,
                                      kel_nn_facedet_result_t* result);

/* Person detection: where are people? ---------------------------------------------------------- */

/** How many candidates a person detection considers, and the most boxes that it gives. */
#define KEL_NN_PERSONDET_MAX_BOXES 100

/** What a person or four-class detection found. */
typedef struct kel_nn_det_result {
  kel_nn_box_t* boxes; /**< `count` boxes, best score first */
  int32_t count;       /**< 0 to the detector's limit */
} kel_nn_det_result_t;

/** Loads the person detection model for one orientation of frames.
 *
 *  width, height  Of the frames; only which is larger matters. The model's input is
 *
 *                     height < width   416 x 256
 *                     height = width   320 x 320
 *                     height > width   256 x 416
 *
 *                 The orientation is taken over also when the call fails for anything but a null
 *                 handle; for another orientation call kel_nn_persondet_deinit() first.
 */
KEL_NN_API int kel_nn_persondet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the person detection model. */
KEL_NN_API int kel_nn_persondet_deinit(kel_nn_handle_t handle);

/** Finds the people in one frame.
 *
 *  image       The model's input, `input_size` pixels of 3 channels: the frame, scaled by
 *              max(input_size) / max(frame_size) and centred on a canvas of the model's size.
 *  result      `boxes` points into the task's own storage, also when there is nobody. Centres and
 *              sizes are whole numbers of pixels of the frame, cut off at its edges (at pixel 1, not
 *              0, on the left and top; a box that lies outside may come out with a size of 0 or
 *              less). Boxes score at least 0.3 and overlap with an IoU of at most 0.4 in the image.
 *              Of more than KEL_NN_PERSONDET_MAX_BOXES candidates the first are considered, not the
 *              best: coarse grid before fine grid, from the top left.
 *  frame_size  Of the camera's frame.
 *  input_size  Must be the model's.
 *  returns     0; -1 for a null argument; 1 for a failed run, an `input_size` that is not the
 *              model's or a model whose outputs are too small.
 *
 *      const kel_nn_size_t frame = {640, 360}, input = {416, 256};
 *      kel_nn_det_result_t people;
 *      if (kel_nn_persondet_process(handle, image, &people, &frame, &input) == 0) {
 *        draw(people.boxes, people.count);
 *      }
 */
KEL_NN_API int kel_nn_persondet_process(kel_nn_handle_t handle, const void* image,
                                        kel_nn_det_result_t* result,
                                        const kel_nn_size_t* frame_size,
                                        const kel_nn_size_t* input_size);

/* Four-class detection: where are things of four kinds? ---------------------------------------- */

/** How many candidates a four-class detection considers, and the most boxes that it gives. */
#define KEL_NN_4CLSDET_MAX_BOXES 500

/** Loads the four-class detection model for one orientation of frames; as kel_nn_persondet_init(),
 *  with models and an orientation of its own.
 */
KEL_NN_API int kel_nn_4clsdet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the four-class detection model. */
KEL_NN_API int kel_nn_4clsdet_deinit(kel_nn_handle_t handle);

/** Finds the objects in one frame; the same as kel_nn_persondet_process(), except that `class_id`
 *  is 0 to 3, as the model defines them, and that KEL_NN_4CLSDET_MAX_BOXES candidates are
 *  considered. Objects of different classes suppress each other where they overlap.
 */
KEL_NN_API int kel_nn_4clsdet_process(kel_nn_handle_t handle, const void* image,
                                      kel_nn_det_result_t* result, const kel_nn_size_t* frame_size,
                                      const kel_nn_size_t* input_size);

/* Face features: who is it? -------------------------------------------------------------------- */

/** The features of one face. */
typedef struct kel_nn_feature {
  float* data;  /**< `len` values whose squares add up to 1; owned by the handle, see below */
  uint32_t len; /**< 256 */
} kel_nn_feature_t;

/** Loads the face feature model. */
KEL_NN_API int kel_nn_facercg_init(kel_nn_handle_t handle);

/** Releases the face feature model, and with it the values of all features extracted so far. */
KEL_NN_API int kel_nn_facercg_deinit(kel_nn_handle_t handle);

/** Extracts the features of one face.
 *
 *  image    112 * 112 bytes, grey: an upright face that fills the picture.
 *  feature  `data` points into the handle: the next extraction overwrites the values, so copy them
 *           before extracting from a second face.
 */
KEL_NN_API int kel_nn_face_feature_extract(kel_nn_handle_t handle, const void* image,
                                           kel_nn_feature_t* feature);

/** How alike two faces are: the inner product of their features, which is the cosine of the angle
 *  between them. 1 is the same direction, -1 the opposite one. Where "the same person" begins
 *  depends on the model.
 *
 *  a, b     Not NULL. `a->len` values are compared; `b->len` is not read. No values give 0.
 */
KEL_NN_API float kel_nn_face_feature_similarity_calcul(const kel_nn_feature_t* a,
                                                       const kel_nn_feature_t* b);

/* Face landmarks: where are eyes, nose and mouth? ---------------------------------------------- */

/** Loads the face landmark model. */
KEL_NN_API int kel_nn_facelm_init(kel_nn_handle_t handle);

/** Releases the face landmark model. */
KEL_NN_API int kel_nn_facelm_deinit(kel_nn_handle_t handle);

/** Finds five points of one face, and which way it looks.
 *
 *  image      112 * 112 bytes, grey: a face that fills the picture.
 *  landmarks  Receives 10 values: x and y of each point, in the model's order.
 *  pose       Receives 3 values. NULL if they are not wanted.
 *
 *  The values are the model's own, neither scaled nor mapped. Both arrays may lie at any address.
 */
KEL_NN_API int kel_nn_facelm_process(kel_nn_handle_t handle, const void* image, float* landmarks,
                                     float* pose);

/* Face classes: which of three kinds of face? -------------------------------------------------- */

/** Loads the face classification model. */
KEL_NN_API int kel_nn_face_classify_init(kel_nn_handle_t handle);

/** Releases the face classification model. */
KEL_NN_API int kel_nn_face_classify_deinit(kel_nn_handle_t handle);

/** Classifies one face.
 *
 *  image     112 * 112 bytes, grey: a face that fills the picture.
 *  class_id  Receives 0, 1 or 2, the class with the largest output; of equal ones the lowest. What
 *            the classes are comes with the model.
 *  score     Receives kel_nn_sigmoid() of that output alone, in 0 to 1. It does not depend on the
 *            other classes and may be below 0.5.
 */
KEL_NN_API int kel_nn_face_classify_process(kel_nn_handle_t handle, const void* image,
                                            int* class_id, float* score);

/* Person classes: is it a person? -------------------------------------------------------------- */

/** Loads the person classification model. */
KEL_NN_API int kel_nn_person_classify_init(kel_nn_handle_t handle);

/** Releases the person classification model. */
KEL_NN_API int kel_nn_person_classify_deinit(kel_nn_handle_t handle);

/** Tells how probable the first of two classes is. Which of them is a person comes with the model.
 *
 *  image    112 * 112 * 3 bytes: what was found, cut out and resized.
 *  score    Receives the probability of class 0; that of class 1 is the rest.
 */
KEL_NN_API int kel_nn_person_classify_process(kel_nn_handle_t handle, const void* image,
                                              float* score);

/* Motion: did the picture really move? --------------------------------------------------------- */

/** Starts the motion filter, which needs no model. There is one in the process, for one camera.
 *
 *  A second start replaces the first. A size that no frame has (negative, or of more than 2^31 - 1
 *  pixels) and a lack of memory are reported by the frames, not here.
 *
 *  handle         Only has to be one.
 *  width, height  Of the frames, in pixels.
 *  returns        0, or -1 for a null handle.
 */
KEL_NN_API int32_t kel_nn_pir_filter_init(kel_nn_handle_t handle, int32_t width, int32_t height);

/** Releases the motion filter's memory; frames fail until the next start. */
KEL_NN_API int32_t kel_nn_pir_filter_deinit(kel_nn_handle_t handle);

/** Takes one frame, and decides at the end of each period whether there was motion.
 *
 *  The frame is halved (of every second row, every second pixel) and smoothed. A pixel has changed
 *  when it differs by more than 20 from the last frame, as did the last frame from the one before.
 *  The first two frames after the start are only remembered. From the third on each has a vote, and
 *  at the end of a period the majority decides; a tie is no motion.
 *
 *  image          The luma plane, `width` * `height` bytes.
 *  width, height  As given at the start.
 *  ratio          From how many changed pixels on a frame votes for motion, in per cent of the
 *                 halved frame. Where that makes less than one pixel, and for NaN, every frame does.
 *  period         Frames in a period, counted from the start on. 0: it never ends.
 *  result         From the third frame on: 1 for motion, 0 for none, -1 as long as the period goes
 *                 on. Unchanged by the first two frames.
 *  returns        0, or -1 for a null argument, another size than at the start, or missing memory.
 *
 *      int32_t moved = -1;
 *      kel_nn_pir_filter_process(handle, luma, 640, 360, 1.0f, 25, &moved);
 *      if (moved == 1) wake_up();
 */
KEL_NN_API int32_t kel_nn_pir_filter_process(kel_nn_handle_t handle, const uint8_t* image,
                                             int32_t width, int32_t height, float ratio,
                                             int32_t period, int32_t* result);

/* Cry detection: is a baby crying? ------------------------------------------------------------- */

/** Loads the cry detection model and prepares an empty window of 3 seconds. Prints the window's
 *  length.
 *
 *  sample_rate     Must be 16000.
 *  gate_threshold  How loud a window must be to be looked at: the sum of |sample| over every tenth
 *                  sample, 4800 of them. Less than 86046 counts as 86046, a mean of about 18.
 *  returns         0, or -1 for a null handle or another sample rate (nothing changes then), when
 *                  memory is short, when the task is initialised already (the window is then empty
 *                  and the new threshold holds) or when the model does not load.
 */
KEL_NN_API int kel_nn_crydet_init(kel_nn_handle_t handle, uint32_t sample_rate,
                                  float gate_threshold);

/** Releases the model and the window. */
KEL_NN_API int kel_nn_crydet_deinit(kel_nn_handle_t handle);

/** Adds sound to the window, and scores the window when it is full.
 *
 *  pcm      `n` samples, mono, 16 kHz. Copied.
 *  n        Any number; best a divisor of 48000, such as 16000. What a window has no room for is
 *           lost, with a warning: windows do not overlap, and the next one starts empty.
 *  score    -1 while the window is not full; 0.00001 for a full window that is too quiet, without
 *           asking the network; else the probability of crying, from 0 to 1. A window that fails
 *           is gone.
 *
 *      float score;
 *      while (record(pcm, 16000)) {
 *        if (kel_nn_crydet_process(handle, pcm, 16000, &score) == 0 && score > 0.5f) alarm();
 *      }
 */
KEL_NN_API int kel_nn_crydet_process(kel_nn_handle_t handle, const int16_t* pcm, uint32_t n,
                                     float* score);

/* -------------------------------------------------------------------------------------------------
 * Primitives: vectors
 *
 * All arithmetic is in single precision, element after element from the first to the last;
 * docs/numerics.md tells why the order matters. Nothing is printed. A null pointer or a count of 0
 * does nothing and gives 0.
 * ---------------------------------------------------------------------------------------------- */

/** Divides the elements by the sum of their absolute values.
 *
 *  returns  The sum, or 0 when it is below 0.00001 (in double precision); the data is then left
 *           alone.
 */
KEL_NN_API float kel_nn_l1norm(float* data, uint32_t n);

/** Divides the elements by the square root of the sum of their squares.
 *
 *  returns  The root, or 0 when the sum of squares (not the root) is below 0.00001; the data is
 *           then left alone.
 */
KEL_NN_API float kel_nn_l2norm(float* data, uint32_t n);

/** Replaces the elements by exp(x) / sum of exp(x).
 *
 *  The largest element is not subtracted first: an element above 88.7 overflows, and the result
 *  holds NaN.
 */
KEL_NN_API void kel_nn_softmax(float* data, uint32_t n);

/** The inner product of `a` and `b`. */
KEL_NN_API float kel_nn_inner(const float* a, const float* b, uint32_t n);

/** The logistic function, 1 / (exp(-x) + 1). */
KEL_NN_API float kel_nn_sigmoid(float x);

/* -------------------------------------------------------------------------------------------------
 * Primitives: boxes
 *
 * All arithmetic is in single precision. The unit of the boxes does not matter.
 * ---------------------------------------------------------------------------------------------- */

/** The area that two boxes share over the area that they cover together (IoU): 0 for boxes that do
 *  not overlap or only touch, and for a null pointer; 1 for equal boxes.
 */
KEL_NN_API float nn_calcu_iou(const kel_nn_box_t* a, const kel_nn_box_t* b);

/* Types of non-maximum suppression. */
#define KEL_NN_NMS_HARD 0     /**< a group becomes its best box */
#define KEL_NN_NMS_WEIGHTED 1 /**< a group becomes a weighted sum of its boxes, see kel_nn_nms() */

/** Thins a list of overlapping boxes (non-maximum suppression), in place.
 *
 *  The best box opens a group and takes in every box that overlaps it with an IoU above
 *  `iou_threshold`; the best of the others opens the next group, and so on. Classes are not
 *  compared.
 *
 *  boxes          Sorted by score, best first, in any order among equal scores; then each group's
 *                 box, in the order of the groups, is written over the front. What follows stays
 *                 sorted.
 *  iou_threshold  An IoU equal to it does not suppress.
 *  nms_type       KEL_NN_NMS_HARD keeps the best box of each group as it is. KEL_NN_NMS_WEIGHTED
 *                 multiplies all boxes of a group with the same weight, exp(score) over the sum of
 *                 exp(score) of the group, and adds them up, scores too; `class_id` becomes 0. The
 *                 weight's score is that of the box that stands in the group's place i, where i is
 *                 the opener's index in the sorted list: only in the first group is that the
 *                 opener. A place that the group does not reach holds what an earlier group left
 *                 there, or a score of 0. The result is not sorted again.
 *  returns        The number of boxes kept. 0 for a null pointer or a count of 0 or less; 0 with an
 *                 error printed for another type, with the list sorted.
 *  memory         Stack: 4 KiB and 20 bytes a box, and never more than 41 KiB; beyond 2048 boxes it
 *                 only gets slower. KEL_NN_NMS_WEIGHTED then takes 12 bytes a box from the heap;
 *                 when memory is short, an error is printed and the list is sorted, as for another
 *                 type.
 */
KEL_NN_API int kel_nn_nms(kel_nn_box_t* boxes, int count, float iou_threshold, int nms_type);

/* -------------------------------------------------------------------------------------------------
 * Primitives: resizing
 *
 * Bilinear interpolation of 8-bit images in fixed point: each destination pixel is made of 4 source
 * pixels, weighted in 2048ths, also where the picture shrinks to less than half and skips others.
 * Corners lie on corners (not the centres of the corner pixels); the same size gives the same
 * picture.
 *
 * src      Read only; at least 2 x 2 pixels. Must not overlap `dst`.
 * dst      Memory for the whole result. Nothing but its pixels is written: padding between rows
 *          stays as it is.
 * w, h     The destination's size in pixels; srcw and srch are the source's.
 * strides  Bytes from the start of a row to the start of the next; a negative one goes upwards.
 * errors   Nothing is printed. A null pointer, a source below 2 x 2, a destination below 1 x 1, or
 *          either of them beyond 2^31 - 128 a side, writes nothing.
 * memory   At most 40 KiB of stack whatever the size, 13 KiB where pointers have 32 bits, and
 *          nothing from the heap.
 * ---------------------------------------------------------------------------------------------- */

/** Resizes an image of 1 channel. */
KEL_NN_API void resize_bilinear_c1(const uint8_t* src, int srcw, int srch, int srcstride,
                                   uint8_t* dst, int w, int h, int stride);

/** Resizes an image of 2 interleaved channels. */
KEL_NN_API void resize_bilinear_c2(const uint8_t* src, int srcw, int srch, int srcstride,
                                   uint8_t* dst, int w, int h, int stride);

/** Resizes an image of 3 interleaved channels. */
KEL_NN_API void resize_bilinear_c3(const uint8_t* src, int srcw, int srch, int srcstride,
                                   uint8_t* dst, int w, int h, int stride);

/** Resizes an image of 4 interleaved channels. */
KEL_NN_API void resize_bilinear_c4(const uint8_t* src, int srcw, int srch, int srcstride,
                                   uint8_t* dst, int w, int h, int stride);

/** Resizes an NV12 image: srcw * srch bytes of luma, then the chroma rows, each srcw / 2 pairs of
 *  bytes (rounded down) that start srcw bytes apart; the destination alike.
 *
 *  An odd `w` leaves the last byte of each chroma row as it is. The chroma is a picture of its own:
 *  it is resized only if the source has at least 4 x 4 pixels, the luma from 2 x 2 on.
 */
KEL_NN_API void resize_bilinear_yuv420sp(const uint8_t* src, int srcw, int srch, uint8_t* dst,
                                         int w, int h);

/** Resizes an image of 1 to 4 interleaved channels without padding; other `channels` write nothing.
 *
 *  returns  -1, always: also after a successful resize. Do not take it for an error.
 *
 *      kel_nn_pixel_resize_bilinear(pixels, 640, 360, image, 416, 234, 3);
 */
KEL_NN_API int kel_nn_pixel_resize_bilinear(const uint8_t* src, int srcw, int srch, uint8_t* dst,
                                            int w, int h, int channels);

/** The same as resize_bilinear_yuv420sp().
 *
 *  returns  0, always.
 */
KEL_NN_API int kel_nn_pixel_resize_bilinear_nv12(const uint8_t* src, int srcw, int srch,
                                                 uint8_t* dst, int w, int h);

/* -------------------------------------------------------------------------------------------------
 * Primitives: audio
 *
 * What cry detection hears: 3 seconds of sound become one row of 64 bytes for every 10 ms, the
 * logarithm of the energy in 64 mel channels. docs/audio.md goes through the steps with their
 * shapes and units; here is the short way:
 *
 *     kel_nn_mfcc_t* context = NULL;
 *     if (kel_nn_mfcc_create(&context, 16000, 0) == 0) {
 *       if (kel_nn_mfcc_process(context, pcm) == 0 && context->has_voice) {
 *         plot(context->feature_u8, context->wave.n_frames);
 *       }
 *       kel_nn_mfcc_destory(&context);
 *     }
 *
 * A counted vector is an array of n + 1 floats: element 0 holds n, the data are elements 1 to n.
 * Routines without a result return nothing; the others return 0, or -1 for an argument that they
 * refuse. A null pointer never crashes. Distinct contexts may be used by different threads.
 * ---------------------------------------------------------------------------------------------- */

/** The mel filter bank: 64 triangular channels over the bins of the transform. Bin k, from 1, is
 *  the frequency (k - 1) * 31.25 Hz.
 */
typedef struct kel_nn_fbank_info {
  int32_t frame_size;  /**< samples of a frame, 512 */
  int32_t num_chans;   /**< channels, 64 */
  int32_t samp_period; /**< 625, in units of 100 ns, whatever the sample rate is */
  int32_t fft_n;       /**< real samples of the transform, 512 */
  int32_t klo;         /**< lowest bin used, 2: bin 1 is the constant part */
  int32_t khi;         /**< highest bin used, 256 */
  int32_t use_power;   /**< 1: a bin counts with its power; 0: with its magnitude */
  int32_t take_logs;   /**< 1: channels give the natural logarithm, of 1 if they have less */
  float fres;          /**< the distance of two bins in Hz, over 700 */
  float* cf;           /**< counted vector, 65: the channels' edges and centres on the mel scale */
  float* lo_chan;      /**< counted vector, 256: the lower one of the two channels a bin feeds, 0
                            for none; -1 for a bin that is not used */
  float* lo_wt;        /**< counted vector, 256: the lower channel's share; the next has the rest */
  float* x;            /**< counted vector, 512: where the transform works */
} kel_nn_fbank_info_t;

/** What one frame needs. */
typedef struct kel_nn_frame_cfg {
  float pre_emphasis;        /**< 0.97, set before every frame */
  int32_t frame_size;        /**< samples of a frame, 512 */
  int32_t position;          /**< copied from the window for every frame; nothing reads it */
  int32_t frame_shift;       /**< the same */
  kel_nn_fbank_info_t fbank; /**< the filter bank */
  float* fbank_out;          /**< counted vector, 64: the frame's channels */
  float* frame;              /**< counted vector, 512: the frame's samples */
} kel_nn_frame_cfg_t;

/** The window: sound in, matrix out. */
typedef struct kel_nn_wave {
  int32_t n_samples;   /**< samples of a window, 48000 */
  int32_t frame_size;  /**< samples of a frame, 512: 32 ms */
  int32_t position;    /**< where the next frame starts in `samples` */
  int32_t frame_shift; /**< samples from one frame's start to the next, 160: 10 ms */
  int32_t n_frames;    /**< frames that count, 297 */
  float* samples;      /**< the window's sound, `n_samples` values from -32768 to 32767 */
  float* features;     /**< `n_frames` rows of 64 values, and a spare row that no result uses */
} kel_nn_wave_t;

/** The context: one window, its settings and the memory for all steps. */
typedef struct kel_nn_mfcc {
  uint8_t* feature_u8;    /**< the result, `n_frames` rows of 64 bytes: what the network sees */
  int32_t has_voice;      /**< 1: the last window was loud enough; 0: `feature_u8` is older */
  int32_t audio_ms;       /**< length of a window, 3000 */
  float* window;          /**< Hamming window in elements 1 to 512; element 0 is not used */
  float gate_threshold;   /**< how loud a window must be, see kel_nn_crydet_init() */
  kel_nn_wave_t wave;     /**< the window */
  kel_nn_frame_cfg_t cfg; /**< what one frame needs */
} kel_nn_mfcc_t;

/** Creates a context that is ready for kel_nn_mfcc_process().
 *
 *  out             Where to put it; untouched on failure. Release it with kel_nn_mfcc_destory().
 *  sample_rate     16000. Other rates change the window's length in samples and nothing else: the
 *                  mel scale is that of 16 kHz.
 *  gate_threshold  See kel_nn_crydet_init().
 *  returns         0, or -1 for a null `out` or when memory is short.
 */
KEL_NN_API int32_t kel_nn_mfcc_create(kel_nn_mfcc_t** out, uint32_t sample_rate,
                                      float gate_threshold);

/** Releases the context that `p` points to and sets that pointer to NULL. If it is NULL already,
 *  nothing happens.
 *
 *  returns  0, or -1 for a null `p`.
 */
KEL_NN_API int32_t kel_nn_mfcc_destory(kel_nn_mfcc_t** p);

/** Computes `has_voice` of one window and, when it is 1, `feature_u8`.
 *
 *  pcm      `wave.n_samples` samples. Read, never changed.
 *  returns  0, or -1 for a null argument or a context without its memory.
 */
KEL_NN_API int32_t kel_nn_mfcc_process(kel_nn_mfcc_t* m, const int16_t* pcm);

/** Sets the fields that say how a window is cut into frames, and the threshold, raised to 86046 if
 *  it is less. A `frame_shift` of 0 gives no frames.
 */
KEL_NN_API int32_t kel_nn_mfcc_para_init(kel_nn_mfcc_t* m, int32_t position, int32_t frame_shift,
                                         int32_t frame_size, int32_t n_samples,
                                         float gate_threshold);

/** Allocates the context's blocks, zeroed, in the sizes that its fields say. What it had before is
 *  not freed.
 *
 *  returns  `feature_u8`; or NULL, with no block left, for a null context or when memory is short.
 */
KEL_NN_API void* kel_nn_mfcc_mem_malloc(kel_nn_mfcc_t* m);

/** Frees the context's blocks and sets their pointers to NULL. */
KEL_NN_API void kel_nn_mfcc_mem_free(kel_nn_mfcc_t* m);

/** All steps for one window, from `wave.position` on: kel_nn_mfcc_process() sets that to 0 first.
 *
 *  pcm      As there. NULL prints an error, and the samples of the window before are used again.
 *  returns  0, or -1 for a null context or one without its memory.
 */
KEL_NN_API int32_t kel_nn_filter_bank(kel_nn_mfcc_t* m, const int16_t* pcm);

/** Copies `n_samples` samples into `w->samples`, as floats of the same value. */
KEL_NN_API int32_t kel_nn_load_data(const int16_t* pcm, kel_nn_wave_t* w);

/** Copies the frame at `position` to dst[0] to dst[frame_size - 1] and moves on by `frame_shift`.
 *  Samples beyond the window are 0.
 */
KEL_NN_API int32_t kel_nn_get_wave(float* dst, kel_nn_wave_t* w);

/** From the samples in `cfg->frame` to the channels in `cfg->fbank_out`: mean, pre-emphasis and
 *  `window` in place, then kel_nn_wave_to_filter_bank().
 */
KEL_NN_API int32_t kel_nn_convert_frame(kel_nn_frame_cfg_t* cfg, kel_nn_wave_t* w,
                                        const float* window);

/** Subtracts the mean of the counted vector from its elements. */
KEL_NN_API void kel_nn_zeromean_frame(float* s);

/** Subtracts from each element `k` times the one before it; the first is multiplied by 1 - `k`, in
 *  an empty vector too, which therefore needs the room of one.
 */
KEL_NN_API int32_t kel_nn_pre_emphasise(float* s, float k);

/** Multiplies the counted vector by `window`, elements 1 to n of both. It computes no distance. */
KEL_NN_API int32_t kel_nn_ham_distance(float* s, const float* window);

/** The energy of a frame in each channel.
 *
 *  s      `info.frame_size` samples from element 1.
 *  fbank  Counted vector of `info.num_chans` elements; its element 0 must be set.
 *  info   Filled by kel_nn_filter_bank_init(). `x` is overwritten.
 */
KEL_NN_API void kel_nn_wave_to_filter_bank(float* s, float* fbank, kel_nn_fbank_info_t info);

/** Copies 64 channels of `cfg->fbank_out` to row `row` of `w->features`, which must be there:
 *  `w->n_frames` is not looked at. A negative row is ignored.
 */
KEL_NN_API void kel_nn_link_data(kel_nn_frame_cfg_t* cfg, kel_nn_wave_t* w, int32_t row);

/** Subtracts from each channel its mean over the rows 0 to `n_frames` - 1. */
KEL_NN_API void kel_nn_zeromean(kel_nn_wave_t* w);

/** Fills `info` for frames of `cfg->frame_size` samples, and the four vectors it points to: `cf` of
 *  65 elements, `lo_chan` and `lo_wt` of half a frame, `x` of a frame.
 */
KEL_NN_API int32_t kel_nn_filter_bank_init(kel_nn_frame_cfg_t* cfg, kel_nn_fbank_info_t* info);

/** The mel value of bin `k`, 1127 ln(1 + (k - 1) * fres). */
KEL_NN_API float kel_nn_mel_filter(int32_t k, float fres);

/** A frequency warped for the length of a speaker's vocal tract: `freq` / `alpha` between the two
 *  cut-offs, straight lines to `min_freq` and `max_freq` outside. An `alpha` of 1 changes nothing.
 */
KEL_NN_API float kel_nn_warp_freq(float fcl, float fcu, float freq, float min_freq, float max_freq,
                                  float alpha);

/** The Fourier transform, in place, of n complex numbers.
 *
 *  s       Counted vector of 2 n elements, real and imaginary parts in turn; n must be a power of
 *          two, or nothing happens.
 *  invert  0: X[k] = sum of x[t] exp(+2 pi i k t / n); else exp(-2 pi i k t / n) / n.
 */
KEL_NN_API void kel_nn_fft(float* s, int32_t invert);

/** The Fourier transform, in place, of 2 n real numbers: bins 1 to n as pairs of real and imaginary
 *  part. Bin 1 is the constant part, its imaginary part 0; the last, bin n + 1, is dropped.
 *
 *  s  Counted vector of 2 n elements; n must be a power of two, or nothing happens.
 */
KEL_NN_API void kel_nn_real_fft(float* s);

/* -------------------------------------------------------------------------------------------------
 * Primitives: decoders
 *
 * They turn the output map of a detection head of one scale into boxes in pixels of the caller's
 * image, row by row. For a head of several scales, decode one after the other into what is left of
 * the array; then suppress overlapping boxes. Of equal class scores, the lowest class wins.
 *
 * A null pointer, a stride of 0, a grid without cells, no classes, a negative count or a map that
 * no memory could hold give 0 boxes. All that is printed is a warning when the array is too short.
 * ---------------------------------------------------------------------------------------------- */

/** What a YOLOv3 head of one scale is like. */
typedef struct kel_nn_yolov3_param {
  int32_t img_w, img_h;     /**< the image in whose pixels boxes are given */
  int32_t input_w, input_h; /**< the network's input */
  int32_t class_num;        /**< how many classes */
  int32_t anchor_num;       /**< anchors in each cell */
  const int32_t* anchors;   /**< width and height of each, in pixels of the network's input */
  float score_threshold;    /**< a box with this score is kept */
} kel_nn_yolov3_param_t;

/** What a CenterNet head with distance bins is like. */
typedef struct kel_nn_centernet_param {
  int32_t img_w, img_h;     /**< the image in whose pixels boxes are given */
  int32_t input_w, input_h; /**< the network's input */
  int32_t reg_max;          /**< the largest distance, in strides; each side has one bin more */
  int32_t class_num;        /**< how many classes */
  float score_threshold;    /**< a box with this score is dropped */
} kel_nn_centernet_param_t;

/** Decodes a YOLOv3 map.
 *
 *  map        input_h / stride rows of input_w / stride cells of `anchor_num` * (5 + `class_num`)
 *             floats: for each anchor x, y, width, height, objectness and the classes, all raw.
 *  boxes      Receives the boxes; `boxes_num` places, and at least one: the first box is written
 *             even when `boxes_num` is 0.
 *  boxes_num  Decoding stops, and a warning is printed, as soon as the array is full, whether or
 *             not there are more boxes.
 *  returns    How many boxes were written.
 */
KEL_NN_API int kel_nn_yolov3_postprocess(const float* map, int stride,
                                         const kel_nn_yolov3_param_t* param, kel_nn_box_t* boxes,
                                         uint32_t boxes_num);

/** Decodes a CenterNet map. Boxes end at the edges of the network's input.
 *
 *  map        input_h / stride rows of input_w / stride cells of `class_num` + 4 * (`reg_max` + 1)
 *             floats: the classes, then the bins of the left, top, right and bottom side, all raw.
 *  boxes      Receives the boxes; `boxes_num` places.
 *  boxes_num  Decoding stops, and a warning is printed, at the first box without a place.
 *  returns    How many boxes were written.
 */
KEL_NN_API int kel_nn_centernet_postprocess(const float* map, int stride,
                                            const kel_nn_centernet_param_t* param,
                                            kel_nn_box_t* boxes, uint32_t boxes_num);

/* -------------------------------------------------------------------------------------------------
 * Engine
 *
 * What the tasks are made of, for models of your own: a graph is a model that can be run, tensors
 * are what goes in and comes out. A graph has one input, an 8-bit image, and up to 16 outputs of
 * floats. All shapes are fixed by the model.
 *
 *     struct kel_nn_graph graph = {0};
 *     size_t shape[4] = {1, 112, 112, 3};
 *     if (kel_nne_graph_init(&graph, "my_model.bin", 1) == 0) {
 *       kel_nn_tensor_t input = kel_nne_graph_get_input_tensor(&graph, 0);
 *       if (kel_nne_tensor_set_dim(input, shape) == 0 &&
 *           kel_nne_tensor_set_buffer(input, image) == 0 && kel_nne_run_graph(&graph) == 0) {
 *         use(kel_nne_tensor_get_buffer(kel_nne_graph_get_output_tensor(&graph, 0)));
 *       }
 *     }
 *     kel_nne_graph_deinit(&graph);
 * ---------------------------------------------------------------------------------------------- */

/** The most inputs, and the most outputs, that a graph gives access to. */
#define KEL_NN_MAX_TENSOR_CNT 16

/** The name of a model file, relative to the model root directory. */
typedef const char* kel_nn_model_t;

/** One input or output. */
typedef struct kel_nn_tensor {
  /** input: the caller's image, borrowed for the run; output: floats, owned by the graph */
  void* buffer;
  /** input: 1, height, width, channels; output: three values that the model gives, then 0 */
  size_t dim[4];
} * kel_nn_tensor_t;

/** A model that can be run. All zero is a graph that is not initialised. Read it through the
 *  functions. kel_nne_graph_deinit() releases what it points to: the first two and `output_data`
 *  are blocks of malloc().
 */
typedef struct kel_nn_graph {
  char* model_path;    /**< root directory and name */
  uint8_t* model_data; /**< the descrambled model */
  void* net;           /**< the runtime's network; NULL: not initialised */
  float* output_data;  /**< the values of all outputs, back to back */
  struct kel_nn_tensor inputs[KEL_NN_MAX_TENSOR_CNT];  /**< the first is used */
  struct kel_nn_tensor outputs[KEL_NN_MAX_TENSOR_CNT]; /**< those that the model has, then zeros */
} * kel_nn_graph_t;

/** Loads a model, learns its shapes from one run on a blank image, and prints them.
 *
 *  scrambled  1: the file is scrambled, as every task's is; 0: the runtime reads the file itself.
 *  returns    0, or -1. When the runtime refuses the model (the printed "load model error" has its
 *             code), the graph counts as initialised until kel_nne_graph_deinit() is called. A
 *             graph that is initialised already stays as it is. After every other failure it is not
 *             initialised. More than 16 outputs print an error too, but the graph works with the
 *             first 16.
 */
KEL_NN_API int kel_nne_graph_init(kel_nn_graph_t graph, kel_nn_model_t model, int scrambled);

/** Releases everything that the graph owns. Does nothing for a graph that is not initialised.
 *
 *  returns  0, or -1 for a null graph.
 */
KEL_NN_API int kel_nne_graph_deinit(kel_nn_graph_t graph);

/** Prints the path, the input and the outputs up to the first without a buffer. Addresses are cut
 *  to 32 bits.
 */
KEL_NN_API void kel_nne_show_graph_info(kel_nn_graph_t graph);

/** The input of that index: a kel_nn_tensor_t, or NULL for a null graph or an index of 16 or more.
 *  An index below 16 that the model does not have gives a tensor without a buffer. The tensor is
 *  part of the graph.
 */
KEL_NN_API void* kel_nne_graph_get_input_tensor(kel_nn_graph_t graph, size_t index);

/** The same for outputs. */
KEL_NN_API void* kel_nne_graph_get_output_tensor(kel_nn_graph_t graph, size_t index);

/** Not supported on this chip: prints an error and returns NULL. */
KEL_NN_API void* kel_nne_graph_get_input_tensor_with_name(kel_nn_graph_t graph, const char* name);

/** Not supported on this chip: prints an error and returns NULL. */
KEL_NN_API void* kel_nne_graph_get_output_tensor_with_name(kel_nn_graph_t graph, const char* name);

/** Checks a shape of four values against the tensor's; it never changes the tensor.
 *
 *  returns  0 when all four are equal, else -1.
 */
KEL_NN_API int kel_nne_tensor_set_dim(kel_nn_tensor_t tensor, size_t* dim);

/** Sets the tensor's buffer. An input's buffer is read by the next run and must live until then.
 *
 *  returns  0, or -1 for a null tensor.
 */
KEL_NN_API int kel_nne_tensor_set_buffer(kel_nn_tensor_t tensor, void* buffer);

/** The tensor's four dimensions, or NULL for a null tensor. */
KEL_NN_API size_t* kel_nne_tensor_get_dim(kel_nn_tensor_t tensor);

/** The tensor's buffer, or NULL for a null tensor. An output's buffer keeps its address until
 *  kel_nne_graph_deinit(); each run overwrites the values.
 */
KEL_NN_API float* kel_nne_tensor_get_buffer(kel_nn_tensor_t tensor);

/** Runs the graph once on the image in input 0. The network gets each byte less 128, as a signed
 *  byte.
 *
 *  returns  0, or -1.
 */
KEL_NN_API int kel_nne_run_graph(kel_nn_graph_t graph);

#ifdef __cplusplus
}
#endif

#endif /* KEL_NN_H_ */
