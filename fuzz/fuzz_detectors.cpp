// SPDX-License-Identifier: Apache-2.0
// What the detectors make of any outputs of their networks, beside the plain twins.
#include "support/input.h"
#include "support/networks.h"
#include "support/plain_boxes.h"
#include "support/plain_detectors.h"
#include "support/scripted_runtime.h"
#include "support/tasks.h"

using namespace kelnn_fuzz;
using namespace kelnn_test;

namespace {

constexpr kel_nn_size_t kInputs[] = {{416, 256}, {320, 320}, {256, 416}},
                        kFrames[] = {{640, 360}, {480, 480}, {360, 640}};

const kel_nn_handle_t handle = handle_with_models();
std::vector<uint8_t> image(416 * 320 * 3, 130);

// Puts the input's values where networks find something; the rest finds nothing.
void scatter(Input& input, std::vector<float>* output, size_t row,
             const std::vector<float>& row_of_nothing) {
  for (size_t i = 0; i < output->size(); ++i) (*output)[i] = row_of_nothing[i % row];
  for (int count = input.number(0, 24); count > 0; --count) {
    const size_t at = input.number<size_t>(0, output->size() / row - 1) * row;
    for (size_t i = 0; i < row; ++i) (*output)[at + i] = input.usual_float();
  }
}

bool is_finite(const kel_nn_box_t& box) {
  return std::isfinite(box.cx) && std::isfinite(box.cy) && std::isfinite(box.w) &&
         std::isfinite(box.h);
}

void faces(Input& input) {
  FaceNetwork network;
  for (size_t i = 0; i < network.outputs.size(); ++i) {
    i % 2 == 0 ? scatter(input, &network.outputs[i], 2, {2, 0})
               : scatter(input, &network.outputs[i], 4, {0, 0, 0, 0});
  }
  scripted_runtime().play({320, 240, 3}, network.outputs);
  const int width = input.number(1, 8192), height = input.number(1, 8192);
  kel_nn_facedet_init(handle, width,
                      height);  // but for the first time refused, and takes the size over
  kel_nn_facedet_result_t result = {};
  EXPECT(kel_nn_facedet_process(handle, image.data(), &result) == 0);
  EXPECT(result.count >= 0 && result.count <= 100);
  static const std::vector<PlainAnchor> anchors = plain_face_anchors();
  std::vector<kel_nn_box_t> plain(100);
  float *scores[4], *regressions[4];
  for (int level = 0; level < 4; ++level) {
    scores[level] = network.outputs[2 * level].data();
    regressions[level] = network.outputs[2 * level + 1].data();
  }
  const int candidates =
      plain_decode_faces(anchors, scores, regressions, width, height, plain.data());
  bool is_usual = true;
  for (int i = 0; i < candidates; ++i) is_usual = is_usual && is_finite(plain[i]);
  if (is_usual) {
    EXPECT(result.count == plain_nms(plain.data(), candidates, 0.3f, false));
    for (int i = 0; i < result.count; ++i) EXPECT(is_same(result.boxes[i], plain[i]));
  }
  if (input.number(0, 63) == 0) EXPECT(kel_nn_facedet_deinit(handle) == 0);
}

// Loading takes longest, and is done for another orientation only than the one that is `loaded`.
template <class Init, class Process, class Deinit>
void grids(Input& input, const PlainGrid& detector, int* loaded, Init init, Process process,
           Deinit deinit) {
  const int orientation = input.number(0, 2);
  const kel_nn_size_t size = kInputs[orientation];
  GridNetwork network(detector.values_per_anchor, size);
  std::vector<float> nothing(detector.values_per_anchor);
  nothing[4] = -20;
  for (auto& output : network.outputs) scatter(input, &output, nothing.size(), nothing);
  scripted_runtime().play({size.w, size.h, 3}, network.outputs);
  if (*loaded != orientation) {
    EXPECT(deinit(handle) == 0);
    EXPECT(init(handle, kFrames[orientation].w, kFrames[orientation].h) == 0);
    *loaded = orientation;
  }
  kel_nn_size_t frame = kFrames[orientation];
  if (input.yes()) frame = {input.number(1, 8192), input.number(1, 8192)};
  const bool is_hostile = input.number(0, 7) == 0;
  if (is_hostile) frame = {input.ConsumeIntegral<int32_t>(), input.ConsumeIntegral<int32_t>()};
  kel_nn_det_result_t result = {};
  EXPECT(process(handle, image.data(), &result, &frame, &size) == 0);
  EXPECT(result.count >= 0 && result.count <= detector.max_boxes);
  std::vector<kel_nn_box_t> plain(detector.max_boxes);
  const float* const outputs[] = {network.outputs[0].data(), network.outputs[1].data()};
  const int candidates = plain_decode_grids(detector, size, outputs, size, plain.data());
  bool is_usual = !is_hostile;
  for (int i = 0; i < candidates; ++i) {
    is_usual = is_usual && is_finite(plain[i]) && plain[i].w < 1e5f && plain[i].h < 1e5f;
  }
  if (is_usual) {
    EXPECT(result.count == plain_nms(plain.data(), candidates, 0.4f, false));
    for (int i = 0; i < result.count; ++i)
      EXPECT(is_same(result.boxes[i], plain_map_to_frame(plain[i], frame, size)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static int loaded[2] = {-1, -1};
  Input input(data, size);
  switch (input.number(0, 2)) {
    case 0:
      faces(input);
      break;
    case 1:
      grids(input, kPlainPersons, &loaded[0], kel_nn_persondet_init, kel_nn_persondet_process,
            kel_nn_persondet_deinit);
      break;
    default:
      grids(input, kPlainFourClasses, &loaded[1], kel_nn_4clsdet_init, kel_nn_4clsdet_process,
            kel_nn_4clsdet_deinit);
  }
  return 0;
}
