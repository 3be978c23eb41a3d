// SPDX-License-Identifier: Apache-2.0

#include "kel_nn_change_counter.h"
#include "kel_nn_motion_votes.h"
#include "support/library_test.h"
#include "support/plain_pir_filter.h"

namespace kelnn_test {
namespace {

using ::testing::ElementsAre;

constexpr char kSource[] = "plat/jzt31/kel_nn_pir_filter.cpp";
constexpr int32_t kUntouched = 77;
using Frame = std::vector<uint8_t>;
using Results = std::vector<int32_t>;

class PirFilter : public LibraryTest {
 protected:
  PirFilter() { printed(); }
  ~PirFilter() override {
    kel_nn_pir_filter_deinit(handle);
    kel_nn_handle_destroy(handle);
  }

  // What is reported about the next frame of a start with that size, which does not read it.
  std::vector<std::string> frame_reports(int32_t width, int32_t height) {
    const uint8_t image[1] = {};
    int32_t result = kUntouched;
    EXPECT_EQ(kel_nn_pir_filter_process(handle, image, width, height, 1, 1, &result), -1);
    EXPECT_EQ(result, kUntouched);
    return printed_reports();
  }

  kel_nn_handle_t handle = kel_nn_handle_create();
};

// Before anything was started there is a size, but no memory. Asked before the first test.
const std::vector<std::string> g_before_any_start = [] {
  StdoutCapture capture;
  const uint8_t image[1] = {};
  int32_t result = 0, handle = 0;
  kel_nn_pir_filter_process(reinterpret_cast<kel_nn_handle_t>(&handle), image, 640, 360, 1, 1,
                            &result);
  return messages(capture.take(), true);
}();

// A camera of its own size in front of the filter.
struct Camera {
  kel_nn_handle_t handle;
  int width, height;

  int halved_pixels() const { return (width / 2) * (height / 2); }
  Frame frame(uint8_t level) const { return Frame(size_t(width) * height, level); }
  void start() const { ASSERT_EQ(kel_nn_pir_filter_init(handle, width, height), 0); }
  int32_t process(const Frame& image, float ratio, int32_t period) const {
    int32_t result = kUntouched;
    const int32_t status =
        kel_nn_pir_filter_process(handle, image.data(), width, height, ratio, period, &result);
    EXPECT_EQ(status, 0);
    return result;
  }
};

// In a still scene a ratio of 0 is a vote for motion, and 1 a vote against it.
TEST_F(PirFilter, DecidesAtTheEndOfEachPeriod) {
  const Camera camera = {handle, 20, 20};  // 100 halved pixels, none of which changes
  constexpr int32_t kNone = kUntouched;
  const struct {
    const char* name;
    std::vector<float> ratios;  // by turns
    int32_t period;
    Results results;
  } cases[] = {
      {"every frame", {1}, 1, {kNone, kNone, 0, 0, 0}},
      {"counted from the start", {1}, 4, {kNone, kNone, -1, 0, -1, -1, -1, 0}},
      {"a period that ends before the first vote", {1}, 2, {kNone, kNone, -1, 0, -1, 0}},
      {"no threshold: every frame votes for motion", {0}, 3, {kNone, kNone, 1, -1, -1, 1}},
      {"a tie is no motion, and votes are forgotten",
       {0, 0, 0, 0, 1, 1},
       6,
       {kNone, kNone, -1, -1, -1, 0, -1, -1, -1, -1, -1, 1}},
      {"a tie in a later period", {0, 1}, 4, {kNone, kNone, -1, 0, -1, -1, -1, 0}},
      {"a threshold of less than a pixel is none", {0.99f}, 1, {kNone, kNone, 1}},
      {"a threshold below 0", {-5}, 1, {kNone, kNone, 1}},
      {"a threshold that is not a number", {NAN}, 1, {kNone, kNone, 1}},
      {"a threshold beyond all integers", {3e38f}, 1, {kNone, kNone, 0}},
      {"a period of 0 never ends", {0}, 0, {kNone, kNone, -1, -1, -1, -1}},
      {"a negative period", {0}, -2, {kNone, kNone, -1, 1, -1, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    camera.start();
    Results results;
    for (size_t i = 0; i < c.results.size(); ++i) {
      const float ratio = c.ratios[i % c.ratios.size()];
      results.push_back(camera.process(camera.frame(100), ratio, c.period));
    }
    EXPECT_EQ(results, c.results);
  }
}

// Two products of floats, each rounded to float.
TEST_F(PirFilter, TheThresholdIsAProductInSinglePrecision) {
  // One pixel's share. In double the first product is below 100; rounded once, the second is not.
  for (const Camera& camera : {Camera{handle, 22, 14}, Camera{handle, 70, 70}}) {
    const float ratio = 100.0f / static_cast<float>(camera.halved_pixels());
    camera.start();
    for (int i = 0; i < 2; ++i) camera.process(camera.frame(9), ratio, 1);
    EXPECT_EQ(camera.process(camera.frame(9), ratio, 1), camera.width == 22 ? 0 : 1);
  }
}

TEST_F(PirFilter, AnotherSizeFailsAndChangesNothing) {
  const Camera camera = {handle, 20, 20};
  camera.start();
  camera.process(camera.frame(0), 100, 1);
  int32_t result = kUntouched;
  for (const auto& [w, h] : {std::pair{20, 10}, {10, 20}}) {
    EXPECT_EQ(kel_nn_pir_filter_process(handle, camera.frame(0).data(), w, h, 1, 1, &result), -1);
    expect_error(kSource, "kel_nn_pir_filter_process", "input w,h arguments.");
  }
  EXPECT_EQ(result, kUntouched);
  EXPECT_EQ(camera.process(camera.frame(255), 100, 1), kUntouched);
  EXPECT_EQ(camera.process(camera.frame(0), 100, 1), 1);
}

TEST_F(PirFilter, AStartBeginsAnew) {
  const Camera camera = {handle, 20, 20}, other = {handle, 8, 6};
  for (const Camera* c : {&camera, &other, &camera}) {
    c->start();
    EXPECT_EQ(c->process(c->frame(0), 0, 4), kUntouched);
    EXPECT_EQ(c->process(c->frame(0), 0, 4), kUntouched);
    EXPECT_EQ(c->process(c->frame(0), 0, 4), -1);  // a vote that the next start forgets
  }
  EXPECT_EQ(camera.process(camera.frame(0), 1, 4), 0);
}

TEST_F(PirFilter, RejectsNullArguments) {
  const uint8_t image[4] = {};
  int32_t result = kUntouched;
  EXPECT_EQ(kel_nn_pir_filter_process(nullptr, image, 1, 1, 1, 1, &result), -1);
  EXPECT_EQ(kel_nn_pir_filter_process(handle, nullptr, 1, 1, 1, 1, &result), -1);
  EXPECT_EQ(kel_nn_pir_filter_process(handle, image, 1, 1, 1, 1, nullptr), -1);
  EXPECT_EQ(kel_nn_pir_filter_init(nullptr, 2, 2), -1);
  EXPECT_EQ(kel_nn_pir_filter_deinit(nullptr), -1);
  const char null_argument[] = "kel_nn_pir_filter_process: [Error]input arguments.";
  EXPECT_THAT(printed_reports(),
              ElementsAre(null_argument, null_argument, null_argument,
                          "kel_nn_pir_filter_init: [Error]Uninitialized handle.",
                          "kel_nn_pir_filter_deinit: [Error]Uninitialized handle."));
  EXPECT_EQ(result, kUntouched);
}

TEST_F(PirFilter, ReportsMissingPlanes) {
  const auto no_planes =
      ElementsAre("kel_nn_gaussian_filter: [Error]imput params is err.",
                  "kel_nn_pir_filter_process: [Error]kel_nn_gaussianFilter is err!");
  EXPECT_THAT(g_before_any_start, no_planes);
  for (const auto& [w, h] : {std::pair{-2, 640},
                             {640, -2},
                             {-640, -360},
                             {INT32_MIN, INT32_MIN},
                             {INT32_MAX, INT32_MAX},
                             {65536, 65536}}) {
    EXPECT_EQ(kel_nn_pir_filter_init(handle, w, h), 0);
    EXPECT_THAT(frame_reports(w, h), no_planes) << w;
  }
  const Camera camera = {handle, 20, 20};
  camera.start();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(kel_nn_pir_filter_deinit(handle), 0);
  EXPECT_THAT(frame_reports(20, 20), no_planes);
  {  // without a history only the third frame fails
    const NoMemory no_history(1, 1);
    camera.start();
  }
  for (int i = 0; i < 2; ++i) EXPECT_EQ(camera.process(camera.frame(0), 1, 1), kUntouched);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(frame_reports(20, 20),
                ElementsAre("kel_nn_diff: [Error]imput params is err.",
                            "kel_nn_pir_filter_process: [Error]kel_nn_diff is err!"));
  }
}

TEST_F(PirFilter, TakesFramesWithoutHalvedPixels) {
  for (const auto& [w, h] :
       {std::pair{0, 0}, {1, 1}, {1, 4}, {4, 1}, {1, INT32_MAX}, {INT32_MAX, 1}}) {
    ASSERT_EQ(kel_nn_pir_filter_init(handle, w, h), 0);
    const uint8_t image[4] = {};
    int32_t result = kUntouched;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(kel_nn_pir_filter_process(handle, image, w, h, 50, 1, &result), 0);
    }
    EXPECT_EQ(result, 1) << w << " x " << h;  // nothing of nothing
  }
}

// Frames of a level of their own, with noise.
std::vector<Frame> random_frames(int width, int height, int count) {
  std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
  std::vector<Frame> frames(count, Frame(size_t(width) * height));
  for (Frame& frame : frames) {
    const unsigned level = random() % 90, noise = 1 + random() % 160;
    for (uint8_t& pixel : frame) pixel = static_cast<uint8_t>(level + random() % noise);
  }
  return frames;
}

template <typename Word>
void expect_counts_as_plain(int width, int height) {
  SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height) +
               ", bytes in a word: " + std::to_string(sizeof(Word)));
  kelnn::ChangeCounter<Word> counter;
  counter.allocate(width, height);
  PlainPirFilter plain(width, height);
  int frame_number = 0;
  for (const Frame& frame : random_frames(width, height, 8)) {
    const int changed = static_cast<int>(counter.count(frame.data()));
    int32_t unused = 0;
    plain.process(frame.data(), 1, 1, &unused);
    if (++frame_number < 3) continue;
    EXPECT_EQ(changed, plain.changed()) << "frame " << frame_number;
  }
  counter.release();
}

TEST(ChangeCounter, CountsAsThePlainLoopsDo) {
  for (int width = 2; width <= 71; ++width) {
    for (int height : {2, 4, 5, 6, 7, 8, 13}) {
      const int columns = width == 71 ? 2 * 70001 : width;  // more than a lane can count
      expect_counts_as_plain<uint16_t>(columns, height);
      expect_counts_as_plain<uint32_t>(columns, height);
    }
  }
}

// The copy of the loops that the library picks on this machine.
TEST_F(PirFilter, VotesAsThePlainLoopsDo) {
  for (int width = 150; width < 215; ++width) {
    SCOPED_TRACE(width);
    const Camera camera = {handle, width, 30};
    camera.start();
    PlainPirFilter plain(width, 30);
    bool motion = false;
    for (const Frame& frame : random_frames(width, 30, 10)) {
      int32_t unused = 0;
      plain.process(frame.data(), 1, 1, &unused);
      // By turns a threshold that is cut and reached exactly, and one that is missed by one pixel.
      motion = !motion;
      const float threshold = static_cast<float>(plain.changed()) + (motion ? 0.5f : 1.5f);
      const int32_t result = camera.process(frame, threshold * 100 / camera.halved_pixels(), 1);
      EXPECT_TRUE(result == motion || result == kUntouched) << result;
    }
  }
}

TEST(MotionVotes, FramesAreNumberedAnewAfterTheLastNumber) {
  kelnn::MotionVotes votes;
  votes.frame = INT32_MAX - 1;
  for (const int32_t frame : {INT32_MAX, 1, 2, 3}) {  // the history is filled again
    votes.begin_frame();
    EXPECT_EQ(votes.frame, frame);
    EXPECT_EQ(votes.can_vote(), frame >= 3);
    if (frame == INT32_MAX) {
      EXPECT_EQ(votes.vote(true, INT32_MAX), 1);
    }
  }
}

}  // namespace
}  // namespace kelnn_test
