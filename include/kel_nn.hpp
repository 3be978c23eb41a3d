// SPDX-License-Identifier: Apache-2.0
/* libkelnn for C++17: the library and its kit as objects; this header is all there is.
 *
 * People in the frames of a camera, in pixels of the frame:
 *
 *      kel_nn::Library library("models");
 *      kel_nn::PersonDetector persons(library, {1920, 1080});
 *      while (const uint8_t* pixels = next_frame()) {
 *        for (const kel_nn::Detection& person :
 *             persons.detect(kel_nn::Frame::nv12(pixels, 1920, 1080))) {
 *          draw(person.box, person.score);
 *        }
 *      }
 *
 * Link libkelnn_kit.a and libkelnn.so. Reading order: errors and messages, pictures, library, tasks,
 * a network of your own. What the tasks do, their networks' inputs and outputs and their limits are
 * in kel_nn.h; what a frame may be is in kel_nn_kit.h.
 *
 * What holds everywhere
 *
 * objects  A constructor loads a model or throws; a destructor releases it. Objects move, and are not
 *          copied. One that was moved from may be assigned to or destroyed. Tasks keep what they need
 *          of their library, so they may be destroyed in any order.
 * one      There is one of each task in the process, because the library keeps a task's state there:
 *          a second object is refused as long as the first one lives, also on another Library.
 *          SoundFeatures and Graph have no such state; there may be any number.
 * errors   Everything that fails throws an Error. The library prints its own lines too.
 * memory   Nothing is allocated for a frame but the vector of what was found, and what the kit says.
 *          Frames are only read, and not kept.
 * threads  One thread at a time uses the library, however many Library objects there are. Frame,
 *          Image and similarity() may be used by any thread, on distinct images.
 */
#ifndef KEL_NN_HPP_
#define KEL_NN_HPP_

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kel_nn.h"
#include "kel_nn_kit.h"

/** The library and its kit as objects. */
namespace kel_nn {

using Size = kel_nn_size_t;         /**< `w` and `h`, in pixels */
using Rect = kel_nn_kit_rect_t;     /**< `x`, `y`, `w` and `h`, in pixels */
using Format = kel_nn_kit_format_t; /**< how pixels are stored: KEL_NN_KIT_GREY and so on */

/* -------------------------------------------------------------------------------------------------
 * Errors and messages
 * ---------------------------------------------------------------------------------------------- */

/** What is thrown.
 *
 *      try {
 *        kel_nn::FaceDetector faces(library);
 *      } catch (const kel_nn::Error& error) {
 *        if (error.kind() == kel_nn::Error::kModel) std::puts(error.what());
 *      }
 */
class Error : public std::runtime_error {
 public:
  /** What failed. */
  enum Kind {
    kMemory, /**< memory is short */
    kModel,  /**< a model does not load */
    kRun,    /**< a network failed, or its outputs are not the task's */
    kFrame,  /**< pixels or samples that cannot be, or that this task does not take */
    kInUse   /**< there is an object of this task already */
  };

  /** An error of `task`; `line` is the library's. */
  Error(Kind kind, const char* task, const std::string& problem, const std::string& line = {})
      : runtime_error(task + (": " + problem) + (line.empty() ? "" : ": " + line)),
        kind_(kind),
        task_(task),
        line_(line) {}

  /** What failed. */
  Kind kind() const { return kind_; }

  /** The task as `kelnn models` calls its model, "person-detection-portrait"; else "picture",
   *  "library", "motion", "sound" or "graph". A text that stays.
   */
  const char* task() const { return task_; }

  /** What the library said last, without colour and place: "Decode model fail." Known of models that
   *  do not load and of refusals; of runs only while there is a Messages. Else empty.
   */
  const std::string& line() const { return line_; }

 private:
  Kind kind_;
  const char* task_;
  std::string line_;
};

/** Catches what goes to the process's standard output while it lives: the library's lines, and
 *  whatever else is printed.
 *
 *  The last one made is the first to be destroyed. What was not passed on then is gone. 64 KiB are
 *  held between two looks; what is printed beyond is lost. A process without a standard output, or
 *  without descriptors left, has nothing caught. Processes that are started meanwhile print into it.
 *
 *      kel_nn::Messages messages;
 *      kel_nn::FaceDetector faces(library);
 *      std::fprintf(stderr, "%zu warnings\n", messages.warnings());
 *      messages.pass_on();
 */
class Messages {
 public:
  /** From here on. */
  Messages() {
    std::fflush(stdout);
    int ends[2];
    saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved_ < 0) return;
    // Never blocking: nobody reads while the library writes.
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
      pipe_ = ends[0];
      dup2(ends[1], STDOUT_FILENO);
      close(ends[1]);
      outer_ = std::exchange(current(), this);
    } else {
      close(saved_);
    }
  }

  ~Messages() {
    if (pipe_ < 0) return;
    std::fflush(stdout);
    std::clearerr(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    close(pipe_);
    current() = outer_;
  }

  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;

  /** All that was caught and not passed on, with colours. Holds until the next call. */
  const std::string& text() {
    char buffer[1024];
    for (bool is_full = true; is_full && pipe_ >= 0;) {
      is_full = std::fflush(stdout) != 0;
      ssize_t size = 0;
      bool is_empty = true;
      while ((size = read(pipe_, buffer, sizeof(buffer))) > 0) {
        text_.append(buffer, static_cast<size_t>(size));
        is_empty = false;
      }
      if (is_empty) break;
    }
    return text_;
  }

  /** How many errors are in text(). */
  size_t errors() { return count("[Error]"); }

  /** How many warnings are in text(). */
  size_t warnings() { return count("[Warning]"); }

  /** The last error in text(), without colour and place; empty if there is none. */
  std::string last_error() {
    constexpr char kTag[] = "[Error]";
    const size_t tag = text().rfind(kTag);
    if (tag == std::string::npos) return {};
    const size_t start = tag + sizeof(kTag) - 1;
    return text_.substr(start, text_.find('\n', start) - start);
  }

  /** Prints what was caught where it would have gone, and forgets it. */
  void pass_on() {
    text();
    for (size_t done = 0; done < text_.size();) {
      const ssize_t size = write(saved_, text_.data() + done, text_.size() - done);
      if (size < 0 && errno == EINTR) continue;
      if (size <= 0) break;
      done += static_cast<size_t>(size);
    }
    text_.clear();
  }

  /** The one that catches now, or null. */
  static Messages*& current() {
    static Messages* messages = nullptr;
    return messages;
  }

 private:
  friend class FaceDetector;

  size_t count(const char* tag) {
    size_t found = 0;
    for (size_t at = text().find(tag); at != std::string::npos; at = text_.find(tag, at + 1)) {
      ++found;
    }
    return found;
  }

  void forget_last_error() {
    const size_t start = text().rfind("\033[0;31m"), end = text_.find("\033[0m", start);
    if (end != std::string::npos) text_.erase(start, end + 4 - start);
  }

  int saved_ = -1, pipe_ = -1;
  Messages* outer_ = nullptr;
  std::string text_;
};

/* -------------------------------------------------------------------------------------------------
 * Pictures
 * ---------------------------------------------------------------------------------------------- */

/** A picture that lies elsewhere, and must stay there as long as it is looked at.
 *
 *  All throw an Error for no data, sides outside 1 to KEL_NN_KIT_MAX_SIDE (NV12: 2) and strides less
 *  than a row or beyond 65536.
 */
class Frame {
 public:
  /** Grey, one byte a pixel. `stride`: bytes from row to row, here and below; 0: no padding. */
  static Frame grey(const uint8_t* data, int width, int height, int stride = 0) {
    return Frame({data, width, height, stride, KEL_NN_KIT_GREY, nullptr});
  }

  /** Red, green, blue. */
  static Frame rgb(const uint8_t* data, int width, int height, int stride = 0) {
    return Frame({data, width, height, stride, KEL_NN_KIT_RGB, nullptr});
  }

  /** Blue, green, red. */
  static Frame bgr(const uint8_t* data, int width, int height, int stride = 0) {
    return Frame({data, width, height, stride, KEL_NN_KIT_BGR, nullptr});
  }

  /** NV12 as video is stored. `chroma`: the second plane; null: right after the first. */
  static Frame nv12(const uint8_t* data, int width, int height, int stride = 0,
                    const uint8_t* chroma = nullptr) {
    return Frame({data, width, height, stride, KEL_NN_KIT_NV12, chroma});
  }

  /** Any format, KEL_NN_KIT_NV12_FULL too. */
  explicit Frame(const kel_nn_kit_frame_t& frame) : frame_(frame) {
    const int least = frame.format >= KEL_NN_KIT_NV12 ? 2 : 1;
    const bool is_colour = frame.format == KEL_NN_KIT_RGB || frame.format == KEL_NN_KIT_BGR;
    const bool is_sized = frame.width >= least && frame.width <= KEL_NN_KIT_MAX_SIDE &&
                          frame.height >= least && frame.height <= KEL_NN_KIT_MAX_SIDE;
    const bool has_stride =
        frame.stride == 0 ||
        (is_sized && frame.stride >= frame.width * (is_colour ? 3 : 1) && frame.stride <= 65536);
    if (!frame.data || !is_sized || !has_stride) {
      throw Error(Error::kFrame, "picture",
                  (frame.data ? "a frame of " : "no data for a frame of ") +
                      std::to_string(frame.width) + " x " + std::to_string(frame.height) +
                      " pixels, " + std::to_string(frame.stride) +
                      " bytes a row; the longest side is " + std::to_string(KEL_NN_KIT_MAX_SIDE));
    }
  }

  /** Its width and height. */
  Size size() const { return {frame_.width, frame_.height}; }

  /** All of it. */
  Rect whole() const { return {0, 0, frame_.width, frame_.height}; }

  /** As the kit takes it. */
  const kel_nn_kit_frame_t& view() const { return frame_; }

 private:
  kel_nn_kit_frame_t frame_;
};

/** A picture of a network's size, made from frames; it keeps its memory.
 *
 *  The three ways to fill it throw an Error, after which it holds nothing of use.
 *
 *      kel_nn::Image face(kel_nn::kCropSize, KEL_NN_KIT_GREY);
 *      face.crop(frame, box);
 *      look(landmarks.of(face), features.of(face));
 */
class Image {
 public:
  /** An image without content. `format`: KEL_NN_KIT_GREY, _RGB or _BGR. Throws an Error for another,
   *  and for sides outside 1 to KEL_NN_KIT_MAX_SIDE.
   */
  Image(Size size, Format format) : size_(size), format_(format) {
    const bool is_sized = size.w >= 1 && size.w <= KEL_NN_KIT_MAX_SIDE && size.h >= 1 &&
                          size.h <= KEL_NN_KIT_MAX_SIDE;
    if (!is_sized || format > KEL_NN_KIT_BGR) {
      throw Error(Error::kFrame, "picture", "no image has this size or format");
    }
    bytes_.resize(static_cast<size_t>(size.w) * static_cast<size_t>(size.h) *
                  static_cast<size_t>(channels()));
  }

  /** The whole frame, not keeping its proportions; kel_nn_kit_scale(). */
  void scale(const Frame& frame) {
    const kel_nn_kit_image_t image = view();
    check(kel_nn_kit_scale(&frame.view(), &image));
  }

  /** The frame in its middle, keeping its proportions; kel_nn_kit_letterbox(). */
  void letterbox(const Frame& frame) {
    const kel_nn_kit_image_t image = view();
    check(kel_nn_kit_letterbox(&frame.view(), &image));
  }

  /** What of a rectangle lies in the frame, not keeping its proportions; kel_nn_kit_crop(). */
  void crop(const Frame& frame, Rect rect) {
    const kel_nn_kit_image_t image = view();
    check(kel_nn_kit_crop(&frame.view(), rect, &image));
  }

  /** A face turned and scaled so that its five points lie where networks for features want them;
   *  kel_nn_kit_align_face(), also for what `points` are.
   */
  void align(const Frame& frame, const std::array<float, 10>& points) {
    const kel_nn_kit_image_t image = view();
    check(kel_nn_kit_align_face(&frame.view(), points.data(), &image));
  }

  /** Rows from top to bottom, channels interleaved, no padding. */
  uint8_t* data() { return bytes_.data(); }

  /** Rows from top to bottom, channels interleaved, no padding. */
  const uint8_t* data() const { return bytes_.data(); }

  /** Its width and height. */
  Size size() const { return size_; }

  /** Its order of channels. */
  Format format() const { return format_; }

  /** 1 or 3. */
  int channels() const { return format_ == KEL_NN_KIT_GREY ? 1 : 3; }

  /** @cond */
  // Throws what one of the kit's results means.
  static void check(int result) {
    if (result == KEL_NN_KIT_NO_MEMORY) throw Error(Error::kMemory, "picture", "memory is short");
    if (result == KEL_NN_KIT_OUTSIDE) {
      throw Error(Error::kFrame, "picture", "the rectangle is outside the frame");
    }
    if (result == KEL_NN_KIT_NO_FACE) {
      throw Error(Error::kFrame, "picture", "the points do not lie like a face's");
    }
    if (result != 0) throw Error(Error::kFrame, "picture", "no such frame");
  }
  /** @endcond */

 private:
  struct Release {
    void operator()(kel_nn_kit_scratch_t* scratch) const {
      kel_nn_kit_scratch_free(scratch);
      delete scratch;
    }
  };

  kel_nn_kit_image_t view() { return {bytes_.data(), size_.w, size_.h, format_, scratch_.get()}; }

  std::unique_ptr<kel_nn_kit_scratch_t, Release> scratch_{new kel_nn_kit_scratch_t{nullptr, 0}};
  Size size_;
  Format format_;
  std::vector<uint8_t> bytes_;
};

/** What the tasks on faces and on cut out persons look at. */
constexpr Size kCropSize = {112, 112};

/** Something in a frame. */
struct Detection {
  Rect box;     /**< pixels of the frame; never empty */
  float score;  /**< 0 to 1, the higher the surer */
  int class_id; /**< 0 in detectors of one class */
};

/* -------------------------------------------------------------------------------------------------
 * Library
 * ---------------------------------------------------------------------------------------------- */

/** The library's handle, and the directory of its models.
 *
 *  Several may be alive, of different directories: each task loads its model from its own library's.
 *  (That is the process's model root directory only while a model loads.)
 */
class Library {
 public:
  /** Prints the banner. `directory` may end with "/" or not; empty: the working directory. Whether it
   *  is there is seen when a model is loaded.
   */
  explicit Library(const std::string& directory = {})
      : state_(std::make_shared<State>(directory)) {}

  /** @cond */
  Library(Library&&) = default;
  Library& operator=(Library&&) = default;
  /** @endcond */

  /** The directory, ended by "/" or empty. */
  const std::string& directory() const { return state_->directory; }

  /** For the functions of kel_nn.h. Holds as long as the library or a task of it. */
  kel_nn_handle_t handle() const { return state_->handle; }

 private:
  friend class Task;

  struct State {
    explicit State(const std::string& root)
        : directory(root.empty() || root.back() == '/' ? root : root + "/"),
          handle(kel_nn_handle_create()) {
      if (!handle) throw Error(Error::kMemory, "library", "memory is short");
    }
    ~State() { kel_nn_handle_destroy(handle); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    const std::string directory;
    const kel_nn_handle_t handle;
  };

  std::shared_ptr<State> state_;
};

/** What the tasks have in common; of no use alone. */
class Task {
  /** @cond */
 public:
  Task(Task&& other) noexcept
      : name_(other.name_),
        library_(std::move(other.library_)),
        slot_(std::exchange(other.slot_, nullptr)) {}
  Task& operator=(Task&& other) noexcept {
    Task gone(std::move(*this));
    library_ = std::move(other.library_);
    slot_ = std::exchange(other.slot_, nullptr);
    name_ = other.name_;
    return *this;
  }

 protected:
  // A task's place in the process.
  struct Slot {
    int (*deinit)(kel_nn_handle_t);
    bool is_taken;
  };

  template <int (*deinit)(kel_nn_handle_t)>
  static Slot& slot() {
    static Slot slot = {deinit, false};
    return slot;
  }

  Task(const Library& library, Slot& slot, const char* name)
      : name_(name), library_(library.state_) {
    if (slot.is_taken) refuse();
    slot.is_taken = true;
    slot_ = &slot;
  }
  ~Task() {
    if (!slot_) return;
    if (library_) slot_->deinit(library_->handle);
    slot_->is_taken = false;
  }

  kel_nn_handle_t handle() const { return library_ ? library_->handle : nullptr; }

  // Loads the model that `init` asks for, in place of the one that may be there.
  template <typename Init>
  void load(Init init) {
    if (library_) slot_->deinit(library_->handle);
    Messages messages;
    if (library_ && kel_nn_set_model_root_dir(library_->directory.c_str()) != 0) {
      throw Error(Error::kMemory, name_, "memory is short");
    }
    const bool is_loaded = init(handle()) == 0;
    const std::string line = is_loaded ? std::string() : messages.last_error();
    messages.pass_on();
    if (is_loaded) return;
    if (library_) slot_->deinit(library_->handle);
    throw Error(line == "Out of memory." ? Error::kMemory : Error::kModel, name_,
                "the model does not load", line);
  }

  void check(int result) const {
    if (result == 0) return;
    throw Error(Error::kRun, name_, "the run failed",
                Messages::current() ? Messages::current()->last_error() : std::string());
  }

  static std::vector<Detection> detections(const kel_nn_box_t* boxes, int count) {
    std::vector<Detection> found;
    found.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      const Rect box = kel_nn_kit_rect_of_box(&boxes[i]);
      if (box.w > 0 && box.h > 0) found.push_back({box, boxes[i].score, boxes[i].class_id});
    }
    return found;
  }

  const char* name_;  // of the model
                      /** @endcond */

 private:
  // In the library's own words: the engine refuses a graph that is initialised. The task's own
  // `_init` would also refuse, but take over a frame's size or empty the sound's window first; and
  // on another handle it would not.
  [[noreturn]] void refuse() {
    Messages messages;
    kel_nn_graph taken = {};
    taken.net = &taken;
    kel_nne_graph_init(&taken, "", 1);
    const std::string line = messages.last_error();
    messages.pass_on();
    throw Error(Error::kInUse, name_, "there is one in the process already", line);
  }

  std::shared_ptr<Library::State> library_;  // null: moved from
  Slot* slot_ = nullptr;                     // null: moved from
};

/* -------------------------------------------------------------------------------------------------
 * Detectors
 *
 * Best score first, in pixels of the frame. What lies outside the frame is not given; the box of a
 * face at an edge reaches beyond it.
 * ---------------------------------------------------------------------------------------------- */

/** Where are faces?
 *
 *      kel_nn::FaceDetector faces(library);
 *      for (const kel_nn::Detection& face : faces.detect(frame)) draw(face.box, face.score);
 */
class FaceDetector : public Task {
 public:
  /** The library leaves out faces up to this score. */
  static constexpr float kLeastScore = 0.8f;

  /** Loads the model. `frame_size`: of the frames, if it is known. */
  explicit FaceDetector(const Library& library, Size frame_size = {0, 0})
      : Task(library, slot<kel_nn_facedet_deinit>(), "face-detection"), frame_size_(frame_size) {
    load([=](kel_nn_handle_t handle) {
      return kel_nn_facedet_init(handle, frame_size.w, frame_size.h);
    });
  }

  /** The faces in a frame; frames of any size in any order, without loading again. */
  std::vector<Detection> detect(const Frame& frame) {
    const Size size = frame.size();
    if (size.w != frame_size_.w || size.h != frame_size_.h) set_frame_size(size);
    input_.scale(frame);
    kel_nn_facedet_result_t faces;
    check(kel_nn_facedet_process(handle(), input_.data(), &faces));
    return detections(faces.boxes, faces.count);
  }

  /** Always: as the other detectors have it. */
  bool is_ready_for(Size /*frame_size*/) const { return true; }

 private:
  // `_init` takes over the size, refuses to load the model again, and prints that.
  void set_frame_size(Size size) {
    Messages messages;
    kel_nn_facedet_init(handle(), size.w, size.h);
    messages.forget_last_error();
    messages.pass_on();
    frame_size_ = size;
  }

  Size frame_size_;
  Image input_{{320, 240}, KEL_NN_KIT_RGB};
};

/** What the detectors with a model for each orientation of frames have in common. */
class GridDetector : public Task {
 public:
  /** The library leaves out what scores less than this. */
  static constexpr float kLeastScore = 0.3f;

  /** What is in a frame. One of another orientation than the one before loads its model, or throws.
   */
  std::vector<Detection> detect(const Frame& frame) {
    const Size size = frame.size(), input_size = kel_nn_kit_detector_input(size.w, size.h);
    if (!is_ready_for(size)) load_for(size);
    input_.letterbox(frame);
    kel_nn_det_result_t found;
    check(kind_->process(handle(), input_.data(), &found, &size, &input_size));
    return detections(found.boxes, found.count);
  }

  /** Whether frames of that size need no other model. */
  bool is_ready_for(Size frame_size) const { return orientation(frame_size) == orientation_; }

 protected:
  /** @cond */
  struct Kind {
    const char* names[3];
    int (*init)(kel_nn_handle_t, int, int);
    int (*process)(kel_nn_handle_t, const void*, kel_nn_det_result_t*, const kel_nn_size_t*,
                   const kel_nn_size_t*);
  };

  GridDetector(const Library& library, Slot& slot, const Kind& kind, Size frame_size)
      : Task(library, slot, kind.names[orientation(frame_size)]), kind_(&kind) {
    load_for(frame_size);
  }
  /** @endcond */

 private:
  enum { kLandscape, kSquare, kPortrait, kNone };

  static int orientation(Size size) {
    return size.h < size.w ? kLandscape : size.h == size.w ? kSquare : kPortrait;
  }

  void load_for(Size size) {
    const int wanted = orientation(size);
    orientation_ = kNone;
    name_ = kind_->names[wanted];
    load([&](kel_nn_handle_t handle) { return kind_->init(handle, size.w, size.h); });
    input_ = Image(kel_nn_kit_detector_input(size.w, size.h), KEL_NN_KIT_RGB);
    orientation_ = wanted;
  }

  const Kind* kind_;
  int orientation_ = kNone;
  Image input_{{1, 1}, KEL_NN_KIT_RGB};
};

/** Where are people?
 *
 *      kel_nn::PersonDetector persons(library, frame.size());
 *      const std::vector<kel_nn::Detection> found = persons.detect(frame);
 */
class PersonDetector : public GridDetector {
 public:
  /** Loads the model for frames of that size's orientation: landscape, square or portrait. */
  PersonDetector(const Library& library, Size frame_size)
      : GridDetector(library, slot<kel_nn_persondet_deinit>(), kind(), frame_size) {}

 private:
  static const Kind& kind() {
    static constexpr Kind kKind = {
        {"person-detection-landscape", "person-detection-square", "person-detection-portrait"},
        kel_nn_persondet_init,
        kel_nn_persondet_process};
    return kKind;
  }
};

/** Where are things of four kinds? `class_id` is 0 to 3, as the model defines them.
 *
 *      kel_nn::ObjectDetector objects(library, frame.size());
 *      const std::vector<kel_nn::Detection> found = objects.detect(frame);
 */
class ObjectDetector : public GridDetector {
 public:
  /** Loads the model for frames of that size's orientation: landscape, square or portrait. */
  ObjectDetector(const Library& library, Size frame_size)
      : GridDetector(library, slot<kel_nn_4clsdet_deinit>(), kind(), frame_size) {}

 private:
  static const Kind& kind() {
    static constexpr Kind kKind = {{"four-class-detection-landscape", "four-class-detection-square",
                                    "four-class-detection-portrait"},
                                   kel_nn_4clsdet_init,
                                   kel_nn_4clsdet_process};
    return kKind;
  }
};

/* -------------------------------------------------------------------------------------------------
 * Faces and persons, cut out
 *
 * Each takes a part of a frame, cut off at its edges and scaled to kCropSize; or an Image of that
 * size and of the task's channels, so that several tasks share one; or such pixels that lie elsewhere.
 * ---------------------------------------------------------------------------------------------- */

/** What these tasks have in common; of no use alone. */
class CropTask : public Task {
 protected:
  /** @cond */
  CropTask(const Library& library, Slot& slot, const char* name, Format format)
      : Task(library, slot, name), crop_(kCropSize, format) {}

  const Image& cut_out(const Frame& frame, Rect rect) {
    crop_.crop(frame, rect);
    return crop_;
  }

  void check_crop(const Image& image) const {
    const Size size = image.size();
    if (size.w == kCropSize.w && size.h == kCropSize.h && image.channels() == crop_.channels()) {
      return;
    }
    throw Error(Error::kFrame, name_, "the image has another size, or other channels");
  }
  /** @endcond */

 private:
  Image crop_;
};

/** 256 values that stand for a face; their squares add up to 1. */
using Feature = std::array<float, 256>;

/** How alike two faces are: 1 the most, -1 the least. From which value on they are the same person
 *  depends on the model.
 */
inline float similarity(const Feature& a, const Feature& b) {
  // The library only reads them.
  const kel_nn_feature_t first = {const_cast<float*>(a.data()), static_cast<uint32_t>(a.size())};
  const kel_nn_feature_t second = {const_cast<float*>(b.data()), static_cast<uint32_t>(b.size())};
  return kel_nn_face_feature_similarity_calcul(&first, &second);
}

/** Who is it?
 *
 *      kel_nn::FaceFeatures features(library);
 *      const kel_nn::Feature known = features.of(frame, box), seen = features.of(other, other.whole());
 *      if (kel_nn::similarity(known, seen) > 0.6f) open_door();
 */
class FaceFeatures : public CropTask {
 public:
  /** Loads the model. */
  explicit FaceFeatures(const Library& library)
      : CropTask(library, slot<kel_nn_facercg_deinit>(), "face-features", KEL_NN_KIT_GREY) {
    load(kel_nn_facercg_init);
  }

  /** Of a face in a frame. */
  Feature of(const Frame& frame, Rect face) { return of(cut_out(frame, face)); }

  /** Of a grey cut-out. */
  Feature of(const Image& face) {
    check_crop(face);
    return of(face.data());
  }

  /** Of 112 * 112 bytes, grey. */
  Feature of(const uint8_t* face) {
    kel_nn_feature_t values;
    check(kel_nn_face_feature_extract(handle(), face, &values));
    Feature feature;
    for (size_t i = 0; i < feature.size(); ++i) feature[i] = values.data[i];
    return feature;
  }
};

/** Five points of a face and which way it looks, as the model gives them. */
struct Landmarks {
  std::array<float, 10> points; /**< x and y of each */
  std::array<float, 3> pose;    /**< three values */

  /** The points in the frame's pixels, for Image::align(), of a model that gives them as parts of
   *  the cut-out. `face`: what was cut out; of it, what lies in the frame.
   */
  std::array<float, 10> in_frame(const Frame& frame, Rect face) const {
    const auto place = [](float part, int start, int size, int limit) {
      const int first = std::max(start, 0);
      const int end = static_cast<int>(std::min<int64_t>(int64_t{start} + size, limit));
      return static_cast<float>(first) + part * static_cast<float>(end - first);
    };
    std::array<float, 10> places;
    for (size_t i = 0; i < places.size(); i += 2) {
      places[i] = place(points[i], face.x, face.w, frame.size().w);
      places[i + 1] = place(points[i + 1], face.y, face.h, frame.size().h);
    }
    return places;
  }
};

/** Where are eyes, nose and mouth?
 *
 *      kel_nn::FaceLandmarks landmarks(library);
 *      show(landmarks.of(frame, box).points);
 */
class FaceLandmarks : public CropTask {
 public:
  /** Loads the model. */
  explicit FaceLandmarks(const Library& library)
      : CropTask(library, slot<kel_nn_facelm_deinit>(), "face-landmarks", KEL_NN_KIT_GREY) {
    load(kel_nn_facelm_init);
  }

  /** Of a face in a frame. */
  Landmarks of(const Frame& frame, Rect face) { return of(cut_out(frame, face)); }

  /** Of a grey cut-out. */
  Landmarks of(const Image& face) {
    check_crop(face);
    return of(face.data());
  }

  /** Of 112 * 112 bytes, grey. */
  Landmarks of(const uint8_t* face) {
    Landmarks found;
    check(kel_nn_facelm_process(handle(), face, found.points.data(), found.pose.data()));
    return found;
  }
};

/** A class of a face. */
struct FaceClass {
  int id;      /**< 0 to 2; what they are comes with the model */
  float score; /**< 0 to 1; does not depend on the other classes */
};

/** Which of three kinds of face?
 *
 *      kel_nn::FaceClassifier classifier(library);
 *      if (classifier.of(frame, box).id == 1) count_one_more();
 */
class FaceClassifier : public CropTask {
 public:
  /** Loads the model. */
  explicit FaceClassifier(const Library& library)
      : CropTask(library, slot<kel_nn_face_classify_deinit>(), "face-classes", KEL_NN_KIT_GREY) {
    load(kel_nn_face_classify_init);
  }

  /** Of a face in a frame. */
  FaceClass of(const Frame& frame, Rect face) { return of(cut_out(frame, face)); }

  /** Of a grey cut-out. */
  FaceClass of(const Image& face) {
    check_crop(face);
    return of(face.data());
  }

  /** Of 112 * 112 bytes, grey. */
  FaceClass of(const uint8_t* face) {
    FaceClass found;
    check(kel_nn_face_classify_process(handle(), face, &found.id, &found.score));
    return found;
  }
};

/** Is it a person?
 *
 *      kel_nn::PersonClassifier classifier(library);
 *      const float probability = classifier.of(frame, box);
 */
class PersonClassifier : public CropTask {
 public:
  /** Loads the model. */
  explicit PersonClassifier(const Library& library)
      : CropTask(library, slot<kel_nn_person_classify_deinit>(), "person-classes", KEL_NN_KIT_RGB) {
    load(kel_nn_person_classify_init);
  }

  /** The probability of the first of two classes, of a part of a frame. Which of them is a person
   *  comes with the model.
   */
  float of(const Frame& frame, Rect person) { return of(cut_out(frame, person)); }

  /** The same of a cut-out in colour. */
  float of(const Image& person) {
    check_crop(person);
    return of(person.data());
  }

  /** The same of 112 * 112 * 3 bytes. */
  float of(const uint8_t* person) {
    float probability;
    check(kel_nn_person_classify_process(handle(), person, &probability));
    return probability;
  }
};

/* -------------------------------------------------------------------------------------------------
 * Sound
 * ---------------------------------------------------------------------------------------------- */

constexpr uint32_t kSoundRate = 16000;   /**< samples a second; mono, 16 bits */
constexpr size_t kWindowSamples = 48000; /**< what is looked at at once: 3 seconds */
constexpr float kLowestGate = 86046.0f;  /**< what lower gates count as */

/** How loud a window of `n` samples is: what a gate is compared with, the sizes of every tenth
 *  sample, added up.
 */
inline float loudness(const int16_t* samples, size_t n) {
  float sum = 0.0f;  // in the library's precision and order
  for (size_t i = 0; i < n; i += 10) sum += static_cast<float>(std::abs(int{samples[i]}));
  return sum;
}

/** Is a baby crying?
 *
 *      kel_nn::CryDetector detector(library);
 *      int16_t samples[1600];
 *      while (const size_t n = record(samples, 1600)) {
 *        detector.add(samples, n, [&](float probability) {
 *          if (probability > 0.5f) alarm();
 *        });
 *      }
 */
class CryDetector : public Task {
 public:
  /** Loads the model. `gate`: how loud a window must be to be shown to the network. */
  explicit CryDetector(const Library& library, float gate = kLowestGate)
      : Task(library, slot<kel_nn_crydet_deinit>(), "cry-detection") {
    load([=](kel_nn_handle_t handle) { return kel_nn_crydet_init(handle, kSoundRate, gate); });
  }

  /** Takes any number of samples, and tells the probability of crying of each window that they fill:
   *  `heard(probability)`, 0.00001 for one that is too quiet. Nothing is lost between windows. One
   *  that throws is gone, and what came after it in `samples`.
   */
  template <typename Heard>
  void add(const int16_t* samples, size_t n, Heard&& heard) {
    if (n > 0 && !samples) throw Error(Error::kFrame, name_, "no samples");
    while (n > 0) {
      const size_t room = kWindowSamples - fill_, part = n < room ? n : room;
      fill_ = part < room ? fill_ + part : 0;
      float probability;
      check(kel_nn_crydet_process(handle(), samples, static_cast<uint32_t>(part), &probability));
      if (part == room) heard(probability);
      samples += part;
      n -= part;
    }
  }

 private:
  size_t fill_ = 0;  // samples of the window that is not full
};

/** What the network of CryDetector sees of a window: energies in mel channels, a row for every 10 ms.
 *  Needs no model.
 *
 *      kel_nn::SoundFeatures features;
 *      if (features.of(window)) plot(features.bytes(), features.rows(), features.channels());
 */
class SoundFeatures {
 public:
  /** `gate`: how loud a window must be. */
  explicit SoundFeatures(float gate = kLowestGate) {
    kel_nn_mfcc_t* context = nullptr;
    if (kel_nn_mfcc_create(&context, kSoundRate, gate) != 0) {
      throw Error(Error::kMemory, "sound", "memory is short");
    }
    context_.reset(context);
  }

  /** Looks at kWindowSamples samples. false: they are too quiet, and bytes() is what it was. */
  bool of(const int16_t* window) {
    if (kel_nn_mfcc_process(context_.get(), window) != 0) {
      throw Error(Error::kFrame, "sound", "no window");
    }
    return context_->has_voice != 0;
  }

  /** 297. */
  int rows() const { return context_->wave.n_frames; }

  /** 64, the lowest first. */
  int channels() const { return context_->cfg.fbank.num_chans; }

  /** Row after row; 128 is a channel's mean over the window. Holds as long as the object. */
  const uint8_t* bytes() const { return context_->feature_u8; }

  /** The middle of a channel, in Hz; channels from 0. */
  double centre_hz(int channel) const {
    return 700.0 * std::expm1((channel + 1) * mel_step() / 1127.0);
  }

  /** The inverse of centre_hz(). */
  double channel_at(double hz) const { return 1127.0 * std::log1p(hz / 700.0) / mel_step() - 1.0; }

 private:
  struct Destroy {
    void operator()(kel_nn_mfcc_t* context) const { kel_nn_mfcc_destory(&context); }
  };

  // From one channel's middle to the next, and from 0 to the first.
  double mel_step() const { return double{context_->cfg.fbank.cf[1]}; }

  std::unique_ptr<kel_nn_mfcc_t, Destroy> context_;
};

/* -------------------------------------------------------------------------------------------------
 * Motion
 * ---------------------------------------------------------------------------------------------- */

/** Did the picture really move?
 *
 *      kel_nn::MotionFilter filter(library);
 *      while (const uint8_t* luma = next_frame()) {
 *        if (filter.take(luma, {640, 360}).value_or(false)) wake_up();
 *      }
 */
class MotionFilter : public Task {
 public:
  /** In per cent; docs/inputs.md has the recordings that it was chosen by. */
  static constexpr float kUsualRatio = 0.3f;
  /** In frames: a second. */
  static constexpr int kUsualPeriod = 25;

  /** Needs no model. `ratio`: from how many changed pixels on a frame votes for motion, in per cent
   *  of the halved frame; `period`: frames in a period. kel_nn_pir_filter_process() tells more.
   */
  explicit MotionFilter(const Library& library, float ratio = kUsualRatio,
                        int period = kUsualPeriod)
      : Task(library, slot<kel_nn_pir_filter_deinit>(), "motion"), ratio_(ratio), period_(period) {}

  /** Takes a luma plane of size.w * size.h bytes. At the end of a period: whether there was motion;
   *  else nothing. Frames of another size than the ones before start anew. Throws an Error for no
   *  plane, sides outside 1 to KEL_NN_KIT_MAX_SIDE, and when memory is short.
   */
  std::optional<bool> take(const uint8_t* luma, Size size) {
    const Frame frame = Frame::grey(luma, size.w, size.h);
    if (size.w != size_.w || size.h != size_.h) {
      kel_nn_pir_filter_init(handle(), size.w, size.h);
      size_ = size;
    }
    int32_t motion = -1;
    check(kel_nn_pir_filter_process(handle(), frame.view().data, size.w, size.h, ratio_, period_,
                                    &motion));
    return motion < 0 ? std::nullopt : std::optional<bool>(motion == 1);
  }

 private:
  float ratio_;
  int period_;
  Size size_ = {0, 0};
};

/* -------------------------------------------------------------------------------------------------
 * A network of your own
 * ---------------------------------------------------------------------------------------------- */

/** A network that is no task's.
 *
 *      kel_nn::Graph graph("my_network.onnx");
 *      kel_nn::Image input(graph.input_size(), KEL_NN_KIT_RGB);
 *      input.scale(frame);
 *      graph.run(input);
 *      use(graph.output(0).values, graph.output(0).count());
 */
class Graph {
 public:
  /** An output of the last run. */
  struct Output {
    const float* values;       /**< hold until the next run; null: there is no such output */
    std::array<size_t, 3> dim; /**< as the model gives them */

    /** How many values there are. */
    size_t count() const { return values ? dim[0] * dim[1] * dim[2] : 0; }
  };

  /** Loads a network; `path` is whole, whatever the directory of a Library. `is_scrambled`: the file
   *  is like those of the tasks; else the runtime reads it itself. Prints its shapes.
   */
  explicit Graph(const std::string& path, bool is_scrambled = false) : graph_(new kel_nn_graph()) {
    Messages messages;
    const bool is_loaded = kel_nn_set_model_root_dir("") == 0 &&
                           kel_nne_graph_init(graph_.get(), path.c_str(), is_scrambled) == 0;
    const std::string line = is_loaded ? std::string() : messages.last_error();
    messages.pass_on();
    if (!is_loaded) throw Error(Error::kModel, "graph", path + " does not load", line);
  }

  /** Width and height of the input. */
  Size input_size() const {
    return {static_cast<int32_t>(input()->dim[2]), static_cast<int32_t>(input()->dim[1])};
  }

  /** How many channels the input has. */
  int input_channels() const { return static_cast<int>(input()->dim[3]); }

  /** Runs it on an image of the input's size and channels. */
  void run(const Image& image) {
    const Size size = input_size();
    if (image.size().w != size.w || image.size().h != size.h ||
        image.channels() != input_channels()) {
      throw Error(Error::kFrame, "graph", "the image is not of the network's size");
    }
    run(image.data());
  }

  /** Runs it on height * width * channels bytes, rows from top to bottom, channels interleaved. */
  void run(const uint8_t* image) {
    // The engine only reads it.
    kel_nne_tensor_set_buffer(input(), const_cast<uint8_t*>(image));
    const int result = image ? kel_nne_run_graph(graph_.get()) : -1;
    kel_nne_tensor_set_buffer(input(), nullptr);
    if (result == 0) return;
    throw Error(image ? Error::kRun : Error::kFrame, "graph", "the run failed",
                Messages::current() ? Messages::current()->last_error() : std::string());
  }

  /** Output `index`, from 0. */
  Output output(size_t index) const {
    if (index >= KEL_NN_MAX_TENSOR_CNT) return {nullptr, {}};
    const auto tensor =
        static_cast<kel_nn_tensor_t>(kel_nne_graph_get_output_tensor(graph_.get(), index));
    return {kel_nne_tensor_get_buffer(tensor), {tensor->dim[0], tensor->dim[1], tensor->dim[2]}};
  }

 private:
  struct Release {
    void operator()(kel_nn_graph* graph) const {
      kel_nne_graph_deinit(graph);
      delete graph;
    }
  };

  kel_nn_tensor_t input() const {
    return static_cast<kel_nn_tensor_t>(kel_nne_graph_get_input_tensor(graph_.get(), 0));
  }

  std::unique_ptr<kel_nn_graph, Release> graph_;
};

}  // namespace kel_nn

#endif  // KEL_NN_HPP_
