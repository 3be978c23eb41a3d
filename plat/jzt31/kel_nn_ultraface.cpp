// SPDX-License-Identifier: Apache-2.0
// Face detection: boxes of the faces in one 320 x 240 colour image, in pixels of the caller's
// frame.
#include "kel_nn_ultraface.h"

#include <algorithm>
#include <cmath>

#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

using kelnn::FaceAnchors;
using kelnn::FaceLevelOutputs;
using kelnn::kFaceLevels;
using kelnn::kFaceLevelTable;
using kelnn::kMaxFaces;

constexpr kelnn::ImageShape kInput = {/*height=*/240, /*width=*/320, /*channels=*/3};
constexpr float kScoreThreshold = 0.8f;  // a face scores more than this
constexpr float kNmsThreshold = 0.3f;
constexpr float kCentreVariance = 0.1f, kSizeVariance = 0.2f;

struct State {  // one per process; all zero until _init
  int frame_width, frame_height;
  FaceAnchors anchors[kFaceLevels];
  kel_nn_box_t boxes[kMaxFaces];  // what the last result points at
} g_state;

float clamp(float x) { return x < 0.0f ? 0.0f : x > 1.0f ? 1.0f : x; }

void fill_centres(float* centres, int count) {
  for (int i = 0; i < count; ++i) centres[i] = clamp(static_cast<float>((i + 0.5) / count));
}

// kel_nn_softmax() of each anchor's two scores; tells whether there is a face among them. All
// exponentials first: the rest then becomes SIMD.
KEL_NN_ALWAYS_INLINE int softmax_pairs(float* scores, int anchor_count) {
  for (int i = 0; i < 2 * anchor_count; ++i) scores[i] = std::exp(scores[i]);
  int has_face = 0;
  for (int i = 0; i < anchor_count; ++i) {
    const float sum = scores[2 * i] + scores[2 * i + 1];
    scores[2 * i] /= sum;
    scores[2 * i + 1] /= sum;
    has_face |= scores[2 * i + 1] > kScoreThreshold;
  }
  return has_face;
}

KEL_NN_TARGET_CLONES
bool softmax_has_face(float* scores, int anchor_count) {
#if KEL_NN_HAS_VECTORS
  return softmax_pairs(scores, anchor_count);
#else
  // One by one they stay in registers.
  int has_face = 0;
  for (int i = 0; i < anchor_count; ++i) has_face |= softmax_pairs(scores + 2 * i, 1);
  return has_face;
#endif
}

// `class_id` is not touched: it is 0 in the state's boxes, which is what callers see.
void decode_face(const FaceAnchors& anchors, int row, int column, int size, const float* regression,
                 float frame_width, float frame_height, kel_nn_box_t* box) {
  const float width = anchors.widths[size], height = anchors.heights[size];
  const float cx = anchors.column_centres[column], cy = anchors.row_centres[row];
  box->cx = frame_width * clamp(cx + regression[0] * kCentreVariance * width);
  box->cy = frame_height * clamp(cy + regression[1] * kCentreVariance * height);
  box->w = frame_width * clamp(std::exp(regression[2] * kSizeVariance) * width);
  box->h = frame_height * clamp(std::exp(regression[3] * kSizeVariance) * height);
}

}  // namespace

namespace kelnn {

KEL_NN_COLD void fill_face_anchors(FaceAnchors (&anchors)[kFaceLevels]) {
  for (int l = 0; l < kFaceLevels; ++l) {
    const kelnn::FaceLevel& level = kFaceLevelTable[l];
    fill_centres(anchors[l].column_centres, level.columns);
    fill_centres(anchors[l].row_centres, level.rows);
    for (int a = 0; a < level.anchor_count; ++a) {
      const float size = static_cast<float>(level.anchor_sizes[a]);
      anchors[l].widths[a] = clamp(size / static_cast<float>(kInput.width));
      anchors[l].heights[a] = clamp(size / static_cast<float>(kInput.height));
    }
  }
}

int decode_faces(const FaceAnchors (&anchors)[kFaceLevels],
                 const FaceLevelOutputs (&outputs)[kFaceLevels], int frame_width, int frame_height,
                 kel_nn_box_t* boxes) {
  const float width = static_cast<float>(frame_width), height = static_cast<float>(frame_height);
  int count = 0;
  for (int l = 0; l < kFaceLevels; ++l) {
    const kelnn::FaceLevel& level = kFaceLevelTable[l];
    const int row_length = level.columns * level.anchor_count;
    for (int row = 0; row < level.rows; ++row) {
      float* scores = outputs[l].scores + 2 * row * row_length;
      const float* regressions = outputs[l].regressions + 4 * row * row_length;
      // Also when there is no room for more boxes: the scores can be seen in the output.
      if (!softmax_has_face(scores, row_length)) continue;
      for (int i = 0; i < row_length && count < kMaxFaces; ++i) {
        const float score = scores[2 * i + 1];
        if (!(score > kScoreThreshold)) continue;
        kel_nn_box_t& box = boxes[count++];
        decode_face(anchors[l], row, i / level.anchor_count, i % level.anchor_count,
                    regressions + 4 * i, width, height, &box);
        box.score = clamp(score);
      }
    }
  }
  return count;
}

}  // namespace kelnn

KEL_NN_COLD int kel_nn_facedet_init(kel_nn_handle_t handle, int width, int height) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  // Also when the graph is initialised already and refuses: the interface says so.
  g_state.frame_width = width;
  g_state.frame_height = height;
  kelnn::fill_face_anchors(g_state.anchors);
  return kel_nne_graph_init(&handle->graph_facedet, kelnn::kFaceDetectionModel, kelnn::kScrambled);
}

int kel_nn_facedet_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_facedet);
}

int kel_nn_facedet_process(kel_nn_handle_t handle, const uint8_t* image,
                           kel_nn_facedet_result_t* result) {
  KEL_NN_FAIL_IF(!handle || !image || !result, -1, "Invalid arguments.");
  const kel_nn_graph_t graph = &handle->graph_facedet;
  if (!kelnn::run_image(graph, kInput, image).ok()) return -1;  // the engine has said why
  FaceLevelOutputs outputs[kFaceLevels];
  for (int l = 0; l < kFaceLevels; ++l) {
    const int anchors = kFaceLevelTable[l].total();
    outputs[l] = {kelnn::output_data(graph, 2 * l, 2 * anchors),
                  kelnn::output_data(graph, 2 * l + 1, 4 * anchors)};
    const bool complete = outputs[l].scores && outputs[l].regressions;
    KEL_NN_FAIL_IF(!complete, -1, "Outputs %d and %d are too small for %d anchors.", 2 * l,
                   2 * l + 1, anchors);
  }
  result->count = kelnn::decode_faces(g_state.anchors, outputs, g_state.frame_width,
                                      g_state.frame_height, g_state.boxes);
  result->count = kel_nn_nms(g_state.boxes, result->count, kNmsThreshold, KEL_NN_NMS_HARD);
  result->boxes = g_state.boxes;
  return 0;
}
