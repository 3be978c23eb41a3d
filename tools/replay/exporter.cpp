// SPDX-License-Identifier: Apache-2.0
#include "exporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <opencv2/core.hpp>

#include "files.h"
#include "picture.h"
#include "recorded_calls.h"
#include "sound_file.h"

namespace kelnn_cli {

using namespace kelnn_record;

namespace {

template <typename Value>
bool read(const Entry& entry, const char* name, Type type, Value* value) {
  const Field* field = entry.find(name);
  if (!field || field->type != type || field->value.size() != sizeof(Value)) return false;
  *value = field->at<Value>(0);
  return true;
}

// 16-bit samples, mono.
Bytes wav(const std::vector<int16_t>& samples) {
  const uint32_t size = static_cast<uint32_t>(2 * samples.size());
  const struct {
    char riff[4] = {'R', 'I', 'F', 'F'};
    uint32_t rest;
    char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    uint32_t format_size = 16;
    uint16_t pcm = 1, channels = 1;
    uint32_t rate = kSoundRate, bytes_a_second = 2 * kSoundRate;
    uint16_t bytes_a_frame = 2, bits = 16;
    char data[4] = {'d', 'a', 't', 'a'};
    uint32_t size;
  } header = {.rest = 36 + size, .size = size};
  static_assert(sizeof(header) == 44);
  Bytes bytes(sizeof(header) + size);
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + sizeof(header), samples.data(), size);
  return bytes;
}

}  // namespace

void Exporter::add_label(const std::string& task, const std::string& columns,
                         const std::string& line) {
  std::string& all = labels_[task];
  if (all.empty()) all = columns + "\n";
  all += line + "\n";
}

// Calls are counted from 1 in each process.
std::string Exporter::file_name(const Entry& entry, const char* ending) const {
  return fmt::format("{}-{:08}.{}", processes_, entry.header.number, ending);
}

// Its name in the task's directory; none where the recording has no picture.
std::string Exporter::save_picture(const std::string& task, const Entry& entry, int width,
                                   int height, int channels) {
  const Field* image = entry.find("image");
  const size_t size =
      static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(channels);
  if (!image || image->type != Type::kBytes || size == 0 || image->value.size() != size) return "";
  cv::Mat bgr(height, width, CV_8UC3);
  uint8_t* to = bgr.data;
  for (size_t i = 0; i < size; i += static_cast<size_t>(channels), to += 3) {
    for (int c = 0; c < 3; ++c)
      to[2 - c] = image->value[i + static_cast<size_t>(std::min(c, channels - 1))];
  }
  const std::string name = file_name(entry, "png");
  const std::string path = fmt::format("{}/{}/{}", directory_, task, name);
  const Bytes bytes = encode_picture(".png", bgr);
  if (bytes.empty()) throw Failure(path, "too large for a picture");
  write_file(path, bytes);
  ++files_;
  return name;
}

void Exporter::save_sound(const std::string& name) {
  write_file(fmt::format("{}/cry-detection/{}", directory_, name), wav(window_));
  ++files_;
}

// In pixels of the picture that the network saw: the frame stretched to it, or in its middle.
void Exporter::add_boxes(const std::string& task, const Entry& entry, const std::string& file,
                         kel_nn_size_t frame, kel_nn_size_t input, bool is_letterbox) {
  const Field* boxes = entry.find("boxes");
  const std::string columns = "file,class,x,y,w,h";
  if (!boxes || boxes->type != Type::kBoxes || frame.w <= 0 || frame.h <= 0) return;
  if (boxes->value.empty()) add_label(task, columns, file + ",,,,,");
  double across = 1.0 * input.w / frame.w, down = 1.0 * input.h / frame.h, left = 0, top = 0;
  if (is_letterbox) {
    across = down = 1.0 * std::max(input.w, input.h) / std::max(frame.w, frame.h);
    left = (input.w - across * frame.w) / 2;
    top = (input.h - down * frame.h) / 2;
  }
  for (size_t i = 0; i < boxes->count<kel_nn_box_t>(); ++i) {
    const kel_nn_box_t box = boxes->at<kel_nn_box_t>(i);
    add_label(task, columns,
              fmt::format("{},{},{:.2f},{:.2f},{:.2f},{:.2f}", file, box.class_id,
                          left + (box.cx - box.w / 2) * across, top + (box.cy - box.h / 2) * down,
                          box.w * across, box.h * down));
  }
}

void Exporter::add(const Entry& entry) {
  constexpr int kSide = static_cast<int>(kFaceSide);
  const std::string& name = entry.name;
  int32_t code = -1;
  if (name == kStartRecord && (processes_ == 0 || entry.header.time != process_start_)) {
    ++processes_;
    process_start_ = entry.header.time;
    window_.clear();
  }
  if (name == "kel_nn_facedet_init") {  // taken over also where it fails
    read(entry, "width", Type::kIntegers, &face_frame_.w);
    read(entry, "height", Type::kIntegers, &face_frame_.h);
  }
  if (entry.header.is_repeated) return;
  if (name == "kel_nn_crydet_init") window_.clear();
  if (!read(entry, "returned", Type::kIntegers, &code) || code != 0) return;
  if (name == "kel_nn_facedet_process") {
    const std::string file = save_picture("face-detection", entry, 320, 240, 3);
    if (!file.empty()) add_boxes("face-detection", entry, file, face_frame_, {320, 240}, false);
  } else if (name == "kel_nn_persondet_process" || name == "kel_nn_4clsdet_process") {
    const std::string task =
        name == "kel_nn_persondet_process" ? "person-detection" : "four-class-detection";
    kel_nn_size_t frame, input;
    if (!read(entry, "frame_size", Type::kIntegers, &frame) ||
        !read(entry, "input_size", Type::kIntegers, &input))
      return;
    const std::string file =
        save_picture(task, entry, std::max(0, input.w), std::max(0, input.h), 3);
    if (!file.empty()) add_boxes(task, entry, file, frame, input, true);
  } else if (name == "kel_nn_facelm_process") {
    const Field* points = entry.find("landmarks");
    const std::string file = save_picture("face-landmarks", entry, kSide, kSide, 1);
    if (file.empty() || !points || points->count<float>() != 10) return;
    std::string line = file;
    for (size_t i = 0; i < 10; ++i) line += fmt::format(",{:.2f}", points->at<float>(i) * kSide);
    add_label("face-landmarks", "file,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5", line);
  } else if (name == "kel_nn_face_feature_extract") {
    const std::string file = save_picture("face-features", entry, kSide, kSide, 1);
    if (!file.empty()) add_label("face-features", "file,person", file + ",unknown");
  } else if (name == "kel_nn_face_classify_process") {
    int32_t class_id = 0;
    const std::string file = save_picture("face-classes", entry, kSide, kSide, 1);
    if (file.empty() || !read(entry, "class_id", Type::kIntegers, &class_id)) return;
    add_label("face-classes", "file,class", fmt::format("{},{}", file, class_id));
  } else if (name == "kel_nn_person_classify_process") {
    float score = 0;
    const std::string file = save_picture("person-classes", entry, kSide, kSide, 3);
    if (file.empty() || !read(entry, "score", Type::kFloats, &score)) return;
    add_label("person-classes", "file,class", fmt::format("{},{}", file, score >= 0.5f ? 0 : 1));
  } else if (name == "kel_nn_pir_filter_process") {
    int32_t width = 0, height = 0, result = -1;
    read(entry, "width", Type::kIntegers, &width);
    read(entry, "height", Type::kIntegers, &height);
    const std::string file =
        save_picture("motion", entry, std::max(0, width), std::max(0, height), 1);
    read(entry, "result", Type::kIntegers, &result);
    if (!file.empty()) add_label("motion", "file,motion", fmt::format("{},{}", file, result));
  } else if (name == "kel_nn_crydet_process") {
    const Field* pcm = entry.find("pcm");
    float score = -1;
    if (!pcm || pcm->type != Type::kSamples || !read(entry, "score", Type::kFloats, &score)) return;
    for (size_t i = 0; i < pcm->count<int16_t>() && window_.size() < kCryWindow; ++i) {
      window_.push_back(pcm->at<int16_t>(i));
    }
    if (score < 0) return;
    if (window_.size() == kCryWindow) {  // else it began before the recording
      const std::string file = file_name(entry, "wav");
      save_sound(file);
      add_label("cry-detection", "file,cry,kind",
                fmt::format("{},{},recorded", file, score > 0.5f ? 1 : 0));
    }
    window_.clear();
  }
}

void Exporter::finish() {
  for (const auto& [task, lines] : labels_) {
    write_file(fmt::format("{}/{}/labels.csv", directory_, task),
               Bytes(lines.begin(), lines.end()));
  }
}

}  // namespace kelnn_cli
