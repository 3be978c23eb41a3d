// SPDX-License-Identifier: Apache-2.0
// libkelnn_record.so: stands in front of the library, by LD_PRELOAD or linked before it, and writes down each call of a
// task or of the engine. Where KELNN_RECORD names no directory it only calls on. docs/recording.md.
//
// A call is written into memory by the thread that makes it and put into a queue of limited size; another thread takes
// the queue to the disk. What the queue has no room for is counted, and a record says so.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>

#include <atomic>

#include "file_ring.h"
#include "recorded_calls.h"

namespace kelnn_record {
namespace {

constexpr uint64_t kSyncInterval = 1000000;  // microseconds

// ----- From memory to the disk -------------------------------------------------------------------

class Recorder {
 public:
  void start();
  bool is_on() const { return is_on_; }
  void stop();
  void forget() { is_on_ = false; }  // in a child process, which has no thread for it

  // For the one call that is being made; null while another is.
  Record* begin() {
    return is_on_ && !is_busy_.test_and_set(std::memory_order_acquire) ? &record_ : nullptr;
  }
  uint64_t next_number() {
    pthread_mutex_lock(&mutex_);
    const uint64_t number = ++calls_;
    pthread_mutex_unlock(&mutex_);
    return number;
  }
  void end() {
    put(record_.bytes());
    is_busy_.clear(std::memory_order_release);
  }
  void count_lost() {
    pthread_mutex_lock(&mutex_);
    ++calls_;
    ++lost_;
    pthread_mutex_unlock(&mutex_);
  }
  const Settings& settings() const { return settings_; }
  Memory* memory() { return &memory_; }

 private:
  static void* write_all(void* self) { return static_cast<Recorder*>(self)->write_all(), nullptr; }
  void write_all();
  void write(Buffer* batch);
  void write_lost();
  void put(const Buffer& record);
  void wait(bool is_synced);

  std::atomic<bool> is_on_{false};
  Settings settings_;
  Memory memory_;
  Record record_;
  std::atomic_flag is_busy_ = ATOMIC_FLAG_INIT;

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t filled_ = PTHREAD_COND_INITIALIZER;
  Buffer queue_;  // records, each with its size in front
  uint64_t calls_ = 0;
  uint32_t lost_ = 0;  // that had no room in the queue since its last record
  bool is_over_ = false;

  // The writing thread's own.
  pthread_t thread_ = {};
  FileRing files_;
  Buffer batch_;
  Record start_, lost_record_;
  uint32_t unwritten_ = 0;  // that had no room on the disk since its last record
};

// There before anything of the process is made, and never taken down: while it ends, threads may be in calls.
union Lasting {
  constexpr Lasting() : recorder() {}
  ~Lasting() {}
  Recorder recorder;
} g_lasting;
Recorder& g_recorder = g_lasting.recorder;

// From the environment, in units; false when it is no such number.
bool read_setting(const char* name, uint64_t least, uint64_t most, uint64_t* value) {
  const char* const text = getenv(name);
  if (!text) return true;
  char* end = nullptr;
  const unsigned long long number = strtoull(text, &end, 10);
  if (*text >= '0' && *text <= '9' && *end == '\0' && number >= least && number <= most)
    return *value = number, true;
  fprintf(stderr, "libkelnn_record: %s=%s is not a number from %llu to %llu: nothing is recorded\n",
          name, text, static_cast<unsigned long long>(least),
          static_cast<unsigned long long>(most));
  return false;
}
bool read_setting(const char* name, bool* is_whole) {
  const char* const text = getenv(name);
  if (!text) return true;
  *is_whole = std::strcmp(text, "whole") == 0;
  if (*is_whole || std::strcmp(text, "digests") == 0) return true;
  fprintf(stderr, "libkelnn_record: %s=%s is neither whole nor digests: nothing is recorded\n",
          name, text);
  return false;
}

const char* machine() {
#if defined(__mips__)
  return "mips";
#elif defined(__x86_64__)
  return "x86-64";
#elif defined(__i386__)
  return "i386";
#elif defined(__aarch64__)
  return "aarch64";
#elif defined(__arm__)
  return "arm";
#else
  return "another";
#endif
}

void Recorder::start() {
  const char* const directory = getenv("KELNN_RECORD");
  if (!directory || !*directory) return;
  uint64_t limit_mib = 64, queue_kib = 4096;
  if (!read_setting("KELNN_RECORD_LIMIT_MIB", 1, 1 << 20, &limit_mib) ||
      !read_setting("KELNN_RECORD_QUEUE_KIB", 64, 1 << 16, &queue_kib) ||
      !read_setting("KELNN_RECORD_INPUTS", &settings_.has_whole_inputs) ||
      !read_setting("KELNN_RECORD_OUTPUTS", &settings_.has_whole_outputs)) {
    return;
  }
  start_.begin(kStartRecord, {0, microseconds(CLOCK_REALTIME), 0, 0, 0, 0});
  char version[32];
  snprintf(version, sizeof(version), "%d.%d.%d", KEL_NN_VERSION_MAJOR, KEL_NN_VERSION_MINOR,
           KEL_NN_VERSION_PATCH);
  start_.add_text(Kind::kArgument, "version", version);
  start_.add_text(Kind::kArgument, "machine", machine());
  const size_t queue_size = static_cast<size_t>(queue_kib) << 10;
  if (!queue_.reserve(queue_size / 2) || !batch_.reserve(queue_size / 2)) {
    fprintf(stderr, "libkelnn_record: no memory for a queue of %u KiB: nothing is recorded\n",
            static_cast<unsigned>(queue_kib));
    return;
  }
  if (!files_.open(directory, limit_mib << 20, &start_.bytes())) return;
  // The application's signals are none of the thread's; what would be SIGXFSZ is an error of write().
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  is_on_ = pthread_create(&thread_, nullptr, write_all, this) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (!is_on_) fprintf(stderr, "libkelnn_record: no thread to write with: nothing is recorded\n");
}

void Recorder::put(const Buffer& record) {
  const uint32_t size = static_cast<uint32_t>(record.size());
  pthread_mutex_lock(&mutex_);
  const bool was_empty = queue_.size() == 0;
  // What was lost is told before the next record, which a size of 0 with the count does.
  const size_t needed = sizeof(size) + size + (lost_ > 0 ? sizeof(uint32_t) + sizeof(lost_) : 0);
  if (record.is_short() || queue_.size() + needed > queue_.capacity()) {
    ++lost_;
  } else {
    if (lost_ > 0) {
      const uint32_t none = 0;
      queue_.add(&none, sizeof(none));
      queue_.add(&lost_, sizeof(lost_));
      lost_ = 0;
    }
    queue_.add(&size, sizeof(size));
    queue_.add(record.data(), size);
  }
  if (was_empty) pthread_cond_signal(&filled_);
  pthread_mutex_unlock(&mutex_);
}

// Until there is something to write, the end, or, if there is something to sync, for a second.
void Recorder::wait(bool is_synced) {
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  ++until.tv_sec;
  while (queue_.size() == 0 && !is_over_) {
    if (is_synced) {
      pthread_cond_wait(&filled_, &mutex_);
    } else if (pthread_cond_timedwait(&filled_, &mutex_, &until) != 0) {
      return;
    }
  }
}

void Recorder::write_all() {
  uint64_t synced_at = microseconds(CLOCK_MONOTONIC);
  bool is_synced = true;
  for (bool is_over = false; !is_over;) {
    pthread_mutex_lock(&mutex_);
    wait(is_synced);
    is_over = is_over_;
    batch_.clear();
    batch_.swap(&queue_);
    if (is_over) unwritten_ += lost_;
    pthread_mutex_unlock(&mutex_);
    if (batch_.size() > 0) is_synced = false;
    write(&batch_);
    if (!is_synced && microseconds(CLOCK_MONOTONIC) - synced_at >= kSyncInterval) {
      files_.sync();
      synced_at = microseconds(CLOCK_MONOTONIC);
      is_synced = true;
    }
  }
  if (unwritten_ > 0) write_lost();
  files_.close();
}

void Recorder::write(Buffer* batch) {
  for (size_t at = 0; at < batch->size();) {
    uint32_t size;
    std::memcpy(&size, batch->data() + at, sizeof(size));
    at += sizeof(size);
    if (size == 0) {
      uint32_t lost;
      std::memcpy(&lost, batch->data() + at, sizeof(lost));
      at += sizeof(lost);
      unwritten_ += lost;
      continue;
    }
    if (unwritten_ > 0) write_lost();
    if (!files_.write(batch->data() + at, size)) ++unwritten_;
    at += size;
  }
}

void Recorder::write_lost() {
  lost_record_.begin(kLostRecord, {0, microseconds(CLOCK_REALTIME), 0, 0, 0, 0});
  lost_record_.add_integer(Kind::kArgument, "calls", static_cast<int32_t>(unwritten_));
  if (files_.write(lost_record_.bytes().data(), lost_record_.bytes().size())) unwritten_ = 0;
}

void Recorder::stop() {
  if (!is_on_) return;
  is_on_ = false;
  pthread_mutex_lock(&mutex_);
  is_over_ = true;
  pthread_cond_signal(&filled_);
  pthread_mutex_unlock(&mutex_);
  pthread_join(thread_, nullptr);
}

// ----- A call of the application -----------------------------------------------------------------

pthread_once_t g_once = PTHREAD_ONCE_INIT;
void start_once() {
  g_recorder.start();
  pthread_atfork(nullptr, nullptr, [] { g_recorder.forget(); });
}

__attribute__((destructor)) void stop_at_the_end() { g_recorder.stop(); }

// The call that this thread is in: what the engine does then belongs to it.
__thread Call* t_call = nullptr;

class Recording {
 public:
  explicit Recording(const char* name) {
    pthread_once(&g_once, start_once);
    record_ = g_recorder.begin();
    if (record_) {
      call_ = Call(record_, g_recorder.settings(), g_recorder.memory());
      call_.begin(name, g_recorder.next_number());
      t_call = &call_;
    } else if (g_recorder.is_on() && !t_call) {  // two at once, which the library does not allow
      g_recorder.count_lost();
    }
  }
  ~Recording() {
    if (!record_) return;
    t_call = nullptr;
    g_recorder.end();
  }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  Call* call() { return &call_; }

 private:
  Record* record_;
  Call call_;
};

// The library's own function of that name.
template <typename Function>
Function* next_function(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (!found) {
    fprintf(stderr,
            "libkelnn_record: no %s behind this library: is libkelnn.so linked, and after it?\n",
            name);
    abort();
  }
  Function* function;
  std::memcpy(&function, &found, sizeof(function));
  return function;
}

// ----- What the engine does ----------------------------------------------------------------------

size_t values_of(const kel_nn_tensor& tensor) {
  return tensor.dim[0] * tensor.dim[1] * tensor.dim[2];
}

void tell_loaded(Call* call, kel_nn_graph_t graph, kel_nn_model_t model, int code) {
  call->loaded(model, code, graph->net ? 1 : 0);
  if (code != 0) return;
  int32_t shapes[3 + 3 * KEL_NN_MAX_TENSOR_CNT];
  size_t count = 0;
  const auto add = [&](const size_t* dim) {
    for (int axis = 0; axis < 3; ++axis) shapes[count++] = static_cast<int32_t>(dim[axis]);
  };
  add(graph->inputs[0].dim + 1);
  for (const kel_nn_tensor& output : graph->outputs) {
    if (output.buffer) add(output.dim);
  }
  call->shapes(shapes, count);
}

void tell_run(Call* call, kel_nn_graph_t graph, int code) {
  if (!graph) return;
  if (code != 0) return call->failed_to_run();
  const kel_nn_tensor& input = graph->inputs[0];
  size_t count = 0;
  for (const kel_nn_tensor& output : graph->outputs) {
    if (output.buffer) count += values_of(output);
  }
  call->ran(input.buffer, input.buffer ? input.dim[1] * input.dim[2] * input.dim[3] : 0,
            graph->output_data, count);
}

int graph_init(Call* call, decltype(&kel_nne_graph_init) next, kel_nn_graph_t graph,
               kel_nn_model_t model, int scrambled) {
  const bool is_attempt = graph && !graph->net && model;
  const int code = next(graph, model, scrambled);
  if (is_attempt) tell_loaded(call, graph, model, code);
  return code;
}

int run_graph(Call* call, decltype(&kel_nne_run_graph) next, kel_nn_graph_t graph) {
  const int code = next(graph);
  tell_run(call, graph, code);
  return code;
}

}  // namespace
}  // namespace kelnn_record

// ----- The library's functions -------------------------------------------------------------------

using namespace kelnn_record;

#define KEL_NN_NEXT(name)                                                       \
  static decltype(::name)* const next = next_function<decltype(::name)>(#name); \
  Recording recording(#name)

#define KEL_NN_RECORDED(type, name, parameters, form, ...) \
  type name parameters {                                   \
    KEL_NN_NEXT(name);                                     \
    return form(recording.call(), next, ##__VA_ARGS__);    \
  }
#define KEL_NN_RECORDED_OF_HANDLE(type, name) \
  KEL_NN_RECORDED(type, name, (kel_nn_handle_t handle), of_handle, handle)
#define KEL_NN_RECORDED_INIT_FOR_SIZE(name)                                                  \
  KEL_NN_RECORDED(int, name, (kel_nn_handle_t handle, int width, int height), init_for_size, \
                  handle, width, height)

KEL_NN_RECORDED(kel_nn_handle_t, kel_nn_handle_create, (), handle_create)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_handle_destroy)
KEL_NN_RECORDED(int, kel_nn_set_model_root_dir, (const char* dir), set_model_root_dir, dir)

KEL_NN_RECORDED_INIT_FOR_SIZE(kel_nn_facedet_init)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_facedet_deinit)
KEL_NN_RECORDED(int, kel_nn_facedet_process,
                (kel_nn_handle_t handle, const uint8_t* image, kel_nn_facedet_result_t* result),
                facedet_process, handle, image, result)

#define KEL_NN_RECORDED_DETECTOR(task)                                                     \
  KEL_NN_RECORDED_INIT_FOR_SIZE(kel_nn_##task##_init)                                      \
  KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_##task##_deinit)                                   \
  KEL_NN_RECORDED(int, kel_nn_##task##_process,                                            \
                  (kel_nn_handle_t handle, const void* image, kel_nn_det_result_t* result, \
                   const kel_nn_size_t* frame_size, const kel_nn_size_t* input_size),      \
                  detector_process, handle, image, result, frame_size, input_size)
KEL_NN_RECORDED_DETECTOR(persondet)
KEL_NN_RECORDED_DETECTOR(4clsdet)

KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_facercg_init)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_facercg_deinit)
KEL_NN_RECORDED(int, kel_nn_face_feature_extract,
                (kel_nn_handle_t handle, const void* image, kel_nn_feature_t* feature),
                feature_extract, handle, image, feature)
KEL_NN_RECORDED(float, kel_nn_face_feature_similarity_calcul,
                (const kel_nn_feature_t* a, const kel_nn_feature_t* b), feature_similarity, a, b)

KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_facelm_init)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_facelm_deinit)
KEL_NN_RECORDED(int, kel_nn_facelm_process,
                (kel_nn_handle_t handle, const void* image, float* landmarks, float* pose),
                facelm_process, handle, image, landmarks, pose)

KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_face_classify_init)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_face_classify_deinit)
KEL_NN_RECORDED(int, kel_nn_face_classify_process,
                (kel_nn_handle_t handle, const void* image, int* class_id, float* score),
                face_classify_process, handle, image, class_id, score)

KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_person_classify_init)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_person_classify_deinit)
KEL_NN_RECORDED(int, kel_nn_person_classify_process,
                (kel_nn_handle_t handle, const void* image, float* score), person_classify_process,
                handle, image, score)

KEL_NN_RECORDED(int32_t, kel_nn_pir_filter_init,
                (kel_nn_handle_t handle, int32_t width, int32_t height), pir_filter_init, handle,
                width, height)
KEL_NN_RECORDED_OF_HANDLE(int32_t, kel_nn_pir_filter_deinit)
KEL_NN_RECORDED(int32_t, kel_nn_pir_filter_process,
                (kel_nn_handle_t handle, const uint8_t* image, int32_t width, int32_t height,
                 float ratio, int32_t period, int32_t* result),
                pir_filter_process, handle, image, width, height, ratio, period, result)

KEL_NN_RECORDED(int, kel_nn_crydet_init,
                (kel_nn_handle_t handle, uint32_t sample_rate, float gate_threshold), crydet_init,
                handle, sample_rate, gate_threshold)
KEL_NN_RECORDED_OF_HANDLE(int, kel_nn_crydet_deinit)
KEL_NN_RECORDED(int, kel_nn_crydet_process,
                (kel_nn_handle_t handle, const int16_t* pcm, uint32_t n, float* score),
                crydet_process, handle, pcm, n, score)

// The engine, within a task's call and for graphs of the application's own.
int kel_nne_graph_init(kel_nn_graph_t graph, kel_nn_model_t model, int scrambled) {
  static const auto next = next_function<decltype(::kel_nne_graph_init)>("kel_nne_graph_init");
  if (t_call) return graph_init(t_call, next, graph, model, scrambled);
  Recording recording("kel_nne_graph_init");
  Call* const call = recording.call();
  call->graph(graph);
  call->text("model", model);
  call->argument("scrambled", scrambled);
  call->start();
  return call->returned(graph_init(call, next, graph, model, scrambled));
}

int kel_nne_graph_deinit(kel_nn_graph_t graph) {
  static const auto next = next_function<decltype(::kel_nne_graph_deinit)>("kel_nne_graph_deinit");
  if (t_call) return next(graph);
  Recording recording("kel_nne_graph_deinit");
  recording.call()->graph(graph);
  return recording.call()->run(next, graph);
}

int kel_nne_run_graph(kel_nn_graph_t graph) {
  static const auto next = next_function<decltype(::kel_nne_run_graph)>("kel_nne_run_graph");
  if (t_call) return run_graph(t_call, next, graph);
  Recording recording("kel_nne_run_graph");
  Call* const call = recording.call();
  call->graph(graph);
  call->start();
  const int code = run_graph(call, next, graph);
  if (code == 0) {
    const kel_nn_tensor& input = graph->inputs[0];
    call->input("image", Type::kBytes, input.buffer, input.dim[1] * input.dim[2] * input.dim[3]);
  }
  return call->returned(code);
}
