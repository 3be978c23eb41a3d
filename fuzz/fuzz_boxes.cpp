// SPDX-License-Identifier: Apache-2.0
// Overlap and suppression of any boxes; those of numbers alone beside the plain twin.
#include "support/input.h"
#include "support/plain_boxes.h"

using namespace kelnn_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int type = input.yes()   ? KEL_NN_NMS_HARD
                   : input.yes() ? KEL_NN_NMS_WEIGHTED
                                 : input.number(-2, 3);
  const float threshold = input.yes() ? 0.3f : input.any_float();
  std::vector<kel_nn_box_t> boxes;
  bool is_usual =
      !std::isnan(threshold) && (type == KEL_NN_NMS_HARD || type == KEL_NN_NMS_WEIGHTED);
  while (input.remaining_bytes() > 0 && boxes.size() < 160) {
    kel_nn_box_t box = {};
    float* const fields[] = {&box.cx, &box.cy, &box.w, &box.h, &box.score};
    for (float* field : fields) {
      *field = input.yes() ? static_cast<float>(input.number(-20, 20)) : input.any_float();
      is_usual = is_usual && std::fabs(*field) < 1e9f;
    }
    box.score += 0.0f;  // 0 and -0 are equal, and may come in any order
    box.class_id = input.number(-1, 4);
    boxes.push_back(box);
  }
  for (size_t i = 1; i < boxes.size() && i < 8; ++i) {
    const float iou = nn_calcu_iou(&boxes[0], &boxes[i]);
    if (is_usual) EXPECT(is_same(iou, kelnn_test::plain_iou(boxes[0], boxes[i])));
  }
  std::vector<kel_nn_box_t> thinned = boxes, plain = boxes;
  const int count = static_cast<int>(boxes.size());
  const int kept = kel_nn_nms(thinned.data(), count, threshold, type);
  EXPECT(kept >= 0 && kept <= count);
  if (is_usual) {
    EXPECT(kept ==
           kelnn_test::plain_nms(plain.data(), count, threshold, type == KEL_NN_NMS_WEIGHTED));
    for (int i = 0; i < kept; ++i) EXPECT(is_same(thinned[i], plain[i]));
  }
  return 0;
}
