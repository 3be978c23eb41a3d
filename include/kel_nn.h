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
 * Reading order: version and handle, model files, tasks, primitives, engine.
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

#define KEL_NN_API __attribute__((visibility("default")))

/* -------------------------------------------------------------------------------------------------
 * Version and handle
 * ---------------------------------------------------------------------------------------------- */

#define KEL_NN_VERSION_MAJOR 1
#define KEL_NN_VERSION_MINOR 3
#define KEL_NN_VERSION_PATCH 19
#define KEL_NN_BUILD_DATE "2023/03/07"

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
 * releases the model. `_deinit` may be called on any handle, also when the task was never
 * initialised. A second `_init` without `_deinit` fails.
 * ---------------------------------------------------------------------------------------------- */

/* What the detectors share -------------------------------------------------------------------- */

/** One detection. */
typedef struct kel_nn_box {
  float cx, cy;     /**< the centre */
  float w, h;       /**< the size, in the same pixels as the centre */
  float score;      /**< 0 to 1, the higher the surer */
  int32_t class_id; /**< 0 in detectors of one class */
} kel_nn_box_t;

/** A width and a height in pixels. */
typedef struct kel_nn_size {
  int32_t w, h;
} kel_nn_size_t;

/* Face detection: where are faces? ------------------------------------------------------------ */

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
 *  returns        0, or -1 for a null handle, a task that is initialised already or a model that
 *                 does not load.
 */
KEL_NN_API int kel_nn_facedet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the face detection model. The frame size stays.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_facedet_deinit(kel_nn_handle_t handle);

/** Finds the faces in one image.
 *
 *  image    320 * 240 * 3 bytes: the whole frame, scaled to that size without keeping its aspect.
 *  result   Filled on success, untouched on failure. `boxes` points into the task's own storage,
 *           also when there is no face. Pixels are those of the frame size that
 *           kel_nn_facedet_init() was given. Boxes score above 0.8 and overlap with an IoU of at
 *           most 0.3. Of more than 100 candidates, those of the smaller anchors are considered.
 *  returns  0, or -1 for a null argument, a failed run or a model whose outputs are too small.
 *
 *      kel_nn_facedet_result_t faces;
 *      if (kel_nn_facedet_process(handle, image, &faces) == 0) draw(faces.boxes, faces.count);
 */
KEL_NN_API int kel_nn_facedet_process(kel_nn_handle_t handle, const uint8_t* image,
                                      kel_nn_facedet_result_t* result);

/* Person detection: where are people? --------------------------------------------------------- */

#define KEL_NN_PERSONDET_MAX_BOXES 100

/** What a person or four-class detection found. */
typedef struct kel_nn_det_result {
  kel_nn_box_t* boxes; /**< `count` boxes, best score first */
  int32_t count;
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
 *  returns        0, or -1 for a null handle, a task that is initialised already or a model that
 *                 does not load.
 */
KEL_NN_API int kel_nn_persondet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the person detection model.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_persondet_deinit(kel_nn_handle_t handle);

/** Finds the people in one frame.
 *
 *  image       The model's input, `input_size` pixels of 3 channels: the frame, scaled by
 *              max(input_size) / max(frame_size) and centred on a canvas of the model's size.
 *  result      Filled on success, untouched on failure. `boxes` points into the task's own storage,
 *              also when there is nobody. Centres and sizes are whole numbers of pixels of the
 *              frame, cut off at its edges (at pixel 1, not 0, on the left and top; a box that lies
 *              outside may come out with a size of 0 or less). Boxes score at least 0.3 and overlap
 *              with an IoU of at most 0.4 in the image. Of more than KEL_NN_PERSONDET_MAX_BOXES
 *              candidates the first are considered, not the best: coarse grid before fine grid,
 *              from the top left.
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

/* Four-class detection: where are things of four kinds? --------------------------------------- */

#define KEL_NN_4CLSDET_MAX_BOXES 500

/** Loads the four-class detection model for one orientation of frames; the same as
 *  kel_nn_persondet_init(), with models and an orientation of its own.
 */
KEL_NN_API int kel_nn_4clsdet_init(kel_nn_handle_t handle, int width, int height);

/** Releases the four-class detection model.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_4clsdet_deinit(kel_nn_handle_t handle);

/** Finds the objects in one frame; the same as kel_nn_persondet_process(), except that `class_id`
 *  is 0 to 3, as the model defines them, and that KEL_NN_4CLSDET_MAX_BOXES candidates are
 *  considered. Objects of different classes suppress each other where they overlap.
 */
KEL_NN_API int kel_nn_4clsdet_process(kel_nn_handle_t handle, const void* image,
                                      kel_nn_det_result_t* result, const kel_nn_size_t* frame_size,
                                      const kel_nn_size_t* input_size);

/* Face features: who is it? ------------------------------------------------------------------- */

/** The features of one face. */
typedef struct kel_nn_feature {
  float* data;  /**< `len` values whose squares add up to 1; owned by the handle, see below */
  uint32_t len; /**< 256 */
} kel_nn_feature_t;

/** Loads the face feature model.
 *
 *  returns  0, or -1 for a null handle, a task that is initialised already or a model that does not
 *           load.
 */
KEL_NN_API int kel_nn_facercg_init(kel_nn_handle_t handle);

/** Releases the face feature model, and with it the values of all features extracted so far.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_facercg_deinit(kel_nn_handle_t handle);

/** Extracts the features of one face.
 *
 *  image    112 * 112 bytes, grey: an upright face that fills the picture.
 *  feature  Filled on success, untouched on failure. `data` points into the handle: the next
 *           extraction overwrites the values, so copy them before extracting from a second face.
 *  returns  0, or -1 for a null argument or a failed run.
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

/** Types of non-maximum suppression. */
#define KEL_NN_NMS_HARD 0     /**< a group becomes its best box */
#define KEL_NN_NMS_WEIGHTED 1 /**< a group becomes a weighted sum of its boxes, see below */

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
 *  memory         Stack: 3 KiB and 40 bytes a box, and never more than 83 KiB; beyond 2048 boxes it
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
 * errors   Nothing is printed. A null pointer, a source below 2 x 2 or a destination below 1 x 1
 *          writes nothing.
 * memory   At most 40 KiB of stack whatever the size, and nothing from the heap.
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
 *      kel_nn_pixel_resize_bilinear(frame, 640, 360, image, 416, 234, 3);
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
 *  functions.
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
 *             code), the graph counts as initialised until kel_nne_graph_deinit() is called; after
 *             every other failure it is not initialised. More than 16 outputs print an error too,
 *             but the graph works with the first 16.
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
