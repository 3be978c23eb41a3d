// SPDX-License-Identifier: Apache-2.0
// What is written of each function of the library: one form for those that are alike. The recorder calls the library
// through them, and so does the replay, so that both tell the same of a call.
#ifndef KEL_NN_RECORDED_CALLS_H_
#define KEL_NN_RECORDED_CALLS_H_

#include <time.h>

#include "kel_nn.h"
#include "recording_format.h"

namespace kelnn_record {

// Blocks are written as they are, or as digests.
struct Settings {
  bool has_whole_inputs = false, has_whole_outputs = true;  // of the application, of networks
};

// Addresses as small numbers: 0 is null.
class Identities {
 public:
  int32_t of(const void* address) {
    if (!address) return 0;
    for (int32_t i = 0; i < kMost; ++i) {
      if (known_[i] == address) return i + 1;
    }
    next_ = (next_ + 1) % kMost;
    known_[next_] = address;
    return next_ + 1;
  }

 private:
  static constexpr int32_t kMost = 16;  // more at once are mistaken for one another
  const void* known_[kMost] = {};
  int32_t next_ = kMost - 1;
};

// What is to be remembered from call to call.
struct Memory {
  Identities handles, graphs;
  int32_t motion_width = 0, motion_height = 0;  // of the frames that the motion filter takes
};

inline uint64_t microseconds(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

// One call, told to a record; without one nothing is told.
class Call {
 public:
  Call() = default;
  Call(Record* record, const Settings& settings, Memory* memory)
      : record_(record), settings_(settings), memory_(memory) {}

  void begin(const char* name, uint64_t number) {
    digested_ = nullptr;
    if (record_) record_->begin(name, {number, microseconds(CLOCK_REALTIME), 0, 0, 0, 0});
  }
  Memory* memory() { return memory_; }
  const Settings& settings() const { return settings_; }

  void handle(const void* handle) {
    if (record_) argument("handle", memory_->handles.of(handle));
  }
  void graph(const void* graph) {
    if (record_) argument("graph", memory_->graphs.of(graph));
  }
  void argument(const char* name, int32_t value) {
    if (record_) record_->add_integer(Kind::kArgument, name, value);
  }
  void argument(const char* name, float value) {
    if (record_) record_->add(Kind::kArgument, name, Type::kFloats, &value, sizeof(value));
  }
  void text(const char* name, const char* value) {
    if (record_ && present(name, value)) record_->add_text(Kind::kArgument, name, value);
  }
  // Where a result goes: told when it is nowhere.
  bool present(const char* name, const void* pointer) {
    if (record_ && !pointer) record_->add(Kind::kArgument, name, Type::kNull, nullptr, 0);
    return pointer != nullptr;
  }
  void input(const char* name, Type type, const void* data, size_t size) {
    if (record_ && present(name, data)) {
      add(settings_.has_whole_inputs, Kind::kArgument, name, type, data, size);
    }
  }
  void size(const char* name, const kel_nn_size_t* size) {
    if (record_ && present(name, size)) {
      record_->add(Kind::kArgument, name, Type::kIntegers, size, sizeof(*size));
    }
  }

  // A network was loaded: its model, how that ended (0, or -1; whether the graph has a network now), and the shapes of
  // its input and outputs, three values each.
  void loaded(const char* model, int32_t code, int32_t has_network) {
    if (!record_) return;
    const int32_t end[] = {code, has_network};
    record_->add_text(Kind::kArgument, "network_model", model);
    record_->add(Kind::kArgument, "network_loaded", Type::kIntegers, end, sizeof(end));
  }
  void shapes(const int32_t* values, size_t count) {
    if (record_) record_->add(Kind::kNetwork, "network_shapes", Type::kIntegers, values, 4 * count);
  }
  // It was run; or that failed.
  void ran(const void* input, size_t input_size, const float* outputs, size_t count) {
    if (!record_) return;
    add(false, Kind::kNetwork, "network_input", Type::kBytes, input, input_size);
    add(settings_.has_whole_outputs, Kind::kNetwork, "network_outputs", Type::kFloats, outputs,
        4 * count);
  }
  void failed_to_run() { argument("network_failed", 1); }

  template <typename Function, typename... Arguments>
  auto run(Function function, Arguments... arguments) -> decltype(function(arguments...)) {
    start();
    return returned(function(arguments...));
  }
  void start() {
    if (record_) start_ = microseconds(CLOCK_MONOTONIC);
  }
  template <typename Value>  // int or float
  Value returned(Value value) {
    if (!record_) return value;
    record_->set_duration(static_cast<uint32_t>(microseconds(CLOCK_MONOTONIC) - start_));
    result("returned", value);
    return value;
  }
  void result(const char* name, int32_t value) {
    if (record_) record_->add_integer(Kind::kResult, name, value);
  }
  void result(const char* name, float value) {
    results(name, Type::kFloats, &value, sizeof(value));
  }
  void results(const char* name, Type type, const void* data, size_t size) {
    if (record_) record_->add(Kind::kResult, name, type, data, size);
  }

 private:
  void add(bool is_whole, Kind kind, const char* name, Type type, const void* data, size_t size) {
    if (is_whole) return record_->add(kind, name, type, data, size);
    // Most networks are shown the very block that the task was given.
    if (data != digested_ || size != digest_.size) {
      digest_ = {Digest::of(data, size), static_cast<uint32_t>(size), type, {}};
      digested_ = data;
    }
    record_->add(kind, name, Type::kDigest, &digest_, sizeof(digest_));
  }

  Record* record_ = nullptr;
  Settings settings_;
  Memory* memory_ = nullptr;
  uint64_t start_ = 0;
  const void* digested_ = nullptr;  // the last block of this call
  DigestField digest_ = {};
};

// ----- Forms of calls ----------------------------------------------------------------------------

constexpr size_t kFaceSide = 112, kCryWindow = 48000;  // pixels, samples

inline kel_nn_handle_t handle_create(Call* call, kel_nn_handle_t (*next)()) {
  call->start();
  const kel_nn_handle_t handle = next();
  call->returned(handle ? 1 : 0);
  call->handle(handle);
  return handle;
}

inline int set_model_root_dir(Call* call, int (*next)(const char*), const char* dir) {
  call->text("dir", dir);
  return call->run(next, dir);
}

// _deinit, and _init of tasks that want nothing but the handle.
template <typename Code>
Code of_handle(Call* call, Code (*next)(kel_nn_handle_t), kel_nn_handle_t handle) {
  call->handle(handle);
  return call->run(next, handle);
}

template <typename Code>
Code init_for_size(Call* call, Code (*next)(kel_nn_handle_t, Code, Code), kel_nn_handle_t handle,
                   Code width, Code height) {
  call->handle(handle);
  call->argument("width", width);
  call->argument("height", height);
  return call->run(next, handle, width, height);
}

inline int facedet_process(Call* call, decltype(&kel_nn_facedet_process) next,
                           kel_nn_handle_t handle, const uint8_t* image,
                           kel_nn_facedet_result_t* result) {
  call->handle(handle);
  call->input("image", Type::kBytes, image, 320 * 240 * 3);
  call->present("result", result);
  const int code = call->run(next, handle, image, result);
  if (code == 0) {
    call->results("boxes", Type::kBoxes, result->boxes, result->count * sizeof(*result->boxes));
  }
  return code;
}

inline int detector_process(Call* call, decltype(&kel_nn_persondet_process) next,
                            kel_nn_handle_t handle, const void* image, kel_nn_det_result_t* result,
                            const kel_nn_size_t* frame_size, const kel_nn_size_t* input_size) {
  call->handle(handle);
  call->size("frame_size", frame_size);
  call->size("input_size", input_size);
  // The image is that large only where the size is one that a detector has; for others it is never read.
  const auto is = [input_size](int32_t w, int32_t h) {
    return input_size && input_size->w == w && input_size->h == h;
  };
  const size_t pixels = is(416, 256) || is(256, 416) ? 416 * 256 : is(320, 320) ? 320 * 320 : 0;
  call->input("image", Type::kBytes, image, 3 * pixels);
  call->present("result", result);
  const int code = call->run(next, handle, image, result, frame_size, input_size);
  if (code == 0) {
    call->results("boxes", Type::kBoxes, result->boxes, result->count * sizeof(*result->boxes));
  }
  return code;
}

inline int feature_extract(Call* call, decltype(&kel_nn_face_feature_extract) next,
                           kel_nn_handle_t handle, const void* image, kel_nn_feature_t* feature) {
  call->handle(handle);
  call->input("image", Type::kBytes, image, kFaceSide * kFaceSide);
  call->present("feature", feature);
  const int code = call->run(next, handle, image, feature);
  if (code == 0)
    call->results("feature", Type::kFloats, feature->data, sizeof(float) * feature->len);
  return code;
}

inline float feature_similarity(Call* call, decltype(&kel_nn_face_feature_similarity_calcul) next,
                                const kel_nn_feature_t* a, const kel_nn_feature_t* b) {
  call->input("a", Type::kFloats, a->data, sizeof(float) * a->len);
  call->input("b", Type::kFloats, b->data, sizeof(float) * a->len);  // as many are compared
  return call->run(next, a, b);
}

inline int facelm_process(Call* call, decltype(&kel_nn_facelm_process) next, kel_nn_handle_t handle,
                          const void* image, float* landmarks, float* pose) {
  call->handle(handle);
  call->input("image", Type::kBytes, image, kFaceSide * kFaceSide);
  call->present("landmarks", landmarks);
  call->present("pose", pose);
  const int code = call->run(next, handle, image, landmarks, pose);
  if (code == 0) call->results("landmarks", Type::kFloats, landmarks, 10 * sizeof(float));
  if (code == 0 && pose) call->results("pose", Type::kFloats, pose, 3 * sizeof(float));
  return code;
}

inline int face_classify_process(Call* call, decltype(&kel_nn_face_classify_process) next,
                                 kel_nn_handle_t handle, const void* image, int* class_id,
                                 float* score) {
  call->handle(handle);
  call->input("image", Type::kBytes, image, kFaceSide * kFaceSide);
  call->present("class_id", class_id);
  call->present("score", score);
  const int code = call->run(next, handle, image, class_id, score);
  if (code == 0) call->result("class_id", *class_id);
  if (code == 0) call->result("score", *score);
  return code;
}

inline int person_classify_process(Call* call, decltype(&kel_nn_person_classify_process) next,
                                   kel_nn_handle_t handle, const void* image, float* score) {
  call->handle(handle);
  call->input("image", Type::kBytes, image, kFaceSide * kFaceSide * 3);
  call->present("score", score);
  const int code = call->run(next, handle, image, score);
  if (code == 0) call->result("score", *score);
  return code;
}

inline int32_t pir_filter_init(Call* call, decltype(&kel_nn_pir_filter_init) next,
                               kel_nn_handle_t handle, int32_t width, int32_t height) {
  const int32_t code = init_for_size(call, next, handle, width, height);
  if (code == 0 && call->memory()) {
    call->memory()->motion_width = width;
    call->memory()->motion_height = height;
  }
  return code;
}

inline int32_t pir_filter_process(Call* call, decltype(&kel_nn_pir_filter_process) next,
                                  kel_nn_handle_t handle, const uint8_t* image, int32_t width,
                                  int32_t height, float ratio, int32_t period, int32_t* result) {
  call->handle(handle);
  call->argument("width", width);
  call->argument("height", height);
  call->argument("ratio", ratio);
  call->argument("period", period);
  // A frame of another size is never read.
  const Memory* memory = call->memory();
  const bool is_read = memory && width == memory->motion_width && height == memory->motion_height &&
                       width > 0 && height > 0 &&
                       int64_t{width} * height <= int64_t{kMaxRecord / 2};
  call->input("image", Type::kBytes, image, is_read ? size_t(width) * size_t(height) : 0);
  if (call->present("result", result)) call->argument("result_before", *result);
  const int32_t code = call->run(next, handle, image, width, height, ratio, period, result);
  if (code == 0) call->result("result", *result);
  return code;
}

inline int crydet_init(Call* call, decltype(&kel_nn_crydet_init) next, kel_nn_handle_t handle,
                       uint32_t sample_rate, float gate_threshold) {
  call->handle(handle);
  call->argument("sample_rate", static_cast<int32_t>(sample_rate));
  call->argument("gate_threshold", gate_threshold);
  return call->run(next, handle, sample_rate, gate_threshold);
}

inline int crydet_process(Call* call, decltype(&kel_nn_crydet_process) next, kel_nn_handle_t handle,
                          const int16_t* pcm, uint32_t n, float* score) {
  call->handle(handle);
  call->argument("n", static_cast<int32_t>(n));
  call->input("pcm", Type::kSamples, pcm,
              2 * (n < kCryWindow ? n : kCryWindow));  // no more is read
  call->present("score", score);
  const int code = call->run(next, handle, pcm, n, score);
  if (code == 0) call->result("score", *score);
  return code;
}

}  // namespace kelnn_record

#endif  // KEL_NN_RECORDED_CALLS_H_
