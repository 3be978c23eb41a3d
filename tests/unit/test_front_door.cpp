// SPDX-License-Identifier: Apache-2.0
// The C++ interface over the scripted runtime: what its objects add to the C calls.
#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <optional>

#include "kel_nn.hpp"
#include "kel_nn_model_files.h"
#include "support/library_test.h"
#include "support/networks.h"
#include "support/sounds.h"

namespace kel_nn {
namespace {

using namespace kelnn_test;
using namespace ::testing;

using Bytes = std::vector<uint8_t>;
using Floats = std::vector<float>;

// The error that `action` throws; there must be one.
template <typename Action>
Error error_of(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error;
  }
  ADD_FAILURE() << "no error";
  return Error(Error::kMemory, "none", "none");
}

class FrontDoor : public TaskTest {
 protected:
  FrontDoor() { one_face.set_face(2, 70); }
  // A library that looks where the models are, and a runtime that plays.
  Library library() {
    Library library(models.with_slash());
    printed();
    return library;
  }

  const Bytes pixels = Bytes(640 * 640 * 3, 130);
  const Frame landscape = Frame::rgb(pixels.data(), 640, 360);
  const std::vector<int16_t> loud = sounds(100000)[3].pcm;
  FaceNetwork one_face;  // in the middle
};

// ----- What every task with a network does -------------------------------------------------------

struct AnyTask {
  const char* name;
  std::vector<int> input_shape;
  std::vector<Floats> outputs;
  std::function<std::shared_ptr<void>(const Library&)> make;
  std::function<void(void*)> run;
  std::function<std::shared_ptr<void>(void*)> move;
};

template <typename T, typename Run, typename... Arguments>
AnyTask any_task(const char* name, std::vector<int> input_shape, std::vector<Floats> outputs,
                 Run run, Arguments... arguments) {
  return {name,
          input_shape,
          outputs,
          [=](const Library& library) { return std::make_shared<T>(library, arguments...); },
          [run](void* task) { run(static_cast<T*>(task)); },
          [](void* task) { return std::make_shared<T>(std::move(*static_cast<T*>(task))); }};
}

class EveryTask : public FrontDoor {
 protected:
  std::vector<AnyTask> all() const {
    const auto find = [this](auto* task) { EXPECT_THAT(task->detect(landscape), IsEmpty()); };
    const auto look = [this](auto* task) { task->of(landscape, landscape.whole()); };
    const auto hear = [this](CryDetector* task) {
      int windows = 0;
      task->add(loud.data(), kWindowSamples, [&](float) { ++windows; });
      EXPECT_EQ(windows, 1);
    };
    const Size frame = {640, 360}, wide = {416, 256};
    const std::vector<int> grid = {416, 256, 3}, grey = {112, 112, 1}, colour = {112, 112, 3};
    return {
        any_task<FaceDetector>("face-detection", {320, 240, 3}, FaceNetwork().outputs, find),
        any_task<PersonDetector>("person-detection-landscape", grid, GridNetwork(6, wide).outputs,
                                 find, frame),
        any_task<ObjectDetector>("four-class-detection-landscape", grid,
                                 GridNetwork(9, wide).outputs, find, frame),
        any_task<FaceFeatures>("face-features", grey, {Floats(256, 0.5f)}, look),
        any_task<FaceLandmarks>("face-landmarks", grey, {Floats(10), Floats(3)}, look),
        any_task<FaceClassifier>("face-classes", grey, {{0, 1, 0}}, look),
        any_task<PersonClassifier>("person-classes", colour, {{0, 1}}, look),
        any_task<CryDetector>("cry-detection", {64, 297, 1}, {{0.5f, 2.0f}}, hear),
    };
  }
};

// It is there once, on the same library and on another one: a refusal changes nothing for the first.
TEST_F(EveryTask, SaysWhyItIsRefusedOrFailsAndCanBeTriedAgain) {
  const Library library = this->library(), other = this->library();
  for (const AnyTask& task : all()) {
    SCOPED_TRACE(task.name);
    runtime.play(task.input_shape, task.outputs);
    const auto check = [&](const Error& error, Error::Kind kind) {
      EXPECT_EQ(error.kind(), kind);
      EXPECT_STREQ(error.task(), task.name);
    };
    runtime.fail_next_load = 7;
    const auto load_error = error_of([&] { task.make(library); });
    check(load_error, Error::kModel);
    EXPECT_THAT(load_error.line(), HasSubstr("load model error[7]"));
    EXPECT_THAT(load_error.what(), AllOf(HasSubstr(task.name), EndsWith(load_error.line())));
    EXPECT_THAT(printed_messages(), ElementsAre("[Error]" + load_error.line()));
    EXPECT_EQ(runtime.networks_alive, 0);

    const auto object = task.make(library);
    printed();
    for (const Library* where : {&library, &other}) {
      const auto error = error_of([&] { task.make(*where); });
      EXPECT_EQ(error.kind(), Error::kInUse);
      EXPECT_EQ(error.line(), "Graph has already been initialized.");
      EXPECT_THAT(printed_messages(), ElementsAre("[Error]" + error.line()));
    }
    runtime.fail_next_run = 7;
    const auto run_error = error_of([&] { task.run(object.get()); });
    check(run_error, Error::kRun);
    EXPECT_THAT(run_error.line(), IsEmpty());
    EXPECT_THAT(printed(), HasSubstr("[Error]Inference fail: 7"));
    {
      Messages messages;
      runtime.fail_next_run = 7;
      const auto told = error_of([&] { task.run(object.get()); });
      EXPECT_EQ(told.line(), messages.last_error());
      EXPECT_THAT(messages.text(), HasSubstr("[Error]Inference fail: 7"));
    }
    task.run(object.get());
  }
  EXPECT_EQ(runtime.networks_alive, 0);
}

TEST_F(EveryTask, MovesAndIsDestroyedInAnyOrder) {
  for (const AnyTask& task : all()) {
    SCOPED_TRACE(task.name);
    runtime.play(task.input_shape, task.outputs);
    auto library = std::make_unique<Library>(this->library());
    auto first = task.make(*library);
    auto second = task.move(first.get());
    library.reset();  // the tasks keep what they need
    error_of([&] { task.run(first.get()); });
    task.run(second.get());
    first.reset();
    EXPECT_EQ(runtime.networks_alive, 1);
    task.run(second.get());
    second.reset();
    EXPECT_EQ(runtime.networks_alive, 0);
  }
}

TEST_F(FrontDoor, AssigningReleasesWhatWasThere) {
  runtime.play({320, 240, 3}, one_face.outputs);
  {
    FaceDetector kept(library());
    kept = FaceDetector(std::move(kept));  // through a temporary
    EXPECT_EQ(kept.detect(landscape).size(), 1u);
    EXPECT_EQ(runtime.networks_alive, 1);
  }
  EXPECT_EQ(runtime.networks_alive, 0);
}

TEST_F(FrontDoor, LoadsEachModelFromItsLibrarysDirectory) {
  const TemporaryDirectory elsewhere;
  elsewhere.write(kelnn::kFaceFeatureModel, std::string(3000, 'm'));
  runtime.play({112, 112, 1}, {Floats(256, 0.5f)});
  const Library first(elsewhere.file("")), second(models.with_slash());
  EXPECT_EQ(elsewhere.with_slash(), first.directory());
  EXPECT_EQ(Library("models").directory(), "models/");
  EXPECT_EQ(Library().directory(), "");
  printed();
  const FaceFeatures features(first);
  EXPECT_THAT(printed(), HasSubstr(elsewhere.file(kelnn::kFaceFeatureModel)));
  runtime.play({112, 112, 1}, {{0, 1, 0}});
  const FaceClassifier classifier(second);
  EXPECT_THAT(printed(), HasSubstr(models.file(kelnn::kFaceClassifyModel)));
}

// ----- Detectors ---------------------------------------------------------------------------------

// The face is 64 pixels of 320 x 240 wide and high, its middle at (5.5 / 10, 3.5 / 8).
TEST_F(FrontDoor, FindsFacesInFramesOfAnySizeWithoutLoadingAgain) {
  runtime.play({320, 240, 3}, one_face.outputs);
  const Library library = this->library();
  FaceDetector faces(library);
  printed();
  runtime.fail_next_load = 7;  // from here on
  for (const int scale : {2, 1, 2, 1}) {
    const auto found = faces.detect(Frame::rgb(pixels.data(), 320 * scale, 240 * scale));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_THAT(found[0].box, FieldsAre(144 * scale, 73 * scale, 64 * scale, 64 * scale));
  }
  EXPECT_EQ(runtime.fail_next_load, 7);
  EXPECT_THAT(printed(), IsEmpty());

  // What else was printed is passed on.
  std::printf("before ");
  faces.detect(Frame::rgb(pixels.data(), 640, 480));
  std::printf("after");
  EXPECT_EQ(printed(), "before after");
}

TEST_F(FrontDoor, LoadsAnotherOrientationsModelOnce) {
  const struct {
    Size frame, input;
    const char* task;
    const char* file;
  } cases[] = {
      {{640, 360}, {416, 256}, "person-detection-landscape", kelnn::kPersonDetectionLandscapeModel},
      {{480, 480}, {320, 320}, "person-detection-square", kelnn::kPersonDetectionSquareModel},
      {{360, 640}, {256, 416}, "person-detection-portrait", kelnn::kPersonDetectionPortraitModel},
  };
  const Library library = this->library();
  runtime.play({416, 256, 3}, GridNetwork(6, {416, 256}).outputs);
  PersonDetector persons(library, {1920, 1080});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.task);
    const Frame frame = Frame::rgb(pixels.data(), c.frame.w, c.frame.h);
    GridNetwork network(6, c.input);
    network.anchor(0, 4, 4, 1)[4] = 3;
    runtime.play({c.input.w, c.input.h, 3}, network.outputs);
    if (!persons.is_ready_for(c.frame)) {
      printed();
      runtime.fail_next_load = 7;
      EXPECT_STREQ(error_of([&] { persons.detect(frame); }).task(), c.task);
      EXPECT_EQ(persons.detect(frame).size(), 1u);
      EXPECT_THAT(printed(), HasSubstr(c.file));
    }
    EXPECT_TRUE(persons.is_ready_for(c.frame));
    runtime.fail_next_load = 7;
    EXPECT_EQ(persons.detect(frame).size(), 1u);
    runtime.fail_next_load = 0;
    EXPECT_THAT(runtime.last_input_shape, ElementsAre(c.input.w, c.input.h, 3));
  }
}

// ----- Pictures ----------------------------------------------------------------------------------

TEST_F(FrontDoor, RefusesViewsAndImagesThatCannotBe) {
  const uint8_t* data = pixels.data();
  const Library library = this->library();
  runtime.play({112, 112, 1}, {Floats(256, 0.5f)});
  FaceFeatures features(library);
  const Size four = {4, 4}, no_width = {0, 4};
  const Rect outside = {640, 0, 4, 4};
  const kel_nn_kit_frame_t unknown = {data, 4, 4, 0, static_cast<kel_nn_kit_format_t>(7), nullptr};
  Image image(four, KEL_NN_KIT_GREY), lower({112, 111}, KEL_NN_KIT_GREY);
  Image coloured(kCropSize, KEL_NN_KIT_RGB);
  MotionFilter filter(library);
  const std::pair<const char*, std::function<void()>> refused[] = {
      {"no data", [] { Frame::grey(nullptr, 4, 4); }},
      {"no width", [=] { Frame::grey(data, 0, 4); }},
      {"a negative height", [=] { Frame::rgb(data, 4, -1); }},
      {"too wide", [=] { Frame::bgr(data, KEL_NN_KIT_MAX_SIDE + 1, 1); }},
      {"a width whose row does not fit an int", [=] { Frame::rgb(data, 1 << 30, 1, 1); }},
      {"a stride below a row", [=] { Frame::rgb(data, 4, 4, 11); }},
      {"a negative stride", [=] { Frame::grey(data, 4, 4, -4); }},
      {"a stride too large", [=] { Frame::grey(data, 4, 4, 65537); }},
      {"NV12 of one row", [=] { Frame::nv12(data, 4, 1); }},
      {"an unknown format", [&] { image.scale(Frame(unknown)); }},
      {"an image of no width", [=] { Image(no_width, KEL_NN_KIT_GREY); }},
      {"an image in NV12", [=] { Image(four, KEL_NN_KIT_NV12); }},
      {"a rectangle outside", [&] { image.crop(landscape, outside); }},
      {"points of no face", [&] { image.align(landscape, {}); }},
      {"a cut-out of another size", [&] { features.of(lower); }},
      {"a cut-out in colour", [&] { features.of(coloured); }},
      {"luma without data", [&] { filter.take(nullptr, four); }},
      {"luma without columns", [&] { filter.take(data, no_width); }},
  };
  for (const auto& [name, action] : refused) {
    SCOPED_TRACE(name);
    EXPECT_EQ(error_of(action).kind(), Error::kFrame);
  }
  Frame::rgb(data, 4, 4, 12);
  Frame::nv12(data, 2, 2, 65536, data);
}

TEST_F(FrontDoor, MakesTheSameImagesAsTheKit) {
  Bytes noise(640 * 360 * 3 / 2);
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<uint8_t>(i * 89 + i / 640 * 151);
  const Frame frame = Frame::nv12(noise.data(), 640, 360);
  const Rect rect = {100, 50, 77, 99};
  Bytes expected(112 * 112 * 3);
  const kel_nn_kit_image_t kit = {expected.data(), 112, 112, KEL_NN_KIT_RGB, nullptr};
  Image image({112, 112}, KEL_NN_KIT_RGB);
  const auto expect_same = [&](int result) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Bytes(image.data(), image.data() + expected.size()), expected);
  };
  image.scale(frame);
  expect_same(kel_nn_kit_scale(&frame.view(), &kit));
  image.letterbox(frame);
  expect_same(kel_nn_kit_letterbox(&frame.view(), &kit));
  const long allocations = allocation_count();
  image.crop(frame, rect);
  EXPECT_EQ(allocation_count(), allocations);
  expect_same(kel_nn_kit_crop(&frame.view(), rect, &kit));

  // Eyes, nose and mouth of a face that is cut off on the left and below.
  const kel_nn::Landmarks landmarks = {{0.3f, 0.4f, 0.7f, 0.4f, 0.5f, 0.6f, 0.4f, 0.8f, 0.6f, 0.8f},
                                       {}};
  const auto points = landmarks.in_frame(frame, {-20, 300, 120, 100});
  const float places[] = {30, 324, 70, 324, 50, 336, 40, 348, 60, 348};
  EXPECT_THAT(points, ::testing::Pointwise(::testing::FloatEq(), places));
  image.align(frame, points);
  expect_same(kel_nn_kit_align_face(&frame.view(), points.data(), &kit));
}

// ----- Faces -------------------------------------------------------------------------------------

TEST_F(FrontDoor, GivesWhatTheNetworksOfCutOutsSay) {
  const Library library = this->library();
  Image face(kCropSize, KEL_NN_KIT_GREY), person(kCropSize, KEL_NN_KIT_BGR);
  const Rect box = {10, 20, 30, 40};
  face.crop(landscape, box);

  std::vector<float> values(256, 0.0f);
  values[3] = 3.0f;
  values[4] = 4.0f;
  runtime.play({112, 112, 1}, {values});
  FaceFeatures features(library);
  const Feature feature = features.of(face);
  EXPECT_FLOAT_EQ(feature[4], 0.8f);
  EXPECT_EQ(features.of(landscape, box), feature);
  Feature other = {};
  other[3] = 1.0f;
  EXPECT_EQ(similarity(feature, other), feature[3]);

  runtime.play({112, 112, 1}, {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {-1, -2, -3}});
  const Landmarks landmarks = FaceLandmarks(library).of(face);
  EXPECT_THAT(landmarks.points, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
  EXPECT_THAT(landmarks.pose, ElementsAre(-1, -2, -3));

  runtime.play({112, 112, 1}, {{-1, 0, -2}});
  const FaceClass face_class = FaceClassifier(library).of(face);
  EXPECT_EQ(face_class.id, 1);
  EXPECT_EQ(face_class.score, 0.5f);

  runtime.play({112, 112, 3}, {{1, 1}});
  EXPECT_EQ(PersonClassifier(library).of(person), 0.5f);
}

// ----- Sound and motion --------------------------------------------------------------------------

TEST_F(FrontDoor, HearsEachWindowInWhateverChunksItComes) {
  runtime.play({64, 297, 1}, {{0.5f, 2.0f}});
  const Library library = this->library();
  CryDetector detector(library);
  std::vector<int16_t> sound = loud;
  sound.resize(3 * kWindowSamples);  // the third window is nearly silent
  for (const size_t chunk : {size_t{1600}, size_t{7001}, sound.size()}) {
    SCOPED_TRACE(chunk);
    std::vector<float> heard;
    for (size_t i = 0; i < sound.size(); i += chunk) {
      detector.add(&sound[i], std::min(chunk, sound.size() - i),
                   [&](float probability) { heard.push_back(probability); });
    }
    const float cry = std::exp(2.0f) / (std::exp(0.5f) + std::exp(2.0f));
    EXPECT_THAT(heard, ElementsAre(FloatEq(cry), FloatEq(cry), _));
  }
  EXPECT_THAT(printed(), Not(HasSubstr("[Warning]")));  // no sample was lost

  detector.add(sound.data(), 1000, [](float) {});
  runtime.fail_next_run = 7;
  error_of([&] { detector.add(sound.data(), sound.size(), [](float) {}); });
  int windows = 0;
  detector.add(sound.data(), kWindowSamples, [&](float) { ++windows; });
  EXPECT_EQ(windows, 1);  // the one that failed is gone, and left nothing behind
  EXPECT_EQ(error_of([&] { detector.add(nullptr, 1, [](float) {}); }).kind(), Error::kFrame);
  detector.add(nullptr, 0, [](float) {});
}

TEST_F(FrontDoor, ShowsWhatTheNetworkHears) {
  kel_nn_mfcc_t* context = nullptr;
  ASSERT_EQ(kel_nn_mfcc_create(&context, 16000, 0), 0);
  ASSERT_EQ(kel_nn_mfcc_process(context, loud.data()), 0);
  const Bytes expected(context->feature_u8, context->feature_u8 + 297 * 64);
  kel_nn_mfcc_destory(&context);

  SoundFeatures features;
  ASSERT_TRUE(features.of(loud.data()));
  EXPECT_EQ(features.rows(), 297);
  EXPECT_EQ(features.channels(), 64);
  EXPECT_EQ(Bytes(features.bytes(), features.bytes() + 297 * 64), expected);
  EXPECT_FALSE(features.of(std::vector<int16_t>(kWindowSamples).data()));
  EXPECT_EQ(error_of([&] { features.of(nullptr); }).kind(), Error::kFrame);

  EXPECT_NEAR(features.centre_hz(0), 27.3, 0.5);
  EXPECT_NEAR(features.channel_at(features.centre_hz(40)), 40, 1e-9);
  const float loudness = kel_nn::loudness(loud.data(), kWindowSamples);
  EXPECT_TRUE(SoundFeatures(loudness).of(loud.data()));
  EXPECT_FALSE(SoundFeatures(loudness * 1.001f).of(loud.data()));
}

TEST_F(FrontDoor, DecidesOnMotionAtTheEndOfAPeriod) {
  const Library library = this->library();
  MotionFilter filter(library, 1.0f, 4);
  EXPECT_EQ(error_of([&] { MotionFilter another(library); }).kind(), Error::kInUse);
  const Bytes dark(64 * 64, 0), bright(64 * 64, 200);
  std::vector<std::optional<bool>> seen;
  for (int i = 0; i < 12; ++i) {  // with another size it starts anew
    seen.push_back(filter.take((i < 4 && i % 2 ? bright : dark).data(), {64, i < 8 ? 64 : 32}));
  }
  const std::optional<bool> none;
  EXPECT_THAT(
      seen, ElementsAre(none, none, none, true, none, none, none, false, none, none, none, false));
}

// ----- A network of one's own --------------------------------------------------------------------

TEST_F(FrontDoor, RunsANetworkOfItsOwn) {
  runtime.input_shape = {4, 2, 3};
  runtime.set_outputs({{{1, 2, 3}, {1, 2, 3, 4, 5, 6}}, {{1, 1, 1}, {7}}});
  Graph graph("elsewhere/own.onnx"), moved = std::move(graph);
  EXPECT_EQ(runtime.loaded_path, "elsewhere/own.onnx");  // whatever the root directory was
  EXPECT_EQ(moved.input_size().w, 4);
  EXPECT_EQ(moved.input_size().h, 2);
  EXPECT_EQ(moved.input_channels(), 3);
  Image image({4, 2}, KEL_NN_KIT_RGB);
  image.data()[0] = 129;
  moved.run(image);
  EXPECT_EQ(runtime.last_input[0], 1);
  EXPECT_THAT(moved.output(0).dim, ElementsAre(1, 2, 3));
  EXPECT_EQ(moved.output(0).count(), 6u);
  EXPECT_EQ(moved.output(1).values[0], 7);
  for (const size_t index : {size_t{2}, size_t{16}}) EXPECT_EQ(moved.output(index).count(), 0u);

  EXPECT_EQ(error_of([&] { moved.run(Image({2, 4}, KEL_NN_KIT_RGB)); }).kind(), Error::kFrame);
  EXPECT_EQ(error_of([&] { moved.run(nullptr); }).kind(), Error::kFrame);
  runtime.fail_next_run = 7;
  EXPECT_EQ(error_of([&] { moved.run(image); }).kind(), Error::kRun);
  runtime.fail_next_load = 5;
  EXPECT_THAT(error_of([] { Graph("other.onnx"); }).line(), HasSubstr("error[5]"));
  EXPECT_EQ(runtime.networks_alive, 1);
}

// ----- Messages ----------------------------------------------------------------------------------

TEST_F(FrontDoor, CatchesWhatIsPrinted) {
  std::printf("before\n");
  {
    Messages outer;
    std::printf("kept ");
    kel_nn_handle_destroy(nullptr);
    {
      Messages inner;
      kel_nn_facedet_init(nullptr, 1, 1);
      EXPECT_EQ(inner.errors(), 1u);
      EXPECT_EQ(inner.last_error(), "Uninitialized handle.");
      inner.pass_on();
      EXPECT_THAT(inner.text(), IsEmpty());
      std::printf("gone");
    }
    EXPECT_EQ(outer.errors(), 2u);
    EXPECT_EQ(outer.warnings(), 0u);
    EXPECT_EQ(outer.last_error(), "Uninitialized handle.");
    EXPECT_THAT(outer.text(), AllOf(HasSubstr("kept "), HasSubstr("Unhandled nn handle input."),
                                    Not(HasSubstr("gone"))));
  }
  std::printf("after\n");
  EXPECT_EQ(printed(), "before\nafter\n");
}

TEST_F(FrontDoor, NeverWaitsForSomeoneToReadTheMessages) {
  {
    Messages messages;
    for (int i = 0; i < 1000; ++i) std::puts(std::string(199, '.').c_str());
    EXPECT_GE(messages.text().size(), 60000u);
    std::puts("and now there is room again");
    EXPECT_THAT(messages.text(), EndsWith("again\n"));
  }
  printed();
  std::puts("standard output is itself again");
  EXPECT_EQ(printed(), "standard output is itself again\n");
}

TEST_F(FrontDoor, LoadsWithoutAStandardOutput) {
  runtime.play({320, 240, 3}, one_face.outputs);
  const Library library = this->library();
  const int saved = fcntl(STDOUT_FILENO, F_DUPFD, 100);
  close(STDOUT_FILENO);
  {
    FaceDetector faces(library);
    EXPECT_EQ(faces.detect(landscape).size(), 1u);
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1) << "something else has taken its number";
  }
  dup2(saved, STDOUT_FILENO);
  close(saved);
}

}  // namespace
}  // namespace kel_nn
