// SPDX-License-Identifier: Apache-2.0
// kelnn enroll and kelnn who: faces that are known by name, and whose they are.
#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "face_extractor.h"
#include "files.h"
#include "frames.h"
#include "gallery.h"
#include "picture.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

constexpr char kUnknown[] = "unknown";

bool list_people(const std::string& path, Reporter* reporter) {
  Json people = Json::array();
  for (const auto& [name, faces] : Gallery(path, Gallery::Use::kRead).people()) {
    people.push_back({{"name", name}, {"faces", faces}});
  }
  reporter->report({{"gallery", path}, {"people", people}}, [](const Json& all) {
    std::string text;
    for (const Json& person : all["people"]) text += filled("{name}  {faces}\n", person);
    return text;
  });
  return true;
}

bool remove_person(const EnrollOptions& options, Reporter* reporter) {
  int count = 0;
  {
    const Uninterrupted writing;
    Gallery gallery(options.gallery, Gallery::Use::kWrite);
    count = gallery.remove(options.name);
    if (count == 0) throw Failure(options.gallery, fmt::format("knows no \"{}\"", options.name));
    gallery.keep();
  }
  reporter->report({{"name", options.name}, {"removed", count}},
                   line("{name}: {removed} faces removed\n"));
  return true;
}

std::vector<Json> named(const KnownFaces& known, float threshold, const cv::Mat& bgr,
                        FaceExtractor* faces) {
  std::vector<Json> all;
  for (const auto& [box, score, _] : faces->faces(bgr)) {
    const Match match = known.nearest(faces->of(bgr, box).values);
    Json json = json_of(box);
    json["score"] = score;
    json["name"] = match.similarity > threshold ? match.name : kUnknown;
    json["similarity"] = match.similarity;
    all.push_back(json);
  }
  return all;
}

cv::Mat drawn(const cv::Mat& bgr, const Json& boxes) {
  cv::Mat picture = bgr.clone();
  for (const Json& box : boxes) {
    draw_box(&picture, {box["x"], box["y"], box["w"], box["h"]},
             filled("{name} {similarity:.2f}", box), box["name"] == kUnknown ? 0 : 1);
  }
  return picture;
}

}  // namespace

std::string feature_network(const std::string& root) {
  return with_slash(root) + find_task("face-features")->file_name;
}

bool enroll(const EnrollOptions& options, Reporter* reporter) {
  if (options.wants_list) return list_people(options.gallery, reporter);
  if (options.is_removal) return remove_person(options, reporter);
  if (options.name == kUnknown) throw UsageError("\"unknown\" is what nobody is called");
  const Inputs pictures = listed(options.pictures, InputKind::kPictures, false);
  reporter->begin({"input,name,x,y,w,h", pictures, {}});
  check_outputs({options.gallery}, pictures.names);
  const InputSettings settings = told(options.input, reporter);
  const std::string network = feature_network(options.root);
  if (std::error_code error; std::filesystem::exists(options.gallery, error)) {
    Gallery(options.gallery, Gallery::Use::kRead, network);  // refused before the work
  }
  FaceExtractor faces(options.root, options.is_ready, settings.tell);
  struct Face {
    std::string picture;
    kel_nn::Rect place;
    kel_nn::Feature feature;
    bool is_new = false;
  };
  std::vector<Face> found;
  const bool ok = for_each_input(pictures, reporter, [&](const std::string& path) {
    const cv::Mat picture = load_picture(path, settings);
    const kel_nn::Rect place = faces.place(path, picture, options.box);
    found.push_back({path, place, faces.of(picture, place).values});
  });
  if (found.empty() || interruption()) return ok;
  {  // Others wait while it is written, so that all is at hand before.
    const Uninterrupted writing;
    Gallery gallery(options.gallery, Gallery::Use::kWrite, network);
    for (Face& face : found) face.is_new = gallery.add(options.name, face.picture, face.feature);
    gallery.keep();
  }
  for (const Face& face : found) {
    Json result = {{"input", face.picture}, {"name", options.name}};
    result.update(json_of(face.place));
    result["new"] = face.is_new;
    reporter->report_one(result, [&](const Json& json) {
      return filled("{input}: {name}  x {x}, y {y}, {w} x {h}", json) +
             (face.is_new ? "\n" : ", which is known already\n");
    });
  }
  return ok;
}

bool who(const WhoOptions& options, Reporter* reporter) {
  const Inputs inputs =
      listed(options.inputs, InputKind::kPicturesAndVideos, !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  const InputSettings settings = told(options.frames.input, reporter);
  const KnownFaces known =
      Gallery(options.gallery, Gallery::Use::kRead, feature_network(options.root)).faces();
  if (known.is_empty()) throw Failure(options.gallery, "knows nobody");
  FaceExtractor faces(options.root, false, settings.tell);
  reporter->begin({"input,frame,time,width,height,name,similarity,score,x,y,w,h",
                   inputs,
                   {},
                   {options.gallery}});
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kAll, options.frames, reporter, &drawings);
    const bool is_picture = walk.kind() == FrameSource::Kind::kPicture;
    while (const Frame* frame = walk.next()) {
      Json result = place_json(input, *frame);
      result["width"] = frame->pixels.cols;
      result["height"] = frame->pixels.rows;
      result["boxes"] = named(known, options.threshold, frame->pixels, &faces);
      walk.draw([&] { return drawn(frame->pixels, result["boxes"]); });
      reporter->report_one(
          result,
          [&](const Json& json) {
            std::string text = filled(is_picture ? "{input}" : kPlace, json) + ":\n";
            for (const Json& box : json["boxes"])
              text += filled("  {name} {similarity:.2f}  x {x}, y {y}, {w} x {h}\n", box);
            return text;
          },
          is_picture);
    }
  });
}

}  // namespace kelnn_cli
