// SPDX-License-Identifier: Apache-2.0
// Where the members of the public structures lie, on 32-bit and 64-bit machines: programs that were built before rely on it.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "kel_nn_kit.h"

namespace {

struct Bytes {
  size_t on32, on64;
  size_t here() const { return sizeof(void*) == 4 ? on32 : on64; }
};

struct Member {
  const char* name;
  size_t offset;
  Bytes expected;
};

struct Layout {
  const char* name;
  size_t size;
  Bytes expected;
  std::vector<Member> members;
};

#define AT(structure, member, on32, on64)                       \
  Member {                                                      \
#member, offsetof(struct structure, member), { on32, on64 } \
  }

TEST(PublicStructures, LieInMemoryAsTheyDid) {
  const Layout layouts[] = {
      {"kel_nn_box",
       sizeof(struct kel_nn_box),
       {24, 24},
       {AT(kel_nn_box, cx, 0, 0), AT(kel_nn_box, cy, 4, 4), AT(kel_nn_box, w, 8, 8),
        AT(kel_nn_box, h, 12, 12), AT(kel_nn_box, score, 16, 16),
        AT(kel_nn_box, class_id, 20, 20)}},
      {"kel_nn_size",
       sizeof(struct kel_nn_size),
       {8, 8},
       {AT(kel_nn_size, w, 0, 0), AT(kel_nn_size, h, 4, 4)}},
      {"kel_nn_facedet_result",
       sizeof(struct kel_nn_facedet_result),
       {12, 16},
       {AT(kel_nn_facedet_result, boxes, 0, 0), AT(kel_nn_facedet_result, reserved, 4, 8),
        AT(kel_nn_facedet_result, count, 8, 12)}},
      {"kel_nn_det_result",
       sizeof(struct kel_nn_det_result),
       {8, 16},
       {AT(kel_nn_det_result, boxes, 0, 0), AT(kel_nn_det_result, count, 4, 8)}},
      {"kel_nn_feature",
       sizeof(struct kel_nn_feature),
       {8, 16},
       {AT(kel_nn_feature, data, 0, 0), AT(kel_nn_feature, len, 4, 8)}},
      {"kel_nn_fbank_info",
       sizeof(struct kel_nn_fbank_info),
       {52, 72},
       {AT(kel_nn_fbank_info, frame_size, 0, 0), AT(kel_nn_fbank_info, num_chans, 4, 4),
        AT(kel_nn_fbank_info, samp_period, 8, 8), AT(kel_nn_fbank_info, fft_n, 12, 12),
        AT(kel_nn_fbank_info, klo, 16, 16), AT(kel_nn_fbank_info, khi, 20, 20),
        AT(kel_nn_fbank_info, use_power, 24, 24), AT(kel_nn_fbank_info, take_logs, 28, 28),
        AT(kel_nn_fbank_info, fres, 32, 32), AT(kel_nn_fbank_info, cf, 36, 40),
        AT(kel_nn_fbank_info, lo_chan, 40, 48), AT(kel_nn_fbank_info, lo_wt, 44, 56),
        AT(kel_nn_fbank_info, x, 48, 64)}},
      {"kel_nn_frame_cfg",
       sizeof(struct kel_nn_frame_cfg),
       {76, 104},
       {AT(kel_nn_frame_cfg, pre_emphasis, 0, 0), AT(kel_nn_frame_cfg, frame_size, 4, 4),
        AT(kel_nn_frame_cfg, position, 8, 8), AT(kel_nn_frame_cfg, frame_shift, 12, 12),
        AT(kel_nn_frame_cfg, fbank, 16, 16), AT(kel_nn_frame_cfg, fbank_out, 68, 88),
        AT(kel_nn_frame_cfg, frame, 72, 96)}},
      {"kel_nn_wave",
       sizeof(struct kel_nn_wave),
       {28, 40},
       {AT(kel_nn_wave, n_samples, 0, 0), AT(kel_nn_wave, frame_size, 4, 4),
        AT(kel_nn_wave, position, 8, 8), AT(kel_nn_wave, frame_shift, 12, 12),
        AT(kel_nn_wave, n_frames, 16, 16), AT(kel_nn_wave, samples, 20, 24),
        AT(kel_nn_wave, features, 24, 32)}},
      {"kel_nn_mfcc",
       sizeof(struct kel_nn_mfcc),
       {124, 176},
       {AT(kel_nn_mfcc, feature_u8, 0, 0), AT(kel_nn_mfcc, has_voice, 4, 8),
        AT(kel_nn_mfcc, audio_ms, 8, 12), AT(kel_nn_mfcc, window, 12, 16),
        AT(kel_nn_mfcc, gate_threshold, 16, 24), AT(kel_nn_mfcc, wave, 20, 32),
        AT(kel_nn_mfcc, cfg, 48, 72)}},
      {"kel_nn_yolov3_param",
       sizeof(struct kel_nn_yolov3_param),
       {32, 40},
       {AT(kel_nn_yolov3_param, img_w, 0, 0), AT(kel_nn_yolov3_param, img_h, 4, 4),
        AT(kel_nn_yolov3_param, input_w, 8, 8), AT(kel_nn_yolov3_param, input_h, 12, 12),
        AT(kel_nn_yolov3_param, class_num, 16, 16), AT(kel_nn_yolov3_param, anchor_num, 20, 20),
        AT(kel_nn_yolov3_param, anchors, 24, 24),
        AT(kel_nn_yolov3_param, score_threshold, 28, 32)}},
      {"kel_nn_centernet_param",
       sizeof(struct kel_nn_centernet_param),
       {28, 28},
       {AT(kel_nn_centernet_param, img_w, 0, 0), AT(kel_nn_centernet_param, img_h, 4, 4),
        AT(kel_nn_centernet_param, input_w, 8, 8), AT(kel_nn_centernet_param, input_h, 12, 12),
        AT(kel_nn_centernet_param, reg_max, 16, 16), AT(kel_nn_centernet_param, class_num, 20, 20),
        AT(kel_nn_centernet_param, score_threshold, 24, 24)}},
      {"kel_nn_tensor",
       sizeof(struct kel_nn_tensor),
       {20, 40},
       {AT(kel_nn_tensor, buffer, 0, 0), AT(kel_nn_tensor, dim, 4, 8)}},
      {"kel_nn_graph",
       sizeof(struct kel_nn_graph),
       {656, 1312},
       {AT(kel_nn_graph, model_path, 0, 0), AT(kel_nn_graph, model_data, 4, 8),
        AT(kel_nn_graph, net, 8, 16), AT(kel_nn_graph, output_data, 12, 24),
        AT(kel_nn_graph, inputs, 16, 32), AT(kel_nn_graph, outputs, 336, 672)}},
      {"kel_nn_kit_frame",
       sizeof(struct kel_nn_kit_frame),
       {24, 32},
       {AT(kel_nn_kit_frame, data, 0, 0), AT(kel_nn_kit_frame, width, 4, 8),
        AT(kel_nn_kit_frame, height, 8, 12), AT(kel_nn_kit_frame, stride, 12, 16),
        AT(kel_nn_kit_frame, format, 16, 20), AT(kel_nn_kit_frame, chroma, 20, 24)}},
      {"kel_nn_kit_scratch",
       sizeof(struct kel_nn_kit_scratch),
       {8, 16},
       {AT(kel_nn_kit_scratch, data, 0, 0), AT(kel_nn_kit_scratch, size, 4, 8)}},
      {"kel_nn_kit_image",
       sizeof(struct kel_nn_kit_image),
       {20, 32},
       {AT(kel_nn_kit_image, data, 0, 0), AT(kel_nn_kit_image, width, 4, 8),
        AT(kel_nn_kit_image, height, 8, 12), AT(kel_nn_kit_image, format, 12, 16),
        AT(kel_nn_kit_image, scratch, 16, 24)}},
      {"kel_nn_kit_rect",
       sizeof(struct kel_nn_kit_rect),
       {16, 16},
       {AT(kel_nn_kit_rect, x, 0, 0), AT(kel_nn_kit_rect, y, 4, 4), AT(kel_nn_kit_rect, w, 8, 8),
        AT(kel_nn_kit_rect, h, 12, 12)}},
  };
  for (const Layout& layout : layouts) {
    SCOPED_TRACE(layout.name);
    EXPECT_EQ(layout.size, layout.expected.here());
    for (const Member& member : layout.members) {
      EXPECT_EQ(member.offset, member.expected.here()) << member.name;
    }
  }
}

}  // namespace
