// SPDX-License-Identifier: Apache-2.0
// What the routines cost on a processor without a vector unit: bench/mips_costs.sh runs this under
// emulation, counts the instructions and prints a table.
//
//     mips_costs                    prints the cases
//     mips_costs CASE WHO TIMES     runs one, as "kelnn" or "plain" (the loops as first written)
//
// A run prepares the same input whatever TIMES is, so that the difference of two runs is what the
// calls between them cost.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "kel_nn_ultraface.h"
#include "support/plain_boxes.h"
#include "support/plain_detectors.h"
#include "support/plain_filter_bank.h"
#include "support/plain_pir_filter.h"
#include "support/plain_resize.h"

namespace {

using Run = std::function<void()>;
using Prepare = std::function<Run(bool plain)>;

float between(std::minstd_rand& random, float low, float high) {
  return low + (high - low) * static_cast<float>(random() % 65536) / 65536.0f;
}

Run resize(bool plain, int channels, int from_width, int from_height, int width, int height) {
  auto from = std::make_shared<std::vector<uint8_t>>(size_t(from_width) * from_height * channels);
  auto to = std::make_shared<std::vector<uint8_t>>(size_t(width) * height * channels);
  std::minstd_rand random(1);
  for (uint8_t& value : *from) value = static_cast<uint8_t>(random() >> 8);
  return [=] {
    if (plain) {
      kelnn_test::plain_resize(channels, from->data(), from_width, from_height,
                               from_width * channels, to->data(), width, height, width * channels);
    } else {
      kel_nn_pixel_resize_bilinear(from->data(), from_width, from_height, to->data(), width, height,
                                   channels);
    }
  };
}

// Ten boxes around each object.
Run suppress(bool plain, int count) {
  std::minstd_rand random(7);
  auto source = std::make_shared<std::vector<kel_nn_box_t>>();
  kel_nn_box_t object = {};
  for (int i = 0; i < count; ++i) {
    if (i % 10 == 0) {
      object = {between(random, 0, 1920),
                between(random, 0, 1080),
                between(random, 20, 200),
                between(random, 20, 200),
                0,
                0};
    }
    kel_nn_box_t box = object;
    box.cx += between(random, -0.1f, 0.1f) * object.w;
    box.cy += between(random, -0.1f, 0.1f) * object.h;
    box.w *= between(random, 0.9f, 1.1f);
    box.h *= between(random, 0.9f, 1.1f);
    box.score = between(random, 0.3f, 1.0f);
    source->push_back(box);
  }
  for (size_t i = source->size() - 1; i > 0; --i) {
    std::swap((*source)[i], (*source)[random() % (i + 1)]);
  }
  auto boxes = std::make_shared<std::vector<kel_nn_box_t>>(*source);
  return [=] {
    *boxes = *source;
    if (plain) {
      kelnn_test::plain_nms(boxes->data(), count, 0.4f, /*weighted=*/false);
    } else {
      kel_nn_nms(boxes->data(), count, 0.4f, KEL_NN_NMS_HARD);
    }
  };
}

// 4420 anchors, 20 of which see a face.
Run decode_faces(bool plain) {
  struct Outputs {
    std::vector<float> scores[4], regressions[4];
  };
  std::minstd_rand random(3);
  auto source = std::make_shared<Outputs>();
  for (int l = 0; l < 4; ++l) {
    const int anchors = kelnn_test::kFaceAnchorCounts[l];
    for (int k = 0; k < 2 * anchors; ++k) {
      const float face = k % 2 == 0 ? (k / 2 % 1600 >= 1590 ? -4.0f : 4.0f) : 0.0f;
      source->scores[l].push_back(face + between(random, -1, 1));
    }
    for (int k = 0; k < 4 * anchors; ++k) {
      source->regressions[l].push_back(between(random, -2, 2));
    }
  }
  static kelnn::FaceAnchors face_anchors[kelnn::kFaceLevels];
  kelnn::fill_face_anchors(face_anchors);
  const auto anchors = kelnn_test::plain_face_anchors();
  auto outputs = std::make_shared<Outputs>(*source);
  auto boxes = std::make_shared<std::vector<kel_nn_box_t>>(kelnn::kMaxFaces);
  return [=] {
    float* scores[4];
    const float* regressions[4];
    kelnn::FaceLevelOutputs levels[4];
    for (int l = 0; l < 4; ++l) {
      outputs->scores[l] = source->scores[l];  // they become probabilities in place
      scores[l] = outputs->scores[l].data();
      regressions[l] = outputs->regressions[l].data();
      levels[l] = {scores[l], regressions[l]};
    }
    if (plain) {
      kelnn_test::plain_decode_faces(anchors, scores, regressions, 1920, 1080, boxes->data());
    } else {
      kelnn::decode_faces(face_anchors, levels, 1920, 1080, boxes->data());
    }
  };
}

// A window of three seconds: a saw-tooth over noise.
Run hear(bool plain) {
  constexpr int kSamples = 48000;
  auto pcm = std::make_shared<std::vector<int16_t>>(kSamples);
  std::minstd_rand random(5);
  for (int i = 0; i < kSamples; ++i) {
    (*pcm)[i] = static_cast<int16_t>(i * (100 + i / 500) % 16000 - 8000 +
                                     static_cast<int>(random() >> 8) % 2000);
  }
  if (plain) {
    auto bank = std::make_shared<kelnn_test::PlainFilterBank>(kSamples, 0.0f);
    return [=] { bank->process(pcm->data()); };
  }
  kel_nn_mfcc_t* context = nullptr;
  kel_nn_mfcc_create(&context, 16000, 0.0f);
  return [=] { kel_nn_mfcc_process(context, pcm->data()); };
}

// A mostly quiet scene: a little noise, and something small and bright that moves from frame to
// frame.
Run watch(bool plain) {
  constexpr int kWidth = 640, kHeight = 360;
  std::minstd_rand random(9);
  auto frames = std::make_shared<std::vector<std::vector<uint8_t>>>(
      4, std::vector<uint8_t>(kWidth * kHeight));
  for (size_t f = 0; f < frames->size(); ++f) {
    std::vector<uint8_t>& frame = (*frames)[f];
    for (uint8_t& pixel : frame) pixel = static_cast<uint8_t>(100 + (random() >> 8) % 8);
    for (int y = 100; y < 160; ++y) {
      for (int x = 0; x < 40; ++x) frame[y * kWidth + 100 + 50 * f + x] += 80;
    }
  }
  auto next = std::make_shared<size_t>(0);
  if (plain) {
    auto filter = std::make_shared<kelnn_test::PlainPirFilter>(kWidth, kHeight);
    return [=] {
      int32_t result = 0;
      filter->process((*frames)[(*next)++ % 4].data(), 1.0f, 25, &result);
    };
  }
  // Not a real one, whose creation would print. The filter keeps nothing in it.
  static char place;
  const kel_nn_handle_t handle = reinterpret_cast<kel_nn_handle_t>(&place);
  kel_nn_pir_filter_init(handle, kWidth, kHeight);
  return [=] {
    int32_t result = 0;
    kel_nn_pir_filter_process(handle, (*frames)[(*next)++ % 4].data(), kWidth, kHeight, 1.0f, 25,
                              &result);
  };
}

std::map<std::string, Prepare> cases() {
  std::map<std::string, Prepare> all;
  const struct {
    const char* name;
    int from_width, from_height, width, height;
  } sizes[] = {{"resize 640x360 to 416x234", 640, 360, 416, 234},
               {"resize 64x64 to 112x112", 64, 64, 112, 112},
               {"resize 1920x1080 to 640x360", 1920, 1080, 640, 360}};
  for (const auto& s : sizes) {
    for (int channels = 1; channels <= 4; ++channels) {
      all[s.name + std::string(", channels: ") + std::to_string(channels)] = [=](bool plain) {
        return resize(plain, channels, s.from_width, s.from_height, s.width, s.height);
      };
    }
  }
  for (const int count : {100, 500}) {
    all["suppression of clustered boxes: " + std::to_string(count)] = [=](bool plain) {
      return suppress(plain, count);
    };
  }
  all["4420 face anchors"] = decode_faces;
  all["audio front end, 3 s"] = hear;
  all["motion filter 640x360, mostly quiet"] = watch;
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  const auto all = cases();
  if (argc != 4) {
    for (const auto& c : all) std::printf("%s\n", c.first.c_str());
    return 0;
  }
  const auto found = all.find(argv[1]);
  const std::string who = argv[2];
  if (found == all.end() || (who != "kelnn" && who != "plain")) {
    std::fprintf(stderr, "no such case: %s, %s\n", argv[1], argv[2]);
    return 2;
  }
  const Run run = found->second(who == "plain");
  for (int i = std::atoi(argv[3]); i > 0; --i) run();
  return 0;
}
