// SPDX-License-Identifier: Apache-2.0
// Where the members of the public structures lie, on 32-bit and 64-bit machines: programs that were built before rely on it.
#include <gtest/gtest.h>

#include "kel_nn_kit.h"

namespace {

constexpr size_t P = sizeof(void*);

// The members in their order, with their sizes. Each begins at the first place behind the one before that its type may
// have; the whole has the size that is given for 32 and for 64 bits.
template <typename Structure, typename... Members>
void expect_layout(size_t on32, size_t on64, std::initializer_list<size_t> sizes,
                   Members Structure::*... members) {
  SCOPED_TRACE(__PRETTY_FUNCTION__);
  ASSERT_EQ(sizes.size(), sizeof...(members));
  static Structure s;
  const size_t* size = sizes.begin();
  size_t end = 0;
  const auto check = [&](const void* member, size_t member_size, size_t alignment) {
    end = (end + alignment - 1) / alignment * alignment;
    EXPECT_EQ(member, reinterpret_cast<char*>(&s) + end) << "member " << size - sizes.begin();
    EXPECT_EQ(member_size, *size) << "member " << size - sizes.begin();
    end += *size++;
  };
  (check(&(s.*members), sizeof(s.*members), alignof(Members)), ...);
  EXPECT_EQ(sizeof(Structure), P == 4 ? on32 : on64);
}

TEST(PublicStructures, LieInMemoryAsTheyDid) {
  using Box = kel_nn_box;
  expect_layout(24, 24, {4, 4, 4, 4, 4, 4}, &Box::cx, &Box::cy, &Box::w, &Box::h, &Box::score,
                &Box::class_id);
  expect_layout(8, 8, {4, 4}, &kel_nn_size::w, &kel_nn_size::h);
  using Faces = kel_nn_facedet_result;
  expect_layout(12, 16, {P, 4, 4}, &Faces::boxes, &Faces::reserved, &Faces::count);
  expect_layout(8, 16, {P, 4}, &kel_nn_det_result::boxes, &kel_nn_det_result::count);
  expect_layout(8, 16, {P, 4}, &kel_nn_feature::data, &kel_nn_feature::len);
  using Bank = kel_nn_fbank_info;
  expect_layout(52, 72, {4, 4, 4, 4, 4, 4, 4, 4, 4, P, P, P, P}, &Bank::frame_size,
                &Bank::num_chans, &Bank::samp_period, &Bank::fft_n, &Bank::klo, &Bank::khi,
                &Bank::use_power, &Bank::take_logs, &Bank::fres, &Bank::cf, &Bank::lo_chan,
                &Bank::lo_wt, &Bank::x);
  using Cfg = kel_nn_frame_cfg;
  expect_layout(76, 104, {4, 4, 4, 4, sizeof(Bank), P, P}, &Cfg::pre_emphasis, &Cfg::frame_size,
                &Cfg::position, &Cfg::frame_shift, &Cfg::fbank, &Cfg::fbank_out, &Cfg::frame);
  using Wave = kel_nn_wave;
  expect_layout(28, 40, {4, 4, 4, 4, 4, P, P}, &Wave::n_samples, &Wave::frame_size, &Wave::position,
                &Wave::frame_shift, &Wave::n_frames, &Wave::samples, &Wave::features);
  using Mfcc = kel_nn_mfcc;
  expect_layout(124, 176, {P, 4, 4, P, 4, sizeof(Wave), sizeof(Cfg)}, &Mfcc::feature_u8,
                &Mfcc::has_voice, &Mfcc::audio_ms, &Mfcc::window, &Mfcc::gate_threshold,
                &Mfcc::wave, &Mfcc::cfg);
  using Yolo = kel_nn_yolov3_param;
  expect_layout(32, 40, {4, 4, 4, 4, 4, 4, P, 4}, &Yolo::img_w, &Yolo::img_h, &Yolo::input_w,
                &Yolo::input_h, &Yolo::class_num, &Yolo::anchor_num, &Yolo::anchors,
                &Yolo::score_threshold);
  using Center = kel_nn_centernet_param;
  expect_layout(28, 28, {4, 4, 4, 4, 4, 4, 4}, &Center::img_w, &Center::img_h, &Center::input_w,
                &Center::input_h, &Center::reg_max, &Center::class_num, &Center::score_threshold);
  using Tensor = kel_nn_tensor;
  expect_layout(20, 40, {P, 4 * P}, &Tensor::buffer, &Tensor::dim);
  using Graph = kel_nn_graph;
  expect_layout(656, 1312, {P, P, P, P, 16 * sizeof(Tensor), 16 * sizeof(Tensor)},
                &Graph::model_path, &Graph::model_data, &Graph::net, &Graph::output_data,
                &Graph::inputs, &Graph::outputs);
  using Frame = kel_nn_kit_frame;
  expect_layout(24, 32, {P, 4, 4, 4, 4, P}, &Frame::data, &Frame::width, &Frame::height,
                &Frame::stride, &Frame::format, &Frame::chroma);
  expect_layout(8, 16, {P, P}, &kel_nn_kit_scratch::data, &kel_nn_kit_scratch::size);
  using Image = kel_nn_kit_image;
  expect_layout(20, 32, {P, 4, 4, 4, P}, &Image::data, &Image::width, &Image::height,
                &Image::format, &Image::scratch);
  using Rect = kel_nn_kit_rect;
  expect_layout(16, 16, {4, 4, 4, 4}, &Rect::x, &Rect::y, &Rect::w, &Rect::h);
}

}  // namespace
