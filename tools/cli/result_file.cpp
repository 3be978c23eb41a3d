// SPDX-License-Identifier: Apache-2.0
#include "result_file.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "files.h"
#include "frame_sink.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

std::string path_of(const std::string& path) { return path == "-" ? "/dev/stdout" : path; }

// What does not fit once is not whole any more, whatever other inputs there are.
void write(const std::string& text, Successor* file) {
  try {
    file->write({text.begin(), text.end()});
  } catch (const Failure& failure) {
    throw OutputFailure(failure.what());
  }
}

// ----- A table

// What the numbers of a key's list are called; other keys are one column of their own.
std::vector<std::string> columns_of(const std::string& key) {
  if (key == "pixels") return {"x1", "y1", "x2", "y2", "x3", "y3", "x4", "y4", "x5", "y5"};
  static const std::map<std::string, int> kCounts = {{"feature", 256}, {"points", 10}, {"pose", 3}};
  const auto count = kCounts.find(key);
  if (count == kCounts.end()) return {key};
  std::vector<std::string> columns;
  for (int i = 0; i < count->second; ++i) columns.push_back(fmt::format("{}_{}", key, i));
  return columns;
}

std::string cell(const Json& value) {
  if (value.is_null()) return "";
  if (!value.is_string()) return dumped(value);
  std::string text = value.get<std::string>();
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  for (size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2)
    text.insert(at, "\"");
  return '"' + text + '"';
}

// A line for each object in a result's lists, with what the result says of all of them; or one without.
class Table : public ResultFile {
 public:
  Table(const std::string& path, const std::string& columns) : file_(path_of(path)) {
    std::istringstream keys(columns);
    std::vector<std::string> names;
    for (std::string key; std::getline(keys, key, ',');) {
      const std::vector<std::string> columns = columns_of(key);
      keys_.emplace_back(key, columns.size());
      names.insert(names.end(), columns.begin(), columns.end());
    }
    write(fmt::format("{}\n", fmt::join(names, ",")), &file_);
  }
  void add(const Json& result, bool /*is_picture*/) override {
    std::string lines;
    for (const auto& [name, list] : result.items()) {
      if (!list.is_array() || list.empty() || !list[0].is_object()) continue;
      for (const Json& part : list) lines += line(result, part);
    }
    write(lines.empty() ? line(result, result) : lines, &file_);
  }
  void finish() override { file_.take_over(); }

 private:
  std::string line(const Json& result, const Json& part) const {
    std::vector<std::string> cells;
    for (const auto& [key, width] : keys_) {
      const size_t end = cells.size() + width;
      const Json value = part.contains(key) ? part[key] : result.value(key, Json());
      const Json numbers = value.flatten();  // a list of pairs is a list of numbers
      for (const Json& number : numbers) cells.push_back(cell(number));
      cells.resize(end);
    }
    return fmt::format("{}\n", fmt::join(cells, ","));
  }

  Successor file_;
  std::vector<std::pair<std::string, size_t>> keys_;  // each with its number of columns
};

// ----- Labels as COCO has them

// A video's frame is named as ffmpeg writes it: ffmpeg -i CLIP -start_number 0 CLIP-%06d.png.
class CocoLabels : public ResultFile {
 public:
  CocoLabels(const std::string& path, const std::vector<std::string>& class_names)
      : directory_(path == "-" ? fs::current_path() : fs::absolute(path).parent_path()),
        file_(path_of(path)) {
    for (const std::string& name : class_names) {
      categories_.push_back({{"id", categories_.size()}, {"name", name}});
    }
  }
  void add(const Json& result, bool is_picture) override {
    if (!result.contains("boxes")) return;  // nothing was looked for
    const std::string input = result["input"];
    const size_t image = images_.size();
    std::string name = fs::absolute(input).lexically_proximate(directory_);
    if (!is_picture) name += fmt::format("-{:06}.png", result["frame"].get<int64_t>());
    images_.push_back({{"id", image},
                       {"file_name", name},
                       {"width", result["width"]},
                       {"height", result["height"]}});
    for (const Json& box : result["boxes"]) {
      const int64_t w = box["w"], h = box["h"];
      annotations_.push_back({{"id", annotations_.size()},
                              {"image_id", image},
                              {"category_id", box["class"]},
                              {"bbox", {box["x"], box["y"], w, h}},
                              {"area", w * h},
                              {"iscrowd", 0},
                              {"score", box["score"]}});
    }
  }
  void finish() override {
    write(dumped({{"images", images_}, {"annotations", annotations_}, {"categories", categories_}}),
          &file_);
    file_.take_over();
  }

 private:
  fs::path directory_;
  Successor file_;
  Json images_ = Json::array(), annotations_ = Json::array(), categories_ = Json::array();
};

// ----- Subtitles

constexpr double kLikely = 0.5;    // the probability of a cry from which on it is told
constexpr double kBriefly = 0.04;  // seconds of a frame that is the only one

std::string names_of(const Json& boxes) {
  std::map<std::string, int> counts;
  for (const Json& box : boxes) ++counts[box["name"].get<std::string>()];
  std::vector<std::string> names;
  for (const auto& [name, count] : counts) {
    names.push_back(count == 1 ? name : fmt::format("{} x {}", count, name));
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

std::string escaped(const std::string& text) {
  std::string safe;
  for (const char c : text) safe += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return safe;
}

std::string clock_time(double seconds) {
  const int64_t ms = std::llround(seconds * 1000);
  return fmt::format("{:02}:{:02}:{:02}.{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                     ms % 1000);
}

// A file for each input, with a cue for as long as the same is found.
class Subtitles : public ResultFile {
 public:
  Subtitles(const std::string& out, const Inputs& inputs)
      : outputs_("--vtt", out, inputs, {name_for}) {}
  void add(const Json& result, bool /*is_picture*/) override {
    if (result.contains("event")) return;  // of a moment, of which frames tell as well
    if (!file_ || result["input"] != input_) begin(result["input"]);
    if (result.contains("boxes")) {  // until the next frame
      const double time = result["time"];
      const double step = time > start_of_last_ ? time - start_of_last_ : kBriefly;
      say(time, time + step, names_of(result["boxes"]));
      start_of_last_ = time;
    } else if (result.contains("motion")) {  // of the period before
      say(end_, result["time"], result["motion"] ? "motion" : "");
    } else if (result.contains("probability")) {
      const double cry = result["probability"].is_null() ? 0 : result["probability"].get<double>();
      say(result["start"], result["end"], cry < kLikely ? "" : fmt::format("cry {:.2f}", cry));
    }
  }
  void finish() override {
    if (!file_) return;
    end_cue(end_);
    file_->take_over();
    file_.reset();
  }

 private:
  static std::string name_for(const std::string& place) {
    return fs::path(place).replace_extension(".vtt");
  }
  void begin(const std::string& input) {
    finish();
    input_ = input;
    text_.clear();
    start_of_last_ = end_ = 0;
    file_.emplace(path_of(outputs_.claim(input, name_for)));
    write("WEBVTT\n", &*file_);
  }
  void say(double start, double end, const std::string& text) {
    if (text != text_) {
      end_cue(std::min(start, end_));
      start_ = start;
      text_ = text;
    }
    end_ = end;
  }
  void end_cue(double end) {
    if (text_.empty()) return;
    write(fmt::format("\n{} --> {}\n{}\n", clock_time(start_), clock_time(end), escaped(text_)),
          &*file_);
  }

  OutputNames outputs_;
  std::optional<Successor> file_;  // of the input; none: there was no result yet
  std::string input_, text_;       // of the cue; empty: nothing is found
  double start_ = 0, end_ = 0, start_of_last_ = 0;
};

}  // namespace

std::vector<std::unique_ptr<ResultFile>> make_result_files(const ResultPaths& paths,
                                                           const ResultKind& kind) {
  std::vector<std::string> read = kind.inputs.names;
  read.insert(read.end(), kind.also_read.begin(), kind.also_read.end());
  check_outputs({paths.csv, paths.coco, paths.vtt}, read);
  std::vector<std::unique_ptr<ResultFile>> files;
  if (!paths.csv.empty()) files.push_back(std::make_unique<Table>(paths.csv, kind.columns));
  if (!paths.coco.empty()) {
    files.push_back(std::make_unique<CocoLabels>(paths.coco, kind.class_names));
  }
  if (!paths.vtt.empty()) files.push_back(std::make_unique<Subtitles>(paths.vtt, kind.inputs));
  return files;
}

}  // namespace kelnn_cli
