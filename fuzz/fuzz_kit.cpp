// SPDX-License-Identifier: Apache-2.0
// The kit on frames of any size, format and stride: the image is whole or untouched, and nothing beside it is written.
#include "kel_nn_kit.h"
#include "support/input.h"

using namespace kelnn_fuzz;

namespace {

constexpr uint8_t kUntouched = 0xa5;

bool is_code(int code) { return code <= 0 && code > -16; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  kel_nn_kit_frame_t frame = {};
  frame.format = static_cast<kel_nn_kit_format_t>(input.number(0, 4));
  const bool is_nv12 = frame.format == KEL_NN_KIT_NV12 || frame.format == KEL_NN_KIT_NV12_FULL;
  frame.width = input.side(160);
  frame.height = input.side(160);
  const int row =
      is_nv12 ? (frame.width + 1) / 2 * 2 : frame.width * (frame.format == KEL_NN_KIT_GREY ? 1 : 3);
  frame.stride = row + (input.yes() ? input.number(0, 40) : 0);
  const int rows = frame.height + (is_nv12 ? (frame.height + 1) / 2 : 0);
  const std::vector<uint8_t> pixels = input.bytes(static_cast<size_t>(frame.stride) * rows);
  frame.data = pixels.data();
  if (is_nv12 && input.yes())
    frame.chroma = frame.data + static_cast<size_t>(frame.stride) * frame.height;
  if (input.number(0, 15) == 0)
    frame.height = input.ConsumeIntegral<int>() | 0x40000000;  // refused: the data are not

  kel_nn_kit_image_t image = {};
  image.width = input.side(130);
  image.height = input.side(130);
  image.format =
      input.yes() ? KEL_NN_KIT_RGB : static_cast<kel_nn_kit_format_t>(input.number(0, 4));
  const size_t bytes =
      static_cast<size_t>(image.width) * image.height * (image.format == KEL_NN_KIT_GREY ? 1 : 3);
  std::vector<uint8_t> made(bytes, kUntouched);
  image.data = made.data();
  kel_nn_kit_scratch_t scratch = {nullptr, 0};
  if (input.yes()) image.scratch = &scratch;

  int code = 0;
  switch (input.number(0, 3)) {
    case 0:
      code = kel_nn_kit_scale(&frame, &image);
      break;
    case 1:
      code = kel_nn_kit_letterbox(&frame, &image);
      break;
    case 2: {
      const kel_nn_box_t box = {input.usual_float() * 30,
                                input.usual_float() * 30,
                                input.usual_float() * 40,
                                input.usual_float() * 40,
                                1,
                                0};
      kel_nn_kit_rect_t rect = kel_nn_kit_rect_of_box(&box);
      if (input.yes()) rect.x = input.ConsumeIntegral<int>();
      if (input.yes()) rect.w = input.ConsumeIntegral<int>();
      if (input.yes()) rect = kel_nn_kit_centre_square(rect);
      code = kel_nn_kit_crop(&frame, rect, &image);
      break;
    }
    default: {
      float points[2 * KEL_NN_KIT_FACE_POINT_COUNT];
      for (float& point : points) point = input.yes() ? input.number(-20, 180) : input.any_float();
      code = kel_nn_kit_align_face(&frame, points, &image);
    }
  }
  EXPECT(is_code(code));
  if (code != 0) EXPECT(made == std::vector<uint8_t>(bytes, kUntouched));
  kel_nn_kit_scratch_free(&scratch);
  EXPECT(!scratch.data && scratch.size == 0);
  return 0;
}
