// SPDX-License-Identifier: Apache-2.0
// The decoders of heads of one's own, with any parameters and maps; beside the plain twins where there is a grid.
#include "support/input.h"
#include "support/plain_decoders.h"

using namespace kelnn_fuzz;

namespace {

template <class Param>
void usual_geometry(Input& input, int* stride, Param* param) {
  *stride = 1 << input.number(0, 5);
  const int most = input.number(0, 7) == 0 ? 16 : 4;  // cells to a side
  param->input_w = input.number(1, most) * *stride;
  param->input_h = input.number(1, most) * *stride;
  param->img_w = input.number(0, 4096);
  param->img_h = input.number(0, 4096);
  param->class_num = input.number(1, 12);
}

// `most`: what a map of that size can have.
template <class Param, class Decode, class Plain>
void compare(Input& input, const std::vector<float>& map, int stride, const Param& param,
             size_t most, Decode decode, Plain plain) {
  const size_t places = input.number<size_t>(0, most);
  std::vector<kel_nn_box_t> boxes(std::max<size_t>(places, 1)), all(most);
  const int count = decode(map.data(), stride, &param, boxes.data(), static_cast<uint32_t>(places));
  const int wanted = plain(map.data(), stride, param, all.data());
  EXPECT(count >= 0 && static_cast<size_t>(count) <= boxes.size() && count <= wanted);
  EXPECT(count == wanted || static_cast<size_t>(count) >= places);
  for (int i = 0; i < count; ++i) EXPECT(is_same(boxes[i], all[i]));
}

// Numbers that no head has: nothing is read, since there is no map.
template <class Param, class Decode>
void hostile(Input& input, Param* param, Decode decode) {
  kel_nn_box_t box;
  const float map[1] = {0};
  param->input_w = input.ConsumeIntegral<int32_t>();
  param->input_h = input.ConsumeIntegral<int32_t>();
  param->class_num = input.yes() ? 0 : -param->class_num;
  EXPECT(decode(map, input.ConsumeIntegral<int>(), param, &box, 1) == 0);
}

void yolov3(Input& input) {
  kel_nn_yolov3_param_t param = {};
  int stride;
  usual_geometry(input, &stride, &param);
  param.anchor_num = input.number(1, 4);
  const std::vector<int32_t> anchors = {10,  13, input.ConsumeIntegral<int32_t>(), 30, 0, -4,
                                        400, 2};
  param.anchors = anchors.data();
  param.score_threshold = input.usual_float();
  const size_t values = static_cast<size_t>(param.anchor_num) * (5 + param.class_num);
  const size_t cells = static_cast<size_t>(param.input_w / stride) * (param.input_h / stride);
  const std::vector<float> map = input.floats(cells * values);
  compare(input, map, stride, param, cells * param.anchor_num, kel_nn_yolov3_postprocess,
          kelnn_test::plain_yolov3);
  hostile(input, &param, kel_nn_yolov3_postprocess);
}

void centernet(Input& input) {
  kel_nn_centernet_param_t param = {};
  int stride;
  usual_geometry(input, &stride, &param);
  param.reg_max = input.number(0, 20);
  param.score_threshold = input.usual_float();
  const size_t values = param.class_num + 4 * (param.reg_max + 1);
  const size_t cells = static_cast<size_t>(param.input_w / stride) * (param.input_h / stride);
  const std::vector<float> map = input.floats(cells * values);
  compare(input, map, stride, param, cells, kel_nn_centernet_postprocess,
          kelnn_test::plain_centernet);
  hostile(input, &param, kel_nn_centernet_postprocess);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  input.yes() ? yolov3(input) : centernet(input);
  return 0;
}
