// SPDX-License-Identifier: Apache-2.0
// What each task takes while it runs: the deepest stack of its initialisation, of a call and of its
// release, and the heap. Built for MIPS32r2 and run under emulation by scripts/resources.py.
//
// Each stage runs on a painted stack of its own, which is searched afterwards for the deepest byte
// that lost its colour. The heap is this program's, so that every byte asked for is counted, the C
// library's included. The runtime below takes none: it plays outputs from static memory. A model of
// kModelSize bytes is taken off again.
//
// Writes a line a task on standard error: name, three stacks, peak heap, heap held between calls.
#include <jzdl.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kel_nn.h"
#include "kel_nn_model_files.h"

// ----- The heap: blocks with their size in front, never used twice -------------------------------

namespace {

constexpr size_t kArenaSize = size_t{32} << 20, kHeaderSize = 16;
alignas(16) char g_arena[kArenaSize];
size_t g_arena_used = 0, g_heap = 0, g_heap_peak = 0;

size_t& size_of(void* block) {
  return *reinterpret_cast<size_t*>(static_cast<char*>(block) - kHeaderSize);
}

}  // namespace

extern "C" {
void* malloc(size_t size) {
  if (size > kArenaSize - kHeaderSize - g_arena_used) return nullptr;
  void* block = g_arena + g_arena_used + kHeaderSize;  // zero, as the arena is
  g_arena_used += (kHeaderSize + size + 15) / 16 * 16;
  size_of(block) = size;
  g_heap += size;
  g_heap_peak = std::max(g_heap_peak, g_heap);
  return block;
}
void free(void* block) {
  if (block) g_heap -= size_of(block);
}
void* calloc(size_t count, size_t size) {
  return size && count > kArenaSize / size ? nullptr : malloc(count * size);
}
void* realloc(void* block, size_t size) {
  void* moved = malloc(size);
  if (block && moved) std::memcpy(moved, block, std::min(size, size_of(block)));
  if (moved) free(block);
  return moved;
}
}

// ----- The runtime -------------------------------------------------------------------------------

namespace {

struct Network {
  std::vector<int> input;          // width, height, channels
  std::vector<int> output_counts;  // values of each output
  float even, odd;                 // what they are, by turns
};

const Network* g_network = nullptr;
float g_output[1 << 15];

class PlayedNet : public jzdl::BaseNet {
 public:
  int load_model(const char*, int) override { return 0; }
  std::vector<int> input_shape() override { return g_network->input; }
  int input(jzdl::Mat<signed char>&, int) override { return 0; }
  int run(jzdl::Mat<float>& output, int) override {
    int total = 0;
    for (const int count : g_network->output_counts) total += count;
    for (int i = 0; i < total; ++i) g_output[i] = i % 2 == 0 ? g_network->even : g_network->odd;
    for (const int count : g_network->output_counts) {
      for (const int dim : {1, 1, count}) g_output[total++] = static_cast<float>(dim);
    }
    g_output[total++] = static_cast<float>(g_network->output_counts.size());
    output = jzdl::Mat<float>(total, 1, 1, g_output);
    return 0;
  }
};

}  // namespace

namespace jzdl {
BaseNet* net_create() {
  static PlayedNet net;
  return &net;
}
void net_destory(BaseNet*) {}
void image_sub(Mat<unsigned char>& image, unsigned char value) {
  for (size_t i = 0; image.data && i < image.total(); ++i) image.data[i] -= value;
}
}  // namespace jzdl

// ----- The tasks ---------------------------------------------------------------------------------

namespace {

using Stage = bool (*)();  // whether it succeeded

struct Task {
  const char* name;
  Stage init, call, deinit;
  const char* model = nullptr;
  Network network = {};
};

kel_nn_handle_t g_handle = nullptr;
uint8_t g_image[1920 * 1080 * 4], g_resized[640 * 360 * 4];
kel_nn_box_t g_boxes[2048];
constexpr kel_nn_size_t kFrame = {1920, 1080}, kGridInput = {416, 256};

template <int (*function)(kel_nn_handle_t)>
bool succeeds() {
  return function(g_handle) == 0;
}
template <int (*function)(kel_nn_handle_t, int, int)>
bool succeeds() {
  return function(g_handle, kFrame.w, kFrame.h) == 0;
}

template <int (*process)(kel_nn_handle_t, const void*, kel_nn_det_result_t*, const kel_nn_size_t*,
                         const kel_nn_size_t*)>
bool detects() {
  kel_nn_det_result_t result;
  return process(g_handle, g_image, &result, &kFrame, &kGridInput) == 0 && result.count > 0;
}

template <int channels>
bool resize() {
  constexpr int kSizes[][4] = {
      {1920, 1080, 640, 360}, {640, 360, 416, 234}, {64, 64, 112, 112}, {2, 2, 300, 200}};
  for (const int(&size)[4] : kSizes) {
    kel_nn_pixel_resize_bilinear(g_image, size[0], size[1], g_resized, size[2], size[3], channels);
  }
  return true;
}

template <int count, int type>
bool suppress() {
  for (int i = 0; i < count; ++i) {
    g_boxes[i] = {20.0f * i, 0, 10, 10, static_cast<float>(i * 7919 % count) / count, 0};
  }
  return kel_nn_nms(g_boxes, count, 0.4f, type) == count;
}

bool watch() {
  int32_t motion = -1;
  for (int frame = 0; frame < 3; ++frame) {  // the first two only fill the history
    const uint8_t* image = g_image + 640 * 360 * frame;
    if (kel_nn_pir_filter_process(g_handle, image, 640, 360, 1.0f, 3, &motion) != 0) return false;
  }
  return motion >= 0;
}

// Networks that see something everywhere, so that candidates fill their places.
std::vector<Task> tasks() {
  const auto grid = [](int values_per_anchor) {
    return Network{{kGridInput.w, kGridInput.h, 3},
                   {13 * 8 * 3 * values_per_anchor, 26 * 16 * 3 * values_per_anchor},
                   5.0f,
                   5.0f};
  };
  return {
      {"face detection",
       succeeds<kel_nn_facedet_init>,
       [] {
         kel_nn_facedet_result_t result;
         return kel_nn_facedet_process(g_handle, g_image, &result) == 0 && result.count > 0;
       },
       succeeds<kel_nn_facedet_deinit>,
       kelnn::kFaceDetectionModel,
       {{320, 240, 3}, {7200, 14400, 1200, 2400, 320, 640, 120, 240}, 0.0f, 10.0f}},
      {"face features",
       succeeds<kel_nn_facercg_init>,
       [] {
         kel_nn_feature_t feature;
         return kel_nn_face_feature_extract(g_handle, g_image, &feature) == 0;
       },
       succeeds<kel_nn_facercg_deinit>,
       kelnn::kFaceFeatureModel,
       {{112, 112, 1}, {256}, 1.0f, 2.0f}},
      {"face landmarks",
       succeeds<kel_nn_facelm_init>,
       [] {
         float landmarks[10], pose[3];
         return kel_nn_facelm_process(g_handle, g_image, landmarks, pose) == 0;
       },
       succeeds<kel_nn_facelm_deinit>,
       kelnn::kFaceLandmarksModel,
       {{112, 112, 1}, {10, 3}, 1.0f, 2.0f}},
      {"face classes",
       succeeds<kel_nn_face_classify_init>,
       [] {
         int class_id;
         float score;
         return kel_nn_face_classify_process(g_handle, g_image, &class_id, &score) == 0;
       },
       succeeds<kel_nn_face_classify_deinit>,
       kelnn::kFaceClassifyModel,
       {{112, 112, 1}, {3}, 1.0f, 2.0f}},
      {"person detection", succeeds<kel_nn_persondet_init>, detects<kel_nn_persondet_process>,
       succeeds<kel_nn_persondet_deinit>, kelnn::kPersonDetectionLandscapeModel, grid(6)},
      {"person classes",
       succeeds<kel_nn_person_classify_init>,
       [] {
         float score;
         return kel_nn_person_classify_process(g_handle, g_image, &score) == 0;
       },
       succeeds<kel_nn_person_classify_deinit>,
       kelnn::kPersonClassifyModel,
       {{112, 112, 3}, {2}, 1.0f, 2.0f}},
      {"four-class detection", succeeds<kel_nn_4clsdet_init>, detects<kel_nn_4clsdet_process>,
       succeeds<kel_nn_4clsdet_deinit>, kelnn::kFourClassLandscapeModel, grid(9)},
      {"cry detection",
       [] { return kel_nn_crydet_init(g_handle, 16000, 0.0f) == 0; },
       [] {  // a window at once
         float score = -1.0f;
         const int16_t* pcm = reinterpret_cast<const int16_t*>(g_image);
         return kel_nn_crydet_process(g_handle, pcm, 48000, &score) == 0 && score > 0.0f;
       },
       succeeds<kel_nn_crydet_deinit>,
       kelnn::kCryDetectionModel,
       {{64, 297, 1}, {2}, 0.5f, 2.0f}},
      {"motion filter", [] { return kel_nn_pir_filter_init(g_handle, 640, 360) == 0; }, watch,
       succeeds<kel_nn_pir_filter_deinit>},
      {"resizing, 1 channel", nullptr, resize<1>, nullptr},
      {"resizing, 2 channels", nullptr, resize<2>, nullptr},
      {"resizing, 3 channels", nullptr, resize<3>, nullptr},
      {"resizing, 4 channels", nullptr, resize<4>, nullptr},
      {"suppression, 100 boxes", nullptr, suppress<100, KEL_NN_NMS_HARD>, nullptr},
      {"suppression, 2048 boxes", nullptr, suppress<2048, KEL_NN_NMS_HARD>, nullptr},
  };
}

// ----- The painted stack -------------------------------------------------------------------------

constexpr char kPaint = 0x5a;
alignas(16) char g_stack[256 << 10];
ucontext_t g_main_context;
Stage g_stage = nullptr;
bool g_succeeded = false;

// How deep the stack was, from its top; 0 for a stage that there is not.
size_t stack_of(Stage stage) {
  if (!stage) return 0;
  std::memset(g_stack, kPaint, sizeof(g_stack));
  ucontext_t context;
  getcontext(&context);
  context.uc_stack.ss_sp = g_stack;
  context.uc_stack.ss_size = sizeof(g_stack);
  context.uc_link = &g_main_context;
  makecontext(
      &context, [] { g_succeeded = g_stage(); }, 0);
  g_stage = stage;
  swapcontext(&g_main_context, &context);
  const char* deepest =
      std::find_if(std::begin(g_stack), std::end(g_stack), [](char c) { return c != kPaint; });
  return static_cast<size_t>(std::end(g_stack) - deepest);
}

void require(bool condition, const char* what, const char* problem) {
  if (condition) return;
  std::fprintf(stderr, "%s: %s\n", what, problem);
  std::exit(1);
}

constexpr size_t kModelSize = 2000;

void measure(const Task& task, size_t nothing) {
  const size_t model_size = task.model ? kModelSize : 0;
  if (task.model) {
    static const char content[kelnn::kScrambledSize + kModelSize] = {};
    FILE* file = std::fopen(task.model, "wb");
    require(file && std::fwrite(content, sizeof(content), 1, file) == 1 && std::fclose(file) == 0,
            task.model, "cannot be written");
  }
  g_network = &task.network;
  const size_t before = g_heap_peak = g_heap;
  size_t held = 0;
  std::fprintf(stderr, "%s", task.name);
  for (const Stage stage : {task.init, task.call, task.deinit}) {
    g_succeeded = true;
    const size_t stack = stack_of(stage);
    require(g_succeeded, task.name, "failed");
    std::fprintf(stderr, "|%zu", stack > nothing ? stack - nothing : 0);
    if (stage == task.call) held = g_heap - before;
  }
  require(g_heap == before, task.name, "kept memory");
  std::fprintf(stderr, "|%zu|%zu\n", g_heap_peak - before - model_size, held - model_size);
  if (task.model) std::remove(task.model);
}

}  // namespace

int main() {
  static char buffer[BUFSIZ];
  std::setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));  // none of the heap
  char directory[] = "/tmp/kelnn_resources_XXXXXX";
  require(mkdtemp(directory) && chdir(directory) == 0, directory, "cannot be made");
  for (size_t i = 0; i < sizeof(g_image); ++i) g_image[i] = static_cast<uint8_t>(i * i >> 7);
  g_handle = kel_nn_handle_create();
  kel_nn_set_model_root_dir("./");
  const size_t nothing = stack_of([] { return true; });
  for (const Task& task : tasks()) measure(task, nothing);
  kel_nn_handle_destroy(g_handle);
  return rmdir(directory) == 0 ? 0 : 1;
}
