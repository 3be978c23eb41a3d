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

/* Face landmarks: where are eyes, nose and mouth? ---------------------------------------------- */

/** Loads the face landmark model.
 *
 *  returns  0, or -1 for a null handle, a task that is initialised already or a model that does not
 *           load.
 */
KEL_NN_API int kel_nn_facelm_init(kel_nn_handle_t handle);

/** Releases the face landmark model.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_facelm_deinit(kel_nn_handle_t handle);

/** Finds five points of one face, and which way it looks.
 *
 *  image      112 * 112 bytes, grey: a face that fills the picture.
 *  landmarks  Receives 10 values: x and y of each point, in the model's order.
 *  pose       Receives 3 values. NULL if they are not wanted.
 *  returns    0, or -1 for a null argument or a failed run; the arrays are then unchanged.
 *
 *  The values are the model's own, neither scaled nor mapped. Both arrays may lie at any address.
 */
KEL_NN_API int kel_nn_facelm_process(kel_nn_handle_t handle, const void* image, float* landmarks,
                                     float* pose);

/* Face classes: which of three kinds of face? -------------------------------------------------- */

/** Loads the face classification model.
 *
 *  returns  0, or -1 for a null handle, a task that is initialised already or a model that does not
 *           load.
 */
KEL_NN_API int kel_nn_face_classify_init(kel_nn_handle_t handle);

/** Releases the face classification model.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_face_classify_deinit(kel_nn_handle_t handle);

/** Classifies one face.
 *
 *  image     112 * 112 bytes, grey: a face that fills the picture.
 *  class_id  Receives 0, 1 or 2, the class with the largest output; of equal ones the lowest. What
 *            the classes are comes with the model.
 *  score     Receives kel_nn_sigmoid() of that output alone, in 0 to 1. It does not depend on the
 *            other classes and may be below 0.5.
 *  returns   0, or -1 for a null argument or a failed run; the results are then unchanged.
 */
KEL_NN_API int kel_nn_face_classify_process(kel_nn_handle_t handle, const void* image,
                                            int* class_id, float* score);

/* Person classes: is it a person? -------------------------------------------------------------- */

/** Loads the person classification model.
 *
 *  returns  0, or -1 for a null handle, a task that is initialised already or a model that does not
 *           load.
 */
KEL_NN_API int kel_nn_person_classify_init(kel_nn_handle_t handle);

/** Releases the person classification model.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int kel_nn_person_classify_deinit(kel_nn_handle_t handle);

/** Tells how probable the first of two classes is. Which of them is a person comes with the model.
 *
 *  image    112 * 112 * 3 bytes: what was found, cut out and resized.
 *  score    Receives the probability of class 0; that of class 1 is the rest.
 *  returns  0, or -1 for a null argument or a failed run; `score` is then unchanged.
 */
KEL_NN_API int kel_nn_person_classify_process(kel_nn_handle_t handle, const void* image,
                                              float* score);

/* Motion: did the picture really move? --------------------------------------------------------- */

/** Starts the motion filter, which needs no model. There is one in the process, for one camera.
 *
 *  A second start replaces the first. A size that no frame has (negative, or of more than 2^31 - 1
 *  pixels) and a lack of memory are reported by the frames, not here.
 *
 *  handle   Only has to be one.
 *  width    Of the frames, in pixels.
 *  height   Of the frames, in pixels.
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int32_t kel_nn_pir_filter_init(kel_nn_handle_t handle, int32_t width, int32_t height);

/** Releases the motion filter's memory; frames fail until the next start.
 *
 *  returns  0, or -1 for a null handle.
 */
KEL_NN_API int32_t kel_nn_pir_filter_deinit(kel_nn_handle_t handle);

/** Takes one frame, and decides at the end of each period whether there was motion.
 *
 *  The frame is halved (of every second row, every second pixel) and smoothed. A pixel has changed
 *  when it differs by more than 20 from the last frame, as did the last frame from the one before.
 *  The first two frames after the start are only remembered. From the third on each has a vote, and
 *  at the end of a period the majority decides; a tie is no motion.
 *
 *  image    The luma plane, `width` * `height` bytes.
 *  width    As given at the start.
 *  height   As given at the start.
 *  ratio    From how many changed pixels on a frame votes for motion, in per cent of the halved
 *           frame. Where that makes less than one pixel, and for NaN, every frame does.
 *  period   Frames in a period, counted from the start on. 0: it never ends.
 *  result   From the third frame on: 1 for motion, 0 for none, -1 as long as the period goes on.
 *           Unchanged by the first two frames and after an error.
 *  returns  0, or -1 for a null argument, another size than at the start, or missing memory.
 *
 *      int32_t moved = -1;
 *      kel_nn_pir_filter_process(handle, luma, 640, 360, 1.0f, 25, &moved);
 *      if (moved == 1) wake_up();
 */
KEL_NN_API int32_t kel_nn_pir_filter_process(kel_nn_handle_t handle, const uint8_t* image,
                                             int32_t width, int32_t height, float ratio,
                                             int32_t period, int32_t* result);

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
 * Primitives: decoders
 *
 * They turn the output map of a detection head of one scale into boxes in pixels of the caller's
 * image, row by row. For a head of several scales, decode one after the other into what is left of
 * the array; then suppress overlapping boxes. Of equal class scores, the lowest class wins.
 *
 * A null pointer, a stride of 0, a grid without cells, no classes, a negative count or a map that no
 * memory could hold give 0 boxes. All that is printed is a warning when the array is too short.
 * ---------------------------------------------------------------------------------------------- */

/** What a YOLOv3 head of one scale is like. */
typedef struct kel_nn_yolov3_param {
  int32_t img_w, img_h;     /**< the image in whose pixels boxes are given */
  int32_t input_w, input_h; /**< the network's input */
  int32_t class_num;
  int32_t anchor_num;     /**< in each cell */
  const int32_t* anchors; /**< width and height of each, in pixels of the network's input */
  float score_threshold;  /**< a box with this score is kept */
} kel_nn_yolov3_param_t;

/** What a CenterNet head with distance bins is like. */
typedef struct kel_nn_centernet_param {
  int32_t img_w, img_h;     /**< the image in whose pixels boxes are given */
  int32_t input_w, input_h; /**< the network's input */
  int32_t reg_max;          /**< the largest distance, in strides; each side has one bin more */
  int32_t class_num;
  float score_threshold; /**< a box with this score is dropped */
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
