// SPDX-License-Identifier: Apache-2.0
// kelnn landmarks, feature, compare, classify-face and classify-person: what the networks make of
// faces and persons that are cut out of pictures.
#include <fmt/format.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "face_extractor.h"
#include "frames.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

// ----- The parts that are looked at

struct Part {
  const std::string& path;
  const cv::Mat& picture;
  kel_nn::Rect rect;
  bool is_only_one;
  cv::Mat* drawing;  // empty: none is wanted
};

template <typename Task>
auto found_in_part(const Part& part, Task* task) {
  return task->of(frame_of(part.picture), part.rect);
}

using Place =
    std::function<kel_nn::Rect(const std::string& path, const cv::Mat&, const kel_nn::Rect&)>;

// `found`: the columns of what is found.
bool for_each_part(const CutOutOptions& options, const std::string& found, Reporter* reporter,
                   const std::function<void(const Part&)>& look, const Place& place = chosen_part) {
  const Inputs pictures = listed(options.pictures, InputKind::kPictures, false);
  DrawingTarget drawings(options.out, pictures);
  reporter->begin({"input,x,y,w,h," + found, pictures, {}});
  const std::vector<kel_nn::Rect> boxes =
      options.boxes.empty() ? std::vector<kel_nn::Rect>(1) : options.boxes;
  const bool is_only_one = pictures.names.size() * boxes.size() == 1;
  const InputSettings settings = told(options.input, reporter);
  return for_each_input(pictures, reporter, [&](const std::string& path) {
    const cv::Mat picture = load_picture(path, settings);
    catch_interruption();
    const std::unique_ptr<FrameSink> sink = drawings.open_picture(path);
    cv::Mat drawing = sink ? picture.clone() : cv::Mat();
    for (const kel_nn::Rect& box : boxes) {
      look({path, picture, place(path, picture, box), is_only_one, &drawing});
    }
    if (!sink) return;
    sink->write(drawing);
    sink->finish();
  });
}

// ----- What is found

std::string landmarks_text(const Json& found) {
  std::string text;
  for (size_t i = 0; i < found["points"].size(); ++i) {
    const auto [x, y] = found["points"][i].get<std::array<double, 2>>();
    text += fmt::format("point {}  {:.6g} {:.6g}", i, x, y);
    if (found.contains("pixels")) {
      const auto [column, row] = found["pixels"][i].get<std::array<double, 2>>();
      text += fmt::format("  at pixel {:.1f}, {:.1f}", column, row);
    }
    text += "\n";
  }
  return text +
         fmt::format("pose  {:.6g}\n", fmt::join(found["pose"].get<std::vector<double>>(), "  "));
}

std::string feature_text(const Json& found) {  // nine digits give back the float
  return fmt::format("{:.9g}\n", fmt::join(found["feature"].get<std::vector<double>>(), "\n"));
}

// Where it was found is said before it, in the text only if there is a choice.
void report(const Part& part, const Json& found, const Text& text, Reporter* reporter) {
  Json placed = {{"input", part.path}};
  placed.update(json_of(part.rect));
  placed.update(found);
  if (part.is_only_one) {
    reporter->report(placed, text);
    return;
  }
  reporter->report_one(placed, [&](const Json& result) {
    return filled("{input}, x {x}, y {y}, {w} x {h}:\n", result) + text(result);
  });
}

}  // namespace

bool landmarks(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::FaceLandmarks task{kel_nn::Library(options.root)};
  return for_each_part(options, "pixels,pose,points", reporter, [&](const Part& part) {
    const kel_nn::Landmarks found = found_in_part(part, &task);
    Json json = {{"points", points_json(found.points)}, {"pose", found.pose}};
    if (are_parts(found)) {
      json["pixels"] = points_json(found.in_frame(frame_of(part.picture), part.rect));
    }
    if (!part.drawing->empty()) draw_landmarks(part.drawing, found, part.rect);
    report(part, json, landmarks_text, reporter);
  });
}

bool feature(const CutOutOptions& options, Reporter* reporter) {
  FaceExtractor faces(options.root, options.is_ready, told(options.input, reporter).tell);
  return for_each_part(
      options, "aligned,feature", reporter,
      [&](const Part& part) {
        const ExtractedFeature found = faces.of(part.picture, part.rect);
        report(part, {{"aligned", found.is_aligned}, {"feature", found.values}}, feature_text,
               reporter);
      },
      [&](const auto&... where) { return faces.place(where...); });
}

bool classify_face(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::FaceClassifier task{kel_nn::Library(options.root)};
  return for_each_part(options, "class,score", reporter, [&](const Part& part) {
    const kel_nn::FaceClass found = found_in_part(part, &task);
    report(part, {{"class", found.id}, {"score", found.score}},
           line("class {class}  score {score:.6f}\n"), reporter);
  });
}

bool classify_person(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::PersonClassifier task{kel_nn::Library(options.root)};
  return for_each_part(options, "probability", reporter, [&](const Part& part) {
    const float found = found_in_part(part, &task);
    report(part, {{"probability", found}}, line("{probability:.6f}\n"), reporter);
  });
}

bool compare(const CompareOptions& options, Reporter* reporter) {
  reporter->begin({"a,b,aligned,similarity", {{options.picture_a, options.picture_b}, {}}, {}});
  const InputSettings settings = told(options.input, reporter);
  const cv::Mat picture_a = load_picture(options.picture_a, settings);
  const cv::Mat picture_b = load_picture(options.picture_b, settings);
  FaceExtractor faces(options.root, options.is_ready, settings.tell);
  const auto extract = [&](const std::string& path, const cv::Mat& picture,
                           const kel_nn::Rect& box) {
    return faces.of(picture, faces.place(path, picture, box));
  };
  const ExtractedFeature a = extract(options.picture_a, picture_a, options.box_a);
  const ExtractedFeature b = extract(options.picture_b, picture_b, options.box_b);
  reporter->report({{"a", options.picture_a},
                    {"b", options.picture_b},
                    {"aligned", a.is_aligned && b.is_aligned},
                    {"similarity", kel_nn::similarity(a.values, b.values)}},
                   line("{similarity:.6f}\n"));
  return true;
}

}  // namespace kelnn_cli
