// SPDX-License-Identifier: Apache-2.0
// How large the public structures are on 32-bit and 64-bit machines, and where the kit's members lie: programs that
// were built before rely on it. The library's members are held by abi/libkelnn.abi.
#include <gtest/gtest.h>

#include "kel_nn_kit.h"

namespace {

// The members in their order: each begins at the first place behind the one before that its type may have.
template <typename Structure, typename... Members>
void expect_layout(size_t on32, size_t on64, Members Structure::*... members) {
  SCOPED_TRACE(__PRETTY_FUNCTION__);
  static Structure s;
  size_t end = 0, number = 0;
  [[maybe_unused]] const auto check = [&](const void* member, size_t size, size_t alignment) {
    end = (end + alignment - 1) / alignment * alignment;
    EXPECT_EQ(member, reinterpret_cast<char*>(&s) + end) << "member " << number++;
    end += size;
  };
  (check(&(s.*members), sizeof(s.*members), alignof(Members)), ...);
  EXPECT_EQ(sizeof(Structure), sizeof(void*) == 4 ? on32 : on64);
}

TEST(PublicStructures, LieInMemoryAsTheyDid) {
  expect_layout<kel_nn_box_t>(24, 24);
  expect_layout<kel_nn_size_t>(8, 8);
  expect_layout<kel_nn_facedet_result_t>(12, 16);
  expect_layout<kel_nn_det_result_t>(8, 16);
  expect_layout<kel_nn_feature_t>(8, 16);
  expect_layout<kel_nn_fbank_info_t>(52, 72);
  expect_layout<kel_nn_frame_cfg_t>(76, 104);
  expect_layout<kel_nn_wave_t>(28, 40);
  expect_layout<kel_nn_mfcc_t>(124, 176);
  expect_layout<kel_nn_yolov3_param_t>(32, 40);
  expect_layout<kel_nn_centernet_param_t>(28, 28);
  expect_layout<struct kel_nn_tensor>(20, 40);
  expect_layout<struct kel_nn_graph>(656, 1312);
  using Frame = kel_nn_kit_frame_t;
  expect_layout(24, 32, &Frame::data, &Frame::width, &Frame::height, &Frame::stride, &Frame::format,
                &Frame::chroma);
  using Image = kel_nn_kit_image_t;
  expect_layout(20, 32, &Image::data, &Image::width, &Image::height, &Image::format,
                &Image::scratch);
  using Rect = kel_nn_kit_rect_t;
  expect_layout(16, 16, &Rect::x, &Rect::y, &Rect::w, &Rect::h);
  expect_layout(8, 16, &kel_nn_kit_scratch_t::data, &kel_nn_kit_scratch_t::size);
}

}  // namespace
