/* SPDX-License-Identifier: Apache-2.0 */
/* Decodes the boxes of a detector of your own: own_detector NETWORK.onnx PICTURE.ppm yolov3|centernet
 *
 * The network's first output is a map of one scale. One line for each box: score, class, centre and
 * size in pixels of the picture. In front, how far the first two candidates overlap.
 */
#include <string.h>

#include "kel_nn.h"
#include "ppm.h"

enum { kMaxBoxes = 100 };

/* What the network was trained with. */
static const int32_t kAnchors[] = {16, 16}; /* width and height of one anchor */
static const int32_t kClassCount = 2;       /* of both kinds */
static const float kScoreThreshold = 0.5f, kOverlapThreshold = 0.4f;

/* Scales the picture to the network's input, without keeping its aspect, and runs it there. */
static int run(kel_nn_graph_t graph, const uint8_t* pixels, int width, int height) {
  kel_nn_tensor_t input = kel_nne_graph_get_input_tensor(graph, 0);
  const size_t* shape = kel_nne_tensor_get_dim(input); /* 1, height, width, channels */
  uint8_t* image = shape[3] == 3 ? malloc(shape[1] * shape[2] * 3) : NULL;
  int result = -1;
  if (image) {
    kel_nn_pixel_resize_bilinear(pixels, width, height, image, (int)shape[2], (int)shape[1], 3);
    if (kel_nne_tensor_set_buffer(input, image) == 0) result = kel_nne_run_graph(graph);
  }
  free(image);
  return result;
}

static int decode(kel_nn_graph_t graph, int is_yolov3, int width, int height, kel_nn_box_t* boxes) {
  const size_t* input = kel_nne_tensor_get_dim(kel_nne_graph_get_input_tensor(graph, 0));
  kel_nn_tensor_t output = kel_nne_graph_get_output_tensor(graph, 0);
  const float* map = kel_nne_tensor_get_buffer(output);
  const size_t* cells = kel_nne_tensor_get_dim(output); /* rows, columns, values of a cell */
  const int32_t input_h = (int32_t)input[1], input_w = (int32_t)input[2];
  const int32_t cell_size = (int32_t)cells[2];
  if (!map || cells[1] == 0) return 0;
  const int stride = input_w / (int)cells[1];
  if (is_yolov3) {
    const kel_nn_yolov3_param_t head = {width,       height, input_w,  input_h,
                                        kClassCount, 1,      kAnchors, kScoreThreshold};
    if (cell_size != 5 + kClassCount) return 0;
    return kel_nn_yolov3_postprocess(map, stride, &head, boxes, kMaxBoxes);
  } else {
    const int32_t reg_max = (cell_size - kClassCount) / 4 - 1;
    const kel_nn_centernet_param_t head = {width,   height,      input_w,        input_h,
                                           reg_max, kClassCount, kScoreThreshold};
    if (cell_size != kClassCount + 4 * (reg_max + 1)) return 0;
    return kel_nn_centernet_postprocess(map, stride, &head, boxes, kMaxBoxes);
  }
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
  uint8_t* pixels = read_ppm(argv[2], &width, &height);
  memset(&graph, 0, sizeof(graph)); /* not initialised */
  if (pixels && kel_nne_graph_init(&graph, argv[1], 0) == 0 &&
      run(&graph, pixels, width, height) == 0) {
    count = decode(&graph, is_yolov3, width, height, boxes);
    if (count >= 2) printf("first two overlap by %g\n", nn_calcu_iou(&boxes[0], &boxes[1]));
    count = kel_nn_nms(boxes, count, kOverlapThreshold, KEL_NN_NMS_HARD);
  }
  for (int i = 0; i < count; ++i) {
    const kel_nn_box_t* box = &boxes[i];
    printf("box %.2f class %d at %.1f %.1f size %.1f %.1f\n", box->score, box->class_id, box->cx,
           box->cy, box->w, box->h);
  }
  kel_nne_graph_deinit(&graph);
  free(pixels);
  return count >= 0 ? 0 : 1;
}
