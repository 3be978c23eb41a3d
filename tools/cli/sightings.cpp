// SPDX-License-Identifier: Apache-2.0
#include "sightings.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "drawing.h"
#include "files.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

bool is_among(const std::string& name, const std::vector<std::string>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

const DetectOptions& checked(const DetectOptions& options) {
  for (const std::string& name : options.only) {
    if (is_among(name, options.class_names)) continue;
    throw UsageError(fmt::format("--only {}: there is no such class; there are: {}", name,
                                 fmt::join(options.class_names, ", ")));
  }
  return options;
}

std::string as_it_is(const std::string& place) { return place; }

std::string text_of(const Json& seen, bool is_picture) {
  const Json boxes = seen.value("boxes", Json::array());
  std::string text =
      filled(is_picture ? "{input}" : kPlace, seen) + filled(", {width} x {height}:", seen);
  if (seen.contains("motion")) text += seen["motion"].get<bool>() ? " motion" : " still";
  if (seen.contains("boxes")) {
    text += fmt::format("{} {} found", seen.contains("motion") ? "," : "", boxes.size());
  }
  if (seen.contains("sound") && seen["sound"].contains("probability")) {
    text += filled(" cry {probability:.5f}", seen["sound"]);
  }
  text += "\n";
  for (const Json& box : boxes) {
    text += filled("  {name} {score:.2f}  x {x}, y {y}, {w} x {h}", box);
    if (box.contains("track")) text += filled(", track {track}", box);
    if (box.contains("who")) text += filled(", {who} {similarity:.2f}", box);
    text += "\n";
  }
  return text;
}

}  // namespace

Sightings::Sightings(const DetectOptions& options, InputKind kind, const std::string& columns,
                     Reporter* reporter, const std::vector<std::string>& also_read)
    : options_(checked(options)),
      reporter_(reporter),
      inputs_(listed(options.inputs, kind, !options.frames.input.raw.empty())),
      drawings_(options.out, inputs_),
      crops_("--save-crops", with_slash(options.crops), inputs_, {as_it_is}) {
  reporter->begin({"input,frame,time,width,height," + columns + "name,class,score,x,y,w,h", inputs_,
                   options.class_names, also_read});
}

void Sightings::begin(const std::string& input) {
  input_ = input;
  if (crops_.are_wanted()) crop_prefix_ = crops_.claim(input, as_it_is);
}

// The classes are few; a model may still say another one.
std::string Sightings::class_name(int id) const {
  const std::vector<std::string>& names = options_.class_names;
  return id >= 0 && static_cast<size_t>(id) < names.size() ? names[static_cast<size_t>(id)]
                                                           : std::to_string(id);
}

void Sightings::leave_out_unwanted(std::vector<Found>* found) const {
  const auto is_unwanted = [&](const Found& one) {
    return one.place.score < options_.least_score ||
           (!options_.only.empty() && !is_among(class_name(one.place.class_id), options_.only));
  };
  found->erase(std::remove_if(found->begin(), found->end(), is_unwanted), found->end());
}

Json Sightings::json(const Frame& frame, const Sighting& seen) const {
  Json json = place_json(input_, frame);
  json.update({{"width", frame.pixels.cols}, {"height", frame.pixels.rows}});
  if (seen.is_motion) json["motion"] = *seen.is_motion;
  if (!seen.found) return json;
  json["boxes"] = Json::array();
  for (const Found& found : *seen.found) {
    Json box = json_of(found.place.box);
    box.update({{"score", found.place.score},
                {"class", found.place.class_id},
                {"name", class_name(found.place.class_id)}});
    if (found.track > 0) box["track"] = found.track;
    if (!found.who.empty()) box.update({{"who", found.who}, {"similarity", found.similarity}});
    if (found.landmarks) {
      box.update(
          {{"points", points_json(found.landmarks->points)}, {"pose", found.landmarks->pose}});
    }
    if (found.feature) {
      box.update({{"feature", found.feature->values}, {"aligned", found.feature->is_aligned}});
    }
    json["boxes"].push_back(box);
  }
  return json;
}

cv::Mat Sightings::drawn(const cv::Mat& bgr, const Sighting& seen) const {
  cv::Mat picture = bgr.clone();
  for (const Found& found : seen.found.value_or(std::vector<Found>())) {
    const auto& [box, score, id] = found.place;
    const std::string name = found.who.empty() ? class_name(id) : found.who;
    const std::string track = found.track > 0 ? fmt::format("{} ", found.track) : "";
    draw_box(&picture, cv_rect(box), fmt::format("{}{} {:.2f}", track, name, score), id);
    if (found.landmarks) draw_landmarks(&picture, *found.landmarks, box);
  }
  return picture;
}

void Sightings::report(Json result, const cv::Mat& bgr, bool is_picture) {
  if (crops_.are_wanted() && result.contains("boxes")) {
    const std::string frame =
        is_picture ? "" : fmt::format("-{:06}", result["frame"].get<int64_t>());
    save_crops(crop_prefix_ + frame, bgr, &result["boxes"]);
  }
  reporter_->report_one(
      result, [&](const Json& json) { return text_of(json, is_picture); }, is_picture);
}

// What was found, as pictures beside each other, whose paths the boxes get: PREFIX-NUMBER.png.
void Sightings::save_crops(const std::string& prefix, const cv::Mat& bgr, Json* boxes) const {
  for (size_t i = 0; i < boxes->size(); ++i) {
    Json& box = (*boxes)[i];
    const std::string path = fmt::format("{}-{}.png", prefix, i);
    check_outputs({path}, inputs_.names);
    const cv::Rect part(box["x"], box["y"], box["w"], box["h"]);
    write_file(path, encode_picture(".png", bgr(part & cv::Rect({}, bgr.size()))));
    box["crop"] = path;
  }
}

}  // namespace kelnn_cli
