// SPDX-License-Identifier: Apache-2.0
// Prints one digest for each kernel over fixed, generated inputs. Equal digests are equal result bits, whatever
// compiled the library and wherever it ran: scripts/digests.sh compares builds, a test compares this build with the
// table in docs/numerics.md. Values are digested, not bytes, so the order of bytes does not matter; NaN is NaN.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "kel_nn_kit.h"
#include "support/model_directory.h"
#include "support/networks.h"
#include "support/scripted_runtime.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Floats = std::vector<float>;

// Generated inputs, and the digest of what came of them: FNV-1a over 32-bit values.
class Run {
 public:
  // Integers and, by exact divisions alone, floats: the same everywhere.
  uint32_t next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(state_ >> 33);  // 31 bits
  }
  int below(int limit) { return static_cast<int>(next() % static_cast<uint32_t>(limit)); }
  // From -scale to scale, most of them near 0. A power of two as scale keeps that exact.
  float around_0(float scale) {
    const int sum = below(1 << 20) + below(1 << 20) + below(1 << 20) + below(1 << 20) - (1 << 21);
    return static_cast<float>(sum) / static_cast<float>(1 << 21) * scale;
  }
  Floats floats(size_t count, float scale) {
    Floats values(count);
    for (float& value : values) value = around_0(scale);
    return values;
  }
  Bytes bytes(size_t count) {
    Bytes values(count);
    for (uint8_t& value : values) value = static_cast<uint8_t>(next() >> 7);
    return values;
  }

  void add(int value) {
    for (int shift = 0; shift < 32; shift += 8) {
      digest = (digest ^ (static_cast<uint32_t>(value) >> shift & 255)) * 1099511628211u;
    }
  }
  void add(float value) {
    int bits = 0x7fc00000;
    if (value == value) std::memcpy(&bits, &value, sizeof(bits));
    add(bits);
  }
  void add(const kel_nn_kit_rect_t& r) {
    for (int value : {r.x, r.y, r.w, r.h}) add(value);
  }
  void add(const kel_nn_box_t& box) {
    for (float value : {box.cx, box.cy, box.w, box.h, box.score}) add(value);
    add(box.class_id);
  }
  template <typename T, typename Count>
  void add(const T* values, Count count) {
    for (Count i = 0; i < count; ++i) add(values[i]);
  }
  template <typename T>
  void add(const std::vector<T>& values) {
    add(values.data(), values.size());
  }
  uint64_t digest = 14695981039346656037u;

 private:
  uint64_t state_ = 1;
};

using Kernel = std::function<void(Run&)>;

// ----- Vectors and boxes -------------------------------------------------------------------------

Kernel in_place(float scale, float (*function)(float*, uint32_t)) {
  return [=](Run& run) {
    for (uint32_t n = 1; n <= 300; n += 1 + n / 9) {
      Floats values = run.floats(n, scale);
      run.add(function(values.data(), n));
      run.add(values);
    }
  };
}

float softmax(float* values, uint32_t n) {
  kel_nn_softmax(values, n);
  return 0;
}

void inner(Run& run) {
  for (uint32_t n = 1; n <= 300; n += 7) {
    const Floats a = run.floats(n, 4), b = run.floats(n, 4);
    run.add(kel_nn_inner(a.data(), b.data(), n));
  }
}

std::vector<kel_nn_box_t> random_boxes(Run& run, int count) {
  std::vector<kel_nn_box_t> boxes;
  for (int i = 0; i < count; ++i) {
    // No two scores alike: what comes first of equal ones is left open.
    boxes.push_back({run.around_0(256), run.around_0(128), 20 + run.around_0(32),
                     20 + run.around_0(32), static_cast<float>(i * 7 % count) / 4096, i % 4});
  }
  return boxes;
}

void iou(Run& run) {
  const std::vector<kel_nn_box_t> boxes = random_boxes(run, 150);
  for (const auto& a : boxes) {
    for (const auto& b : boxes) run.add(nn_calcu_iou(&a, &b));
  }
}

Kernel nms(int type) {
  return [=](Run& run) {
    for (int count : {1, 9, 20, 100, 500, 2048, 2500}) {
      for (float threshold : {0.0f, 0.3f, 0.4f, 0.75f}) {
        std::vector<kel_nn_box_t> boxes = random_boxes(run, count);
        const int kept = kel_nn_nms(boxes.data(), count, threshold, type);
        run.add(kept);
        run.add(boxes.data(), kept);
      }
    }
  };
}

// ----- Pictures ----------------------------------------------------------------------------------

struct Sizes {
  int source_width, source_height, width, height;
};
constexpr Sizes kSizes[] = {{640, 360, 416, 234}, {37, 29, 112, 112},  {2, 2, 67, 5},
                            {161, 97, 33, 20},    {1920, 40, 320, 24}, {64, 48, 64, 48}};

Kernel resize(int channels) {
  return [=](Run& run) {
    const auto function = std::vector{resize_bilinear_c1, resize_bilinear_c2, resize_bilinear_c3,
                                      resize_bilinear_c4}[channels - 1];
    for (const Sizes& s : kSizes) {
      const int source_stride = s.source_width * channels + 3, stride = s.width * channels + 5;
      const Bytes source = run.bytes(static_cast<size_t>(source_stride) * s.source_height);
      Bytes image(static_cast<size_t>(stride) * s.height, 9);
      function(source.data(), s.source_width, s.source_height, source_stride, image.data(), s.width,
               s.height, stride);
      run.add(image);
    }
  };
}

void resize_nv12(Run& run) {
  for (const Sizes& s : kSizes) {
    const Bytes source = run.bytes(static_cast<size_t>(s.source_width) * s.source_height * 3);
    Bytes image(static_cast<size_t>(s.width) * s.height * 3, 9);
    kel_nn_pixel_resize_bilinear_nv12(source.data(), s.source_width, s.source_height, image.data(),
                                      s.width, s.height);
    run.add(image);
  }
}

void kit(Run& run) {
  for (const Sizes& s : kSizes) {
    const Bytes pixels = run.bytes(static_cast<size_t>(s.source_width) * s.source_height * 3);
    for (int from = KEL_NN_KIT_GREY; from <= KEL_NN_KIT_NV12_FULL; ++from) {
      const kel_nn_kit_frame_t frame = {
          pixels.data(), s.source_width, s.source_height, 0, static_cast<kel_nn_kit_format_t>(from),
          nullptr};
      for (int to = KEL_NN_KIT_GREY; to <= KEL_NN_KIT_BGR; ++to) {
        Bytes memory(static_cast<size_t>(s.width) * s.height * 3);
        const kel_nn_kit_image_t image = {memory.data(), s.width, s.height,
                                          static_cast<kel_nn_kit_format_t>(to), nullptr};
        run.add(kel_nn_kit_letterbox(&frame, &image));
        run.add(memory);
        run.add(kel_nn_kit_scale(&frame, &image));
        run.add(memory);
        run.add(kel_nn_kit_crop(&frame, {1, -3, s.source_width / 2, 40}, &image));
        run.add(memory);
      }
    }
  }
  for (int i = 0; i < 3000; ++i) {
    const float x = run.around_0(2048), y = run.around_0(2048);
    const kel_nn_box_t box = {x, y, run.around_0(512), run.around_0(512), 0, 0};
    run.add(kel_nn_kit_rect_of_box(&box));
    run.add(kel_nn_kit_centre_square(kel_nn_kit_rect_of_box(&box)));
    const kel_nn_size_t frame = {1 + run.below(3000), 1 + run.below(3000)};
    const kel_nn_size_t image = {1 + run.below(600), 1 + run.below(600)};
    kel_nn_kit_rect_t source, destination;
    kel_nn_kit_letterbox_rects(frame, image, &source, &destination);
    run.add(source);
    run.add(destination);
  }
}

// ----- Decoders ----------------------------------------------------------------------------------

template <typename Param, typename Function>
void decode(Run& run, Function function, const Param& param, size_t values, float scale,
            int stride) {
  std::vector<kel_nn_box_t> boxes(5000);
  const Floats map = run.floats(values, scale);
  const int count = function(map.data(), stride, &param, boxes.data(), 5000);
  run.add(count);
  run.add(boxes.data(), count);
}

void yolov3(Run& run) {
  const int32_t anchors[] = {10, 13, 33, 23, 116, 90};
  for (int classes : {1, 4, 20}) {
    const kel_nn_yolov3_param_t param = {1920, 1080, 416, 256, classes, 3, anchors, 0.25f};
    decode(run, kel_nn_yolov3_postprocess, param, 8 * 13 * 3 * (5 + classes), 16, 32);
  }
}

void centernet(Run& run) {
  for (int bins : {1, 8, 17, 100}) {
    const kel_nn_centernet_param_t param = {1920, 1080, 320, 192, bins - 1, 3, 0.5f};
    decode(run, kel_nn_centernet_postprocess, param, 12 * 20 * (3 + 4 * bins), 8, 16);
  }
}

// ----- Tasks over the scripted runtime -----------------------------------------------------------

kelnn_test::ScriptedRuntime& runtime() { return kelnn_test::scripted_runtime(); }

struct Tasks {  // a handle and a directory with a model file for every task
  Tasks() {
    kelnn_test::write_model_files(models);
    kel_nn_set_model_root_dir(models.with_slash().c_str());
  }
  ~Tasks() { kel_nn_handle_destroy(handle); }
  const kel_nn_handle_t handle = kel_nn_handle_create();
  const kelnn_test::TemporaryDirectory models;
};

void faces(Run& run) {
  Tasks tasks;
  const Bytes image(320 * 240 * 3);
  for (float scale : {2.0f, 4.0f, 8.0f}) {
    std::vector<Floats> outputs = kelnn_test::FaceNetwork().outputs;
    for (size_t i = 0; i < 8; ++i) outputs[i] = run.floats(outputs[i].size(), i % 2 ? 16 : scale);
    runtime().play({320, 240, 3}, outputs);
    kel_nn_facedet_init(tasks.handle, 1920, 1080);
    kel_nn_facedet_result_t result = {};
    run.add(kel_nn_facedet_process(tasks.handle, image.data(), &result));
    run.add(result.boxes, result.count);
    kel_nn_facedet_deinit(tasks.handle);
  }
}

Kernel grid(int values_per_anchor, decltype(kel_nn_persondet_init)* init,
            decltype(kel_nn_persondet_process)* process,
            decltype(kel_nn_persondet_deinit)* deinit) {
  return [=](Run& run) {
    Tasks tasks;
    const kel_nn_size_t frames[] = {{1920, 1080}, {719, 719}, {360, 640}};
    const kel_nn_size_t inputs[] = {{416, 256}, {320, 320}, {256, 416}};
    const Bytes image(416 * 256 * 3);
    for (int i = 0; i < 3; ++i) {
      std::vector<Floats> outputs = kelnn_test::GridNetwork(values_per_anchor, inputs[i]).outputs;
      for (Floats& values : outputs) values = run.floats(values.size(), 4);
      runtime().play({inputs[i].w, inputs[i].h, 3}, outputs);
      init(tasks.handle, frames[i].w, frames[i].h);
      kel_nn_det_result_t result = {};
      run.add(process(tasks.handle, image.data(), &result, &frames[i], &inputs[i]));
      run.add(result.boxes, result.count);
      deinit(tasks.handle);
    }
  };
}

void motion(Run& run) {
  const kel_nn_handle_t handle = kel_nn_handle_create();
  for (int width : {2, 7, 64, 150, 641}) {
    const int height = 2 + width / 2;
    kel_nn_pir_filter_init(handle, width, height);
    for (int frame = 0; frame < 40; ++frame) {
      const Bytes noise = run.bytes(static_cast<size_t>(width) * height);
      Bytes image(noise);
      for (uint8_t& pixel : image) pixel = static_cast<uint8_t>(pixel % (1 + 6 * frame));
      int32_t moved = 7;
      kel_nn_pir_filter_process(handle, image.data(), width, height,
                                static_cast<float>(run.below(120)) / 16, 1 + frame / 20, &moved);
      run.add(moved);
    }
  }
  kel_nn_pir_filter_deinit(handle);
  kel_nn_handle_destroy(handle);
}

// ----- Sound -------------------------------------------------------------------------------------

Kernel fourier(void (*transform)(float*)) {
  return [=](Run& run) {
    for (size_t n = 2; n <= 4096; n *= 2) {
      Floats s = run.floats(n + 1, 32768);
      s[0] = static_cast<float>(n);
      transform(s.data());
      run.add(s);
    }
  };
}

std::vector<int16_t> random_sound(Run& run) {
  std::vector<int16_t> pcm(48000);
  int level = 0;
  for (size_t i = 0; i < pcm.size(); ++i) {
    if (i % 4000 == 0) level = 1 + run.below(30000);
    pcm[i] = static_cast<int16_t>(run.below(2 * level) - level);
  }
  return pcm;
}

void geometry(Run& run) {
  kel_nn_mfcc_t* m = nullptr;
  kel_nn_mfcc_create(&m, 16000, 0);
  run.add(m->window + 1, 512);
  run.add(m->cfg.fbank.cf, 66);
  run.add(m->cfg.fbank.lo_chan, 257);
  run.add(m->cfg.fbank.lo_wt, 257);
  kel_nn_mfcc_destory(&m);
  for (int i = 0; i < 2000; ++i) {
    run.add(kel_nn_mel_filter(1 + i, 0.25f));
    run.add(kel_nn_warp_freq(300, 3500, static_cast<float>(run.below(8000)), 0, 8000,
                             0.75f + static_cast<float>(i % 64) / 128));
  }
}

void front_end(Run& run) {
  kel_nn_mfcc_t* m = nullptr;
  kel_nn_mfcc_create(&m, 16000, 0);
  for (int i = 0; i < 2; ++i) {
    kel_nn_mfcc_process(m, random_sound(run).data());
    run.add(m->has_voice);
    run.add(m->wave.features, 298 * 64);
    run.add(m->feature_u8, 297 * 64);
  }
  kel_nn_mfcc_destory(&m);
}

void descrambling(Run& run) {
  const Bytes file = run.bytes(5000);
  for (const char* key : {"k", "TXlTYW1w", "\x80\xff\x7f"}) {
    uint8_t* model = nullptr;
    const size_t size = kel_nn_model_xor_decode(file.data(), &model, file.size(), 1000, key);
    run.add(model, size);
    std::free(model);
  }
}

}  // namespace

int main() {
  const struct {
    const char* name;
    Kernel kernel;
  } kernels[] = {
      {"l1norm", in_place(16, kel_nn_l1norm)},
      {"l2norm", in_place(16, kel_nn_l2norm)},
      {"inner", inner},
      {"softmax", in_place(32, softmax)},
      {"sigmoid",
       [](Run& run) {
         for (int i = 0; i < 20000; ++i) run.add(kel_nn_sigmoid(run.around_0(128)));
       }},
      {"iou", iou},
      {"nms, hard", nms(KEL_NN_NMS_HARD)},
      {"nms, weighted", nms(KEL_NN_NMS_WEIGHTED)},
      {"resize, 1 channel", resize(1)},
      {"resize, 2 channels", resize(2)},
      {"resize, 3 channels", resize(3)},
      {"resize, 4 channels", resize(4)},
      {"resize, NV12", resize_nv12},
      {"kit", kit},
      {"yolov3", yolov3},
      {"centernet", centernet},
      {"face detection", faces},
      {"person detection",
       grid(6, kel_nn_persondet_init, kel_nn_persondet_process, kel_nn_persondet_deinit)},
      {"four-class detection",
       grid(9, kel_nn_4clsdet_init, kel_nn_4clsdet_process, kel_nn_4clsdet_deinit)},
      {"motion filter", motion},
      {"fft", fourier([](float* s) { kel_nn_fft(s, 0); })},
      {"fft, inverse", fourier([](float* s) { kel_nn_fft(s, 1); })},
      {"fft, real", fourier(kel_nn_real_fft)},
      {"sound: window, filter bank, scales", geometry},
      {"sound: features and bytes", front_end},
      {"descrambling", descrambling},
  };
  // What the library prints goes elsewhere.
  std::fflush(stdout);
  const int out = dup(STDOUT_FILENO);
  if (out < 0 || !std::freopen("/dev/null", "w", stdout)) return 1;
  for (const auto& k : kernels) {
    Run run;
    k.kernel(run);
    dprintf(out, "%016" PRIx64 " %s\n", run.digest, k.name);
  }
  return 0;
}
