/* SPDX-License-Identifier: Apache-2.0 */
/* Runs a network of your own on a picture: own_network NETWORK.onnx PICTURE.ppm [OUTPUT]
 *
 * The network takes any picture of 3 channels. One line for each value of its first output: as it
 * is, as a probability of its own, as a probability among the others, as a part of the sum of
 * magnitudes and as a coordinate of a vector of length 1.
 *
 * Build: make build/own_network   Run: README.md
 */
#define _POSIX_C_SOURCE 200112L /* for program.h */

#include <math.h>
#include <string.h>

#include "ppm.h"
#include "program.h"

/* Scales the picture to the network's input and runs it there. */
static int run(kel_nn_graph_t graph, const uint8_t* pixels, int width, int height) {
  kel_nn_tensor_t input = kel_nne_graph_get_input_tensor(graph, 0);
  size_t shape[4];
  memcpy(shape, kel_nne_tensor_get_dim(input), sizeof(shape)); /* 1, height, width, channels */
  int result = -1;
  if (shape[3] != 3) {
    fprintf(stderr, "the network's input has %zu channels, expected 3\n", shape[3]);
    return -1;
  }
  uint8_t* image = malloc(shape[1] * shape[2] * 3);
  if (image) {
    kel_nn_pixel_resize_bilinear(pixels, width, height, image, (int)shape[2], (int)shape[1], 3);
    if (kel_nne_tensor_set_dim(input, shape) == 0 && kel_nne_tensor_set_buffer(input, image) == 0) {
      result = kel_nne_run_graph(graph);
    }
  }
  free(image);
  return result;
}

/* By name only where the chip can do that: on the T31 the library says so and gives NULL. */
static kel_nn_tensor_t output_of(kel_nn_graph_t graph, const char* name) {
  kel_nn_tensor_t output = name ? kel_nne_graph_get_output_tensor_with_name(graph, name) : NULL;
  return output ? output : kel_nne_graph_get_output_tensor(graph, 0);
}

static int print_values(kel_nn_tensor_t output, FILE* out) {
  const size_t* dim = kel_nne_tensor_get_dim(output);
  const float* values = kel_nne_tensor_get_buffer(output);
  const uint32_t count = (uint32_t)(dim[0] * dim[1] * dim[2]);
  const size_t size = count * sizeof(float);
  float *soft = malloc(size), *part = malloc(size), *unit = malloc(size);
  const int ok = values && soft && part && unit;
  if (ok) {
    memcpy(soft, values, size);
    memcpy(part, values, size);
    memcpy(unit, values, size);
    kel_nn_softmax(soft, count);
    kel_nn_l1norm(part, count);
    kel_nn_l2norm(unit, count);
    fprintf(out, "length %g\n", sqrt(kel_nn_inner(values, values, count)));
    for (uint32_t i = 0; i < count; ++i) {
      fprintf(out, "%u value %g sigmoid %g softmax %g part %g unit %g\n", i, values[i],
              kel_nn_sigmoid(values[i]), soft[i], part[i], unit[i]);
    }
  }
  free(soft);
  free(part);
  free(unit);
  return ok ? 0 : -1;
}

int main(int argc, char** argv) {
  struct kel_nn_graph graph;
  int width, height, result = -1;
  if (argc < 3 || argc > 4) {
    fprintf(stderr, "usage: %s NETWORK.onnx PICTURE.ppm [OUTPUT]\n", argv[0]);
    return 2;
  }
  FILE* out = own_output();
  uint8_t* pixels = read_ppm(argv[2], &width, &height);
  memset(&graph, 0, sizeof(graph)); /* not initialised */
  if (out && pixels && kel_nne_graph_init(&graph, argv[1], 0) == 0 &&
      run(&graph, pixels, width, height) == 0) {
    result = print_values(output_of(&graph, argc == 4 ? argv[3] : NULL), out);
  }
  kel_nne_graph_deinit(&graph);
  free(pixels);
  return result == 0 ? 0 : 1;
}
