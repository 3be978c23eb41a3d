/* SPDX-License-Identifier: Apache-2.0 */
/* Decodes the boxes of a detector of your own: own_detector NETWORK.onnx PICTURE.ppm yolov3|centernet
 *
 * The network's first output is a map of one scale. One line for each box: score, class, centre and
 * size in pixels of the picture. In front, how far the first two candidates overlap.
 *
 * Build: make build/own_detector   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include <string.h>

#include "ppm.h"
#include "program.h"

enum { kMaxBoxes = 100 };

/* What the network was trained with. */
static const int32_t kAnchors[] = {16, 16}; /* width and height of one anchor */
static const int32_t kClassCount = 2;       /* of both kinds */
static const float kScoreThreshold = 0.5f, kOverlapThreshold = 0.4f;

/* Scales the picture to the network's input, without keeping its aspect, and runs it there. */
static int run(kel_nn_graph_t graph, const uint8_t* pixels, int width, int height) {
  kel_nn_tensor_t input = kel_nne_graph_get_input_tensor(graph, 0);
  const size_t* shape = kel_nne_tensor_get_dim(input); /* 1, height, width, channels */
  int result = -1;
  if (shape[3] != 3) {
    fprintf(stderr, "the network's input has %zu channels, expected 3\n", shape[3]);
    return -1;
  }
  uint8_t* image = malloc(shape[1] * shape[2] * 3);
  if (image) {
    kel_nn_pixel_resize_bilinear(pixels, width, height, image, (int)shape[2], (int)shape[1], 3);
    if (kel_nne_tensor_set_buffer(input, image) == 0) result = kel_nne_run_graph(graph);
  }
  free(image);
  return result;
}

/* How many boxes, or -1 for a network of another shape. */
static int decode(kel_nn_graph_t graph, int is_yolov3, int width, int height, kel_nn_box_t* boxes) {
  const size_t* input = kel_nne_tensor_get_dim(kel_nne_graph_get_input_tensor(graph, 0));
  kel_nn_tensor_t output = kel_nne_graph_get_output_tensor(graph, 0);
  const float* map = kel_nne_tensor_get_buffer(output);
  const size_t* cells = kel_nne_tensor_get_dim(output); /* rows, columns, values of each */
  const int32_t input_h = (int32_t)input[1], input_w = (int32_t)input[2];
  const int32_t cell_size = (int32_t)cells[2], bins = (cell_size - kClassCount) / 4;
  const size_t stride = cells[1] > 0 ? input[2] / cells[1] : 0;
  const int is_grid = stride > 0 && input[2] / stride == cells[1] && input[1] / stride == cells[0];
  const int is_cell =
      is_yolov3 ? cell_size == 5 + kClassCount : bins > 0 && cell_size == kClassCount + 4 * bins;
  if (!map || !is_grid || !is_cell) {
    fprintf(stderr,
            "output 0 has %zu x %zu cells of %zu values, expected a grid over %zu x %zu pixels ",
            cells[1], cells[0], cells[2], input[2], input[1]);
    fprintf(stderr, is_yolov3 ? "and 5 + %d values\n" : "and %d + 4 n values\n", kClassCount);
    return -1;
  }
  if (is_yolov3) {
    const kel_nn_yolov3_param_t head = {width,       height, input_w,  input_h,
                                        kClassCount, 1,      kAnchors, kScoreThreshold};
    return kel_nn_yolov3_postprocess(map, (int)stride, &head, boxes, kMaxBoxes);
  }
  const kel_nn_centernet_param_t head = {width,    height,      input_w,        input_h,
                                         bins - 1, kClassCount, kScoreThreshold};
  return kel_nn_centernet_postprocess(map, (int)stride, &head, boxes, kMaxBoxes);
}

int main(int argc, char** argv) {
  struct kel_nn_graph graph;
  kel_nn_box_t boxes[kMaxBoxes];
  int width, height, count = -1;
  const int is_yolov3 = argc == 4 && strcmp(argv[3], "yolov3") == 0;
  if (!is_yolov3 && !(argc == 4 && strcmp(argv[3], "centernet") == 0)) {
    fprintf(stderr, "usage: %s NETWORK.onnx PICTURE.ppm yolov3|centernet\n", argv[0]);
    return 2;
  }
  FILE* out = own_output();
  uint8_t* pixels = read_ppm(argv[2], &width, &height);
  memset(&graph, 0, sizeof(graph)); /* not initialised */
  if (out && pixels && kel_nne_graph_init(&graph, argv[1], 0) == 0 &&
      run(&graph, pixels, width, height) == 0) {
    count = decode(&graph, is_yolov3, width, height, boxes);
  }
  if (count > 0) {
    if (count >= 2) fprintf(out, "first two overlap by %g\n", nn_calcu_iou(&boxes[0], &boxes[1]));
    count = kel_nn_nms(boxes, count, kOverlapThreshold, KEL_NN_NMS_HARD);
  }
  for (int i = 0; i < count; ++i) {
    const kel_nn_box_t* box = &boxes[i];
    fprintf(out, "box %.2f class %d at %.1f %.1f size %.1f %.1f\n", box->score, box->class_id,
            box->cx, box->cy, box->w, box->h);
  }
  kel_nne_graph_deinit(&graph);
  free(pixels);
  return count >= 0 ? 0 : 1;
}
